// Measures the probe library on the emulated board against gdb-multiarch on another board running the
// same program, in the same run: round trips per second of a 4-byte read, a register-file read and a
// single step, and the throughput of writing 1 MiB to target RAM.

#include "probe/Tarvo.h"

#include "kit/ElfImage.h"
#include "kit/QemuHarness.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

constexpr U32 ReadAddress = 0x20000000;
constexpr U32 WriteAddress = 0x20100000;
constexpr U32 MiB = 1024 * 1024;

using Clock = std::chrono::steady_clock;

double Seconds(Clock::time_point Start) {
    return std::chrono::duration<double>(Clock::now() - Start).count();
}

// Runs Op repeatedly for about Budget seconds (at least MinCount times); operations per second.
double Rate(const std::function<bool()>& Op, double Budget, int MinCount) {
    const auto Start = Clock::now();
    int Count = 0;
    while (Count < MinCount || Seconds(Start) < Budget) {
        if (!Op()) {
            return 0;
        }
        ++Count;
    }
    return Count / Seconds(Start);
}

bool Fail(const char* What) {
    std::fprintf(stderr, "bench_probe: %s\n", What);
    return false;
}

// The library's figures: read4, regs, step in operations per second, write in MB/s.
bool MeasureLibrary(const probetest::ElfImage& Elf, std::map<std::string, double>& Out) {
    char Answer[512] = {};
    if (TARVOARM_SelectUSB(0) != 0 || TARVOARM_Open() != nullptr ||
        TARVOARM_ExecCommand("device=MPS2-AN385", Answer, sizeof Answer) != 0 || TARVOARM_Connect() != 0) {
        return Fail(Answer[0] ? Answer : "could not start the emulated board");
    }
    for (const probetest::Segment& S : Elf.Segments()) {
        TARVOARM_WriteMemEx(S.Address, static_cast<U32>(S.Bytes.size()), S.Bytes.data(), 0);
    }
    TARVOARM_Reset();
    TARVOARM_SetBPEx(Elf.Symbol("main"), 0xFFFFFFF0);
    TARVOARM_GoEx(0, 1);
    for (int i = 0; i < 400 && TARVOARM_IsHalted() == 0; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    TARVOARM_ClrBPEx(-1);
    if (TARVOARM_IsHalted() != 1) {
        return Fail("the program did not reach main");
    }
    Out["read4"] = Rate(
        [] {
            U32 V;
            U8 St;
            return TARVOARM_ReadMemU32(ReadAddress, 1, &V, &St) == 1;
        },
        0.5, 200);
    std::vector<U32> Regs;
    for (U32 i = 0; i <= TARVO_REG_XPSR; ++i) {
        Regs.push_back(i);
    }
    Out["regs"] = Rate(
        [&Regs] {
            U64 Values[17];
            U8 Status[17];
            char A[64];
            // The library keeps registers until the next resume: make it fetch them anew each time.
            TARVOARM_ExecCommand("InvalidateCache", A, sizeof A);
            return TARVOARM_ReadRegs(Regs.data(), Values, Status, 17) == 0 && Status[15] == 0;
        },
        0.5, 200);
    Out["step"] = Rate([] { return TARVOARM_Step() == 0; }, 0.5, 100);
    std::vector<U8> Data(MiB);
    for (size_t i = 0; i < Data.size(); ++i) {
        Data[i] = static_cast<U8>(i * 7);
    }
    double Best = 1e9;
    for (int i = 0; i < 3; ++i) {
        const auto Start = Clock::now();
        if (TARVOARM_WriteMemEx(WriteAddress, MiB, Data.data(), 0) != static_cast<int>(MiB)) {
            return Fail("the 1 MiB write failed");
        }
        Best = std::min(Best, Seconds(Start));
    }
    Out["write"] = 1.0 / Best;
    TARVOARM_Close();
    return true;
}

const char* GdbScript = R"(
import gdb, time
inf = gdb.selected_inferior()
def rate(fn, budget, least):
    t = time.perf_counter(); n = 0
    while n < least or time.perf_counter() - t < budget:
        fn(); n += 1
    return n / (time.perf_counter() - t)
def regs():
    gdb.execute("maint flush register-cache", to_string=True)
    gdb.selected_frame().read_register("pc")
print("RESULT read4 %f" % rate(lambda: inf.read_memory(0x20000000, 4), 0.5, 200))
print("RESULT regs %f" % rate(regs, 0.5, 100))
print("RESULT step %f" % rate(lambda: gdb.execute("stepi", to_string=True), 0.5, 100))
data = bytes((i * 7) & 255 for i in range(1048576))
best = 1e9
for i in range(3):
    t = time.perf_counter(); inf.write_memory(0x20100000, data); best = min(best, time.perf_counter() - t)
print("RESULT write %f" % (1.0 / best))
)";

bool MeasureGdb(const std::string& Program, std::map<std::string, double>& Out) {
    char Path[] = "/tmp/arnex-bench-XXXXXX.py";
    const int Fd = mkstemps(Path, 3);
    if (Fd < 0) {
        return Fail("could not write the gdb script");
    }
    (void)!write(Fd, GdbScript, std::char_traits<char>::length(GdbScript));
    close(Fd);
    probetest::QemuHarness Board;
    std::string Error;
    if (!Board.Start("mps2-an385", Program, 60000, Error)) {
        unlink(Path);
        return Fail(Error.c_str());
    }
    const std::string Output = probetest::RunGdb(
        Board, Program, {"break main", "continue", "delete", std::string("source ") + Path}, 60000);
    unlink(Path);
    std::istringstream In(Output);
    for (std::string Line; std::getline(In, Line);) {
        char Name[16];
        double Value;
        if (std::sscanf(Line.c_str(), "RESULT %15s %lf", Name, &Value) == 2) {
            Out[Name] = Value;
        }
    }
    if (Out.size() != 4) {
        std::fprintf(stderr, "%s\n", Output.c_str());
        return Fail("gdb-multiarch gave no figures");
    }
    return true;
}

} // namespace

int main(int argc, char** argv) {
    const std::string Program = argc > 1 ? argv[1] : probetest::FirmwarePath("demo", "O0-dwarf4");
    probetest::ElfImage Elf;
    std::string Error;
    if (!Elf.Load(Program, Error)) {
        std::fprintf(stderr, "bench_probe: %s\n", Error.c_str());
        return 1;
    }
    std::map<std::string, double> Ours, Gdb;
    if (!MeasureLibrary(Elf, Ours) || !MeasureGdb(Program, Gdb)) {
        return 1;
    }
    std::printf("Probe library against gdb-multiarch, emulated board mps2-an385 (%s)\n", Program.c_str());
    std::printf("%-28s %14s %14s %8s\n", "operation", "libtarvo", "gdb-multiarch", "ratio");
    const struct {
        const char* Key;
        const char* Name;
        const char* Unit;
    } Rows[] = {{"read4", "4-byte read", "/s"},
                {"regs", "register-file read", "/s"},
                {"step", "single step", "/s"},
                {"write", "write 1 MiB to RAM", "MB/s"}};
    for (const auto& R : Rows) {
        std::printf("%-28s %11.1f%-3s %11.1f%-3s %7.2fx\n", R.Name, Ours[R.Key], R.Unit, Gdb[R.Key], R.Unit,
                    Ours[R.Key] / Gdb[R.Key]);
    }
    return 0;
}
