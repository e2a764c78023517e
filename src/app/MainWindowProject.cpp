// Projects in the main window: open, create, new, save, the project check and what a project means for the
// session.

#include "app/MainWindow.h"

#include "analysis/CoreBinding.h"
#include "analysis/CorePluginLoader.h"
#include "app/WarningsDialog.h"
#include "app/core/Automation.h"
#include "app/core/Catalogue.h"
#include "app/core/CmdLineArgs.h"
#include "app/core/CommandTable.h"
#include "app/core/Log.h"
#include "app/core/Paths.h"
#include "app/core/SysVars.h"
#include "app/session/SessionController.h"
#include "probe/Tarvo.h"
#include "program/FileFinder.h"
#include "script/Project.h"
#include "script/ProjectText.h"
#include "script/TScript.h"
#include "target/Device.h"
#include "target/DeviceConfig.h"
#include "views/ConsoleWindow.h"
#include "views/DockWindow.h"
#include "views/MessageBox.h"

#include <QFileDialog>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTimer>

#include <cstring>

namespace {

/// How often a flow that waits for a running script function looks again.
constexpr int SCRIPT_POLL_MS = 10;

} // namespace

void CMainWindow::RunWhenScriptIdle(std::function<void()> Job) {
    // A script function that runs a command of this kind still uses the script: the job waits for it.
    if (TScript::GetCallLevel() == 0) {
        Job();
        return;
    }
    QTimer::singleShot(SCRIPT_POLL_MS, this,
                       [this, Job = std::move(Job)]() mutable { RunWhenScriptIdle(std::move(Job)); });
}

void CMainWindow::ReportOpenError(const QString& Text) {
    CProject::Instance()->MarkReported(Text);
    if (m_OpenCommand >= 0) {
        Commands::SetCommandError(static_cast<U32>(m_OpenCommand), Text);
    } else {
        LogErrorMsg(Text);
    }
    if (m_Console && m_Console->GetDock()) {
        m_Console->GetDock()->show();
    }
}

bool CMainWindow::OpenProject(const QString& Path) {
    if (!QFileInfo(Path).isFile()) {
        if (m_OpenCommand >= 0) {
            Commands::SetCommandError(static_cast<U32>(m_OpenCommand), QStringLiteral("file not found"));
        }
        return false;
    }
    if (CDevice::Instance()->Connected.load()) {
        // The session ends first; the end of the disconnection opens the project.
        if (MessageBox::Ask(this, QStringLiteral("Stop Debugging"), QStringLiteral("Close this Session?"),
                            QMessageBox::Yes | QMessageBox::No, QMessageBox::Yes) != QMessageBox::Yes) {
            return false;
        }
        m_Session->SetPendingAction(PA_OPEN_PROJECT, Path);
        Disconnect();
        return true;
    }
    if (AskSaveProjectChanges() == 2) {
        return false;
    }
    CProject::Instance()->Close();
    OpenDataFile(QString());
    CProject::Instance()->OpenLater(Path);
    return true;
}

void CMainWindow::OnProjectFileOpened(const QString& Path) {
    CProject* Project = CProject::Instance();
    UpdateTitle();
    if (!Project->IsLoaded()) {
        return;
    }
    AddRecentProject(Path);
    // The probe's script beside the project counts unless the project names another.
    const QString ProbeScript = Project->GetProbeScriptPath();
    if (!ProbeScript.isEmpty()) {
        GetDeviceConfig().SetText(SCRIPT_FILE, ProbeScript.toUtf8().constData());
    }
    bool Failed = TScript::HasError();
    if (!Failed) {
        SysVars::SetVarText(SysVars::GetVarRow(VAR_BREAK_AT_THIS_SYMBOL), "main", 0);
        SysVars::SetVarValue(SysVars::GetVarRow(VAR_TRACE_SOURCE), 0, false);
        SysVars::SetVarValue(
            SysVars::GetVarRow(VAR_TRACE_OVERRIDE_TIMINGS),
            Project->ContainsInLoadFunction(QStringLiteral("Project.SetTraceTiming")) ? 1 : 0, false);
        SysVars::SetVarValue(SysVars::GetVarRow(VAR_TRACE_FILE_ENABLED),
                             Project->ContainsInLoadFunction(QStringLiteral("Project.SetTraceFile")) ? 1 : 0,
                             false);
        Failed = ExecUserFunction(UF_ON_PROJECT_LOAD) < 0 || TScript::HasError();
    }
    if (Failed) {
        // The project stands without settings, so that the user can open the file and mend it.
        ReportOpenError(CatalogText(74, TScript::GetLastError().toUtf8().constData()));
    }
    if (CheckProject(true) < 0) {
        NewProject();
        return;
    }
    LoadDefaultRegisterSet();
    LoadUserFile(Project->GetUserFilePath());
    for (CWindow* W : m_DebugWindows) {
        W->OnProjectFileOpened(Path);
    }
    UpdateProjectActions();
}

void CMainWindow::OnProjectAboutToClose(const QString& Path) {
    // The user file is written here and nowhere else.
    SaveUserFile(CProject::UserFilePath(Path));
}

void CMainWindow::OnProjectFileClosed(const QString& Path) {
    for (CWindow* W : m_DebugWindows) {
        W->OnProjectFileClosed(Path);
    }
    // What the project configured ends with it, the core plug-in of its device and its source paths
    // included.
    GetDeviceConfig().Reset();
    CFileFinder::Instance()->Reset();
    CorePluginLoader::SetProjectPath(QString());
    CoreBinding::Unload();
    const SYSVAR_INFO* Flags = SysVars::GetVarRow(PREF_SESSION_SAVE_FLAGS);
    SysVars::SetVarValue(Flags, SysVars::GetVarStored(Flags), false);
    UpdateTitle();
    UpdateProjectActions();
}

void CMainWindow::OnProjectModifiedChanged(bool Modified) {
    Q_UNUSED(Modified);
    UpdateTitle();
    UpdateProjectActions();
}

void CMainWindow::OnProjectWizardFinished(QStringList& Lines) {
    const QStringList Copy = Lines;
    RunWhenScriptIdle([this, Copy]() { CreateProject(QString(), Copy, false); });
}

int CMainWindow::CheckProject(bool ShowDialog, const QStringList& First) {
    CProject* Project = CProject::Instance();
    const QStringList Warnings = First + Project->GetWarnings();
    if (Warnings.isEmpty()) {
        return 0;
    }
    int Result = 1;
    if (ShowDialog && SysVars::GetVarValue(PREF_SHOW_PROJECT_WARNINGS_DIALOG) != 0) {
        CWarningsDialog Dialog(Project->GetPath(), Warnings, this);
        if (MessageBox::Exec(&Dialog, QDialog::Accepted) == QDialog::Rejected) {
            Result = -1;
        }
    }
    Project->ReportWarnings(Warnings);
    return Result;
}

bool CMainWindow::CreateProject(const QString& Path, const QStringList& Lines, bool FromCmdLine) {
    CProject* Project = CProject::Instance();
    if (AskSaveProjectChanges() == 2) {
        return false;
    }
    Project->Close();
    TScript::SetScriptPath(Path);
    Project->SetFromCmdLine(FromCmdLine);
    SysVars::SetVarText(SysVars::GetVarRow(VAR_BREAK_AT_THIS_SYMBOL), "main", 0);
    OpenDataFile(QString());
    if (Project->CreateFromLines(Lines) < 0) {
        ReportOpenError(CatalogText(74, TScript::GetLastError().toUtf8().constData()));
    }
    UpdateTitle();
    if (CheckProject(true) < 0) {
        NewProject();
        return false;
    }
    LoadDefaultRegisterSet();
    UpdateProjectActions();
    return true;
}

void CMainWindow::NewProject() {
    if (AskSaveProjectChanges() == 2) {
        return;
    }
    CProject::Instance()->Close();
    OpenDataFile(QString());
    UpdateTitle();
    UpdateProjectActions();
}

bool CMainWindow::SaveProject(const QString& Path) {
    CProject* Project = CProject::Instance();
    const QString Old = Project->GetPath();
    if (!Project->SaveNew(Path)) {
        return false;
    }
    AddRecentProject(Path, Old);
    UpdateTitle();
    UpdateProjectActions();
    return true;
}

int CMainWindow::AskSaveProjectChanges() {
    CProject* Project = CProject::Instance();
    if (!Project->IsModified()) {
        return 0;
    }
    // Unattended, nothing is written that nobody asked for.
    const QMessageBox::StandardButton Answer =
        MessageBox::Ask(this, QStringLiteral("Save Project Changes?"),
                        QStringLiteral("The current project was modified. Save changes?"),
                        QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel, QMessageBox::No);
    if (Answer == QMessageBox::Cancel) {
        return 2;
    }
    if (Answer != QMessageBox::Yes) {
        return 0;
    }
    if (QFileInfo(Project->GetPath()).isFile()) {
        return SaveProject(Project->GetPath()) ? 0 : 2;
    }
    return Commands::ExecCommand(CMD_FILE_SAVE_PROJECT_AS) == 2 ? 2 : 0;
}

QString CMainWindow::AskSaveProjectPath() {
    if (Automation::IsActive()) {
        // No dialog waits for a person: a name must be given.
        return QString();
    }
    const QString Path = CProject::Instance()->GetPath();
    return QFileDialog::getSaveFileName(this, QStringLiteral("Save Project as..."),
                                        Path.isEmpty() ? m_DefaultDirSave : Path,
                                        QStringLiteral("Project Files (*.tvproj)"));
}

QStringList CMainWindow::MakeCmdLineLines(bool Report) const {
    const CCmdLineArgs Args = GetCmdLineArgs();
    // The device's entry in the probe library's table names its core, and the core its plug-in.
    QString CorePlugin;
    const QByteArray Device = Args.Device.toUtf8();
    const int Index = Device.isEmpty() ? -1 : TARVOARM_DEVICE_GetIndex(Device.constData());
    TARVO_DEVICE_INFO Entry;
    std::memset(&Entry, 0, sizeof(Entry));
    Entry.SizeOfStruct = sizeof(Entry);
    if (Index > 0 && TARVOARM_DEVICE_GetInfo(Index, &Entry) >= 0) {
        CorePlugin = CorePluginLoader::ChoosePath(Entry.Core, false);
    } else if (Report) {
        LogErrorMsg(QStringLiteral("Invalid device name supplied to function GetDeviceInfo."));
    }
    const struct {
        const QString& Value;
        const char* Name;
    } Required[] = {
        {Args.Device, "device"}, {Args.HostIF, "host interface"}, {Args.TargetIF, "target interface"}};
    for (const auto& R : Required) {
        if (R.Value.isEmpty()) {
            if (Report) {
                LogErrorMsg(
                    QStringLiteral("failed to create project from command line arguments: required argument "
                                   "\"%1\" is missing.")
                        .arg(QLatin1String(R.Name)));
            }
            return QStringList();
        }
    }
    using ProjectText::CommandLine;
    QStringList Lines;
    Lines << CommandLine("Project.SetDevice", {Args.Device})
          << CommandLine("Project.SetHostIF", {Args.HostIF, Args.HostIdent})
          << CommandLine("Project.SetTargetIF", {Args.TargetIF});
    if (!Args.Speed.isEmpty()) {
        Lines << CommandLine("Project.SetTIFSpeed", {Args.Speed});
    }
    if (!Args.TarvoScriptFile.isEmpty()) {
        Lines << CommandLine("Project.SetTarvoScript", {Args.TarvoScriptFile});
    }
    if (!Args.JTAGConfig.isEmpty()) {
        // "DRPre,IRLen", with a comma or blanks between the two numbers.
        const QStringList Parts =
            Args.JTAGConfig.split(QRegularExpression(QStringLiteral("[,;\\s]+")), Qt::SkipEmptyParts);
        if (Parts.size() == 2) {
            Lines << CommandLine("Project.SetJTAGConfig", Parts);
        } else if (Report) {
            LogWarnMsg(QStringLiteral("Scan chain settings not understood: ") + Args.JTAGConfig);
        }
    }
    if (!CorePlugin.isEmpty()) {
        // Under the install directory the line holds for any copy of the installation.
        const QString Install = Paths::GetInstallDir();
        if (!Install.isEmpty() && CorePlugin.startsWith(Install + QLatin1Char('/'))) {
            CorePlugin = QStringLiteral("$(InstallDir)") + CorePlugin.mid(Install.size());
        }
        Lines << CommandLine("Project.SetCorePlugin", {CorePlugin});
    }
    if (!Args.ProgramFile.isEmpty()) {
        Lines << CommandLine("File.Open", {Args.ProgramFile});
    }
    return Lines;
}

bool CMainWindow::CreateProjectFromCmdLine() {
    const QStringList Lines = MakeCmdLineLines(true);
    if (Lines.isEmpty()) {
        return false;
    }
    const QString Given = GetCmdLineArgs().ProjectFile;
    const QString ProjectFile = Given.isEmpty() ? QString() : QFileInfo(Given).absoluteFilePath();
    CProject* Project = CProject::Instance();
    if (!ProjectFile.isEmpty() && QFileInfo(ProjectFile).isFile()) {
        Project->WriteProjectSettings(Lines, ProjectFile);
        OpenProject(ProjectFile);
        return true;
    }
    CreateProject(ProjectFile, Lines, true);
    // A project named on the command line is made as a file at once: an unattended run has nobody to ask
    // for a name later.
    if (!ProjectFile.isEmpty() && !Project->GetPath().isEmpty() && SaveProject(ProjectFile)) {
        Project->SetFromCmdLine(false);
    }
    return true;
}
