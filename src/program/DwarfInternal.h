#pragma once

// State and helpers shared by the parts of the debug information reader; not for use outside src/program.
// This header and the Dwarf*.cpp files are the only place that sees the DWARF library.

#include "program/DwarfReader.h"
#include "program/ElfInternal.h"

#include <libdwarf/dwarf.h>
#include <libdwarf/libdwarf.h>

#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace DwarfInternal {

/// A key is a section offset in ".debug_info", or the size of ".debug_info" plus an offset in
/// ".debug_types": one number space for both.
constexpr U32 NO_KEY = 0xFFFFFFFF;

enum ENTRY_FLAGS : U16 {
    EF_CHILDREN = 0x0001,
    EF_DECLARATION = 0x0002,
    EF_ARTIFICIAL = 0x0004,
    EF_EXTERNAL = 0x0008,
    EF_BYTE_SIZE = 0x0010,
    EF_FIXED_ADDR = 0x0020,
    EF_MAIN = 0x0040,
    EF_TYPES = 0x0080, ///< lies in ".debug_types"
    EF_LOCATION = 0x0100,
    EF_RANGES_READ = 0x0200,
    EF_SIGNATURE = 0x0400, ///< a type unit's skeleton: Type is the type unit's type
};

/// What the reader keeps of one entry. Names point into the file image or into the file's string arena.
struct ENTRY {
    U32 Key = NO_KEY;
    U32 Parent = NO_KEY;
    U32 Last = NO_KEY; ///< key of the last entry of its subtree (itself without children)
    U32 Spec = NO_KEY; ///< DW_AT_specification
    U32 Origin = NO_KEY;
    U32 Type = NO_KEY;
    U32 Extension = NO_KEY;
    U32 Unit = 0; ///< index into the units
    U32 RangeFirst = 0;
    U32 RangeCount = 0;
    U16 Tag = 0;
    U16 Flags = 0;
    const char* Name = nullptr;
};

struct RANGE {
    U64 Low;
    U64 High;
};

enum LINK_KINDS : U32 { LINK_LOCAL, LINK_MEMBER, LINK_BASE };
/// Owner's list of kind Kind holds Child; sorted by owner and kind, walk order kept.
struct LINK {
    U32 Owner;
    U32 Kind;
    U32 Child;
};

struct LINE {
    U32 Address;
    U32 File; ///< index into the source files list
    U32 Line;
    U16 Column;
    U8 Flags; ///< 1 is_stmt, 2 end_sequence
    U8 Reserved;
    U32 Unit;
};

struct UNIT {
    U32 Key = NO_KEY; ///< of the unit's root entry
    U32 HeaderOffset = 0;
    U32 End = 0; ///< key just past the unit
    U16 Version = 0;
    U16 AddressSize = 4;
    bool IsTypes = false;
    bool HasLowPc = false;
    U64 LowPc = 0;          ///< base of range and location lists
    std::vector<U32> Files; ///< line table file number (from 0) to source file index
    U32 FileBase = 1;       ///< number of the first file: 0 from version 5 on, else 1
};

/// The state of one libdwarf consumer over the image of a file.
struct SESSION {
    const ELF_FILE* File = nullptr;
    Dwarf_Obj_Access_Interface Interface{};
    Dwarf_Debug Dbg = nullptr;
};

/// One error record waiting to be reported in unit order.
struct PENDING_ERROR {
    ELF_ERROR_RECORD Record;
};

/// Everything the reader produced for one file.
struct DEBUG_INFO {
    ELF_FILE* File = nullptr;
    std::unique_ptr<SESSION> Main; ///< for reading on demand after the open
    U32 InfoSize = 0;
    U32 TypesSize = 0;
    I32 InfoSection = -1;
    I32 TypesSection = -1;

    std::vector<ENTRY> Entries; ///< sorted by key
    std::unordered_map<U32, ENTRY> OnDemand;
    std::vector<RANGE> Ranges;
    std::vector<LINK> Links;
    std::unordered_map<U32, U32> Definitions; ///< specified entry to the entry that specifies it
    std::vector<UNIT> Units;
    std::vector<U32> Lists[ELF_LIST_COUNT];
    std::unordered_map<U64, U32> Signatures; ///< type signature to the key of the type's entry

    std::vector<LINE> Lines;
    std::vector<const char*> SourceFiles;
    std::unordered_map<std::string_view, U32> SourceFileIndex;
    std::vector<std::vector<U32>> SourceFileUnits;

    std::vector<ELF_MACRO> Macros;
    std::unordered_map<U32, U32> NameIndex; ///< djb2 hash of a name to a key
    U32 EntryFunc = NO_KEY;

    Dwarf_Cie* Cies = nullptr;
    Dwarf_Signed CieCount = 0;
    Dwarf_Fde* Fdes = nullptr;
    Dwarf_Signed FdeCount = 0;
    Dwarf_Cie* EhCies = nullptr;
    Dwarf_Signed EhCieCount = 0;
    Dwarf_Fde* EhFdes = nullptr;
    Dwarf_Signed EhFdeCount = 0;

    std::vector<std::pair<U32, U32>> UnitKeys;   ///< (root key, unit index), sorted
    std::vector<std::deque<std::string>> Arenas; ///< texts of the units that were not in the image
    std::deque<std::string> Arena;               ///< texts read on demand
    std::unordered_map<U32, std::string> TypeNames;
    int ErrorsReported = 0;
};

// Sessions (DwarfSession.cpp).
/// Opens a consumer over the image; null after reporting why.
std::unique_ptr<SESSION> OpenSession(const ELF_FILE* File, std::vector<ELF_ERROR_RECORD>* Errors);
void CloseSession(SESSION* Session);
/// Whether the table headers of a ".debug_rnglists" or ".debug_loclists" section hold together; the
/// library is not given a section that fails.
bool ValidListsSection(const ELF_FILE* File, U32 Index);
/// A record for a library error, which it frees; Code is the reader's code for the failed step (or -1 for
/// the library's own code alone).
ELF_ERROR_RECORD LibraryError(Dwarf_Debug Dbg, Dwarf_Error Error, const QString& Where);
ELF_ERROR_RECORD ReaderError(I32 Code, const QString& Detail, U32 Severity = ELF_SEVERITY_UNIT);
/// Frees a library error without a record.
void DropError(Dwarf_Debug Dbg, Dwarf_Error Error);
/// Gives a record to the callback, at most a bounded number per file.
void Report(DEBUG_INFO* Info, const ELF_ERROR_RECORD& Record);
/// Text that stays valid while the file is open: pointers into the image are kept, others copied.
const char* Keep(std::deque<std::string>& Arena, const ELF_FILE* File, const char* Text);
inline bool InImage(const ELF_FILE* File, const void* P) {
    const U8* B = File->Image.get();
    return P >= B && P < B + File->FileSize;
}
inline U32 Djb2(const char* Text) {
    U32 H = 5381;
    for (const unsigned char* P = reinterpret_cast<const unsigned char*>(Text); *P; ++P) {
        H = H * 33 + *P;
    }
    return H;
}

// Walking units (DwarfUnitWalk.cpp).
/// What a worker produced for one unit, merged in unit order.
struct UNIT_RESULT {
    UNIT Unit;
    std::vector<ENTRY> Entries;
    std::vector<RANGE> Ranges;
    std::vector<LINK> Links;
    std::vector<std::pair<int, U32>> ListItems; ///< (list, key) in walk order
    std::vector<const char*> FileNames;         ///< the unit's file table, from file number FileBase
    std::vector<LINE> Lines;                    ///< File is an index into FileNames
    std::vector<ELF_MACRO> Macros;              ///< File is an index into FileNames or none
    std::vector<U32> MacroSets;                 ///< offsets of the macro sets read
    std::vector<ELF_ERROR_RECORD> Errors;
    std::deque<std::string> Arena;
    int Language = 0;
    bool Failed = false;
    bool FilesFailed = false;
    bool LinesFailed = false;
    bool MacrosFailed = false;
    double TreeMs = 0, FileMs = 0, LineMs = 0, MacroMs = 0;
};

/// The header of one unit, found by the first pass.
struct UNIT_HEADER {
    U32 HeaderOffset;
    U32 DieOffset;
    U32 End; ///< section offset past the unit
    U16 Version;
    U16 AddressSize;
    bool IsTypes;
    U64 Signature;
    U32 TypeOffset; ///< of the type's entry, for a type unit
};

struct WALK_CONTEXT {
    const ELF_FILE* File;
    U32 InfoSize;
    U32 TypesSize;
    const std::unordered_map<U64, U32>* Signatures;
    /// Macro sets already read by any unit (set under Lock), so that an imported set is read once.
    std::unordered_set<U64>* MacroSetsSeen;
    std::mutex* Lock;
};
/// Reads one unit through Session: its tree, then for a compile unit its files, lines and macros.
void ReadUnit(SESSION* Session, const WALK_CONTEXT& Context, const UNIT_HEADER& Header, U32 UnitIndex,
              UNIT_RESULT& Out);

/// Key of a section offset.
inline U32 KeyOf(U32 InfoSize, U64 Offset, bool IsTypes) {
    return static_cast<U32>(IsTypes ? Offset + InfoSize : Offset);
}

/// Reads the attributes of an entry into E (tag, name, links, flags; ranges into Ranges when asked).
/// Returns false on a library error (the record goes to Errors).
bool ReadEntryAttributes(SESSION* Session, const WALK_CONTEXT& Context, UNIT& Unit, Dwarf_Die Die, ENTRY& E,
                         std::vector<RANGE>* Ranges, std::vector<ELF_ERROR_RECORD>& Errors,
                         std::deque<std::string>& Arena);

// Lines, files, macros (DwarfLines.cpp, DwarfMacros.cpp).
void ReadUnitLines(SESSION* Session, Dwarf_Die UnitDie, DEBUG_INFO* Unused, UNIT_RESULT& Out);
void ReadUnitMacros(SESSION* Session, const WALK_CONTEXT& Context, Dwarf_Die UnitDie, UNIT_RESULT& Out);
void ReadMacinfo(SESSION* Session, DEBUG_INFO* Info);

// Frames (DwarfFrames.cpp).
int ReadFrames(DEBUG_INFO* Info);
void FreeFrames(DEBUG_INFO* Info);

// On-demand access (DwarfEntries.cpp).
DEBUG_INFO* InfoOf(const ELF_FILE* File);
/// The file and key of a kind 1 handle of a loaded file; null if invalid.
DEBUG_INFO* Decode(ELF_SYM_HANDLE Handle, U32& Key);
ELF_SYM_HANDLE HandleOf(const DEBUG_INFO* Info, U32 Key);
/// The entry of a key: kept, or read on demand and kept from then on; null if there is none.
const ENTRY* Entry(DEBUG_INFO* Info, U32 Key);
/// An entry's DW_AT_type, inherited from its abstract origin or DW_AT_specification (concrete instances of
/// functions and their parameters carry only the link); a type unit's skeleton gives way to the type.
U32 TypeKey(DEBUG_INFO* Info, const ENTRY* E);
/// The library's entry at a key (to be freed with dwarf_dealloc_die), or null.
Dwarf_Die OpenDie(DEBUG_INFO* Info, U32 Key);
/// Section offset and section flag of a key.
U64 OffsetOfKey(const DEBUG_INFO* Info, U32 Key, bool& IsTypes);
/// The unit that holds a key, or null.
const UNIT* UnitOf(const DEBUG_INFO* Info, U32 Key);
/// The attribute of an entry, with inheritance over DW_AT_specification, abstract origin and definition;
/// the caller frees the returned die and attribute with FreeAttr. False if absent.
struct ATTR {
    Dwarf_Die Die = nullptr;
    Dwarf_Attribute Attr = nullptr;
    U32 Key = NO_KEY; ///< the entry that had it
};
bool FindAttr(DEBUG_INFO* Info, U32 Key, Dwarf_Half Attribute, ATTR& Out, bool Inherit = true);
void FreeAttr(DEBUG_INFO* Info, ATTR& A);
/// An unsigned or signed constant of an attribute.
bool AttrUnsigned(DEBUG_INFO* Info, const ATTR& A, U64& Value);
bool AttrSigned(DEBUG_INFO* Info, const ATTR& A, I64& Value);
/// The definition of a declared or size-less entry: its definition link, else the name index; NO_KEY.
U32 DefinitionOf(DEBUG_INFO* Info, U32 Key);
/// Links of an owner of a kind, in walk order.
std::pair<const LINK*, const LINK*> LinksOf(const DEBUG_INFO* Info, U32 Owner, U32 Kind);

} // namespace DwarfInternal
