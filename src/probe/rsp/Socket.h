#pragma once

// A connected stream socket, TCP or one end of a socket pair, with the waits that the protocol
// client needs. Owns its descriptor.

#include <cstddef>
#include <cstdint>
#include <string>

namespace tarvo::rsp {

class Socket {
public:
    Socket() = default;
    explicit Socket(int Fd) : m_Fd(Fd) {}
    ~Socket() { Close(); }
    Socket(Socket&& Other) noexcept : m_Fd(Other.m_Fd), m_ReceiveTimeout(Other.m_ReceiveTimeout) {
        Other.m_Fd = -1;
    }
    Socket& operator=(Socket&& Other) noexcept;
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    /// Connects with TCP_NODELAY set: without it every round trip waits for the delayed
    /// acknowledgement of the peer (some 40 ms). On failure Error says why.
    static Socket ConnectTcp(const std::string& Host, uint16_t Port, int TimeoutMs, std::string& Error);

    bool IsOpen() const { return m_Fd >= 0; }
    int Fd() const { return m_Fd; }

    /// Writes all bytes; false when the peer has gone, or when it took none for TimeoutMs (negative:
    /// no limit): a peer that floods us and never reads would otherwise hold the writer for good.
    bool WriteAll(const char* Data, size_t Size, int TimeoutMs = -1);
    /// Whether the last WriteAll failed for its time-out rather than a closed connection.
    bool WriteTimedOut() const { return m_WriteTimedOut; }

    enum class ReadResult { Data, Timeout, Closed };
    /// How much later than asked a read may give up.
    static constexpr int ReadSlackMs = 20;
    /// Waits up to TimeoutMs (0 only looks, negative waits without limit) and reads what has arrived.
    /// A blocking read with a receive time-out: one system call per read on the fast path. A Timeout
    /// may come up to ReadSlackMs late, or early (after half the wait): callers with a deadline loop.
    ReadResult ReadSome(char* Buffer, size_t Capacity, size_t& Got, int TimeoutMs);

    /// The fewest bytes a blocking read waits for (SO_RCVLOWAT); set only when it changes.
    void SetMinimumRead(int Bytes);

    /// Ends both directions, which wakes a reader in another thread; the descriptor stays until Close.
    void Shutdown();
    void Close();

private:
    int m_Fd = -1;
    int m_ReceiveTimeout = -2; // the SO_RCVTIMEO now set, -2 unknown
    int m_MinimumRead = 1;
    bool m_WriteTimedOut = false;
};

/// Sets TCP_NODELAY on a TCP socket (a no-op on other sockets).
void SetNoDelay(int Fd);

} // namespace tarvo::rsp
