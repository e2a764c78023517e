// The debug session's steps and the device's answers to them. The step moves only through SetStep, which
// checks the move against the table below.

#include "app/session/SessionController.h"

#include "app/core/Check.h"
#include "app/core/Log.h"
#include "app/core/SysVars.h"
#include "script/TScript.h"
#include "target/Device.h"
#include "target/DeviceConfig.h"

namespace {

CDevice* Device() {
    return CDevice::Instance();
}

bool IsConnected() {
    return Device()->Connected.load() != 0;
}

constexpr U32 Bit(SESSION_STEPS S) {
    return 1u << S;
}

/// The steps each step may move to. Besides the documented session table: a reset or a download of the
/// program from a session that stands or runs (to the break symbol too), a failed reset or disconnection
/// back to where the target stands, and a connection lost from any connected step.
constexpr U32 CONNECTED_STEPS = Bit(SS_CONNECTING) | Bit(SS_RESETTING) | Bit(SS_DOWNLOADING) |
                                Bit(SS_RUNNING) | Bit(SS_HALTED) | Bit(SS_RUN_TO);
constexpr U32 ALLOWED[SS_COUNT] = {
    /* disconnected  */ Bit(SS_CONNECTING),
    /* connecting    */ Bit(SS_RESETTING) | Bit(SS_RUNNING) | Bit(SS_HALTED) | Bit(SS_DISCONNECTED) |
        Bit(SS_DISCONNECTING),
    /* resetting     */ Bit(SS_DOWNLOADING) | Bit(SS_HALTED) | Bit(SS_RUNNING) | Bit(SS_RUN_TO) |
        Bit(SS_DISCONNECTING) | Bit(SS_DISCONNECTED),
    /* downloading   */ Bit(SS_HALTED) | Bit(SS_RUNNING) | Bit(SS_RUN_TO) | Bit(SS_DISCONNECTING) |
        Bit(SS_DISCONNECTED),
    /* running       */ Bit(SS_HALTED) | Bit(SS_RESETTING) | Bit(SS_DOWNLOADING) | Bit(SS_DISCONNECTING) |
        Bit(SS_DISCONNECTED),
    /* halted        */ Bit(SS_RUNNING) | Bit(SS_RUN_TO) | Bit(SS_RESETTING) | Bit(SS_DOWNLOADING) |
        Bit(SS_DISCONNECTING) | Bit(SS_DISCONNECTED),
    /* run-to        */ Bit(SS_HALTED) | Bit(SS_RUNNING) | Bit(SS_RESETTING) | Bit(SS_DOWNLOADING) |
        Bit(SS_DISCONNECTING) | Bit(SS_DISCONNECTED),
    /* disconnecting */ Bit(SS_DISCONNECTED) | Bit(SS_HALTED) | Bit(SS_RUNNING),
};
static_assert(sizeof(ALLOWED) / sizeof(ALLOWED[0]) == SS_COUNT, "one row per step");

} // namespace

CSessionController::CSessionController(ISessionUi* Ui, QObject* Parent) : QObject(Parent), m_Ui(Ui) {
    qRegisterMetaType<SESSION_STEPS>("SESSION_STEPS");
}

const char* CSessionController::StepName(SESSION_STEPS Step) {
    static const char* const Names[SS_COUNT] = {"disconnected", "connecting", "resetting", "downloading",
                                                "running",      "halted",     "run-to",    "disconnecting"};
    return Step >= 0 && Step < SS_COUNT ? Names[Step] : "invalid";
}

bool CSessionController::IsTransitionAllowed(SESSION_STEPS From, SESSION_STEPS To) {
    if (From < 0 || From >= SS_COUNT || To < 0 || To >= SS_COUNT) {
        return false;
    }
    return From == To || (ALLOWED[From] & Bit(To)) != 0;
}

bool CSessionController::SetStep(SESSION_STEPS To, const char* Trigger) {
    ARNEX_CHECK_GUI_THREAD();
    const SESSION_STEPS From = m_Step;
    if (!IsTransitionAllowed(From, To)) {
        ARNEX_CHECK(false, QStringLiteral("session: %1 is not allowed to move from %2 to %3")
                               .arg(QLatin1String(Trigger), QLatin1String(StepName(From)),
                                    QLatin1String(StepName(To))));
        return false;
    }
    if (From != To) {
        m_Step = To;
        emit StepChanged(From, To);
    }
    return true;
}

DEBUG_STATES CSessionController::DebugState() {
    CDevice* D = Device();
    if (!D->Connected.load()) {
        return DS_DISCONNECTED;
    }
    // HaltDone is the halt as the GUI side knows it: set at the end of the halt sequence.
    return D->HaltDone.load() ? DS_HALTED : DS_RUNNING;
}

bool CSessionController::IsLinkLost() {
    return !IsConnected() || Device()->ConnectionLost.load();
}

SESSION_STEPS CSessionController::TargetStep() {
    if (!IsConnected()) {
        return SS_DISCONNECTED;
    }
    return Device()->HaltDone.load() ? SS_HALTED : SS_RUNNING;
}

void CSessionController::SetPendingAction(PENDING_ACTIONS Action, const QString& Project) {
    m_PendingAction = Action;
    m_PendingProject = Action == PA_OPEN_PROJECT ? Project : QString();
}

int CSessionController::ExecUserFunctionIfPresent(int Id) {
    return TScript::HasUserFunction(Id) ? m_Ui->ExecUserFunction(Id) : -1;
}

void CSessionController::SetControllerBusy(bool Busy) {
    Device()->ControllerBusy = Busy ? 1 : 0;
}

void CSessionController::StartSession() {
    Device()->SessionActive = 1;
}

void CSessionController::AfterReset() {
    if (TScript::HasUserFunction(UF_AFTER_TARGET_RESET)) {
        m_Ui->ExecUserFunction(UF_AFTER_TARGET_RESET);
        return;
    }
    const CORE_PLUGIN_API* Api = Device()->CorePlugin();
    if (Api && Api->AfterTargetReset) {
        Api->AfterTargetReset();
    }
    Device()->SetTargetExecState(0, 0);
}

// Steps --------------------------------------------------------------------------------------------------

void CSessionController::Connect(U32 Mode) {
    ARNEX_CHECK_GUI_THREAD();
    if (IsConnected()) {
        return;
    }
    SetStep(SS_CONNECTING, "Connect");
    SetControllerBusy(true);
    m_Ui->SetStatusMessage(QStringLiteral("Connecting..."));
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
    m_Ui->ExecUserFunction(UF_TARGET_CONNECT);
    D->SetEventSuppressed(JT_CONNECT, false);
    const U32 Current = static_cast<U32>(SysVars::GetVarValue(VAR_CONNECT_MODE));
    D->ConnectMode = Current;
    D->SetPendingConnect(Current);
}

void CSessionController::Disconnect() {
    ARNEX_CHECK_GUI_THREAD();
    if (!IsConnected()) {
        return;
    }
    SetStep(SS_DISCONNECTING, "Disconnect");
    ExecUserFunctionIfPresent(UF_BEFORE_TARGET_DISCONNECT);
    Device()->ScheduleDisconnect();
}

void CSessionController::Reset(U32 Mode) {
    ARNEX_CHECK_GUI_THREAD();
    if (!IsConnected()) {
        return;
    }
    SetStep(SS_RESETTING, "Reset");
    m_Ui->SetStatusMessage(QStringLiteral("Resetting Device..."));
    ExecUserFunctionIfPresent(UF_BEFORE_TARGET_RESET);
    CDevice* D = Device();
    if (!TScript::HasUserFunction(UF_TARGET_RESET)) {
        if (D->ScheduleReset(static_cast<RESET_MODES>(Mode)) < 0) {
            SetControllerBusy(false);
            SetStep(TargetStep(), "ScheduleReset failed");
        }
        return;
    }
    // The handler resets through Exec.Reset; the device reports the reset afterwards.
    D->SetEventSuppressed(JT_RESET, true);
    D->SetEventSuppressed(JT_HALT, true);
    m_Ui->ExecUserFunction(UF_TARGET_RESET);
    D->SetEventSuppressed(JT_RESET, false);
    D->SetEventSuppressed(JT_HALT, false);
    const U32 Current =
        Mode == RM_RESET_DOWNLOAD ? Mode : static_cast<U32>(SysVars::GetVarValue(VAR_RESET_MODE));
    D->ResetMode = Current;
    D->SetPendingReset(Current);
}

int CSessionController::RunToBreakSymbol() {
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

void CSessionController::PerformInitialProgramOperation() {
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
        SetStep(SS_HALTED, "first program operation: reset and halt");
        break;
    case RM_BREAK_AT_SYMBOL:
        if (RunToBreakSymbol() == 0) {
            StartSession();
            SetStep(SS_RUN_TO, "first program operation: break at symbol");
        } else {
            // The message waits until the target has stopped, so that it doesn't hold the stop up.
            m_Ui->StartMessageBoxTimer();
            StartSession();
            D->ScheduleHalt();
            SetStep(SS_HALTED, "first program operation: unknown break symbol");
        }
        break;
    case RM_RESET_AND_RUN:
        StartSession();
        if (D->HaltDone.load()) {
            D->ScheduleContinue(GO_USER);
        }
        SetStep(SS_RUNNING, "first program operation: reset and run");
        break;
    default:
        LogErrorMsg(QStringLiteral("In function PerformInitialProgramOperation: unimplemented reset mode: ") +
                    QString::number(Mode));
        break;
    }
}

// The device's answers --------------------------------------------------------------------------------------

void CSessionController::OnDeviceConnectDone(CONNECT_MODES Mode) {
    ARNEX_CHECK_GUI_THREAD();
    // An event without a sequence goes on to the step check below, which reports it.
    if (IsLinkLost() && m_Step != SS_DISCONNECTED) {
        // Lost (or ended) before its event came: no step of the sequence can follow.
        SetControllerBusy(false);
        SetStep(TargetStep(), "OnDeviceConnectDone after a lost link");
        m_Ui->UpdateSessionActions();
        return;
    }
    PrintConsole(QStringLiteral("Tarvo: connected to target device"), COLOR_LOGGING_TARVO);
    LogDebugMsg(QStringLiteral("Tarvo: connected to target device"));
    m_Ui->SetStatusMessage(QStringLiteral("Connected"));
    m_Ui->UpdateSessionActions();
    const CORE_PLUGIN_API* Api = Device()->CorePlugin();
    if (Api && Api->AfterTargetConnect) {
        Api->AfterTargetConnect();
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
            SetStep(SS_HALTED, "OnDeviceConnectDone: attach to a halted target");
        } else {
            m_Ui->SetStatusMessage(QStringLiteral("CPU running..."));
            SetStep(SS_RUNNING, "OnDeviceConnectDone: attach");
        }
        SetControllerBusy(false);
        break;
    case CM_ATTACH_HALT:
        D->ScheduleHalt();
        SetStep(SS_HALTED, "OnDeviceConnectDone: attach and halt");
        SetControllerBusy(false);
        break;
    default:
        SetStep(TargetStep(), "OnDeviceConnectDone");
        SetControllerBusy(false);
        break;
    }
    m_Ui->StartPeriodicUpdate();
}

void CSessionController::OnDeviceConnectFailed(CONNECT_MODES Mode) {
    Q_UNUSED(Mode);
    m_Ui->SetStatusMessage(QStringLiteral("Tarvo: error connecting to device"));
    // The device's reason is a warning of the log file; the Console shows it with the failure.
    const QString Reason = Device()->LastErrorText();
    if (!Reason.isEmpty()) {
        LogErrorMsg(Reason);
    }
    LogErrorMsg(QStringLiteral("Connection failed"));
    SetControllerBusy(false);
    SetStep(SS_DISCONNECTED, "OnDeviceConnectFailed");
    m_Ui->UpdateSessionActions();
}

void CSessionController::OnDeviceConnectCanceled(U32 Mode) {
    Q_UNUSED(Mode);
    m_Ui->SetStatusMessage(QStringLiteral("Ready"));
    LogInfoMsg(QStringLiteral("Connection aborted"));
    SetControllerBusy(false);
    SetStep(SS_DISCONNECTED, "OnDeviceConnectCanceled");
    m_Ui->UpdateSessionActions();
}

void CSessionController::OnDeviceResetDone(U32 PC, RESET_MODES Mode) {
    Q_UNUSED(PC);
    if (IsLinkLost() && Mode != RM_EXEC_STATE && m_Step != SS_DISCONNECTED) {
        // No handler and no download against a dead link.
        SetControllerBusy(false);
        SetStep(TargetStep(), "OnDeviceResetDone after a lost link");
        m_Ui->UpdateSessionActions();
        return;
    }
    switch (Mode) {
    case RM_RESET_HALT:
    case RM_BREAK_AT_SYMBOL:
    case RM_RESET_AND_RUN:
        AfterReset();
        m_Ui->RepaintWindows();
        if (Mode == RM_RESET_HALT) {
            m_Ui->SetStatusMessage(QStringLiteral("Device was reset"));
            StartSession();
            SetStep(SS_HALTED, "OnDeviceResetDone: reset and halt");
        } else if (Mode == RM_RESET_AND_RUN) {
            if (Device()->HaltDone.load()) {
                Device()->ScheduleContinue(GO_USER);
            }
            SetStep(SS_RUNNING, "OnDeviceResetDone: reset and run");
        } else if (RunToBreakSymbol() != 0) {
            m_Ui->StartMessageBoxTimer();
            SetStep(TargetStep(), "OnDeviceResetDone: unknown break symbol");
        } else {
            SetStep(SS_RUN_TO, "OnDeviceResetDone: break at symbol");
        }
        SetControllerBusy(false);
        m_Ui->UpdateSessionActions();
        break;
    case RM_RESET_DOWNLOAD:
        // Without a reset of the controller's own there is no program to download.
        if (!SetStep(SS_DOWNLOADING, "OnDeviceResetDone: reset before the download")) {
            return;
        }
        AfterReset();
        DownloadProgram(m_Ui->ProgramPath(), DOWNLOAD_PROGRAM);
        break;
    case RM_EXEC_STATE:
        m_Ui->RepaintWindows();
        break;
    default:
        LogErrorMsg(QStringLiteral("In function OnDeviceResetDone: unknown reset mode"));
        break;
    }
}

void CSessionController::OnDeviceResetFailed(U32 PC, RESET_MODES Mode) {
    Q_UNUSED(PC);
    Q_UNUSED(Mode);
    // The device has said why; the sequence ends here, with the target where it stands.
    m_Ui->SetStatusMessage(QStringLiteral("Ready"));
    SetControllerBusy(false);
    SetStep(TargetStep(), "OnDeviceResetFailed");
    m_Ui->UpdateSessionActions();
}

void CSessionController::OnDeviceDisconnectDone() {
    PrintConsole(QStringLiteral("Tarvo: disconnected from target device"), COLOR_LOGGING_TARVO);
    LogDebugMsg(QStringLiteral("Tarvo: disconnected from target device"));
    m_Ui->SetStatusMessage(QStringLiteral("Ready"));
    m_Ui->EndProgress();
    SetStep(SS_DISCONNECTED, "OnDeviceDisconnectDone");
    // The sequence of a new connection may run already: its busy mark stays.
    m_Ui->UpdateSessionActions();
    ExecUserFunctionIfPresent(UF_AFTER_TARGET_DISCONNECT);
    const PENDING_ACTIONS Action = m_PendingAction;
    const QString Path = m_PendingProject;
    SetPendingAction(PA_NONE);
    if (Action == PA_OPEN_PROJECT) {
        m_Ui->OpenProject(Path);
    } else if (Action == PA_CLOSE_WINDOW) {
        m_Ui->CloseWindow();
    }
}

void CSessionController::OnDeviceDisconnectFailed() {
    // The session goes on: what was to follow its end (a close, another project) is dropped.
    SetPendingAction(PA_NONE);
    SetStep(TargetStep(), "OnDeviceDisconnectFailed");
    m_Ui->UpdateSessionActions();
}

void CSessionController::OnDeviceConnectionLost() {
    LogErrorMsg(QStringLiteral("Tarvo: connection to target device lost."));
    // No step of a sequence that runs now can succeed; its download, if any, still ends in its event.
    SetControllerBusy(false);
    if (IsConnected()) {
        if (m_Ui->AskYesNo(QStringLiteral("Target Connection Lost"),
                           QStringLiteral("Failed to read target status. Abort Debug Session?"))) {
            Disconnect();
        }
    } else {
        SetStep(SS_DISCONNECTED, "OnDeviceConnectionLost");
    }
    m_Ui->UpdateSessionActions();
}

void CSessionController::OnDeviceHaltDone(U32 PC, HALT_REASONS Reason) {
    Q_UNUSED(PC);
    Q_UNUSED(Reason);
    // A halt inside a sequence step belongs to that step; the step ends by its own event.
    if (m_Step == SS_RUNNING || m_Step == SS_RUN_TO) {
        SetStep(SS_HALTED, "OnDeviceHaltDone");
    }
}

void CSessionController::OnDeviceRunToSymbolDone(U32 PC) {
    Q_UNUSED(PC);
    if (m_Step == SS_RUN_TO || m_Step == SS_RUNNING) {
        SetStep(SS_HALTED, "OnDeviceRunToSymbolDone");
    }
}

void CSessionController::OnDeviceResumeDone(RESUME_MODES Mode) {
    Q_UNUSED(Mode);
    if (m_Step == SS_HALTED) {
        SetStep(SS_RUNNING, "OnDeviceResumeDone");
    }
}

void CSessionController::OnDeviceResumeFailed(RESUME_MODES Mode) {
    Q_UNUSED(Mode);
    // A run the controller started (reset and run) that didn't start leaves the target where it is.
    if (m_Step == SS_RUNNING) {
        SetStep(TargetStep(), "OnDeviceResumeFailed");
    }
}
