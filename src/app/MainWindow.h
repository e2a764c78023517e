#pragma once

#include "views/Window.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QList>
#include <QMap>
#include <QStringList>

#include <functional>

class CConsoleWindow;
class CMainWindowSessionUi;
class CSessionController;
class CProgramLoader;
class CDockWindow;
class CStatusBar;
class CDeviceEventWorker;
class QCloseEvent;
class QMenu;
class QTimer;
class QToolBar;
class QToolButton;

/// The main window: the frame of the program, the owner of the debug windows and of the command actions,
/// and the place where start-up and shutdown are ordered. One instance per process, reached through
/// Instance(). GUI thread only.
class CMainWindow : public CWindow {
    Q_OBJECT

public:
    /// The process-wide main window; created on first access.
    static CMainWindow* Instance();
    static bool Exists();
    /// Deletes the main window (process exit).
    static void Destroy();

    CConsoleWindow* GetConsole() const { return m_Console; }
    /// The debug windows in the order of the View menu.
    QList<CWindow*> GetDebugWindows() const { return m_DebugWindows; }
    /// A debug window by name or alias, without regard to case; null if none.
    CWindow* FindDebugWindow(const QString& Name) const;
    QToolBar* FindToolBar(const QString& Name) const;
    bool IsClosing() const { return m_Closing; }
    /// A close waits for the end of the session.
    bool IsClosePending() const;
    bool IsInitComplete() const { return m_InitComplete; }
    /// "Arnex - New Project" until a project exists.
    void UpdateTitle();
    QStringList GetRecentProjects() const { return m_RecentProjects; }

    /// Opens a file by its type: a project, a program or data file, or a source document.
    void OpenFile(const QString& Path);
    /// Opens a project file; false when it could not be opened.
    bool OpenProject(const QString& Path);
    /// Opens a program or data file (ELF, Intel Hex, Motorola S-record, binary).
    bool OpenDataFile(const QString& Path);
    /// Runs a user function of the project script by id, with its log line; -1 while closing. A script
    /// error of an event handler is reported with its function and line, and cleared so that the next
    /// handler runs (an error of OnProjectLoad is the open's to report).
    int ExecUserFunction(int Id);

    // Projects (MainWindowProject*.cpp).
    /// Replaces the project by one made from command lines; Path may be empty (no file yet).
    bool CreateProject(const QString& Path, const QStringList& Lines, bool FromCmdLine);
    /// An empty project without a file, after the question whether to save the current one.
    void NewProject();
    /// Writes the project under Path and puts Path into the recent list in place of the old path.
    bool SaveProject(const QString& Path);
    /// The question before the project is dropped: 0 go on (saved or not), 2 stop.
    int AskSaveProjectChanges();
    /// The project check with its reaction: 0 nothing found, 1 go on, -1 the user gave up. First goes
    /// ahead of the project's own warnings.
    int CheckProject(bool ShowDialog, const QStringList& First = QStringList());
    /// Takes the CPU register description of the device's core when the project names none.
    void LoadDefaultRegisterSet();
    QStringList GetRecentPrograms() const { return m_RecentPrograms; }
    /// The debug session's controller: its step, the pending action after a disconnection.
    CSessionController* Session() const { return m_Session; }
    QString GetProgramPath() const { return m_ProgramPath; }
    /// The session state of the windows and tool bars in the project's user file.
    bool SaveUserFile(const QString& Path);
    bool LoadUserFile(const QString& Path);

signals:
    void InitComplete();
    /// A system variable (id below 33) or a user preference was changed through its command.
    void SysVarEdited(int Id, I64 Value);
    void UserPreferenceEdited(int Id, I64 Value);
    /// Emitted once the start-up decision has been taken and the command line applied.
    void StartupDone();
    /// A program file was read; a download of a file begins; a file was downloaded.
    void DataFileOpened(const QString& Path);
    void DataFileAboutToDownload(const QString& Path);
    void DataFileDownloaded(const QString& Path);

public slots:
    void OnWindowShown();
    bool CreateProjectFromCmdLine();
    void ApplyCmdLine() { CreateProjectFromCmdLine(); }
    void OnTabBarUpdateTimerTimeout();
    void OnSysVarChanged(int Id, I64 Value);
    void OnUserPreferenceChanged(int Id, I64 Value);
    void ApplyGUIFontsToDebugWindows();
    void ApplyUserPreferencesToDebugWindows();
    /// Tells every window of a colour change.
    void ApplyColorToDebugWindows(int Id);

    // Commands of this window.
    void OnActionFileOpenTriggered();
    void OnActionFileLoadTriggered();
    void OnActionFileExitTriggered();
    void OnActionEditCopyTriggered();
    void OnActionHelpAboutTriggered();
    void OnActionHelpCommandsTriggered();
    void OnActionUtilSleepTriggered();
    void OnActionUtilLogTriggered();
    void OnActionUtilLogHexTriggered();
    void OnActionWindowShowTriggered();
    void OnActionWindowCloseTriggered();
    void OnActionWindowCloseAllTriggered();
    void OnActionWindowClearTriggered();
    void OnActionWindowShowFullScreenTriggered();
    void OnActionWindowDockTriggered();
    void OnActionWindowUndockTriggered();
    void OnActionToolbarShowTriggered();
    void OnActionToolbarCloseTriggered();
    void OnActionTargetReadU8Triggered();
    void OnActionTargetReadU16Triggered();
    void OnActionTargetReadU32Triggered();
    void OnActionTargetWriteU8Triggered();
    void OnActionTargetWriteU16Triggered();
    void OnActionTargetWriteU32Triggered();
    void OnActionTargetWriteU64Triggered();
    void OnActionTargetFillMemoryTriggered();
    void OnActionTargetGetRegTriggered();
    void OnActionTargetSetRegTriggered();
    void OnActionTargetSetAccessWidthTriggered();
    void OnActionTargetSetEndianessTriggered();
    void OnActionEditSysVarTriggered();
    void OnActionEditPreferenceTriggered();
    void OnActionEditColorTriggered();
    void OnActionEditFontTriggered();
    void OnActionToolsPreferencesTriggered();
    void OnActionToolsSysVarsTriggered();
    void OnActionDebugSetResetModeTriggered();
    void OnActionDebugSetConnectModeTriggered();
    void OnActionElfGetBaseAddrTriggered();
    void OnActionElfGetEntryPointPCTriggered();
    void OnActionElfGetEntryFuncPCTriggered();
    void OnActionElfGetEndianessTriggered();
    void OnActionProjectRelocateSymbolsTriggered();
    void OnActionScriptExecTriggered();
    void OnActionScriptDefineConstTriggered();
    /// Stops the running script function (Tools menu, Escape in the Console).
    void OnActionScriptStopTriggered();

    // Projects.
    void OnProjectFileOpened(const QString& Path);
    void OnProjectFileClosed(const QString& Path);
    void OnProjectAboutToClose(const QString& Path);
    void OnProjectModifiedChanged(bool Modified);
    void OnProjectWizardFinished(QStringList& Lines);
    void OnActionFileNewProjectTriggered();
    void OnActionFileNewProjectWizardTriggered();
    void OnActionFileOpenRecentTriggered();
    void OnActionFileSaveProjectAsTriggered();
    void OnActionFileSaveAllTriggered();
    void OnActionProjectSetDeviceTriggered();
    void OnActionProjectSetTarvoScriptTriggered();
    void OnActionProjectSetTarvoLogFileTriggered();
    void OnActionProjectAddSvdFileTriggered();
    void OnActionProjectSetHostIFTriggered();
    void OnActionProjectSetTargetIFTriggered();
    void OnActionProjectSetTIFSpeedTriggered();
    void OnActionProjectSetJTAGConfigTriggered();
    void OnActionProjectConfigSWOTriggered();
    void OnActionProjectSetSWOTriggered();
    void OnActionProjectSetSemihostingTriggered();
    void OnActionProjectConfigSemihostingTriggered();
    void OnActionProjectSetMCTTriggered();
    void OnActionProjectAddMCTSearchRangeTriggered();
    void OnActionProjectAddRootPathTriggered();
    void OnActionProjectAddSearchPathTriggered();
    void OnActionProjectAddFileAliasTriggered();
    void OnActionProjectAddPathSubstituteTriggered();
    void OnActionProjectSetOSPluginTriggered();
    void OnActionProjectSetCorePluginTriggered();
    void OnActionProjectSetBPTypeTriggered();
    void OnActionProjectSetTraceSourceTriggered();
    void OnActionProjectSetTracePortWidthTriggered();
    void OnActionProjectSetTraceTimingTriggered();
    void OnActionProjectSetTraceFileTriggered();
    void OnActionProjectSetConsoleLogFileTriggered();
    void OnActionProjectSetTerminalLogFileTriggered();
    void OnActionProjectDisableSessionSaveTriggered();
    void OnActionProjectSetMemZoneRunningTriggered();

    /// The program file has been read; Path is empty when reading failed.
    void OnDataFileOpened(const QString& Path);

    // Device events the main window handles itself.
    void OnDeviceLogMsg(const char* Text, U32 Flags) override;
    void OnDeviceSetStatusMsg(const char* Text) override;
    void OnDeviceSetProgressMsg(const char* Text) override;
    void OnDeviceStartProgress(int Min, int Max) override;
    void OnDeviceEndProgress() override;
    void OnDeviceSetProgressValue(int Value) override;

    // The debug session (MainWindowSession*.cpp).
    void OnDeviceConnectDone(CONNECT_MODES Mode) override;
    void OnDeviceConnectFailed(CONNECT_MODES Mode) override;
    void OnDeviceResetDone(U32 PC, RESET_MODES Mode) override;
    void OnDeviceResetFailed(U32 PC, RESET_MODES Mode) override;
    void OnDeviceDisconnectDone() override;
    void OnDeviceDisconnectFailed() override;
    void OnDeviceConnectionLost() override;
    void OnDeviceEndDownloadDone(const char* File, DOWNLOAD_MODES Mode) override;
    void OnDeviceEndDownloadFailed(const char* File, DOWNLOAD_MODES Mode, int Error) override;
    void OnDeviceHaltDone(U32 PC, HALT_REASONS Reason) override;
    void OnDeviceResumeDone(RESUME_MODES Mode) override;
    void OnDeviceResumeFailed(RESUME_MODES Mode) override;
    void OnDeviceRunToSymbolDone(U32 PC) override;
    void OnActionDebugConnectTriggered();
    void OnActionDebugDisconnectTriggered();
    void OnActionDebugStopTriggered();
    void OnActionDebugDownloadTriggered();
    void OnActionDebugResetTriggered();
    void OnActionExecConnectTriggered();
    void OnActionExecResetTriggered();
    void OnActionExecDownloadTriggered();
    void OnActionExecCommandTriggered();
    void OnActionTargetSaveMemoryTriggered();
    void OnActionTargetLoadMemoryTriggered();
    void OnActionTargetPowerOnTriggered();
    void OnPeriodicUpdateTimerTimeout();
    void OnMessageBoxTimerTimeout();

public:
    // Steps of the debug session, in the order the session controller runs them: they forward to it.
    void Connect(U32 Mode);
    void Disconnect();
    void Reset(U32 Mode);
    /// Writes a file to the target: the program with the project's handlers, a data file, or a file
    /// chosen at the start without handlers (DOWNLOAD_MODES). LoadAddress -1 keeps the file's addresses.
    void DownloadProgram(const QString& File, DOWNLOAD_MODES Mode, I64 LoadAddress = -1);
    /// Schedules the writes of a file and the end of its download; the answer comes as a device event.
    void DownloadFile(const QString& File, const char* Zone, DOWNLOAD_MODES Mode, I64 LoadAddress = -1);
    void OnDownloadFailed(U32 Mode, int Error);
    /// The end of a download whose link broke: the sequence stops.
    void EndLostDownload();
    void OnDownloadDone(U32 Mode);
    void PerformInitialProgramOperation();
    /// 0 when the run to the break symbol was started, -1 without a connection or a symbol address.
    int RunToBreakSymbol();
    /// The enabled state of the session's actions, the connection field and the title.
    void UpdateSessionActions();
    /// "Disconnected", or the device and the interface speed.
    QString GetConnectionText() const;
    void ConfigTargetForProgramEndianess();

protected:
    bool eventFilter(QObject* Watched, QEvent* Event) override;
    void closeEvent(QCloseEvent* Event) override;
    void changeEvent(QEvent* Event) override;

private:
    CMainWindow();
    ~CMainWindow() override;

    // Construction steps, in order.
    void RegisterMetaTypes();
    void CreateActions();
    void CreateMenus();
    void CreateToolBars();
    void CreateDebugWindows();
    void CreateTimers();
    /// Starts the device, lets scripts wait for it and routes the variables it keeps.
    void ConnectDevice();
    /// The session's controller with this window as its user interface (MainWindowSessionUi.cpp).
    void CreateSession();
    void ConnectCommands();
    void LoadWindowSettings();
    void RestorePerspective();
    void SaveWindowSettings();

    QAction* Action(U32 Id) const;
    QMenu* AddCommandMenu(const QString& Title, const QList<int>& Ids);
    void AddDebugWindow(CWindow* Window, const QString& Title, Qt::DockWidgetArea Area);
    void ApplyStyleSeparatorFix();
    void RunStartupCommand(U32 Id, const QString& Arg = QString());
    bool HandleAlternativeHotkey(QKeyEvent* Key);
    void UpdateFullScreenText();
    /// The debug window that has the keyboard focus, or null.
    CWindow* FocusedDebugWindow() const;
    void OnSysVarResetModeChanged(I64 Value);
    void OnSysVarConnectModeChanged(I64 Value);
    void OnSysVarTracePortDelayChanged(int Id, I64 Value);
    void OnSysVarTraceTimestampsChanged(I64 Value);
    void OnPreferenceTimestampFormatChanged(int Id, I64 Value);
    /// Shows a mode on its tool button: icon, tool tip with the shortcut and status tip of the mode's action.
    void ShowModeOnButton(QToolButton* Button, QAction* ModeAction, QAction* Command);
    /// The checks before a memory or register command: an error on the command and false if it cannot run.
    bool CheckMemoryAccess(U32 Id);
    bool CheckRegisterAccess(U32 Id);
    void ReadMemoryCommand(U32 Id, U32 Size);
    void WriteMemoryCommand(U32 Id, U32 Size);
    void ConnectModeActions();

    // Opening program files (MainWindowProgram.cpp).
    bool OpenElfDataFile(const QString& Path);
    bool OpenBinDataFile(const QString& Path);
    bool OpenOtherDataFile(const QString& Path);
    /// Runs the loader worker and waits for it with the GUI alive; true if the program was read.
    bool LoadProgramFile(const QString& Path);
    void OnProgramLoaderFinished(const QString& Path, int Result);
    void StoreProgramData(const QString& Path);
    void ResolveProgramSources();

    // Projects (MainWindowProject*.cpp, MainWindowUserFile.cpp).
    void ConnectProject();
    QStringList MakeCmdLineLines(bool Report) const;
    void FilterRecentLists();
    void AddRecentProject(const QString& Path, const QString& Replaced = QString());
    void UpdateRecentMenus();
    void UpdateProjectActions();
    QString AskSaveProjectPath();
    /// 0 saved, 2 canceled, -1 failed (the command's error is set).
    int SaveProjectAs(const QString& Name);
    /// An error of opening a project: the running open command's, else the log's.
    void ReportOpenError(const QString& Text);
    /// Runs Job now, or once no script function runs any more.
    void RunWhenScriptIdle(std::function<void()> Job);
    void CloseProgram();
    /// Runs a user function of the project if the project defines it; -1 if it doesn't.
    int ExecUserFunctionIfPresent(int Id);
    /// The error of a user function that has just failed, in the log and in the project's error list.
    void ReportUserFunctionError(const QString& Name);
    /// The menu entry that stops a running script; enabled while one runs.
    void AddScriptStopAction(QMenu* Menu);
    /// Whether the link to the target broke (or went) during the session: the steps that follow a
    /// device event end there, without a word more than the loss itself.
    bool IsLinkLost() const;
    /// The check of a command that needs the target: false with "not connected" or "connection lost"
    /// as the command's error.
    bool CheckTargetLink(U32 Id);
    /// The end of a connection that was canceled before it stood.
    void OnDeviceConnectCanceled(U32 Mode);
    /// The address of VAR_BREAK_AT_THIS_SYMBOL in the program, into BREAK_SYMBOL_ADDR.
    void EvaluateBreakSymbol();
    /// The program's blocks for the plug-in's reads of the program image.
    void PassProgramImageToCore();

    QMap<U32, QAction*> m_Actions;
    CConsoleWindow* m_Console = nullptr;
    QList<CWindow*> m_DebugWindows;
    QList<QToolBar*> m_ToolBars;
    CStatusBar* m_StatusBar = nullptr;
    QToolButton* m_StartButton = nullptr;
    QToolButton* m_ResetButton = nullptr;
    QTimer* m_TabBarUpdateTimer = nullptr;
    QTimer* m_WindowShownTimer = nullptr;
    CDeviceEventWorker* m_EventWorker = nullptr;
    I64 m_ResetMode = 1;
    I64 m_ConnectMode = 0;
    QStringList m_RecentProjects;
    QStringList m_RecentPrograms;
    QString m_DefaultDirOpen;
    QString m_DefaultDirSave;
    bool m_FirstPaintSeen = false;
    bool m_InitComplete = false;
    bool m_Closing = false;
    CProgramLoader* m_ProgramLoader = nullptr;
    QString m_ProgramPath;
    QDateTime m_ProgramFileTime;
    QElapsedTimer m_LoadTime;
    bool m_WaitCursor = false;
    QMenu* m_RecentProjectsMenu = nullptr;
    QMenu* m_RecentProgramsMenu = nullptr;
    /// The command that is opening a file (File.Open, File.OpenRecent), or -1.
    I32 m_OpenCommand = -1;
    // The session: its controller and the effects it asks for, the open mode of the program file, and the
    // timers of the session.
    friend class CMainWindowSessionUi;
    CMainWindowSessionUi* m_SessionUi = nullptr;
    CSessionController* m_Session = nullptr;
    I32 m_ProgramLoadMode = 0;
    /// Where File.Load puts the file, -1 for where the file says.
    I64 m_ProgramLoadAddress = -1;
    U32 m_ProgramOpenFlags = 0;
    QTimer* m_PeriodicUpdateTimer = nullptr;
    QTimer* m_MessageBoxTimer = nullptr;
    /// What the periodic update last saw: connected, halted, plug-in loaded.
    int m_SeenSessionState = -1;
};
