#pragma once

#include "app/core/Types.h"

#include <QString>

/// Number and frequency texts shared by the command table, the variables and the project.
namespace Numbers {

/// An integer of automatic base: optional sign, then "0x" hexadecimal, "0b" binary or decimal.
/// Leading zeros are decimal, not octal. Blanks around the text are allowed.
bool ParseInteger(const QString& Text, I64& Value);
/// Hexadecimal with or without "0x" (addresses).
bool ParseHex(const QString& Text, U64& Value);
/// A frequency text such as "4 MHz", "12.5 kHz", "100Hz" or a plain number of Hz; -1 when unreadable.
I64 ParseFrequency(const QString& Text);
/// "%u %s": MHz for multiples of 1000000, kHz for multiples of 1000, else Hz.
QString FormatFrequency(U64 Hz);

} // namespace Numbers
