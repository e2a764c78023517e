// What the plug-in says about program files: mapping symbols and the ELF header.
#include "Entries.h"

#include <cstdio>
#include <cstring>

namespace ArmCore::Entry {
namespace {

constexpr U32 ELF_HEADER_SIZE = 52;
constexpr U16 EM_ARM = 40;
constexpr U32 EF_ARM_BE8 = 0x00800000;

bool IsElf32(U32 HdrSize, const U8* p) {
    return p != nullptr && HdrSize >= ELF_HEADER_SIZE && p[0] == 0x7F && p[1] == 'E' && p[2] == 'L' &&
           p[3] == 'F' && p[4] == 1 && (p[5] == 1 || p[5] == 2);
}

U32 Field(const U8* p, U32 Offset, U32 Size) {
    const bool BigEndian = p[5] == 2;
    U32 V = 0;
    for (U32 i = 0; i < Size; ++i) {
        V |= U32(p[Offset + i]) << (BigEndian ? 8 * (Size - 1 - i) : 8 * i);
    }
    return V;
}

} // namespace

int GetMappingSymbolPrefix(char* s, U32 Size) {
    if (s == nullptr || Size < 2) {
        return 0;
    }
    snprintf(s, Size, "$");
    return 1;
}

/// "$t" (Thumb code), "$a" (ARM code) and "$d" (data), each alone or followed by "." and any text.
int GetMappingSymbolInfo(const char* sName, U32* pKind, char* sText, U32 TextSize) {
    if (sName == nullptr || sName[0] != '$' || sName[1] == '\0' || (sName[2] != '\0' && sName[2] != '.')) {
        return -1;
    }
    U32 Kind;
    const char* sKind;
    switch (sName[1]) {
    case 't':
        Kind = 2;
        sKind = "Thumb code";
        break;
    case 'a':
        Kind = 3;
        sKind = "ARM code";
        break;
    case 'd':
        Kind = 1;
        sKind = "Data";
        break;
    default:
        return -1;
    }
    if (pKind != nullptr) {
        *pKind = Kind;
    }
    if (sText != nullptr && TextSize > 0) {
        snprintf(sText, TextSize, "%s", sKind);
    }
    return 0;
}

/// Byte orders, 1 = big endian. A big-endian file is BE8 (instructions stay little endian, as every
/// M-profile core fetches them) when its header says so, else it is big endian throughout.
int GetProgramByteOrder(U32 HdrSize, const U8* pHdr, U32* pInstOrder, U32* pDataOrder) {
    if (!IsElf32(HdrSize, pHdr) || pInstOrder == nullptr || pDataOrder == nullptr) {
        return -1;
    }
    const bool BigEndian = pHdr[5] == 2;
    const bool BE8 = (Field(pHdr, 36, 4) & EF_ARM_BE8) != 0;
    *pDataOrder = BigEndian ? 1 : 0;
    *pInstOrder = BigEndian && !BE8 ? 1 : 0;
    return 0;
}

int CheckProgramHeader(U32 HdrSize, const U8* pHdr) {
    return IsElf32(HdrSize, pHdr) && Field(pHdr, 18, 2) == EM_ARM ? 1 : 0;
}

} // namespace ArmCore::Entry
