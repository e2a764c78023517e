#include "QemuHarness.h"

#include "Process.h"

namespace probetest {

bool QemuHarness::Start(const std::string& Machine, const std::string& Program, int TimeoutMs,
                        std::string& Error, const std::vector<std::string>& ExtraArgs) {
    tarvo::QemuProcess::Options O;
    O.Machine = Machine;
    O.Qmp = false;
    O.TimeoutMs = TimeoutMs;
    if (!Program.empty()) {
        O.ExtraArgs = {"-kernel", Program};
    }
    O.ExtraArgs.insert(O.ExtraArgs.end(), ExtraArgs.begin(), ExtraArgs.end());
    return m_Process.Start(O, Error);
}

std::string RunGdb(const QemuHarness& Board, const std::string& Program,
                   const std::vector<std::string>& Commands, int TimeoutMs) {
    std::vector<std::string> Argv = {
        "gdb-multiarch", "-q",
        "-nx",           "-batch",
        "-ex",           "set pagination off",
        "-ex",           "set confirm off",
        "-ex",           "target remote 127.0.0.1:" + std::to_string(Board.Port())};
    for (const std::string& C : Commands) {
        Argv.push_back("-ex");
        Argv.push_back(C);
    }
    if (!Program.empty()) {
        Argv.push_back(Program);
    }
    const ProcessResult R = RunProcess(Argv, TimeoutMs);
    return R.TimedOut ? "gdb-multiarch timed out\n" + R.Output : R.Output;
}

} // namespace probetest
