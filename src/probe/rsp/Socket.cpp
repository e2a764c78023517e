#include "probe/rsp/Socket.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace tarvo::rsp {

Socket& Socket::operator=(Socket&& Other) noexcept {
    if (this != &Other) {
        Close();
        m_Fd = Other.m_Fd;
        m_ReceiveTimeout = Other.m_ReceiveTimeout;
        m_MinimumRead = Other.m_MinimumRead;
        Other.m_Fd = -1;
    }
    return *this;
}

void SetNoDelay(int Fd) {
    int One = 1;
    setsockopt(Fd, IPPROTO_TCP, TCP_NODELAY, &One, sizeof One);
}

static bool WaitConnected(int Fd, int TimeoutMs, std::string& Error) {
    pollfd P{Fd, POLLOUT, 0};
    int N;
    do {
        N = poll(&P, 1, TimeoutMs);
    } while (N < 0 && errno == EINTR);
    if (N == 0) {
        Error = "timed out";
        return false;
    }
    int Err = 0;
    socklen_t Len = sizeof Err;
    if (N < 0 || getsockopt(Fd, SOL_SOCKET, SO_ERROR, &Err, &Len) < 0) {
        Err = errno;
    }
    if (Err != 0) {
        Error = std::strerror(Err);
        return false;
    }
    return true;
}

Socket Socket::ConnectTcp(const std::string& Host, uint16_t Port, int TimeoutMs, std::string& Error) {
    addrinfo Hints{};
    Hints.ai_family = AF_UNSPEC;
    Hints.ai_socktype = SOCK_STREAM;
    addrinfo* List = nullptr;
    const std::string PortText = std::to_string(Port);
    const int Rc = getaddrinfo(Host.c_str(), PortText.c_str(), &Hints, &List);
    if (Rc != 0) {
        Error = gai_strerror(Rc);
        return Socket();
    }
    Socket Result;
    for (addrinfo* A = List; A; A = A->ai_next) {
        const int Fd = socket(A->ai_family, A->ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, A->ai_protocol);
        if (Fd < 0) {
            Error = std::strerror(errno);
            continue;
        }
        if (connect(Fd, A->ai_addr, A->ai_addrlen) < 0) {
            const bool Pending = errno == EINPROGRESS;
            if (!Pending) {
                Error = std::strerror(errno);
            }
            if (!Pending || !WaitConnected(Fd, TimeoutMs, Error)) {
                close(Fd);
                continue;
            }
        }
        fcntl(Fd, F_SETFL, fcntl(Fd, F_GETFL) & ~O_NONBLOCK);
        SetNoDelay(Fd);
        Result = Socket(Fd);
        break;
    }
    freeaddrinfo(List);
    return Result;
}

bool Socket::WriteAll(const char* Data, size_t Size, int TimeoutMs) {
    m_WriteTimedOut = false;
    while (Size > 0) {
        const ssize_t N = send(m_Fd, Data, Size, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (N < 0) {
            if (errno == EINTR) {
                continue;
            }
            if (errno == EAGAIN || errno == EWOULDBLOCK) {
                pollfd P{m_Fd, POLLOUT, 0};
                int Ready;
                do {
                    Ready = poll(&P, 1, TimeoutMs);
                } while (Ready < 0 && errno == EINTR);
                if (Ready <= 0) {
                    m_WriteTimedOut = Ready == 0;
                    return false;
                }
                continue;
            }
            return false;
        }
        Data += N;
        Size -= static_cast<size_t>(N);
    }
    return true;
}

Socket::ReadResult Socket::ReadSome(char* Buffer, size_t Capacity, size_t& Got, int TimeoutMs) {
    Got = 0;
    if (m_Fd < 0) {
        return ReadResult::Closed;
    }
    int Flags = 0;
    // A wait that ends at a deadline shrinks from read to read; setting the receive time-out for each
    // would cost a system call per read. The one in force is kept while it ends the read no later than
    // a little after the wait and no sooner than half of it (the caller then reads again).
    const bool Keep = m_ReceiveTimeout > 0 && TimeoutMs > 0 && m_ReceiveTimeout <= TimeoutMs + ReadSlackMs &&
                      m_ReceiveTimeout >= TimeoutMs / 2;
    if (TimeoutMs == 0) {
        Flags = MSG_DONTWAIT;
    } else if (TimeoutMs != m_ReceiveTimeout && !Keep) {
        timeval T{};
        if (TimeoutMs > 0) {
            T.tv_sec = TimeoutMs / 1000;
            T.tv_usec = (TimeoutMs % 1000) * 1000;
        }
        setsockopt(m_Fd, SOL_SOCKET, SO_RCVTIMEO, &T, sizeof T);
        m_ReceiveTimeout = TimeoutMs;
    }
    for (;;) {
        const ssize_t R = recv(m_Fd, Buffer, Capacity, Flags);
        if (R > 0) {
            Got = static_cast<size_t>(R);
            return ReadResult::Data;
        }
        if (R == 0) {
            return ReadResult::Closed;
        }
        if (errno == EINTR) {
            continue;
        }
        return errno == EAGAIN || errno == EWOULDBLOCK ? ReadResult::Timeout : ReadResult::Closed;
    }
}

void Socket::SetMinimumRead(int Bytes) {
    if (m_Fd >= 0 && Bytes != m_MinimumRead) {
        setsockopt(m_Fd, SOL_SOCKET, SO_RCVLOWAT, &Bytes, sizeof Bytes);
        m_MinimumRead = Bytes;
    }
}

void Socket::Shutdown() {
    if (m_Fd >= 0) {
        shutdown(m_Fd, SHUT_RDWR);
    }
}

void Socket::Close() {
    if (m_Fd >= 0) {
        close(m_Fd);
        m_Fd = -1;
    }
}

} // namespace tarvo::rsp
