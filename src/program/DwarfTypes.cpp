// Types of symbols: the resolved type, byte sizes, arrays, signedness and the declaration text.

#include "program/DwarfInternal.h"

#include "app/core/Log.h"

#include <QString>

using namespace DwarfInternal;

namespace {

constexpr int TYPE_STEPS = 25;
constexpr U64 SIZE_LIMIT = 10000000;

/// Rules over base type names in order; each replaces the first occurrence in the text as it stands.
const std::pair<const char*, const char*> NORMALISATION[] = {
    {"unsigned char", "uchar"},
    {"short unsigned int", "ushort"},
    {"unsigned short int", "ushort"},
    {"unsigned short", "ushort"},
    {"unsigned int", "uint"},
    {"long unsigned int", "ulong"},
    {"long uint", "ulong"},
    {"unsigned long int", "ulong"},
    {"unsigned long", "ulong"},
    {"long long unsigned int", "long ulong"},
    {"unsigned long long int", "long ulong"},
    {"unsigned long long", "long ulong"},
    {"signed char", "char"},
    {"short signed int", "short"},
    {"signed short int", "short"},
    {"signed short", "short"},
    {"short int", "short"},
    {"signed int", "int"},
    {"long signed int", "long"},
    {"signed long int", "long"},
    {"signed long", "long"},
    {"long int", "long"},
    {"long long signed int", "long long"},
    {"signed long long int", "long long"},
    {"signed long long", "long long"},
    {"long long int", "long long"},
};

bool IsResolvedTag(U16 Tag) {
    switch (Tag) {
    case 36:
    case 1:
    case 2:
    case 19:
    case 4:
    case 23:
    case 31:
    case 15:
    case 16:
    case 46:
        return true;
    default:
        return false;
    }
}

bool ReadOwnUnsigned(DEBUG_INFO* Info, Dwarf_Die D, Dwarf_Half Attribute, U64& Value,
                     bool* IsSigned = nullptr) {
    Dwarf_Attribute A = nullptr;
    Dwarf_Error Err = nullptr;
    if (dwarf_attr(D, Attribute, &A, &Err) != DW_DLV_OK) {
        DropError(Info->Main->Dbg, Err);
        return false;
    }
    ATTR Wrapped;
    Wrapped.Attr = A;
    I64 V = 0;
    Dwarf_Half Form = 0;
    dwarf_whatform(A, &Form, &Err);
    DropError(Info->Main->Dbg, Err);
    // A bound given by reference (a variable length array) is no constant.
    const bool IsRef = Form == DW_FORM_ref1 || Form == DW_FORM_ref2 || Form == DW_FORM_ref4 ||
                       Form == DW_FORM_ref8 || Form == DW_FORM_ref_udata || Form == DW_FORM_exprloc;
    const bool Ok = !IsRef && AttrSigned(Info, Wrapped, V);
    dwarf_dealloc_attribute(A);
    Value = static_cast<U64>(V);
    if (IsSigned) {
        *IsSigned = Form == DW_FORM_sdata;
    }
    return Ok;
}

ELF_ARRAY_INFO ArrayInfoOf(DEBUG_INFO* Info, U32 Key, int Depth);
U32 GetByteSize(DEBUG_INFO* Info, U32 Key, int Depth);

/// Size of one entry: pointers have the unit's address size, arrays their elements', others their own.
U32 OwnSize(DEBUG_INFO* Info, U32 Key, int Depth) {
    const ENTRY* E = Entry(Info, Key);
    if (!E) {
        return 0;
    }
    if (E->Tag == DW_TAG_pointer_type || E->Tag == DW_TAG_reference_type ||
        E->Tag == DW_TAG_rvalue_reference_type) {
        const UNIT* U = UnitOf(Info, Key);
        return U ? U->AddressSize : 4;
    }
    if (E->Tag == DW_TAG_array_type) {
        return ArrayInfoOf(Info, Key, Depth).ByteSize;
    }
    ATTR A;
    U64 V = 0;
    if (FindAttr(Info, Key, DW_AT_byte_size, A)) {
        if (!AttrUnsigned(Info, A, V)) {
            V = 0;
        }
        FreeAttr(Info, A);
    }
    return static_cast<U32>(V > 0xFFFFFFFFull ? 0 : V);
}

U32 GetByteSize(DEBUG_INFO* Info, U32 Key, int Depth) {
    if (Depth > TYPE_STEPS) {
        return 0;
    }
    U32 Cur = Key;
    for (int Step = 0; Step < TYPE_STEPS && Cur != NO_KEY; ++Step) {
        const U32 Size = OwnSize(Info, Cur, Depth + 1);
        if (Size) {
            return Size;
        }
        const ENTRY* E = Entry(Info, Cur);
        Cur = E ? TypeKey(Info, E) : NO_KEY;
    }
    return 0;
}

ELF_ARRAY_INFO ArrayInfoOf(DEBUG_INFO* Info, U32 Key, int Depth) {
    ELF_ARRAY_INFO R;
    const ENTRY* E = Entry(Info, Key);
    if (!E || E->Tag != DW_TAG_array_type || Depth > TYPE_STEPS) {
        return R;
    }
    Dwarf_Debug Dbg = Info->Main->Dbg;
    Dwarf_Die D = OpenDie(Info, Key);
    if (!D) {
        return R;
    }
    const bool IsInfo = Key < Info->InfoSize;
    Dwarf_Die Child = nullptr;
    Dwarf_Error Err = nullptr;
    int Res = dwarf_child(D, &Child, &Err);
    DropError(Dbg, Err);
    dwarf_dealloc_die(D);
    U64 Count = 1;
    for (int Guard = 0; Res == DW_DLV_OK && Guard < 10000; ++Guard) {
        Dwarf_Half Tag = 0;
        Err = nullptr;
        if (dwarf_tag(Child, &Tag, &Err) == DW_DLV_OK && Tag == DW_TAG_subrange_type) {
            U64 N = 0, Upper = 0, Lower = 0;
            bool UpperSigned = false;
            ReadOwnUnsigned(Info, Child, DW_AT_lower_bound, Lower);
            if (ReadOwnUnsigned(Info, Child, DW_AT_count, N)) {
            } else if (ReadOwnUnsigned(Info, Child, DW_AT_upper_bound, Upper, &UpperSigned)) {
                N = static_cast<U64>(static_cast<I64>(Upper) - static_cast<I64>(Lower) + 1);
            } else {
                N = static_cast<U64>(1 - static_cast<I64>(Lower));
            }
            if (static_cast<I64>(N) < 0) {
                N = 0;
            }
            if (R.Dimensions < 10) {
                R.Lengths[R.Dimensions] = static_cast<U32>(N);
            }
            ++R.Dimensions;
            Count = std::min<U64>(Count * N, 0xFFFFFFFFull);
        }
        DropError(Dbg, Err);
        Err = nullptr;
        Dwarf_Die Sib = nullptr;
        Res = dwarf_siblingof_b(Dbg, Child, IsInfo, &Sib, &Err);
        DropError(Dbg, Err);
        dwarf_dealloc_die(Child);
        Child = Sib;
    }
    if (Res == DW_DLV_OK && Child) {
        dwarf_dealloc_die(Child);
    }
    if (R.Dimensions == 0) {
        Count = 0;
    }
    R.Dimensions = std::min<U32>(R.Dimensions, 10);
    R.ElementCount = static_cast<U32>(Count);
    R.ElementSize = GetByteSize(Info, TypeKey(Info, E), Depth + 1);
    R.ByteSize = static_cast<U32>(std::min<U64>(Count * R.ElementSize, 0xFFFFFFFFull));
    return R;
}

/// Non-artificial parameters of a function or function type, in order.
std::vector<U32> Parameters(DEBUG_INFO* Info, U32 Key) {
    std::vector<U32> Out;
    Dwarf_Debug Dbg = Info->Main->Dbg;
    Dwarf_Die D = OpenDie(Info, Key);
    if (!D) {
        return Out;
    }
    const bool IsInfo = Key < Info->InfoSize;
    Dwarf_Die Child = nullptr;
    Dwarf_Error Err = nullptr;
    int Res = dwarf_child(D, &Child, &Err);
    DropError(Dbg, Err);
    dwarf_dealloc_die(D);
    for (int Guard = 0; Res == DW_DLV_OK && Guard < 10000; ++Guard) {
        Dwarf_Half Tag = 0;
        Dwarf_Off Off = 0;
        Err = nullptr;
        if (dwarf_tag(Child, &Tag, &Err) == DW_DLV_OK && Tag == DW_TAG_formal_parameter &&
            dwarf_dieoffset(Child, &Off, &Err) == DW_DLV_OK) {
            Dwarf_Bool Artificial = 0;
            Dwarf_Attribute A = nullptr;
            if (dwarf_attr(Child, DW_AT_artificial, &A, &Err) == DW_DLV_OK) {
                dwarf_formflag(A, &Artificial, &Err);
                dwarf_dealloc_attribute(A);
            }
            if (!Artificial) {
                Out.push_back(KeyOf(Info->InfoSize, Off, !IsInfo));
            }
        }
        DropError(Dbg, Err);
        Err = nullptr;
        Dwarf_Die Sib = nullptr;
        Res = dwarf_siblingof_b(Dbg, Child, IsInfo, &Sib, &Err);
        DropError(Dbg, Err);
        dwarf_dealloc_die(Child);
        Child = Sib;
    }
    if (Res == DW_DLV_OK && Child) {
        dwarf_dealloc_die(Child);
    }
    return Out;
}

std::string TypeName(DEBUG_INFO* Info, U32 Key, int Depth);

std::string BuildTypeName(DEBUG_INFO* Info, U32 Key, int Depth) {
    std::string R;
    std::string Typedef;
    std::string Qualifier;
    U32 Cur = Key;
    for (int Step = 0; Step < TYPE_STEPS && Cur != NO_KEY; ++Step) {
        const ENTRY* E = Entry(Info, Cur);
        if (!E) {
            break;
        }
        const U32 Next = TypeKey(Info, E);
        bool End = false;
        switch (E->Tag) {
        case DW_TAG_array_type: {
            const ELF_ARRAY_INFO A = ArrayInfoOf(Info, Cur, Depth + 1);
            std::string Dims;
            for (U32 i = 0; i < A.Dimensions; ++i) {
                Dims += (i ? "][" : "[") + std::to_string(A.Lengths[i]);
            }
            R = (A.Dimensions ? Dims + "]" : std::string("[]")) + R;
            break;
        }
        case DW_TAG_class_type:
        case DW_TAG_structure_type:
        case DW_TAG_union_type:
        case DW_TAG_enumeration_type: {
            const char* Keyword = E->Tag == DW_TAG_class_type       ? "class "
                                  : E->Tag == DW_TAG_structure_type ? "struct "
                                  : E->Tag == DW_TAG_union_type     ? "union "
                                                                    : "enum ";
            const char* Name = E->Name;
            if (!Name) {
                const U32 Def = DefinitionOf(Info, Cur);
                const ENTRY* D = Entry(Info, Def);
                Name = D ? D->Name : nullptr;
            }
            R = Keyword + (Name ? std::string(Name) : Typedef) + R;
            End = E->Tag == DW_TAG_enumeration_type;
            break;
        }
        case DW_TAG_pointer_type:
            R = "*" + R;
            break;
        case DW_TAG_reference_type:
        case DW_TAG_rvalue_reference_type:
            R = "&" + R;
            break;
        case DW_TAG_subroutine_type:
        case DW_TAG_inlined_subroutine:
        case DW_TAG_subprogram: {
            std::string Params;
            if (Depth < 4) {
                for (U32 P : Parameters(Info, Cur)) {
                    Params += (Params.empty() ? "" : ", ") + TypeName(Info, P, Depth + 1);
                }
            }
            R = "(" + Params + ")" + R;
            if (Next == NO_KEY) {
                R = "void" + R;
            }
            break;
        }
        case DW_TAG_typedef:
            if (E->Name) {
                Typedef = E->Name;
            }
            break;
        case DW_TAG_base_type:
            R = ELF_NormaliseBaseTypeName(E->Name ? E->Name : "") + R;
            break;
        case DW_TAG_const_type:
            Qualifier = "const ";
            break;
        case DW_TAG_volatile_type:
            Qualifier = "volatile ";
            break;
        default:
            break;
        }
        if (End) {
            break;
        }
        Cur = Next;
    }
    if (R.empty() || R == "*") {
        R = Typedef.empty() ? std::string("void*") : Typedef + R;
    }
    return Qualifier + R;
}

std::string TypeName(DEBUG_INFO* Info, U32 Key, int Depth) {
    const ELF_SYM_HANDLE H = HandleOf(Info, Key);
    std::string Text = BuildTypeName(Info, Key, Depth);
    if (ELF_GetSymVirtuality(H) != 0) {
        Text = "virtual " + Text;
    }
    if (ELF_IsSymStatic(H)) {
        Text = "static " + Text;
    }
    return Text;
}

} // namespace

std::string ELF_NormaliseBaseTypeName(const char* Name) {
    std::string T = Name ? Name : "";
    for (const auto& [From, To] : NORMALISATION) {
        const size_t At = T.find(From);
        if (At != std::string::npos) {
            T.replace(At, std::strlen(From), To);
        }
    }
    return T;
}

const char* ELF_GetSymTypeName(ELF_SYM_HANDLE Handle) {
    U32 Key = 0;
    DEBUG_INFO* Info = Decode(Handle, Key);
    if (!Info) {
        return "";
    }
    const auto It = Info->TypeNames.find(Key);
    if (It != Info->TypeNames.end()) {
        return It->second.c_str();
    }
    std::string Text = TypeName(Info, Key, 0);
    return (Info->TypeNames[Key] = std::move(Text)).c_str();
}

ELF_SYM_HANDLE ELF_GetSymType(ELF_SYM_HANDLE Handle, bool ResolveTypedefs) {
    U32 Key = 0;
    DEBUG_INFO* Info = Decode(Handle, Key);
    const ENTRY* E = Info ? Entry(Info, Key) : nullptr;
    if (!E) {
        return 0;
    }
    if (!ResolveTypedefs) {
        return HandleOf(Info, TypeKey(Info, E));
    }
    const auto Complete = [Info](U32 K) {
        const U32 Def = DefinitionOf(Info, K);
        return HandleOf(Info, Def != NO_KEY ? Def : K);
    };
    if (IsResolvedTag(E->Tag) && E->Tag != DW_TAG_subprogram) {
        return Complete(Key);
    }
    U32 Cur = TypeKey(Info, E);
    for (int Step = 0; Step < TYPE_STEPS && Cur != NO_KEY; ++Step) {
        const ENTRY* T = Entry(Info, Cur);
        if (!T) {
            return 0;
        }
        if (IsResolvedTag(T->Tag)) {
            return Complete(Cur);
        }
        Cur = TypeKey(Info, T);
    }
    return 0;
}

U32 ELF_GetSymByteSize(ELF_SYM_HANDLE Handle) {
    if (ELF_GetHandleKind(Handle) == ELF_SYM_KIND_ELF) {
        ELF_FILE* F = ELF_GetHandleFile(Handle);
        const U32 Index = ELF_GetHandleOffset(Handle);
        return F && Index < F->Symbols.size() ? F->Symbols[Index].st_size : 0;
    }
    U32 Key = 0;
    DEBUG_INFO* Info = Decode(Handle, Key);
    if (!Info) {
        return 0;
    }
    const U32 Size = GetByteSize(Info, Key, 0);
    if (Size) {
        return Size;
    }
    const U32 Count = ELF_GetSymRangeCount(Handle);
    if (Count == 0) {
        return 0;
    }
    U64 Low = ~0ull, High = 0;
    for (U32 i = 0; i < Count; ++i) {
        Low = std::min(Low, ELF_GetSymLowPC(Handle, i));
        High = std::max(High, ELF_GetSymHighPC(Handle, i));
    }
    const U64 Span = High > Low ? High - Low : 0;
    const ENTRY* E = Entry(Info, Key);
    if (E && E->Tag != DW_TAG_compile_unit && Span > SIZE_LIMIT) {
        LogMessage(QString::asprintf("Symbol at %X: did not pass allocation size sanity check",
                                     static_cast<U32>(Low)),
                   MSG_INFO | MSG_TO_LOGFILE | MSG_FROM_PROGRAM_DATA);
        return 0;
    }
    return static_cast<U32>(Span);
}

ELF_ARRAY_INFO ELF_GetArrayInfo(ELF_SYM_HANDLE Handle) {
    U32 Key = 0;
    DEBUG_INFO* Info = Decode(Handle, Key);
    return Info ? ArrayInfoOf(Info, Key, 0) : ELF_ARRAY_INFO();
}

bool ELF_IsSymSigned(ELF_SYM_HANDLE Handle) {
    U32 Key = 0;
    DEBUG_INFO* Info = Decode(Handle, Key);
    U32 Cur = Key;
    for (int Step = 0; Info && Step < TYPE_STEPS && Cur != NO_KEY; ++Step) {
        const ENTRY* E = Entry(Info, Cur);
        if (!E || E->Tag == DW_TAG_pointer_type) {
            return false;
        }
        if (E->Tag == DW_TAG_base_type) {
            const U64 Encoding = ELF_GetSymAttrValue(HandleOf(Info, Cur), DW_AT_encoding, 0);
            return Encoding == DW_ATE_signed || Encoding == DW_ATE_signed_char ||
                   Encoding == DW_ATE_signed_fixed;
        }
        Cur = TypeKey(Info, E);
    }
    return false;
}
