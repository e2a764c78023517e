#include "MockServer.h"

#include <chrono>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace probetest {

MockServer::MockServer() {
    int Pair[2];
    socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, Pair);
    m_Fd = Pair[0];
    m_ClientEnd = tarvo::rsp::Socket(Pair[1]);
    m_Thread = std::thread([this] { Run(); });
}

MockServer::MockServer(bool) {
    m_ListenFd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in A{};
    A.sin_family = AF_INET;
    A.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t Len = sizeof A;
    bind(m_ListenFd, reinterpret_cast<sockaddr*>(&A), sizeof A);
    listen(m_ListenFd, 1);
    getsockname(m_ListenFd, reinterpret_cast<sockaddr*>(&A), &Len);
    m_Port = ntohs(A.sin_port);
    m_Thread = std::thread([this] { Run(); });
}

MockServer::~MockServer() {
    m_Stop = true;
    if (m_Fd >= 0) {
        shutdown(m_Fd, SHUT_RDWR);
    }
    if (m_ListenFd >= 0) {
        shutdown(m_ListenFd, SHUT_RDWR);
    }
    m_Thread.join();
    if (m_Babbler.joinable()) {
        m_Babbler.join();
    }
    if (m_Fd >= 0) {
        close(m_Fd);
    }
    if (m_ListenFd >= 0) {
        close(m_ListenFd);
    }
}

tarvo::rsp::Socket MockServer::TakeClientSocket() {
    return std::move(m_ClientEnd);
}

void MockServer::SetHandler(Handler H) {
    std::lock_guard<std::mutex> Lock(m_Mutex);
    m_Handler = std::move(H);
}

void MockServer::SendRaw(const std::string& Bytes) {
    std::lock_guard<std::mutex> Lock(m_Mutex);
    if (m_Fd >= 0) {
        (void)!send(m_Fd, Bytes.data(), Bytes.size(), MSG_NOSIGNAL);
    }
}

void MockServer::SendPacket(const std::string& Body) {
    std::string Out;
    tarvo::rsp::AppendFrame(Out, Body);
    SendRaw(Out);
}

void MockServer::Disconnect() {
    std::lock_guard<std::mutex> Lock(m_Mutex);
    if (m_Fd >= 0) {
        shutdown(m_Fd, SHUT_RDWR);
    }
}

void MockServer::Babble(const std::string& Bytes, int ForMs) {
    m_Babbler = std::thread([this, Bytes, ForMs] {
        std::string Chunk;
        while (Chunk.size() < 4096) {
            Chunk += Bytes;
        }
        const auto End = std::chrono::steady_clock::now() + std::chrono::milliseconds(ForMs);
        while (!m_Stop.load() && std::chrono::steady_clock::now() < End) {
            int Fd = -1;
            {
                std::lock_guard<std::mutex> Lock(m_Mutex);
                Fd = m_Fd;
            }
            // The socket's buffer is kept full, so that a reader never finds a pause.
            if (Fd < 0 || send(Fd, Chunk.data(), Chunk.size(), MSG_NOSIGNAL | MSG_DONTWAIT) <= 0) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        }
    });
}

std::vector<std::string> MockServer::Received() {
    std::lock_guard<std::mutex> Lock(m_Mutex);
    return m_Received;
}

bool MockServer::WaitReceived(size_t Count) {
    for (int i = 0; i < 1000; ++i) {
        if (Received().size() >= Count) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}

void MockServer::ClearReceived() {
    std::lock_guard<std::mutex> Lock(m_Mutex);
    m_Received.clear();
}

void MockServer::Reply(const std::string& Body) {
    m_LastReply.clear();
    tarvo::rsp::AppendFrame(m_LastReply, Body);
    SendFrame(m_LastReply);
}

// Sends a framed packet, with its checksum spoilt while CorruptReplies says so.
void MockServer::SendFrame(std::string Frame) {
    if (CorruptReplies.load() > 0) {
        --CorruptReplies;
        Frame.back() = Frame.back() == '0' ? '1' : '0';
    }
    (void)!send(m_Fd, Frame.data(), Frame.size(), MSG_NOSIGNAL);
}

void MockServer::Run() {
    if (m_ListenFd >= 0) {
        pollfd P{m_ListenFd, POLLIN, 0};
        while (!m_Stop.load() && poll(&P, 1, 50) <= 0) {
        }
        if (m_Stop.load()) {
            return;
        }
        const int Fd = accept4(m_ListenFd, nullptr, nullptr, SOCK_CLOEXEC);
        tarvo::rsp::SetNoDelay(Fd);
        std::lock_guard<std::mutex> Lock(m_Mutex);
        m_Fd = Fd;
    }
    tarvo::rsp::PacketDecoder Decoder;
    char Buffer[8192];
    while (!m_Stop.load()) {
        const ssize_t N = recv(m_Fd, Buffer, sizeof Buffer, 0);
        if (N <= 0) {
            return;
        }
        if (Silent.load()) {
            continue;
        }
        Decoder.Feed(Buffer, static_cast<size_t>(N));
        tarvo::rsp::PacketDecoder::Event E;
        while (Decoder.Next(E)) {
            std::lock_guard<std::mutex> Lock(m_Mutex);
            using Kind = tarvo::rsp::PacketDecoder::EventKind;
            if (E.Kind == Kind::Nak) {
                ++ClientNaks;
                if (!m_LastReply.empty()) {
                    SendFrame(m_LastReply);
                }
                continue;
            }
            if (E.Kind == Kind::Ack) {
                continue;
            }
            if (E.Kind == Kind::BadPacket) {
                (void)!send(m_Fd, "-", 1, MSG_NOSIGNAL);
                continue;
            }
            std::string Packet = E.Kind == Kind::Interrupt ? std::string("\x03") : E.Body;
            if (E.Kind == Kind::Packet) {
                if (NakRequests.load() > 0) {
                    --NakRequests;
                    (void)!send(m_Fd, "-", 1, MSG_NOSIGNAL);
                    continue;
                }
                if (SendAcks.load()) {
                    (void)!send(m_Fd, "+", 1, MSG_NOSIGNAL);
                }
            } else {
                ++m_Interrupts;
            }
            m_Received.push_back(Packet);
            const std::optional<std::string> Answer =
                m_Handler ? m_Handler(Packet) : std::optional<std::string>("");
            if (Answer) {
                // '\x1e' separates several packets of one answer (console output before a reply).
                size_t Start = 0;
                for (size_t Sep; (Sep = Answer->find('\x1e', Start)) != std::string::npos; Start = Sep + 1) {
                    Reply(Answer->substr(Start, Sep - Start));
                }
                Reply(Answer->substr(Start));
            }
        }
    }
}

} // namespace probetest
