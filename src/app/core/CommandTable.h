#pragma once

#include "app/core/CommandIds.h"
#include "app/core/Types.h"

#include <QString>
#include <QStringList>
#include <QVariant>

class QAction;

/// `SysVar` value of a row that sets no system variable (the number of variables).
constexpr I32 COMMAND_NO_SYSVAR = 84;

/// Row flag bits.
enum COMMAND_FLAGS : U32 {
    CF_ECHO = 0x00000001,       ///< echoed on the Console and listed in the command help
    CF_REPEATABLE = 0x00000100, ///< may stand more than once in a project file
    CF_RAW_ARGS = 0x00010000,   ///< arguments are taken raw, not unquoted and cleaned
    CF_ECHO_AFTER = 0x01000000, ///< the echo comes after the command has run
};

/// Native entry of a scriptable command: the script passes up to 8 integer arguments.
typedef I32 (*COMMAND_FUNC)(const U64* Args, int ArgCount);

/// Static definition of one row, as compiled into the program.
struct COMMAND_ROW_DEF {
    U32 Id;
    U32 Flags;
    bool Scriptable;        ///< false for rows that only the Console and menus reach
    const char* Hotkey;     ///< key sequence text, may be empty
    const char* Prototype;  ///< "__api__ int Name (params);" or empty for action-only rows
    const char* ArgHelp;    ///< argument column of the command help
    const char* StatusTip;  ///< status bar tip and description column of the help
    const char* ToolTip;    ///< tool tip of the action
    const char* ActionName; ///< object name of the QAction to bind
    const char* Text;       ///< text of the action in menus
    I32 SysVar;             ///< system variable this command sets, or COMMAND_NO_SYSVAR
};

/// The compiled rows, in id order (index == Id, checked at compile time).
extern const COMMAND_ROW_DEF g_CommandRows[COMMAND_COUNT];

/// One row of the table with its run-time binding.
struct COMMAND_INFO {
    U32 Id = COMMAND_COUNT;
    U32 Flags = 0;
    COMMAND_FUNC Func = nullptr; ///< script binding, null when the command is not callable from a script
    QString Hotkey;
    QString Prototype;
    QString ArgHelp;
    QString StatusTip;
    QString ToolTip;
    QString ActionName;
    QAction* Action = nullptr; ///< bound at start-up, null until then
    I32 SysVar = COMMAND_NO_SYSVAR;
};

/// Parsed Console line: the row it names and the arguments it carries.
struct PARSED_COMMAND {
    bool Found = false;
    I32 Id = -1;
    QString Name; ///< the name as typed
    QStringList Args;
};

/// The command table: one row per user action, reached alike from menus, hotkeys, the Console and
/// scripts. GUI thread only; the table is read-only after binding.
namespace Commands {

COMMAND_INFO GetCommandInfo(U32 Id);
/// Exact compare of names, then of second names; -1 if absent.
I32 FindCommand(const QString& Name);
QString GetCommandName(U32 Id);
QString GetCommandAlias(U32 Id);
QAction* GetCommandAction(U32 Id);
/// Row of a bound action, or -1.
I32 GetCommandIdOfAction(const QAction* Action);

/// Number of parameters in the prototype; "void" alone counts as none.
int GetCommandParamCount(U32 Id);
/// True if the type text of the parameter contains both "char" and "*".
bool IsStringParam(U32 Id, int Index);

/// The pending call's arguments live on the bound action.
void SetCommandArgs(U32 Id, const QStringList& Args);
/// The arguments with every double quote removed.
QStringList GetCommandArgs(U32 Id);
/// The arguments as they were stored.
QStringList GetCommandRawArgs(U32 Id);
/// Stores arguments for the echo: U+2008 removed, one pair of surrounding quotes dropped, unless the
/// row takes raw arguments.
void SetDisplayArgs(U32 Id, const QStringList& Args);
/// True if the number of arguments lies between Min (-1: the parameter count) and the parameter count;
/// otherwise sets the error "wrong parameter count".
bool CheckCommandArgCount(U32 Id, int Min = -1);
/// The error becomes Message, or "Message: Detail" for a command of more than one argument.
void SetCommandError(U32 Id, const QString& Message, const QString& Detail = QString());
QString GetCommandError(U32 Id);
void ClearCommandState(U32 Id);
/// Marks the command as finished with nothing to report: no echo follows.
void SetCommandDone(U32 Id);
bool IsCommandDone(U32 Id);
I64 GetCommandResult(U32 Id);
void SetCommandResult(U32 Id, I64 Value);

/// Whether the Console and scripts may run the command; kept apart from the action's enabled state.
bool IsCommandEnabled(U32 Id);
/// Sets both the action's enabled state and the command-enabled mark.
void SetCommandEnabled(U32 Id, bool Enabled);
void SetActionEnabled(QAction* Action, bool Enabled);

/// Script binding of a row (set by the script layer).
void SetCommandFunc(U32 Id, COMMAND_FUNC Func);
bool IsCommandScriptable(U32 Id);

/// 0, or -1 when the id is out of range, the command is disabled or unbound.
int TriggerCommand(U32 Id);
/// Stores the valid arguments as text, triggers, and gives the command's result, or -1.
I64 ExecCommand(U32 Id, const QVariant& A1 = QVariant(), const QVariant& A2 = QVariant(),
                const QVariant& A3 = QVariant(), const QVariant& A4 = QVariant(),
                const QVariant& A5 = QVariant(), const QVariant& A6 = QVariant(),
                const QVariant& A7 = QVariant(), const QVariant& A8 = QVariant());
/// Runs each permitted command of the list without arguments; the results in order.
QList<I64> ExecCommands(const QList<U32>& Ids);

/// The text of a call: "Name (args);" or "Name();".
QString FormatCommandText(U32 Id);
/// The text of a call with the given arguments, without touching the row's pending call (project lines).
QString FormatCommandText(U32 Id, const QStringList& Args);
/// Parses a Console line and stores its arguments on the row's action.
PARSED_COMMAND ParseCommandLine(const QString& Text);
/// Header and one line per listed command, sorted by name.
QStringList GetCommandHelp();

/// Runs a Console line: 0 blank or unknown, 1 ran (or help), 2 disabled.
int ExecuteCommandLine(const QString& Text);
/// "<name>: Command disabled" on the Console.
void PrintCommandDisabled(const QString& Text);
/// "<line>: unknown command. Type ? or help for a list of available commands." on the Console.
void PrintUnknownCommand(const QString& Text);
/// The Console's report around a command: the echo before, and the echo or error after.
void ReportCommandTriggered(QAction* Action);
void ReportCommandPerformed(QAction* Action);

/// Binds the actions among Window's children to the rows with their object names.
void BindActions(QObject* Window);
/// Names of actions for which no row exists, ascending.
QStringList GetUnlinkedActions();
/// Forgets every binding (tests and shutdown).
void UnbindAll();

/// The alternative hotkey a key text stands for ("Ctrl+=" answers for "Ctrl++"), or empty.
QString AlternativeHotkeyFor(const QString& Hotkey);
/// Rows whose alternative hotkey equals KeyText, in table order.
QList<U32> FindRowsByAlternativeHotkey(const QString& KeyText);

/// Turns a source location text into its canonical form; set by the symbol store when it exists.
void SetSourceLocationFormatter(bool (*Formatter)(const QString& Text, QString& Canonical));

} // namespace Commands
