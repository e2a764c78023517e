#include "probe/rsp/ClientBase.h"

#include "probe/rsp/Hex.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>

namespace tarvo::rsp {

namespace {
constexpr int MaxRetransmits = 3;

int64_t NowMs() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

bool IsStopReply(std::string_view Body) {
    return !Body.empty() && (Body[0] == 'T' || Body[0] == 'S' || Body[0] == 'W' || Body[0] == 'X');
}
} // namespace

const char* StatusText(Status S) {
    switch (S) {
    case Status::Ok:
        return "ok";
    case Status::Timeout:
        return "no answer from the GDB server in time";
    case Status::ConnectionLost:
        return "connection to the GDB server lost";
    case Status::NotHalted:
        return "target is running";
    case Status::Protocol:
        return "malformed answer from the GDB server";
    }
    return "unknown";
}

ClientBase::ClientBase(Socket S) : m_Socket(std::move(S)) {
    if (!m_Socket.IsOpen()) {
        m_Dead = true;
        m_DeathReason = "not connected";
    }
}

std::string ClientBase::DeathReason() const {
    std::lock_guard<std::mutex> Lock(m_ReasonMutex);
    return m_DeathReason;
}

void ClientBase::Kill(const std::string& Reason) {
    {
        std::lock_guard<std::mutex> Lock(m_ReasonMutex);
        if (!m_Dead.load()) {
            m_DeathReason = Reason;
        }
    }
    m_Dead = true;
    m_Socket.Shutdown();
}

bool ClientBase::CheckAlive() {
    if (m_Dead.load()) {
        return false;
    }
    // A request in flight or a running target has a reader that notices a closed connection itself.
    std::unique_lock<std::mutex> Lock(m_Mutex, std::try_to_lock);
    if (!Lock.owns_lock() || m_Running.load() || !m_Socket.IsOpen()) {
        return true;
    }
    pollfd P = {m_Socket.Fd(), POLLIN, 0};
    if (poll(&P, 1, 0) <= 0) {
        return true;
    }
    char Byte = 0;
    const ssize_t N = recv(m_Socket.Fd(), &Byte, 1, MSG_PEEK | MSG_DONTWAIT);
    if (N == 0 || (N < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)) {
        Lose(Status::ConnectionLost, "connection closed by the GDB server");
        return false;
    }
    return true;
}

Status ClientBase::Lose(Status S, const std::string& Reason) {
    Kill(Reason);
    return S;
}

bool ClientBase::WriteRaw(const char* Bytes, size_t Size) {
    std::lock_guard<std::mutex> Lock(m_WriteMutex);
    return m_Socket.WriteAll(Bytes, Size, m_TimeoutMs);
}

Status ClientBase::WriteLost() {
    // A server that floods us and reads nothing fills its receive buffer: our writes stop.
    return Lose(Status::ConnectionLost,
                m_Socket.WriteTimedOut()
                    ? "the GDB server took no data within " + std::to_string(m_TimeoutMs) + " ms"
                    : std::string("connection closed by the GDB server"));
}

bool ClientBase::IsConsolePacket(std::string_view Body) const {
    if (Body.size() < 3 || Body[0] != 'O' || Body.size() % 2 == 0) {
        return false;
    }
    for (size_t i = 1; i < Body.size(); ++i) {
        if (HexDigitValue(Body[i]) < 0) {
            return false;
        }
    }
    return true;
}

void ClientBase::EmitConsole(std::string_view HexText, std::string* Collect) {
    std::string Text(HexText.size() / 2, '\0');
    DecodeHexBytes(HexText, reinterpret_cast<uint8_t*>(Text.data()), Text.size());
    if (Collect) {
        Collect->append(Text);
    } else if (m_Console) {
        m_Console(Text);
    }
}

// Reads the next packet, answering it with '+' and asking for a resend of a damaged one. Acks from the
// server are consumed here; a '-' makes us send our last packet again. Deadline is a time of NowMs(), -1
// for none: bytes that keep arriving without forming a packet (a serial port, line noise) don't extend
// it. A packet that has arrived is taken even when the deadline has passed; after it, one more look at
// what has come in, then Timeout.
Status ClientBase::ReadPacket(std::string& Body, int64_t Deadline, bool AllowRetransmit) {
    int Retries = 0;
    bool LookedLate = false;
    char Buffer[16384];
    for (;;) {
        PacketDecoder::Event E;
        while (m_Decoder.Next(E)) {
            switch (E.Kind) {
            case PacketDecoder::EventKind::Packet:
                if (!m_NoAck) {
                    if (m_LazyAcks) {
                        m_AckPending = true;
                    } else if (!WriteRaw("+", 1)) {
                        return WriteLost();
                    }
                }
                Body = std::move(E.Body);
                return Status::Ok;
            case PacketDecoder::EventKind::BadPacket:
                if (m_NoAck || ++Retries > MaxRetransmits) {
                    return Lose(Status::Protocol, "malformed packet from the GDB server: " + E.Error);
                }
                if (!WriteRaw("-", 1)) {
                    return WriteLost();
                }
                break;
            case PacketDecoder::EventKind::Nak:
                if (AllowRetransmit && m_LastSize > 0) {
                    if (++Retries > MaxRetransmits) {
                        return Lose(Status::Protocol, "the GDB server refused our packet repeatedly");
                    }
                    if (!WriteRaw(m_Out.data() + m_LastStart, m_LastSize)) {
                        return WriteLost();
                    }
                }
                break;
            case PacketDecoder::EventKind::Ack:
            case PacketDecoder::EventKind::Interrupt:
                break;
            }
        }
        if (m_Dead.load()) {
            return Status::ConnectionLost;
        }
        int Wait = -1;
        if (Deadline >= 0) {
            const int64_t Left = Deadline - NowMs();
            if (Left <= 0) {
                if (LookedLate) {
                    return Status::Timeout;
                }
                LookedLate = true;
            }
            Wait = static_cast<int>(std::max<int64_t>(0, Left));
        }
        // Between packets, wake only for as much as the shortest reply ("$#00"): the server's '+'
        // alone is no reason to wake and read again. Inside a packet any byte may be the last. A
        // server that may answer with a lone '-' must wake us at once, unless it never sends one: in
        // no-ack mode, or a local QEMU (which only rejects damaged packets; should it ever, the '-' is
        // taken when the read's time-out passes).
        const bool LoneByteMatters = !m_NoAck && !m_LazyAcks;
        m_Socket.SetMinimumRead(m_Decoder.InPacket() || LoneByteMatters ? 1 : 4);
        size_t Got = 0;
        switch (m_Socket.ReadSome(Buffer, sizeof Buffer, Got, Wait)) {
        case Socket::ReadResult::Data:
            m_Decoder.Feed(Buffer, Got);
            break;
        case Socket::ReadResult::Timeout:
            if (Wait == 0) {
                return Status::Timeout;
            }
            break;
        case Socket::ReadResult::Closed:
            return Lose(Status::ConnectionLost,
                        m_Dead.load() ? DeathReason() : "connection closed by the GDB server");
        }
    }
}

// Frames Body into m_Out behind a pending acknowledgement, so that both go out in one write.
void ClientBase::Frame(std::string_view Body) {
    m_Out.clear();
    if (m_AckPending) {
        m_Out.push_back('+');
        m_AckPending = false;
    }
    m_LastStart = m_Out.size();
    AppendFrame(m_Out, Body);
    m_LastSize = m_Out.size() - m_LastStart;
}

Status ClientBase::Exchange(std::string_view Body, std::string& Reply, std::string* Console, int TimeoutMs) {
    if (m_Dead.load()) {
        return Status::ConnectionLost;
    }
    if (m_Running.load()) {
        return Status::NotHalted;
    }
    Frame(Body);
    if (!WriteRaw(m_Out.data(), m_Out.size())) {
        return WriteLost();
    }
    // One deadline for the whole request: console output and stop reports before the answer don't
    // extend it, so a server that floods us with them can't hold a caller.
    const int Limit = TimeoutMs < 0 ? m_TimeoutMs : TimeoutMs;
    const int64_t Deadline = NowMs() + Limit;
    const auto TimedOut = [&]() {
        return Lose(Status::Timeout, "no answer from the GDB server within " + std::to_string(Limit) + " ms");
    };
    for (;;) {
        const Status S = ReadPacket(Reply, Deadline, true);
        if (S == Status::Timeout) {
            return TimedOut();
        }
        if (S != Status::Ok) {
            return S;
        }
        const bool IsConsole = Console && IsConsolePacket(Reply);
        if (IsConsole) {
            EmitConsole(std::string_view(Reply).substr(1), Console);
        }
        // A server whose target ran when the connection came (QEMU) stops it and reports the stop on
        // its own, ahead of the answer. Only "?" is answered with a stop report (a resume waits in
        // WaitStop): for any other request the answer comes next.
        const bool StrayStop = Body != "?" && IsStopReport(Reply);
        if (!IsConsole && !StrayStop) {
            return Status::Ok;
        }
        if (NowMs() >= Deadline) {
            return TimedOut();
        }
    }
}

bool ClientBase::IsStopReport(std::string_view Body) {
    return Body.size() >= 3 && (Body[0] == 'T' || Body[0] == 'S') &&
           std::isxdigit(static_cast<unsigned char>(Body[1])) &&
           std::isxdigit(static_cast<unsigned char>(Body[2]));
}

Status ClientBase::Request(std::string_view Body, std::string& Reply, int TimeoutMs) {
    std::lock_guard<std::mutex> Lock(m_Mutex);
    return Exchange(Body, Reply, nullptr, TimeoutMs);
}

Status ClientBase::RequestWithConsole(std::string_view Body, std::string& Reply, std::string& Console,
                                      int TimeoutMs) {
    std::lock_guard<std::mutex> Lock(m_Mutex);
    Console.clear();
    return Exchange(Body, Reply, &Console, TimeoutMs);
}

Status ClientBase::Send(std::string_view Body) {
    std::lock_guard<std::mutex> Lock(m_Mutex);
    if (m_Dead.load()) {
        return Status::ConnectionLost;
    }
    Frame(Body);
    m_LastSize = 0;
    return WriteRaw(m_Out.data(), m_Out.size()) ? Status::Ok : WriteLost();
}

Status ClientBase::Resume(std::string_view Body) {
    std::lock_guard<std::mutex> Lock(m_Mutex);
    if (m_Dead.load()) {
        return Status::ConnectionLost;
    }
    if (m_Running.load()) {
        return Status::NotHalted;
    }
    Frame(Body);
    std::lock_guard<std::mutex> WriteLock(m_WriteMutex);
    if (!m_Socket.WriteAll(m_Out.data(), m_Out.size(), m_TimeoutMs)) {
        return WriteLost();
    }
    m_Running = true;
    return Status::Ok;
}

Status ClientBase::WaitStop(std::string& Stop, int TimeoutMs) {
    std::lock_guard<std::mutex> Lock(m_Mutex);
    if (m_Dead.load()) {
        return Status::ConnectionLost;
    }
    if (!m_Running.load()) {
        // Another thread took the stop reply already.
        Stop.clear();
        return Status::Ok;
    }
    const int64_t Deadline = NowMs() + std::max(0, TimeoutMs);
    for (;;) {
        std::string Body;
        const Status S = ReadPacket(Body, Deadline, true);
        if (S != Status::Ok) {
            return S; // a time-out here only means the target still runs
        }
        if (IsConsolePacket(Body)) {
            EmitConsole(std::string_view(Body).substr(1), nullptr);
        } else if (IsStopReply(Body)) {
            std::lock_guard<std::mutex> WriteLock(m_WriteMutex);
            m_Running = false;
            Stop = std::move(Body);
            return Status::Ok;
        }
        // Anything else while running (an "OK" to the resume of some servers, a file-I/O request) is
        // not a stop: keep waiting, but no longer than asked.
        if (NowMs() >= Deadline) {
            return Status::Timeout;
        }
    }
}

bool ClientBase::SendInterrupt() {
    std::lock_guard<std::mutex> WriteLock(m_WriteMutex);
    if (!m_Running.load() || m_Dead.load()) {
        return false;
    }
    return m_Socket.WriteAll("\x03", 1, m_TimeoutMs);
}

Status ClientBase::Interrupt(std::string& Stop, int TimeoutMs) {
    Stop.clear();
    if (!SendInterrupt()) {
        return m_Dead.load() ? Status::ConnectionLost : Status::Ok;
    }
    const int Limit = TimeoutMs < 0 ? m_TimeoutMs : TimeoutMs;
    const Status S = WaitStop(Stop, Limit);
    if (S == Status::Timeout) {
        return Lose(Status::Timeout, "the target did not stop within " + std::to_string(Limit) + " ms");
    }
    return S;
}

} // namespace tarvo::rsp
