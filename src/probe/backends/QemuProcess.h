#pragma once

// One qemu-system-arm child process for the emulated board (and for the test harness). The GDB
// server socket is bound here on a free local port and handed to QEMU as a descriptor, so no other
// process can take the port in between; QMP runs over a socket pair the same way.

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace tarvo {

/// Start and Stop from one thread at a time. The process is forked on a watchdog thread of its own:
/// that thread forwards QEMU's output, notices its end at once, and is the parent that the child's
/// PR_SET_PDEATHSIG refers to, so QEMU dies with our process even when it is killed.
class QemuProcess {
public:
    struct Options {
        std::string Binary = "qemu-system-arm"; // a path, or a name looked up in PATH
        std::string Machine;                    // "mps2-an385"
        std::vector<std::string> ExtraArgs;
        bool Qmp = true;
        int TimeoutMs = 0; // above 0: killed after this long
    };

    QemuProcess() = default;
    ~QemuProcess();
    QemuProcess(const QemuProcess&) = delete;
    QemuProcess& operator=(const QemuProcess&) = delete;

    /// Called on the watchdog thread for every line QEMU prints. Set before Start.
    void SetOutputHandler(std::function<void(const std::string&)> Handler) { m_Output = std::move(Handler); }
    /// Called on the watchdog thread when QEMU ends other than by Stop, with ExitDescription.
    void SetExitHandler(std::function<void(const std::string&)> Handler) { m_Exit = std::move(Handler); }

    bool Start(const Options& O, std::string& Error);
    void Stop();

    uint16_t GdbPort() const { return m_Port; }
    /// The parent's end of the QMP socket pair; the caller owns it afterwards.
    int TakeQmpFd();
    int Pid() const { return m_Pid; }
    bool IsRunning() const { return m_Pid > 0 && !m_Exited.load(); }
    /// How QEMU ended, with its last lines of output.
    std::string ExitDescription() const;

    /// The path of an executable by name through PATH, or the name itself if it holds a '/'. Empty
    /// if there is none.
    static std::string FindExecutable(const std::string& Name);

private:
    void Watch(std::vector<std::string> Args, int ListenFd, int QmpChildFd, int OutWrite, int OutRead,
               int TimeoutMs);

    std::function<void(const std::string&)> m_Output;
    std::function<void(const std::string&)> m_Exit;
    std::thread m_Thread;
    std::atomic<int> m_Pid{0};
    std::atomic<bool> m_Exited{false};
    std::atomic<bool> m_Stopping{false};
    uint16_t m_Port = 0;
    int m_QmpFd = -1;
    mutable std::mutex m_Mutex; // m_Tail, m_Status
    std::vector<std::string> m_Tail;
    int m_Status = 0;
    std::string m_Binary;
};

} // namespace tarvo
