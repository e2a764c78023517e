#pragma once

// A QEMU of its own for a test or a benchmark: an emulated board on a free local port, optionally with
// a program loaded, ended when the harness goes (or the test process dies, or the time-out passes).
// One GDB client per QEMU: the oracle debugger gets a harness, the library starts its own board.

#include "probe/backends/QemuProcess.h"

#include <string>
#include <vector>

namespace probetest {

class QemuHarness {
public:
    /// Starts "qemu-system-arm -M Machine" halted, with Program loaded when it isn't empty, and
    /// ExtraArgs.
    bool Start(const std::string& Machine, const std::string& Program, int TimeoutMs, std::string& Error,
               const std::vector<std::string>& ExtraArgs = {});
    uint16_t Port() const { return m_Process.GdbPort(); }
    int Pid() const { return m_Process.Pid(); }
    void Stop() { m_Process.Stop(); }

private:
    tarvo::QemuProcess m_Process;
};

/// Runs gdb-multiarch in batch mode against the harness's board: Commands follow "target remote".
/// Returns gdb's output; the test fails on a time-out.
std::string RunGdb(const QemuHarness& Board, const std::string& Program,
                   const std::vector<std::string>& Commands, int TimeoutMs = 20000);

} // namespace probetest
