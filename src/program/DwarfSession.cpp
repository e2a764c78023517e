// The DWARF library's view of a file: its sections straight from the image, and the error records.

#include "program/DwarfInternal.h"

using namespace ElfInternal;

namespace DwarfInternal {
namespace {

/// Records per file beyond which the reader stays silent: a broken file must not flood the log.
constexpr int MAX_RECORDS_PER_FILE = 200;

const ELF_FILE* FileOf(void* Obj) {
    return static_cast<const ELF_FILE*>(Obj);
}

U32 Read32(const U8* P, bool Big) {
    return Big ? (U32(P[0]) << 24 | U32(P[1]) << 16 | U32(P[2]) << 8 | P[3])
               : (U32(P[3]) << 24 | U32(P[2]) << 16 | U32(P[1]) << 8 | P[0]);
}

U16 Read16(const U8* P, bool Big) {
    return Big ? static_cast<U16>(P[0] << 8 | P[1]) : static_cast<U16>(P[1] << 8 | P[0]);
}

bool IsListsSection(const char* Name) {
    return std::strcmp(Name, ".debug_rnglists") == 0 || std::strcmp(Name, ".debug_loclists") == 0;
}

int GetSectionInfo(void* Obj, Dwarf_Half Index, Dwarf_Obj_Access_Section* Out, int* Error) {
    const ELF_FILE* F = FileOf(Obj);
    if (Index >= F->Sections.size()) {
        *Error = DW_DLE_MDE;
        return DW_DLV_NO_ENTRY;
    }
    const ELF32_SHDR& Sh = F->Sections[Index];
    Out->addr = Sh.sh_addr;
    Out->type = Sh.sh_type;
    // A section whose bytes lie outside the file is given as empty: the library never reads past them.
    Out->size = SectionData(F, Index) ? Sh.sh_size : 0;
    Out->name = SectionName(F, Index);
    // The library frees twice on some broken list table headers: such a section is left out.
    if (Out->size && IsListsSection(Out->name) && !ValidListsSection(F, Index)) {
        Out->size = 0;
    }
    Out->link = Sh.sh_link;
    Out->info = Sh.sh_info;
    Out->entrysize = Sh.sh_entsize;
    return DW_DLV_OK;
}

Dwarf_Endianness GetByteOrder(void* Obj) {
    return FileOf(Obj)->Header.e_ident[5] == ElfFormat::ELFDATA2MSB ? DW_OBJECT_MSB : DW_OBJECT_LSB;
}

Dwarf_Small GetLengthSize(void*) {
    return 4;
}

Dwarf_Small GetPointerSize(void*) {
    return 4;
}

Dwarf_Unsigned GetSectionCount(void* Obj) {
    return FileOf(Obj)->Sections.size();
}

int LoadSection(void* Obj, Dwarf_Half Index, Dwarf_Small** Data, int* Error) {
    const ELF_FILE* F = FileOf(Obj);
    const U8* P = SectionData(F, Index);
    if (!P) {
        *Error = DW_DLE_MDE;
        return DW_DLV_NO_ENTRY;
    }
    // The library only reads section data; the image stays as read from the file.
    *Data = const_cast<Dwarf_Small*>(P);
    return DW_DLV_OK;
}

const Dwarf_Obj_Access_Methods METHODS = {GetSectionInfo,  GetByteOrder, GetLengthSize, GetPointerSize,
                                          GetSectionCount, LoadSection,  nullptr};

/// The catalogue entry closest to a library error number.
I32 CodeOfLibraryError(Dwarf_Unsigned Number) {
    switch (Number) {
    case DW_DLE_ALLOC_FAIL:
    case DW_DLE_DF_ALLOC_FAIL:
    case DW_DLE_DEBUG_RANGES_OUT_OF_MEM:
    case DW_DLE_MACINFO_MALLOC_FAIL:
    case DW_DLE_DEBUG_MACRO_MALLOC_SPACE:
        return ELF_LIBERR_NO_MEMORY;
    case DW_DLE_DEBUG_INFO_NULL:
        return ELF_LIBERR_NO_DEBUG_INFO;
    case DW_DLE_CU_LENGTH_ERROR:
        return ELF_LIBERR_UNIT_SIZE;
    case DW_DLE_VERSION_STAMP_ERROR:
        return ELF_LIBERR_VERSION;
    case DW_DLE_DEBUG_LINE_LENGTH_BAD:
    case DW_DLE_LINE_OFFSET_BAD:
        return ELF_LIBERR_LINE_SIZE;
    case DW_DLE_LINE_FILE_NUM_BAD:
        return ELF_LIBERR_FILE_INDEX;
    case DW_DLE_ATTR_FORM_BAD:
        return ELF_LIBERR_BAD_FORM;
    case DW_DLE_BAD_REF_FORM:
    case DW_DLE_ATTR_FORM_OFFSET_BAD:
    case DW_DLE_OFFSET_BAD:
    case DW_DLE_DIE_BAD:
    case DW_DLE_BAD_REF_SIG8_FORM:
    case DW_DLE_REF_SIG8_NOT_HANDLED:
        return ELF_LIBERR_BAD_REFERENCE;
    case DW_DLE_DIE_ABBREV_BAD:
    case DW_DLE_DIE_ABBREV_LIST_NULL:
        return ELF_LIBERR_ABBREV;
    case DW_DLE_DEBUG_RANGES_OFFSET_BAD:
    case DW_DLE_DEBUG_RANGES_MISSING_END:
        return ELF_LIBERR_RANGE_OFFSET;
    case DW_DLE_DEBUG_LOC_SECTION_SHORT:
        return ELF_LIBERR_BAD_LOCLIST;
    case DW_DLE_MACINFO_STRING_NULL:
    case DW_DLE_MACINFO_STRING_EMPTY:
    case DW_DLE_MACINFO_INTERNAL_ERROR_SPACE:
    case DW_DLE_DEBUGMACINFO_ERROR:
    case DW_DLE_DEBUG_MACRO_LENGTH_BAD:
    case DW_DLE_DEBUG_MACRO_MAX_BAD:
    case DW_DLE_DEBUG_MACRO_INTERNAL_ERR:
    case DW_DLE_DEBUG_MACRO_INCONSISTENT:
        return ELF_LIBERR_MACRO;
    case DW_DLE_DEBUG_FRAME_LENGTH_BAD:
        return 14;
    case DW_DLE_FRAME_VERSION_BAD:
        return 20;
    case DW_DLE_FRAME_AUGMENTATION_UNKNOWN:
    case DW_DLE_DF_NO_CIE_AUGMENTATION:
        return 18;
    case DW_DLE_DEBUGFRAME_ERROR:
    case DW_DLE_DF_FRAME_DECODING_ERROR:
    case DW_DLE_FRAME_CIE_DECODE_ERROR:
    case DW_DLE_NO_CIE_FOR_FDE:
    case DW_DLE_ORPHAN_FDE:
    case DW_DLE_DEBUG_FRAME_LENGTH_NOT_MULTIPLE:
    case DW_DLE_DEBUG_FRAME_POSSIBLE_ADDRESS_BOTCH:
        return ELF_LIBERR_FRAME_INCONSISTENT;
    case DW_DLE_CIE_INSTR_EXEC_ERROR:
    case DW_DLE_FRAME_INSTR_EXEC_ERROR:
    case DW_DLE_FRAME_TABLE_COL_BAD:
        return 19;
    case DW_DLE_PC_NOT_IN_FDE_RANGE:
        return ELF_LIBERR_NO_FRAME;
    default:
        return ELF_LIBERR_GENERIC;
    }
}

} // namespace

bool ValidListsSection(const ELF_FILE* File, U32 Index) {
    const U8* P = SectionData(File, Index);
    if (!P) {
        return true;
    }
    const U32 Size = File->Sections[Index].sh_size;
    const bool Big = File->Header.e_ident[5] == ElfFormat::ELFDATA2MSB;
    // Tables of DWARF 5: unit length, version 5, address size, segment selector size 0, offset count.
    for (U32 At = 0; At < Size;) {
        if (Size - At < 12) {
            return false;
        }
        const U32 Length = Read32(P + At, Big);
        if (Length < 8 || Length > Size - At - 4) {
            return false;
        }
        const U16 Version = Read16(P + At + 4, Big);
        const U8 AddressSize = P[At + 6];
        const U8 SegmentSize = P[At + 7];
        const U32 Offsets = Read32(P + At + 8, Big);
        if (Version != 5 || (AddressSize != 4 && AddressSize != 8) || SegmentSize != 0 ||
            Offsets > (Length - 8) / 4) {
            return false;
        }
        At += Length + 4;
    }
    return true;
}

std::unique_ptr<SESSION> OpenSession(const ELF_FILE* File, std::vector<ELF_ERROR_RECORD>* Errors) {
    auto Session = std::make_unique<SESSION>();
    Session->File = File;
    Session->Interface.object = const_cast<ELF_FILE*>(File);
    Session->Interface.methods = &METHODS;
    Dwarf_Error Error = nullptr;
    const int Res =
        dwarf_object_init_b(&Session->Interface, nullptr, nullptr, DW_GROUPNUMBER_ANY, &Session->Dbg, &Error);
    if (Res != DW_DLV_OK) {
        if (Errors) {
            if (Res == DW_DLV_ERROR) {
                Errors->push_back(LibraryError(nullptr, Error, QStringLiteral("opening the debug sections")));
            } else {
                Errors->push_back(ReaderError(ELF_LIBERR_NO_DEBUG_INFO, QString(), ELF_SEVERITY_NOTE));
            }
        } else if (Res == DW_DLV_ERROR) {
            DropError(nullptr, Error);
        }
        return nullptr;
    }
    // Frame rows in the numbering that the frame logic uses: 1034 undefined, 1035 same as caller; the
    // table covers the core registers, the single and the double precision registers.
    dwarf_set_frame_rule_table_size(Session->Dbg, 320);
    dwarf_set_frame_rule_initial_value(Session->Dbg, DW_FRAME_UNDEFINED_VAL);
    dwarf_set_frame_cfa_value(Session->Dbg, DW_FRAME_CFA_COL3);
    dwarf_set_frame_same_value(Session->Dbg, DW_FRAME_SAME_VAL);
    dwarf_set_frame_undefined_value(Session->Dbg, DW_FRAME_UNDEFINED_VAL);
    return Session;
}

void CloseSession(SESSION* Session) {
    if (Session && Session->Dbg) {
        Dwarf_Error Error = nullptr;
        if (dwarf_object_finish(Session->Dbg, &Error) == DW_DLV_ERROR) {
            DropError(nullptr, Error);
        }
        Session->Dbg = nullptr;
    }
}

ELF_ERROR_RECORD LibraryError(Dwarf_Debug Dbg, Dwarf_Error Error, const QString& Where) {
    ELF_ERROR_RECORD R;
    R.Severity = ELF_SEVERITY_UNIT;
    if (Error) {
        R.Code = CodeOfLibraryError(dwarf_errno(Error));
        R.Detail = Where + QStringLiteral(": ") + QString::fromUtf8(dwarf_errmsg(Error));
        DropError(Dbg, Error);
    } else {
        R.Code = ELF_LIBERR_GENERIC;
        R.Detail = Where;
    }
    if (R.Code == ELF_LIBERR_SECTION_EMPTY || R.Code == 40) {
        R.Args[0] = Where;
    }
    return R;
}

ELF_ERROR_RECORD ReaderError(I32 Code, const QString& Detail, U32 Severity) {
    ELF_ERROR_RECORD R;
    R.Code = Code;
    R.Severity = Severity;
    R.Detail = Detail;
    return R;
}

void DropError(Dwarf_Debug Dbg, Dwarf_Error Error) {
    if (Error) {
        dwarf_dealloc(Dbg, Error, DW_DLA_ERROR);
    }
}

void Report(DEBUG_INFO* Info, const ELF_ERROR_RECORD& Record) {
    if (Info && Info->ErrorsReported++ >= MAX_RECORDS_PER_FILE) {
        return;
    }
    ELF_ReportError(Record);
}

const char* Keep(std::deque<std::string>& Arena, const ELF_FILE* File, const char* Text) {
    if (!Text) {
        return nullptr;
    }
    if (InImage(File, Text)) {
        return Text;
    }
    Arena.emplace_back(Text);
    return Arena.back().c_str();
}

} // namespace DwarfInternal
