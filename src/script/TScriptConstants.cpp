// What a freshly loaded script knows besides its own functions: the named values and the commands.

#include "app/core/Colors.h"
#include "app/core/CommandTable.h"
#include "app/core/Fonts.h"
#include "app/core/Log.h"
#include "app/core/ScriptConstants.h"
#include "app/core/SysVars.h"
#include "script/TScript.h"
#include "script/TScriptInternal.h"

namespace TScript::Detail {
namespace {

void Register(CScriptHeap* Heap, const QString& Name, I64 Value) {
    // Interpreter constants are 32-bit; the table's DISABLE_SAVE_ANY reads back as -1.
    ScriptInterp::RegisterConstant(Heap, Name.toUtf8().constData(), static_cast<I32>(Value));
}

/// A table of named ids: each name stands for its index.
void RegisterIndexedNames(CScriptHeap* Heap, int Count, const char* (*NameOf)(int Index)) {
    for (int i = 0; i < Count; ++i) {
        if (const char* Name = NameOf(i)) {
            ScriptInterp::RegisterConstant(Heap, Name, i);
        }
    }
}

/// The prototype with its command name replaced by Name.
QString WithName(const QString& Prototype, const QString& Name) {
    int End = Prototype.indexOf(QLatin1Char('('));
    if (End < 0) {
        return Prototype;
    }
    while (End > 0 && Prototype[End - 1] == QLatin1Char(' ')) {
        --End;
    }
    int Start = End;
    while (Start > 0 && Prototype[Start - 1] != QLatin1Char(' ')) {
        --Start;
    }
    return Prototype.left(Start) + Name + Prototype.mid(End);
}

void RegisterCommand(CScriptHeap* Heap, const QString& Prototype, COMMAND_FUNC Func) {
    if (ScriptInterp::RegisterNative(Heap, Prototype.toLatin1().constData(), Func) == 0) {
        return;
    }
    LogErrorMsg(QStringLiteral("Error registering API function ") + Prototype);
    // The load goes on without this one function.
    TScript::ClearError();
}

} // namespace

void RegisterConstants(CScriptHeap* Heap) {
    for (int i = 0; i < ScriptConstants::Count(); ++i) {
        const SCRIPT_CONST* C = ScriptConstants::At(i);
        Register(Heap, C->Name, C->Value);
        const QString Old = ScriptConstants::OldSpelling(C->Name);
        if (!Old.isEmpty()) {
            Register(Heap, Old, C->Value);
        }
    }
    // The tables of named ids: variables and preferences, colours, fonts.
    RegisterIndexedNames(Heap, SYSVAR_COUNT, [](int i) { return SysVars::GetVarRow(i)->Name; });
    RegisterIndexedNames(Heap, COLOR_COUNT, [](int i) { return g_ColorInfo[i].Name; });
    RegisterIndexedNames(Heap, FONT_COUNT, [](int i) { return g_FontInfo[i].Name; });
}

void RegisterApi(CScriptHeap* Heap) {
    for (U32 Id = 0; Id < COMMAND_COUNT; ++Id) {
        const COMMAND_INFO Info = Commands::GetCommandInfo(Id);
        if (!Info.Func) {
            continue;
        }
        RegisterCommand(Heap, Info.Prototype, Info.Func);
        const QString Alias = Commands::GetCommandAlias(Id);
        if (!Alias.isEmpty()) {
            RegisterCommand(Heap, WithName(Info.Prototype, Alias), Info.Func);
        }
    }
}

} // namespace TScript::Detail
