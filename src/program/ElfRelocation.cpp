// The symbol relocation table behind Project.RelocateSymbols, address translation, and the tables that
// are rebuilt for the current file: segments and address bounds.

#include "program/ElfInternal.h"

#include <QByteArray>

#include <algorithm>

#include <cstdlib>

using namespace ElfFormat;
using namespace ElfInternal;

namespace {

constexpr U32 WHOLE_SPACE_END = 0xFFFFFFFE;

U32 ClampEnd(U64 End) {
    return End > 0xFFFFFFFFull ? 0xFFFFFFFFu : static_cast<U32>(End);
}

/// Resolves a selector against the current file; false leaves the range empty.
bool Resolve(ELF_RELOCATION& R) {
    R.Start = 0;
    R.End = 0;
    const char* Text = R.Text;
    if (std::strcmp(Text, "*") == 0) {
        R.End = WHOLE_SPACE_END;
        return true;
    }
    if (const char* Dash = std::strchr(Text, '-')) {
        // Two numbers as strtol reads them with base 0, so that "0x" prefixes work.
        const QByteArray Left(Text, static_cast<int>(Dash - Text));
        const long long From = std::strtoll(Left.constData(), nullptr, 0);
        const long long To = std::strtoll(Dash + 1, nullptr, 0);
        if (From == 0 && To == 0) {
            return false;
        }
        R.Start = static_cast<U32>(From);
        R.End = static_cast<U32>(To);
        return true;
    }
    const ELF_FILE* File = S().Current;
    if (!File || !*Text) {
        return false;
    }
    const I32 Section = ELF_FindSection(File, Text);
    if (Section >= 0) {
        const ELF32_SHDR& Sh = File->Sections[static_cast<size_t>(Section)];
        R.Start = Sh.sh_addr;
        R.End = ClampEnd(RangeEnd(Sh.sh_addr, Sh.sh_size));
        return true;
    }
    const ELF32_SYM* Sym = ELF_FindSymByName(File, Text);
    if (Sym) {
        const bool Func = IsFunctionType(Sym->st_info & 0xF);
        const U64 End = RangeEnd(Sym->st_value, Sym->st_size);
        R.Start = Func ? ELF_AlignInst(Sym->st_value) : Sym->st_value;
        R.End = ClampEnd(Func ? (End & ~static_cast<U64>(ELF_GetInstAlign() - 1)) : End);
        return true;
    }
    return false;
}

bool Fits32(I64 Value) {
    return Value >= 0 && Value <= 0xFFFFFFFFll;
}

} // namespace

int ELF_AddRelocation(const char* Selector, I32 Offset) {
    ELF_RELOCATION R;
    if (Selector) {
        std::strncpy(R.Text, Selector, sizeof R.Text - 1);
    }
    R.Offset = Offset;
    const bool Resolved = Resolve(R);
    S().Relocations.push_back(R);
    if (Resolved) {
        return 0;
    }
    // A name can only be judged once a file is open; the record waits for it.
    const bool NameWithoutFile = R.Text[0] && !std::strchr(R.Text, '-') && !S().Current;
    return NameWithoutFile ? 0 : -1;
}

void ELF_ResolveRelocations() {
    for (ELF_RELOCATION& R : S().Relocations) {
        if (R.Text[0]) {
            Resolve(R);
        }
    }
}

const std::vector<ELF_RELOCATION>& ELF_GetRelocations() {
    return S().Relocations;
}

void ELF_ClearRelocations() {
    S().Relocations.clear();
}

U32 ELF_ToTargetAddr(U32 Addr, U32 AddToLow, U32 AddToHigh) {
    for (const ELF_RELOCATION& R : S().Relocations) {
        const I64 A = Addr;
        if (static_cast<I64>(R.Start) < A + AddToLow && A < static_cast<I64>(R.End) + AddToHigh) {
            const I64 Result = A + R.Offset;
            // An offset that would wrap the address does not apply; a later entry may.
            if (Fits32(Result)) {
                return static_cast<U32>(Result);
            }
        }
    }
    return Addr;
}

U32 ELF_ToFileAddr(U32 Addr, U32 AddToLow, U32 AddToHigh) {
    for (const ELF_RELOCATION& R : S().Relocations) {
        const I64 A = Addr;
        const I64 Low = static_cast<I64>(R.Start) + R.Offset;
        const I64 High = static_cast<I64>(R.End) + R.Offset;
        if (Low < A + AddToLow && A < High + AddToHigh) {
            const I64 Result = A - R.Offset;
            if (Fits32(Result)) {
                return static_cast<U32>(Result);
            }
        }
    }
    return Addr;
}

const ELF_ADDR_BOUNDS& ELF_GetAddrBounds() {
    return S().Bounds;
}

namespace ElfInternal {

void RebuildSegmentTable() {
    State& St = S();
    St.SegmentTable.clear();
    const ELF_FILE* File = St.Current;
    if (!File) {
        return;
    }
    for (U32 i = 0; i < File->Segments.size(); ++i) {
        const ELF32_PHDR& P = File->Segments[i];
        ELF_SEGMENT Seg;
        Seg.VirtualAddress = P.p_vaddr;
        Seg.PhysicalAddress = P.p_paddr;
        Seg.FileSize = P.p_filesz;
        Seg.Type = P.p_type;
        Seg.Data = InFile(File, P.p_offset, P.p_filesz) ? File->Image.get() + P.p_offset : nullptr;
        St.SegmentTable.push_back(Seg);
    }
}

void RebuildAddrBounds() {
    State& St = S();
    St.Bounds = ELF_ADDR_BOUNDS();
    const ELF_FILE* File = St.Current;
    if (!File) {
        return;
    }
    // Symbols of allocated sections only: file names, absolute values and undefined names have no place
    // in the target's memory.
    for (const ELF32_SYM& Sym : File->Symbols) {
        if (Sym.st_shndx >= File->Sections.size() || !(File->Sections[Sym.st_shndx].sh_flags & SHF_ALLOC)) {
            continue;
        }
        const bool Func = IsFunctionType(Sym.st_info & 0xF);
        const U32 Low = ELF_ToTargetAddr(Func ? ELF_AlignInst(Sym.st_value) : Sym.st_value, 1, 0);
        const U64 High = RangeEnd(Low, Sym.st_size);
        St.Bounds.Low = std::min(St.Bounds.Low, Low);
        St.Bounds.High = std::max(St.Bounds.High, High);
        ++St.Bounds.Count;
    }
}

} // namespace ElfInternal
