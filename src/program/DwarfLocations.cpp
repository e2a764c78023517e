// Location descriptions as decoded operations: one expression, or the entries of a location list of
// ".debug_loc" or ".debug_loclists".

#include "program/DwarfInternal.h"

using namespace DwarfInternal;

namespace {
/// Entries of one list beyond this are taken for a broken list.
constexpr Dwarf_Unsigned MAX_ENTRIES = 100000;
constexpr Dwarf_Unsigned MAX_OPS = 10000;
} // namespace

int ELF_GetSymLocExprs(ELF_SYM_HANDLE Handle, U32 Attribute, std::vector<ELF_LOC_EXPR>& Out) {
    Out.clear();
    U32 Key = 0;
    DEBUG_INFO* Info = Decode(Handle, Key);
    ATTR A;
    if (!Info || !FindAttr(Info, Key, static_cast<Dwarf_Half>(Attribute), A)) {
        return -1;
    }
    Dwarf_Debug Dbg = Info->Main->Dbg;
    Dwarf_Loc_Head_c Head = nullptr;
    Dwarf_Unsigned Count = 0;
    Dwarf_Error Err = nullptr;
    const int Res = dwarf_get_loclist_c(A.Attr, &Head, &Count, &Err);
    if (Res != DW_DLV_OK) {
        if (Res == DW_DLV_ERROR) {
            Report(Info, LibraryError(Dbg, Err, QStringLiteral("reading a location")));
        }
        FreeAttr(Info, A);
        return -1;
    }
    unsigned Kind = DW_LKIND_expression;
    if (dwarf_get_loclist_head_kind(Head, &Kind, &Err) != DW_DLV_OK) {
        DropError(Dbg, Err);
        Err = nullptr;
    }
    int Result = 0;
    for (Dwarf_Unsigned i = 0; i < Count && i < MAX_ENTRIES; ++i) {
        Dwarf_Small Lle = 0, Source = 0;
        Dwarf_Unsigned RawLow = 0, RawHigh = 0, OpCount = 0, ExprOffset = 0, DescOffset = 0;
        Dwarf_Bool NoAddr = 0;
        Dwarf_Addr Low = 0, High = 0;
        Dwarf_Locdesc_c Desc = nullptr;
        if (dwarf_get_locdesc_entry_d(Head, i, &Lle, &RawLow, &RawHigh, &NoAddr, &Low, &High, &OpCount, &Desc,
                                      &Source, &ExprOffset, &DescOffset, &Err) != DW_DLV_OK) {
            Report(Info, LibraryError(Dbg, Err, QStringLiteral("reading a location list entry")));
            Err = nullptr;
            Result = -1;
            break;
        }
        ELF_LOC_EXPR E;
        E.IsList = Kind != DW_LKIND_expression;
        E.Low = Low;
        E.High = High;
        // Entries without operations (end markers, view pairs) have nothing to decode: the library
        // must not be asked for their operations.
        for (Dwarf_Unsigned j = 0; Desc && j < OpCount && j < MAX_OPS; ++j) {
            ELF_LOC_OP Op;
            Dwarf_Unsigned O1 = 0, O2 = 0, O3 = 0, Branch = 0;
            if (dwarf_get_location_op_value_c(Desc, j, &Op.Op, &O1, &O2, &O3, &Branch, &Err) != DW_DLV_OK) {
                Report(Info, LibraryError(Dbg, Err, QStringLiteral("reading a location operation")));
                Err = nullptr;
                break;
            }
            Op.Operand1 = O1;
            Op.Operand2 = O2;
            Op.Operand3 = O3;
            E.Ops.push_back(Op);
        }
        if (E.IsList && E.Ops.empty()) {
            continue;
        }
        Out.push_back(std::move(E));
    }
    dwarf_loc_head_c_dealloc(Head);
    FreeAttr(Info, A);
    return Result < 0 && Out.empty() ? -1 : static_cast<int>(Out.size());
}
