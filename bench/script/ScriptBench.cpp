// Statements per second of the script interpreter, which re-reads the text of every statement it runs:
// a loop of 10000 rounds, alone and with a native call in each round. (A string literal in the loop would
// take room in the block at every round, so the native takes an integer.)

#include "script/Interp.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>

namespace {

const char* const LOOP = "void Loop (void) {\n"
                         "  __int64 i;\n"
                         "  __int64 s;\n"
                         "  int a[16];\n"
                         "  i = 0;\n"
                         "  s = 0;\n"
                         "  while (i < 10000) {\n"
                         "    a[i & 15] = i * 3 + 1;\n"
                         "    if (a[i & 15] > 100) s += a[i & 15]; else s -= 1;\n"
                         "    i += 1;\n"
                         "  }\n"
                         "}\n";

const char* const LOOP_WITH_NATIVE = "void Loop (void) {\n"
                                     "  __int64 i;\n"
                                     "  i = 0;\n"
                                     "  while (i < 10000) {\n"
                                     "    Util.Sleep(i & 1);\n"
                                     "    i += 1;\n"
                                     "  }\n"
                                     "}\n";

I32 Native(const U64* Args, int) {
    return static_cast<I32>(Args[0] & 1);
}

struct RESULT {
    U64 Statements;
    double Seconds;
};

/// The best of several runs, each on a freshly loaded script.
RESULT Measure(U8* Block, const char* Text, int Runs) {
    RESULT Best{0, 1e30};
    for (int r = 0; r < Runs; ++r) {
        CScriptHeap* H = ScriptInterp::CreateInterpreter(Block, Text);
        ScriptInterp::RegisterNative(H, "__api__ int Util.Sleep (int ms);", Native);
        if (!H || ScriptInterp::ParseGlobals(H) != 0) {
            std::fprintf(stderr, "bench_script: the script does not load\n");
            std::exit(1);
        }
        const auto Start = std::chrono::steady_clock::now();
        if (ScriptInterp::CallFunction(H, "Loop") != 0) {
            std::fprintf(stderr, "bench_script: %s\n", H->ErrorText);
            std::exit(1);
        }
        const double Seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - Start).count();
        if (Seconds < Best.Seconds) {
            Best = {H->Statements, Seconds};
        }
    }
    return Best;
}

} // namespace

int main() {
    std::unique_ptr<U8[]> Block(new U8[SCRIPT_HEAP_SIZE]);
    const RESULT Plain = Measure(Block.get(), LOOP, 20);
    const RESULT Calls = Measure(Block.get(), LOOP_WITH_NATIVE, 20);
    std::printf(
        "10000-round loop:                 %8llu statements in %7.3f ms: %6.2f million statements/s\n",
        static_cast<unsigned long long>(Plain.Statements), Plain.Seconds * 1e3,
        Plain.Statements / Plain.Seconds / 1e6);
    std::printf(
        "10000-round loop, a native call:  %8llu statements in %7.3f ms: %6.2f million statements/s\n",
        static_cast<unsigned long long>(Calls.Statements), Calls.Seconds * 1e3,
        Calls.Statements / Calls.Seconds / 1e6);
    std::printf("time per statement with a native call against without: %.2f\n",
                (Calls.Seconds / Calls.Statements) / (Plain.Seconds / Plain.Statements));
    return 0;
}
