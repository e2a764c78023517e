// Macro definitions of one unit: its ".debug_macro" set with the sets it imports (each read once per
// file), or its ".debug_macinfo" list.

#include "program/DwarfInternal.h"

namespace DwarfInternal {
namespace {

/// More macro sets than this in one file are taken for a loop of imports.
constexpr size_t MAX_MACRO_SETS = 1000000;

bool IsDefine(unsigned Op) {
    return Op == DW_MACRO_define || Op == DW_MACRO_define_strp || Op == DW_MACRO_define_sup ||
           Op == DW_MACRO_define_strx;
}

bool IsUndefine(unsigned Op) {
    return Op == DW_MACRO_undef || Op == DW_MACRO_undef_strp || Op == DW_MACRO_undef_sup ||
           Op == DW_MACRO_undef_strx;
}

/// Line table file number to an index into the unit's files, or none.
U32 FileIndex(const UNIT_RESULT& Out, Dwarf_Unsigned Number) {
    if (Number < Out.Unit.FileBase || Number - Out.Unit.FileBase >= Out.FileNames.size()) {
        return 0xFFFFFFFF;
    }
    return static_cast<U32>(Number - Out.Unit.FileBase);
}

/// Whether the set at Offset is new to the file; marks it seen.
bool FirstSight(const WALK_CONTEXT& C, U64 Offset) {
    std::lock_guard<std::mutex> Lock(*C.Lock);
    if (C.MacroSetsSeen->size() >= MAX_MACRO_SETS) {
        return false;
    }
    return C.MacroSetsSeen->insert(Offset).second;
}

/// Reads one macro set; imports go to Pending.
bool ReadSet(SESSION* S, Dwarf_Macro_Context Ctx, Dwarf_Unsigned OpsCount, UNIT_RESULT& Out,
             std::vector<U64>& Pending, bool OwnSet) {
    Dwarf_Debug Dbg = S->Dbg;
    std::vector<U32> Files;
    for (Dwarf_Unsigned i = 0; i < OpsCount; ++i) {
        Dwarf_Error Err = nullptr;
        Dwarf_Unsigned Start = 0;
        Dwarf_Half Op = 0;
        Dwarf_Half FormsCount = 0;
        const Dwarf_Small* Forms = nullptr;
        if (dwarf_get_macro_op(Ctx, i, &Start, &Op, &FormsCount, &Forms, &Err) != DW_DLV_OK) {
            Out.Errors.push_back(LibraryError(Dbg, Err, QStringLiteral("reading a macro operation")));
            return false;
        }
        if (Op == 0) {
            break;
        }
        if (IsDefine(Op) || IsUndefine(Op)) {
            Dwarf_Unsigned Line = 0, Index = 0, Offset = 0;
            const char* Text = nullptr;
            if (dwarf_get_macro_defundef(Ctx, i, &Line, &Index, &Offset, &FormsCount, &Text, &Err) !=
                DW_DLV_OK) {
                Out.Errors.push_back(LibraryError(Dbg, Err, QStringLiteral("reading a macro")));
                return false;
            }
            if (IsDefine(Op) && Text) {
                ELF_MACRO M;
                M.Kind = 1;
                M.Text = Keep(Out.Arena, S->File, Text);
                M.Line = static_cast<U32>(Line);
                // An imported set has no file of its own in the unit.
                M.File = Files.empty() || !OwnSet ? 0xFFFFFFFF : Files.back();
                Out.Macros.push_back(M);
            }
        } else if (Op == DW_MACRO_start_file) {
            Dwarf_Unsigned Line = 0, Number = 0;
            const char* Name = nullptr;
            if (dwarf_get_macro_startend_file(Ctx, i, &Line, &Number, &Name, &Err) != DW_DLV_OK) {
                DropError(Dbg, Err);
                Number = ~0ull;
            }
            Files.push_back(FileIndex(Out, Number));
        } else if (Op == DW_MACRO_end_file) {
            if (!Files.empty()) {
                Files.pop_back();
            }
        } else if (Op == DW_MACRO_import || Op == DW_MACRO_import_sup) {
            Dwarf_Unsigned Target = 0;
            if (dwarf_get_macro_import(Ctx, i, &Target, &Err) == DW_DLV_OK) {
                if (Op == DW_MACRO_import) {
                    Pending.push_back(Target);
                }
            } else {
                DropError(Dbg, Err);
            }
        }
    }
    return true;
}

void ReadMacinfoOfUnit(SESSION* S, Dwarf_Die UnitDie, UNIT_RESULT& Out) {
    Dwarf_Debug Dbg = S->Dbg;
    Dwarf_Error Err = nullptr;
    Dwarf_Attribute A = nullptr;
    if (dwarf_attr(UnitDie, DW_AT_macro_info, &A, &Err) != DW_DLV_OK) {
        DropError(Dbg, Err);
        return;
    }
    Dwarf_Unsigned Offset = 0;
    int Res = dwarf_formudata(A, &Offset, &Err);
    if (Res != DW_DLV_OK) {
        DropError(Dbg, Err);
        Err = nullptr;
        Dwarf_Off Off = 0;
        Res = dwarf_global_formref(A, &Off, &Err);
        Offset = Off;
    }
    dwarf_dealloc_attribute(A);
    if (Res != DW_DLV_OK) {
        DropError(Dbg, Err);
        return;
    }
    Dwarf_Signed Count = 0;
    Dwarf_Macro_Details* Details = nullptr;
    Err = nullptr;
    Res = dwarf_get_macro_details(Dbg, Offset, 0, &Count, &Details, &Err);
    if (Res == DW_DLV_ERROR) {
        Out.Errors.push_back(LibraryError(Dbg, Err, QStringLiteral("reading the macro list")));
        Out.MacrosFailed = true;
        return;
    }
    if (Res != DW_DLV_OK) {
        return;
    }
    std::vector<U32> Files;
    for (Dwarf_Signed i = 0; i < Count; ++i) {
        const Dwarf_Macro_Details& D = Details[i];
        if (D.dmd_type == DW_MACINFO_define && D.dmd_macro) {
            ELF_MACRO M;
            M.Kind = 1;
            M.Text = Keep(Out.Arena, S->File, D.dmd_macro);
            M.Line = static_cast<U32>(D.dmd_lineno);
            M.File = Files.empty() ? 0xFFFFFFFF : Files.back();
            Out.Macros.push_back(M);
        } else if (D.dmd_type == DW_MACINFO_start_file) {
            Files.push_back(D.dmd_fileindex < 0 ? 0xFFFFFFFF : FileIndex(Out, D.dmd_fileindex));
        } else if (D.dmd_type == DW_MACINFO_end_file && !Files.empty()) {
            Files.pop_back();
        } else if (D.dmd_type == 0) {
            break;
        }
    }
    dwarf_dealloc(Dbg, Details, DW_DLA_STRING);
}

} // namespace

void ReadUnitMacros(SESSION* S, const WALK_CONTEXT& C, Dwarf_Die UnitDie, UNIT_RESULT& Out) {
    Dwarf_Debug Dbg = S->Dbg;
    Dwarf_Error Err = nullptr;
    Dwarf_Unsigned Version = 0;
    Dwarf_Macro_Context Ctx = nullptr;
    Dwarf_Unsigned UnitOffset = 0;
    Dwarf_Unsigned OpsCount = 0;
    Dwarf_Unsigned OpsLength = 0;
    int Res = dwarf_get_macro_context(UnitDie, &Version, &Ctx, &UnitOffset, &OpsCount, &OpsLength, &Err);
    if (Res == DW_DLV_NO_ENTRY) {
        ReadMacinfoOfUnit(S, UnitDie, Out);
        return;
    }
    if (Res == DW_DLV_ERROR) {
        Out.Errors.push_back(LibraryError(Dbg, Err, QStringLiteral("reading the unit's macros")));
        Out.MacrosFailed = true;
        return;
    }
    std::vector<U64> Pending;
    const bool New = FirstSight(C, UnitOffset);
    if (New && !ReadSet(S, Ctx, OpsCount, Out, Pending, true)) {
        Out.MacrosFailed = true;
    }
    dwarf_dealloc_macro_context(Ctx);
    while (!Pending.empty()) {
        const U64 Offset = Pending.back();
        Pending.pop_back();
        if (!FirstSight(C, Offset)) {
            continue;
        }
        Err = nullptr;
        Ctx = nullptr;
        Res = dwarf_get_macro_context_by_offset(UnitDie, Offset, &Version, &Ctx, &OpsCount, &OpsLength, &Err);
        if (Res != DW_DLV_OK) {
            if (Res == DW_DLV_ERROR) {
                Out.Errors.push_back(LibraryError(Dbg, Err, QStringLiteral("reading an imported macro set")));
            }
            Out.MacrosFailed = true;
            continue;
        }
        if (!ReadSet(S, Ctx, OpsCount, Out, Pending, false)) {
            Out.MacrosFailed = true;
        }
        dwarf_dealloc_macro_context(Ctx);
    }
}

} // namespace DwarfInternal
