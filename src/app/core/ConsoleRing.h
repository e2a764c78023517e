#pragma once

#include "app/core/Types.h"

#include <QString>

#include <functional>

/// One queued line of the Console.
struct CConsoleMsg {
    U8 Used = 0;
    U8 NewLine = 1; ///< 1: a new paragraph; 0: appended to the last line
    U8 Bold = 0;
    U32 ColorRGBA = 0;    ///< text colour when ColorIndex is -1; 0 (transparent) is the palette's text colour
    I32 ColorIndex = -1;  ///< colour table index, or -1 to use ColorRGBA
    U32 LineCount = 1;    ///< line feeds in the text plus 1
    char Text[1001] = {}; ///< at most 1000 bytes, zero-terminated
    U64 Timestamp = 0;    ///< microseconds since the ring was started
};

/// The Console's ring of exactly 1000 messages. Any thread may push; only the GUI thread pops.
/// A push into a slot still in use drops the message: logging never waits for the GUI.
namespace ConsoleRing {

constexpr int SIZE = 1000;
constexpr int TEXT_MAX = 1000;

/// Queues one message; false when it was dropped (empty text or the ring is full).
bool Push(const QString& Text, I32 ColorIndex, U32 ColorRGBA, bool Bold, bool NewLine = true);
/// Takes the oldest message into Msg; false when the ring is empty.
bool Pop(CConsoleMsg& Msg);
/// Empties the ring and resets both indices.
void Clear();
/// Microseconds since the ring's clock started (the Console's creation).
U64 ElapsedMicros();
/// Restarts the clock of the timestamps.
void RestartClock();
/// Called after each successful push, from the pushing thread; the Console queues its update from it.
void SetNotifier(std::function<void()> Notify);

} // namespace ConsoleRing
