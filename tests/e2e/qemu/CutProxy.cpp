#include "CutProxy.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

int ConnectTo(uint16_t Port) {
    const int Fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in A = {};
    A.sin_family = AF_INET;
    A.sin_port = htons(Port);
    A.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (Fd < 0 || connect(Fd, reinterpret_cast<sockaddr*>(&A), sizeof(A)) != 0) {
        if (Fd >= 0) {
            close(Fd);
        }
        return -1;
    }
    const int One = 1;
    setsockopt(Fd, IPPROTO_TCP, TCP_NODELAY, &One, sizeof(One));
    return Fd;
}

} // namespace

CCutProxy::~CCutProxy() {
    m_Stop = true;
    if (m_Thread.joinable()) {
        m_Thread.join();
    }
    if (m_Listen >= 0) {
        close(m_Listen);
    }
}

bool CCutProxy::Start(uint16_t ServerPort, int CutAfterWrites, std::function<void()> OnCut,
                      std::string& Error) {
    m_ServerPort = ServerPort;
    m_CutAfter = CutAfterWrites;
    m_OnCut = std::move(OnCut);
    m_Listen = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in A = {};
    A.sin_family = AF_INET;
    A.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t Length = sizeof(A);
    if (m_Listen < 0 || bind(m_Listen, reinterpret_cast<sockaddr*>(&A), sizeof(A)) != 0 ||
        listen(m_Listen, 1) != 0 || getsockname(m_Listen, reinterpret_cast<sockaddr*>(&A), &Length) != 0) {
        Error = "the proxy could not listen";
        return false;
    }
    m_Port = ntohs(A.sin_port);
    m_Thread = std::thread([this]() { Run(); });
    return true;
}

void CCutProxy::Run() {
    pollfd Wait = {m_Listen, POLLIN, 0};
    while (!m_Stop && poll(&Wait, 1, 50) <= 0) {
    }
    if (m_Stop) {
        return;
    }
    const int Client = accept(m_Listen, nullptr, nullptr);
    const int Server = ConnectTo(m_ServerPort);
    if (Client < 0 || Server < 0) {
        return;
    }
    const int One = 1;
    setsockopt(Client, IPPROTO_TCP, TCP_NODELAY, &One, sizeof(One));
    int Writes = 0;
    char Last = 0;
    char Buffer[65536];
    while (!m_Stop) {
        pollfd Fds[2] = {{Client, POLLIN, 0}, {Server, POLLIN, 0}};
        if (poll(Fds, 2, 50) <= 0) {
            continue;
        }
        bool Closed = false;
        for (int i = 0; i < 2 && !Closed; ++i) {
            if (!(Fds[i].revents & (POLLIN | POLLHUP | POLLERR))) {
                continue;
            }
            const ssize_t N = read(Fds[i].fd, Buffer, sizeof(Buffer));
            if (N <= 0) {
                Closed = true;
                break;
            }
            if (i == 0) {
                // A memory write is a packet that starts "$M" (or "$X" for binary data).
                for (ssize_t k = 0; k < N; ++k) {
                    if (Last == '$' && (Buffer[k] == 'M' || Buffer[k] == 'X')) {
                        ++Writes;
                    }
                    Last = Buffer[k];
                }
                if (Writes >= m_CutAfter) {
                    m_Cut = true;
                    Closed = true;
                    break;
                }
            }
            const int To = i == 0 ? Server : Client;
            for (ssize_t Sent = 0; Sent < N;) {
                const ssize_t W = write(To, Buffer + Sent, static_cast<size_t>(N - Sent));
                if (W <= 0) {
                    Closed = true;
                    break;
                }
                Sent += W;
            }
        }
        if (Closed) {
            break;
        }
    }
    close(Client);
    close(Server);
    if (m_Cut && m_OnCut) {
        m_OnCut();
    }
}
