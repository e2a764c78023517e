#pragma once

// QEMU's machine protocol (QMP) over a socket, used for what the GDB stub can't do: reading memory
// while the emulated CPU runs, through the monitor command "xp".

#include "probe/Tarvo.h"

#include <cstddef>
#include <string>

namespace tarvo {

/// One caller at a time (the library lock). Owns the descriptor.
class QmpClient {
public:
    explicit QmpClient(int Fd) : m_Fd(Fd) {}
    ~QmpClient();
    QmpClient(const QmpClient&) = delete;
    QmpClient& operator=(const QmpClient&) = delete;

    /// Reads the greeting and enters command mode.
    bool Open(int TimeoutMs, std::string& Error);
    /// Runs a human monitor command; Output is its text.
    bool Hmp(const std::string& Command, std::string& Output, int TimeoutMs);
    /// Reads memory of the running board: the bytes from the start up to the first that can't be read.
    size_t ReadMemory(U32 Address, size_t Size, U8* Out, int TimeoutMs);

private:
    bool ReadLine(std::string& Line, int TimeoutMs);
    bool Command(const std::string& Json, std::string& Return, int TimeoutMs);

    int m_Fd;
    std::string m_Buffer;
};

/// Parses the text of "xp /Nbx" or "xp /Nwx" into little-endian bytes, up to the first line that
/// isn't memory (such as "Cannot access memory"). Returns the number of bytes.
size_t ParseMemoryDump(const std::string& Text, size_t ItemSize, U8* Out, size_t MaxBytes);

} // namespace tarvo
