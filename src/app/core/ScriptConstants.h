#pragma once

#include "app/core/Types.h"

#include <QString>

/// A named value of the project script, with the text dialogs show for it.
struct SCRIPT_CONST {
    I64 Value;
    QString Name;
    QString DisplayText;
};

/// The script constants: the built-in rows, loaded on first use, and those a script defines.
/// GUI thread only.
namespace ScriptConstants {

int Count();
const SCRIPT_CONST* At(int Index);
/// Adds a row; returns its index.
int Add(I64 Value, const QString& Name, const QString& DisplayText);
/// Removes every row added after the built-in ones.
void ResetToBuiltIn();
/// The built-in row that an old spelling stands for ("RM_BREAK_AT_MAIN", "AW_AUTO"), else empty.
QString NewSpelling(const QString& OldName);
/// The old spelling of a built-in name, or empty.
QString OldSpelling(const QString& Name);

/// Quotes dropped, compared without regard to case with each row's display text and name; an old
/// spelling is replaced and looked up again. Null when nothing matches.
const SCRIPT_CONST* Lookup(const QString& Text);
/// A number argument of a command: the constant's value, or the text as an integer of automatic base
/// (Numbers::ParseInteger). The one reader of numbers for the command handlers and the script host.
bool ParseNumber(const QString& Text, I64& Value);
/// The constant's value, or the text as an integer of automatic base, or -1.
I64 ParseConstantOrNumber(const QString& Text);

} // namespace ScriptConstants
