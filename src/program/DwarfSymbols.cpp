// Accessors by symbol handle: names, tags, ranges, scopes, children lists and the attributes that the
// symbol store and the data views ask for.

#include "program/DwarfInternal.h"

#include <QString>

#include <algorithm>
#include <functional>

using namespace DwarfInternal;

namespace {

constexpr int NAME_DEPTH = 5;
constexpr size_t SCOPE_LEVELS = 64;
constexpr int ANCESTOR_DEPTH = 1000;
constexpr U32 STT_FILE_TYPE = 4;

char g_Name[512];

const char* ToBuffer(const char* Text) {
    std::strncpy(g_Name, Text ? Text : "", sizeof g_Name - 1);
    g_Name[sizeof g_Name - 1] = 0;
    return g_Name;
}

ELF_FILE* ElfFileOf(ELF_SYM_HANDLE Handle, U32& Index) {
    if (ELF_GetHandleKind(Handle) != ELF_SYM_KIND_ELF) {
        return nullptr;
    }
    ELF_FILE* F = ELF_GetHandleFile(Handle);
    Index = ELF_GetHandleOffset(Handle);
    return F && Index < F->Symbols.size() ? F : nullptr;
}

/// The name of an entry with its fall-backs: own, abstract origin, DW_AT_specification, definition.
const char* NameOf(DEBUG_INFO* Info, U32 Key, int Depth) {
    const ENTRY* E = Entry(Info, Key);
    if (!E || Depth > NAME_DEPTH) {
        return nullptr;
    }
    if (E->Name) {
        return E->Name;
    }
    for (U32 Link : {E->Origin, E->Spec}) {
        if (Link != NO_KEY && Link != Key) {
            if (const char* N = NameOf(Info, Link, Depth + 1)) {
                return N;
            }
        }
    }
    const U32 Def = DefinitionOf(Info, Key);
    if (Def != NO_KEY && Def != Key) {
        const ENTRY* D = Entry(Info, Def);
        return D ? D->Name : nullptr;
    }
    return nullptr;
}

void RangesOf(DEBUG_INFO* Info, U32 Key, const RANGE*& First, U32& Count) {
    First = nullptr;
    Count = 0;
    const ENTRY* E = Entry(Info, Key);
    if (!E) {
        return;
    }
    if (E->Flags & EF_RANGES_READ) {
        First = Info->Ranges.data() + E->RangeFirst;
        Count = E->RangeCount;
        return;
    }
    // Kept without its ranges (a block, a variable): read once from the entry itself.
    ENTRY Fresh;
    Fresh.Tag = E->Tag;
    Dwarf_Die D = OpenDie(Info, Key);
    if (!D) {
        return;
    }
    UNIT U = *UnitOf(Info, Key);
    std::unordered_set<U64> NoSets;
    WALK_CONTEXT C{Info->File, Info->InfoSize, Info->TypesSize, &Info->Signatures, &NoSets, nullptr};
    std::vector<ELF_ERROR_RECORD> Errors;
    std::vector<RANGE> Ranges;
    ReadEntryAttributes(Info->Main.get(), C, U, D, Fresh, &Ranges, Errors, Info->Arena);
    dwarf_dealloc_die(D);
    ENTRY* Mutable = const_cast<ENTRY*>(E);
    Mutable->RangeFirst = static_cast<U32>(Info->Ranges.size());
    Mutable->RangeCount = static_cast<U32>(Ranges.size());
    Mutable->Flags |= EF_RANGES_READ;
    Info->Ranges.insert(Info->Ranges.end(), Ranges.begin(), Ranges.end());
    First = Info->Ranges.data() + E->RangeFirst;
    Count = E->RangeCount;
}

/// Longest scope chain of Key, innermost first, memoised; cycles end the chain.
const std::vector<U32>& ScopeChain(DEBUG_INFO* Info, U32 Key, std::unordered_map<U32, std::vector<U32>>& Memo,
                                   std::unordered_set<U32>& Open) {
    static const std::vector<U32> Empty;
    const auto Found = Memo.find(Key);
    if (Found != Memo.end()) {
        return Found->second;
    }
    if (!Open.insert(Key).second || Open.size() > SCOPE_LEVELS * 4) {
        return Empty;
    }
    std::vector<U32> Best;
    const ENTRY* E = Entry(Info, Key);
    if (E) {
        const U32 Spec = E->Spec, Origin = E->Origin, Parent = E->Parent;
        for (U32 Link : {Spec, Origin}) {
            if (Link != NO_KEY && Link != Key) {
                const std::vector<U32>& C = ScopeChain(Info, Link, Memo, Open);
                if (C.size() > Best.size()) {
                    Best = C;
                }
            }
        }
        if (Parent != NO_KEY) {
            const std::vector<U32>& C = ScopeChain(Info, Parent, Memo, Open);
            if (C.size() + 1 > Best.size()) {
                Best.assign(1, Parent);
                Best.insert(Best.end(), C.begin(), C.end());
            }
        }
    }
    if (Best.size() > SCOPE_LEVELS) {
        Best.resize(SCOPE_LEVELS);
    }
    Open.erase(Key);
    return Memo[Key] = std::move(Best);
}

/// The owner whose lists a container's accessors read: a declared container reads its definition's.
U32 ListOwner(DEBUG_INFO* Info, U32 Key, U32 Kind) {
    if (Kind != LINK_LOCAL) {
        const U32 Def = DefinitionOf(Info, Key);
        if (Def != NO_KEY) {
            return Def;
        }
    }
    return Key;
}

U32 LinkCount(ELF_SYM_HANDLE Handle, U32 Kind) {
    U32 Key = 0;
    DEBUG_INFO* Info = Decode(Handle, Key);
    if (!Info) {
        return 0;
    }
    const auto [B, E] = LinksOf(Info, ListOwner(Info, Key, Kind), Kind);
    return static_cast<U32>(E - B);
}

ELF_SYM_HANDLE LinkItem(ELF_SYM_HANDLE Handle, U32 Kind, U32 Index) {
    U32 Key = 0;
    DEBUG_INFO* Info = Decode(Handle, Key);
    if (!Info) {
        return 0;
    }
    const auto [B, E] = LinksOf(Info, ListOwner(Info, Key, Kind), Kind);
    if (Index >= static_cast<U32>(E - B)) {
        return 0;
    }
    U32 Child = B[Index].Child;
    // A member function declared in its class stands for its definition when there is one.
    if (Kind == LINK_MEMBER) {
        const auto It = Info->Definitions.find(Child);
        if (It != Info->Definitions.end()) {
            Child = It->second;
        }
    }
    return HandleOf(Info, Child);
}

U32 RefAttr(DEBUG_INFO* Info, U32 Key, Dwarf_Half Attribute) {
    ATTR A;
    if (!FindAttr(Info, Key, Attribute, A)) {
        return NO_KEY;
    }
    Dwarf_Off Off = 0;
    Dwarf_Error Err = nullptr;
    U32 Result = NO_KEY;
    if (dwarf_global_formref(A.Attr, &Off, &Err) == DW_DLV_OK) {
        const UNIT* U = UnitOf(Info, A.Key);
        Dwarf_Half Form = 0;
        dwarf_whatform(A.Attr, &Form, &Err);
        const bool Types = U && U->IsTypes && Form != DW_FORM_ref_addr;
        if (Off < (Types ? Info->TypesSize : Info->InfoSize)) {
            Result = KeyOf(Info->InfoSize, Off, Types);
        }
    }
    DropError(Info->Main->Dbg, Err);
    FreeAttr(Info, A);
    return Result;
}

bool HasAncestorTag(DEBUG_INFO* Info, U32 Key, const std::vector<U32>& Tags, U32& Found) {
    std::vector<std::pair<U32, int>> Todo{{Key, 0}};
    std::unordered_set<U32> Seen{Key};
    while (!Todo.empty()) {
        const auto [K, Depth] = Todo.back();
        Todo.pop_back();
        if (Depth > ANCESTOR_DEPTH) {
            Report(Info, ReaderError(ELF_ERR_RECURSION, QString()));
            return false;
        }
        const ENTRY* E = Entry(Info, K);
        if (!E) {
            continue;
        }
        if (K != Key && std::find(Tags.begin(), Tags.end(), E->Tag) != Tags.end()) {
            Found = K;
            return true;
        }
        for (U32 Link : {E->Origin, E->Spec, E->Parent}) {
            if (Link != NO_KEY && Seen.insert(Link).second) {
                Todo.push_back({Link, Depth + 1});
            }
        }
    }
    return false;
}

} // namespace

const char* ELF_GetSymName(ELF_SYM_HANDLE Handle) {
    U32 Index = 0;
    if (ELF_FILE* F = ElfFileOf(Handle, Index)) {
        return ToBuffer(ELF_GetSymName(F, Index));
    }
    U32 Key = 0;
    DEBUG_INFO* Info = Decode(Handle, Key);
    if (!Info) {
        return ToBuffer("");
    }
    const char* Name = NameOf(Info, Key, 0);
    const ENTRY* E = Entry(Info, Key);
    if (Name && E && E->Tag == DW_TAG_base_type) {
        return ToBuffer(ELF_NormaliseBaseTypeName(Name).c_str());
    }
    return ToBuffer(Name);
}

U32 ELF_GetSymTag(ELF_SYM_HANDLE Handle) {
    U32 Index = 0;
    if (ELF_FILE* F = ElfFileOf(Handle, Index)) {
        return F->Symbols[Index].st_info & 0xF;
    }
    U32 Key = 0;
    DEBUG_INFO* Info = Decode(Handle, Key);
    const ENTRY* E = Info ? Entry(Info, Key) : nullptr;
    return E ? E->Tag : ELF_INVALID_TAG;
}

U32 ELF_GetSymRangeCount(ELF_SYM_HANDLE Handle) {
    U32 Index = 0;
    if (ElfFileOf(Handle, Index)) {
        return 1;
    }
    U32 Key = 0;
    DEBUG_INFO* Info = Decode(Handle, Key);
    if (!Info) {
        return 0;
    }
    const RANGE* First = nullptr;
    U32 Count = 0;
    RangesOf(Info, Key, First, Count);
    return Count;
}

namespace {
U64 RangeEdge(ELF_SYM_HANDLE Handle, U32 I, bool High) {
    U32 Index = 0;
    if (ELF_FILE* F = ElfFileOf(Handle, Index)) {
        const ELF32_SYM& S = F->Symbols[Index];
        return I == 0 ? (High ? static_cast<U64>(S.st_value) + S.st_size : S.st_value) : 0;
    }
    U32 Key = 0;
    DEBUG_INFO* Info = Decode(Handle, Key);
    if (!Info) {
        return 0;
    }
    const RANGE* First = nullptr;
    U32 Count = 0;
    RangesOf(Info, Key, First, Count);
    return I < Count ? (High ? First[I].High : First[I].Low) : 0;
}
} // namespace

U64 ELF_GetSymLowPC(ELF_SYM_HANDLE Handle, U32 Index) {
    return RangeEdge(Handle, Index, false);
}

U64 ELF_GetSymHighPC(ELF_SYM_HANDLE Handle, U32 Index) {
    return RangeEdge(Handle, Index, true);
}

I32 ELF_GetSymSection(ELF_SYM_HANDLE Handle) {
    U32 Index = 0;
    if (ELF_FILE* F = ElfFileOf(Handle, Index)) {
        return F->Symbols[Index].st_shndx;
    }
    U32 Key = 0;
    DEBUG_INFO* Info = Decode(Handle, Key);
    if (!Info) {
        return -1;
    }
    return Key >= Info->InfoSize ? Info->TypesSection : Info->InfoSection;
}

ELF_SYM_HANDLE ELF_GetSymParent(ELF_SYM_HANDLE Handle) {
    U32 Index = 0;
    if (ELF_FILE* F = ElfFileOf(Handle, Index)) {
        const int Slot = ELF_GetSlotIndex(F);
        I64 Before = -1;
        for (I64 i = Index; i >= 0; --i) {
            if ((F->Symbols[static_cast<size_t>(i)].st_info & 0xF) == STT_FILE_TYPE) {
                Before = i;
                break;
            }
        }
        if (Before < 0) {
            return 0;
        }
        for (size_t i = Index; i < F->Symbols.size(); ++i) {
            if ((F->Symbols[i].st_info & 0xF) == STT_FILE_TYPE) {
                return ELF_MakeElfSymHandle(Slot, static_cast<U32>(Before));
            }
        }
        return 0;
    }
    U32 Key = 0;
    DEBUG_INFO* Info = Decode(Handle, Key);
    const UNIT* U = Info ? UnitOf(Info, Key) : nullptr;
    return U ? HandleOf(Info, U->Key) : 0;
}

ELF_SYM_HANDLE ELF_GetSymContainer(ELF_SYM_HANDLE Handle) {
    U32 Key = 0;
    DEBUG_INFO* Info = Decode(Handle, Key);
    const ENTRY* E = Info ? Entry(Info, Key) : nullptr;
    return E ? HandleOf(Info, E->Parent) : 0;
}

ELF_SYM_LIST ELF_GetSymScopes(ELF_SYM_HANDLE Handle) {
    U32 Key = 0;
    DEBUG_INFO* Info = Decode(Handle, Key);
    ELF_SYM_LIST Out;
    if (!Info) {
        return Out;
    }
    std::unordered_map<U32, std::vector<U32>> Memo;
    std::unordered_set<U32> Open;
    for (U32 K : ScopeChain(Info, Key, Memo, Open)) {
        Out.push_back(HandleOf(Info, K));
    }
    return Out;
}

ELF_SYM_HANDLE ELF_GetSymAncestor(ELF_SYM_HANDLE Handle, const std::vector<U32>& Tags) {
    U32 Key = 0;
    DEBUG_INFO* Info = Decode(Handle, Key);
    U32 Found = NO_KEY;
    return Info && HasAncestorTag(Info, Key, Tags, Found) ? HandleOf(Info, Found) : 0;
}

ELF_SYM_HANDLE ELF_GetSymAbstractOrigin(ELF_SYM_HANDLE Handle) {
    U32 Key = 0;
    DEBUG_INFO* Info = Decode(Handle, Key);
    const ENTRY* E = Info ? Entry(Info, Key) : nullptr;
    return E ? HandleOf(Info, E->Origin) : 0;
}

ELF_SYM_HANDLE ELF_GetSymSpecification(ELF_SYM_HANDLE Handle) {
    U32 Key = 0;
    DEBUG_INFO* Info = Decode(Handle, Key);
    const ENTRY* E = Info ? Entry(Info, Key) : nullptr;
    return E ? HandleOf(Info, E->Spec) : 0;
}

ELF_SYM_HANDLE ELF_GetSymDefinition(ELF_SYM_HANDLE Handle) {
    U32 Key = 0;
    DEBUG_INFO* Info = Decode(Handle, Key);
    if (!Info) {
        return 0;
    }
    const auto It = Info->Definitions.find(Key);
    if (It != Info->Definitions.end()) {
        return HandleOf(Info, It->second);
    }
    return HandleOf(Info, DefinitionOf(Info, Key));
}

ELF_SYM_HANDLE ELF_GetSymObjectPointer(ELF_SYM_HANDLE Handle) {
    U32 Key = 0;
    DEBUG_INFO* Info = Decode(Handle, Key);
    return Info ? HandleOf(Info, RefAttr(Info, Key, DW_AT_object_pointer)) : 0;
}

U32 ELF_GetSymLocalCount(ELF_SYM_HANDLE Handle) {
    return LinkCount(Handle, LINK_LOCAL);
}
ELF_SYM_HANDLE ELF_GetSymLocal(ELF_SYM_HANDLE Handle, U32 Index) {
    return LinkItem(Handle, LINK_LOCAL, Index);
}
U32 ELF_GetSymMemberCount(ELF_SYM_HANDLE Handle) {
    return LinkCount(Handle, LINK_MEMBER);
}
ELF_SYM_HANDLE ELF_GetSymMember(ELF_SYM_HANDLE Handle, U32 Index) {
    return LinkItem(Handle, LINK_MEMBER, Index);
}
U32 ELF_GetSymBaseClassCount(ELF_SYM_HANDLE Handle) {
    return LinkCount(Handle, LINK_BASE);
}
ELF_SYM_HANDLE ELF_GetSymBaseClass(ELF_SYM_HANDLE Handle, U32 Index) {
    return LinkItem(Handle, LINK_BASE, Index);
}

I32 ELF_GetMemberIndex(ELF_SYM_HANDLE Container, const char* Name) {
    if (!Name) {
        return -1;
    }
    const U32 Count = ELF_GetSymMemberCount(Container);
    for (U32 i = 0; i < Count; ++i) {
        if (std::strcmp(ELF_GetSymName(ELF_GetSymMember(Container, i)), Name) == 0) {
            return static_cast<I32>(i);
        }
    }
    return -1;
}

U64 ELF_GetSymAttrValue(ELF_SYM_HANDLE Handle, U32 Attribute, U64 Default) {
    U32 Key = 0;
    DEBUG_INFO* Info = Decode(Handle, Key);
    ATTR A;
    if (!Info || !FindAttr(Info, Key, static_cast<Dwarf_Half>(Attribute), A)) {
        return Default;
    }
    U64 V = Default;
    if (!AttrUnsigned(Info, A, V)) {
        V = Default;
    }
    FreeAttr(Info, A);
    return V;
}

bool ELF_HasSymAttr(ELF_SYM_HANDLE Handle, U32 Attribute) {
    U32 Key = 0;
    DEBUG_INFO* Info = Decode(Handle, Key);
    ATTR A;
    if (!Info || !FindAttr(Info, Key, static_cast<Dwarf_Half>(Attribute), A)) {
        return false;
    }
    FreeAttr(Info, A);
    return true;
}

int ELF_GetSymAccess(ELF_SYM_HANDLE Handle) {
    U32 Key = 0;
    DEBUG_INFO* Info = Decode(Handle, Key);
    const ENTRY* E = Info ? Entry(Info, Key) : nullptr;
    if (!E) {
        return 0;
    }
    const U64 Access = ELF_GetSymAttrValue(Handle, DW_AT_accessibility, 0);
    if (Access >= 1 && Access <= 3) {
        return static_cast<int>(Access);
    }
    const ENTRY* P = Entry(Info, E->Parent);
    if (!P) {
        return 0;
    }
    if (P->Tag == DW_TAG_structure_type || P->Tag == DW_TAG_union_type) {
        return 1;
    }
    return P->Tag == DW_TAG_class_type ? 3 : 0;
}

int ELF_GetSymVirtuality(ELF_SYM_HANDLE Handle) {
    return static_cast<int>(ELF_GetSymAttrValue(Handle, DW_AT_virtuality, 0) & 3);
}

bool ELF_IsSymLocal(ELF_SYM_HANDLE Handle) {
    return ELF_GetSymAncestor(Handle, {DW_TAG_subprogram, DW_TAG_inlined_subroutine}) != 0;
}

bool ELF_IsSymStatic(ELF_SYM_HANDLE Handle) {
    U32 Key = 0;
    DEBUG_INFO* Info = Decode(Handle, Key);
    const ENTRY* E = Info ? Entry(Info, Key) : nullptr;
    if (!E) {
        return false;
    }
    if (ELF_IsSymLocal(Handle)) {
        return (E->Flags & EF_FIXED_ADDR) != 0;
    }
    switch (E->Tag) {
    case DW_TAG_subprogram:
    case DW_TAG_inlined_subroutine:
    case DW_TAG_subroutine_type:
        return !ELF_HasSymAttr(Handle, DW_AT_object_pointer);
    case DW_TAG_member:
    case DW_TAG_enumerator:
        return ELF_HasSymAttr(Handle, DW_AT_external);
    default:
        return false;
    }
}

const char* ELF_GetSymDeclFile(ELF_SYM_HANDLE Handle, U32 Attribute) {
    U32 Key = 0;
    DEBUG_INFO* Info = Decode(Handle, Key);
    ATTR A;
    if (!Info || !FindAttr(Info, Key, static_cast<Dwarf_Half>(Attribute), A)) {
        return "";
    }
    U64 Number = 0;
    const bool Ok = AttrUnsigned(Info, A, Number);
    const UNIT* U = UnitOf(Info, A.Key);
    FreeAttr(Info, A);
    if (!Ok || !U || Number < U->FileBase || Number - U->FileBase >= U->Files.size()) {
        return "";
    }
    const U32 File = U->Files[Number - U->FileBase];
    return File < Info->SourceFiles.size() ? Info->SourceFiles[File] : "";
}

U32 ELF_GetSymDeclLine(ELF_SYM_HANDLE Handle, U32 FileAttribute) {
    const U32 LineAttribute = FileAttribute == DW_AT_call_file ? DW_AT_call_line : DW_AT_decl_line;
    return static_cast<U32>(ELF_GetSymAttrValue(Handle, LineAttribute, 0));
}

U32 ELF_GetSymBitSize(ELF_SYM_HANDLE Handle) {
    return static_cast<U32>(ELF_GetSymAttrValue(Handle, DW_AT_bit_size, 0));
}

U32 ELF_GetSymBitOffset(ELF_SYM_HANDLE Handle) {
    if (ELF_HasSymAttr(Handle, DW_AT_data_bit_offset)) {
        return static_cast<U32>(ELF_GetSymAttrValue(Handle, DW_AT_data_bit_offset, 0));
    }
    if (!ELF_HasSymAttr(Handle, DW_AT_bit_offset)) {
        return 0;
    }
    const U64 O = ELF_GetSymAttrValue(Handle, DW_AT_bit_offset, 0);
    if (!ELF_HasSymAttr(Handle, DW_AT_bit_size)) {
        return static_cast<U32>(O);
    }
    const U64 B = ELF_GetSymAttrValue(Handle, DW_AT_bit_size, 0);
    U64 Size = ELF_GetSymAttrValue(Handle, DW_AT_byte_size, 0);
    if (Size == 0) {
        Size = B / 8;
    }
    if (Size == 0) {
        Size = ELF_GetSymByteSize(ELF_GetSymContainer(Handle));
    }
    return static_cast<U32>(Size * 8 >= B + O ? Size * 8 - B - O : 32 - B - O);
}

QString ELF_GetSymStringAttr(ELF_SYM_HANDLE Handle, U32 Attribute) {
    U32 Key = 0;
    DEBUG_INFO* Info = Decode(Handle, Key);
    ATTR A;
    if (!Info || !FindAttr(Info, Key, static_cast<Dwarf_Half>(Attribute), A)) {
        return QString();
    }
    QString Text;
    char* S = nullptr;
    Dwarf_Error Err = nullptr;
    if (dwarf_formstring(A.Attr, &S, &Err) == DW_DLV_OK) {
        Text = QString::fromUtf8(S);
    } else {
        DropError(Info->Main->Dbg, Err);
    }
    FreeAttr(Info, A);
    return Text;
}

bool ELF_GetSymConstValue(ELF_SYM_HANDLE Handle, std::vector<U8>& Bytes) {
    Bytes.clear();
    U32 Key = 0;
    DEBUG_INFO* Info = Decode(Handle, Key);
    ATTR A;
    if (!Info || !FindAttr(Info, Key, DW_AT_const_value, A)) {
        return false;
    }
    Dwarf_Half Form = 0;
    Dwarf_Error Err = nullptr;
    dwarf_whatform(A.Attr, &Form, &Err);
    DropError(Info->Main->Dbg, Err);
    Err = nullptr;
    bool Ok = false;
    if (Form == DW_FORM_block1 || Form == DW_FORM_block2 || Form == DW_FORM_block4 || Form == DW_FORM_block ||
        Form == DW_FORM_exprloc) {
        Dwarf_Block* B = nullptr;
        if (dwarf_formblock(A.Attr, &B, &Err) == DW_DLV_OK) {
            if (B->bl_len >= 10000001) {
                Report(Info, ReaderError(ELF_ERR_CONST_VALUE_SIZE, QString()));
            } else {
                const U8* P = static_cast<const U8*>(B->bl_data);
                Bytes.assign(P, P + B->bl_len);
                Ok = true;
            }
            dwarf_dealloc(Info->Main->Dbg, B, DW_DLA_BLOCK);
        } else {
            DropError(Info->Main->Dbg, Err);
        }
    } else if (Form == DW_FORM_string || Form == DW_FORM_strp || Form == DW_FORM_line_strp ||
               Form == DW_FORM_strx || Form == DW_FORM_strx1 || Form == DW_FORM_strx2 ||
               Form == DW_FORM_strx4) {
        char* S = nullptr;
        if (dwarf_formstring(A.Attr, &S, &Err) == DW_DLV_OK) {
            Bytes.assign(S, S + std::strlen(S) + 1);
            Ok = true;
        } else {
            DropError(Info->Main->Dbg, Err);
        }
    } else {
        I64 V = 0;
        if (AttrSigned(Info, A, V)) {
            const bool BigEndian = Info->File->Header.e_ident[5] == ElfFormat::ELFDATA2MSB;
            const int Size = Form == DW_FORM_data1   ? 1
                             : Form == DW_FORM_data2 ? 2
                             : Form == DW_FORM_data4 ? 4
                                                     : 8;
            for (int i = 0; i < Size; ++i) {
                const int Shift = 8 * (BigEndian ? Size - 1 - i : i);
                Bytes.push_back(static_cast<U8>(static_cast<U64>(V) >> Shift));
            }
            Ok = true;
        }
    }
    FreeAttr(Info, A);
    return Ok;
}

U32 ELF_GetSymListCount(const ELF_FILE* File, int List) {
    const DEBUG_INFO* Info = InfoOf(File);
    return Info && List >= 0 && List < ELF_LIST_COUNT ? static_cast<U32>(Info->Lists[List].size()) : 0;
}

ELF_SYM_HANDLE ELF_GetSymListItem(const ELF_FILE* File, int List, U32 Index) {
    const DEBUG_INFO* Info = InfoOf(File);
    if (!Info || List < 0 || List >= ELF_LIST_COUNT || Index >= Info->Lists[List].size()) {
        return 0;
    }
    return HandleOf(Info, Info->Lists[List][Index]);
}

U32 ELF_GetLineRowCount(const ELF_FILE* File) {
    const DEBUG_INFO* Info = InfoOf(File);
    return Info ? static_cast<U32>(Info->Lines.size()) : 0;
}

ELF_LINE_ROW ELF_GetLineRow(const ELF_FILE* File, U32 Index) {
    const DEBUG_INFO* Info = InfoOf(File);
    ELF_LINE_ROW Row;
    if (!Info || Index >= Info->Lines.size()) {
        return Row;
    }
    const LINE& L = Info->Lines[Index];
    Row.Address = L.Address;
    Row.File = L.File;
    Row.Line = L.Line;
    Row.Column = L.Column;
    Row.IsStmt = L.Flags & 1;
    Row.EndSequence = L.Flags & 2;
    Row.Unit = L.Unit < Info->Units.size() ? HandleOf(Info, Info->Units[L.Unit].Key) : 0;
    return Row;
}

U32 ELF_GetSourceFileCount(const ELF_FILE* File) {
    const DEBUG_INFO* Info = InfoOf(File);
    return Info ? static_cast<U32>(Info->SourceFiles.size()) : 0;
}

const char* ELF_GetSourceFile(const ELF_FILE* File, U32 Index) {
    const DEBUG_INFO* Info = InfoOf(File);
    return Info && Index < Info->SourceFiles.size() ? Info->SourceFiles[Index] : "";
}

ELF_SYM_LIST ELF_GetSourceFileUnits(const ELF_FILE* File, U32 Index) {
    const DEBUG_INFO* Info = InfoOf(File);
    ELF_SYM_LIST Out;
    if (Info && Index < Info->SourceFileUnits.size()) {
        for (U32 U : Info->SourceFileUnits[Index]) {
            Out.push_back(HandleOf(Info, Info->Units[U].Key));
        }
    }
    return Out;
}

U32 ELF_GetMacroCount(const ELF_FILE* File) {
    const DEBUG_INFO* Info = InfoOf(File);
    return Info ? static_cast<U32>(Info->Macros.size()) : 0;
}

ELF_MACRO ELF_GetMacro(const ELF_FILE* File, U32 Index) {
    const DEBUG_INFO* Info = InfoOf(File);
    return Info && Index < Info->Macros.size() ? Info->Macros[Index] : ELF_MACRO();
}

ELF_SYM_HANDLE ELF_GetEntryFunc(const ELF_FILE* File) {
    const DEBUG_INFO* Info = InfoOf(File);
    return Info ? HandleOf(Info, Info->EntryFunc) : 0;
}
