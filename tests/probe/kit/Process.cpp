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

namespace {

/// Starts Argv in a process group of its own, stdout and stderr on one pipe, killed with its parent. The
/// write end of its stdin and the read end of its output go to In and Out; -1 if it could not start.
pid_t Spawn(const std::vector<std::string>& Argv, int* In, int* Out) {
    int OutPipe[2], InPipe[2];
    if (Argv.empty() || pipe2(OutPipe, O_CLOEXEC) < 0) {
        return -1;
    }
    if (pipe2(InPipe, O_CLOEXEC) < 0) {
        close(OutPipe[0]);
        close(OutPipe[1]);
        return -1;
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
        dup2(InPipe[0], 0);
        dup2(OutPipe[1], 1);
        dup2(OutPipe[1], 2);
        execvp(CArgs[0], CArgs.data());
        _exit(127);
    }
    close(OutPipe[1]);
    close(InPipe[0]);
    if (Pid < 0) {
        close(OutPipe[0]);
        close(InPipe[1]);
        return -1;
    }
    setpgid(Pid, Pid);
    *In = InPipe[1];
    *Out = OutPipe[0];
    return Pid;
}

} // namespace

ProcessResult RunProcess(const std::vector<std::string>& Argv, int TimeoutMs, const std::string& Input) {
    ProcessResult R;
    int In = -1, Out = -1;
    const pid_t Pid = Spawn(Argv, &In, &Out);
    if (Pid < 0) {
        R.Output = "could not start the process";
        return R;
    }
    if (!Input.empty()) {
        (void)!write(In, Input.data(), Input.size());
    }
    close(In);
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
        pollfd P{Out, POLLIN, 0};
        const int N = poll(&P, 1, Left);
        if (N < 0 && errno == EINTR) {
            continue;
        }
        if (N == 0) {
            continue;
        }
        const ssize_t Got = read(Out, Buffer, sizeof Buffer);
        if (Got <= 0) {
            break;
        }
        R.Output.append(Buffer, static_cast<size_t>(Got));
    }
    close(Out);
    int Status = 0;
    while (waitpid(Pid, &Status, 0) < 0 && errno == EINTR) {
    }
    kill(-Pid, SIGKILL); // anything the process left behind in its group
    R.ExitCode = !R.TimedOut && WIFEXITED(Status) ? WEXITSTATUS(Status) : -1;
    return R;
}

} // namespace probetest

namespace probetest {

ChildProcess::~ChildProcess() {
    if (m_In >= 0) {
        close(m_In);
    }
    if (m_Out >= 0) {
        close(m_Out);
    }
    if (m_Pid > 0) {
        kill(-m_Pid, SIGKILL);
        int Status;
        while (waitpid(m_Pid, &Status, 0) < 0 && errno == EINTR) {
        }
    }
}

bool ChildProcess::Start(const std::vector<std::string>& Argv) {
    m_Pid = Spawn(Argv, &m_In, &m_Out);
    return m_Pid > 0;
}

bool ChildProcess::WriteLine(const std::string& Line) {
    const std::string Text = Line + "\n";
    return m_In >= 0 && write(m_In, Text.data(), Text.size()) == static_cast<ssize_t>(Text.size());
}

bool ChildProcess::ReadUntil(const std::string& Needle, std::string& Line, int TimeoutMs,
                             std::string* Output) {
    using Clock = std::chrono::steady_clock;
    const auto Deadline = Clock::now() + std::chrono::milliseconds(TimeoutMs);
    for (;;) {
        size_t Nl;
        while ((Nl = m_Buffer.find('\n')) != std::string::npos) {
            Line = m_Buffer.substr(0, Nl);
            m_Buffer.erase(0, Nl + 1);
            if (Output) {
                *Output += Line + "\n";
            }
            if (Line.find(Needle) != std::string::npos) {
                return true;
            }
        }
        const int Left = static_cast<int>(
            std::chrono::duration_cast<std::chrono::milliseconds>(Deadline - Clock::now()).count());
        if (Left <= 0) {
            return false;
        }
        pollfd P{m_Out, POLLIN, 0};
        if (poll(&P, 1, Left) <= 0) {
            continue;
        }
        char Buffer[4096];
        const ssize_t Got = read(m_Out, Buffer, sizeof Buffer);
        if (Got <= 0) {
            return false;
        }
        m_Buffer.append(Buffer, static_cast<size_t>(Got));
    }
}

} // namespace probetest
