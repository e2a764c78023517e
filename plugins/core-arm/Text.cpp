// Instruction and data text: "mnemonic\toperands[\tcomment]", DC directives for data, and encodings.
#include "Entries.h"

#include <cstdio>
#include <cstring>

namespace ArmCore {
namespace {

constexpr U32 MAX_DATA_BYTES = 64;

/// Value of Size bytes in the given byte order.
U64 Assemble(const U8* p, U32 Size, bool BigEndian) {
    U64 V = 0;
    for (U32 i = 0; i < Size; ++i) {
        const U32 Shift = BigEndian ? 8 * (Size - 1 - i) : 8 * i;
        V |= U64(p[i]) << Shift;
    }
    return V;
}

/// "0x" and the value with as many digits as its width.
int FormatValue(char* s, size_t n, U64 V, U32 Size) {
    return snprintf(s, n, "0x%0*llX", static_cast<int>(2 * Size), static_cast<unsigned long long>(V));
}

bool IsItemWidth(U32 Size) {
    return Size == 1 || Size == 2 || Size == 4 || Size == 8;
}

/// The common start of the byte printers: an empty text, and the bytes of at most MAX_DATA_BYTES read.
bool ReadForPrint(U64 Addr, U32* Size, char* s, U32 BufSize, U8* Bytes) {
    if (s == nullptr || BufSize == 0) {
        return false;
    }
    s[0] = '\0';
    if (*Size == 0) {
        return false;
    }
    *Size = *Size > MAX_DATA_BYTES ? MAX_DATA_BYTES : *Size;
    return ReadMem(Addr, *Size, Bytes) == 0;
}

} // namespace

int FormatInst(const DecodedInst& Inst, char* s, U32 BufSize) {
    const INST_INFO& I = Inst.Info;
    int Len = snprintf(s, BufSize, "%s", Inst.Mnemonic);
    if (Inst.Operands[0] != '\0') {
        Len += snprintf(s + Len, Len < static_cast<int>(BufSize) ? BufSize - Len : 0, "\t%s", Inst.Operands);
    }
    // A load from a literal pool shows the address it reads and the value there.
    const bool AdrForm = strncmp(Inst.Mnemonic, "adr", 3) == 0;
    if ((I.Flags & INST_LITERAL) && !AdrForm && Len < static_cast<int>(BufSize)) {
        Len += snprintf(s + Len, BufSize - Len, "\t; [0x%08llX]", static_cast<unsigned long long>(I.Target));
        U8 Bytes[8];
        if (Inst.LiteralBytes > 0 && Len < static_cast<int>(BufSize) &&
            ReadMem(I.Target, Inst.LiteralBytes, Bytes) == 0) {
            const U64 V = Assemble(Bytes, Inst.LiteralBytes, GetConfig().DataBigEndian);
            Len += snprintf(s + Len, BufSize - Len, " = ");
            if (Len < static_cast<int>(BufSize)) {
                Len += FormatValue(s + Len, BufSize - Len, V, Inst.LiteralBytes);
            }
        }
    }
    return Len;
}

namespace Entry {

int PrintInst(U64 Addr, U32 Size, char* s, U32 BufSize) {
    if (s == nullptr || BufSize == 0) {
        return -1;
    }
    s[0] = '\0';
    DecodedInst Inst;
    if (Decode(Addr, Inst, true) != DECODE_OK || static_cast<U32>(Inst.Info.Size) > Size) {
        return -1;
    }
    FormatInst(Inst, s, BufSize);
    return Inst.Info.Size;
}

int PrintInstBytes(U64 Addr, U32 Size, char* s, U32 BufSize) {
    U8 Bytes[MAX_DATA_BYTES];
    if (!ReadForPrint(Addr, &Size, s, BufSize, Bytes)) {
        return -1;
    }
    // Thumb code is a stream of halfwords: one group of four digits each, as the core fetches them.
    const bool BigEndian = GetConfig().InstBigEndian;
    int Len = 0;
    for (U32 i = 0; i < Size && Len < static_cast<int>(BufSize); i += 2) {
        const U32 N = Size - i >= 2 ? 2 : 1;
        const U64 V = Assemble(Bytes + i, N, BigEndian);
        Len += snprintf(s + Len, BufSize - Len, i ? " %0*llX" : "%0*llX", static_cast<int>(2 * N),
                        static_cast<unsigned long long>(V));
    }
    return static_cast<int>(Size);
}

int PrintData(U64 Addr, U32 Size, char* s, U32 BufSize) {
    U8 Bytes[MAX_DATA_BYTES];
    if (!ReadForPrint(Addr, &Size, s, BufSize, Bytes)) {
        return -1;
    }
    const bool BigEndian = GetConfig().DataBigEndian;
    int Len = 0;
    if (IsItemWidth(Size)) {
        Len = snprintf(s, BufSize, "DC%u\t", 8 * Size);
        if (Len < static_cast<int>(BufSize)) {
            Len += FormatValue(s + Len, BufSize - Len, Assemble(Bytes, Size, BigEndian), Size);
        }
        // A word that holds a symbol's address names it.
        const char* sSymbol = Size == 4 ? GetDataSymbol(Addr) : nullptr;
        if (sSymbol != nullptr && Len < static_cast<int>(BufSize)) {
            snprintf(s + Len, BufSize - Len, "\t; %s", sSymbol);
        }
        return static_cast<int>(Size);
    }
    Len = snprintf(s, BufSize, "DC8\t");
    for (U32 i = 0; i < Size && Len < static_cast<int>(BufSize); ++i) {
        Len += snprintf(s + Len, BufSize - Len, i ? ", 0x%02X" : "0x%02X", Bytes[i]);
    }
    return static_cast<int>(Size);
}

int PrintDataBytes(U64 Addr, U32 Size, char* s, U32 BufSize) {
    U8 Bytes[MAX_DATA_BYTES];
    if (!ReadForPrint(Addr, &Size, s, BufSize, Bytes)) {
        return -1;
    }
    if (IsItemWidth(Size)) {
        const U64 V = Assemble(Bytes, Size, GetConfig().DataBigEndian);
        snprintf(s, BufSize, "%0*llX", static_cast<int>(2 * Size), static_cast<unsigned long long>(V));
        return static_cast<int>(Size);
    }
    int Len = 0;
    for (U32 i = 0; i < Size && Len < static_cast<int>(BufSize); ++i) {
        Len += snprintf(s + Len, BufSize - Len, i ? " %02X" : "%02X", Bytes[i]);
    }
    return static_cast<int>(Size);
}

} // namespace Entry
} // namespace ArmCore
