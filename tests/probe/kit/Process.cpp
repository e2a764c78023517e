#include "Process.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace probetest {

ProcessResult RunProcess(const std::vector<std::string>& Argv, int TimeoutMs, const std::string& Input) {
    ProcessResult R;
    int Out[2], In[2];
    if (pipe2(Out, O_CLOEXEC) < 0 || pipe2(In, O_CLOEXEC) < 0) {
        R.Output = "pipe failed";
        return R;
    }
    std::vector<std::string> Args = Argv;
    std::vector<char*> CArgs;
    for (std::string& A : Args) {
        CArgs.push_back(A.data());
    }
    CArgs.push_back(nullptr);
    const pid_t Parent = getpid();
    const pid_t Pid = fork();
    if (Pid == 0) {
        setpgid(0, 0);
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != Parent) {
            _exit(127);
        }
        dup2(In[0], 0);
        dup2(Out[1], 1);
        dup2(Out[1], 2);
        execvp(CArgs[0], CArgs.data());
        _exit(127);
    }
    close(Out[1]);
    close(In[0]);
    if (Pid < 0) {
        close(Out[0]);
        close(In[1]);
        R.Output = "fork failed";
        return R;
    }
    setpgid(Pid, Pid);
    if (!Input.empty()) {
        (void)!write(In[1], Input.data(), Input.size());
    }
    close(In[1]);
    using Clock = std::chrono::steady_clock;
    const auto Deadline = Clock::now() + std::chrono::milliseconds(TimeoutMs);
    char Buffer[4096];
    for (;;) {
        const int Left = static_cast<int>(
            std::chrono::duration_cast<std::chrono::milliseconds>(Deadline - Clock::now()).count());
        if (Left <= 0) {
            R.TimedOut = true;
            kill(-Pid, SIGKILL);
            break;
        }
        pollfd P{Out[0], POLLIN, 0};
        const int N = poll(&P, 1, Left);
        if (N < 0 && errno == EINTR) {
            continue;
        }
        if (N == 0) {
            continue;
        }
        const ssize_t Got = read(Out[0], Buffer, sizeof Buffer);
        if (Got <= 0) {
            break;
        }
        R.Output.append(Buffer, static_cast<size_t>(Got));
    }
    close(Out[0]);
    int Status = 0;
    while (waitpid(Pid, &Status, 0) < 0 && errno == EINTR) {
    }
    kill(-Pid, SIGKILL); // anything the process left behind in its group
    R.ExitCode = !R.TimedOut && WIFEXITED(Status) ? WEXITSTATUS(Status) : -1;
    return R;
}

} // namespace probetest
