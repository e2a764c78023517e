// Measures the probe library on the emulated board against gdb-multiarch on another board running the
// same program, in the same run: round trips per second of a 4-byte read, a register-file read and a
// single step, and the throughput of writing 1 MiB to target RAM.

#include "probe/Tarvo.h"

#include "kit/ElfImage.h"
#include "kit/Process.h"
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

// The library's side: an emulated board of its own with the program stopped at main.
bool StartLibrary(const probetest::ElfImage& Elf) {
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
    return TARVOARM_IsHalted() == 1 || Fail("the program did not reach main");
}

// One round of one operation through the library: operations per second, or MB/s for the write.
double MeasureLibrary(const std::string& Op, double Budget) {
    if (Op == "read4") {
        return Rate(
            [] {
                U32 V;
                U8 St;
                return TARVOARM_ReadMemU32(ReadAddress, 1, &V, &St) == 1;
            },
            Budget, 100);
    }
    if (Op == "regs") {
        return Rate(
            [] {
                static const U32 Regs[17] = {
                    0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, TARVO_REG_XPSR};
                U64 Values[17];
                U8 Status[17];
                char A[64];
                // The library keeps registers until the next resume: make it fetch them anew each time.
                TARVOARM_ExecCommand("InvalidateCache", A, sizeof A);
                return TARVOARM_ReadRegs(Regs, Values, Status, 17) == 0 && Status[15] == 0;
            },
            Budget, 100);
    }
    if (Op == "step") {
        return Rate([] { return TARVOARM_Step() == 0; }, Budget, 50);
    }
    static std::vector<U8> Data = [] {
        std::vector<U8> D(MiB);
        for (size_t i = 0; i < D.size(); ++i) {
            D[i] = static_cast<U8>(i * 7);
        }
        return D;
    }();
    const auto Start = Clock::now();
    if (TARVOARM_WriteMemEx(WriteAddress, MiB, Data.data(), 0) != static_cast<int>(MiB)) {
        return 0;
    }
    return 1.0 / Seconds(Start);
}

// The same operations in gdb's Python, on a board of gdb's own; each call prints "RESULT <value>".
const char* GdbScript = R"(
import gdb, time
inf = gdb.selected_inferior()
data = bytes((i * 7) & 255 for i in range(1048576))
def rate(fn, budget, least):
    t = time.perf_counter(); n = 0
    while n < least or time.perf_counter() - t < budget:
        fn(); n += 1
    return n / (time.perf_counter() - t)
def regs():
    gdb.execute("maint flush register-cache", to_string=True)
    gdb.selected_frame().read_register("pc")
def write():
    t = time.perf_counter(); inf.write_memory(0x20100000, data)
    return 1.0 / (time.perf_counter() - t)
def bench(op, budget):
    if op == "read4": v = rate(lambda: inf.read_memory(0x20000000, 4), budget, 100)
    elif op == "regs": v = rate(regs, budget, 100)
    elif op == "step": v = rate(lambda: gdb.execute("stepi", to_string=True), budget, 50)
    else: v = write()
    print("RESULT %f" % v)
)";

class GdbSide {
public:
    bool Start(const std::string& Program) {
        char Path[] = "/tmp/arnex-bench-XXXXXX.py";
        const int Fd = mkstemps(Path, 3);
        if (Fd < 0) {
            return Fail("could not write the gdb script");
        }
        (void)!write(Fd, GdbScript, std::char_traits<char>::length(GdbScript));
        close(Fd);
        m_Script = Path;
        std::string Error;
        if (!m_Board.Start("mps2-an385", Program, 300000, Error)) {
            return Fail(Error.c_str());
        }
        const std::vector<std::string> Argv = {"gdb-multiarch",
                                               "-q",
                                               "-nx",
                                               "-ex",
                                               "set pagination off",
                                               "-ex",
                                               "set confirm off",
                                               "-ex",
                                               "target remote 127.0.0.1:" + std::to_string(m_Board.Port()),
                                               "-ex",
                                               "break main",
                                               "-ex",
                                               "continue",
                                               "-ex",
                                               "delete",
                                               "-ex",
                                               "source " + m_Script,
                                               Program};
        std::string Line;
        return (m_Gdb.Start(Argv) && m_Gdb.WriteLine("python print('READY')") &&
                m_Gdb.ReadUntil("READY", Line, 30000)) ||
               Fail("gdb-multiarch did not start");
    }
    ~GdbSide() {
        if (!m_Script.empty()) {
            unlink(m_Script.c_str());
        }
    }
    double Measure(const std::string& Op, double Budget) {
        std::string Line;
        char Command[96];
        std::snprintf(Command, sizeof Command, "python bench('%s', %f)", Op.c_str(), Budget);
        if (!m_Gdb.WriteLine(Command) || !m_Gdb.ReadUntil("RESULT ", Line, 60000)) {
            return 0;
        }
        return std::atof(Line.c_str() + Line.find("RESULT ") + 7);
    }

private:
    probetest::QemuHarness m_Board;
    probetest::ChildProcess m_Gdb;
    std::string m_Script;
};

} // namespace

int main(int argc, char** argv) {
    const std::string Program = argc > 1 ? argv[1] : probetest::FirmwarePath("demo", "O0-dwarf4");
    probetest::ElfImage Elf;
    std::string Error;
    if (!Elf.Load(Program, Error)) {
        std::fprintf(stderr, "bench_probe: %s\n", Error.c_str());
        return 1;
    }
    GdbSide Gdb;
    if (!StartLibrary(Elf) || !Gdb.Start(Program)) {
        return 1;
    }
    // Rounds of the two alternate, so that the load of a shared machine falls on both alike; the best
    // round of each counts.
    std::map<std::string, double> Ours, Theirs;
    for (const char* Op : {"read4", "regs", "step", "write"}) {
        // A 1 MiB write takes some 50 ms: more rounds to find a quiet moment.
        const int Rounds = std::string(Op) == "write" ? 6 : 3;
        for (int Round = 0; Round < Rounds; ++Round) {
            Ours[Op] = std::max(Ours[Op], MeasureLibrary(Op, 0.25));
            Theirs[Op] = std::max(Theirs[Op], Gdb.Measure(Op, 0.25));
        }
        if (Ours[Op] <= 0 || Theirs[Op] <= 0) {
            std::fprintf(stderr, "bench_probe: no figure for %s\n", Op);
            return 1;
        }
    }
    TARVOARM_Close();
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
        std::printf("%-28s %11.1f%-4s %11.1f%-4s %7.2fx\n", R.Name, Ours[R.Key], R.Unit, Theirs[R.Key],
                    R.Unit, Ours[R.Key] / Theirs[R.Key]);
    }
    return 0;
}
