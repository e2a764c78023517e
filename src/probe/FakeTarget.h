#pragma once

// The fake target of the probe library, for tests of the layers above it: select the USB interface
// and the device "FAKE", and the library talks to an in-process target with a memory map, a register
// file, a scripted program counter and faults that a test switches on. The functions below configure
// it through one exported entry; they may be called at any time, also while a session runs.
//
// Running: each step moves the PC to the next entry of the script (or 2 bytes on past its end). A
// resume runs along the script to the first entry with a breakpoint at its PC or an access that a
// watchpoint catches, and halts there after SetRunPolls halt queries that report "running"; without
// such an entry it runs until halted, which stops it at the next entry. A reset goes back to the
// script's start (or, without a script, to the vector table at the start of the first region).
//
// A target snapshot (see backends/Snapshot.h) replaces all of this with a program's state at a stop:
// its registers, its RAM ranges (writable) and the loadable segments of its ELF file (read-only code
// memory), nothing else; registers the board didn't have are unavailable.

#include "probe/Tarvo.h"

#include <string>
#include <vector>

#ifdef __cplusplus
extern "C" {
#endif
int TARVO_FAKE_Control(U32 Cmd, U64 Arg0, U64 Arg1, void* pData);
#ifdef __cplusplus
}
#endif

namespace tarvo::fake {

enum Command : U32 {
    CmdReset = 0,     // back to the default configuration (below)
    CmdAddRegion = 1, // Arg0 address, Arg1 size, pData: const U32* writable flag (null: writable)
    CmdClearRegions = 2,
    CmdSetRegister = 3,          // Arg0 TARVO_ARM_REGS index, Arg1 value
    CmdGetRegister = 4,          // Arg0 index, pData U64* out
    CmdSetRegisterAvailable = 5, // Arg0 index, Arg1 0 or 1
    CmdSetScript = 6,            // Arg0 number of steps, pData const Step*
    CmdSetFault = 7,             // Arg0 Fault, Arg1 0 or 1
    CmdFailReads = 8,            // Arg0 address, Arg1 size: reads of these bytes fail (size 0 clears all)
    CmdFailWrites = 9,           // as CmdFailReads for writes
    CmdPoke = 10,                // Arg0 address, Arg1 size, pData bytes: written whatever the faults
    CmdPeek = 11,                // Arg0 address, Arg1 size, pData out: read whatever the faults
    CmdSetRunPolls = 12,         // Arg0: halt queries answered "running" before a halt at a breakpoint
    CmdGetCounter = 13,          // Arg0 Counter, returns its value
    CmdSetHardwareLimits = 14,   // Arg0 breakpoint comparators, Arg1 watchpoint comparators
    CmdGetPosition = 15,         // returns the index of the current script entry
    CmdLoadSnapshot = 16,        // pData SnapshotRequest*; 0, or -1 with the reason in its Error
    CmdSetRunningAtConnect = 17, // Arg0 1: the target runs when the library connects (0, the default: halted)
};

enum Fault : U32 {
    DeadConnection = 0, // every call fails, halt queries say the connection is gone
    ConnectFails = 1,   // TARVOARM_Connect fails
    HaltFails = 2,
    StepFails = 3,
};

enum Counter : U32 {
    Connects = 0,
    Resumes = 1,
    Steps = 2,
    Halts = 3,
    Resets = 4,
    Breakpoints = 5,
    Watchpoints = 6
};

struct Step {
    U32 Pc;
    U32 DataAddress = 0; // with Access: a data access that this instruction makes
    U32 Access = 0;      // 0 none, 1 read, 2 write
};

struct SnapshotRequest {
    const char* Snapshot;  // path of the snapshot file
    const char* Elf;       // the program it must belong to; null or empty: the one it names, beside it
    char* Error = nullptr; // out: why it was refused, cut to ErrorSize
    U32 ErrorSize = 0;
};

/// Default: 256 KB of flash at 0, 64 KB of RAM at 0x20000000, all registers 0 and available, no
/// script, 1 running poll, 6 breakpoint and 4 watchpoint comparators, no faults.
inline void Reset() {
    TARVO_FAKE_Control(CmdReset, 0, 0, nullptr);
}
inline void AddRegion(U32 Address, U32 Size, bool Writable = true) {
    const U32 Flag = Writable ? 1 : 0;
    TARVO_FAKE_Control(CmdAddRegion, Address, Size, const_cast<U32*>(&Flag));
}
inline void ClearRegions() {
    TARVO_FAKE_Control(CmdClearRegions, 0, 0, nullptr);
}
inline void SetRegister(U32 Index, U64 Value) {
    TARVO_FAKE_Control(CmdSetRegister, Index, Value, nullptr);
}
inline U64 GetRegister(U32 Index) {
    U64 Value = 0;
    TARVO_FAKE_Control(CmdGetRegister, Index, 0, &Value);
    return Value;
}
inline void SetRegisterAvailable(U32 Index, bool Available) {
    TARVO_FAKE_Control(CmdSetRegisterAvailable, Index, Available ? 1 : 0, nullptr);
}
inline void SetScript(const std::vector<Step>& Steps) {
    TARVO_FAKE_Control(CmdSetScript, Steps.size(), 0, const_cast<Step*>(Steps.data()));
}
inline void SetFault(Fault F, bool On) {
    TARVO_FAKE_Control(CmdSetFault, F, On ? 1 : 0, nullptr);
}
inline void FailReads(U32 Address, U32 Size) {
    TARVO_FAKE_Control(CmdFailReads, Address, Size, nullptr);
}
inline void FailWrites(U32 Address, U32 Size) {
    TARVO_FAKE_Control(CmdFailWrites, Address, Size, nullptr);
}
inline void Poke(U32 Address, const std::vector<U8>& Bytes) {
    TARVO_FAKE_Control(CmdPoke, Address, Bytes.size(), const_cast<U8*>(Bytes.data()));
}
inline std::vector<U8> Peek(U32 Address, U32 Size) {
    std::vector<U8> Bytes(Size);
    TARVO_FAKE_Control(CmdPeek, Address, Size, Bytes.data());
    return Bytes;
}
inline void SetRunPolls(U32 Polls) {
    TARVO_FAKE_Control(CmdSetRunPolls, Polls, 0, nullptr);
}
inline int GetCounter(Counter C) {
    return TARVO_FAKE_Control(CmdGetCounter, C, 0, nullptr);
}
inline void SetHardwareLimits(U32 Breakpoints, U32 Watchpoints) {
    TARVO_FAKE_Control(CmdSetHardwareLimits, Breakpoints, Watchpoints, nullptr);
}
inline void SetRunningAtConnect(bool Running) {
    TARVO_FAKE_Control(CmdSetRunningAtConnect, Running ? 1 : 0, 0, nullptr);
}
inline int Position() {
    return TARVO_FAKE_Control(CmdGetPosition, 0, 0, nullptr);
}
/// Loads a snapshot; on failure the target stays as it was and Error says why.
inline bool LoadSnapshot(const std::string& Snapshot, const std::string& Elf, std::string* Error = nullptr) {
    char Text[1024] = {};
    SnapshotRequest R{Snapshot.c_str(), Elf.c_str(), Text, sizeof Text};
    const bool Ok = TARVO_FAKE_Control(CmdLoadSnapshot, 0, 0, &R) == 0;
    if (Error) {
        *Error = Text;
    }
    return Ok;
}

} // namespace tarvo::fake
