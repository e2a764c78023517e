#pragma once

// The emulated board: qemu-system-arm started by the library and driven through its GDB stub, with
// QEMU's machine protocol for reading memory while the CPU runs. The stub doesn't show MSP, PSP,
// PRIMASK, BASEPRI, FAULTMASK and CONTROL; they are read and written by running single MRS and MSR
// instructions placed in scratch RAM, with the registers and memory they touch put back afterwards.

#include "probe/backends/Devices.h"
#include "probe/backends/QemuProcess.h"
#include "probe/backends/QmpClient.h"
#include "probe/backends/RemoteBackend.h"

#include <memory>

namespace tarvo {

/// Library lock held by the caller; the process watchdog thread only marks the connection lost.
class QemuBackend : public RemoteBackend {
public:
    QemuBackend(const DeviceEntry& Board, std::string QemuBinary, std::vector<std::string> ExtraArgs,
                TextSink Sink);
    ~QemuBackend() override;

    bool Connect(std::string& Error) override;
    void Disconnect() override;
    int HaltState() override;
    int BackgroundAccess() const override { return 1; }
    bool IsRam(U32) const override { return true; }
    std::string Firmware() const override;
    U32 SerialNumber() const override;

    /// The process id of QEMU, 0 when none runs (for tests that kill the board).
    int ProcessId() const { return m_Process.Pid(); }

protected:
    /// QEMU's stub never waits for an acknowledgement: send it with the next packet.
    void ConfigureClient(rsp::GdbClient& C) override { C.SetLazyAcks(true); }
    bool ResetTarget() override;
    std::string ExplainLoss(const std::string& ClientReason) override;
    size_t ReadWhileRunning(U32 Address, size_t Size, U8* Out) override;
    void ReadMissingRegisters(const std::vector<U32>& Indices, std::vector<U64>& Values,
                              std::vector<U8>& Got) override;
    bool WriteMissingRegister(U32 Index, U64 Value) override;

private:
    bool ReadCore(U32 Index, U64& Value);
    bool WriteCore(U32 Index, U64 Value);
    bool PrepareXpsr(U64 Xpsr);

    DeviceEntry m_Board;
    std::string m_Binary;
    std::vector<std::string> m_ExtraArgs;
    QemuProcess m_Process;
    std::unique_ptr<QmpClient> m_Qmp;
    std::atomic<rsp::ClientBase*> m_LiveClient{nullptr};
};

/// The serial number of the emulated probe on the USB interface.
constexpr U32 EmulatedProbeSerial = TARVO_EMU_SERIAL_NO;

} // namespace tarvo
