// The ELF symbols: reading, the by-address and function lists, size filling and the look-ups.

#include "program/ElfInternal.h"

#include "app/core/Log.h"

#include <algorithm>

using namespace ElfFormat;
using namespace ElfInternal;

namespace {

/// Sizes above this are not believed: they come from a symbol without a real neighbour.
constexpr U64 SIZE_SANITY_LIMIT = 10000000;
/// How many later neighbours an object without a size looks at.
constexpr size_t OBJECT_NEIGHBOURS = 9;
/// At most this many symbols at one address are looked at by an exact look-up.
constexpr size_t EXACT_COLLECT_LIMIT = 128;

U32 SymType(const ELF32_SYM* Sym) {
    return Sym->st_info & 0xF;
}

ELF32_SYM& Mutable(ELF_FILE* File, const ELF32_SYM* Sym) {
    return File->Symbols[static_cast<size_t>(Sym - File->Symbols.data())];
}

void LogSanity(U32 Value) {
    LogMessage(QStringLiteral("Symbol at %1: did not pass allocation size sanity check")
                   .arg(QString::number(Value, 16).toUpper()),
               MSG_INFO | MSG_TO_LOGFILE | MSG_FROM_PROGRAM_DATA);
}

/// End of the section a symbol lies in, or -1 when its section index names no section.
I64 SectionEnd(const ELF_FILE* File, const ELF32_SYM* Sym) {
    if (Sym->st_shndx >= File->Sections.size()) {
        return -1;
    }
    const ELF32_SHDR& Sh = File->Sections[Sym->st_shndx];
    return static_cast<I64>(RangeEnd(Sh.sh_addr, Sh.sh_size));
}

int CopySymbols(ELF_FILE* File) {
    U64 Count = 0;
    for (const ELF32_SHDR& Sh : File->Sections) {
        if (Sh.sh_type != SHT_SYMTAB && Sh.sh_type != SHT_DYNSYM) {
            continue;
        }
        // Entries shorter than a symbol would overlap; such a table is not read.
        if (Sh.sh_entsize < SYM_SIZE) {
            continue;
        }
        if (!InFile(File, Sh.sh_offset, Sh.sh_size)) {
            ELF_ReportError(ELF_ERR_READ, QStringLiteral("a symbol table lies outside the file"));
            return -1;
        }
        Count += Sh.sh_size / Sh.sh_entsize;
    }
    // Every entry lies inside the file, so the count is bounded by the file size.
    File->Symbols.reserve(static_cast<size_t>(Count));
    const bool Swap = File->Header.e_ident[5] == ELFDATA2MSB;
    for (const ELF32_SHDR& Sh : File->Sections) {
        if ((Sh.sh_type != SHT_SYMTAB && Sh.sh_type != SHT_DYNSYM) || Sh.sh_entsize < SYM_SIZE) {
            continue;
        }
        const U32 N = Sh.sh_size / Sh.sh_entsize;
        for (U32 j = 0; j < N; ++j) {
            ELF32_SYM Sym;
            std::memcpy(&Sym, File->Image.get() + Sh.sh_offset + static_cast<U64>(j) * Sh.sh_entsize,
                        SYM_SIZE);
            if (Swap) {
                SwapField(Sym.st_name);
                SwapField(Sym.st_value);
                SwapField(Sym.st_size);
                SwapField(Sym.st_shndx);
            }
            File->Symbols.push_back(Sym);
        }
    }
    File->SymCount = static_cast<U32>(File->Symbols.size());
    return 0;
}

void FillObjectSizes(ELF_FILE* File) {
    const std::vector<const ELF32_SYM*>& List = File->ByAddress;
    for (size_t k = 0; k < List.size(); ++k) {
        const ELF32_SYM* Sym = List[k];
        if (Sym->st_size != 0 || SymType(Sym) != STT_OBJECT) {
            continue;
        }
        const size_t Last = std::min(List.size(), k + 1 + OBJECT_NEIGHBOURS);
        for (size_t j = k + 1; j < Last; ++j) {
            if (List[j]->st_value <= Sym->st_value) {
                continue;
            }
            const I64 End = SectionEnd(File, Sym);
            if (End >= 0 && List[j]->st_value <= static_cast<U64>(End)) {
                const U64 Distance = List[j]->st_value - Sym->st_value;
                if (Distance > SIZE_SANITY_LIMIT) {
                    LogSanity(Sym->st_value);
                } else {
                    Mutable(File, Sym).st_size = static_cast<U32>(Distance);
                }
            }
            break;
        }
    }
}

void FillFunctionSizes(ELF_FILE* File) {
    const std::vector<const ELF32_SYM*>& List = File->ByAddress;
    const size_t N = List.size();
    // For each entry, the first later function with a greater address: one pass from the end, group by
    // group of equal addresses, instead of a forward scan per symbol.
    std::vector<const ELF32_SYM*> Next(N, nullptr);
    const ELF32_SYM* FirstFuncRight = nullptr;
    for (size_t b = N; b > 0;) {
        size_t a = b - 1;
        while (a > 0 && List[a - 1]->st_value == List[b - 1]->st_value) {
            --a;
        }
        const ELF32_SYM* GroupFunc = nullptr;
        for (size_t k = a; k < b; ++k) {
            Next[k] = FirstFuncRight;
            if (!GroupFunc && IsFunctionType(SymType(List[k]))) {
                GroupFunc = List[k];
            }
        }
        if (GroupFunc) {
            FirstFuncRight = GroupFunc;
        }
        b = a;
    }
    const U64 Mask = ~static_cast<U64>(ELF_GetInstAlign() - 1);
    for (size_t k = 0; k < N; ++k) {
        const ELF32_SYM* Sym = List[k];
        if (Sym->st_size != 0 || !IsFunctionType(SymType(Sym))) {
            continue;
        }
        const I64 SecEnd = SectionEnd(File, Sym);
        if (SecEnd < 0) {
            continue;
        }
        const U64 Start = Sym->st_value & Mask;
        U64 End = static_cast<U64>(SecEnd) & Mask;
        if (End <= Start) {
            continue;
        }
        if (Next[k] && Next[k]->st_value < End) {
            End = Next[k]->st_value & Mask;
        }
        const U64 Size = End - Start;
        if (Size > SIZE_SANITY_LIMIT) {
            LogSanity(Sym->st_value);
        } else {
            Mutable(File, Sym).st_size = static_cast<U32>(Size);
        }
    }
}

bool IsHiddenName(const char* Name) {
    return Name[0] == '?' || Name[0] == '$';
}

bool IsLocalLabel(const char* Name) {
    return Name[0] == '$' || Name[0] == '?' || (Name[0] == '.' && Name[1] == 'L');
}

void BuildFunctionList(ELF_FILE* File) {
    File->Functions.clear();
    if (File->Symbols.empty()) {
        File->FuncCount = 0;
        return;
    }
    const ELF32_SYM* Kept = &File->Symbols[0];
    for (const ELF32_SYM* Sym : File->ByAddress) {
        if (!IsFunctionType(SymType(Sym)) || Sym->st_value < 2 ||
            IsHiddenName(StringAt(File, File->StrTabIndex, Sym->st_name))) {
            continue;
        }
        if (File->Functions.empty() || Sym->st_value != Kept->st_value) {
            File->Functions.push_back(Sym);
            Kept = Sym;
            continue;
        }
        // One name per address: the largest symbol, and among equal sizes the earliest in the table.
        if (Sym->st_size > Kept->st_size || (Sym->st_size == Kept->st_size && Sym < Kept)) {
            File->Functions.back() = Sym;
            Kept = Sym;
        }
    }
    File->FuncCount = static_cast<U32>(File->Functions.size());
}

/// Index of the last entry with st_value <= Key, or -1.
I64 LastAtOrBelow(const std::vector<const ELF32_SYM*>& List, U32 Key) {
    const auto It = std::upper_bound(List.begin(), List.end(), Key,
                                     [](U32 K, const ELF32_SYM* Sym) { return K < Sym->st_value; });
    return static_cast<I64>(It - List.begin()) - 1;
}

const ELF32_SYM* Sym(const ELF_FILE* File, U32 Index) {
    return ELF_IsValid(File) && Index < File->Symbols.size() ? &File->Symbols[Index] : nullptr;
}

} // namespace

namespace ElfInternal {

int ReadSymbols(ELF_FILE* File) {
    if (CopySymbols(File) < 0) {
        return -1;
    }
    File->ByAddress.clear();
    File->ByAddress.reserve(File->Symbols.size());
    for (const ELF32_SYM& S : File->Symbols) {
        File->ByAddress.push_back(&S);
    }
    // Stable, so that symbols at one address keep their table order.
    std::stable_sort(File->ByAddress.begin(), File->ByAddress.end(),
                     [](const ELF32_SYM* A, const ELF32_SYM* B) { return A->st_value < B->st_value; });
    FillObjectSizes(File);
    FillFunctionSizes(File);
    BuildFunctionList(File);
    return 0;
}

} // namespace ElfInternal

U32 ELF_GetSymCount(const ELF_FILE* File) {
    return ELF_IsValid(File) ? File->SymCount : 0;
}

const char* ELF_GetSymName(const ELF_FILE* File, U32 Index) {
    const ELF32_SYM* S = Sym(File, Index);
    return S ? StringAt(File, File->StrTabIndex, S->st_name) : "";
}

U32 ELF_GetSymValue(const ELF_FILE* File, U32 Index) {
    const ELF32_SYM* S = Sym(File, Index);
    return S ? S->st_value : 0;
}

U32 ELF_GetSymSize(const ELF_FILE* File, U32 Index) {
    const ELF32_SYM* S = Sym(File, Index);
    return S ? S->st_size : 0;
}

U32 ELF_GetSymType(const ELF_FILE* File, U32 Index) {
    const ELF32_SYM* S = Sym(File, Index);
    return S ? SymType(S) : 0;
}

U32 ELF_GetSymBinding(const ELF_FILE* File, U32 Index) {
    const ELF32_SYM* S = Sym(File, Index);
    return S ? static_cast<U32>(S->st_info >> 4) : 0;
}

U32 ELF_GetSymOther(const ELF_FILE* File, U32 Index) {
    const ELF32_SYM* S = Sym(File, Index);
    return S ? S->st_other : 0;
}

U32 ELF_GetSymSection(const ELF_FILE* File, U32 Index) {
    const ELF32_SYM* S = Sym(File, Index);
    return S ? S->st_shndx : 0;
}

I32 ELF_GetSymIndex(const ELF_FILE* File, const ELF32_SYM* Sym) {
    if (!ELF_IsValid(File) || !Sym || Sym < File->Symbols.data() ||
        Sym >= File->Symbols.data() + File->Symbols.size()) {
        return -1;
    }
    return static_cast<I32>(Sym - File->Symbols.data());
}

const char* ELF_GetSymRecordName(const ELF_FILE* File, const ELF32_SYM* Sym) {
    const I32 Index = ELF_GetSymIndex(File, Sym);
    return Index < 0 ? "" : ELF_GetSymName(File, static_cast<U32>(Index));
}

const ELF32_SYM* ELF_FindSymByName(const ELF_FILE* File, const char* Name) {
    if (!ELF_IsValid(File) || !Name) {
        return nullptr;
    }
    for (const ELF32_SYM& S : File->Symbols) {
        if (std::strcmp(StringAt(File, File->StrTabIndex, S.st_name), Name) == 0) {
            return &S;
        }
    }
    return nullptr;
}

const ELF32_SYM* ELF_GetFuncSymAt(const ELF_FILE* File, U32 Addr, bool Strict) {
    if (!ELF_IsValid(File)) {
        return nullptr;
    }
    const U32 Key = Addr | 1;
    const I64 Index = LastAtOrBelow(File->Functions, Key);
    if (Index < 0) {
        return nullptr;
    }
    const ELF32_SYM* F = File->Functions[static_cast<size_t>(Index)];
    const bool Covers = F->st_value <= Key && Key < RangeEnd(F->st_value, F->st_size);
    return Covers || !Strict ? F : nullptr;
}

const ELF32_SYM* ELF_GetSymOfTypeAt(const ELF_FILE* File, U32 Addr, bool Exact, I32 Type) {
    if (!ELF_IsValid(File) || File->ByAddress.empty()) {
        return nullptr;
    }
    const std::vector<const ELF32_SYM*>& List = File->ByAddress;
    const I64 Hit = LastAtOrBelow(List, Addr | 1);
    const auto Name = [File](const ELF32_SYM* S) { return StringAt(File, File->StrTabIndex, S->st_name); };
    const auto OfType = [Type](const ELF32_SYM* S) {
        return Type == -1 || SymType(S) == static_cast<U32>(Type);
    };
    if (!Exact) {
        for (I64 i = Hit; i >= 0; --i) {
            const ELF32_SYM* S = List[static_cast<size_t>(i)];
            if (OfType(S) && !IsLocalLabel(Name(S))) {
                return S;
            }
        }
        return nullptr;
    }
    // Function addresses carry the Thumb bit: they compare aligned down.
    const auto AtAddr = [Addr](const ELF32_SYM* S) {
        return IsFunctionType(SymType(S)) ? ELF_AlignInst(S->st_value) == ELF_AlignInst(Addr)
                                          : S->st_value == Addr;
    };
    std::vector<const ELF32_SYM*> Found;
    for (I64 i = Hit - 1;
         i >= 0 && Found.size() < EXACT_COLLECT_LIMIT && AtAddr(List[static_cast<size_t>(i)]); --i) {
        Found.push_back(List[static_cast<size_t>(i)]);
    }
    for (I64 i = std::max<I64>(Hit, 0);
         i < static_cast<I64>(List.size()) && Found.size() < EXACT_COLLECT_LIMIT &&
         AtAddr(List[static_cast<size_t>(i)]);
         ++i) {
        Found.push_back(List[static_cast<size_t>(i)]);
    }
    if (Type == STT_NOTYPE) {
        for (const ELF32_SYM* S : Found) {
            const char* N = Name(S);
            if (SymType(S) == STT_NOTYPE && (!*N || !IsLocalLabel(N))) {
                return S;
            }
        }
    }
    for (const ELF32_SYM* S : Found) {
        if (OfType(S)) {
            return S;
        }
    }
    return nullptr;
}

bool ELF_GetRelocationAt(const ELF_FILE* File, U32 Addr, ELF_RELOC_INFO& Info) {
    const I32 Target = ELF_FindSectionAt(File, Addr, -1);
    if (Target < 0) {
        return false;
    }
    const I32 RelIndex = ELF_FindSectionByInfo(File, static_cast<U32>(Target));
    if (RelIndex < 0) {
        return false;
    }
    const ELF32_SHDR& Sh = File->Sections[static_cast<size_t>(RelIndex)];
    const bool Rela = Sh.sh_type == SHT_RELA;
    if ((Sh.sh_type != SHT_REL && !Rela) || Sh.sh_entsize < (Rela ? 12u : 8u)) {
        return false;
    }
    const U8* Data = SectionData(File, static_cast<U32>(RelIndex));
    if (!Data) {
        return false;
    }
    // Entries are read in place, in the file's byte order.
    I64 Low = 0;
    I64 High = static_cast<I64>(Sh.sh_size / Sh.sh_entsize) - 1;
    while (Low <= High) {
        const I64 Mid = (Low + High) / 2;
        const U8* Entry = Data + static_cast<U64>(Mid) * Sh.sh_entsize;
        const U32 Offset = ReadRaw32(Entry);
        if (Offset < Addr) {
            Low = Mid + 1;
        } else if (Offset > Addr) {
            High = Mid - 1;
        } else {
            const U32 RInfo = ReadRaw32(Entry + 4);
            Info.SymIndex = RInfo >> 8;
            Info.Type = RInfo & 0xFF;
            Info.Addend = Rela ? static_cast<I32>(ReadRaw32(Entry + 8)) : 0;
            Info.SymName = QString::fromUtf8(ELF_GetSymName(File, Info.SymIndex));
            Info.SymValue = ELF_GetSymValue(File, Info.SymIndex);
            return true;
        }
    }
    return false;
}

U32 ELF_GetFuncCount(const ELF_FILE* File) {
    return ELF_IsValid(File) ? File->FuncCount : 0;
}

const ELF32_SYM* ELF_GetFunc(const ELF_FILE* File, U32 Index) {
    return ELF_IsValid(File) && Index < File->Functions.size() ? File->Functions[Index] : nullptr;
}

U32 ELF_GetMaxSymSize(const ELF_FILE* File, U32 Type) {
    if (!ELF_IsValid(File)) {
        return 0;
    }
    U32 Max = 0;
    for (const ELF32_SYM& S : File->Symbols) {
        const bool Match = Type == STT_FUNC ? IsFunctionType(SymType(&S)) : SymType(&S) == Type;
        if (Match && S.st_size > Max) {
            Max = S.st_size;
        }
    }
    return Max;
}
