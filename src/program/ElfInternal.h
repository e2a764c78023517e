#pragma once

// State and helpers shared by the parts of the ELF program model; not for use outside src/program.

#include "program/ElfParser.h"

#include <atomic>

namespace ElfInternal {

struct State {
    ELF_FILE* Slots[ELF_SLOT_COUNT] = {};
    ELF_FILE* Current = nullptr;
    // While an open or a close runs, accessors answer neutrally: a stale reader never sees a half-built
    // file.
    std::atomic<bool> Parsing{false};
    std::atomic<bool> Closing{false};
    ELF_ERROR_CALLBACK Callback = nullptr;
    void* CallbackUser = nullptr;
    U32 InstAlign = 2;
    int CurrentByteOrder = ELF_UNKNOWN_ENDIAN;
    std::vector<ELF_SEGMENT> SegmentTable;
    ELF_ADDR_BOUNDS Bounds;
    std::vector<ELF_RELOCATION> Relocations;
};

State& S();

/// Name of section Index from the section name string table; "" when it cannot be read.
const char* SectionName(const ELF_FILE* File, U32 Index);
/// A NUL-terminated string at Offset inside section SecIndex, or "".
const char* StringAt(const ELF_FILE* File, I64 SecIndex, U32 Offset);
/// Whether [Offset, Offset + Size) lies inside the file.
inline bool InFile(const ELF_FILE* File, U64 Offset, U64 Size) {
    return Offset <= File->FileSize && Size <= File->FileSize - Offset;
}
/// Section data for internal use, without the validity checks of the public accessor.
const U8* SectionData(const ELF_FILE* File, U32 Index);

/// End of a range computed in 64 bits, clamped to 0x100000000.
inline U64 RangeEnd(U32 Start, U64 Size) {
    const U64 End = static_cast<U64>(Start) + Size;
    return End > 0x100000000ull ? 0x100000000ull : End;
}

/// The symbol stage of an open: copies, sorts, fills sizes and builds the function list. 0 or negative.
int ReadSymbols(ELF_FILE* File);
/// Rebuilds the segment table and the address bounds of the current file.
void RebuildSegmentTable();
void RebuildAddrBounds();

} // namespace ElfInternal
