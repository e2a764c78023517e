#pragma once

#include "Objdump.h"

/// Brings the oracle's and the plug-in's instruction text to one form, so that they can be compared
/// for what they say rather than how they spell it: lower case, no width qualifiers (.n, .w), one
/// spelling for each condition and register, immediates in decimal, branch targets as addresses,
/// no comments.
QString NormaliseObjdump(const OBJDUMP_LINE& Line);
/// The plug-in's "mnemonic\toperands[\tcomment]".
QString NormalisePlugin(const QString& Text);
/// The address in objdump's comment of a PC-relative load ("@ (68 <main+0x28>)"); all ones if none.
U64 ObjdumpCommentAddress(const OBJDUMP_LINE& Line);
