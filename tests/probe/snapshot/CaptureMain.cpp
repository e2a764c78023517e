// snapshot_capture: a target snapshot and gdb-multiarch's golden text for one stop of a program.

#include "Capture.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

const char* const Usage =
    "usage: snapshot_capture --elf PROGRAM.elf --stop FUNCTION|FILE:LINE|*ADDRESS [--hit N] [--out BASE]\n"
    "                        [--device MPS2-AN385] [--range ADDRESS:SIZE]... [--timeout MS]\n"
    "Runs PROGRAM on the emulated board to the N-th arrival at the stop (1 by default) and writes\n"
    "BASE.snap (registers, the stack from SP to its top, .data, .bss and the ranges asked for) and\n"
    "BASE.golden (gdb-multiarch's bt, info registers, x/16wx $sp, x/8hx $pc and, in every frame, info\n"
    "frame, info args and info locals on the same stop). BASE defaults to PROGRAM without .elf, then\n"
    ".STOP.N.\n";

std::string Quote(const std::string& Arg) {
    if (!Arg.empty() && Arg.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"
                                              "_-+=/.,:@%") == std::string::npos) {
        return Arg;
    }
    std::string Q = "'";
    for (char C : Arg) {
        Q += C == '\'' ? std::string("'\\''") : std::string(1, C);
    }
    return Q + "'";
}

bool ParseNumber(const char* Text, unsigned long long& V) {
    char* End = nullptr;
    V = std::strtoull(Text, &End, 0);
    return *Text && End && *End == '\0';
}

} // namespace

int main(int argc, char** argv) {
    probetest::CaptureOptions O;
    for (int i = 0; i < argc; ++i) {
        O.CommandLine += (i ? " " : "") + Quote(argv[i]);
    }
    for (int i = 1; i < argc; ++i) {
        const std::string Arg = argv[i];
        if (Arg == "--help" || Arg == "-h") {
            std::fputs(Usage, stdout);
            return 0;
        }
        if (i + 1 >= argc) {
            std::fprintf(stderr, "snapshot_capture: %s needs a value\n%s", Arg.c_str(), Usage);
            return 2;
        }
        const char* Value = argv[++i];
        unsigned long long N = 0;
        if (Arg == "--elf") {
            O.Elf = Value;
        } else if (Arg == "--stop") {
            O.Stop = Value;
        } else if (Arg == "--out") {
            O.Out = Value;
        } else if (Arg == "--device") {
            O.Device = Value;
        } else if (Arg == "--hit" && ParseNumber(Value, N) && N > 0 && N < 1000000) {
            O.Hit = static_cast<unsigned>(N);
        } else if (Arg == "--timeout" && ParseNumber(Value, N) && N > 0 && N < 3600000) {
            O.TimeoutMs = static_cast<int>(N);
        } else if (Arg == "--range" && std::strchr(Value, ':')) {
            const std::string Text = Value;
            const size_t Colon = Text.find(':');
            unsigned long long Address = 0, Size = 0;
            if (!ParseNumber(Text.substr(0, Colon).c_str(), Address) ||
                !ParseNumber(Text.substr(Colon + 1).c_str(), Size) || Size == 0 ||
                Address + Size > 0x100000000ull) {
                std::fprintf(stderr, "snapshot_capture: bad range \"%s\" (ADDRESS:SIZE)\n", Value);
                return 2;
            }
            O.Ranges.emplace_back(static_cast<U32>(Address), static_cast<U32>(Size));
        } else {
            std::fprintf(stderr, "snapshot_capture: bad option or value: %s %s\n%s", Arg.c_str(), Value,
                         Usage);
            return 2;
        }
    }
    if (O.Elf.empty() || O.Stop.empty()) {
        std::fputs(Usage, stderr);
        return 2;
    }
    if (O.Out.empty()) {
        O.Out = probetest::DefaultOutput(O);
    }
    std::string Error;
    if (!probetest::CaptureSnapshot(O, Error)) {
        std::fprintf(stderr, "snapshot_capture: %s\n", Error.c_str());
        return 1;
    }
    std::printf("%s.snap\n%s.golden\n", O.Out.c_str(), O.Out.c_str());
    return 0;
}
