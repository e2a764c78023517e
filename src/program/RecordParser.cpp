#include "program/RecordParser.h"

#include <algorithm>
#include <numeric>

namespace TFile {
namespace {

int HexDigit(char C) {
    if (C >= '0' && C <= '9') {
        return C - '0';
    }
    if (C >= 'A' && C <= 'F') {
        return C - 'A' + 10;
    }
    if (C >= 'a' && C <= 'f') {
        return C - 'a' + 10;
    }
    return -1;
}

/// Value of Digits hex digits at Line; -1 if any is not a hex digit.
I64 HexValue(const char* Line, int Digits) {
    I64 Value = 0;
    for (int i = 0; i < Digits; ++i) {
        const int D = HexDigit(Line[i]);
        if (D < 0) {
            return -1;
        }
        Value = (Value << 4) | D;
    }
    return Value;
}

/// Decodes the hex pairs of [Line, Line + Digits) into Out; false on a non-hex character.
bool DecodeHex(const char* Line, int Digits, QByteArray& Out) {
    Out.resize(Digits / 2);
    for (int i = 0; i < Digits / 2; ++i) {
        const I64 Byte = HexValue(Line + 2 * i, 2);
        if (Byte < 0) {
            return false;
        }
        Out[i] = static_cast<char>(Byte);
    }
    return true;
}

/// Low byte of the sum of the bytes written as hex pairs in [Line, Line + Digits); -1 on a bad digit.
int HexByteSum(const char* Line, int Digits) {
    unsigned Sum = 0;
    for (int i = 0; i + 1 < Digits; i += 2) {
        const I64 Byte = HexValue(Line + i, 2);
        if (Byte < 0) {
            return -1;
        }
        Sum += static_cast<unsigned>(Byte);
    }
    return static_cast<int>(Sum & 0xFF);
}

} // namespace

bool ParseSRecord(const char* Line, int Length, ELF_DATA_BLOCK& Block) {
    if (Length < 10 || Line[0] != 'S') {
        return false;
    }
    const I64 Count = HexValue(Line + 2, 2);
    const I64 Checksum = HexValue(Line + Length - 2, 2);
    if (Count < 0 || Checksum < 0 || Count * 2 != Length - 4) {
        return false;
    }
    const int Sum = HexByteSum(Line + 2, Length - 4);
    if (Sum < 0 || ((~Sum) & 0xFF) != Checksum) {
        return false;
    }
    int AddressDigits = 0;
    switch (Line[1]) {
    case '0':
    case '1':
    case '5':
    case '9':
        AddressDigits = 4;
        break;
    case '2':
    case '8':
        AddressDigits = 6;
        break;
    case '3':
    case '7':
        AddressDigits = 8;
        break;
    default:
        return false;
    }
    const int DataStart = 4 + AddressDigits;
    if (DataStart > Length - 2) {
        return false;
    }
    const I64 Address = HexValue(Line + 4, AddressDigits);
    if (Address < 0 || !DecodeHex(Line + DataStart, Length - 2 - DataStart, Block.Data)) {
        return false;
    }
    Block.RecordType = static_cast<U32>(Line[1] - '0');
    Block.Address = static_cast<U32>(Address);
    Block.VirtualAddress = Block.Address;
    Block.Size = static_cast<U32>(Block.Data.size());
    return true;
}

bool ParseIntelHexRecord(const char* Line, int Length, U32& Base, ELF_DATA_BLOCK& Block) {
    if (Length < 11 || Line[0] != ':' || Line[7] != '0') {
        return false;
    }
    const I64 Count = HexValue(Line + 1, 2);
    const I64 Checksum = HexValue(Line + Length - 2, 2);
    if (Count < 0 || Checksum < 0 || Count * 2 != Length - 11) {
        return false;
    }
    const int Sum = HexByteSum(Line + 1, Length - 3);
    if (Sum < 0 || ((0x100 - Sum) & 0xFF) != Checksum) {
        return false;
    }
    const I64 Offset = HexValue(Line + 3, 4);
    const int Type = HexDigit(Line[8]);
    if (Offset < 0 || Type < 0 || Type > 5) {
        return false;
    }
    Block.RecordType = static_cast<U32>(Type);
    Block.Data.clear();
    switch (Type) {
    case 0:
        if (!DecodeHex(Line + 9, Length - 11, Block.Data)) {
            return false;
        }
        Block.Address = Base + static_cast<U32>(Offset);
        Block.VirtualAddress = Block.Address;
        break;
    case 1:
        if (Length != 11) {
            return false;
        }
        break;
    case 2:
    case 4: {
        const I64 Value = HexValue(Line + 9, 4);
        if (Length != 15 || Offset != 0 || Value < 0) {
            return false;
        }
        Base = static_cast<U32>(Value) << (Type == 2 ? 4 : 16);
        break;
    }
    default:
        // Start addresses: read and ignored.
        if (Length != 19 || Offset != 0 || HexValue(Line + 9, 8) < 0) {
            return false;
        }
        break;
    }
    Block.Size = static_cast<U32>(Block.Data.size());
    return true;
}

ELF_DATA_BLOCKS CoalesceBlocks(const ELF_DATA_BLOCKS& Blocks) {
    std::vector<size_t> Order(Blocks.size());
    std::iota(Order.begin(), Order.end(), 0);
    std::stable_sort(Order.begin(), Order.end(),
                     [&Blocks](size_t A, size_t B) { return Blocks[A].Address < Blocks[B].Address; });
    ELF_DATA_BLOCKS Result;
    size_t RunBegin = 0;
    while (RunBegin < Order.size()) {
        const U64 Start = Blocks[Order[RunBegin]].Address;
        U64 End = Start + static_cast<U64>(Blocks[Order[RunBegin]].Data.size());
        size_t RunEnd = RunBegin + 1;
        while (RunEnd < Order.size() && Blocks[Order[RunEnd]].Address <= End) {
            End = std::max(End, Blocks[Order[RunEnd]].Address +
                                    static_cast<U64>(Blocks[Order[RunEnd]].Data.size()));
            ++RunEnd;
        }
        // The run's bytes are copied in the order of the list, so a later block wins where they overlap.
        std::vector<size_t> Members(Order.begin() + static_cast<std::ptrdiff_t>(RunBegin),
                                    Order.begin() + static_cast<std::ptrdiff_t>(RunEnd));
        std::sort(Members.begin(), Members.end());
        ELF_DATA_BLOCK Merged;
        Merged.Address = static_cast<U32>(Start);
        Merged.VirtualAddress = Merged.Address;
        if (Members.size() == 1) {
            Merged.Data = Blocks[Members[0]].Data;
        } else {
            Merged.Data = QByteArray(static_cast<qsizetype>(End - Start), '\0');
            for (size_t M : Members) {
                const ELF_DATA_BLOCK& B = Blocks[M];
                std::copy(B.Data.begin(), B.Data.end(), Merged.Data.begin() + (B.Address - Start));
            }
        }
        Merged.Size = static_cast<U32>(Merged.Data.size());
        Result.push_back(Merged);
        RunBegin = RunEnd;
    }
    return Result;
}

} // namespace TFile
