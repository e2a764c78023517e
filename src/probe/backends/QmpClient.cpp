#include "probe/backends/QmpClient.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace tarvo {

namespace {

int64_t NowMs() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

// Reads the JSON string that starts at Text[At] (the opening quote).
bool ParseJsonString(const std::string& Text, size_t At, std::string& Out) {
    Out.clear();
    if (At >= Text.size() || Text[At] != '"') {
        return false;
    }
    for (size_t i = At + 1; i < Text.size(); ++i) {
        const char C = Text[i];
        if (C == '"') {
            return true;
        }
        if (C != '\\') {
            Out.push_back(C);
            continue;
        }
        if (++i >= Text.size()) {
            return false;
        }
        switch (Text[i]) {
        case 'n':
            Out.push_back('\n');
            break;
        case 'r':
            Out.push_back('\r');
            break;
        case 't':
            Out.push_back('\t');
            break;
        case 'u':
            if (i + 4 >= Text.size()) {
                return false;
            }
            Out.push_back(static_cast<char>(std::strtoul(Text.substr(i + 1, 4).c_str(), nullptr, 16)));
            i += 4;
            break;
        default:
            Out.push_back(Text[i]);
        }
    }
    return false;
}

std::string JsonQuote(const std::string& Text) {
    std::string Out = "\"";
    for (char C : Text) {
        if (C == '"' || C == '\\') {
            Out.push_back('\\');
        }
        Out.push_back(C);
    }
    return Out + "\"";
}

} // namespace

QmpClient::~QmpClient() {
    if (m_Fd >= 0) {
        close(m_Fd);
    }
}

bool QmpClient::ReadLine(std::string& Line, int TimeoutMs) {
    const int64_t Deadline = NowMs() + TimeoutMs;
    for (;;) {
        const size_t Nl = m_Buffer.find('\n');
        if (Nl != std::string::npos) {
            Line = m_Buffer.substr(0, Nl);
            m_Buffer.erase(0, Nl + 1);
            return true;
        }
        pollfd P{m_Fd, POLLIN, 0};
        const int N = poll(&P, 1, static_cast<int>(std::max<int64_t>(0, Deadline - NowMs())));
        if (N < 0 && errno == EINTR) {
            continue;
        }
        if (N <= 0) {
            return false;
        }
        char Buffer[8192];
        const ssize_t R = recv(m_Fd, Buffer, sizeof Buffer, 0);
        if (R <= 0) {
            return false;
        }
        m_Buffer.append(Buffer, static_cast<size_t>(R));
    }
}

bool QmpClient::Command(const std::string& Json, std::string& Return, int TimeoutMs) {
    const std::string Line = Json + "\n";
    if (m_Fd < 0 || send(m_Fd, Line.data(), Line.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(Line.size())) {
        return false;
    }
    const int64_t Deadline = NowMs() + TimeoutMs;
    std::string Reply;
    for (;;) {
        if (!ReadLine(Reply, static_cast<int>(std::max<int64_t>(0, Deadline - NowMs())))) {
            return false;
        }
        // Events ({"timestamp": ..., "event": ...}) come in between; the answer has "return" or "error".
        const size_t At = Reply.find("\"return\": ");
        if (At != std::string::npos) {
            const size_t Value = At + 10;
            if (Value < Reply.size() && Reply[Value] == '"') {
                return ParseJsonString(Reply, Value, Return);
            }
            Return.clear();
            return true;
        }
        if (Reply.find("\"error\"") != std::string::npos) {
            const size_t Desc = Reply.find("\"desc\": ");
            if (Desc == std::string::npos || !ParseJsonString(Reply, Desc + 8, Return)) {
                Return = Reply;
            }
            return false;
        }
    }
}

bool QmpClient::Open(int TimeoutMs, std::string& Error) {
    std::string Greeting;
    if (!ReadLine(Greeting, TimeoutMs) || Greeting.find("\"QMP\"") == std::string::npos) {
        Error = "no greeting from QEMU's machine protocol";
        return false;
    }
    std::string Return;
    if (!Command("{\"execute\":\"qmp_capabilities\"}", Return, TimeoutMs)) {
        Error = "QEMU's machine protocol refused command mode: " + Return;
        return false;
    }
    return true;
}

bool QmpClient::Hmp(const std::string& Text, std::string& Output, int TimeoutMs) {
    return Command(
        "{\"execute\":\"human-monitor-command\",\"arguments\":{\"command-line\":" + JsonQuote(Text) + "}}",
        Output, TimeoutMs);
}

size_t ParseMemoryDump(const std::string& Text, size_t ItemSize, U8* Out, size_t MaxBytes) {
    size_t Done = 0;
    size_t LineStart = 0;
    while (LineStart < Text.size() && Done < MaxBytes) {
        size_t LineEnd = Text.find('\n', LineStart);
        if (LineEnd == std::string::npos) {
            LineEnd = Text.size();
        }
        const std::string Line = Text.substr(LineStart, LineEnd - LineStart);
        LineStart = LineEnd + 1;
        const size_t Colon = Line.find(": ");
        if (Colon == std::string::npos) {
            break;
        }
        size_t At = Colon + 2;
        while (At < Line.size() && Done < MaxBytes) {
            if (Line.compare(At, 2, "0x") != 0) {
                return Done; // "Cannot access memory" or anything else: the readable part ends here
            }
            char* End = nullptr;
            const unsigned long long V = std::strtoull(Line.c_str() + At + 2, &End, 16);
            for (size_t b = 0; b < ItemSize && Done < MaxBytes; ++b) {
                Out[Done++] = static_cast<U8>(V >> (8 * b));
            }
            At = static_cast<size_t>(End - Line.c_str());
            while (At < Line.size() && (Line[At] == ' ' || Line[At] == '\r')) {
                ++At;
            }
        }
    }
    return Done;
}

size_t QmpClient::ReadMemory(U32 Address, size_t Size, U8* Out, int TimeoutMs) {
    size_t Done = 0;
    // QEMU reads a whole output line (16 bytes) at once and fails all of it when any byte fails: after
    // a short read, go on byte by byte to find where the readable part really ends.
    bool Bytewise = false;
    while (Done < Size) {
        const U32 A = Address + static_cast<U32>(Done);
        const size_t Left = Size - Done;
        // Words where the address and size allow it: a quarter of the text for the same bytes.
        const bool Words = !Bytewise && A % 4 == 0 && Left >= 4;
        const size_t Item = Words ? 4 : 1;
        size_t Count = Words ? Left / 4 : (A % 4 == 0 ? Left : std::min<size_t>(Left, 4 - A % 4));
        Count = Bytewise ? 1 : std::min<size_t>(Count, 1024);
        char Cmd[64];
        std::snprintf(Cmd, sizeof Cmd, "xp /%zu%cx 0x%x", Count, Words ? 'w' : 'b', A);
        std::string Text;
        if (!Hmp(Cmd, Text, TimeoutMs)) {
            break;
        }
        const size_t Got = ParseMemoryDump(Text, Item, Out + Done, Count * Item);
        Done += Got;
        if (Got < Count * Item) {
            if (Bytewise || Count * Item == 1) {
                break;
            }
            Bytewise = true;
        }
    }
    return Done;
}

} // namespace tarvo
