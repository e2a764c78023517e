#pragma once

#include "app/core/Types.h"

/// The inner term of a location part (kinds 6, 15 and 16).
struct ELF_LOC_NESTED {
    U32 Kind;
    U32 Address;
    U32 Register;
    I32 Offset;
};

/// One part of a data location: where a value or a piece of it lies.
struct ELF_LOC_PART {
    U32 Kind;     ///< 0 invalid; 1 constant, 2 and 3 memory, 4 register, 5 register plus offset, ...
    U32 Address;  ///< kinds 2 and 3
    U32 Register; ///< kinds 4, 5, 6: a DWARF register number, 1034 undefined, 1035 same as caller
    I32 Offset;
    U64 Value; ///< kind 1: the value; with a piece: the piece's byte size
    ELF_LOC_NESTED Nested;
    U64 Reserved;
};

/// A data location: up to two parts, a plain value copied freely.
struct ELF_SYM_LOC {
    I32 PartCount; ///< 0: no location
    U32 Reserved;
    ELF_LOC_PART Parts[2];
};

static_assert(sizeof(ELF_LOC_PART) == 48, "location part");
static_assert(sizeof(ELF_SYM_LOC) == 104, "a data location is 104 bytes");

/// Location kinds that name a register, and those that a memory read can reach.
inline bool ELF_IsRegisterLocKind(U32 Kind) {
    return Kind == 4 || Kind == 5;
}
inline bool ELF_IsMemoryLocKind(U32 Kind) {
    return Kind == 2 || Kind == 3 || Kind == 6 || Kind == 10 || Kind == 11 || Kind == 12 || Kind == 15 ||
           Kind == 16;
}
