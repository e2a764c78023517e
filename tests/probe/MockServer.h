#pragma once

// A stand-in for a GDB server on a thread of its own: it reads packets from its end of a socket pair
// (or a loopback TCP connection), answers them through a handler, and misbehaves when told to.

#include "probe/rsp/PacketCodec.h"
#include "probe/rsp/Socket.h"

#include <atomic>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace probetest {

class MockServer {
public:
    /// Returns the reply to a packet, or nothing to stay quiet; "\x1e" separates several packets sent
    /// one after the other. The interrupt character comes as "\x03". Runs on the server thread with its
    /// lock held: it must not call back into the server.
    using Handler = std::function<std::optional<std::string>(const std::string& Packet)>;

    /// Over a socket pair; the client's end is taken with TakeClientSocket.
    MockServer();
    /// Listening on a free loopback port for one connection.
    explicit MockServer(bool Tcp);
    ~MockServer();

    tarvo::rsp::Socket TakeClientSocket();
    uint16_t Port() const { return m_Port; }
    void SetHandler(Handler H);

    /// Sends bytes as they are: a packet the handler didn't ask for, or garbage.
    void SendRaw(const std::string& Bytes);
    void SendPacket(const std::string& Body);
    /// Closes the connection as a dying server would.
    void Disconnect();
    /// Sends Bytes again and again for ForMs milliseconds, as fast as the client takes them, on a
    /// thread of its own: a serial port given for a server, or a server that floods the client.
    void Babble(const std::string& Bytes, int ForMs);

    std::vector<std::string> Received();
    /// Waits up to a second until Count packets have come in since the last clear; false if they didn't.
    bool WaitReceived(size_t Count);
    void ClearReceived();
    int Interrupts() const { return m_Interrupts.load(); }

    std::atomic<int> CorruptReplies{0}; // this many replies go out with a wrong checksum
    std::atomic<int> NakRequests{0};    // this many packets are answered with '-' and dropped
    std::atomic<bool> Silent{false};    // nothing is answered at all, not even with '+'
    std::atomic<bool> SendAcks{true};   // false after a no-ack mode was agreed
    std::atomic<int> ClientNaks{0};     // '-' received from the client

private:
    void Run();
    void Reply(const std::string& Body);
    void SendFrame(std::string Frame);

    int m_ListenFd = -1;
    int m_Fd = -1;
    uint16_t m_Port = 0;
    tarvo::rsp::Socket m_ClientEnd;
    std::thread m_Thread;
    std::thread m_Babbler;
    std::atomic<bool> m_Stop{false};
    std::mutex m_Mutex; // handler, received list, writes
    Handler m_Handler;
    std::vector<std::string> m_Received;
    std::string m_LastReply;
    std::atomic<int> m_Interrupts{0};
};

} // namespace probetest
