#pragma once

// What the exported functions need from a way to the target: the GDB remote client, the emulated
// board, or the fake target of the tests. The exported layer keeps handles, tables and checks;
// a back end only talks to its target.

#include "probe/Tarvo.h"

#include <cstddef>
#include <functional>
#include <string>

namespace tarvo {

/// Where a back end's texts go: the library's three text callbacks. May be called on any thread.
struct TextSink {
    std::function<void(const std::string&)> Info;
    std::function<void(const std::string&)> Warn;
    std::function<void(const std::string&)> Error;
};

enum class PointKind { SoftBreak, HardBreak, WriteWatch, ReadWatch, AccessWatch };

enum class InsertResult {
    Ok,
    NoResources, // the target refused it: out of comparators, or a software breakpoint it can't write
    Unsupported, // the back end has no such kind at all
    Failed,      // the connection failed
};

/// One target connection. Called with the library lock held, so from one thread at a time; a back end
/// may still have threads of its own (a process watchdog) that only set flags and call the text
/// callbacks.
class Backend {
public:
    virtual ~Backend() = default;

    /// Makes the connection to the target; the target is halted or runs as it did. Error says why not.
    virtual bool Connect(std::string& Error) = 0;
    /// Any thread, while another is in Connect: ends what Connect waits for, so that it fails at once;
    /// a connection it has made already breaks. Nothing waits here.
    virtual void Abort() {}
    /// Ends the connection: the target is released (a GDB server) or ended (an emulated board).
    virtual void Disconnect() = 0;
    virtual bool IsConnected() const = 0;
    /// Why the connection broke, empty while it is fine.
    virtual std::string LostReason() const = 0;

    /// 1 halted, 0 running, -1 the connection is gone.
    virtual int HaltState() = 0;
    virtual bool Halt() = 0;
    /// Resumes. With StepOverBreakpoint a breakpoint at the PC doesn't stop the target at once.
    virtual bool Go(bool StepOverBreakpoint) = 0;
    /// One instruction; the target is halted afterwards unless the connection broke.
    virtual bool Step() = 0;
    /// Resets the target and leaves it halted at the reset vector.
    virtual bool Reset() = 0;

    /// Bytes read from the start of the range up to the first that couldn't be read.
    virtual size_t ReadMemory(U32 Address, size_t Size, U8* Out) = 0;
    /// Bytes written from the start of the range up to the first failure.
    virtual size_t WriteMemory(U32 Address, size_t Size, const U8* Data) = 0;
    /// Reading while the target runs: 0 impossible, 1 without disturbing it, 2 by halting it briefly.
    virtual int BackgroundAccess() const = 0;

    /// Registers by TARVO_ARM_REGS index: Status[i] 0 when Values[i] was read. False when none could
    /// be read at all (not halted, connection gone).
    virtual bool ReadRegisters(const U32* Indices, U64* Values, U8* Status, size_t Count) = 0;
    virtual bool WriteRegister(U32 Index, U64 Value) = 0;

    /// Breakpoints (Size: the instruction's size in bytes, 2 or 4) and watchpoints (Size: bytes
    /// watched). Inserted points stay across halts and resumes until removed.
    virtual InsertResult InsertPoint(PointKind Kind, U32 Address, U32 Size) = 0;
    virtual bool RemovePoint(PointKind Kind, U32 Address, U32 Size) = 0;
    /// Whether a software breakpoint at this address lives in RAM (rather than flash).
    virtual bool IsRam(U32 Address) const = 0;

    /// Flash programming brackets: writes between them may be collected and programmed at the end.
    virtual void BeginDownload() {}
    /// 0 or the negative codes of a download: -1 unspecified, -2 compare, -3 program/erase, -4 verify.
    virtual int EndDownload() { return 0; }

    /// Forgets register values kept since the last stop (the target changed behind our back).
    virtual void InvalidateCache() {}

    /// For TARVOARM_GetFirmwareString and TARVOARM_GetSN.
    virtual std::string Firmware() const = 0;
    virtual U32 SerialNumber() const { return 0; }
    /// A command for the server's monitor (qRcmd); false with Output holding the reason.
    virtual bool Monitor(const std::string& Command, std::string& Output) {
        (void)Command;
        Output = "this target has no monitor commands";
        return false;
    }
};

} // namespace tarvo
