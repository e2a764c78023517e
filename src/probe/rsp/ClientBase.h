#pragma once

// The request layer of the GDB remote protocol: one request in flight, acknowledgements and
// retransmission, reply time-outs, and the running state in which the only traffic is the interrupt
// going out and the stop reply coming back.

#include "probe/rsp/PacketCodec.h"
#include "probe/rsp/Socket.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>

namespace tarvo::rsp {

enum class Status {
    Ok,
    Timeout,        // no reply in time; the connection counts as lost from then on
    ConnectionLost, // the server closed the connection or it broke
    NotHalted,      // a request while the target runs
    Protocol,       // the server's bytes could not be understood even after retransmission
};

const char* StatusText(Status S);

/// Carries one request at a time to a GDB server. Any thread may call; calls serialise on an internal
/// mutex, so a request made while another waits for its reply waits too. Once a time-out or a broken
/// connection has been seen every later call fails at once with ConnectionLost.
class ClientBase {
public:
    explicit ClientBase(Socket S);
    virtual ~ClientBase() = default;
    ClientBase(const ClientBase&) = delete;
    ClientBase& operator=(const ClientBase&) = delete;

    /// Default time-out of a reply in milliseconds.
    void SetTimeout(int Ms) { m_TimeoutMs = Ms; }
    int Timeout() const { return m_TimeoutMs; }
    /// After a successful QStartNoAckMode neither side sends '+' any more.
    void SetNoAckMode(bool On) { m_NoAck = On; }
    /// Sends the '+' for a reply together with the next packet instead of at once: one write and one
    /// wake-up of the server fewer per request. Only for servers that don't wait for the '+' before
    /// reading on (QEMU's stub); others would stall until our next packet.
    void SetLazyAcks(bool On) { m_LazyAcks = On; }
    /// Receives the text of console output packets ("O" + hex) sent during qRcmd or while running.
    void SetConsoleHandler(std::function<void(std::string_view)> Handler) { m_Console = std::move(Handler); }

    /// Sends Body and waits for the reply packet. TimeoutMs below 0 takes the default.
    Status Request(std::string_view Body, std::string& Reply, int TimeoutMs = -1);
    /// As Request, but console output packets before the reply are collected into Console: the form
    /// of qRcmd.
    Status RequestWithConsole(std::string_view Body, std::string& Reply, std::string& Console,
                              int TimeoutMs = -1);
    /// Sends a packet without waiting for a reply (k, or a detach whose server may close at once).
    Status Send(std::string_view Body);

    /// Sends a packet that sets the target going (c, s, vCont): the reply is the stop reply, fetched
    /// with WaitStop.
    Status Resume(std::string_view Body);
    /// While running: waits up to TimeoutMs for the stop reply (0 only looks). Ok with Stop filled when
    /// the target stopped (empty if it wasn't running), Timeout when it still runs; this time-out
    /// doesn't end the connection.
    Status WaitStop(std::string& Stop, int TimeoutMs);
    /// While running: sends the interrupt character and waits for the stop reply. Ok with an empty Stop
    /// if the target wasn't running.
    Status Interrupt(std::string& Stop, int TimeoutMs = -1);
    /// Any thread, no waiting: sends the interrupt character if the target runs. For a thread that
    /// wants to stop a target that another thread waits on in WaitStop.
    bool SendInterrupt();

    bool IsRunning() const { return m_Running.load(); }
    bool IsAlive() const { return !m_Dead.load(); }
    /// Between requests, without sending anything: whether the server has closed the connection, which
    /// an idle client otherwise learns only at its next request. False once the connection is lost.
    bool CheckAlive();
    /// Why the connection was lost, empty while it is alive.
    std::string DeathReason() const;
    /// Marks the connection lost with a reason and wakes a waiting reader (another thread may call).
    void Kill(const std::string& Reason);

private:
    Status Exchange(std::string_view Body, std::string& Reply, std::string* Console, int TimeoutMs);
    Status ReadPacket(std::string& Body, int64_t Deadline, bool AllowRetransmit);
    bool WriteRaw(const char* Bytes, size_t Size);
    /// The end of a connection whose write failed, with the reason.
    Status WriteLost();
    void Frame(std::string_view Body);
    Status Lose(Status S, const std::string& Reason);
    bool IsConsolePacket(std::string_view Body) const;
    /// "T05..." or "S05": the report of a stop.
    static bool IsStopReport(std::string_view Body);
    void EmitConsole(std::string_view HexText, std::string* Collect);

    Socket m_Socket;
    PacketDecoder m_Decoder;
    std::mutex m_Mutex;      // one request in flight
    std::mutex m_WriteMutex; // whole packets on the wire
    mutable std::mutex m_ReasonMutex;
    std::atomic<bool> m_Running{false};
    std::atomic<bool> m_Dead{false};
    std::string m_DeathReason;
    std::string m_Out;      // the packet last sent, after a pending '+'
    size_t m_LastStart = 0; // where the packet starts in m_Out, for retransmission on '-'
    size_t m_LastSize = 0;
    int m_TimeoutMs = 3000;
    bool m_NoAck = false;
    bool m_LazyAcks = false;
    bool m_AckPending = false;
    std::function<void(std::string_view)> m_Console;
};

} // namespace tarvo::rsp
