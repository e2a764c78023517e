#include "probe/backends/RemoteBackend.h"

#include "probe/rsp/StopReply.h"

#include <algorithm>
#include <cstring>

namespace tarvo {

namespace {
constexpr int SignalInterrupt = 2;
constexpr const char* AbortedText = "the connection was canceled";
constexpr int StepTimeoutMs = 2000;

rsp::PointType PointTypeOf(PointKind Kind) {
    switch (Kind) {
    case PointKind::SoftBreak:
        return rsp::PointType::Software;
    case PointKind::HardBreak:
        return rsp::PointType::Hardware;
    case PointKind::WriteWatch:
        return rsp::PointType::Write;
    case PointKind::ReadWatch:
        return rsp::PointType::Read;
    case PointKind::AccessWatch:
        return rsp::PointType::Access;
    }
    return rsp::PointType::Software;
}

// The kind field of a breakpoint on ARM: 2 for a 16-bit Thumb instruction, 3 for a 32-bit one.
unsigned BreakKind(U32 Size) {
    return Size == 4 ? 3 : 2;
}
} // namespace

RemoteBackend::RemoteBackend(std::string Host, uint16_t Port, TextSink Sink)
    : m_Host(std::move(Host)), m_Port(Port), m_Sink(std::move(Sink)) {}

RemoteBackend::~RemoteBackend() = default;

void RemoteBackend::SetTimeout(int Ms) {
    m_TimeoutMs = Ms;
    if (m_Client) {
        m_Client->SetTimeout(Ms);
    }
}

bool RemoteBackend::Connect(std::string& Error) {
    if (IsAborted()) {
        Error = AbortedText;
        return false;
    }
    std::string Why;
    rsp::Socket S = rsp::Socket::ConnectTcp(m_Host, m_Port, m_TimeoutMs, Why);
    if (!S.IsOpen()) {
        Error =
            "Could not connect to the GDB server at " + m_Host + ":" + std::to_string(m_Port) + ": " + Why;
        return false;
    }
    return Attach(std::move(S), Error);
}

void RemoteBackend::Abort() {
    std::lock_guard<std::mutex> Lock(m_AbortMutex);
    m_Aborted = true;
    if (m_Client) {
        m_Client->Kill(AbortedText);
    }
}

bool RemoteBackend::Attach(rsp::Socket S, std::string& Error) {
    {
        std::lock_guard<std::mutex> Lock(m_AbortMutex);
        m_Client = std::make_unique<rsp::GdbClient>(std::move(S));
        if (m_Aborted.load()) {
            m_Client->Kill(AbortedText);
        }
    }
    m_Client->SetTimeout(m_TimeoutMs);
    ConfigureClient(*m_Client);
    m_Client->SetConsoleHandler([Sink = m_Sink](std::string_view Text) {
        if (Sink.Info) {
            Sink.Info(std::string(Text));
        }
    });
    m_LostReported = false;
    std::string Why;
    if (m_Client->Negotiate(Why) != rsp::Status::Ok) {
        Error = "GDB server did not answer: " + Why;
        return false;
    }
    if (m_Client->ReadTargetDescription(m_Description, Why) != rsp::Status::Ok) {
        Error = "Could not read the target description: " + Why;
        return false;
    }
    const rsp::Reply Halt = m_Client->QueryHaltReason();
    if (!Halt.Delivered()) {
        Error = "GDB server did not answer: " + m_Client->DeathReason();
        return false;
    }
    if (Halt.Text.empty() || Halt.Text[0] == 'W' || Halt.Text[0] == 'X') {
        Error = "The GDB server has no target to debug";
        return false;
    }
    m_Halted = true;
    m_LastStopWasWatch = false;
    InvalidateRegisters();
    const rsp::Reply G = m_Client->ReadAllRegisters(m_G);
    if (!G.Delivered() || G.IsError()) {
        Error = "Could not read the registers of the target: " +
                (G.Delivered() ? G.Text : m_Client->DeathReason());
        return false;
    }
    m_GValid = true;
    m_Description.LayoutG(m_G.size());
    m_Map.Build(m_Description);
    if (!m_Map.Has(TARVO_REG_PC) || !m_Map.Has(TARVO_REG_SP)) {
        Error = "The target description has no pc or sp register: not an ARM target";
        return false;
    }
    m_MProfile = m_Description.Find("xpsr") != nullptr;
    for (const rsp::RegisterInfo& R : m_Description.Registers()) {
        m_MProfile = m_MProfile || R.Feature == "org.gnu.gdb.arm.m-profile";
    }
    m_AtReset = false;
    return true;
}

void RemoteBackend::Disconnect() {
    if (m_Client && m_Client->IsAlive()) {
        if (m_Client->IsRunning()) {
            std::string Stop;
            m_Client->Interrupt(Stop, 1000);
        }
        for (U32 Address : m_CodeBreakpoints) {
            m_Client->RemovePoint(rsp::PointType::Software, Address, 2);
            m_Client->RemovePoint(rsp::PointType::Hardware, Address, 2);
        }
        m_Client->Detach();
    }
    m_CodeBreakpoints.clear();
    m_Watchpoints.clear();
    std::lock_guard<std::mutex> Lock(m_AbortMutex);
    m_Client.reset();
}

bool RemoteBackend::IsConnected() const {
    return m_Client && m_Client->IsAlive();
}

std::string RemoteBackend::LostReason() const {
    if (!m_Client) {
        return "not connected";
    }
    return m_Client->IsAlive() ? std::string() : m_Client->DeathReason();
}

void RemoteBackend::ReportLost(const std::string& Reason) {
    if (m_Client) {
        m_Client->Kill(Reason);
    }
    if (!m_LostReported.load()) {
        AnnounceLost(ExplainLoss(m_Client ? LostReason() : Reason));
    }
}

void RemoteBackend::AnnounceLost(const std::string& Reason) {
    if (!m_LostReported.exchange(true) && m_Sink.Error) {
        m_Sink.Error("Connection to the target lost: " + Reason);
    }
}

void RemoteBackend::InvalidateRegisters() {
    m_GValid = false;
    m_RegisterCache.clear();
    m_MissingCache.clear();
}

void RemoteBackend::OnStop(const std::string& Reply) {
    m_Halted = true;
    InvalidateRegisters();
    const std::optional<rsp::StopReply> Stop = rsp::ParseStopReply(Reply);
    m_LastStopWasWatch = Stop && Stop->IsWatchpoint();
    if (Stop && Stop->Exited()) {
        ReportLost(Stop->Kind == 'W' ? "the target program exited"
                                     : "the target program was ended by a signal");
    }
}

int RemoteBackend::HaltState() {
    if (!IsConnected()) {
        if (m_Client && !m_LostReported) {
            ReportLost(m_Client->DeathReason());
        }
        return -1;
    }
    if (m_Halted) {
        // Nothing is sent to a halted target; a server that went away shows on the idle connection.
        if (!m_Client->CheckAlive()) {
            ReportLost(m_Client->DeathReason());
            return -1;
        }
        return 1;
    }
    std::string Stop;
    const rsp::Status S = m_Client->WaitStop(Stop, 0);
    if (S == rsp::Status::Timeout) {
        return 0;
    }
    if (S != rsp::Status::Ok) {
        ReportLost(m_Client->DeathReason());
        return -1;
    }
    OnStop(Stop);
    return IsConnected() ? 1 : -1;
}

bool RemoteBackend::Halt() {
    if (!IsConnected()) {
        return false;
    }
    if (m_Halted) {
        return true;
    }
    std::string Stop;
    if (m_Client->Interrupt(Stop) != rsp::Status::Ok) {
        ReportLost(m_Client->DeathReason());
        return false;
    }
    OnStop(Stop);
    return IsConnected();
}

bool RemoteBackend::StartResume(bool Step) {
    InvalidateRegisters();
    const rsp::Status S = Step ? m_Client->StartStep() : m_Client->StartContinue();
    if (S != rsp::Status::Ok) {
        ReportLost(m_Client->DeathReason());
        return false;
    }
    m_Halted = false;
    return true;
}

bool RemoteBackend::WaitStepStop() {
    std::string Stop;
    rsp::Status S = m_Client->WaitStop(Stop, StepTimeoutMs);
    if (S == rsp::Status::Timeout) {
        // A step that doesn't end (an instruction waiting for an interrupt): stop it.
        S = m_Client->Interrupt(Stop);
    }
    if (S != rsp::Status::Ok) {
        ReportLost(m_Client->DeathReason());
        return false;
    }
    OnStop(Stop);
    return IsConnected();
}

bool RemoteBackend::StepInjected() {
    const bool WasWatch = m_LastStopWasWatch;
    const bool Ok = StartResume(true) && WaitStepStop();
    m_LastStopWasWatch = WasWatch;
    return Ok;
}

// Servers report a watchpoint before the access completes and report it again on every resume while
// it is inserted: take the watchpoints out for one step.
bool RemoteBackend::StepOverWatchpoints() {
    for (const Watch& W : m_Watchpoints) {
        m_Client->RemovePoint(PointTypeOf(W.Kind), W.Address, W.Size);
    }
    const bool Ok = StartResume(true) && WaitStepStop();
    for (const Watch& W : m_Watchpoints) {
        if (IsConnected()) {
            m_Client->InsertPoint(PointTypeOf(W.Kind), W.Address, W.Size);
        }
    }
    return Ok;
}

bool RemoteBackend::Go(bool StepOverBreakpoint) {
    if (!IsConnected()) {
        return false;
    }
    m_AtReset = false;
    if (!m_Halted) {
        return true;
    }
    bool StepFirst = m_LastStopWasWatch;
    if (StepOverBreakpoint && !StepFirst && !m_CodeBreakpoints.empty()) {
        U32 Index = TARVO_REG_PC;
        U64 Pc = 0;
        U8 St = 1;
        if (ReadRegisters(&Index, &Pc, &St, 1) && St == 0) {
            StepFirst = m_CodeBreakpoints.count(static_cast<U32>(Pc)) > 0;
        }
    }
    if (StepFirst) {
        const bool WasWatch = m_LastStopWasWatch;
        if (!(WasWatch ? StepOverWatchpoints() : (StartResume(true) && WaitStepStop()))) {
            return false;
        }
        if (m_LastStopWasWatch) {
            return true; // the step itself hit a watchpoint: stay halted there
        }
    }
    return StartResume(false);
}

bool RemoteBackend::Step() {
    if (!IsConnected() || !m_Halted) {
        return false;
    }
    m_AtReset = false;
    if (m_LastStopWasWatch) {
        return StepOverWatchpoints();
    }
    return StartResume(true) && WaitStepStop();
}

bool RemoteBackend::Reset() {
    if (!IsConnected()) {
        return false;
    }
    bool Resume = false;
    if (!PauseForAccess(Resume)) {
        return false;
    }
    InvalidateRegisters();
    const bool Ok = ResetTarget();
    InvalidateRegisters();
    m_LastStopWasWatch = false;
    // A reset of a board whose memory is still empty loads a T bit of 0 from its reset vector.
    m_AtReset = Ok && KeepThumbState();
    return Ok && IsConnected();
}

bool RemoteBackend::ResetTarget() {
    std::string Output;
    rsp::Reply R = m_Client->Monitor("reset halt", Output, 10000);
    if (R.Delivered() && Output.find("nknown command") != std::string::npos) {
        // QEMU's monitor answers OK to what it doesn't know and says so in text; its own command resets
        // the machine and leaves it stopped.
        Output.clear();
        R = m_Client->Monitor("system_reset", Output, 10000);
    }
    if (!Output.empty() && m_Sink.Info) {
        m_Sink.Info(Output);
    }
    if (R.IsOk() || (R.Delivered() && !R.IsUnsupported() && !R.IsError())) {
        return true;
    }
    if (!R.Delivered()) {
        ReportLost(m_Client->DeathReason());
        return false;
    }
    // No monitor command: catch the reset vector (DEMCR.VC_CORERESET) and request a system reset
    // (AIRCR.SYSRESETREQ), which works on any Cortex-M whose memory the server writes.
    const U32 Demcr = 0xE000EDFC, Aircr = 0xE000ED0C;
    U8 Old[4] = {};
    size_t Done = 0;
    m_Client->ReadMemory(Demcr, 4, Old, Done);
    U8 Catch[4] = {static_cast<U8>(Old[0] | 1), Old[1], Old[2], Old[3]};
    const U8 Request[4] = {0x04, 0x00, 0xFA, 0x05};
    m_Client->WriteMemory(Demcr, 4, Catch, Done);
    if (m_Client->WriteMemory(Aircr, 4, Request, Done) != rsp::Status::Ok || Done != 4) {
        return false;
    }
    m_Client->WriteMemory(Demcr, 4, Old, Done);
    return true;
}

bool RemoteBackend::PauseForAccess(bool& Resume) {
    Resume = false;
    if (!IsConnected()) {
        return false;
    }
    if (m_Halted || HaltState() == 1) {
        return true;
    }
    std::string Stop;
    if (m_Client->Interrupt(Stop) != rsp::Status::Ok) {
        ReportLost(m_Client->DeathReason());
        return false;
    }
    const std::optional<rsp::StopReply> R = rsp::ParseStopReply(Stop);
    // Our own interrupt gives SIGINT; any other stop (a breakpoint that fired meanwhile) is the
    // target's own and stays.
    OnStop(Stop);
    Resume = R && R->Signal == SignalInterrupt && !R->IsWatchpoint();
    return IsConnected();
}

void RemoteBackend::ResumeAfterAccess(bool Resume) {
    if (Resume && IsConnected()) {
        StartResume(false);
    }
}

size_t RemoteBackend::ReadWhileRunning(U32 Address, size_t Size, U8* Out) {
    bool Resume = false;
    if (!PauseForAccess(Resume)) {
        return 0;
    }
    const size_t Done = ReadMemory(Address, Size, Out);
    ResumeAfterAccess(Resume);
    return Done;
}

size_t RemoteBackend::ReadMemory(U32 Address, size_t Size, U8* Out) {
    if (!IsConnected() || Size == 0) {
        return 0;
    }
    if (!m_Halted && HaltState() != 1) {
        return ReadWhileRunning(Address, Size, Out);
    }
    // Collected flash contents that haven't been programmed yet read back as written.
    size_t Done = 0;
    const rsp::Status S = m_Client->ReadMemory(Address, Size, Out, Done);
    if (S == rsp::Status::Timeout || S == rsp::Status::ConnectionLost) {
        ReportLost(m_Client->DeathReason());
    }
    return Done;
}

size_t RemoteBackend::WriteMemory(U32 Address, size_t Size, const U8* Data) {
    if (!IsConnected() || Size == 0) {
        return 0;
    }
    bool Resume = false;
    if (!PauseForAccess(Resume)) {
        return 0;
    }
    size_t Done = 0;
    if (m_Downloading && !m_Flash.empty()) {
        // Flash bytes are collected per block and programmed at the end of the download.
        while (Done < Size) {
            const U32 A = Address + static_cast<U32>(Done);
            const auto Region = std::find_if(m_Flash.begin(), m_Flash.end(), [A](const FlashRegion& R) {
                return A >= R.Start && A - R.Start < R.Size;
            });
            if (Region == m_Flash.end()) {
                size_t Run = 1;
                while (Done + Run < Size) {
                    const U32 B = A + static_cast<U32>(Run);
                    if (std::any_of(m_Flash.begin(), m_Flash.end(), [B](const FlashRegion& R) {
                            return B >= R.Start && B - R.Start < R.Size;
                        })) {
                        break;
                    }
                    ++Run;
                }
                size_t Written = 0;
                m_Client->WriteMemory(A, Run, Data + Done, Written);
                Done += Written;
                if (Written < Run) {
                    break;
                }
                continue;
            }
            const U32 Block = Region->Start + (A - Region->Start) / Region->BlockSize * Region->BlockSize;
            std::vector<U8>& Bytes = m_FlashBlocks[Block];
            if (Bytes.empty()) {
                Bytes.assign(Region->BlockSize, 0xFF);
                size_t Got = 0;
                m_Client->ReadMemory(Block, Region->BlockSize, Bytes.data(), Got);
            }
            const size_t Take = std::min<size_t>(Size - Done, Block + Region->BlockSize - A);
            std::memcpy(Bytes.data() + (A - Block), Data + Done, Take);
            Done += Take;
        }
    } else {
        const rsp::Status S = m_Client->WriteMemory(Address, Size, Data, Done);
        if (S == rsp::Status::Timeout || S == rsp::Status::ConnectionLost) {
            ReportLost(m_Client->DeathReason());
        }
    }
    ResumeAfterAccess(Resume);
    return Done;
}

InsertResult RemoteBackend::InsertPoint(PointKind Kind, U32 Address, U32 Size) {
    bool Resume = false;
    if (!PauseForAccess(Resume)) {
        return InsertResult::Failed;
    }
    const bool IsBreak = Kind == PointKind::SoftBreak || Kind == PointKind::HardBreak;
    const rsp::Reply R = m_Client->InsertPoint(PointTypeOf(Kind), Address, IsBreak ? BreakKind(Size) : Size);
    InsertResult Result = InsertResult::Ok;
    if (!R.Delivered()) {
        ReportLost(m_Client->DeathReason());
        Result = InsertResult::Failed;
    } else if (R.IsUnsupported()) {
        Result = InsertResult::Unsupported;
    } else if (!R.IsOk()) {
        Result = InsertResult::NoResources;
    } else if (IsBreak) {
        m_CodeBreakpoints.insert(Address);
    } else {
        m_Watchpoints.insert({Kind, Address, Size});
    }
    ResumeAfterAccess(Resume);
    return Result;
}

bool RemoteBackend::RemovePoint(PointKind Kind, U32 Address, U32 Size) {
    bool Resume = false;
    if (!PauseForAccess(Resume)) {
        return false;
    }
    const bool IsBreak = Kind == PointKind::SoftBreak || Kind == PointKind::HardBreak;
    const rsp::Reply R = m_Client->RemovePoint(PointTypeOf(Kind), Address, IsBreak ? BreakKind(Size) : Size);
    if (!R.Delivered()) {
        ReportLost(m_Client->DeathReason());
    }
    if (IsBreak) {
        m_CodeBreakpoints.erase(Address);
    } else {
        m_Watchpoints.erase({Kind, Address, Size});
    }
    ResumeAfterAccess(Resume);
    return R.IsOk();
}

std::string RemoteBackend::Firmware() const {
    return "GDB remote client for " + m_Host + ":" + std::to_string(m_Port);
}

bool RemoteBackend::Monitor(const std::string& Command, std::string& Output) {
    if (!IsConnected()) {
        Output = "not connected";
        return false;
    }
    bool Resume = false;
    if (!PauseForAccess(Resume)) {
        Output = LostReason();
        return false;
    }
    const rsp::Reply R = m_Client->Monitor(Command, Output, 10000);
    InvalidateRegisters();
    ResumeAfterAccess(Resume);
    if (!R.Delivered()) {
        ReportLost(m_Client->DeathReason());
        Output = LostReason();
        return false;
    }
    if (R.IsUnsupported()) {
        Output = "the GDB server has no monitor commands";
        return false;
    }
    if (R.IsError()) {
        Output += (Output.empty() ? "" : "\n") + std::string("the GDB server refused the command: ") + R.Text;
        return false;
    }
    return true;
}

} // namespace tarvo
