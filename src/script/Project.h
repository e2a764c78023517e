#pragma once

#include "app/core/Types.h"
#include "script/ProjectText.h"

#include <QDateTime>
#include <QObject>
#include <QSet>
#include <QStringList>

#include <functional>

class QTimer;

/// The checks of the project that need the layers above the script (register sets, plug-ins, the
/// program); the application installs them. GUI thread.
class IProjectChecks {
public:
    virtual ~IProjectChecks() = default;
    /// A register set description stands loaded.
    virtual bool IsRegisterSetLoaded() = 0;
    /// The core of the device has a register set description of its own.
    virtual bool HasDefaultRegisterSet() = 0;
    virtual bool CanFindFile(const QString& Path) = 0;
    /// The device's core is known, so that a core plug-in is to be expected.
    virtual bool IsDeviceCoreKnown() = 0;
    virtual bool IsCorePluginLoaded() = 0;
    virtual bool IsOSPluginSet() = 0;
    virtual bool IsProgramOpen() = 0;
    virtual bool HasProgramSymbol(const QString& Name) = 0;
    /// The core plug-in takes the program's machine.
    virtual bool IsProgramForTarget() = 0;
    virtual bool IsDataEndianMatching() = 0;
    virtual bool IsInstEndianMatching() = 0;
};

/// The project that is open: its small state and the open, close and write-back operations. The text and
/// the path are TScript's. CMainWindow listens to the signals and does what a project means for the
/// session. One per process (Instance()); GUI thread only; no widgets: what needs a dialog or a layer
/// above the script is installed as a hook.
class CProject : public QObject {
    Q_OBJECT

public:
    static CProject* Instance();

    // What the layers above give the project; each may be left empty.
    /// The save dialog of AskSaveAs: the chosen path, or empty.
    void SetAskSaveAsHook(std::function<QString()> Hook) { m_AskSaveAs = std::move(Hook); }
    /// Runs a user function with its log line (the main window's); TScript's own without it.
    void SetUserFunctionRunner(std::function<int(int Id)> Runner) { m_RunUserFunction = std::move(Runner); }
    /// The probe settings of the session, for the lines of a new project file.
    void SetProbeSettingsHook(std::function<ProjectText::PROBE_SETTINGS()> Hook) {
        m_ProbeSettings = std::move(Hook);
    }
    /// The settings lines that the command line makes, empty when it makes none.
    void SetCmdLineLinesHook(std::function<QStringList()> Hook) { m_CmdLineLines = std::move(Hook); }
    /// Asked before the session's settings go into a project file that another program changed since it
    /// was read; true to write them into the file as it is now. Without it such a save is refused.
    void SetConfirmChangedFileHook(std::function<bool(const QString& Path)> Hook) {
        m_ConfirmChangedFile = std::move(Hook);
    }
    void SetChecks(IProjectChecks* Checks) { m_Checks = Checks; }

    bool IsLoaded() const { return m_Loaded; }
    bool IsModified() const { return m_Modified; }
    /// Sets Modified; ModifiedChanged comes when the value changes.
    void SetModified(bool Modified);
    bool IsFromCmdLine() const { return m_FromCmdLine; }
    void SetFromCmdLine(bool FromCmdLine) { m_FromCmdLine = FromCmdLine; }
    /// The project's file, empty for a project without one.
    QString GetPath() const;
    QString GetPendingPath() const { return m_PendingPath; }
    bool IsOpenPending() const { return !m_PendingPath.isEmpty(); }

    QStringList GetSvdFiles() const { return m_SvdFiles; }
    void AddSvdFile(const QString& Path);
    /// The CPU register description of the device's core, taken when the project names none. Not one of
    /// the project's files: a save doesn't write it, so the project follows its device's core.
    QString GetDefaultCpuFile() const { return m_DefaultCpuFile; }
    void SetDefaultCpuFile(const QString& Path) { m_DefaultCpuFile = Path; }
    QString GetProgramFile() const { return m_ProgramFile; }
    QDateTime GetProgramFileTime() const { return m_ProgramFileTime; }
    void SetProgramFile(const QString& Path, const QDateTime& Time);
    QString GetCorePluginPath() const { return m_CorePluginPath; }
    void SetCorePluginPath(const QString& Path) { m_CorePluginPath = Path; }
    /// The OS plug-in of Project.SetOSPlugin, for the plug-in host to load.
    QString GetOSPluginPath() const { return m_OSPluginPath; }
    void SetOSPluginPath(const QString& Path) { m_OSPluginPath = Path; }
    /// The text of Project.ConfigSemihosting, with which semihosting starts.
    QString GetSemihostingConfig() const { return m_SemihostingConfig; }
    void SetSemihostingConfig(const QString& Config) { m_SemihostingConfig = Config; }

    /// Closes the open project and loads Path now; Opened follows.
    void Open(const QString& Path);
    /// Opens Path once no script function runs: a script that opens a project ends first.
    void OpenLater(const QString& Path);
    void Close();
    /// Makes the script a generated one of these settings lines and runs OnProjectLoad; the project is
    /// then modified. TScript::Parse's result.
    int CreateFromLines(const QStringList& Lines);
    /// Writes the project to Path: the project's file as it is on disk now (user functions and all) with
    /// its settings lines made anew, or a generated text for a project that has no file. A file changed
    /// by another program since it was read is written only on SetConfirmChangedFileHook's consent; a
    /// script that failed is copied as it stands. The project then has that path and isn't modified.
    bool SaveNew(const QString& Path);
    /// Replaces commands in OnProjectLoad of the file at Path (see ProjectText::ReplaceSettings).
    /// Patterns are regular expressions of lines to drop (ProjectText::CommandPattern).
    bool WriteSettings(const QString& Path, bool Prepend, const QStringList& Patterns,
                       const QStringList& Lines);
    bool WriteTraceSettings(const QStringList& Lines);
    /// The system variables that differ from their defaults, through their own commands or Edit.SysVar.
    bool WriteSystemSettings();
    bool WriteTarvoSettings(const QStringList& Lines);
    /// Into the file at Path, or the project's own file when Path is empty.
    bool WriteProjectSettings(const QStringList& Lines, const QString& Path = QString());
    /// The reason of the last failed write, for "Project settings could not be saved: <reason>".
    QString GetLastWriteError() const { return m_LastWriteError; }
    /// The lines WriteSystemSettings writes.
    static QStringList SystemSettingsLines();
    /// The settings lines of the project as it stands, for a new file at Path.
    QStringList NewProjectLines(const QString& Path) const;

    /// The project check: the warnings of the project as it stands, in their fixed order.
    QStringList GetWarnings();
    /// Logs, as errors, the warnings not logged since the project was opened (compared without regard to
    /// case) and returns how many were new.
    int ReportWarnings(const QStringList& Warnings);
    int ReportWarnings() { return ReportWarnings(GetWarnings()); }
    /// Notes a text as logged already; true if it wasn't.
    bool MarkReported(const QString& Text);
    /// For a command that runs in the project script.
    void AddWarning(const QString& Text);
    /// True if Text stands in the code of OnProjectLoad in the file on disk (comments don't count).
    bool ContainsInLoadFunction(const QString& Text) const;

    /// "<project>.tvproj.user": the path cut behind its last "." with "tvproj.user" appended.
    static QString UserFilePath(const QString& ProjectPath);
    QString GetUserFilePath() const { return UserFilePath(GetPath()); }
    /// The probe's script beside the project ("tvproj" replaced by "tarvo"); empty when there is none.
    static QString ProbeScriptPath(const QString& ProjectPath);
    QString GetProbeScriptPath() const { return ProbeScriptPath(GetPath()); }
    /// The save dialog: a path, or empty.
    QString AskSaveAs() const { return m_AskSaveAs ? m_AskSaveAs() : QString(); }

signals:
    void ModifiedChanged(bool Modified);
    void AboutToOpen(const QString& Path);
    void AboutToClose(const QString& Path);
    void Opened(const QString& Path);
    void Closed(const QString& Path);

public slots:
    void OnOpenTimeout();

private:
    CProject();
    bool Fail(const QString& Error);
    int RunUserFunction(int Id);
    bool WriteGroup(ProjectText::SETTINGS_GROUPS Group, const QStringList& Lines, const char* Done);

    QTimer* m_OpenTimer = nullptr;
    bool m_Loaded = false;
    bool m_Modified = false;
    bool m_FromCmdLine = false;
    QSet<U32> m_ReportedWarnings;
    QStringList m_Warnings;
    QString m_PendingPath;
    QStringList m_SvdFiles;
    QString m_DefaultCpuFile;
    QString m_ProgramFile;
    QString m_CorePluginPath;
    QString m_OSPluginPath;
    QString m_SemihostingConfig;
    QDateTime m_ProgramFileTime;
    QString m_LastWriteError;

    std::function<QString()> m_AskSaveAs;
    std::function<int(int)> m_RunUserFunction;
    std::function<ProjectText::PROBE_SETTINGS()> m_ProbeSettings;
    std::function<QStringList()> m_CmdLineLines;
    std::function<bool(const QString&)> m_ConfirmChangedFile;
    IProjectChecks* m_Checks = nullptr;
};
