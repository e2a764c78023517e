#pragma once

#include "app/core/CommandTable.h"

#include <QByteArray>
#include <QString>

/// The natives of the script API: one per scriptable command, each of which checks and packs its
/// arguments, runs the command as the menus and the Console do, and waits until a device job it started has
/// taken effect. GUI thread only.
namespace TAPI {

/// Sets the binding of every scriptable row of the command table (Commands::SetCommandFunc).
void InstallBindings();
/// The binding of a row; null for a row that scripts cannot call.
COMMAND_FUNC GetEntry(U32 Id);
/// What each binding does for its row. The result is the command's, cut to 32 bits; -1 for a string
/// argument that isn't one.
I32 CallCommand(U32 Id, const U64* Args, int Count);

/// A string argument must point into the script's block, where the language keeps its only strings.
/// Otherwise logs "Invalid command argument in command "<name>": 0x<hex> (<decimal>)", with the name taken
/// from WrapperName ("TAPI::FileOpenGen" gives "FileOpen"), and gives false.
bool CheckStringArg(U64 Pointer, const char* WrapperName);
/// The name of a row's string checking wrapper: "TAPI::" + name without dots + "Gen".
QByteArray WrapperName(U32 Id);
/// A number argument as the command sees it: hexadecimal with prefix, cut to the parameter's width.
QString FormatNumberArg(U64 Value, int Bits);
/// Bits of a number parameter: 8 for char, 64 for __int64, else 32.
int ParamBits(U32 Id, int Index);

} // namespace TAPI
