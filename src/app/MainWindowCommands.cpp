// Commands of the main window that need nothing beyond the shell: exit, copy, help, utilities, windows
// and tool bars.

#include "app/MainWindow.h"

#include "app/core/CommandArgs.h"
#include "app/core/CommandTable.h"
#include "app/core/Log.h"
#include "app/core/ScriptConstants.h"
#include "app/core/Version.h"
#include "views/ConsoleWindow.h"
#include "views/DockWindow.h"
#include "views/MessageBox.h"

#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QEventLoop>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QTextEdit>
#include <QTimer>
#include <QToolBar>

namespace {} // namespace

void CMainWindow::OnActionFileExitTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_FILE_EXIT)) {
        return;
    }
    // Closing runs after the command's report, so that the report still finds the Console.
    QTimer::singleShot(0, this, &QWidget::close);
}

void CMainWindow::OnActionEditCopyTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_EDIT_COPY, 0)) {
        return;
    }
    const QStringList Args = Commands::GetCommandArgs(CMD_EDIT_COPY);
    if (!Args.isEmpty()) {
        QApplication::clipboard()->setText(Args.first());
        return;
    }
    // From the menu or the hotkey: the selection of the focused text field.
    QWidget* Focus = QApplication::focusWidget();
    if (auto* Line = qobject_cast<QLineEdit*>(Focus)) {
        Line->copy();
    } else if (auto* Plain = qobject_cast<QPlainTextEdit*>(Focus)) {
        Plain->copy();
    } else if (auto* Rich = qobject_cast<QTextEdit*>(Focus)) {
        Rich->copy();
    }
    Commands::SetCommandDone(CMD_EDIT_COPY);
}

void CMainWindow::OnActionHelpAboutTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_HELP_ABOUT)) {
        return;
    }
    const QString Text = QStringLiteral("%1<br>Version %2, built %3<br>Qt %4<br><br>"
                                        "A graphical source-level debugger for embedded microcontrollers.")
                             .arg(Version::GetAppName(false, true), Version::GetVersionText(),
                                  Version::GetBuildDate(), QString::fromLatin1(qVersion()));
    MessageBox::Inform(this, QMessageBox::Information, QStringLiteral("About ") + Version::GetAppName(),
                       Text);
}

void CMainWindow::OnActionHelpCommandsTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_HELP_COMMANDS)) {
        return;
    }
    m_Console->PrintCommandHelp();
}

void CMainWindow::OnActionUtilSleepTriggered() {
    CCommandArgs Args(CMD_UTIL_SLEEP);
    I64 Ms = 0;
    if (!Args.Ok() || !Args.Number(0, Ms, QStringLiteral("not a number"))) {
        return;
    }
    if (Ms < 0 || Ms > 0x7FFFFFFF) {
        Args.Fail(QStringLiteral("invalid parameter"));
        return;
    }
    // The GUI goes on while the caller waits.
    QEventLoop Loop;
    QTimer::singleShot(static_cast<int>(Ms), &Loop, &QEventLoop::quit);
    Loop.exec();
}

void CMainWindow::OnActionUtilLogTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_UTIL_LOG)) {
        return;
    }
    const QString Text = Commands::GetCommandArgs(CMD_UTIL_LOG).first();
    PrintConsole(Text, COLOR_LOGGING_SCRIPT);
    LogMessage(Text, MSG_INFO | MSG_TO_LOGFILE | MSG_FROM_APP);
}

void CMainWindow::OnActionUtilLogHexTriggered() {
    CCommandArgs Args(CMD_UTIL_LOG_HEX);
    I64 Value = 0;
    if (!Args.Ok() || !Args.Number(1, Value, QStringLiteral("not a number"), true)) {
        return;
    }
    // The value is an int of the script: its low 32 bits.
    const QString Hex =
        QString::number(static_cast<U32>(Value), 16).rightJustified(8, QLatin1Char('0')).toUpper();
    const QString Text = Args.Text(0) + QStringLiteral("0x") + Hex;
    PrintConsole(Text, COLOR_LOGGING_SCRIPT);
    LogMessage(Text, MSG_INFO | MSG_TO_LOGFILE | MSG_FROM_APP);
}

void CMainWindow::OnActionWindowShowTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_WINDOW_SHOW)) {
        return;
    }
    const QString Name = Commands::GetCommandArgs(CMD_WINDOW_SHOW).first();
    CWindow* W = FindDebugWindow(Name);
    if (!W || !W->GetDock()) {
        Commands::SetCommandError(CMD_WINDOW_SHOW, QStringLiteral("unknown window"));
        return;
    }
    W->GetDock()->show();
    W->GetDock()->raise();
    W->OnOpened();
}

void CMainWindow::OnActionWindowCloseTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_WINDOW_CLOSE, 0)) {
        return;
    }
    const QStringList Args = Commands::GetCommandArgs(CMD_WINDOW_CLOSE);
    CWindow* W = Args.isEmpty() ? FocusedDebugWindow() : FindDebugWindow(Args.first());
    if (!W) {
        if (Args.isEmpty()) {
            Commands::SetCommandDone(CMD_WINDOW_CLOSE);
        } else {
            Commands::SetCommandError(CMD_WINDOW_CLOSE, QStringLiteral("unknown window"));
        }
        return;
    }
    if (W->GetDock()) {
        W->GetDock()->close();
    }
}

void CMainWindow::OnActionWindowCloseAllTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_WINDOW_CLOSE_ALL)) {
        return;
    }
    for (CWindow* W : m_DebugWindows) {
        if (W->GetDock() && !W->GetDock()->isHidden()) {
            W->GetDock()->close();
        }
    }
}

void CMainWindow::OnActionWindowClearTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_WINDOW_CLEAR, 0)) {
        return;
    }
    const QStringList Args = Commands::GetCommandArgs(CMD_WINDOW_CLEAR);
    CWindow* W = Args.isEmpty() ? FocusedDebugWindow() : FindDebugWindow(Args.first());
    if (!W) {
        if (Args.isEmpty()) {
            Commands::SetCommandDone(CMD_WINDOW_CLEAR);
        } else {
            Commands::SetCommandError(CMD_WINDOW_CLEAR, QStringLiteral("unknown window"));
        }
        return;
    }
    W->Clear();
}

void CMainWindow::OnActionWindowShowFullScreenTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_WINDOW_FULL_SCREEN, 0)) {
        return;
    }
    const QStringList Args = Commands::GetCommandArgs(CMD_WINDOW_FULL_SCREEN);
    bool On = !isFullScreen();
    if (!Args.isEmpty()) {
        I64 Value = 0;
        if (!ScriptConstants::ParseNumber(Args.first(), Value)) {
            Commands::SetCommandError(CMD_WINDOW_FULL_SCREEN, QStringLiteral("invalid parameter"));
            return;
        }
        On = Value != 0;
    }
    if (On) {
        showFullScreen();
    } else {
        showNormal();
    }
    UpdateFullScreenText();
}

void CMainWindow::UpdateFullScreenText() {
    if (QAction* A = Action(CMD_WINDOW_FULL_SCREEN)) {
        A->setText(isFullScreen() ? QStringLiteral("Exit Full Screen") : QStringLiteral("Enter Full Screen"));
    }
}

void CMainWindow::OnActionWindowDockTriggered() {
    CWindow* W = FocusedDebugWindow();
    if (W && W->GetDock()) {
        W->GetDock()->setFloating(false);
    }
}

void CMainWindow::OnActionWindowUndockTriggered() {
    CWindow* W = FocusedDebugWindow();
    if (W && W->GetDock()) {
        W->GetDock()->setFloating(true);
    }
}

void CMainWindow::OnActionToolbarShowTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_TOOLBAR_SHOW)) {
        return;
    }
    QToolBar* Bar = FindToolBar(Commands::GetCommandArgs(CMD_TOOLBAR_SHOW).first());
    if (!Bar) {
        Commands::SetCommandError(CMD_TOOLBAR_SHOW, QStringLiteral("invalid parameter"));
        return;
    }
    Bar->show();
}

void CMainWindow::OnActionToolbarCloseTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_TOOLBAR_CLOSE)) {
        return;
    }
    QToolBar* Bar = FindToolBar(Commands::GetCommandArgs(CMD_TOOLBAR_CLOSE).first());
    if (!Bar) {
        Commands::SetCommandError(CMD_TOOLBAR_CLOSE, QStringLiteral("invalid parameter"));
        return;
    }
    Bar->hide();
}
