#include "probe/backends/QemuBackend.h"

#include <chrono>
#include <cstring>
#include <thread>

namespace tarvo {

namespace {

// SYSm numbers of the special registers for MRS and MSR.
int SpecialRegister(U32 Index) {
    switch (Index) {
    case TARVO_REG_MSP:
        return 8;
    case TARVO_REG_PSP:
        return 9;
    case TARVO_REG_PRIMASK:
        return 16;
    case TARVO_REG_BASEPRI:
        return 17;
    case TARVO_REG_FAULTMASK:
        return 19;
    case TARVO_REG_CONTROL:
        return 20;
    default:
        return -1;
    }
}

void PutHalfword(std::vector<U8>& Code, U32 Halfword) {
    Code.push_back(static_cast<U8>(Halfword));
    Code.push_back(static_cast<U8>(Halfword >> 8));
}

// The IT state of the xPSR would make the injected instruction conditional.
constexpr U64 ItStateBits = 0x0600FC00;

} // namespace

QemuBackend::QemuBackend(const DeviceEntry& Board, std::string QemuBinary, std::vector<std::string> ExtraArgs,
                         TextSink Sink)
    : RemoteBackend("127.0.0.1", 0, std::move(Sink)), m_Board(Board), m_Binary(std::move(QemuBinary)),
      m_ExtraArgs(std::move(ExtraArgs)) {}

QemuBackend::~QemuBackend() {
    QemuBackend::Disconnect();
}

bool QemuBackend::Connect(std::string& Error) {
    QemuBackend::Disconnect();
    if (IsAborted()) {
        Error = "the connection was canceled";
        return false;
    }
    const TextSink& Out = Sink();
    m_Process.SetOutputHandler([Out](const std::string& Line) {
        const bool IsError =
            Line.find("fatal") != std::string::npos || Line.find("error") != std::string::npos;
        const bool IsWarning = Line.find("warning") != std::string::npos;
        const auto& F = IsError ? Out.Error : IsWarning ? Out.Warn : Out.Info;
        if (F) {
            F("qemu-system-arm: " + Line);
        }
    });
    m_Process.SetExitHandler([this](const std::string& Why) {
        if (rsp::ClientBase* C = m_LiveClient.load()) {
            C->Kill(Why);
        }
        AnnounceLost(Why);
    });
    QemuProcess::Options O;
    O.Binary = m_Binary;
    O.Machine = m_Board.Machine;
    O.ExtraArgs = m_ExtraArgs;
    if (!m_Process.Start(O, Error)) {
        return false;
    }
    m_Qmp = std::make_unique<QmpClient>(m_Process.TakeQmpFd());
    std::string Why;
    rsp::Socket S = rsp::Socket::ConnectTcp("127.0.0.1", m_Process.GdbPort(), 5000, Why);
    // QEMU takes a while to come up under load: give the first answers time.
    SetTimeout(5000);
    const bool Ok = S.IsOpen() && Attach(std::move(S), Why) && m_Qmp->Open(5000, Why);
    SetTimeout(3000);
    if (Ok) {
        m_LiveClient = Client();
        return true;
    }
    m_Process.Stop();
    Error =
        "Could not start the emulated board " + std::string(m_Board.Name) + ": " +
        (m_Process.ExitDescription().find("exit status") != std::string::npos ? m_Process.ExitDescription()
                                                                              : Why);
    QemuBackend::Disconnect();
    return false;
}

void QemuBackend::Disconnect() {
    m_Process.Stop(); // joins the watchdog: no exit handler runs after this
    m_LiveClient = nullptr;
    m_Qmp.reset();
    RemoteBackend::Disconnect();
}

int QemuBackend::HaltState() {
    if (m_Process.Pid() > 0 && !m_Process.IsRunning()) {
        ReportLost(m_Process.ExitDescription());
        return -1;
    }
    return RemoteBackend::HaltState();
}

std::string QemuBackend::Firmware() const {
    return "Tarvo emulated probe V6.22 for " + std::string(m_Board.Name) + " (qemu-system-arm -M " +
           m_Board.Machine + ") compiled " __DATE__;
}

// The socket usually breaks a moment before the process is reaped: wait a little for the better reason.
std::string QemuBackend::ExplainLoss(const std::string& ClientReason) {
    for (int i = 0; i < 30 && m_Process.Pid() > 0 && m_Process.IsRunning(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return m_Process.Pid() > 0 && !m_Process.IsRunning() ? m_Process.ExitDescription() : ClientReason;
}

U32 QemuBackend::SerialNumber() const {
    return EmulatedProbeSerial;
}

bool QemuBackend::ResetTarget() {
    std::string Output;
    const rsp::Reply R = Client()->Monitor("system_reset", Output, 5000);
    if (!R.Delivered()) {
        ReportLost(Client()->DeathReason());
        return false;
    }
    return R.IsOk();
}

size_t QemuBackend::ReadWhileRunning(U32 Address, size_t Size, U8* Out) {
    if (!m_Qmp) {
        return 0;
    }
    return m_Qmp->ReadMemory(Address, Size, Out, 3000);
}

bool QemuBackend::ReadCore(U32 Index, U64& Value) {
    U8 Status = 1;
    return RemoteBackend::ReadRegisters(&Index, &Value, &Status, 1) && Status == 0;
}

bool QemuBackend::WriteCore(U32 Index, U64 Value) {
    return RemoteBackend::WriteRegister(Index, Value);
}

bool QemuBackend::PrepareXpsr(U64 Xpsr) {
    return (Xpsr & ItStateBits) == 0 || WriteCore(TARVO_REG_XPSR, Xpsr & ~ItStateBits);
}

void QemuBackend::ReadMissingRegisters(const std::vector<U32>& Indices, std::vector<U64>& Values,
                                       std::vector<U8>& Got) {
    std::vector<std::pair<size_t, int>> Wanted; // position in Indices, SYSm
    for (size_t i = 0; i < Indices.size() && Wanted.size() < 8; ++i) {
        const int Sysm = SpecialRegister(Indices[i]);
        if (Sysm >= 0) {
            Wanted.emplace_back(i, Sysm);
        }
    }
    if (Wanted.empty()) {
        return;
    }
    // MRS rK, <special> for K = 0, 1, ...: one instruction per register, one step each.
    std::vector<U8> Code;
    for (size_t k = 0; k < Wanted.size(); ++k) {
        PutHalfword(Code, 0xF3EF);
        PutHalfword(Code, 0x8000 | static_cast<U32>(k) << 8 | static_cast<U32>(Wanted[k].second));
    }
    std::vector<U64> Saved(Wanted.size());
    U64 Pc = 0, Xpsr = 0;
    for (size_t k = 0; k < Wanted.size(); ++k) {
        if (!ReadCore(static_cast<U32>(k), Saved[k])) {
            return;
        }
    }
    if (!ReadCore(TARVO_REG_PC, Pc) || !ReadCore(TARVO_REG_XPSR, Xpsr)) {
        return;
    }
    // Everything is put back as it was: a target at its reset stays there.
    const bool AtReset = m_AtReset;
    const U32 Scratch = m_Board.RamAddr;
    std::vector<U8> Memory(Code.size());
    if (RemoteBackend::ReadMemory(Scratch, Memory.size(), Memory.data()) != Memory.size() ||
        RemoteBackend::WriteMemory(Scratch, Code.size(), Code.data()) != Code.size()) {
        return;
    }
    bool Ok = PrepareXpsr(Xpsr) && WriteCore(TARVO_REG_PC, Scratch);
    for (size_t k = 0; Ok && k < Wanted.size(); ++k) {
        Ok = StepInjected();
    }
    for (size_t k = 0; Ok && k < Wanted.size(); ++k) {
        Ok = ReadCore(static_cast<U32>(k), Values[Wanted[k].first]);
        Got[Wanted[k].first] = Ok ? 1 : 0;
    }
    // Put back what the instructions touched, whether they ran or not.
    for (size_t k = 0; k < Wanted.size() && IsConnected(); ++k) {
        WriteCore(static_cast<U32>(k), Saved[k]);
    }
    if (IsConnected()) {
        WriteCore(TARVO_REG_PC, Pc);
        WriteCore(TARVO_REG_XPSR, Xpsr);
        RemoteBackend::WriteMemory(Scratch, Memory.size(), Memory.data());
    }
    m_AtReset = AtReset;
}

bool QemuBackend::WriteMissingRegister(U32 Index, U64 Value) {
    const int Sysm = SpecialRegister(Index);
    if (Sysm < 0) {
        return false;
    }
    // MSR <special>, r0
    std::vector<U8> Code;
    PutHalfword(Code, 0xF380);
    PutHalfword(Code, 0x8800 | static_cast<U32>(Sysm));
    U64 R0 = 0, Pc = 0, Xpsr = 0;
    if (!ReadCore(0, R0) || !ReadCore(TARVO_REG_PC, Pc) || !ReadCore(TARVO_REG_XPSR, Xpsr)) {
        return false;
    }
    const U32 Scratch = m_Board.RamAddr;
    U8 Memory[4];
    if (RemoteBackend::ReadMemory(Scratch, 4, Memory) != 4 ||
        RemoteBackend::WriteMemory(Scratch, Code.size(), Code.data()) != Code.size()) {
        return false;
    }
    const bool Ok =
        PrepareXpsr(Xpsr) && WriteCore(0, Value) && WriteCore(TARVO_REG_PC, Scratch) && StepInjected();
    if (IsConnected()) {
        WriteCore(0, R0);
        WriteCore(TARVO_REG_PC, Pc);
        WriteCore(TARVO_REG_XPSR, Xpsr);
        RemoteBackend::WriteMemory(Scratch, 4, Memory);
    }
    return Ok;
}

} // namespace tarvo
