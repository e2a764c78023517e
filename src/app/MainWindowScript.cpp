// The project script as the main window runs it: Script.Exec, Script.DefineConst and the user functions.

#include "app/MainWindow.h"

#include "app/core/CommandTable.h"
#include "app/core/Log.h"
#include "script/TScript.h"

namespace {

enum COMMAND_IDS : U32 {
    CMD_SCRIPT_EXEC = 59,
    CMD_SCRIPT_DEFINE_CONST = 60,
};

} // namespace

void CMainWindow::OnActionScriptExecTriggered() {
    // The function's name, then up to seven integer parameters (from the Console).
    const QStringList Args = Commands::GetCommandArgs(CMD_SCRIPT_EXEC);
    if (Args.isEmpty()) {
        Commands::CheckCommandArgCount(CMD_SCRIPT_EXEC);
        return;
    }
    I64 Result = 0;
    QString Error;
    if (TScript::ExecByName(Args.first(), Args.mid(1), Result, Error) < 0) {
        Commands::SetCommandError(CMD_SCRIPT_EXEC, Error);
        return;
    }
    Commands::SetCommandResult(CMD_SCRIPT_EXEC, Result);
}

void CMainWindow::OnActionScriptDefineConstTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_SCRIPT_DEFINE_CONST)) {
        return;
    }
    const QStringList Args = Commands::GetCommandArgs(CMD_SCRIPT_DEFINE_CONST);
    I64 Value = 0;
    QString Error;
    if (TScript::DefineConst(Args[0], Args[1], Value, Error) < 0) {
        Commands::SetCommandError(CMD_SCRIPT_DEFINE_CONST, QStringLiteral("invalid parameter"),
                                  Error == QLatin1String("invalid parameter") ? QString() : Error);
        return;
    }
    Commands::SetCommandResult(CMD_SCRIPT_DEFINE_CONST, Value);
}

int CMainWindow::ExecUserFunction(int Id) {
    const QString Name = TScript::GetUserFunctionName(Id);
    if (m_Closing) {
        LogWarnMsg(QStringLiteral("Not executing script function: ") + Name +
                   QStringLiteral(". Project is about to close"));
        return -1;
    }
    LogInfoMsg(QStringLiteral("Executing script function: ") + Name);
    return TScript::ExecUserFunction(Id);
}
