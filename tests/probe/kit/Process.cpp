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
    int Out[2], In[2];
    if (pipe2(Out, O_CLOEXEC) < 0 || pipe2(In, O_CLOEXEC) < 0) {
        return false;
    }
    std::vector<std::string> Args = Argv;
    std::vector<char*> CArgs;
    for (std::string& A : Args) {
        CArgs.push_back(A.data());
    }
    CArgs.push_back(nullptr);
    const pid_t Parent = getpid();
    m_Pid = fork();
    if (m_Pid == 0) {
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
    m_In = In[1];
    m_Out = Out[0];
    if (m_Pid < 0) {
        return false;
    }
    setpgid(m_Pid, m_Pid);
    return true;
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
