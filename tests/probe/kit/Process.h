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

namespace probetest {

/// A child that keeps running and talks over pipes (gdb-multiarch taking one command at a time). In a
/// process group of its own with PR_SET_PDEATHSIG; ended with its group when the object goes.
class ChildProcess {
public:
    ChildProcess() = default;
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    bool Start(const std::vector<std::string>& Argv);
    bool WriteLine(const std::string& Line);
    /// Reads lines until one contains Needle (returned in Line); false at the end of output or after
    /// TimeoutMs. Output is the text read on the way.
    bool ReadUntil(const std::string& Needle, std::string& Line, int TimeoutMs,
                   std::string* Output = nullptr);

private:
    int m_Pid = -1;
    int m_In = -1;
    int m_Out = -1;
    std::string m_Buffer;
};

} // namespace probetest
