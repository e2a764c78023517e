#pragma once

// From what a user types to the program: source location texts ("main.c:42", "main.c:42:7"),
// symbol names and addresses, each resolved to an address; and the program's preprocessor macros.

#include "program/SymbolStore.h"

/// What ELF_FindAddr found.
enum FIND_ADDR_KINDS : int {
    FIND_ADDR_NONE = -1,
    FIND_ADDR_VALUE = 0,    ///< a number
    FIND_ADDR_SOURCE = 1,   ///< a source location
    FIND_ADDR_DATA = 2,     ///< a variable
    FIND_ADDR_FUNCTION = 3, ///< a function
};

/// Reads "file:line" or "file:line:column"; the file by its path as recorded, by a path an alias maps to
/// it, or by its name alone (case ignored). Windows paths with drive letters are read whole. False when
/// the text is none of these or the program has no such file.
bool ELF_ParseSrcLoc(const QString& Text, CSrcLoc& Loc);
/// The text of a location that ELF_ParseSrcLoc reads back: the file's name where no other file of the
/// program has that name, else its path; the column only when it is set. Empty for an invalid location.
QString ELF_FormatSrcLoc(const CSrcLoc& Loc);
/// The formatter of the command echo: a text that reads as a location, in the form above.
bool ELF_CanonicalSrcLocText(const QString& Text, QString& Canonical);

/// The address a text stands for, and what it is (FIND_ADDR_KINDS), in this order: a number ("0x" and
/// hexadecimal digits, or hexadecimal digits that name no symbol), a variable or function by name, a
/// source location (a line without code takes the next line with code, within the file). Size gets the
/// symbol's size where there is one, else 0. -1 when nothing matches.
I64 ELF_FindAddr(const QString& Text, int& Kind, U32* Size = nullptr);

/// The address of a symbol: a function's entry, a static variable's address, an ELF symbol's value; -1
/// for symbols whose place depends on a frame (locals, parameters) or that have none.
I64 ELF_GetSymAddr(ELF_SYM_HANDLE Handle);

/// The value of the program's macro Name ("MAX(a,b)" for one with parameters); false if it has none. The
/// table is made on the first call: a later definition of a name replaces an earlier one.
bool ELF_GetMacro(const QString& Name, QString& Value);
/// Drops the caches of this file (the program closes).
void ELF_ClearFindCaches();
