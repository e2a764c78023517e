#include "probe/rsp/PacketCodec.h"

#include "probe/rsp/Hex.h"

#include <cstdio>
#include <cstring>

namespace tarvo::rsp {

uint8_t Checksum(std::string_view Body) {
    unsigned Sum = 0;
    for (unsigned char C : Body) {
        Sum += C;
    }
    return static_cast<uint8_t>(Sum);
}

void AppendFrame(std::string& Out, std::string_view Body) {
    static const char Digits[] = "0123456789abcdef";
    const uint8_t Sum = Checksum(Body);
    Out.reserve(Out.size() + Body.size() + 4);
    Out.push_back('$');
    Out.append(Body);
    Out.push_back('#');
    Out.push_back(Digits[Sum >> 4]);
    Out.push_back(Digits[Sum & 15]);
}

void AppendEscaped(std::string& Out, const uint8_t* Data, size_t Size) {
    for (size_t i = 0; i < Size; ++i) {
        const uint8_t B = Data[i];
        if (B == '$' || B == '#' || B == '}' || B == '*') {
            Out.push_back('}');
            Out.push_back(static_cast<char>(B ^ 0x20));
        } else {
            Out.push_back(static_cast<char>(B));
        }
    }
}

bool Unescape(std::string_view In, std::string& Out) {
    Out.clear();
    Out.reserve(In.size());
    for (size_t i = 0; i < In.size(); ++i) {
        if (In[i] == '}') {
            if (++i == In.size()) {
                return false;
            }
            Out.push_back(static_cast<char>(In[i] ^ 0x20));
        } else {
            Out.push_back(In[i]);
        }
    }
    return true;
}

bool ExpandRunLength(std::string_view In, std::string& Out) {
    Out.clear();
    if (In.find('*') == std::string_view::npos) {
        Out.assign(In);
        return true;
    }
    Out.reserve(In.size() * 2);
    for (size_t i = 0; i < In.size(); ++i) {
        if (In[i] != '*') {
            Out.push_back(In[i]);
            continue;
        }
        // The count character must be printable; '#' and '$' can't occur inside a body anyway.
        if (Out.empty() || i + 1 == In.size()) {
            return false;
        }
        const int N = static_cast<unsigned char>(In[++i]);
        if (N < ' ' || N > '~') {
            return false;
        }
        Out.append(static_cast<size_t>(N - 29), Out.back());
    }
    return true;
}

void PacketDecoder::Reset() {
    m_State = State::Idle;
    m_Raw.clear();
    m_Events.clear();
}

void PacketDecoder::Fail(std::string Error) {
    Event E;
    E.Kind = EventKind::BadPacket;
    E.Error = std::move(Error);
    m_Events.push_back(std::move(E));
    m_Raw.clear();
}

void PacketDecoder::Finish() {
    const int Sum = Checksum(m_Raw);
    if (Sum != m_Check) {
        char Text[64];
        std::snprintf(Text, sizeof Text, "checksum error: got %02x, computed %02x", m_Check, Sum);
        Fail(Text);
        return;
    }
    Event E;
    E.Kind = EventKind::Packet;
    if (!ExpandRunLength(m_Raw, E.Body)) {
        Fail("malformed run-length encoding");
        return;
    }
    m_Events.push_back(std::move(E));
    m_Raw.clear();
}

void PacketDecoder::Feed(const char* Data, size_t Size) {
    const char* P = Data;
    const char* End = Data + Size;
    while (P < End) {
        switch (m_State) {
        case State::Idle: {
            const char C = *P++;
            if (C == '$') {
                m_State = State::Body;
                m_Raw.clear();
            } else if (C == '+') {
                m_Events.push_back({EventKind::Ack, {}, {}});
            } else if (C == '-') {
                m_Events.push_back({EventKind::Nak, {}, {}});
            } else if (C == '\x03') {
                m_Events.push_back({EventKind::Interrupt, {}, {}});
            }
            // Anything else between packets is line noise and is ignored, as GDB does.
            break;
        }
        case State::Body: {
            const void* Hash = std::memchr(P, '#', static_cast<size_t>(End - P));
            const void* Dollar = std::memchr(P, '$', static_cast<size_t>(End - P));
            const char* Stop = static_cast<const char*>(Hash ? Hash : End);
            if (Dollar && static_cast<const char*>(Dollar) < Stop) {
                // A new packet starts before this one ended: the rest of this one was lost.
                Fail("packet start inside a packet");
                P = static_cast<const char*>(Dollar) + 1;
                m_State = State::Body;
                break;
            }
            if (m_Raw.size() + static_cast<size_t>(Stop - P) > m_MaxBody) {
                Fail("packet larger than " + std::to_string(m_MaxBody) + " bytes");
                m_State = State::Skip;
                m_SkipDigits = Hash ? 2 : 0;
                P = Hash ? static_cast<const char*>(Hash) + 1 : End;
                break;
            }
            m_Raw.append(P, static_cast<size_t>(Stop - P));
            P = Stop;
            if (Hash) {
                ++P;
                m_State = State::Check1;
            }
            break;
        }
        case State::Check1:
        case State::Check2: {
            const int D = HexDigitValue(*P++);
            if (D < 0) {
                Fail("malformed checksum");
                m_State = State::Idle;
                break;
            }
            if (m_State == State::Check1) {
                m_Check = D << 4;
                m_State = State::Check2;
            } else {
                m_Check |= D;
                m_State = State::Idle;
                Finish();
            }
            break;
        }
        case State::Skip:
            // Inside an oversized packet: drop bytes up to its '#' and the two checksum digits.
            if (m_SkipDigits > 0) {
                --m_SkipDigits;
                ++P;
                if (m_SkipDigits == 0) {
                    m_State = State::Idle;
                }
            } else {
                const void* Hash = std::memchr(P, '#', static_cast<size_t>(End - P));
                if (!Hash) {
                    P = End;
                } else {
                    P = static_cast<const char*>(Hash) + 1;
                    m_SkipDigits = 2;
                }
            }
            break;
        }
    }
}

bool PacketDecoder::Next(Event& Out) {
    if (m_Events.empty()) {
        return false;
    }
    Out = std::move(m_Events.front());
    m_Events.pop_front();
    return true;
}

} // namespace tarvo::rsp
