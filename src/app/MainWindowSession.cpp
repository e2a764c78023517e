// The debug session in the main window: connecting, resetting and disconnecting with the project's user
// functions around each step, the device's answers, the Debug and Exec commands that drive it, and the
// enabled state of the session's actions.

#include "app/MainWindow.h"

#include "analysis/CorePluginLoader.h"
#include "app/StatusBar.h"
#include "app/core/CommandTable.h"
#include "app/core/Log.h"
#include "app/core/Numbers.h"
#include "app/core/SysVars.h"
#include "app/core/Version.h"
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

void CMainWindow::SetControllerBusy(bool Busy) {
    Device()->ControllerBusy = Busy ? 1 : 0;
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

void CMainWindow::StartSession() {
    Device()->SessionActive = 1;
}

// Steps --------------------------------------------------------------------------------------------------

void CMainWindow::Connect(U32 Mode) {
    if (IsConnected()) {
        return;
    }
    SetControllerBusy(true);
    m_StatusBar->SetStatusMessage(QStringLiteral("Connecting..."));
    ExecUserFunctionIfPresent(UF_BEFORE_TARGET_CONNECT);
    CDevice* D = Device();
    if (!TScript::HasUserFunction(UF_TARGET_CONNECT)) {
        if (D->ScheduleConnect(static_cast<CONNECT_MODES>(Mode)) < 0) {
            OnDeviceConnectFailed(static_cast<CONNECT_MODES>(Mode));
        }
        return;
    }
    // The handler's Exec.Connect does the work; the device finishes the connection afterwards and
    // reports it as if its own job had made it.
    D->SetEventSuppressed(JT_CONNECT, true);
    ExecUserFunction(UF_TARGET_CONNECT);
    D->SetEventSuppressed(JT_CONNECT, false);
    const U32 Current = static_cast<U32>(SysVars::GetVarValue(VAR_CONNECT_MODE));
    D->ConnectMode = Current;
    D->SetPendingConnect(Current);
}

void CMainWindow::Disconnect() {
    if (!IsConnected()) {
        return;
    }
    ExecUserFunctionIfPresent(UF_BEFORE_TARGET_DISCONNECT);
    Device()->ScheduleDisconnect();
}

void CMainWindow::Reset(U32 Mode) {
    if (!IsConnected()) {
        return;
    }
    m_StatusBar->SetStatusMessage(QStringLiteral("Resetting Device..."));
    ExecUserFunctionIfPresent(UF_BEFORE_TARGET_RESET);
    CDevice* D = Device();
    if (!TScript::HasUserFunction(UF_TARGET_RESET)) {
        if (D->ScheduleReset(static_cast<RESET_MODES>(Mode)) < 0) {
            SetControllerBusy(false);
        }
        return;
    }
    // The handler resets through Exec.Reset; the device reports the reset afterwards.
    D->SetEventSuppressed(JT_RESET, true);
    D->SetEventSuppressed(JT_HALT, true);
    ExecUserFunction(UF_TARGET_RESET);
    D->SetEventSuppressed(JT_RESET, false);
    D->SetEventSuppressed(JT_HALT, false);
    const U32 Current =
        Mode == RM_RESET_DOWNLOAD ? Mode : static_cast<U32>(SysVars::GetVarValue(VAR_RESET_MODE));
    D->ResetMode = Current;
    D->SetPendingReset(Current);
}

int CMainWindow::RunToBreakSymbol() {
    CDevice* D = Device();
    const I32 Address = GetDeviceConfig().GetParam(BREAK_SYMBOL_ADDR);
    if (!D->Connected.load() || Address == -1) {
        return -1;
    }
    if (!D->HaltDone.load()) {
        D->ScheduleHalt();
    }
    DEVICE_JOB Job = {};
    Job.Type = JT_RUN_TO;
    Job.Param[0] = static_cast<U32>(Address);
    return D->ScheduleJob(&Job) < 0 ? -1 : 0;
}

void CMainWindow::PerformInitialProgramOperation() {
    CDevice* D = Device();
    if (SysVars::GetVarValue(VAR_CONNECT_MODE) != CM_DOWNLOAD_RESET || !D->Connected.load() ||
        D->ConnectionLost.load()) {
        return;
    }
    const I64 Mode = SysVars::GetVarValue(VAR_RESET_MODE);
    switch (Mode) {
    case RM_RESET_HALT:
        StartSession();
        D->ScheduleHalt();
        break;
    case RM_BREAK_AT_SYMBOL:
        if (RunToBreakSymbol() == 0) {
            StartSession();
        } else {
            // The message waits until the target has stopped, so that it doesn't hold the stop up.
            m_MessageBoxTimer->start();
            StartSession();
            D->ScheduleHalt();
        }
        break;
    case RM_RESET_AND_RUN:
        StartSession();
        if (D->HaltDone.load()) {
            D->ScheduleContinue(GO_USER);
        }
        break;
    default:
        LogErrorMsg(QStringLiteral("In function PerformInitialProgramOperation: unimplemented reset mode: ") +
                    QString::number(Mode));
        break;
    }
}

void CMainWindow::OnMessageBoxTimerTimeout() {
    const QString Name = SysVars::GetVarString(SysVars::GetVarRow(VAR_BREAK_AT_THIS_SYMBOL));
    MessageBox::Inform(this, QMessageBox::Information, QStringLiteral("Break at Symbol"),
                       QStringLiteral("Symbol %1 is unknown. Program halts at first instruction.").arg(Name));
}

// The device's answers --------------------------------------------------------------------------------------

void CMainWindow::OnDeviceConnectDone(CONNECT_MODES Mode) {
    if (IsLinkLost()) {
        // Lost (or ended) before its event came: no step of the sequence can follow.
        SetControllerBusy(false);
        UpdateSessionActions();
        return;
    }
    PrintConsole(QStringLiteral("Tarvo: connected to target device"), COLOR_LOGGING_TARVO);
    LogDebugMsg(QStringLiteral("Tarvo: connected to target device"));
    m_StatusBar->SetStatusMessage(QStringLiteral("Connected"));
    UpdateSessionActions();
    const CORE_PLUGIN_API& Api = CorePluginLoader::GetApi();
    if (CorePluginLoader::IsLoaded() && Api.AfterTargetConnect) {
        Api.AfterTargetConnect();
    }
    ExecUserFunctionIfPresent(UF_AFTER_TARGET_CONNECT);
    if (static_cast<I64>(Mode) != SysVars::GetVarValue(VAR_CONNECT_MODE)) {
        LogErrorMsg(
            QStringLiteral("Changing the connection mode while the connection sequence is in progress may "
                           "lead to undefined behaviour"));
    }
    CDevice* D = Device();
    switch (Mode) {
    case CM_DOWNLOAD_RESET:
        // The sequence goes on: reset, download, the first program operation.
        Reset(RM_RESET_DOWNLOAD);
        break;
    case CM_ATTACH:
        if (D->IsTargetHalted()) {
            D->ScheduleHalt();
        } else {
            m_StatusBar->SetStatusMessage(QStringLiteral("CPU running..."));
        }
        SetControllerBusy(false);
        break;
    case CM_ATTACH_HALT:
        D->ScheduleHalt();
        SetControllerBusy(false);
        break;
    default:
        SetControllerBusy(false);
        break;
    }
    m_PeriodicUpdateTimer->start();
}

void CMainWindow::OnDeviceConnectFailed(CONNECT_MODES Mode) {
    Q_UNUSED(Mode);
    m_StatusBar->SetStatusMessage(QStringLiteral("Tarvo: error connecting to device"));
    // The device's reason is a warning of the log file; the Console shows it with the failure.
    const QString Reason = Device()->LastErrorText();
    if (!Reason.isEmpty()) {
        LogErrorMsg(Reason);
    }
    LogErrorMsg(QStringLiteral("Connection failed"));
    SetControllerBusy(false);
    UpdateSessionActions();
}

void CMainWindow::OnDeviceConnectCanceled(U32 Mode) {
    Q_UNUSED(Mode);
    m_StatusBar->SetStatusMessage(QStringLiteral("Ready"));
    LogInfoMsg(QStringLiteral("Connection aborted"));
    SetControllerBusy(false);
    UpdateSessionActions();
}

void CMainWindow::OnDeviceResetDone(U32 PC, RESET_MODES Mode) {
    Q_UNUSED(PC);
    if (IsLinkLost() && Mode != RM_EXEC_STATE) {
        // No handler and no download against a dead link.
        SetControllerBusy(false);
        UpdateSessionActions();
        return;
    }
    const CORE_PLUGIN_API& Api = CorePluginLoader::GetApi();
    const auto AfterReset = [this, &Api]() {
        if (TScript::HasUserFunction(UF_AFTER_TARGET_RESET)) {
            ExecUserFunction(UF_AFTER_TARGET_RESET);
            return;
        }
        if (CorePluginLoader::IsLoaded() && Api.AfterTargetReset) {
            Api.AfterTargetReset();
        }
        Device()->SetTargetExecState(0, 0);
    };
    switch (Mode) {
    case RM_RESET_HALT:
    case RM_BREAK_AT_SYMBOL:
    case RM_RESET_AND_RUN:
        AfterReset();
        for (CWindow* W : m_DebugWindows) {
            W->Repaint();
        }
        if (Mode == RM_RESET_HALT) {
            m_StatusBar->SetStatusMessage(QStringLiteral("Device was reset"));
            StartSession();
        } else if (Mode == RM_RESET_AND_RUN) {
            if (Device()->HaltDone.load()) {
                Device()->ScheduleContinue(GO_USER);
            }
        } else if (RunToBreakSymbol() != 0) {
            m_MessageBoxTimer->start();
        }
        SetControllerBusy(false);
        UpdateSessionActions();
        break;
    case RM_RESET_DOWNLOAD:
        AfterReset();
        DownloadProgram(m_ProgramPath, DOWNLOAD_PROGRAM);
        break;
    case RM_EXEC_STATE:
        for (CWindow* W : m_DebugWindows) {
            W->Repaint();
        }
        break;
    default:
        LogErrorMsg(QStringLiteral("In function OnDeviceResetDone: unknown reset mode"));
        break;
    }
}

void CMainWindow::OnDeviceResetFailed(U32 PC, RESET_MODES Mode) {
    Q_UNUSED(PC);
    Q_UNUSED(Mode);
    // The device has said why; the sequence ends here.
    m_StatusBar->SetStatusMessage(QStringLiteral("Ready"));
    SetControllerBusy(false);
    UpdateSessionActions();
}

void CMainWindow::OnDeviceDisconnectDone() {
    PrintConsole(QStringLiteral("Tarvo: disconnected from target device"), COLOR_LOGGING_TARVO);
    LogDebugMsg(QStringLiteral("Tarvo: disconnected from target device"));
    m_StatusBar->SetStatusMessage(QStringLiteral("Ready"));
    m_StatusBar->EndProgress();
    // The sequence of a new connection may run already: its busy mark stays.
    UpdateSessionActions();
    ExecUserFunctionIfPresent(UF_AFTER_TARGET_DISCONNECT);
    const I32 Action = m_PendingAction;
    m_PendingAction = 0;
    if (Action == 2) {
        const QString Path = m_PendingProject;
        m_PendingProject.clear();
        OpenProject(Path);
    } else if (Action == 3) {
        close();
    }
}

void CMainWindow::OnDeviceDisconnectFailed() {
    // The session goes on: what was to follow its end (a close, another project) is dropped.
    m_PendingAction = 0;
    m_PendingProject.clear();
    UpdateSessionActions();
}

void CMainWindow::OnDeviceConnectionLost() {
    LogErrorMsg(QStringLiteral("Tarvo: connection to target device lost."));
    // No step of a sequence that runs now can succeed; its download, if any, still ends in its event.
    SetControllerBusy(false);
    if (IsConnected()) {
        const QMessageBox::StandardButton Answer =
            MessageBox::Ask(this, QStringLiteral("Target Connection Lost"),
                            QStringLiteral("Failed to read target status. Abort Debug Session?"),
                            QMessageBox::Yes | QMessageBox::No, QMessageBox::Yes);
        if (Answer == QMessageBox::Yes) {
            Disconnect();
        }
    }
    UpdateSessionActions();
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
