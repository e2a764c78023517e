#include "app/core/ConsoleRing.h"

#include <QByteArray>

#include <chrono>
#include <cstring>
#include <mutex>

namespace ConsoleRing {
namespace {

struct Ring {
    std::mutex Lock; // held only while a slot is copied, never while the GUI draws
    CConsoleMsg Slots[SIZE];
    int WriteIndex = 0;
    int ReadIndex = 0;
    std::chrono::steady_clock::time_point Start = std::chrono::steady_clock::now();
    std::function<void()> Notify;
};

Ring& TheRing() {
    static Ring s_Ring;
    return s_Ring;
}

/// Cuts at Max bytes without splitting a UTF-8 sequence.
QByteArray CutUtf8(const QString& Text, int Max) {
    QByteArray Bytes = Text.toUtf8();
    if (Bytes.size() <= Max) {
        return Bytes;
    }
    int End = Max;
    while (End > 0 && (static_cast<unsigned char>(Bytes[End]) & 0xC0) == 0x80) {
        --End;
    }
    return Bytes.left(End);
}

} // namespace

bool Push(const QString& Text, I32 ColorIndex, U32 ColorRGBA, bool Bold, bool NewLine) {
    if (Text.isEmpty()) {
        return false;
    }
    const QByteArray Bytes = CutUtf8(Text, TEXT_MAX);
    Ring& R = TheRing();
    std::function<void()> Notify;
    {
        std::lock_guard<std::mutex> Guard(R.Lock);
        CConsoleMsg& Slot = R.Slots[R.WriteIndex];
        if (Slot.Used) {
            return false;
        }
        Slot.NewLine = NewLine ? 1 : 0;
        Slot.Bold = Bold ? 1 : 0;
        Slot.ColorIndex = ColorIndex;
        Slot.ColorRGBA = ColorRGBA;
        Slot.LineCount = static_cast<U32>(Bytes.count('\n')) + 1;
        std::memcpy(Slot.Text, Bytes.constData(), Bytes.size());
        Slot.Text[Bytes.size()] = '\0';
        Slot.Timestamp = static_cast<U64>(
            std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - R.Start)
                .count());
        Slot.Used = 1;
        R.WriteIndex = (R.WriteIndex + 1) % SIZE;
        Notify = R.Notify;
    }
    if (Notify) {
        Notify();
    }
    return true;
}

bool Pop(CConsoleMsg& Msg) {
    Ring& R = TheRing();
    std::lock_guard<std::mutex> Guard(R.Lock);
    CConsoleMsg& Slot = R.Slots[R.ReadIndex];
    if (!Slot.Used) {
        return false;
    }
    Msg = Slot;
    Slot.Used = 0;
    R.ReadIndex = (R.ReadIndex + 1) % SIZE;
    return true;
}

void Clear() {
    Ring& R = TheRing();
    std::lock_guard<std::mutex> Guard(R.Lock);
    for (CConsoleMsg& Slot : R.Slots) {
        Slot = CConsoleMsg();
    }
    R.WriteIndex = 0;
    R.ReadIndex = 0;
}

U64 ElapsedMicros() {
    Ring& R = TheRing();
    std::lock_guard<std::mutex> Guard(R.Lock);
    return static_cast<U64>(
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - R.Start)
            .count());
}

void RestartClock() {
    Ring& R = TheRing();
    std::lock_guard<std::mutex> Guard(R.Lock);
    R.Start = std::chrono::steady_clock::now();
}

void SetNotifier(std::function<void()> Notify) {
    Ring& R = TheRing();
    std::lock_guard<std::mutex> Guard(R.Lock);
    R.Notify = std::move(Notify);
}

} // namespace ConsoleRing
