#pragma once

#include "app/core/Types.h"
#include "script/TextCodec.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

struct CScriptHeap;

/// Ids of the user functions: the fixed points of a session at which the project's script is called. The
/// script host's table of them (TScriptUser.cpp) stands in this order; the main window calls them by these
/// ids.
enum USER_FUNCTION_IDS : int {
    UF_ON_PROJECT_LOAD = 1,
    UF_TARGET_RESET = 2,
    UF_BEFORE_TARGET_RESET = 3,
    UF_AFTER_TARGET_RESET = 4,
    UF_DEBUG_START = 5,
    UF_TARGET_CONNECT = 6,
    UF_BEFORE_TARGET_CONNECT = 7,
    UF_AFTER_TARGET_CONNECT = 8,
    UF_TARGET_DOWNLOAD = 9,
    UF_BEFORE_TARGET_DOWNLOAD = 10,
    UF_AFTER_TARGET_DOWNLOAD = 11,
    UF_BEFORE_TARGET_DISCONNECT = 12,
    UF_AFTER_TARGET_DISCONNECT = 13,
    UF_AFTER_TARGET_HALT = 14,
    UF_BEFORE_TARGET_RESUME = 15,
};
/// Number of user functions; their ids run from 1.
constexpr int USER_FUNCTION_COUNT = UF_BEFORE_TARGET_RESUME;
/// Host calls that may nest (a script that runs a command that runs a script ...).
constexpr int SCRIPT_MAX_CALL_LEVEL = 11;

/// The script host: the one script of the process (the project file), its memory block and text, the
/// registration of constants and commands, the calls of user functions by number or by name and the last
/// error. Process-wide state, GUI thread only.
namespace TScript {

/// Installs the native bindings of the scriptable commands on the command table. Idempotent; Parse calls it.
void Init();

/// Loads a text: closes the current script, registers constants and commands and scans the functions.
/// 0 or -1.
int Parse(const QString& Text);
/// Reads a file and parses it. 0 or -1.
int Load(const QString& Path);
/// Loads a project file and checks that it has OnProjectLoad. 0 or -1.
int LoadProject(const QString& Path);
/// True if the file on disk has another hash and was loaded again.
bool ReloadIfChanged();
/// Frees the block and resets the state, path included. -1, doing nothing but asking the running script to
/// stop, while a call is under way: its block is still in use.
int Close();

/// Runs a script function by name; Id is what CurrentFunction shows meanwhile. With Args the arguments go
/// to the function and a failure does not block later calls. 0, or a negative result with LastErrorText:
/// -1 no interpreter or a script error, 0 also while closing, -4 an error stands, -2 empty or unknown name,
/// -5 call level reached, -6 too many arguments.
int ExecFunction(const QString& Name, I32 Id, int Argc, const U64* Args, U64* Result);
/// Runs user function Id without arguments; -2 for an unknown id, -3 for a prototype without a name.
int ExecUserFunction(int Id);
bool HasUserFunction(int Id);

/// The last error for the user: white space simplified, dots removed, " at line N" if it has a line.
QString GetLastError();
bool HasError();
/// Clears the pending error, in the host and in the interpreter.
void ClearError();

/// Writes Text (or, empty, the loaded text) to Path and takes it as the script's file and hash. The bytes
/// are in Form, or without it in the form of the script's own file (see TextCodec). The file is replaced
/// whole or not at all: on any error the old file stays and -1 comes back.
int SetText(const QString& Path, const QString& Text, const TextCodec::TEXT_FORM* Form = nullptr);
/// Sets ScriptPath and ScriptDir without loading anything (a project made from lines, a project saved
/// under a new name).
void SetScriptPath(const QString& Path);

/// The user function table: prototype ("void OnProjectLoad (void);") and the name in it.
QString GetUserFunctionPrototype(int Id);
QString GetUserFunctionName(int Id);
/// One block of a generated project file: the comment head and the body. For id 1 the body holds
/// CommandLines, File.Open in the user section.
QString GetUserFunctionText(int Id, const QStringList& CommandLines);
/// The text of a generated project file: the 15 blocks in order of id, one line feed between two blocks.
/// OnProjectLoad holds CommandLines in its two sections (File.Open in the user section).
QString GenerateProjectText(const QStringList& CommandLines);
/// The core plug-in's body of a user function: given the id, a buffer and its capacity (10000), 0 means
/// the buffer was filled. Installed while a plug-in that offers bodies is loaded; null for none.
using USER_FUNCTION_BODY_PROVIDER = int (*)(int Id, char* Buffer, int Capacity);
void SetUserFunctionBodyProvider(USER_FUNCTION_BODY_PROVIDER Provider);

/// Runs a function named by a command: Params are integers or constants. Result is its return value.
/// 0, or negative with the text for the command's error in ErrorText.
int ExecByName(const QString& Name, const QStringList& Params, I64& Result, QString& ErrorText);
/// Script.DefineConst: Expression is an integer, a script constant or an integer expression of the script.
/// Adds the constant to the table and to the interpreter. 0, or -1 with ErrorText.
int DefineConst(const QString& Name, const QString& Expression, I64& Value, QString& ErrorText);

/// Asks a running script to end: no call starts any more and its loops and calls stop.
void RequestStop();
/// The user's stop: the running script ends at its next statement with the error "script stopped by the
/// user.", and later calls run as before. False, doing nothing, when no script runs.
bool StopScript();

// State, for the project layer and for tests.
CScriptHeap* GetInterpreter();
const U8* GetHeapBlock();
const QByteArray& GetScriptText();
/// The hash of the script file's bytes as the program last read or wrote them.
U32 GetScriptHash();
/// How the script's file stood on disk; the default form for a script without one.
TextCodec::TEXT_FORM GetFileForm();
QString GetScriptPath();
QString GetScriptDir();
int GetCallLevel();
bool IsClosing();
I32 GetCurrentFunction();
QString GetLastErrorText();
I32 GetLastErrorLine();
QString GetLastErrorSource();
/// The script function in which the last error arose; empty for none.
QString GetLastErrorFunction();

/// The classic 32-bit string hash of the toolkit, stable across processes.
U32 HashText(const QByteArray& Bytes);
U32 HashText(const QString& Text);

} // namespace TScript
