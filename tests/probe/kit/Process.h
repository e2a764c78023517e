#pragma once

// Child processes of the probe tests and benchmarks (gdb-multiarch, a QEMU for it): each runs in a
// process group of its own with PR_SET_PDEATHSIG, so that a time-out, a failing test or a killed test
// process never leaves one behind.

#include <string>
#include <vector>

namespace probetest {

struct ProcessResult {
    int ExitCode = -1; // -1 when it was killed (time-out) or couldn't start
    bool TimedOut = false;
    std::string Output; // stdout and stderr together
};

/// Runs Argv[0] (looked up in PATH) with Input on its stdin and waits at most TimeoutMs.
ProcessResult RunProcess(const std::vector<std::string>& Argv, int TimeoutMs, const std::string& Input = {});

} // namespace probetest
