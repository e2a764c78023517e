#pragma once

// Makes a target snapshot of a program at a stop on the emulated board, and gdb-multiarch's answers on
// that same stop as golden text beside it. The board runs to the stop under the probe library's own
// remote protocol client; then, without resuming it, the connection is handed to gdb-multiarch.

#include "probe/Tarvo.h"

#include <string>
#include <vector>

namespace probetest {

struct CaptureOptions {
    std::string Elf;
    std::string Stop; // a function, FILE:LINE or *ADDRESS
    unsigned Hit = 1; // the how-manyth arrival at the stop
    std::string Out;  // BASE of BASE.snap and BASE.golden
    std::string Device = "MPS2-AN385";
    std::vector<std::pair<U32, U32>> Ranges; // more RAM to capture: address, size
    int TimeoutMs = 20000;
    std::string CommandLine; // recorded in the snapshot
};

/// The default BASE: the program's path without ".elf", then the stop and the hit count.
std::string DefaultOutput(const CaptureOptions& O);

/// Writes O.Out + ".snap" and O.Out + ".golden"; false with Error, and neither file, on failure.
bool CaptureSnapshot(const CaptureOptions& O, std::string& Error);

} // namespace probetest
