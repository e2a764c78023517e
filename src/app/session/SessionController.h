#pragma once

#include "app/core/Types.h"
#include "target/DeviceTypes.h"

#include <QObject>
#include <QString>

/// The steps of a debug session as the controller sees them. Where the target stands inside a step comes
/// from the device; the step says what the controller waits for.
enum SESSION_STEPS : int {
    SS_DISCONNECTED = 0,
    SS_CONNECTING,    ///< the connection job (or the project's TargetConnect) runs
    SS_RESETTING,     ///< a reset runs; mode 3 leads to the download
    SS_DOWNLOADING,   ///< the program goes to the target; the first program operation follows
    SS_RUNNING,       ///< connected, the target runs
    SS_HALTED,        ///< connected, the target stands
    SS_RUN_TO,        ///< the target runs to the break symbol
    SS_DISCONNECTING, ///< the disconnection job runs
    SS_COUNT
};

/// The three states the windows show, derived from the device whenever asked, never stored.
enum DEBUG_STATES : int {
    DS_RUNNING = 1,      ///< "Program running"
    DS_HALTED = 2,       ///< "No data"
    DS_DISCONNECTED = 3, ///< "No target connection"
};

/// What the end of a disconnection does next.
enum PENDING_ACTIONS : int {
    PA_NONE = 0,
    PA_OPEN_PROJECT = 2, ///< open the pending project
    PA_CLOSE_WINDOW = 3, ///< close the main window again
};

/// The effects of the session on the user interface. The main window implements it; a test replaces it.
class ISessionUi {
public:
    virtual ~ISessionUi() = default;
    virtual void SetStatusMessage(const QString& Text) = 0;
    /// Hides the busy progress and resets the progress fields.
    virtual void EndProgress() = 0;
    /// Enabled state of the actions, the connection field and the title.
    virtual void UpdateSessionActions() = 0;
    /// Runs a user function of the project with its log line; -1 when it doesn't run.
    virtual int ExecUserFunction(int Id) = 0;
    /// A Yes/No question; true for Yes.
    virtual bool AskYesNo(const QString& Title, const QString& Text) = 0;
    /// A warning with OK.
    virtual void Warn(const QString& Title, const QString& Text) = 0;
    /// The debug windows drop their data and repaint.
    virtual void RepaintWindows() = 0;
    /// Starts the single-shot timer of the "Break at Symbol" message.
    virtual void StartMessageBoxTimer() = 0;
    virtual void StartPeriodicUpdate() = 0;
    /// The program file of the session.
    virtual QString ProgramPath() const = 0;
    virtual void OpenProject(const QString& Path) = 0;
    virtual void CloseWindow() = 0;
    /// A download of File begins; File was downloaded.
    virtual void DownloadStarting(const QString& File) = 0;
    virtual void DownloadFinished(const QString& File) = 0;
};

/// The debug session: connect, reset, download, the first program operation and disconnect, with the
/// project's user functions around each step, driven by the Debug and Exec commands and the device's
/// answers. Every change of step goes through SetStep, which checks it against the table of allowed
/// transitions. GUI thread only.
class CSessionController : public QObject {
    Q_OBJECT

public:
    explicit CSessionController(ISessionUi* Ui, QObject* Parent = nullptr);

    SESSION_STEPS Step() const { return m_Step; }
    static const char* StepName(SESSION_STEPS Step);
    /// True when the table allows the move (a step to itself is always allowed and changes nothing).
    static bool IsTransitionAllowed(SESSION_STEPS From, SESSION_STEPS To);
    /// The one place where the step changes: the move is checked, then StepChanged is emitted. False when
    /// the check refused the move.
    bool SetStep(SESSION_STEPS To, const char* Trigger);
    static DEBUG_STATES DebugState();

    PENDING_ACTIONS PendingAction() const { return m_PendingAction; }
    QString PendingProject() const { return m_PendingProject; }
    void SetPendingAction(PENDING_ACTIONS Action, const QString& Project = QString());

    // Steps.
    void Connect(U32 Mode);
    void Disconnect();
    void Reset(U32 Mode);
    /// 0 when the run to the break symbol was started, -1 without a connection or a symbol address.
    int RunToBreakSymbol();
    void PerformInitialProgramOperation();
    void DownloadProgram(const QString& File, DOWNLOAD_MODES Mode, I64 LoadAddress = -1);
    void DownloadFile(const QString& File, const char* Zone, DOWNLOAD_MODES Mode, I64 LoadAddress = -1);
    void OnDownloadFailed(U32 Mode, int Error);
    void OnDownloadDone(U32 Mode);

    // The device's answers.
    void OnDeviceConnectDone(CONNECT_MODES Mode);
    void OnDeviceConnectFailed(CONNECT_MODES Mode);
    /// The end of a connection that was canceled before it stood.
    void OnDeviceConnectCanceled(U32 Mode);
    void OnDeviceResetDone(U32 PC, RESET_MODES Mode);
    void OnDeviceResetFailed(U32 PC, RESET_MODES Mode);
    void OnDeviceDisconnectDone();
    void OnDeviceDisconnectFailed();
    void OnDeviceConnectionLost();
    void OnDeviceEndDownloadDone(const char* File, DOWNLOAD_MODES Mode);
    void OnDeviceEndDownloadFailed(const char* File, DOWNLOAD_MODES Mode, int Error);
    void OnDeviceHaltDone(U32 PC, HALT_REASONS Reason);
    void OnDeviceResumeDone(RESUME_MODES Mode);
    void OnDeviceResumeFailed(RESUME_MODES Mode);
    void OnDeviceRunToSymbolDone(U32 PC);

signals:
    void StepChanged(SESSION_STEPS From, SESSION_STEPS To);

private:
    /// Halted or running, as the device knows the target now.
    static SESSION_STEPS TargetStep();
    /// Whether the link to the target broke (or went): the steps that follow a device event end there,
    /// without a word more than the loss itself.
    static bool IsLinkLost();
    /// The end of a download whose link broke: the sequence stops.
    void EndLostDownload();
    void SetControllerBusy(bool Busy);
    void StartSession();
    int ExecUserFunctionIfPresent(int Id);
    /// AfterTargetReset, or the plug-in's hook and a fresh execution state.
    void AfterReset();

    ISessionUi* m_Ui;
    SESSION_STEPS m_Step = SS_DISCONNECTED;
    PENDING_ACTIONS m_PendingAction = PA_NONE;
    QString m_PendingProject;
};
