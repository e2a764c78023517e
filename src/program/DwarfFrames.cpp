// Frame descriptions of ".debug_frame" and ".eh_frame": the lists at the open, the rows on request.

#include "program/DwarfInternal.h"

namespace DwarfInternal {
namespace {

/// Rows of one description beyond this are taken for a broken one.
constexpr int MAX_ROWS = 100000;
constexpr Dwarf_Half RULE_TABLE_SIZE = 320;

ELF_FRAME_RULE RuleOf(const Dwarf_Regtable_Entry3& E, bool IsCfa, U32 Factor) {
    ELF_FRAME_RULE R;
    const I64 Offset = static_cast<I64>(E.dw_offset_or_block_len);
    switch (E.dw_value_type) {
    case DW_EXPR_OFFSET:
        if (E.dw_regnum == DW_FRAME_UNDEFINED_VAL) {
            R.Kind = ELF_RULE_UNDEFINED;
        } else if (E.dw_regnum == DW_FRAME_SAME_VAL) {
            R.Kind = ELF_RULE_SAME;
        } else if (IsCfa) {
            R.Kind = ELF_RULE_REGISTER;
            R.Register = E.dw_regnum;
            R.Offset = E.dw_offset_relevant ? Offset * Factor : 0;
        } else if (E.dw_offset_relevant) {
            R.Kind = ELF_RULE_OFFSET;
            R.Offset = Offset;
        } else {
            R.Kind = ELF_RULE_REGISTER;
            R.Register = E.dw_regnum;
        }
        break;
    case DW_EXPR_VAL_OFFSET:
        R.Kind = ELF_RULE_VAL_OFFSET;
        R.Offset = Offset;
        break;
    case DW_EXPR_EXPRESSION:
        R.Kind = ELF_RULE_EXPRESSION;
        break;
    default:
        R.Kind = ELF_RULE_VAL_EXPRESSION;
        break;
    }
    return R;
}

Dwarf_Fde FdeAt(const DEBUG_INFO* Info, U32 Index) {
    if (Index < static_cast<U64>(Info->FdeCount)) {
        return Info->Fdes[Index];
    }
    Index -= static_cast<U32>(Info->FdeCount);
    return Index < static_cast<U64>(Info->EhFdeCount) ? Info->EhFdes[Index] : nullptr;
}

/// The row of Fde in force at Pc; the next row's pc when there is one.
bool RowAt(DEBUG_INFO* Info, Dwarf_Fde Fde, U64 Pc, ELF_FRAME_ROW& Row, U64* Next) {
    Dwarf_Debug Dbg = Info->Main->Dbg;
    std::vector<Dwarf_Regtable_Entry3> Rules(RULE_TABLE_SIZE);
    Dwarf_Regtable3 Table{};
    Table.rt3_reg_table_size = RULE_TABLE_SIZE;
    Table.rt3_rules = Rules.data();
    Dwarf_Addr RowPc = 0;
    Dwarf_Error Err = nullptr;
    if (dwarf_get_fde_info_for_all_regs3(Fde, Pc, &Table, &RowPc, &Err) != DW_DLV_OK) {
        Report(Info, LibraryError(Dbg, Err, QStringLiteral("reading a frame row")));
        return false;
    }
    Row = ELF_FRAME_ROW();
    Row.Pc = RowPc;
    Row.Cfa = RuleOf(Table.rt3_cfa_rule, true, Info->File->CfaFactor);
    for (U16 r = 0; r < RULE_TABLE_SIZE; ++r) {
        const ELF_FRAME_RULE R = RuleOf(Rules[r], false, 1);
        if (R.Kind != ELF_RULE_UNDEFINED && R.Kind != ELF_RULE_SAME) {
            Row.Registers.push_back({r, R});
        }
    }
    if (Next) {
        Dwarf_Small Type = 0;
        Dwarf_Signed Relevant = 0, Reg = 0, Off = 0;
        Dwarf_Ptr Block = nullptr;
        Dwarf_Addr RowPc2 = 0, Subsequent = 0;
        Dwarf_Bool More = 0;
        if (dwarf_get_fde_info_for_cfa_reg3_b(Fde, Pc, &Type, &Relevant, &Reg, &Off, &Block, &RowPc2, &More,
                                              &Subsequent, &Err) != DW_DLV_OK) {
            DropError(Dbg, Err);
            More = 0;
        }
        *Next = More ? Subsequent : ~0ull;
    }
    return true;
}

} // namespace

int ReadFrames(DEBUG_INFO* Info) {
    Dwarf_Debug Dbg = Info->Main->Dbg;
    int Result = 0;
    Dwarf_Error Err = nullptr;
    int Res = dwarf_get_fde_list(Dbg, &Info->Cies, &Info->CieCount, &Info->Fdes, &Info->FdeCount, &Err);
    if (Res == DW_DLV_ERROR) {
        Report(Info, LibraryError(Dbg, Err, QStringLiteral(".debug_frame")));
        Info->Cies = nullptr;
        Info->Fdes = nullptr;
        Info->CieCount = Info->FdeCount = 0;
        Result = -1;
    } else if (Res == DW_DLV_NO_ENTRY) {
        Info->CieCount = Info->FdeCount = 0;
    }
    Err = nullptr;
    Res =
        dwarf_get_fde_list_eh(Dbg, &Info->EhCies, &Info->EhCieCount, &Info->EhFdes, &Info->EhFdeCount, &Err);
    if (Res == DW_DLV_ERROR) {
        Report(Info, LibraryError(Dbg, Err, QStringLiteral(".eh_frame")));
        Info->EhCies = nullptr;
        Info->EhFdes = nullptr;
        Info->EhCieCount = Info->EhFdeCount = 0;
        Result = -1;
    } else if (Res == DW_DLV_NO_ENTRY) {
        Info->EhCieCount = Info->EhFdeCount = 0;
    }
    return Result;
}

void FreeFrames(DEBUG_INFO* Info) {
    if (!Info->Main) {
        return;
    }
    if (Info->Fdes || Info->Cies) {
        dwarf_fde_cie_list_dealloc(Info->Main->Dbg, Info->Cies, Info->CieCount, Info->Fdes, Info->FdeCount);
    }
    if (Info->EhFdes || Info->EhCies) {
        dwarf_fde_cie_list_dealloc(Info->Main->Dbg, Info->EhCies, Info->EhCieCount, Info->EhFdes,
                                   Info->EhFdeCount);
    }
    Info->Cies = Info->EhCies = nullptr;
    Info->Fdes = Info->EhFdes = nullptr;
}

} // namespace DwarfInternal

using namespace DwarfInternal;

U32 ELF_GetFdeCount(const ELF_FILE* File) {
    const DEBUG_INFO* Info = InfoOf(File);
    return Info ? static_cast<U32>(Info->FdeCount + Info->EhFdeCount) : 0;
}

U32 ELF_GetCieCount(const ELF_FILE* File) {
    const DEBUG_INFO* Info = InfoOf(File);
    return Info ? static_cast<U32>(Info->CieCount + Info->EhCieCount) : 0;
}

bool ELF_GetFdeRange(const ELF_FILE* File, U32 Index, U64& Low, U64& High) {
    DEBUG_INFO* Info = InfoOf(File);
    Dwarf_Fde Fde = Info ? FdeAt(Info, Index) : nullptr;
    if (!Fde) {
        return false;
    }
    Dwarf_Addr Lo = 0;
    Dwarf_Unsigned Len = 0;
    Dwarf_Ptr Bytes = nullptr;
    Dwarf_Unsigned ByteLen = 0;
    Dwarf_Off CieOff = 0, FdeOff = 0;
    Dwarf_Signed CieIndex = 0;
    Dwarf_Error Err = nullptr;
    if (dwarf_get_fde_range(Fde, &Lo, &Len, &Bytes, &ByteLen, &CieOff, &CieIndex, &FdeOff, &Err) !=
        DW_DLV_OK) {
        DropError(Info->Main->Dbg, Err);
        return false;
    }
    Low = Lo;
    High = Lo + Len;
    return true;
}

bool ELF_GetFdeRows(const ELF_FILE* File, U32 Index, std::vector<ELF_FRAME_ROW>& Rows) {
    Rows.clear();
    U64 Low = 0, High = 0;
    if (!ELF_GetFdeRange(File, Index, Low, High)) {
        return false;
    }
    DEBUG_INFO* Info = InfoOf(File);
    Dwarf_Fde Fde = FdeAt(Info, Index);
    U64 Pc = Low;
    while (Pc < High && Rows.size() < static_cast<size_t>(MAX_ROWS)) {
        ELF_FRAME_ROW Row;
        U64 Next = ~0ull;
        if (!RowAt(Info, Fde, Pc, Row, &Next)) {
            return false;
        }
        Rows.push_back(std::move(Row));
        if (Next <= Pc) {
            break;
        }
        Pc = Next;
    }
    return true;
}

bool ELF_GetFrameRowAt(const ELF_FILE* File, U64 Pc, ELF_FRAME_ROW& Row) {
    DEBUG_INFO* Info = InfoOf(File);
    if (!Info || !Info->Main) {
        return false;
    }
    Dwarf_Fde* Lists[2] = {Info->Fdes, Info->EhFdes};
    for (Dwarf_Fde* List : Lists) {
        if (!List) {
            continue;
        }
        Dwarf_Fde Fde = nullptr;
        Dwarf_Addr Lo = 0, Hi = 0;
        Dwarf_Error Err = nullptr;
        const int Res = dwarf_get_fde_at_pc(List, Pc, &Fde, &Lo, &Hi, &Err);
        if (Res == DW_DLV_OK) {
            return RowAt(Info, Fde, Pc, Row, nullptr);
        }
        DropError(Info->Main->Dbg, Err);
    }
    // A pc without a description is an answer, not an error of the file.
    return false;
}
