#include "probe/backends/FakeBackend.h"

#include <algorithm>
#include <cstring>
#include <tuple>

namespace tarvo {

bool FakeState::Point::operator<(const Point& O) const {
    return std::tie(Kind, Address, Size) < std::tie(O.Kind, O.Address, O.Size);
}

FakeState& FakeState::Instance() {
    static FakeState* State = [] {
        auto* S = new FakeState;
        S->SetDefaults();
        return S;
    }();
    return *State;
}

void FakeState::SetDefaults() {
    Regions = {{0x00000000, 256 * 1024, true, std::vector<U8>(256 * 1024, 0xFF)},
               {0x20000000, 64 * 1024, true, std::vector<U8>(64 * 1024, 0)}};
    Registers.fill(0);
    Registers[TARVO_REG_XPSR] = 0x01000000;
    Available.fill(true);
    Script.clear();
    Position = 0;
    Faults.fill(false);
    FailedReads.clear();
    FailedWrites.clear();
    RunPolls = 1;
    HardBreakLimit = 6;
    WatchLimit = 4;
    Counters.fill(0);
    Running = false;
    RunningAtConnect = false;
    HaltAt = -1;
    Points.clear();
}

FakeState::Region* FakeState::RegionAt(U32 Address) {
    for (Region& R : Regions) {
        if (Address >= R.Address && Address - R.Address < R.Size) {
            return &R;
        }
    }
    return nullptr;
}

void FakeState::MoveTo(size_t Entry) {
    if (Entry < Script.size()) {
        Position = Entry;
        Registers[TARVO_REG_PC] = Script[Entry].Pc;
    } else {
        Position = Script.size();
        Registers[TARVO_REG_PC] += 2;
    }
}

// The first script entry from From on where a running target stops: a breakpoint at its PC or a
// watched access.
long FakeState::FindStop(size_t From) const {
    for (size_t i = From; i < Script.size(); ++i) {
        const fake::Step& S = Script[i];
        for (const Point& P : Points) {
            const bool Break = P.Kind == PointKind::SoftBreak || P.Kind == PointKind::HardBreak;
            if (Break && P.Address == S.Pc) {
                return static_cast<long>(i);
            }
            if (!Break && S.Access != 0 && S.DataAddress >= P.Address && S.DataAddress - P.Address < P.Size) {
                const bool Catches = P.Kind == PointKind::AccessWatch ||
                                     (P.Kind == PointKind::WriteWatch && S.Access == 2) ||
                                     (P.Kind == PointKind::ReadWatch && S.Access == 1);
                if (Catches) {
                    return static_cast<long>(i);
                }
            }
        }
    }
    return -1;
}

namespace {
FakeState& State() {
    return FakeState::Instance();
}
} // namespace

bool FakeBackend::Connect(std::string& Error) {
    std::lock_guard<std::mutex> Lock(State().Mutex);
    ++State().Counters[fake::Connects];
    if (State().Fault(fake::ConnectFails) || State().Fault(fake::DeadConnection)) {
        Error = "The fake target refused the connection";
        return false;
    }
    State().Connected = true;
    State().Running = State().RunningAtConnect;
    State().HaltAt = -1;
    State().Points.clear();
    return true;
}

void FakeBackend::Disconnect() {
    std::lock_guard<std::mutex> Lock(State().Mutex);
    State().Connected = false;
    State().Points.clear();
}

bool FakeBackend::IsConnected() const {
    std::lock_guard<std::mutex> Lock(State().Mutex);
    return State().Connected && !State().Fault(fake::DeadConnection);
}

std::string FakeBackend::LostReason() const {
    return IsConnected() ? std::string() : "the fake target's connection is dead";
}

int FakeBackend::HaltState() {
    std::lock_guard<std::mutex> Lock(State().Mutex);
    FakeState& S = State();
    if (!S.Connected || S.Fault(fake::DeadConnection)) {
        return -1;
    }
    if (!S.Running) {
        return 1;
    }
    if (S.HaltAt < 0) {
        return 0;
    }
    if (S.PollsLeft > 0) {
        --S.PollsLeft;
        return 0;
    }
    S.MoveTo(static_cast<size_t>(S.HaltAt));
    S.Running = false;
    return 1;
}

bool FakeBackend::Halt() {
    std::lock_guard<std::mutex> Lock(State().Mutex);
    FakeState& S = State();
    if (!S.Connected || S.Fault(fake::DeadConnection) || S.Fault(fake::HaltFails)) {
        return false;
    }
    ++S.Counters[fake::Halts];
    if (S.Running) {
        S.Running = false;
        const size_t Next = S.Position + 1;
        S.MoveTo(S.HaltAt >= 0 ? std::min(Next, static_cast<size_t>(S.HaltAt)) : Next);
    }
    return true;
}

bool FakeBackend::Go(bool StepOverBreakpoint) {
    std::lock_guard<std::mutex> Lock(State().Mutex);
    FakeState& S = State();
    if (!S.Connected || S.Fault(fake::DeadConnection)) {
        return false;
    }
    if (S.Running) {
        return true;
    }
    ++S.Counters[fake::Resumes];
    // Without the step-over, a breakpoint at the current entry stops the target at once.
    S.HaltAt = S.FindStop(StepOverBreakpoint ? S.Position + 1 : S.Position);
    S.PollsLeft = S.RunPolls;
    S.Running = true;
    return true;
}

bool FakeBackend::Step() {
    std::lock_guard<std::mutex> Lock(State().Mutex);
    FakeState& S = State();
    if (!S.Connected || S.Fault(fake::DeadConnection) || S.Fault(fake::StepFails) || S.Running) {
        return false;
    }
    ++S.Counters[fake::Steps];
    S.MoveTo(S.Position + 1);
    return true;
}

bool FakeBackend::Reset() {
    std::lock_guard<std::mutex> Lock(State().Mutex);
    FakeState& S = State();
    if (!S.Connected || S.Fault(fake::DeadConnection)) {
        return false;
    }
    ++S.Counters[fake::Resets];
    S.Running = false;
    for (U32 i = 0; i <= 12; ++i) {
        S.Registers[i] = 0;
    }
    S.Registers[TARVO_REG_XPSR] = 0x01000000;
    if (!S.Script.empty()) {
        S.Position = 0;
        S.Registers[TARVO_REG_PC] = S.Script[0].Pc;
    } else if (!S.Regions.empty() && S.Regions[0].Size >= 8) {
        const U8* V = S.Regions[0].Bytes.data();
        U32 Sp, Pc;
        std::memcpy(&Sp, V, 4);
        std::memcpy(&Pc, V + 4, 4);
        S.Registers[TARVO_REG_SP] = S.Registers[TARVO_REG_MSP] = Sp;
        S.Registers[TARVO_REG_PC] = Pc & ~1u;
    }
    return true;
}

size_t FakeBackend::ReadMemory(U32 Address, size_t Size, U8* Out) {
    std::lock_guard<std::mutex> Lock(State().Mutex);
    FakeState& S = State();
    if (!S.Connected || S.Fault(fake::DeadConnection)) {
        return 0;
    }
    size_t Done = 0;
    for (; Done < Size; ++Done) {
        const U32 A = Address + static_cast<U32>(Done);
        FakeState::Region* R = S.RegionAt(A);
        if (!R || std::any_of(S.FailedReads.begin(), S.FailedReads.end(),
                              [A](const FakeState::Range& F) { return F.Contains(A); })) {
            break;
        }
        Out[Done] = R->Bytes[A - R->Address];
    }
    return Done;
}

size_t FakeBackend::WriteMemory(U32 Address, size_t Size, const U8* Data) {
    std::lock_guard<std::mutex> Lock(State().Mutex);
    FakeState& S = State();
    if (!S.Connected || S.Fault(fake::DeadConnection)) {
        return 0;
    }
    size_t Done = 0;
    for (; Done < Size; ++Done) {
        const U32 A = Address + static_cast<U32>(Done);
        FakeState::Region* R = S.RegionAt(A);
        if (!R || !R->Writable ||
            std::any_of(S.FailedWrites.begin(), S.FailedWrites.end(),
                        [A](const FakeState::Range& F) { return F.Contains(A); })) {
            break;
        }
        R->Bytes[A - R->Address] = Data[Done];
    }
    return Done;
}

bool FakeBackend::ReadRegisters(const U32* Indices, U64* Values, U8* Status, size_t Count) {
    std::lock_guard<std::mutex> Lock(State().Mutex);
    FakeState& S = State();
    if (!S.Connected || S.Fault(fake::DeadConnection) || S.Running) {
        return false;
    }
    for (size_t i = 0; i < Count; ++i) {
        const bool Ok = Indices[i] < TARVO_REG_COUNT && S.Available[Indices[i]];
        Values[i] = Ok ? S.Registers[Indices[i]] : 0;
        Status[i] = Ok ? 0 : 1;
    }
    return true;
}

bool FakeBackend::WriteRegister(U32 Index, U64 Value) {
    std::lock_guard<std::mutex> Lock(State().Mutex);
    FakeState& S = State();
    if (!S.Connected || S.Fault(fake::DeadConnection) || S.Running || Index >= TARVO_REG_COUNT ||
        !S.Available[Index]) {
        return false;
    }
    S.Registers[Index] = Value & 0xFFFFFFFFu;
    return true;
}

InsertResult FakeBackend::InsertPoint(PointKind Kind, U32 Address, U32 Size) {
    std::lock_guard<std::mutex> Lock(State().Mutex);
    FakeState& S = State();
    if (!S.Connected || S.Fault(fake::DeadConnection)) {
        return InsertResult::Failed;
    }
    const auto Used = [&S](bool Watch) {
        return static_cast<U32>(
            std::count_if(S.Points.begin(), S.Points.end(), [Watch](const FakeState::Point& P) {
                return Watch ? P.Kind >= PointKind::WriteWatch : P.Kind == PointKind::HardBreak;
            }));
    };
    if (Kind == PointKind::HardBreak && Used(false) >= S.HardBreakLimit) {
        return InsertResult::NoResources;
    }
    if (Kind >= PointKind::WriteWatch && Used(true) >= S.WatchLimit) {
        return InsertResult::NoResources;
    }
    if (Kind == PointKind::SoftBreak) {
        const FakeState::Region* R = S.RegionAt(Address);
        if (!R || !R->Writable) {
            return InsertResult::NoResources;
        }
    }
    S.Points.insert({Kind, Address, Size});
    if (S.Running) {
        // A point set while running takes effect for the rest of the run.
        const long Stop = S.FindStop(S.Position + 1);
        if (Stop >= 0 && (S.HaltAt < 0 || Stop < S.HaltAt)) {
            S.HaltAt = Stop;
        }
    }
    return InsertResult::Ok;
}

bool FakeBackend::RemovePoint(PointKind Kind, U32 Address, U32 Size) {
    std::lock_guard<std::mutex> Lock(State().Mutex);
    FakeState& S = State();
    if (!S.Connected || S.Fault(fake::DeadConnection)) {
        return false;
    }
    return S.Points.erase({Kind, Address, Size}) > 0;
}

bool FakeBackend::IsRam(U32 Address) const {
    return Address >= 0x20000000;
}

std::string FakeBackend::Firmware() const {
    return "Tarvo fake target V6.22 compiled " __DATE__;
}

int FakeControl(U32 Cmd, U64 Arg0, U64 Arg1, void* Data) {
    FakeState& S = State();
    if (Cmd == fake::CmdLoadSnapshot) {
        return LoadFakeSnapshot(S, static_cast<const fake::SnapshotRequest*>(Data));
    }
    std::lock_guard<std::mutex> Lock(S.Mutex);
    const U32 A = static_cast<U32>(Arg0);
    const U32 B = static_cast<U32>(Arg1);
    switch (Cmd) {
    case fake::CmdReset: {
        const bool WasConnected = S.Connected;
        S.SetDefaults();
        S.Connected = WasConnected;
        return 0;
    }
    case fake::CmdAddRegion:
        if (B == 0) {
            return -1;
        }
        S.Regions.push_back({A, B, !Data || *static_cast<const U32*>(Data) != 0, std::vector<U8>(B, 0)});
        return 0;
    case fake::CmdClearRegions:
        S.Regions.clear();
        return 0;
    case fake::CmdSetRegister:
        if (A >= TARVO_REG_COUNT) {
            return -1;
        }
        S.Registers[A] = Arg1;
        return 0;
    case fake::CmdGetRegister:
        if (A >= TARVO_REG_COUNT || !Data) {
            return -1;
        }
        *static_cast<U64*>(Data) = S.Registers[A];
        return 0;
    case fake::CmdSetRegisterAvailable:
        if (A >= TARVO_REG_COUNT) {
            return -1;
        }
        S.Available[A] = B != 0;
        return 0;
    case fake::CmdSetScript: {
        const auto* Steps = static_cast<const fake::Step*>(Data);
        S.Script.assign(Steps, Steps + (Steps ? Arg0 : 0));
        S.Position = 0;
        if (!S.Script.empty()) {
            S.Registers[TARVO_REG_PC] = S.Script[0].Pc;
        }
        return 0;
    }
    case fake::CmdSetFault:
        if (A >= S.Faults.size()) {
            return -1;
        }
        S.Faults[A] = B != 0;
        return 0;
    case fake::CmdFailReads:
    case fake::CmdFailWrites: {
        auto& List = Cmd == fake::CmdFailReads ? S.FailedReads : S.FailedWrites;
        if (B == 0) {
            List.clear();
        } else {
            List.push_back({A, B});
        }
        return 0;
    }
    case fake::CmdPoke:
    case fake::CmdPeek:
        for (U32 i = 0; i < B; ++i) {
            FakeState::Region* R = S.RegionAt(A + i);
            if (!R || !Data) {
                return -1;
            }
            U8& Byte = R->Bytes[A + i - R->Address];
            if (Cmd == fake::CmdPoke) {
                Byte = static_cast<const U8*>(Data)[i];
            } else {
                static_cast<U8*>(Data)[i] = Byte;
            }
        }
        return 0;
    case fake::CmdSetRunPolls:
        S.RunPolls = A;
        return 0;
    case fake::CmdGetCounter:
        if (A == fake::Breakpoints || A == fake::Watchpoints) {
            return static_cast<int>(
                std::count_if(S.Points.begin(), S.Points.end(), [A](const FakeState::Point& P) {
                    return (P.Kind >= PointKind::WriteWatch) == (A == fake::Watchpoints);
                }));
        }
        return A < S.Counters.size() ? S.Counters[A] : -1;
    case fake::CmdSetHardwareLimits:
        S.HardBreakLimit = A;
        S.WatchLimit = B;
        return 0;
    case fake::CmdGetPosition:
        return static_cast<int>(S.Position);
    case fake::CmdSetRunningAtConnect:
        S.RunningAtConnect = A != 0;
        return 0;
    default:
        return -1;
    }
}

} // namespace tarvo
