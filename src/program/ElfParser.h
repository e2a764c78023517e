#pragma once

#include "app/core/Types.h"
#include "program/ElfFormat.h"

#include <QString>

#include <memory>
#include <vector>

/// Error codes that the parser gives to its callback; the catalogue turns them into log lines.
enum ELF_ERROR_CODES : I32 {
    ELF_ERR_INVALID_HANDLE = 100,
    ELF_ERR_NO_MAGIC = 118,
    ELF_ERR_NOT_EXECUTABLE = 119,
    ELF_ERR_CLASS_NONE = 120,
    ELF_ERR_DATA_NONE = 121,
    ELF_ERR_HEADER_VERSION = 122,
    ELF_ERR_FILE_VERSION = 123,
    ELF_ERR_TOO_MANY_FILES = 124,
    ELF_ERR_OPEN = 125,
    ELF_ERR_FILE_SIZE = 126,
    ELF_ERR_OUT_OF_MEMORY = 127,
    ELF_ERR_READ = 128,
    ELF_ERR_DEBUG_INFO = 133,
};

/// Severity words of an error record (MSG_FLAGS).
constexpr U32 ELF_SEVERITY_ERROR = 0x44;

/// One report of the parser: the numeric code, a severity word and up to four text arguments. Detail,
/// when not empty, says more than the catalogue row can (for example why a header was refused).
struct ELF_ERROR_RECORD {
    I32 Code = 0;
    U32 Severity = ELF_SEVERITY_ERROR;
    QString Args[4];
    QString Detail;
};

typedef void (*ELF_ERROR_CALLBACK)(const ELF_ERROR_RECORD& Record, void* User);

/// Byte order codes of a file.
enum ELF_BYTE_ORDER : int {
    ELF_LITTLE_ENDIAN = 0,
    ELF_BIG_ENDIAN = 1,
    ELF_UNKNOWN_ENDIAN = 2,
};

/// Source language of a program: 0 none, 1 C, 2 C++.
typedef int ELF_SRC_LANG;

namespace DwarfInternal {
struct DEBUG_INFO;
}

/// Number of files that can be open at once.
constexpr int ELF_SLOT_COUNT = 3;

/// One open ELF file. Owned by the parser module, freed by ELF_Close. All tables are in host byte order;
/// the image keeps the file's bytes as they are.
struct ELF_FILE {
    bool Loaded = false; ///< header, segments, sections and symbols all read
    U32 SymCount = 0;
    U32 FuncCount = 0; ///< unique function symbols
    U32 FileSize = 0;
    I64 OpenTime = 0; ///< milliseconds since the epoch at opening
    QString Path;
    std::unique_ptr<U8[]> Image;
    ELF32_EHDR Header{};
    std::vector<ELF32_PHDR> Segments;
    std::vector<ELF32_SHDR> Sections;
    std::vector<ELF32_SYM> Symbols;
    std::vector<const ELF32_SYM*> ByAddress; ///< every symbol, sorted by st_value
    std::vector<const ELF32_SYM*> Functions; ///< one function symbol per address, sorted by st_value
    I32 StrTabIndex = -1;
    I32 SymTabIndex = -1;
    U32 DwarfVersion = 0; ///< highest version of any unit, set by the debug information reader
    ELF_SRC_LANG SrcLang = 1;
    U32 CfaFactor = 1;                          ///< 4 for files with a ".note.iar" section
    DwarfInternal::DEBUG_INFO* Debug = nullptr; ///< what the debug information reader built
};

/// One program header as the rest of the program sees it; rebuilt at each open for the current file.
struct ELF_SEGMENT {
    U32 VirtualAddress = 0;
    U32 PhysicalAddress = 0;
    U32 FileSize = 0;
    U32 Type = 0;
    const U8* Data = nullptr; ///< null if the file range is not inside the file
};

/// One entry of the symbol relocation table: file addresses in [Start, End) are moved by Offset.
struct ELF_RELOCATION {
    U32 Start = 0;
    U32 End = 0;
    I32 Offset = 0;
    char Text[65] = {}; ///< the selector as the user gave it, at most 64 characters
};

/// What a relocation entry of the file says about one address.
struct ELF_RELOC_INFO {
    U32 SymIndex = 0;
    U32 Type = 0;
    I32 Addend = 0;
    QString SymName;
    U32 SymValue = 0;
};

// The ELF program model. Plain module state without locks: every caller holds the program data mutex
// (ElfWrapper.h). Accessors check that the file stands in a slot and that no open or close is under way,
// and give their neutral value (0, -1, null or an empty text) otherwise.

/// Opens a 32-bit executable and makes it the current file. Null on failure, after the callback has
/// heard the code. Without ParseDebugInfo the file is opened for its tables only.
ELF_FILE* ELF_Open(const QString& Path, bool ParseDebugInfo);
void ELF_Close(ELF_FILE* File);
/// Closes every open file (process exit, tests).
void ELF_CloseAll();

void ELF_SetErrorCallback(ELF_ERROR_CALLBACK Callback, void* User);
/// Gives a record to the installed callback; dropped without one.
void ELF_ReportError(const ELF_ERROR_RECORD& Record);
void ELF_ReportError(I32 Code, const QString& Detail = QString());
/// Catalogue index of a parser code: library codes 0..48 as they are, 100..117 to 49..66, 118..128 to
/// 23..33, 133 to 34; else -1.
int ELF_CatalogIndexOfCode(I32 Code);
/// A callback that logs the catalogue text of each record (and its detail) as program data messages.
void ELF_LogErrorRecord(const ELF_ERROR_RECORD& Record, void* User);

/// The file that address translation and the handle-free queries work on.
ELF_FILE* ELF_GetCurrentFile();
/// Makes File current and rebuilds the byte order flag, the relocation ranges, the segment table and the
/// address bounds.
void ELF_SetCurrentFile(ELF_FILE* File);
/// Slot index of an open file, or -1.
int ELF_GetSlotIndex(const ELF_FILE* File);
ELF_FILE* ELF_GetSlotFile(int Slot);
bool ELF_IsValid(const ELF_FILE* File);

/// Alignment of instructions, 2 until the core plug-in says otherwise.
void ELF_SetInstAlign(U32 Align);
U32 ELF_GetInstAlign();
U32 ELF_AlignInst(U32 Addr);

// Header.
int ELF_GetClass(const ELF_FILE* File);
/// 0 little, 1 big, 2 unknown (also for an invalid handle).
int ELF_GetByteOrder(const ELF_FILE* File);
/// The byte order flag of the current file.
int ELF_GetCurrentByteOrder();
const ELF32_EHDR* ELF_GetHeader(const ELF_FILE* File);
/// e_entry aligned down to the instruction alignment (0xFFFFFFFF unchanged), then relocated.
U32 ELF_GetEntryPoint(const ELF_FILE* File);
U32 ELF_GetSegmentCount(const ELF_FILE* File);
U32 ELF_GetSectionCount(const ELF_FILE* File);

// Segments; an index out of range yields 0.
U32 ELF_GetSegmentType(const ELF_FILE* File, U32 Index);
U32 ELF_GetSegmentOffset(const ELF_FILE* File, U32 Index);
U32 ELF_GetSegmentVirtAddr(const ELF_FILE* File, U32 Index);
U32 ELF_GetSegmentPhysAddr(const ELF_FILE* File, U32 Index);
U32 ELF_GetSegmentFileSize(const ELF_FILE* File, U32 Index);
U32 ELF_GetSegmentMemSize(const ELF_FILE* File, U32 Index);
U32 ELF_GetSegmentFlags(const ELF_FILE* File, U32 Index);
U32 ELF_GetSegmentAlign(const ELF_FILE* File, U32 Index);
/// Null when the segment's file range does not lie inside the file.
const U8* ELF_GetSegmentData(const ELF_FILE* File, U32 Index);
/// Distance from p_vaddr to the lowest allocated, non-empty section wholly inside the segment's file
/// bytes; 0 if there is none. Lets a reader skip an ELF header that a linker left in a load segment.
U32 ELF_GetSegmentFirstSectionOffset(const ELF_FILE* File, U32 Index);
/// The segment table of the current file.
const std::vector<ELF_SEGMENT>& ELF_GetSegmentTable();

// Sections; an index out of range yields 0 or an empty name.
const char* ELF_GetSectionName(const ELF_FILE* File, U32 Index);
U32 ELF_GetSectionType(const ELF_FILE* File, U32 Index);
U32 ELF_GetSectionFlags(const ELF_FILE* File, U32 Index);
U32 ELF_GetSectionAddr(const ELF_FILE* File, U32 Index);
U32 ELF_GetSectionOffset(const ELF_FILE* File, U32 Index);
U32 ELF_GetSectionSize(const ELF_FILE* File, U32 Index);
U32 ELF_GetSectionLink(const ELF_FILE* File, U32 Index);
U32 ELF_GetSectionInfo(const ELF_FILE* File, U32 Index);
U32 ELF_GetSectionAddrAlign(const ELF_FILE* File, U32 Index);
U32 ELF_GetSectionEntSize(const ELF_FILE* File, U32 Index);
/// Null for an empty or NOBITS section or one whose bytes lie outside the file.
const U8* ELF_GetSectionData(const ELF_FILE* File, U32 Index);
/// First section of that exact name, or -1.
I32 ELF_FindSection(const ELF_FILE* File, const char* Name);
/// First section whose sh_info is Info, or -1.
I32 ELF_FindSectionByInfo(const ELF_FILE* File, U32 Info);
/// First section of the type (-1: any) with address <= Addr < address + size, or -1.
I32 ELF_FindSectionAt(const ELF_FILE* File, U32 Addr, I64 Type);

// Symbols; names come from ".strtab".
U32 ELF_GetSymCount(const ELF_FILE* File);
const char* ELF_GetSymName(const ELF_FILE* File, U32 Index);
U32 ELF_GetSymValue(const ELF_FILE* File, U32 Index);
U32 ELF_GetSymSize(const ELF_FILE* File, U32 Index);
U32 ELF_GetSymType(const ELF_FILE* File, U32 Index);
U32 ELF_GetSymBinding(const ELF_FILE* File, U32 Index);
U32 ELF_GetSymOther(const ELF_FILE* File, U32 Index);
U32 ELF_GetSymSection(const ELF_FILE* File, U32 Index);
/// Index of a symbol record of the file, or -1.
I32 ELF_GetSymIndex(const ELF_FILE* File, const ELF32_SYM* Sym);
const char* ELF_GetSymRecordName(const ELF_FILE* File, const ELF32_SYM* Sym);

/// First symbol of that exact name in table order, or null.
const ELF32_SYM* ELF_FindSymByName(const ELF_FILE* File, const char* Name);
/// The function symbol covering Addr (looked up as Addr | 1); in non-strict mode the nearest lower one.
const ELF32_SYM* ELF_GetFuncSymAt(const ELF_FILE* File, U32 Addr, bool Strict);
/// The symbol of a type (-1: any) at Addr; exact or the nearest one at or below.
const ELF32_SYM* ELF_GetSymOfTypeAt(const ELF_FILE* File, U32 Addr, bool Exact, I32 Type);
/// The relocation entry whose r_offset is Addr, read in place; false if there is none.
bool ELF_GetRelocationAt(const ELF_FILE* File, U32 Addr, ELF_RELOC_INFO& Info);
U32 ELF_GetFuncCount(const ELF_FILE* File);
const ELF32_SYM* ELF_GetFunc(const ELF_FILE* File, U32 Index);
/// Largest size of all symbols of the type (2 functions, 1 objects).
U32 ELF_GetMaxSymSize(const ELF_FILE* File, U32 Type);

/// Smallest p_paddr of the PT_LOAD segments with file bytes; false if there is none.
bool ELF_GetProgramLoadAddr(const ELF_FILE* File, U32& Addr);
/// ".vectors", else the PROGBITS section that holds the program load address; -1 if none.
I32 ELF_GetVectorSection(const ELF_FILE* File);
U32 ELF_GetCfaFactor(const ELF_FILE* File);
ELF_SRC_LANG ELF_GetSrcLang(const ELF_FILE* File);

// Symbol relocation (Project.RelocateSymbols). The table belongs to the module and outlives a file
// until the last open file is closed.

/// Appends a record for the selector ("*", "<from>-<to>", a section or a symbol name) and resolves it
/// against the current file. -1 when it cannot be resolved; the record stays in the table either way.
int ELF_AddRelocation(const char* Selector, I32 Offset);
/// Resolves every record with a selector again, against the current file.
void ELF_ResolveRelocations();
const std::vector<ELF_RELOCATION>& ELF_GetRelocations();
void ELF_ClearRelocations();
/// File address to target address: the first entry with start < Addr + AddToLow and
/// Addr < end + AddToHigh whose offset does not wrap the address decides.
U32 ELF_ToTargetAddr(U32 Addr, U32 AddToLow, U32 AddToHigh);
U32 ELF_ToFileAddr(U32 Addr, U32 AddToLow, U32 AddToHigh);

/// Lowest relocated symbol address, highest relocated symbol end (up to 0x100000000) and the number of
/// symbols that gave them, for the current file.
struct ELF_ADDR_BOUNDS {
    U32 Low = 0xFFFFFFFF;
    U64 High = 0;
    U32 Count = 0;
};
const ELF_ADDR_BOUNDS& ELF_GetAddrBounds();
