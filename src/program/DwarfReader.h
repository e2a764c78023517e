#pragma once

// The debug information of an open ELF file as the rest of the program sees it: symbol handles and
// accessors, the classified lists, source files and line rows, macros and frame descriptions. Nothing here
// names the DWARF library. Every call is made under the program data mutex (ElfWrapper.h); accessors
// answer neutrally (0, -1, an empty text or list) for an invalid handle.

#include "program/ElfParser.h"

#include <string>
#include <vector>

/// A symbol of the program: a debug information entry (kind 1) or an ELF symbol (kind 2); 0 is none.
/// Bits 63..40 marker 0xE0FE0F, 37..35 file slot, 34..32 kind, 31 entry lies in ".debug_types",
/// 30..0 section offset (kind 1) or symbol index (kind 2).
typedef U64 ELF_SYM_HANDLE;
typedef std::vector<ELF_SYM_HANDLE> ELF_SYM_LIST;

enum ELF_SYM_KINDS : int { ELF_SYM_KIND_DEBUG = 1, ELF_SYM_KIND_ELF = 2 };

/// Tag of an invalid handle.
constexpr U32 ELF_INVALID_TAG = 65535;

/// Own error codes of the debug information reader (the catalogue maps them like the others).
enum ELF_DEBUG_ERROR_CODES : I32 {
    ELF_ERR_RECURSION = 101,
    ELF_ERR_CONST_VALUE_SIZE = 102,
    ELF_ERR_TYPE_UNIT = 108,
    ELF_ERR_COMPILE_UNIT = 109,
    ELF_ERR_SOURCE_FILES = 110,
    ELF_ERR_SOURCE_LINES = 111,
    ELF_ERR_MACROS = 112,
    ELF_ERR_FRAMES = 113,
    ELF_ERR_NAME_INDEX = 114,
};

/// Library errors arrive as catalogue indices 0 to 48; these are the ones the reader gives itself.
enum ELF_LIBRARY_ERROR_CODES : I32 {
    ELF_LIBERR_NO_MEMORY = 0,
    ELF_LIBERR_SECTION_EMPTY = 2,
    ELF_LIBERR_BAD_REFERENCE = 3,
    ELF_LIBERR_BAD_LOCLIST = 4,
    ELF_LIBERR_BAD_FORM = 5,
    ELF_LIBERR_NO_DEBUG_INFO = 6,
    ELF_LIBERR_UNIT_SIZE = 7,
    ELF_LIBERR_VERSION = 8,
    ELF_LIBERR_LINE_SIZE = 11,
    ELF_LIBERR_FILE_INDEX = 12,
    ELF_LIBERR_FRAME_INCONSISTENT = 17,
    ELF_LIBERR_RANGE_OFFSET = 21,
    ELF_LIBERR_MACRO = 22,
    ELF_LIBERR_GENERIC = 38,
    ELF_LIBERR_ABBREV = 42,
    ELF_LIBERR_NO_ENTRY_AT = 44,
    ELF_LIBERR_NO_FRAME = 45,
};

/// Severity words of the reader's records: an error that ends the step, a problem of one unit, a note.
constexpr U32 ELF_SEVERITY_UNIT = 0x1C;
constexpr U32 ELF_SEVERITY_NOTE = 0x09;

// Handles.
ELF_SYM_HANDLE ELF_MakeDebugHandle(int Slot, U32 Offset, bool InTypes);
ELF_SYM_HANDLE ELF_MakeElfSymHandle(int Slot, U32 Index);
/// 1 or 2 for a well-formed handle, 0 otherwise; no check of the file.
int ELF_GetHandleKind(ELF_SYM_HANDLE Handle);
int ELF_GetHandleSlot(ELF_SYM_HANDLE Handle);
U32 ELF_GetHandleOffset(ELF_SYM_HANDLE Handle);
bool ELF_IsTypesHandle(ELF_SYM_HANDLE Handle);
/// The loaded file a handle belongs to, or null.
ELF_FILE* ELF_GetHandleFile(ELF_SYM_HANDLE Handle);

// By handle.
/// The name, with fall-backs to the abstract origin, DW_AT_specification and the definition; base type
/// names normalised ("uint", "ulong", ...). Shared buffer of 512 bytes, valid until the next call.
const char* ELF_GetSymName(ELF_SYM_HANDLE Handle);
/// DWARF tag for kind 1, ELF type for kind 2, ELF_INVALID_TAG for an invalid handle.
U32 ELF_GetSymTag(ELF_SYM_HANDLE Handle);
/// A base type name in the program's spelling: "unsigned int" is "uint", "long long unsigned int" is
/// "long ulong", "unsigned long long" is "ulong long".
std::string ELF_NormaliseBaseTypeName(const char* Name);
/// The C declaration text of the symbol's type ("volatile int", "struct point*", "int[4][2]").
const char* ELF_GetSymTypeName(ELF_SYM_HANDLE Handle);
/// The symbol's DW_AT_type; with ResolveTypedefs the complete type past typedefs and qualifiers (0: void).
ELF_SYM_HANDLE ELF_GetSymType(ELF_SYM_HANDLE Handle, bool ResolveTypedefs);
U32 ELF_GetSymByteSize(ELF_SYM_HANDLE Handle);
U32 ELF_GetSymRangeCount(ELF_SYM_HANDLE Handle);
U64 ELF_GetSymLowPC(ELF_SYM_HANDLE Handle, U32 Index);
U64 ELF_GetSymHighPC(ELF_SYM_HANDLE Handle, U32 Index);
/// st_shndx for kind 2, the index of the debug section for kind 1; -1 if invalid.
I32 ELF_GetSymSection(ELF_SYM_HANDLE Handle);
/// The unit of an entry; for an ELF symbol the file symbol before it (with one after it).
ELF_SYM_HANDLE ELF_GetSymParent(ELF_SYM_HANDLE Handle);
/// The entry that contains this one (one level up), or 0.
ELF_SYM_HANDLE ELF_GetSymContainer(ELF_SYM_HANDLE Handle);
/// The longest chain of enclosing scopes over parents, DW_AT_specification and abstract origins, innermost
/// first, without the symbol; at most 64 levels.
ELF_SYM_LIST ELF_GetSymScopes(ELF_SYM_HANDLE Handle);
/// The nearest ancestor (over the same links) with one of the tags, or 0.
ELF_SYM_HANDLE ELF_GetSymAncestor(ELF_SYM_HANDLE Handle, const std::vector<U32>& Tags);
ELF_SYM_HANDLE ELF_GetSymAbstractOrigin(ELF_SYM_HANDLE Handle);
ELF_SYM_HANDLE ELF_GetSymSpecification(ELF_SYM_HANDLE Handle);
/// The entry that completes this one: the one whose DW_AT_specification names it, else one of the same name
/// from the name index (a struct declared here and defined in another unit).
ELF_SYM_HANDLE ELF_GetSymDefinition(ELF_SYM_HANDLE Handle);
ELF_SYM_HANDLE ELF_GetSymObjectPointer(ELF_SYM_HANDLE Handle);

U32 ELF_GetSymLocalCount(ELF_SYM_HANDLE Handle);
ELF_SYM_HANDLE ELF_GetSymLocal(ELF_SYM_HANDLE Handle, U32 Index);
U32 ELF_GetSymMemberCount(ELF_SYM_HANDLE Handle);
ELF_SYM_HANDLE ELF_GetSymMember(ELF_SYM_HANDLE Handle, U32 Index);
U32 ELF_GetSymBaseClassCount(ELF_SYM_HANDLE Handle);
ELF_SYM_HANDLE ELF_GetSymBaseClass(ELF_SYM_HANDLE Handle, U32 Index);
/// Position of a member by exact name, -1 if not there.
I32 ELF_GetMemberIndex(ELF_SYM_HANDLE Container, const char* Name);

/// 1 public, 2 protected, 3 private, 0 none.
int ELF_GetSymAccess(ELF_SYM_HANDLE Handle);
int ELF_GetSymVirtuality(ELF_SYM_HANDLE Handle);
bool ELF_IsSymSigned(ELF_SYM_HANDLE Handle);
bool ELF_IsSymLocal(ELF_SYM_HANDLE Handle);
bool ELF_IsSymStatic(ELF_SYM_HANDLE Handle);
/// Whether the entry has the attribute, read with inheritance.
bool ELF_HasSymAttr(ELF_SYM_HANDLE Handle, U32 Attribute);
/// An unsigned attribute value (with inheritance), or Default.
U64 ELF_GetSymAttrValue(ELF_SYM_HANDLE Handle, U32 Attribute, U64 Default = 0);
/// The file of DW_AT_decl_file (0x3A) or DW_AT_call_file (0x58) as a path, or "".
const char* ELF_GetSymDeclFile(ELF_SYM_HANDLE Handle, U32 Attribute);
/// The line of DW_AT_decl_line or DW_AT_call_line, given the file attribute; 0 if none.
U32 ELF_GetSymDeclLine(ELF_SYM_HANDLE Handle, U32 FileAttribute);
U32 ELF_GetSymBitOffset(ELF_SYM_HANDLE Handle);
/// DW_AT_bit_size, 0 without.
U32 ELF_GetSymBitSize(ELF_SYM_HANDLE Handle);

struct ELF_ARRAY_INFO {
    U32 ByteSize = 0;
    U32 ElementSize = 0;
    U32 ElementCount = 0;
    U32 Dimensions = 0;
    U32 Lengths[10] = {};
};
ELF_ARRAY_INFO ELF_GetArrayInfo(ELF_SYM_HANDLE Handle);

/// A DW_AT_const_value as bytes (a number in the target's byte order); false if none or too large.
/// A string attribute of the entry itself (DW_AT_comp_dir, DW_AT_producer), empty if absent.
QString ELF_GetSymStringAttr(ELF_SYM_HANDLE Handle, U32 Attribute);
bool ELF_GetSymConstValue(ELF_SYM_HANDLE Handle, std::vector<U8>& Bytes);

/// One operation of a location expression, operands as the library decodes them.
struct ELF_LOC_OP {
    U8 Op = 0;
    U64 Operand1 = 0;
    U64 Operand2 = 0;
    U64 Operand3 = 0;
};
/// One entry of a location: the expression and the file address range where it holds (both 0 for a
/// single expression that always holds).
struct ELF_LOC_EXPR {
    bool IsList = false;
    U64 Low = 0;
    U64 High = 0;
    std::vector<ELF_LOC_OP> Ops;
};
/// The location description of Attribute (read with inheritance): one expression or the entries of a
/// location list (DWARF 2 to 5). -1 when there is none or it cannot be read.
int ELF_GetSymLocExprs(ELF_SYM_HANDLE Handle, U32 Attribute, std::vector<ELF_LOC_EXPR>& Out);

// Lists of a file, in the order in which the entries were met.
enum ELF_SYM_LISTS : int {
    ELF_LIST_GLOBALS,
    ELF_LIST_NAMESPACES,
    ELF_LIST_NAMESPACE_EXTENSIONS,
    ELF_LIST_TYPES,
    ELF_LIST_UNITS,
    ELF_LIST_FUNCTIONS,
    ELF_LIST_INLINE_FUNCTIONS,
    ELF_LIST_COUNT
};
U32 ELF_GetSymListCount(const ELF_FILE* File, int List);
ELF_SYM_HANDLE ELF_GetSymListItem(const ELF_FILE* File, int List, U32 Index);

/// One row of a line table, as the library gives it.
struct ELF_LINE_ROW {
    U64 Address = 0;
    U32 File = 0; ///< index into the source files list
    U32 Line = 0;
    U32 Column = 0;
    bool IsStmt = false;
    bool EndSequence = false;
    ELF_SYM_HANDLE Unit = 0;
};
U32 ELF_GetLineRowCount(const ELF_FILE* File);
ELF_LINE_ROW ELF_GetLineRow(const ELF_FILE* File, U32 Index);

/// Every distinct source file name of the line tables, with the units that use it.
U32 ELF_GetSourceFileCount(const ELF_FILE* File);
const char* ELF_GetSourceFile(const ELF_FILE* File, U32 Index);
ELF_SYM_LIST ELF_GetSourceFileUnits(const ELF_FILE* File, U32 Index);

/// A macro definition: the text is the name, a blank and the value.
struct ELF_MACRO {
    U32 Kind = 0; ///< 1 define
    const char* Text = "";
    U32 Line = 0;
    U32 File = 0xFFFFFFFF; ///< index into the source files list, or none
};
U32 ELF_GetMacroCount(const ELF_FILE* File);
ELF_MACRO ELF_GetMacro(const ELF_FILE* File, U32 Index);

/// A rule of a frame row: how to find a register's (or the CFA's) value in the caller.
enum ELF_FRAME_RULE_KINDS : U8 {
    ELF_RULE_UNDEFINED,
    ELF_RULE_SAME,
    ELF_RULE_OFFSET,     ///< value at CFA + offset
    ELF_RULE_VAL_OFFSET, ///< CFA + offset
    ELF_RULE_REGISTER,   ///< in another register (the CFA: register + offset)
    ELF_RULE_EXPRESSION,
    ELF_RULE_VAL_EXPRESSION,
};
struct ELF_FRAME_RULE {
    U8 Kind = ELF_RULE_UNDEFINED;
    U16 Register = 0;
    I64 Offset = 0;
};
/// One row of a frame description: from Pc on, until the next row.
struct ELF_FRAME_ROW {
    U64 Pc = 0;
    ELF_FRAME_RULE Cfa;
    std::vector<std::pair<U16, ELF_FRAME_RULE>> Registers; ///< rules other than undefined and same
};
/// Frame descriptions of ".debug_frame" and then ".eh_frame".
U32 ELF_GetFdeCount(const ELF_FILE* File);
U32 ELF_GetCieCount(const ELF_FILE* File);
bool ELF_GetFdeRange(const ELF_FILE* File, U32 Index, U64& Low, U64& High);
/// Every row of a frame description; false if it cannot be read.
bool ELF_GetFdeRows(const ELF_FILE* File, U32 Index, std::vector<ELF_FRAME_ROW>& Rows);
/// The row in force at a file address; false (code 45 reported) without frame information there.
bool ELF_GetFrameRowAt(const ELF_FILE* File, U64 Pc, ELF_FRAME_ROW& Row);

/// The program's start function (DW_AT_main_subprogram, else "main"), or 0.
ELF_SYM_HANDLE ELF_GetEntryFunc(const ELF_FILE* File);
/// Count of entries the reader keeps.
U32 ELF_GetDebugEntryCount(const ELF_FILE* File);

/// Reads the debug information of a file that is being opened; called once by ELF_Open. 0, or negative
/// when nothing usable could be read (the file opens anyway).
int ELF_ReadDebugInfo(ELF_FILE* File);
/// Frees what ELF_ReadDebugInfo built; called by ELF_Close.
void ELF_FreeDebugInfo(ELF_FILE* File);
/// Progress of the reading, in bytes of debug information, on the thread that reads: 0 first, Total
/// only once the reading is complete. Not called for a file without debug information.
typedef void (*ELF_PROGRESS_CALLBACK)(U64 Done, U64 Total, void* User);
void ELF_SetDebugProgressCallback(ELF_PROGRESS_CALLBACK Callback, void* User);
/// How many threads read units, each with its own consumer; 0 or 1 is one (the default).
void ELF_SetDebugReaderThreads(int Count);
