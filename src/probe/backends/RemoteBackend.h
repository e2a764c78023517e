#pragma once

// The target behind a GDB server, reached through the remote protocol client. Registers are found by
// name in the server's target description; a breakpoint or a watchpoint at the stop is stepped over
// before a resume, as servers report them again otherwise.

#include "probe/backends/Backend.h"
#include "probe/backends/RegisterMap.h"
#include "probe/rsp/GdbClient.h"

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <tuple>
#include <vector>

namespace tarvo {

struct FlashRegion {
    U32 Start = 0;
    U32 Size = 0;
    U32 BlockSize = 0;
};

/// Library lock held by the caller (one thread at a time).
class RemoteBackend : public Backend {
public:
    RemoteBackend(std::string Host, uint16_t Port, TextSink Sink);
    ~RemoteBackend() override;

    bool Connect(std::string& Error) override;
    void Abort() override;
    void Disconnect() override;
    bool IsConnected() const override;
    std::string LostReason() const override;

    int HaltState() override;
    bool Halt() override;
    bool Go(bool StepOverBreakpoint) override;
    bool Step() override;
    bool Reset() override;

    size_t ReadMemory(U32 Address, size_t Size, U8* Out) override;
    size_t WriteMemory(U32 Address, size_t Size, const U8* Data) override;
    int BackgroundAccess() const override { return 2; }

    bool ReadRegisters(const U32* Indices, U64* Values, U8* Status, size_t Count) override;
    bool WriteRegister(U32 Index, U64 Value) override;

    InsertResult InsertPoint(PointKind Kind, U32 Address, U32 Size) override;
    bool RemovePoint(PointKind Kind, U32 Address, U32 Size) override;
    bool IsRam(U32 Address) const override;

    void BeginDownload() override;
    int EndDownload() override;

    void InvalidateCache() override { InvalidateRegisters(); }
    std::string Firmware() const override;
    bool Monitor(const std::string& Command, std::string& Output) override;

    /// Reply time-out in milliseconds, for this and later connections.
    void SetTimeout(int Ms);
    const rsp::TargetDescription& Description() const { return m_Description; }

protected:
    /// Negotiates, reads the target description and the halt state over an open socket.
    bool Attach(rsp::Socket S, std::string& Error);
    rsp::GdbClient* Client() const { return m_Client.get(); }
    /// Whether Abort was called since this back end was made.
    bool IsAborted() const { return m_Aborted.load(); }
    bool IsHaltedNow() const { return m_Halted; }
    const TextSink& Sink() const { return m_Sink; }

    /// Adjusts a new client before the first packet.
    virtual void ConfigureClient(rsp::GdbClient& C) { (void)C; }
    /// Registers the description lacks, which a derived back end may reach another way. The target is
    /// halted. Got[i] is set for each index read into Values[i].
    virtual void ReadMissingRegisters(const std::vector<U32>& Indices, std::vector<U64>& Values,
                                      std::vector<U8>& Got);
    virtual bool WriteMissingRegister(U32 Index, U64 Value);
    /// Reset with the target left halted; the default asks the server's monitor and falls back to a
    /// system reset request with the reset vector catch set.
    virtual bool ResetTarget();
    /// A read while the target runs; the default halts it for the access.
    virtual size_t ReadWhileRunning(U32 Address, size_t Size, U8* Out);
    /// Called when the connection turns out to be gone, with the reason.
    void ReportLost(const std::string& Reason);
    /// Tells the error callback once per connection that it is gone. Any thread.
    void AnnounceLost(const std::string& Reason);
    /// The reason to give for a connection that broke with ClientReason; a derived back end may know
    /// better (the process behind it ended).
    virtual std::string ExplainLoss(const std::string& ClientReason) { return ClientReason; }
    void InvalidateRegisters();
    bool StartResume(bool Step);
    bool WaitStepStop();
    /// One step of code put there by the back end itself: the reason of the last stop (a watchpoint
    /// to step over) stays as it was.
    bool StepInjected();

    /// Cortex-M cores run Thumb code only: sets the T bit of the xPSR where it is clear. False when the
    /// connection broke.
    bool KeepThumbState();

    /// Stops a running target for an access; Resume tells whether to resume it afterwards (it is
    /// false when the target stopped on its own in the meantime).
    bool PauseForAccess(bool& Resume);
    void ResumeAfterAccess(bool Resume);

    /// The target stands as the last reset left it: it hasn't run and no register was written since.
    /// Code that puts registers back as they were keeps it.
    bool m_AtReset = false;

private:
    bool ReadRaw(const rsp::RegisterInfo& Info, std::vector<U8>& Bytes);
    bool WriteRaw(const rsp::RegisterInfo& Info, const std::vector<U8>& Bytes);
    void OnStop(const std::string& Reply);
    bool StepOverWatchpoints();
    bool LoadMemoryMap();
    /// Programs the flash blocks collected since BeginDownload: 0 or a negative download code.
    int ProgramFlash();
    /// Takes SP, PC and the T bit from the vector table as a reset would.
    void ReloadResetVectors();

    std::string m_Host;
    uint16_t m_Port;
    TextSink m_Sink;
    int m_TimeoutMs = 3000;
    std::unique_ptr<rsp::GdbClient> m_Client; // replaced under m_AbortMutex, which Abort takes
    std::mutex m_AbortMutex;
    std::atomic<bool> m_Aborted{false};
    rsp::TargetDescription m_Description;
    RegisterMap m_Map;
    bool m_Halted = false;
    bool m_MProfile = false; // the description's core is a Cortex-M
    bool m_LastStopWasWatch = false;
    std::atomic<bool> m_LostReported{false};
    std::vector<U8> m_G;
    bool m_GValid = false;
    std::map<int, std::vector<U8>> m_RegisterCache; // registers outside the g packet, by number
    std::map<U32, U64> m_MissingCache;
    std::set<U32> m_CodeBreakpoints;
    struct Watch {
        PointKind Kind;
        U32 Address;
        U32 Size;
        bool operator<(const Watch& O) const {
            return std::tie(Kind, Address, Size) < std::tie(O.Kind, O.Address, O.Size);
        }
    };
    std::set<Watch> m_Watchpoints;
    // Flash programming between BeginDownload and EndDownload: whole blocks, by block address.
    std::vector<FlashRegion> m_Flash;
    bool m_MemoryMapRead = false;
    bool m_Downloading = false;
    std::map<U32, std::vector<U8>> m_FlashBlocks;
};

} // namespace tarvo
