#pragma once

// Framing of the GDB remote serial protocol: "$body#cs" packets with a modulo-256 checksum, the single
// characters '+' and '-' that acknowledge them, 0x03 as the interrupt, '}' escapes in binary data and the
// "X*N" run-length encoding that servers may use in replies. No sockets here: bytes in, events out.

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

namespace tarvo::rsp {

uint8_t Checksum(std::string_view Body);

/// Appends "$Body#cs". Body goes out as given: callers escape binary data with AppendEscaped.
void AppendFrame(std::string& Out, std::string_view Body);

/// Appends bytes with '$', '#', '}' and '*' escaped as '}' followed by the byte XOR 0x20.
void AppendEscaped(std::string& Out, const uint8_t* Data, size_t Size);

/// Undoes AppendEscaped. False for an escape character at the very end.
bool Unescape(std::string_view In, std::string& Out);

/// Expands run-length encoding: a character followed by '*' and a count character N stands for the
/// character and N - 29 further copies. False for a '*' with nothing before it or a count outside the
/// printable range.
bool ExpandRunLength(std::string_view In, std::string& Out);

/// Turns a byte stream from a GDB server (or client) into events. Not thread-safe: one reader feeds it.
class PacketDecoder {
public:
    enum class EventKind {
        Ack,       // '+'
        Nak,       // '-': the other side wants the last packet again
        Packet,    // a well-formed packet; Body holds it with run-length encoding expanded
        BadPacket, // checksum mismatch, bad run-length encoding or an oversized body; Error says which
        Interrupt, // 0x03 outside a packet
    };
    struct Event {
        EventKind Kind = EventKind::Ack;
        std::string Body;
        std::string Error;
    };

    /// A body longer than MaxBody bytes is dropped as a BadPacket, so that a server sending garbage
    /// without a '#' can't make the buffer grow without end.
    explicit PacketDecoder(size_t MaxBody = 1u << 20) : m_MaxBody(MaxBody) {}

    void Feed(const char* Data, size_t Size);
    bool Next(Event& Out);
    bool HasEvent() const { return !m_Events.empty(); }
    /// True between the '$' of a packet and its checksum.
    bool InPacket() const { return m_State != State::Idle; }
    void Reset();

private:
    enum class State { Idle, Body, Check1, Check2, Skip };
    void Finish();
    void Fail(std::string Error);

    size_t m_MaxBody;
    State m_State = State::Idle;
    std::string m_Raw;
    int m_Check = 0;
    int m_SkipDigits = 0;
    std::deque<Event> m_Events;
};

} // namespace tarvo::rsp
