// The walk over one unit's entries in offset order, and the classifiers that decide what is kept.

#include "program/DwarfInternal.h"

#include <QElapsedTimer>

namespace DwarfInternal {
namespace {

/// Nesting deeper than this is taken for a broken file.
constexpr size_t MAX_DEPTH = 2048;

bool IsContainerType(U16 Tag) {
    return Tag == DW_TAG_class_type || Tag == DW_TAG_structure_type || Tag == DW_TAG_union_type ||
           Tag == DW_TAG_enumeration_type;
}

bool IsFunction(U16 Tag) {
    return Tag == DW_TAG_subprogram || Tag == DW_TAG_inlined_subroutine;
}

/// Whether the attributes of an entry with this tag matter to any classifier.
bool NeedsAttributes(U16 Tag) {
    switch (Tag) {
    case DW_TAG_compile_unit:
    case DW_TAG_partial_unit:
    case DW_TAG_type_unit:
    case DW_TAG_subprogram:
    case DW_TAG_inlined_subroutine:
    case DW_TAG_variable:
    case DW_TAG_formal_parameter:
    case DW_TAG_typedef:
    case DW_TAG_class_type:
    case DW_TAG_structure_type:
    case DW_TAG_union_type:
    case DW_TAG_enumeration_type:
    case DW_TAG_namespace:
    case DW_TAG_member:
    case DW_TAG_enumerator:
    case DW_TAG_inheritance:
        return true;
    default:
        return false;
    }
}

struct FRAME {
    Dwarf_Die Die;
    U32 Key;
    U16 Tag;
    I64 Index;     ///< in the unit's entries, -1 while not kept
    ENTRY Pending; ///< what was read of it, kept when a descendant is
};

int LanguageOf(U64 Lang, const char* Name) {
    switch (Lang) {
    case DW_LANG_C89:
    case DW_LANG_C:
    case DW_LANG_C99:
    case DW_LANG_C11:
    case 0x2c: // C17
        return 1;
    case DW_LANG_C_plus_plus:
    case DW_LANG_C_plus_plus_03:
    case DW_LANG_C_plus_plus_11:
    case DW_LANG_C_plus_plus_14:
    case 0x2a: // C++17
    case 0x2b: // C++20
        return 2;
    default:
        break;
    }
    if (Lang == 0 && Name) {
        const std::string_view N(Name);
        if (N.find(".cpp") != std::string_view::npos) {
            return 2;
        }
        if (N.find(".c") != std::string_view::npos) {
            return 1;
        }
    }
    return 0;
}

class UnitWalker {
public:
    UnitWalker(SESSION* S, const WALK_CONTEXT& C, UNIT_RESULT& Out) : m_S(S), m_C(C), m_Out(Out) {}

    /// Walks the tree under Root; false if the walk stopped on an error.
    bool Walk(Dwarf_Die Root, U64& Language);

private:
    bool Visit(Dwarf_Die Die, U32 Key, U16 Tag, bool HasChildren, ENTRY& E, U64& Language);
    /// Keeps the entry and every open ancestor not yet kept; the index of the entry.
    size_t Keep(ENTRY& E);
    U32 EnclosingFunction() const {
        for (size_t i = m_Stack.size(); i-- > 0;) {
            if (IsFunction(m_Stack[i].Tag)) {
                return m_Stack[i].Key;
            }
        }
        return NO_KEY;
    }
    bool Fail(ELF_ERROR_RECORD Record) {
        m_Out.Errors.push_back(std::move(Record));
        return false;
    }

    SESSION* m_S;
    const WALK_CONTEXT& m_C;
    UNIT_RESULT& m_Out;
    std::vector<FRAME> m_Stack;
};

size_t UnitWalker::Keep(ENTRY& E) {
    for (FRAME& F : m_Stack) {
        if (F.Index < 0) {
            F.Index = static_cast<I64>(m_Out.Entries.size());
            m_Out.Entries.push_back(F.Pending);
        }
    }
    m_Out.Entries.push_back(E);
    return m_Out.Entries.size() - 1;
}

bool UnitWalker::Visit(Dwarf_Die Die, U32 Key, U16 Tag, bool HasChildren, ENTRY& E, U64& Language) {
    E.Key = Key;
    E.Tag = Tag;
    E.Unit = 0;
    E.Parent = m_Stack.empty() ? NO_KEY : m_Stack.back().Key;
    E.Last = Key;
    if (HasChildren) {
        E.Flags |= EF_CHILDREN;
    }
    if (m_Out.Unit.IsTypes) {
        E.Flags |= EF_TYPES;
    }
    if (NeedsAttributes(Tag)) {
        const bool WantRanges = IsFunction(Tag) || Tag == DW_TAG_compile_unit || Tag == DW_TAG_partial_unit;
        if (!ReadEntryAttributes(m_S, m_C, m_Out.Unit, Die, E, WantRanges ? &m_Out.Ranges : nullptr,
                                 m_Out.Errors, m_Out.Arena)) {
            return false;
        }
        if (Tag == DW_TAG_compile_unit || Tag == DW_TAG_partial_unit) {
            Dwarf_Attribute A = nullptr;
            Dwarf_Error Err = nullptr;
            if (dwarf_attr(Die, DW_AT_language, &A, &Err) == DW_DLV_OK) {
                Dwarf_Unsigned V = 0;
                if (dwarf_formudata(A, &V, &Err) == DW_DLV_OK) {
                    Language = V;
                } else {
                    DropError(m_S->Dbg, Err);
                }
                dwarf_dealloc_attribute(A);
            } else {
                DropError(m_S->Dbg, Err);
            }
        }
    }
    const bool Types = m_Out.Unit.IsTypes;
    const bool Declaration = E.Flags & EF_DECLARATION;
    const bool Artificial = E.Flags & EF_ARTIFICIAL;
    const U16 ParentTag = m_Stack.empty() ? 0 : m_Stack.back().Tag;
    const U32 Function = EnclosingFunction();
    bool Kept = false;
    const auto List = [&](int L) {
        m_Out.ListItems.push_back({L, Key});
        Kept = true;
    };
    const auto Link = [&](U32 Owner, U32 Kind) {
        m_Out.Links.push_back({Owner, Kind, Key});
        Kept = true;
    };
    switch (Tag) {
    case DW_TAG_compile_unit:
    case DW_TAG_partial_unit:
    case DW_TAG_type_unit:
        Kept = true;
        break;
    case DW_TAG_variable:
        if (!Types && !Declaration && !Artificial && (Function == NO_KEY || (E.Flags & EF_FIXED_ADDR))) {
            List(ELF_LIST_GLOBALS);
        }
        [[fallthrough]];
    case DW_TAG_formal_parameter:
        // Only the data of a function's own scopes, not the parameters of a function type inside it.
        if (!Types && !Declaration && Function != NO_KEY &&
            (IsFunction(ParentTag) || ParentTag == DW_TAG_lexical_block)) {
            Link(Function, LINK_LOCAL);
        }
        break;
    case DW_TAG_subprogram:
        if (!Types && !Declaration && !Artificial) {
            List(ELF_LIST_FUNCTIONS);
        }
        if (IsContainerType(ParentTag) && !Artificial) {
            Link(m_Stack.back().Key, LINK_MEMBER);
        }
        break;
    case DW_TAG_inlined_subroutine:
        if (!Types && !Declaration && !Artificial) {
            List(ELF_LIST_INLINE_FUNCTIONS);
        }
        break;
    case DW_TAG_typedef:
        List(ELF_LIST_TYPES);
        break;
    case DW_TAG_class_type:
    case DW_TAG_structure_type:
    case DW_TAG_union_type:
    case DW_TAG_enumeration_type:
        if (!Declaration && !Artificial && (E.Flags & EF_BYTE_SIZE)) {
            List(ELF_LIST_TYPES);
        }
        // A declared type is kept too: its definition is found through it.
        Kept = true;
        break;
    case DW_TAG_namespace:
        if (!Types) {
            List(ELF_LIST_NAMESPACES);
            if (E.Extension != NO_KEY) {
                List(ELF_LIST_NAMESPACE_EXTENSIONS);
            }
        }
        Kept = true;
        break;
    case DW_TAG_member:
    case DW_TAG_enumerator:
        if (IsContainerType(ParentTag) && !Artificial) {
            Link(m_Stack.back().Key, LINK_MEMBER);
        }
        break;
    case DW_TAG_inheritance:
        if (!Artificial && !m_Stack.empty()) {
            Link(m_Stack.back().Key, LINK_BASE);
        }
        break;
    default:
        break;
    }
    // Specifications and origins are followed later, so the entries they name are kept.
    if (E.Spec != NO_KEY || E.Origin != NO_KEY) {
        Kept = true;
    }
    return Kept;
}

bool UnitWalker::Walk(Dwarf_Die Root, U64& Language) {
    Dwarf_Debug Dbg = m_S->Dbg;
    const bool IsInfo = !m_Out.Unit.IsTypes;
    Dwarf_Die Cur = Root;
    U32 LastKey = 0;
    bool First = true;
    bool Ok = true;
    while (true) {
        Dwarf_Error Err = nullptr;
        Dwarf_Off Off = 0;
        Dwarf_Half Tag = 0;
        if (dwarf_dieoffset(Cur, &Off, &Err) != DW_DLV_OK || dwarf_tag(Cur, &Tag, &Err) != DW_DLV_OK) {
            Ok = Fail(LibraryError(Dbg, Err, QStringLiteral("reading an entry")));
            break;
        }
        const U32 Key = KeyOf(m_C.InfoSize, Off, m_Out.Unit.IsTypes);
        // Entries come in offset order; a sibling link that goes back would walk for ever.
        if ((!First && Key <= LastKey) || Key >= m_Out.Unit.End) {
            Ok = Fail(ReaderError(ELF_LIBERR_BAD_REFERENCE,
                                  QStringLiteral("entry at 0x%1 out of order").arg(Off, 0, 16)));
            break;
        }
        First = false;
        LastKey = Key;
        Dwarf_Half ChildFlag = 0;
        if (dwarf_die_abbrev_children_flag(Cur, &ChildFlag) != DW_DLV_OK) {
            ChildFlag = 0;
        }
        ENTRY E;
        const bool Kept = Visit(Cur, Key, Tag, ChildFlag != 0, E, Language);
        I64 Index = -1;
        if (Kept) {
            Index = static_cast<I64>(Keep(E));
        }
        Dwarf_Die Child = nullptr;
        int Res = DW_DLV_NO_ENTRY;
        if (ChildFlag) {
            Res = dwarf_child(Cur, &Child, &Err);
            if (Res == DW_DLV_ERROR) {
                Ok = Fail(LibraryError(Dbg, Err, QStringLiteral("reading the children of an entry")));
                Err = nullptr;
            }
        }
        if (Res == DW_DLV_OK) {
            if (m_Stack.size() >= MAX_DEPTH) {
                dwarf_dealloc_die(Child);
                Ok = Fail(ReaderError(ELF_ERR_RECURSION, QStringLiteral("entries nested too deeply")));
                break;
            }
            m_Stack.push_back(FRAME{Cur, Key, Tag, Index, E});
            Cur = Child;
            continue;
        }
        if (!Ok) {
            break;
        }
        // Leaf or last child: on to the next sibling, climbing while there is none.
        bool Done = false;
        while (true) {
            if (m_Stack.empty()) {
                Done = true;
                break;
            }
            Dwarf_Die Sib = nullptr;
            Res = dwarf_siblingof_b(Dbg, Cur, IsInfo, &Sib, &Err);
            dwarf_dealloc_die(Cur);
            Cur = nullptr;
            if (Res == DW_DLV_OK) {
                Cur = Sib;
                break;
            }
            if (Res == DW_DLV_ERROR) {
                Ok = Fail(LibraryError(Dbg, Err, QStringLiteral("reading the sibling of an entry")));
                Err = nullptr;
                Done = true;
                break;
            }
            FRAME& Up = m_Stack.back();
            if (Up.Index >= 0) {
                m_Out.Entries[static_cast<size_t>(Up.Index)].Last = LastKey;
            }
            Cur = Up.Die;
            m_Stack.pop_back();
        }
        if (Done) {
            break;
        }
    }
    // After an error the open ancestors still need their ends and their dies freed.
    while (!m_Stack.empty()) {
        FRAME& Up = m_Stack.back();
        if (Up.Index >= 0) {
            m_Out.Entries[static_cast<size_t>(Up.Index)].Last = LastKey;
        }
        if (Cur && Cur != Root) {
            dwarf_dealloc_die(Cur);
        }
        Cur = Up.Die;
        m_Stack.pop_back();
    }
    if (Cur && Cur != Root) {
        dwarf_dealloc_die(Cur);
    }
    if (!m_Out.Entries.empty() && m_Out.Entries[0].Key == m_Out.Unit.Key) {
        m_Out.Entries[0].Last = LastKey;
    }
    return Ok;
}

} // namespace

void ReadUnit(SESSION* S, const WALK_CONTEXT& C, const UNIT_HEADER& H, U32 UnitIndex, UNIT_RESULT& Out) {
    QElapsedTimer Timer;
    Timer.start();
    UNIT& U = Out.Unit;
    U.HeaderOffset = H.HeaderOffset;
    U.Key = KeyOf(C.InfoSize, H.DieOffset, H.IsTypes);
    U.End = KeyOf(C.InfoSize, H.End, H.IsTypes);
    U.Version = H.Version;
    U.AddressSize = H.AddressSize;
    U.IsTypes = H.IsTypes;
    Dwarf_Error Err = nullptr;
    Dwarf_Die Root = nullptr;
    const int Res = dwarf_offdie_b(S->Dbg, H.DieOffset, !H.IsTypes, &Root, &Err);
    if (Res != DW_DLV_OK) {
        Out.Failed = true;
        if (Res == DW_DLV_ERROR) {
            Out.Errors.push_back(LibraryError(S->Dbg, Err, QStringLiteral("reading the unit's root entry")));
        }
        return;
    }
    U64 Language = 0;
    UnitWalker Walker(S, C, Out);
    if (!Walker.Walk(Root, Language)) {
        Out.Failed = true;
    }
    for (ENTRY& E : Out.Entries) {
        E.Unit = UnitIndex;
    }
    const char* UnitName = Out.Entries.empty() ? nullptr : Out.Entries[0].Name;
    Out.Language = LanguageOf(Language, UnitName);
    Out.TreeMs = static_cast<double>(Timer.nsecsElapsed()) / 1e6;
    if (!H.IsTypes) {
        ReadUnitLines(S, Root, nullptr, Out);
        Timer.restart();
        ReadUnitMacros(S, C, Root, Out);
        Out.MacroMs = static_cast<double>(Timer.nsecsElapsed()) / 1e6;
    }
    dwarf_dealloc_die(Root);
}

} // namespace DwarfInternal
