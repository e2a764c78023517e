// The debug session in the main window: connecting, resetting and disconnecting with the project's user
// functions around each step, the device's answers, the Debug and Exec commands that drive it, and the
// enabled state of the session's actions.

#include "app/MainWindow.h"

#include "analysis/CorePluginLoader.h"
#include "app/StatusBar.h"
#include "app/core/Check.h"
#include "app/core/CommandTable.h"
#include "app/core/Log.h"
#include "app/core/Numbers.h"
#include "app/core/SysVars.h"
#include "app/core/Version.h"
#include "app/session/SessionController.h"
#include "program/ElfWrapper.h"
#include "script/Project.h"
#include "script/TScript.h"
#include "target/Device.h"
#include "target/DeviceConfig.h"
#include "views/MessageBox.h"

#include <QAction>
#include <QFileInfo>
#include <QTimer>
#include <QToolButton>

namespace {

constexpr int PERIODIC_UPDATE_MS = 200;
constexpr int MESSAGE_BOX_DELAY_MS = 100;

CDevice* Device() {
    return CDevice::Instance();
}

bool IsConnected() {
    return Device()->Connected.load() != 0;
}

} // namespace

int CMainWindow::ExecUserFunctionIfPresent(int Id) {
    return TScript::HasUserFunction(Id) ? ExecUserFunction(Id) : -1;
}

bool CMainWindow::IsLinkLost() const {
    return !IsConnected() || Device()->ConnectionLost.load();
}

bool CMainWindow::CheckTargetLink(U32 Id) {
    if (!IsConnected()) {
        Commands::SetCommandError(Id, QStringLiteral("not connected"));
        return false;
    }
    if (Device()->ConnectionLost.load()) {
        Commands::SetCommandError(Id, QStringLiteral("connection lost"));
        return false;
    }
    return true;
}

// The session's steps and the device's answers live in the controller; the window forwards to it.

void CMainWindow::Connect(U32 Mode) {
    m_Session->Connect(Mode);
}
void CMainWindow::Disconnect() {
    m_Session->Disconnect();
}
void CMainWindow::Reset(U32 Mode) {
    m_Session->Reset(Mode);
}
int CMainWindow::RunToBreakSymbol() {
    return m_Session->RunToBreakSymbol();
}
void CMainWindow::PerformInitialProgramOperation() {
    m_Session->PerformInitialProgramOperation();
}

void CMainWindow::OnMessageBoxTimerTimeout() {
    const QString Name = SysVars::GetVarString(SysVars::GetVarRow(VAR_BREAK_AT_THIS_SYMBOL));
    MessageBox::Inform(this, QMessageBox::Information, QStringLiteral("Break at Symbol"),
                       QStringLiteral("Symbol %1 is unknown. Program halts at first instruction.").arg(Name));
}

void CMainWindow::OnDeviceConnectDone(CONNECT_MODES Mode) {
    m_Session->OnDeviceConnectDone(Mode);
}
void CMainWindow::OnDeviceConnectFailed(CONNECT_MODES Mode) {
    m_Session->OnDeviceConnectFailed(Mode);
}

void CMainWindow::OnDeviceConnectCanceled(U32 Mode) {
    m_Session->OnDeviceConnectCanceled(Mode);
}

void CMainWindow::OnDeviceResetDone(U32 PC, RESET_MODES Mode) {
    m_Session->OnDeviceResetDone(PC, Mode);
}
void CMainWindow::OnDeviceResetFailed(U32 PC, RESET_MODES Mode) {
    m_Session->OnDeviceResetFailed(PC, Mode);
}
void CMainWindow::OnDeviceDisconnectDone() {
    m_Session->OnDeviceDisconnectDone();
}
void CMainWindow::OnDeviceDisconnectFailed() {
    m_Session->OnDeviceDisconnectFailed();
}
void CMainWindow::OnDeviceConnectionLost() {
    m_Session->OnDeviceConnectionLost();
}
void CMainWindow::OnDeviceHaltDone(U32 PC, HALT_REASONS Reason) {
    m_Session->OnDeviceHaltDone(PC, Reason);
}
void CMainWindow::OnDeviceResumeDone(RESUME_MODES Mode) {
    m_Session->OnDeviceResumeDone(Mode);
}
void CMainWindow::OnDeviceResumeFailed(RESUME_MODES Mode) {
    m_Session->OnDeviceResumeFailed(Mode);
}
void CMainWindow::OnDeviceRunToSymbolDone(U32 PC) {
    m_Session->OnDeviceRunToSymbolDone(PC);
}

// The state of the actions
// ------------------------------------------------------------------------------------

QString CMainWindow::GetConnectionText() const {
    CDevice* D = Device();
    if (!D->Connected.load()) {
        return QStringLiteral("Disconnected");
    }
    const DEVICE_FACTS Facts = D->GetFacts();
    QString Speed;
    if (Facts.TIFSpeedHz == 0) {
        Speed = QStringLiteral("Auto Speed");
    } else if (Facts.TIFSpeedHz == 65535) {
        Speed = QStringLiteral("Adaptive Speed");
    } else {
        Speed = Numbers::FormatFrequency(Facts.TIFSpeedHz);
    }
    const QString Name = GetDeviceConfig().GetText(DEVICE_NAME);
    return (Name.isEmpty() ? Facts.DeviceName : Name) + QStringLiteral(" @ ") + Speed;
}

void CMainWindow::UpdateSessionActions() {
    ARNEX_CHECK_GUI_THREAD();
    CDevice* D = Device();
    const bool Plugin = CorePluginLoader::IsLoaded();
    const bool Connected = D->Connected.load() != 0;
    // Starting a session runs to the break symbol and handles halts, which come with the run control.
    Commands::SetCommandEnabled(CMD_DEBUG_START, false);
    Commands::SetCommandEnabled(CMD_DEBUG_STOP, Plugin && Connected);
    Commands::SetCommandEnabled(CMD_DEBUG_RESET, Plugin && Connected);
    for (U32 Id : {CMD_DEBUG_CONNECT, CMD_DEBUG_DISCONNECT}) {
        Commands::SetCommandEnabled(Id, Plugin);
    }
    // The download waits while a program file is being read.
    const bool Reading = m_ProgramLoader && m_ProgramLoader->IsRunning();
    Commands::SetCommandEnabled(CMD_DEBUG_DOWNLOAD, Plugin && !Reading);
    Commands::SetCommandEnabled(CMD_FILE_LOAD, Connected && !Reading);
    for (U32 Id : {CMD_EXEC_CONNECT, CMD_EXEC_RESET, CMD_EXEC_DOWNLOAD, CMD_EXEC_COMMAND}) {
        Commands::SetCommandEnabled(Id, true);
    }
    // What the probe is and how it is reached can't change during a connection.
    for (U32 Id : {CMD_SET_DEVICE, CMD_SET_TARVO_SCRIPT, CMD_SET_HOST_IF, CMD_SET_TARGET_IF,
                   CMD_SET_JTAG_CONFIG, CMD_SET_CORE_PLUGIN}) {
        Commands::SetCommandEnabled(Id, !Connected);
    }
    m_StatusBar->SetConnectionInfo(GetConnectionText());
    UpdateTitle();
    m_SeenSessionState = (Connected ? 1 : 0) | (D->HaltDone.load() ? 2 : 0) | (Plugin ? 4 : 0);
}

void CMainWindow::OnPeriodicUpdateTimerTimeout() {
    // A connection made or ended without an event (Exec.Connect, a lost link) shows within a tick.
    CDevice* D = Device();
    const int State =
        (D->Connected.load() ? 1 : 0) | (D->HaltDone.load() ? 2 : 0) | (CorePluginLoader::IsLoaded() ? 4 : 0);
    if (State != m_SeenSessionState) {
        UpdateSessionActions();
    }
}

// Commands
// ---------------------------------------------------------------------------------------------------

void CMainWindow::OnActionDebugConnectTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_DEBUG_CONNECT)) {
        return;
    }
    if (IsConnected() || Device()->ControllerBusy.load()) {
        Commands::SetCommandError(CMD_DEBUG_CONNECT, QStringLiteral("already connected"));
        return;
    }
    Connect(static_cast<U32>(SysVars::GetVarValue(VAR_CONNECT_MODE)));
}

void CMainWindow::OnActionDebugDisconnectTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_DEBUG_DISCONNECT)) {
        return;
    }
    // A connection under way (to a server that doesn't answer, say) is given up.
    if (!IsConnected() && Device()->CancelConnect()) {
        OnDeviceConnectCanceled(static_cast<U32>(SysVars::GetVarValue(VAR_CONNECT_MODE)));
        return;
    }
    if (!IsConnected()) {
        Commands::SetCommandError(CMD_DEBUG_DISCONNECT, QStringLiteral("not connected"));
        return;
    }
    Disconnect();
}

void CMainWindow::OnActionDebugStopTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_DEBUG_STOP)) {
        return;
    }
    if (!IsConnected() && Device()->CancelConnect()) {
        OnDeviceConnectCanceled(static_cast<U32>(SysVars::GetVarValue(VAR_CONNECT_MODE)));
        return;
    }
    if (!IsConnected()) {
        Commands::SetCommandError(CMD_DEBUG_STOP, QStringLiteral("not connected"));
        return;
    }
    Disconnect();
}

void CMainWindow::OnActionDebugDownloadTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_DEBUG_DOWNLOAD) || !CheckTargetLink(CMD_DEBUG_DOWNLOAD)) {
        return;
    }
    DownloadProgram(m_ProgramPath, DOWNLOAD_PROGRAM);
}

void CMainWindow::OnActionDebugResetTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_DEBUG_RESET) || !CheckTargetLink(CMD_DEBUG_RESET)) {
        return;
    }
    Reset(static_cast<U32>(SysVars::GetVarValue(VAR_RESET_MODE)));
}

void CMainWindow::OnActionExecConnectTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_EXEC_CONNECT)) {
        return;
    }
    if (IsConnected()) {
        Commands::SetCommandError(CMD_EXEC_CONNECT, QStringLiteral("already connected"));
        return;
    }
    // The connection alone, without events: inside TargetConnect the controller finishes it afterwards.
    if (Device()->ScheduleConnect(CM_SILENT) < 0) {
        Commands::SetCommandError(CMD_EXEC_CONNECT, QStringLiteral("could not connect"));
    }
}

void CMainWindow::OnActionExecResetTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_EXEC_RESET) || !CheckTargetLink(CMD_EXEC_RESET)) {
        return;
    }
    Device()->ScheduleReset(RM_HARDWARE);
}

void CMainWindow::OnActionExecDownloadTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_EXEC_DOWNLOAD, 0)) {
        return;
    }
    const QStringList Args = Commands::GetCommandArgs(CMD_EXEC_DOWNLOAD);
    const QString Given = Args.isEmpty() ? QString() : Args.first().trimmed();
    // Without a name the program of the session goes.
    const QString Path = Given.isEmpty() ? m_ProgramPath : QFileInfo(Given).absoluteFilePath();
    CDevice* D = Device();
    if (!CheckTargetLink(CMD_EXEC_DOWNLOAD)) {
        return;
    }
    if (!D->HaltDone.load()) {
        Commands::SetCommandError(CMD_EXEC_DOWNLOAD, QStringLiteral("program is running"));
        return;
    }
    if (Path.isEmpty() || !QFileInfo(Path).isFile()) {
        Commands::SetCommandError(CMD_EXEC_DOWNLOAD, QStringLiteral("file not found"));
        return;
    }
    // No user function runs: this is what a TargetDownload handler calls.
    DownloadFile(Path, nullptr, DOWNLOAD_DATA_FILE);
}

void CMainWindow::OnActionExecCommandTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_EXEC_COMMAND)) {
        return;
    }
    const QByteArray Text = Commands::GetCommandArgs(CMD_EXEC_COMMAND).first().toUtf8();
    if (Device()->ScheduleExecTarvoCmd(Text.constData()) < 0) {
        Commands::SetCommandError(CMD_EXEC_COMMAND, QStringLiteral("invalid parameter"));
    }
}

bool CMainWindow::IsClosePending() const {
    return m_Session->PendingAction() == PA_CLOSE_WINDOW;
}
