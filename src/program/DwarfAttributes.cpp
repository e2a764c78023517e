// Reading the attributes of one entry that the reader keeps: names, links, flags and address ranges.

#include "program/DwarfInternal.h"

namespace DwarfInternal {
namespace {

bool IsAddressForm(Dwarf_Half Form) {
    return Form == DW_FORM_addr || Form == DW_FORM_addrx || Form == DW_FORM_addrx1 ||
           Form == DW_FORM_addrx2 || Form == DW_FORM_addrx3 || Form == DW_FORM_addrx4 ||
           Form == DW_FORM_GNU_addr_index;
}

bool Flag(Dwarf_Attribute A) {
    Dwarf_Bool B = 0;
    Dwarf_Error Err = nullptr;
    if (dwarf_formflag(A, &B, &Err) != DW_DLV_OK) {
        DropError(nullptr, Err);
        return false;
    }
    return B != 0;
}

/// The key of a reference attribute, checked against the section; NO_KEY if it cannot be followed.
U32 RefKey(SESSION* S, const WALK_CONTEXT& C, const UNIT& Unit, Dwarf_Attribute A, Dwarf_Half Form,
           std::vector<ELF_ERROR_RECORD>& Errors) {
    Dwarf_Error Err = nullptr;
    if (Form == DW_FORM_ref_sig8) {
        Dwarf_Sig8 Sig;
        if (dwarf_formsig8(A, &Sig, &Err) != DW_DLV_OK) {
            DropError(S->Dbg, Err);
            return NO_KEY;
        }
        U64 V = 0;
        std::memcpy(&V, Sig.signature, 8);
        const auto It = C.Signatures->find(V);
        return It == C.Signatures->end() ? NO_KEY : It->second;
    }
    Dwarf_Off Off = 0;
    const int Res = dwarf_global_formref(A, &Off, &Err);
    if (Res != DW_DLV_OK) {
        if (Res == DW_DLV_ERROR) {
            Errors.push_back(LibraryError(S->Dbg, Err, QStringLiteral("reading a reference")));
        }
        return NO_KEY;
    }
    const bool ToTypes = Unit.IsTypes && Form != DW_FORM_ref_addr;
    const U64 Size = ToTypes ? C.TypesSize : C.InfoSize;
    if (Off >= Size) {
        Errors.push_back(ReaderError(ELF_LIBERR_BAD_REFERENCE,
                                     QStringLiteral("reference to offset 0x%1 outside the section")
                                         .arg(static_cast<qulonglong>(Off), 0, 16)));
        return NO_KEY;
    }
    return KeyOf(C.InfoSize, Off, ToTypes);
}

/// Whether a location expression names a fixed address: it starts with an address operation.
bool IsFixedAddressExpr(const U8* P, Dwarf_Unsigned Len) {
    return Len > 0 && (P[0] == DW_OP_addr || P[0] == DW_OP_addrx || P[0] == DW_OP_GNU_addr_index);
}

bool FixedLocation(SESSION* S, Dwarf_Attribute A, Dwarf_Half Form) {
    Dwarf_Error Err = nullptr;
    if (Form == DW_FORM_exprloc) {
        Dwarf_Unsigned Len = 0;
        Dwarf_Ptr P = nullptr;
        if (dwarf_formexprloc(A, &Len, &P, &Err) != DW_DLV_OK) {
            DropError(S->Dbg, Err);
            return false;
        }
        return IsFixedAddressExpr(static_cast<const U8*>(P), Len);
    }
    if (Form == DW_FORM_block1 || Form == DW_FORM_block2 || Form == DW_FORM_block4 || Form == DW_FORM_block) {
        Dwarf_Block* B = nullptr;
        if (dwarf_formblock(A, &B, &Err) != DW_DLV_OK) {
            DropError(S->Dbg, Err);
            return false;
        }
        const bool Fixed = IsFixedAddressExpr(static_cast<const U8*>(B->bl_data), B->bl_len);
        dwarf_dealloc(S->Dbg, B, DW_DLA_BLOCK);
        return Fixed;
    }
    return false;
}

bool Unsigned(SESSION* S, Dwarf_Attribute A, U64& V) {
    Dwarf_Unsigned U = 0;
    Dwarf_Error Err = nullptr;
    if (dwarf_formudata(A, &U, &Err) == DW_DLV_OK) {
        V = U;
        return true;
    }
    DropError(S->Dbg, Err);
    Err = nullptr;
    Dwarf_Off Off = 0;
    if (dwarf_global_formref(A, &Off, &Err) == DW_DLV_OK) {
        V = Off;
        return true;
    }
    DropError(S->Dbg, Err);
    return false;
}

void AddRange(std::vector<RANGE>& Ranges, U64 Low, U64 High) {
    if (High >= Low && High != 0) {
        Ranges.push_back({Low, High});
    }
}

/// DW_AT_ranges: DWARF 5 range lists, or the ".debug_ranges" of earlier versions.
bool ReadRanges(SESSION* S, const UNIT& Unit, Dwarf_Die Die, Dwarf_Attribute A, Dwarf_Half Form,
                std::vector<RANGE>& Ranges, std::vector<ELF_ERROR_RECORD>& Errors) {
    U64 Value = 0;
    if (!Unsigned(S, A, Value)) {
        Errors.push_back(
            ReaderError(ELF_LIBERR_RANGE_OFFSET, QStringLiteral("unreadable range list reference")));
        return false;
    }
    Dwarf_Error Err = nullptr;
    if (Unit.Version >= 5 || Form == DW_FORM_rnglistx) {
        Dwarf_Rnglists_Head Head = nullptr;
        Dwarf_Unsigned Count = 0;
        Dwarf_Unsigned Global = 0;
        const int Res = dwarf_rnglists_get_rle_head(A, Form, Value, &Head, &Count, &Global, &Err);
        if (Res != DW_DLV_OK) {
            if (Res == DW_DLV_ERROR) {
                Errors.push_back(LibraryError(S->Dbg, Err, QStringLiteral("reading a range list")));
            }
            return false;
        }
        for (Dwarf_Unsigned i = 0; i < Count; ++i) {
            unsigned Len = 0;
            unsigned Code = 0;
            Dwarf_Unsigned Raw1 = 0, Raw2 = 0, Low = 0, High = 0;
            if (dwarf_get_rnglists_entry_fields(Head, i, &Len, &Code, &Raw1, &Raw2, &Low, &High, &Err) !=
                DW_DLV_OK) {
                DropError(S->Dbg, Err);
                Err = nullptr;
                break;
            }
            if (Code == DW_RLE_offset_pair || Code == DW_RLE_start_end || Code == DW_RLE_start_length ||
                Code == DW_RLE_startx_endx || Code == DW_RLE_startx_length) {
                AddRange(Ranges, Low, High);
            }
        }
        dwarf_dealloc_rnglists_head(Head);
        return true;
    }
    Dwarf_Ranges* List = nullptr;
    Dwarf_Signed Count = 0;
    Dwarf_Unsigned Bytes = 0;
    Dwarf_Off Real = 0;
    const int Res = dwarf_get_ranges_b(S->Dbg, Value, Die, &Real, &List, &Count, &Bytes, &Err);
    if (Res != DW_DLV_OK) {
        if (Res == DW_DLV_ERROR) {
            Errors.push_back(LibraryError(S->Dbg, Err, QStringLiteral("reading a range list")));
        }
        return false;
    }
    U64 Base = Unit.LowPc;
    for (Dwarf_Signed i = 0; i < Count; ++i) {
        const Dwarf_Ranges& R = List[i];
        if (R.dwr_type == DW_RANGES_ADDRESS_SELECTION) {
            Base = R.dwr_addr2;
        } else if (R.dwr_type == DW_RANGES_ENTRY) {
            AddRange(Ranges, Base + R.dwr_addr1, Base + R.dwr_addr2);
        } else {
            break;
        }
    }
    dwarf_ranges_dealloc(S->Dbg, List, Count);
    return true;
}

} // namespace

bool ReadEntryAttributes(SESSION* S, const WALK_CONTEXT& C, UNIT& Unit, Dwarf_Die Die, ENTRY& E,
                         std::vector<RANGE>* Ranges, std::vector<ELF_ERROR_RECORD>& Errors,
                         std::deque<std::string>& Arena) {
    Dwarf_Attribute* Attrs = nullptr;
    Dwarf_Signed Count = 0;
    Dwarf_Error Err = nullptr;
    const int Res = dwarf_attrlist(Die, &Attrs, &Count, &Err);
    if (Res == DW_DLV_NO_ENTRY) {
        return true;
    }
    if (Res != DW_DLV_OK) {
        Errors.push_back(LibraryError(S->Dbg, Err, QStringLiteral("reading attributes")));
        return false;
    }
    bool HasLow = false;
    bool HighIsSize = false;
    bool HasHigh = false;
    U64 Low = 0;
    U64 High = 0;
    Dwarf_Attribute RangesAttr = nullptr;
    Dwarf_Half RangesForm = 0;
    for (Dwarf_Signed i = 0; i < Count; ++i) {
        Dwarf_Attribute A = Attrs[i];
        Dwarf_Half Num = 0;
        Dwarf_Half Form = 0;
        if (dwarf_whatattr(A, &Num, &Err) != DW_DLV_OK || dwarf_whatform(A, &Form, &Err) != DW_DLV_OK) {
            DropError(S->Dbg, Err);
            Err = nullptr;
            continue;
        }
        switch (Num) {
        case DW_AT_name: {
            char* Name = nullptr;
            if (dwarf_formstring(A, &Name, &Err) == DW_DLV_OK) {
                E.Name = Keep(Arena, C.File, Name);
            } else {
                Errors.push_back(LibraryError(S->Dbg, Err, QStringLiteral("reading a name")));
                Err = nullptr;
            }
            break;
        }
        case DW_AT_declaration:
            E.Flags |= Flag(A) ? EF_DECLARATION : 0;
            break;
        case DW_AT_artificial:
            E.Flags |= Flag(A) ? EF_ARTIFICIAL : 0;
            break;
        case DW_AT_external:
            E.Flags |= Flag(A) ? EF_EXTERNAL : 0;
            break;
        case DW_AT_main_subprogram:
            E.Flags |= Flag(A) ? EF_MAIN : 0;
            break;
        case DW_AT_byte_size:
            E.Flags |= EF_BYTE_SIZE;
            break;
        case DW_AT_specification:
            E.Spec = RefKey(S, C, Unit, A, Form, Errors);
            break;
        case DW_AT_abstract_origin:
            E.Origin = RefKey(S, C, Unit, A, Form, Errors);
            break;
        case DW_AT_type:
            E.Type = RefKey(S, C, Unit, A, Form, Errors);
            break;
        case DW_AT_signature:
            E.Type = RefKey(S, C, Unit, A, Form, Errors);
            E.Flags |= EF_SIGNATURE;
            break;
        case DW_AT_extension:
            E.Extension = RefKey(S, C, Unit, A, Form, Errors);
            break;
        case DW_AT_location:
            E.Flags |= EF_LOCATION;
            if ((E.Tag == DW_TAG_variable) && FixedLocation(S, A, Form)) {
                E.Flags |= EF_FIXED_ADDR;
            }
            break;
        case DW_AT_low_pc:
            if (Ranges) {
                Dwarf_Addr V = 0;
                if (dwarf_formaddr(A, &V, &Err) == DW_DLV_OK) {
                    Low = V;
                    HasLow = true;
                } else {
                    DropError(S->Dbg, Err);
                    Err = nullptr;
                }
            }
            break;
        case DW_AT_high_pc:
            if (Ranges) {
                if (IsAddressForm(Form)) {
                    Dwarf_Addr V = 0;
                    if (dwarf_formaddr(A, &V, &Err) == DW_DLV_OK) {
                        High = V;
                        HasHigh = true;
                    } else {
                        DropError(S->Dbg, Err);
                        Err = nullptr;
                    }
                } else {
                    Dwarf_Unsigned V = 0;
                    if (dwarf_formudata(A, &V, &Err) == DW_DLV_OK) {
                        High = V;
                        HasHigh = true;
                        HighIsSize = true;
                    } else {
                        DropError(S->Dbg, Err);
                        Err = nullptr;
                    }
                }
            }
            break;
        case DW_AT_ranges:
            RangesAttr = A;
            RangesForm = Form;
            break;
        default:
            break;
        }
    }
    if (Ranges) {
        if (E.Tag == DW_TAG_compile_unit || E.Tag == DW_TAG_partial_unit) {
            // The unit's own base for its lists, its own ranges included.
            Unit.HasLowPc = HasLow;
            Unit.LowPc = HasLow ? Low : 0;
        }
        E.RangeFirst = static_cast<U32>(Ranges->size());
        if (RangesAttr) {
            ReadRanges(S, Unit, Die, RangesAttr, RangesForm, *Ranges, Errors);
        } else if (HasLow && HasHigh) {
            // One pair as the entry gives it; only list entries are filtered.
            Ranges->push_back({Low, HighIsSize ? Low + High : High});
        }
        E.RangeCount = static_cast<U32>(Ranges->size()) - E.RangeFirst;
        E.Flags |= EF_RANGES_READ;
    }
    for (Dwarf_Signed i = 0; i < Count; ++i) {
        dwarf_dealloc_attribute(Attrs[i]);
    }
    dwarf_dealloc(S->Dbg, Attrs, DW_DLA_LIST);
    return true;
}

} // namespace DwarfInternal
