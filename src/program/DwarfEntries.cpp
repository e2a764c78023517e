// Entries by key: the kept ones, and those read on demand through the file's consumer; attributes with
// inheritance over specifications, abstract origins and definitions.

#include "program/DwarfInternal.h"

#include <algorithm>

namespace DwarfInternal {
namespace {

constexpr U64 HANDLE_MARKER = 0xE0FE0Full << 40;
constexpr int INHERIT_DEPTH = 5;
/// Steps of the search for an entry's parent below a kept ancestor.
constexpr int MAX_PARENT_STEPS = 1000000;

Dwarf_Off DieOffset(Dwarf_Die D) {
    Dwarf_Off Off = 0;
    Dwarf_Error Err = nullptr;
    if (dwarf_dieoffset(D, &Off, &Err) != DW_DLV_OK) {
        DropError(nullptr, Err);
        return ~0ull;
    }
    return Off;
}

const ENTRY* Kept(const DEBUG_INFO* Info, U32 Key) {
    const auto It = std::lower_bound(Info->Entries.begin(), Info->Entries.end(), Key,
                                     [](const ENTRY& E, U32 K) { return E.Key < K; });
    return It != Info->Entries.end() && It->Key == Key ? &*It : nullptr;
}

/// The parent of an entry that was not kept: below the nearest kept entry that contains it, found by
/// walking down the siblings.
U32 FindParent(DEBUG_INFO* Info, U32 Key) {
    auto It = std::lower_bound(Info->Entries.begin(), Info->Entries.end(), Key,
                               [](const ENTRY& E, U32 K) { return E.Key < K; });
    if (It == Info->Entries.begin()) {
        return NO_KEY;
    }
    const ENTRY* A = &*(It - 1);
    for (int Guard = 0; A && !(A->Key < Key && Key <= A->Last) && Guard < 4096; ++Guard) {
        A = A->Parent == NO_KEY ? nullptr : Kept(Info, A->Parent);
    }
    if (!A) {
        return NO_KEY;
    }
    bool IsTypes = false;
    const U64 Target = OffsetOfKey(Info, Key, IsTypes);
    U32 Parent = A->Key;
    Dwarf_Debug Dbg = Info->Main->Dbg;
    Dwarf_Die Cur = OpenDie(Info, A->Key);
    Dwarf_Error Err = nullptr;
    Dwarf_Die Child = nullptr;
    if (!Cur) {
        return Parent;
    }
    if (dwarf_child(Cur, &Child, &Err) != DW_DLV_OK) {
        DropError(Dbg, Err);
        dwarf_dealloc_die(Cur);
        return Parent;
    }
    dwarf_dealloc_die(Cur);
    Cur = Child;
    for (int Step = 0; Cur && Step < MAX_PARENT_STEPS; ++Step) {
        const Dwarf_Off Off = DieOffset(Cur);
        if (Off == Target || Off > Target) {
            break;
        }
        Dwarf_Die Sib = nullptr;
        Err = nullptr;
        const int Res = dwarf_siblingof_b(Dbg, Cur, !IsTypes, &Sib, &Err);
        DropError(Dbg, Err);
        Err = nullptr;
        if (Res == DW_DLV_OK && DieOffset(Sib) <= Target && DieOffset(Sib) > Off) {
            dwarf_dealloc_die(Cur);
            Cur = Sib;
            continue;
        }
        if (Res == DW_DLV_OK) {
            dwarf_dealloc_die(Sib);
        }
        // The entry lies inside Cur's subtree.
        Parent = KeyOf(Info->InfoSize, Off, IsTypes);
        Child = nullptr;
        const int ChildRes = dwarf_child(Cur, &Child, &Err);
        DropError(Dbg, Err);
        Err = nullptr;
        dwarf_dealloc_die(Cur);
        Cur = ChildRes == DW_DLV_OK ? Child : nullptr;
    }
    if (Cur) {
        dwarf_dealloc_die(Cur);
    }
    return Parent;
}

} // namespace

DEBUG_INFO* InfoOf(const ELF_FILE* File) {
    return ELF_IsValid(File) && File->Loaded ? File->Debug : nullptr;
}

DEBUG_INFO* Decode(ELF_SYM_HANDLE Handle, U32& Key) {
    if (ELF_GetHandleKind(Handle) != ELF_SYM_KIND_DEBUG) {
        return nullptr;
    }
    DEBUG_INFO* Info = InfoOf(ELF_GetSlotFile(ELF_GetHandleSlot(Handle)));
    if (!Info) {
        return nullptr;
    }
    const U32 Offset = ELF_GetHandleOffset(Handle);
    if (ELF_IsTypesHandle(Handle)) {
        if (Offset >= Info->TypesSize) {
            return nullptr;
        }
        Key = Offset + Info->InfoSize;
    } else {
        if (Offset >= Info->InfoSize) {
            return nullptr;
        }
        Key = Offset;
    }
    return Info;
}

ELF_SYM_HANDLE HandleOf(const DEBUG_INFO* Info, U32 Key) {
    if (!Info || Key == NO_KEY) {
        return 0;
    }
    const int Slot = ELF_GetSlotIndex(Info->File);
    if (Key >= Info->InfoSize) {
        return ELF_MakeDebugHandle(Slot, Key - Info->InfoSize, true);
    }
    return ELF_MakeDebugHandle(Slot, Key, false);
}

U64 OffsetOfKey(const DEBUG_INFO* Info, U32 Key, bool& IsTypes) {
    IsTypes = Key >= Info->InfoSize;
    return IsTypes ? Key - Info->InfoSize : Key;
}

const UNIT* UnitOf(const DEBUG_INFO* Info, U32 Key) {
    auto It = std::upper_bound(Info->UnitKeys.begin(), Info->UnitKeys.end(), std::make_pair(Key, NO_KEY));
    if (It == Info->UnitKeys.begin()) {
        return nullptr;
    }
    const UNIT& U = Info->Units[(It - 1)->second];
    return Key < U.End ? &U : nullptr;
}

Dwarf_Die OpenDie(DEBUG_INFO* Info, U32 Key) {
    if (!Info->Main || Key == NO_KEY || !UnitOf(Info, Key)) {
        return nullptr;
    }
    bool IsTypes = false;
    const U64 Offset = OffsetOfKey(Info, Key, IsTypes);
    Dwarf_Die D = nullptr;
    Dwarf_Error Err = nullptr;
    const int Res = dwarf_offdie_b(Info->Main->Dbg, Offset, !IsTypes, &D, &Err);
    if (Res != DW_DLV_OK) {
        DropError(Info->Main->Dbg, Err);
        return nullptr;
    }
    return D;
}

U32 TypeKey(DEBUG_INFO* Info, const ENTRY* E) {
    U32 Key = NO_KEY;
    for (int Depth = 0; E && Depth < 5 && Key == NO_KEY; ++Depth) {
        Key = E->Type;
        const U32 Next = E->Origin != NO_KEY ? E->Origin : E->Spec;
        if (Next == E->Key) {
            break;
        }
        if (Key == NO_KEY) {
            E = Entry(Info, Next);
        }
    }
    const ENTRY* T = Entry(Info, Key);
    return T && (T->Flags & EF_SIGNATURE) && T->Type != Key ? T->Type : Key;
}

const ENTRY* Entry(DEBUG_INFO* Info, U32 Key) {
    if (!Info || Key == NO_KEY) {
        return nullptr;
    }
    if (const ENTRY* E = Kept(Info, Key)) {
        return E;
    }
    const auto It = Info->OnDemand.find(Key);
    if (It != Info->OnDemand.end()) {
        return It->second.Tag ? &It->second : nullptr;
    }
    // Read once; a key that names no entry is remembered as such (tag 0).
    Info->OnDemand[Key];
    Dwarf_Die D = OpenDie(Info, Key);
    if (!D) {
        return nullptr;
    }
    Dwarf_Half Tag = 0;
    Dwarf_Error Err = nullptr;
    if (dwarf_tag(D, &Tag, &Err) != DW_DLV_OK || Tag == 0) {
        DropError(Info->Main->Dbg, Err);
        dwarf_dealloc_die(D);
        return nullptr;
    }
    const UNIT* U = UnitOf(Info, Key);
    const U32 UnitIndex = static_cast<U32>(U - Info->Units.data());
    UNIT UnitCopy = *U;
    std::unordered_set<U64> NoSets;
    WALK_CONTEXT C{Info->File, Info->InfoSize, Info->TypesSize, &Info->Signatures, &NoSets, nullptr};
    ENTRY Read;
    Read.Key = Key;
    Read.Tag = Tag;
    Read.Last = Key;
    Read.Unit = UnitIndex;
    Dwarf_Half Children = 0;
    if (dwarf_die_abbrev_children_flag(D, &Children) == DW_DLV_OK && Children) {
        Read.Flags |= EF_CHILDREN;
    }
    if (U->IsTypes) {
        Read.Flags |= EF_TYPES;
    }
    std::vector<ELF_ERROR_RECORD> Errors;
    std::vector<RANGE> Ranges;
    ReadEntryAttributes(Info->Main.get(), C, UnitCopy, D, Read, &Ranges, Errors, Info->Arena);
    dwarf_dealloc_die(D);
    for (const ELF_ERROR_RECORD& R : Errors) {
        Report(Info, R);
    }
    Read.RangeFirst = static_cast<U32>(Info->Ranges.size());
    Info->Ranges.insert(Info->Ranges.end(), Ranges.begin(), Ranges.end());
    Read.Parent = FindParent(Info, Key);
    Info->OnDemand[Key] = Read;
    return &Info->OnDemand[Key];
}

bool FindAttr(DEBUG_INFO* Info, U32 Key, Dwarf_Half Attribute, ATTR& Out, bool Inherit) {
    U32 Cur = Key;
    bool Own = true; ///< whether the next entry may pass the search on
    for (int Depth = 0; Depth <= INHERIT_DEPTH && Cur != NO_KEY; ++Depth) {
        Dwarf_Die D = OpenDie(Info, Cur);
        if (!D) {
            return false;
        }
        Dwarf_Attribute A = nullptr;
        Dwarf_Error Err = nullptr;
        const int Res = dwarf_attr(D, Attribute, &A, &Err);
        if (Res == DW_DLV_OK) {
            Out.Die = D;
            Out.Attr = A;
            Out.Key = Cur;
            return true;
        }
        DropError(Info->Main->Dbg, Err);
        dwarf_dealloc_die(D);
        if (!Inherit || !Own || Attribute == DW_AT_specification || Attribute == DW_AT_abstract_origin ||
            Attribute == DW_AT_declaration || Attribute == DW_AT_extension) {
            return false;
        }
        const ENTRY* E = Entry(Info, Cur);
        if (!E) {
            return false;
        }
        U32 Next = NO_KEY;
        if (E->Tag == DW_TAG_namespace) {
            for (U32 X : Info->Lists[ELF_LIST_NAMESPACE_EXTENSIONS]) {
                const ENTRY* XE = Entry(Info, X);
                if (XE && XE->Extension == Cur) {
                    Next = X;
                    break;
                }
            }
        } else if (E->Spec != NO_KEY) {
            Next = E->Spec;
            Own = false;
        } else if (E->Origin != NO_KEY) {
            Next = E->Origin;
        } else {
            Next = DefinitionOf(Info, Cur);
            Own = false;
        }
        if (Next == Cur) {
            return false;
        }
        Cur = Next;
    }
    return false;
}

void FreeAttr(DEBUG_INFO* Info, ATTR& A) {
    Q_UNUSED(Info);
    if (A.Attr) {
        dwarf_dealloc_attribute(A.Attr);
    }
    if (A.Die) {
        dwarf_dealloc_die(A.Die);
    }
    A = ATTR();
}

bool AttrUnsigned(DEBUG_INFO* Info, const ATTR& A, U64& Value) {
    Dwarf_Error Err = nullptr;
    Dwarf_Unsigned U = 0;
    if (dwarf_formudata(A.Attr, &U, &Err) == DW_DLV_OK) {
        Value = U;
        return true;
    }
    DropError(Info->Main->Dbg, Err);
    Err = nullptr;
    Dwarf_Signed S = 0;
    if (dwarf_formsdata(A.Attr, &S, &Err) == DW_DLV_OK) {
        Value = static_cast<U64>(S);
        return true;
    }
    DropError(Info->Main->Dbg, Err);
    Err = nullptr;
    Dwarf_Bool B = 0;
    if (dwarf_formflag(A.Attr, &B, &Err) == DW_DLV_OK) {
        Value = B ? 1 : 0;
        return true;
    }
    DropError(Info->Main->Dbg, Err);
    return false;
}

bool AttrSigned(DEBUG_INFO* Info, const ATTR& A, I64& Value) {
    Dwarf_Error Err = nullptr;
    Dwarf_Signed S = 0;
    Dwarf_Half Form = 0;
    dwarf_whatform(A.Attr, &Form, &Err);
    DropError(Info->Main->Dbg, Err);
    Err = nullptr;
    // Data forms without a sign are read as unsigned, so that 0xFFFFFFFF in data4 stays positive.
    if (Form == DW_FORM_sdata || Form == DW_FORM_implicit_const) {
        if (dwarf_formsdata(A.Attr, &S, &Err) == DW_DLV_OK) {
            Value = S;
            return true;
        }
        DropError(Info->Main->Dbg, Err);
        return false;
    }
    U64 U = 0;
    if (AttrUnsigned(Info, A, U)) {
        Value = static_cast<I64>(U);
        return true;
    }
    return false;
}

U32 DefinitionOf(DEBUG_INFO* Info, U32 Key) {
    const ENTRY* E = Entry(Info, Key);
    if (!E) {
        return NO_KEY;
    }
    const bool Complete = !(E->Flags & EF_DECLARATION) && (E->Flags & EF_BYTE_SIZE);
    if (Complete) {
        return NO_KEY;
    }
    const auto It = Info->Definitions.find(Key);
    if (It != Info->Definitions.end() && It->second != Key) {
        return It->second;
    }
    if (!E->Name || !(E->Flags & EF_DECLARATION)) {
        return NO_KEY;
    }
    const U16 Tag = E->Tag;
    const auto Named = Info->NameIndex.find(Djb2(E->Name));
    if (Named == Info->NameIndex.end() || Named->second == Key) {
        return NO_KEY;
    }
    // Only an entry of the same kind completes a declaration (a struct is not defined by a function).
    const ENTRY* D = Entry(Info, Named->second);
    return D && D->Tag == Tag ? Named->second : NO_KEY;
}

std::pair<const LINK*, const LINK*> LinksOf(const DEBUG_INFO* Info, U32 Owner, U32 Kind) {
    const LINK Probe{Owner, Kind, 0};
    const auto Less = [](const LINK& A, const LINK& B) {
        return A.Owner != B.Owner ? A.Owner < B.Owner : A.Kind < B.Kind;
    };
    const auto Range = std::equal_range(Info->Links.begin(), Info->Links.end(), Probe, Less);
    return {Info->Links.data() + (Range.first - Info->Links.begin()),
            Info->Links.data() + (Range.second - Info->Links.begin())};
}

} // namespace DwarfInternal

using namespace DwarfInternal;

ELF_SYM_HANDLE ELF_MakeDebugHandle(int Slot, U32 Offset, bool InTypes) {
    if (Slot < 0 || Slot >= ELF_SLOT_COUNT) {
        return 0;
    }
    return HANDLE_MARKER | (static_cast<U64>(Slot) << 35) | (1ull << 32) | (InTypes ? 0x80000000ull : 0) |
           (Offset & 0x7FFFFFFF);
}

ELF_SYM_HANDLE ELF_MakeElfSymHandle(int Slot, U32 Index) {
    if (Slot < 0 || Slot >= ELF_SLOT_COUNT) {
        return 0;
    }
    return HANDLE_MARKER | (static_cast<U64>(Slot) << 35) | (2ull << 32) | (Index & 0x7FFFFFFF);
}

int ELF_GetHandleKind(ELF_SYM_HANDLE Handle) {
    if ((Handle >> 40) != 0xE0FE0F) {
        return 0;
    }
    const int Kind = static_cast<int>((Handle >> 32) & 7);
    return Kind == 1 || Kind == 2 ? Kind : 0;
}

int ELF_GetHandleSlot(ELF_SYM_HANDLE Handle) {
    return static_cast<int>((Handle >> 35) & 7);
}

U32 ELF_GetHandleOffset(ELF_SYM_HANDLE Handle) {
    return static_cast<U32>(Handle & 0x7FFFFFFF);
}

bool ELF_IsTypesHandle(ELF_SYM_HANDLE Handle) {
    return ELF_GetHandleKind(Handle) == 1 && (Handle & 0x80000000ull);
}

ELF_FILE* ELF_GetHandleFile(ELF_SYM_HANDLE Handle) {
    if (!ELF_GetHandleKind(Handle)) {
        return nullptr;
    }
    ELF_FILE* F = ELF_GetSlotFile(ELF_GetHandleSlot(Handle));
    return ELF_IsValid(F) && F->Loaded ? F : nullptr;
}
