#include "probe/backends/QemuProcess.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tarvo {

namespace {

constexpr size_t TailLines = 8;

int64_t NowMs() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

void CloseFd(int& Fd) {
    if (Fd >= 0) {
        close(Fd);
        Fd = -1;
    }
}

} // namespace

QemuProcess::~QemuProcess() {
    Stop();
    CloseFd(m_QmpFd);
}

std::string QemuProcess::FindExecutable(const std::string& Name) {
    if (Name.find('/') != std::string::npos) {
        return access(Name.c_str(), X_OK) == 0 ? Name : std::string();
    }
    const char* Path = std::getenv("PATH");
    std::string Dirs = Path ? Path : "/usr/local/bin:/usr/bin:/bin";
    size_t Start = 0;
    while (Start <= Dirs.size()) {
        const size_t End = Dirs.find(':', Start);
        std::string Dir = Dirs.substr(Start, End == std::string::npos ? std::string::npos : End - Start);
        if (Dir.empty()) {
            Dir = ".";
        }
        const std::string Candidate = Dir + "/" + Name;
        if (access(Candidate.c_str(), X_OK) == 0) {
            return Candidate;
        }
        if (End == std::string::npos) {
            break;
        }
        Start = End + 1;
    }
    return {};
}

bool QemuProcess::Start(const Options& O, std::string& Error) {
    Stop();
    m_Binary = FindExecutable(O.Binary);
    if (m_Binary.empty()) {
        Error = O.Binary + " was not found: install the package qemu-system-arm";
        return false;
    }
    int Listen = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in Addr{};
    Addr.sin_family = AF_INET;
    Addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t Len = sizeof Addr;
    if (Listen < 0 || bind(Listen, reinterpret_cast<sockaddr*>(&Addr), sizeof Addr) < 0 ||
        listen(Listen, 1) < 0 || getsockname(Listen, reinterpret_cast<sockaddr*>(&Addr), &Len) < 0) {
        Error = std::string("Could not open a local port for the emulated board: ") + std::strerror(errno);
        CloseFd(Listen);
        return false;
    }
    m_Port = ntohs(Addr.sin_port);
    int Pair[2] = {-1, -1};
    int Out[2] = {-1, -1};
    if ((O.Qmp && socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, Pair) < 0) ||
        pipe2(Out, O_CLOEXEC) < 0) {
        Error = std::string("Could not start the emulated board: ") + std::strerror(errno);
        CloseFd(Listen);
        CloseFd(Pair[0]);
        CloseFd(Pair[1]);
        return false;
    }
    std::vector<std::string> Args = {m_Binary,
                                     "-M",
                                     O.Machine,
                                     "-S",
                                     "-nographic",
                                     "-monitor",
                                     "none",
                                     "-serial",
                                     "none",
                                     "-chardev",
                                     "socket,id=g0,fd=3,server=on,wait=off,nodelay=on",
                                     "-gdb",
                                     "chardev:g0"};
    if (O.Qmp) {
        Args.insert(Args.end(), {"-chardev", "socket,id=q0,fd=4", "-mon", "chardev=q0,mode=control"});
    }
    Args.insert(Args.end(), O.ExtraArgs.begin(), O.ExtraArgs.end());
    m_Exited = false;
    m_Stopping = false;
    m_Pid = 0;
    {
        std::lock_guard<std::mutex> Lock(m_Mutex);
        m_Tail.clear();
        m_Status = 0;
    }
    m_QmpFd = Pair[0];
    m_Thread = std::thread(
        [this, Args = std::move(Args), Listen, Child = Pair[1], Out, Timeout = O.TimeoutMs]() mutable {
            Watch(std::move(Args), Listen, Child, Out[1], Out[0], Timeout);
        });
    // The watchdog thread owns the descriptors from here; wait until it has forked.
    while (m_Pid.load() == 0 && !m_Exited.load()) {
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    if (m_Pid.load() < 0) {
        Error = std::string("Could not start ") + m_Binary + ": " + std::strerror(-m_Pid.load());
        Stop();
        return false;
    }
    return true;
}

void QemuProcess::Watch(std::vector<std::string> Args, int ListenFd, int QmpChildFd, int OutWrite,
                        int OutRead, int TimeoutMs) {
    std::vector<char*> Argv;
    for (std::string& A : Args) {
        Argv.push_back(A.data());
    }
    Argv.push_back(nullptr);
    const pid_t Parent = getpid();
    const int DevNull = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const pid_t Pid = fork();
    if (Pid == 0) {
        // Child: only async-signal-safe calls from here to exec.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != Parent) {
            _exit(127);
        }
        const int L = fcntl(ListenFd, F_DUPFD, 10);
        const int Q = QmpChildFd >= 0 ? fcntl(QmpChildFd, F_DUPFD, 10) : -1;
        dup2(DevNull, 0);
        dup2(OutWrite, 1);
        dup2(OutWrite, 2);
        dup2(L, 3);
        if (Q >= 0) {
            dup2(Q, 4);
        }
        syscall(SYS_close_range, 5, ~0U, 0);
        execv(Argv[0], Argv.data());
        const char Msg[] = "exec of qemu-system-arm failed\n";
        (void)!write(2, Msg, sizeof Msg - 1);
        _exit(127);
    }
    const int ForkErrno = errno;
    close(ListenFd);
    if (QmpChildFd >= 0) {
        close(QmpChildFd);
    }
    close(OutWrite);
    if (DevNull >= 0) {
        close(DevNull);
    }
    if (Pid < 0) {
        close(OutRead);
        m_Pid = -ForkErrno;
        m_Exited = true;
        return;
    }
    m_Pid = Pid;
    const int64_t Deadline = TimeoutMs > 0 ? NowMs() + TimeoutMs : -1;
    std::string Pending;
    char Buffer[4096];
    for (;;) {
        pollfd P{OutRead, POLLIN, 0};
        const int Wait = Deadline < 0 ? -1 : static_cast<int>(std::max<int64_t>(0, Deadline - NowMs()));
        const int N = poll(&P, 1, Wait);
        if (N == 0) {
            kill(Pid, SIGKILL); // the time-out of the harness
            continue;
        }
        if (N < 0) {
            if (errno == EINTR) {
                continue;
            }
            break;
        }
        const ssize_t R = read(OutRead, Buffer, sizeof Buffer);
        if (R <= 0) {
            if (R < 0 && errno == EINTR) {
                continue;
            }
            break;
        }
        Pending.append(Buffer, static_cast<size_t>(R));
        size_t Nl;
        while ((Nl = Pending.find('\n')) != std::string::npos) {
            std::string Line = Pending.substr(0, Nl);
            Pending.erase(0, Nl + 1);
            while (!Line.empty() && (Line.back() == '\r' || Line.back() == ' ')) {
                Line.pop_back();
            }
            if (Line.empty()) {
                continue;
            }
            {
                std::lock_guard<std::mutex> Lock(m_Mutex);
                m_Tail.push_back(Line);
                if (m_Tail.size() > TailLines) {
                    m_Tail.erase(m_Tail.begin());
                }
            }
            if (m_Output && !m_Stopping.load()) {
                m_Output(Line);
            }
        }
    }
    close(OutRead);
    int Status = 0;
    while (waitpid(Pid, &Status, 0) < 0 && errno == EINTR) {
    }
    {
        std::lock_guard<std::mutex> Lock(m_Mutex);
        m_Status = Status;
    }
    m_Exited = true;
    if (m_Exit && !m_Stopping.load()) {
        m_Exit(ExitDescription());
    }
}

std::string QemuProcess::ExitDescription() const {
    std::lock_guard<std::mutex> Lock(m_Mutex);
    std::string Text = "qemu-system-arm ended";
    if (WIFEXITED(m_Status)) {
        Text += " with exit status " + std::to_string(WEXITSTATUS(m_Status));
    } else if (WIFSIGNALED(m_Status)) {
        Text += std::string(" by signal ") + std::to_string(WTERMSIG(m_Status)) + " (" +
                strsignal(WTERMSIG(m_Status)) + ")";
    }
    if (!m_Tail.empty()) {
        // A fatal error prints its headline before a register dump: prefer that line to the last one.
        std::string Line = m_Tail.back();
        for (const std::string& L : m_Tail) {
            if (L.rfind("qemu", 0) == 0) {
                Line = L;
                break;
            }
        }
        Text += ": " + Line;
    }
    return Text;
}

int QemuProcess::TakeQmpFd() {
    const int Fd = m_QmpFd;
    m_QmpFd = -1;
    return Fd;
}

void QemuProcess::Stop() {
    if (!m_Thread.joinable()) {
        return;
    }
    m_Stopping = true;
    const int Pid = m_Pid.load();
    if (Pid > 0 && !m_Exited.load()) {
        kill(Pid, SIGKILL);
    }
    m_Thread.join();
    m_Pid = 0;
}

} // namespace tarvo
