#include "Capture.h"

#include "kit/Process.h"
#include "kit/QemuHarness.h"
#include "probe/backends/Devices.h"
#include "probe/backends/ElfFile.h"
#include "probe/backends/QemuBackend.h"
#include "probe/backends/Snapshot.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <elf.h>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <thread>

namespace probetest {

namespace {

using namespace tarvo;
namespace fs = std::filesystem;

std::string Hex(U64 V) {
    char Text[24];
    std::snprintf(Text, sizeof Text, "0x%08llx", static_cast<unsigned long long>(V));
    return Text;
}

/// The emulated board of the device table, reached over a QEMU that the harness started: the back end
/// of the probe library, without its own QEMU process.
class AttachedBoard : public QemuBackend {
public:
    AttachedBoard(const DeviceEntry& Board, uint16_t Port)
        : QemuBackend(Board, "", {},
                      TextSink{nullptr, nullptr,
                               [](const std::string& T) {
                                   std::fprintf(stderr, "snapshot_capture: %s\n", T.c_str());
                               }}),
          m_Port(Port) {}

    bool Connect(std::string& Error) override {
        std::string Why;
        rsp::Socket S = rsp::Socket::ConnectTcp("127.0.0.1", m_Port, 5000, Why);
        if (!S.IsOpen()) {
            Error = "Could not connect to the emulated board: " + Why;
            return false;
        }
        SetTimeout(5000);
        return Attach(std::move(S), Error);
    }

    /// Closes the connection without a detach, which would let QEMU run on: the next client finds the
    /// board where it stopped.
    void Release() {
        if (Client()) {
            Client()->Kill("handed over to gdb-multiarch");
        }
    }

private:
    uint16_t m_Port;
};

/// A function's entry, FILE:LINE (the first address of the line, as gdb-multiarch's "info line" gives
/// it) or *ADDRESS.
bool ResolveStop(const CaptureOptions& O, const ElfFile& Elf, U32& Address, std::string& Error) {
    if (O.Stop[0] == '*') {
        char* End = nullptr;
        const unsigned long long V = std::strtoull(O.Stop.c_str() + 1, &End, 0);
        Address = static_cast<U32>(V);
        if (End && *End == '\0' && V <= 0xFFFFFFFFu && O.Stop.size() > 1) {
            return true;
        }
        Error = "\"" + O.Stop + "\" is not an address";
        return false;
    }
    if (O.Stop.find(':') == std::string::npos) {
        const ElfSymbol* S = Elf.Symbol(O.Stop);
        if (!S) {
            Error = O.Elf + " has no symbol \"" + O.Stop + "\"";
            return false;
        }
        Address = S->Value;
        return true;
    }
    const ProcessResult R =
        RunProcess({"gdb-multiarch", "-q", "-nx", "-batch", "-ex", "info line " + O.Stop, O.Elf}, 20000);
    // Line 57 of "calls.c" starts at address 0x1a4 <Level3+12> and ends at 0x1b2 <Level3+26>.
    // Line 56 of "calls.c" is at address 0x19c <Level3+4> but contains no code.
    std::smatch M;
    const std::regex Found(R"(Line \d+ of "[^"]*" (?:starts at|is at) address 0x([0-9a-f]+))");
    if (R.ExitCode != 0 || !std::regex_search(R.Output, M, Found)) {
        Error = "gdb-multiarch found no code for " + O.Stop + ": " + R.Output;
        return false;
    }
    Address = static_cast<U32>(std::stoul(M[1], nullptr, 16));
    return true;
}

U64 ReadPc(AttachedBoard& Board) {
    const U32 Index = TARVO_REG_PC;
    U64 Pc = 0;
    U8 Status = 1;
    return Board.ReadRegisters(&Index, &Pc, &Status, 1) && Status == 0 ? Pc : ~0ull;
}

/// Runs to the Hit-th arrival at Address; the breakpoint is gone afterwards.
bool RunToStop(AttachedBoard& Board, const CaptureOptions& O, U32 Address, std::string& Error) {
    if (Board.InsertPoint(PointKind::SoftBreak, Address, 2) != InsertResult::Ok) {
        Error = "Could not set a breakpoint at " + Hex(Address);
        return false;
    }
    const auto Deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(O.TimeoutMs / 2);
    for (unsigned Hit = 1; Hit <= O.Hit; ++Hit) {
        if (!Board.Go(true)) {
            Error = "Could not resume the board: " + Board.LostReason();
            return false;
        }
        int State = 0;
        while ((State = Board.HaltState()) == 0 && std::chrono::steady_clock::now() < Deadline) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        if (State == 0) {
            Board.Halt();
            Error = "The program did not reach " + O.Stop + " (" + Hex(Address) + "), arrival " +
                    std::to_string(Hit) + " of " + std::to_string(O.Hit) + ", within " +
                    std::to_string(O.TimeoutMs / 2) + " ms; it was halted at " + Hex(ReadPc(Board));
            return false;
        }
        if (State < 0) {
            Error = "The board was lost: " + Board.LostReason();
            return false;
        }
        if (ReadPc(Board) != Address) {
            Error = "The board stopped at " + Hex(ReadPc(Board)) + " instead of " + O.Stop + " (" +
                    Hex(Address) + ")";
            return false;
        }
    }
    Board.RemovePoint(PointKind::SoftBreak, Address, 2);
    return true;
}

/// The main stack's top: the initial SP in the vector table at the program's lowest address.
U32 StackTop(const ElfFile& Elf, const DeviceEntry& Device) {
    const ElfSegment* Lowest = nullptr;
    for (const ElfSegment& S : Elf.Segments()) {
        if (!Lowest || S.Address < Lowest->Address) {
            Lowest = &S;
        }
    }
    U32 Top = Device.RamAddr + Device.RamSize;
    if (Lowest && Lowest->Bytes.size() >= 4) {
        const U32 V =
            Lowest->Bytes[0] | Lowest->Bytes[1] << 8 | Lowest->Bytes[2] << 16 | U32(Lowest->Bytes[3]) << 24;
        if (V > Device.RamAddr && V <= Device.RamAddr + Device.RamSize) {
            Top = V;
        }
    }
    return Top;
}

/// What to capture: the stack from SP to its top (64 bytes at least), the other stack pointer's first KB, the
/// program's writable sections (.data, .bss) and the ranges asked for; sorted and merged.
std::vector<std::pair<U64, U64>> RangesToCapture(const CaptureOptions& O, const ElfFile& Elf,
                                                 const DeviceEntry& D, const std::map<U32, U64>& Registers) {
    std::vector<std::pair<U64, U64>> Wanted; // begin, end
    const U64 RamBegin = D.RamAddr, RamEnd = U64(D.RamAddr) + D.RamSize;
    const U64 Sp = Registers.at(TARVO_REG_SP);
    const U32 Top = StackTop(Elf, D);
    if (Sp >= RamBegin && Sp < Top) {
        // At least the 16 words from SP that the golden text shows, also where they pass the top.
        Wanted.emplace_back(Sp, std::max<U64>(Top, Sp + 64));
    } else if (Sp >= RamBegin && Sp < RamEnd) {
        Wanted.emplace_back(Sp, std::min(RamEnd, Sp + 4096));
    }
    for (const U32 Other : {U32(TARVO_REG_MSP), U32(TARVO_REG_PSP)}) {
        const auto It = Registers.find(Other);
        if (It != Registers.end() && It->second != Sp && It->second >= RamBegin && It->second < RamEnd) {
            Wanted.emplace_back(It->second, std::min(RamEnd, It->second + 1024));
        }
    }
    for (const ElfSection& S : Elf.Sections()) {
        if ((S.Flags & (SHF_ALLOC | SHF_WRITE)) == (SHF_ALLOC | SHF_WRITE) && S.Size > 0) {
            Wanted.emplace_back(S.Address, U64(S.Address) + S.Size);
        }
    }
    for (const auto& [Address, Size] : O.Ranges) {
        Wanted.emplace_back(Address, U64(Address) + Size);
    }
    std::sort(Wanted.begin(), Wanted.end());
    std::vector<std::pair<U64, U64>> Merged;
    for (const auto& R : Wanted) {
        if (!Merged.empty() && R.first <= Merged.back().second) {
            Merged.back().second = std::max(Merged.back().second, R.second);
        } else {
            Merged.push_back(R);
        }
    }
    return Merged;
}

bool ReadState(AttachedBoard& Board, const CaptureOptions& O, const ElfFile& Elf, const DeviceEntry& D,
               TargetSnapshot& Snap, std::string& Error) {
    std::vector<U32> Indices;
    for (U32 i = 0; i < TARVO_REG_COUNT; ++i) {
        if (*RegisterMap::Name(i)) {
            Indices.push_back(i);
        }
    }
    std::vector<U64> Values(Indices.size());
    std::vector<U8> Status(Indices.size(), 1);
    if (!Board.ReadRegisters(Indices.data(), Values.data(), Status.data(), Indices.size())) {
        Error = "Could not read the registers: " + Board.LostReason();
        return false;
    }
    for (size_t i = 0; i < Indices.size(); ++i) {
        if (Status[i] == 0) {
            Snap.Registers[Indices[i]] = Values[i];
        }
    }
    if (!Snap.Registers.count(TARVO_REG_SP) || !Snap.Registers.count(TARVO_REG_PC)) {
        Error = "The board gave no SP or PC";
        return false;
    }
    for (const auto& [Begin, End] : RangesToCapture(O, Elf, D, Snap.Registers)) {
        std::vector<U8> Bytes(End - Begin);
        const size_t Got = Board.ReadMemory(static_cast<U32>(Begin), Bytes.size(), Bytes.data());
        if (Got < Bytes.size()) {
            std::fprintf(stderr, "snapshot_capture: only %zu of %zu bytes at %s could be read\n", Got,
                         Bytes.size(), Hex(Begin).c_str());
        }
        Bytes.resize(Got);
        if (Got > 0) {
            Snap.Ranges.push_back({static_cast<U32>(Begin), std::move(Bytes)});
        }
    }
    return true;
}

/// gdb-multiarch on the board as it stands, each answer under a "=== COMMAND" line.
bool RunGolden(const QemuHarness& Qemu, const CaptureOptions& O, const std::string& SnapName,
               std::string& Golden, std::string& Error) {
    static const char* const Commands[] = {"bt",
                                           "info registers",
                                           "x/16wx $sp",
                                           "x/8hx $pc",
                                           "frame apply all info frame",
                                           "frame apply all info args",
                                           "frame apply all info locals"};
    std::vector<std::string> Argv = {"gdb-multiarch", "-q", "-nx", "-batch"};
    for (const char* Setting : {"set pagination off", "set confirm off", "set width 0", "set height 0",
                                "set filename-display basename"}) {
        Argv.insert(Argv.end(), {"-ex", Setting});
    }
    Argv.insert(Argv.end(), {"-ex", "target remote 127.0.0.1:" + std::to_string(Qemu.Port())});
    for (const char* C : Commands) {
        Argv.insert(Argv.end(), {"-ex", std::string("echo === ") + C + "\\n", "-ex", C});
    }
    // The end mark keeps gdb-multiarch's farewell out of the golden text.
    Argv.insert(Argv.end(), {"-ex", "echo === end\\n"});
    Argv.push_back(O.Elf);
    const ProcessResult R = RunProcess(Argv, O.TimeoutMs / 2);
    const size_t First = R.Output.find("=== bt\n"), Last = R.Output.find("=== end\n");
    if (R.TimedOut || R.ExitCode != 0 || First == std::string::npos || Last == std::string::npos ||
        R.Output.find("=== frame apply all info locals\n") == std::string::npos) {
        Error = std::string("gdb-multiarch ") + (R.TimedOut ? "timed out" : "failed") + " on the stop:\n" +
                R.Output;
        return false;
    }
    std::string Command;
    for (const std::string& A : Argv) {
        const bool Plain = A.find_first_of(" $\\'*") == std::string::npos;
        Command += (Command.empty() ? "" : " ") + (Plain ? A : "'" + A + "'");
    }
    Golden = "# gdb-multiarch's answers on the stop of " + SnapName + ", made by:\n# " + Command + "\n" +
             R.Output.substr(First, Last - First);
    return true;
}

bool WriteText(const std::string& Path, const std::string& Text, std::string& Error) {
    std::ofstream Out(Path, std::ios::binary | std::ios::trunc);
    Out << Text;
    Out.close();
    if (!Out) {
        Error = "Could not write " + Path;
    }
    return static_cast<bool>(Out);
}

} // namespace

std::string DefaultOutput(const CaptureOptions& O) {
    std::string Base =
        O.Elf.size() > 4 && O.Elf.ends_with(".elf") ? O.Elf.substr(0, O.Elf.size() - 4) : O.Elf;
    std::string Stop = O.Stop;
    std::replace_if(
        Stop.begin(), Stop.end(), [](char C) { return C == '/' || C == ':' || C == '*' || C == ' '; }, '_');
    return Base + "." + Stop + "." + std::to_string(O.Hit);
}

bool CaptureSnapshot(const CaptureOptions& O, std::string& Error) {
    const std::string SnapPath = O.Out + ".snap", GoldenPath = O.Out + ".golden";
    std::error_code Ignored;
    fs::remove(SnapPath, Ignored);
    fs::remove(GoldenPath, Ignored);

    ElfFile Elf;
    if (!Elf.Load(O.Elf, Error)) {
        return false;
    }
    const int Index = FindDevice(O.Device);
    if (Index < 0 || !DeviceTable()[static_cast<size_t>(Index)].Machine) {
        Error = "\"" + O.Device + "\" is not an emulated board of the device table";
        return false;
    }
    const DeviceEntry& Device = DeviceTable()[static_cast<size_t>(Index)];
    U32 Address = 0;
    if (!ResolveStop(O, Elf, Address, Error)) {
        return false;
    }

    QemuHarness Qemu;
    // QEMU answers the programs' semihosting itself (their start-up output), so they run to the stop.
    if (!Qemu.Start(Device.Machine, O.Elf, O.TimeoutMs, Error,
                    {"-semihosting-config", "enable=on,target=native"})) {
        return false;
    }
    TargetSnapshot Snap;
    {
        AttachedBoard Board(Device, Qemu.Port());
        if (!Board.Connect(Error) || !RunToStop(Board, O, Address, Error) ||
            !ReadState(Board, O, Elf, Device, Snap, Error)) {
            return false;
        }
        Board.Release();
    }
    const fs::path OutFolder = fs::absolute(fs::path(SnapPath)).parent_path();
    Snap.Elf = fs::absolute(O.Elf).lexically_relative(OutFolder).string();
    Snap.ElfSize = Elf.FileSize();
    Snap.ElfSha256 = Elf.Sha256();
    Snap.Command = O.CommandLine;
    Snap.Device = Device.Name;
    Snap.StopPc = Address;
    Snap.StopReason = "breakpoint";
    Snap.StopDetail = O.Stop + " hit " + std::to_string(O.Hit);

    std::string Golden;
    if (!RunGolden(Qemu, O, fs::path(SnapPath).filename().string(), Golden, Error)) {
        return false;
    }
    Qemu.Stop();
    if (!WriteSnapshotFile(SnapPath, Snap, Error) || !WriteText(GoldenPath, Golden, Error)) {
        fs::remove(SnapPath, Ignored);
        return false;
    }
    return true;
}

} // namespace probetest
