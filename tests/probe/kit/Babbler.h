#pragma once

// A TCP server on a free loopback port that takes every connection, reads nothing and sends bytes
// without end, as a serial port given for a GDB server does: a debugger that connects to it must give
// up in time, or when told to. Header only, so that tests of any layer can use it.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

namespace probetest {

class Babbler {
public:
    explicit Babbler(std::string Bytes = "Booting kernel on cpu0\r\nDRAM: 512 MiB\r\n")
        : m_Bytes(std::move(Bytes)) {
        m_Listen = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in A{};
        A.sin_family = AF_INET;
        A.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t Length = sizeof A;
        bind(m_Listen, reinterpret_cast<sockaddr*>(&A), sizeof A);
        listen(m_Listen, 4);
        getsockname(m_Listen, reinterpret_cast<sockaddr*>(&A), &Length);
        m_Port = ntohs(A.sin_port);
        m_Thread = std::thread([this] { Run(); });
    }
    ~Babbler() {
        m_Stop = true;
        m_Thread.join();
        for (int Fd : m_Clients) {
            close(Fd);
        }
        close(m_Listen);
    }
    Babbler(const Babbler&) = delete;
    Babbler& operator=(const Babbler&) = delete;

    uint16_t Port() const { return m_Port; }
    int Connections() const { return m_Connections.load(); }

private:
    void Run() {
        while (!m_Stop.load()) {
            pollfd P{m_Listen, POLLIN, 0};
            if (poll(&P, 1, 1) > 0) {
                const int Fd = accept4(m_Listen, nullptr, nullptr, SOCK_CLOEXEC);
                if (Fd >= 0) {
                    m_Clients.push_back(Fd);
                    ++m_Connections;
                }
            }
            for (int Fd : m_Clients) {
                (void)!send(Fd, m_Bytes.data(), m_Bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
            }
        }
    }

    std::string m_Bytes;
    int m_Listen = -1;
    uint16_t m_Port = 0;
    std::vector<int> m_Clients;
    std::atomic<int> m_Connections{0};
    std::atomic<bool> m_Stop{false};
    std::thread m_Thread;
};

} // namespace probetest
