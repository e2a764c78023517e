// The project script as the main window runs it: Script.Exec, Script.DefineConst, the user functions and
// the user's stop of a running script.

#include "app/MainWindow.h"

#include "app/core/Catalogue.h"
#include "app/core/CommandTable.h"
#include "app/core/Log.h"
#include "script/Interp.h"
#include "script/Project.h"
#include "script/TScript.h"

#include <QAction>
#include <QMenu>

namespace {} // namespace

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
    const bool ErrorBefore = TScript::HasError();
    const int Result = TScript::ExecUserFunction(Id);
    // An error of OnProjectLoad fails the open, which reports it; one that stood before the call (a
    // project that failed to load) has been reported already.
    if (Id != 1 && !ErrorBefore && TScript::HasError()) {
        ReportUserFunctionError(Name);
    }
    return Result;
}

void CMainWindow::ReportUserFunctionError(const QString& Name) {
    const QString Function = TScript::GetLastErrorFunction();
    const QString Text = CatalogText(74, (TScript::GetLastError() + QStringLiteral(" in function ") +
                                          (Function.isEmpty() ? Name : Function))
                                             .toUtf8()
                                             .constData());
    const bool Stopped = TScript::GetLastErrorText() == QLatin1String(SCRIPT_STOPPED_TEXT);
    // A handler that fails runs again at the next step of the session, the next halt for one.
    TScript::ClearError();
    LogErrorMsg(Text);
    // The list comes up for an error not seen before in this project, not at every halt, and not for the
    // user's own stop.
    if (CProject::Instance()->MarkReported(Text) && !Stopped) {
        CheckProject(true, {Text});
    }
}

void CMainWindow::AddScriptStopAction(QMenu* Menu) {
    auto* Stop = new QAction(QStringLiteral("Stop &Script"), this);
    Stop->setObjectName(QStringLiteral("actionToolsStopScript"));
    Stop->setStatusTip(QStringLiteral("Stops the running script function"));
    Stop->setEnabled(false);
    connect(Stop, &QAction::triggered, this, &CMainWindow::OnActionScriptStopTriggered);
    // A script runs on this thread: the menu can open only while it gives the events their turn.
    connect(Menu, &QMenu::aboutToShow, Stop, [Stop]() { Stop->setEnabled(TScript::GetCallLevel() > 0); });
    Menu->addAction(Stop);
}

void CMainWindow::OnActionScriptStopTriggered() {
    TScript::StopScript();
}
