#pragma once

// The program's look-up tables, built in one timed pass after a program opens: source locations by
// address and addresses by source line, the functions (with their inlined expansions) as an interval
// tree, and the file ids of the line tables. Every call takes the program data mutex itself.

#include "app/core/Types.h"
#include "program/DwarfReader.h"

#include <QString>
#include <QStringList>

#include <vector>

/// A source location: file id, line, column. All zero, or file id 0xFFFFFFFF, is invalid.
struct CSrcLoc {
    U32 File = 0;
    U32 Line = 0;
    U32 Column = 0;

    bool IsValid() const { return File != 0xFFFFFFFFu && (File | Line | Column) != 0; }
    bool operator==(const CSrcLoc& O) const { return File == O.File && Line == O.Line && Column == O.Column; }
    /// By line, then column, then file id.
    bool operator<(const CSrcLoc& O) const {
        if (Line != O.Line) {
            return Line < O.Line;
        }
        return Column != O.Column ? Column < O.Column : File < O.File;
    }
};
typedef std::vector<CSrcLoc> CSrcLocList;

/// The addresses of one source line in a function: the first stretch of code where it stands.
struct LINE_RANGE {
    CSrcLoc Loc;
    U32 Start = 0;
    U32 Size = 0;
};

/// The file id of a path as the debug information spells it: the hash of its lower-cased text, so
/// "Main.c" and "main.c" are one file. 0xFFFFFFFF means no file.
U32 ELF_FileIdOfPath(const QString& Path);

/// Builds the tables of the open program (the caller holds the data mutex: the load does). Logs each
/// phase's time and the totals.
void ELF_BuildSymbolStore();
/// Drops every table and cache.
void ELF_ClearSymbolStore();
bool ELF_IsSymbolStoreReady();

// Addresses to symbols.
/// The innermost function at the address (an inlined expansion, unless SkipInlined), or 0.
ELF_SYM_HANDLE ELF_GetFuncAt(U32 Addr, bool SkipInlined);
/// Every function and inlined expansion whose range holds the address, outermost first.
ELF_SYM_LIST ELF_GetFuncListAt(U32 Addr);
/// The locations at the address, sorted; without a row of its own, those of the row before it in the
/// same function up to 256 bytes back.
CSrcLocList ELF_GetSrcLocsAt(U32 Addr);
/// The first of ELF_GetSrcLocsAt, or an invalid location.
CSrcLoc ELF_GetSrcLocAt(U32 Addr);
/// The newest location stored at exactly this address, without the search.
CSrcLoc ELF_GetExactSrcLocAt(U32 Addr);
bool ELF_HasSrcAt(U32 Addr);
/// The line-table address before the address, or -1.
I64 ELF_GetPrevAddr(U32 Addr);
/// The line-table address after the address, or -1.
I64 ELF_GetNextAddr(U32 Addr);

// Source to addresses.
/// Every address of the line (any column), sorted.
std::vector<U32> ELF_GetAddrsOfLine(const CSrcLoc& Loc);
/// The first of them, or -1.
I64 ELF_GetFirstAddrOfLine(const CSrcLoc& Loc);
/// Every instruction address of the line: from each of its addresses, the instructions that follow
/// while their lines hold it (up to 256 bytes on), literal pools stepped over. Sorted.
std::vector<U32> ELF_GetAddrRangesOfLine(const CSrcLoc& Loc);
/// The next (previous) line of the file with code, within 1000 lines (down to line 0); invalid if none.
CSrcLoc ELF_GetNextCodeLine(const CSrcLoc& Loc);
CSrcLoc ELF_GetPrevCodeLine(const CSrcLoc& Loc);
/// The id of a path: its own, else a file of the same name (case ignored); -1 for none or an empty path.
I64 ELF_GetFileId(const QString& Path);
/// 1 if the file of the id is on disk at its recorded path, 0 if not, -1 if unknown (or an alias source).
int ELF_GetFileExists(U32 Id);
/// The compilation directories of the units whose file tables hold the path.
QStringList ELF_GetCompDirsOfFile(const QString& Path);
/// The path as the debug information records it, or an empty text.
QString ELF_GetFilePath(U32 Id);
std::vector<U32> ELF_GetFileIds();

/// The file whose code holds the address (from the units that use it), -1 for none.
I64 ELF_GetFileAt(U32 Addr);
/// The span of a file's code: start and size, (0, 0) if unknown.
std::pair<U32, U32> ELF_GetFileRange(U32 Id);
/// The functions and inlined calls that start in a file's code.
ELF_SYM_LIST ELF_GetFunctionsOfFile(U32 Id);

/// The call frame description that covers the address: its low and high pc (the highest of those that
/// start at the same low pc); false where none does.
bool ELF_GetFdeSpanAt(U32 Addr, U32& Low, U32& High);

/// Lowest and highest address of the line tables (0xFFFFFFFF and 0 without rows).
U32 ELF_GetLowAddr();
U32 ELF_GetHighAddr();
/// Line rows left out because they lie below the first function.
U32 ELF_GetRejectedRowCount();
/// The first address of the program's start function (main, or the one marked as the main subprogram),
/// -1 without one.
I64 ELF_GetEntryFuncPC();
// Names to symbols.
/// The symbols of a name, concatenated in this order as asked: locals of the current scope, debug
/// symbols (globals, inlined calls, functions, namespaces, units), types, ELF symbols. Sorted: inlined
/// calls first (the latest first), then the other debug entries, then the ELF symbols.
ELF_SYM_LIST ELF_FindSyms(const QString& Name, bool DebugSyms, bool LocalSyms, bool Types, bool ElfSyms,
                          bool Sorted);
/// The name a view shows: mode 0 the plain name, mode 1 with its scopes in front ("geometry::Circle::Area";
/// a file-scope symbol gets its unit's file name), mode 2 the same only where the plain name is not unique.
QString ELF_GetSymDisplayName(ELF_SYM_HANDLE Handle, int Mode);
/// Makes the function at Pc the current scope of the local name search.
void ELF_SetScope(U32 Pc);
/// The function of the current scope, 0 before any.
ELF_SYM_HANDLE ELF_GetScopeFunction();

/// The functions, one per start address.
ELF_SYM_LIST ELF_GetFunctions();
/// The functions whose first address has no source line (library and assembly code).
ELF_SYM_LIST ELF_GetFunctionsWithoutSource();
/// The inlined expansions of a function (by its abstract entry).
ELF_SYM_LIST ELF_GetInlineInstances(ELF_SYM_HANDLE Handle);
/// The program's global variables, and the locals of the current scope's function.
ELF_SYM_LIST ELF_GetGlobals();
ELF_SYM_LIST ELF_GetLocals();

/// The ELF symbol of a code section at exactly this address, a function before a label; 0 for none.
ELF_SYM_HANDLE ELF_GetSymAt(U32 Addr);
/// The last of ELF_GetSrcLocsAt, or an invalid location.
CSrcLoc ELF_GetLastSrcLocAt(U32 Addr);
/// Whether a line-table address lies in [Start, Start + Size).
bool ELF_RangeHasSrc(U32 Start, U32 Size);
/// The first address after Addr, in instruction steps up to 1000 bytes on, whose line differs from the
/// lines at Addr; false if none does.
bool ELF_GetNextLineAddr(U32 Addr, U32& Result);
/// 1 if the address holds data in code (a literal pool after a "$d" mapping symbol, an object), 0 if
/// code (after "$t", "$a" or a function, or where a line starts), -1 if unknown.
int ELF_IsDataAt(U32 Addr);
/// The pieces of a range that hold data, and those that hold code, as (start, size).
std::vector<std::pair<U32, U32>> ELF_GetDataRanges(U32 Start, U32 Size);
std::vector<std::pair<U32, U32>> ELF_GetCodeRanges(U32 Start, U32 Size);
/// The lines of a range (a function), one range each, by address; data is skipped and addresses
/// without a row stay with the line before. Cached. Empty for ranges over 10,000,000 bytes.
std::vector<LINE_RANGE> ELF_GetLineRanges(U32 Start, U32 Size);
U32 ELF_GetLineCount(U32 Start, U32 Size);
/// The bytes of code of a file's units.
U32 ELF_GetFileCodeSize(U32 Id);
/// The symbols declared at a line (variables, parameters, functions, types' members are not among them).
ELF_SYM_LIST ELF_GetSymsAtLine(const CSrcLoc& Loc);
