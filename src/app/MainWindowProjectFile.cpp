// The project's File commands, the recent lists and how the project is wired to the main window.

#include "app/MainWindow.h"

#include "analysis/CoreBinding.h"
#include "analysis/CorePluginLoader.h"
#include "app/ProjectWizard.h"
#include "app/SysVarsEditor.h"
#include "app/core/Catalogue.h"
#include "app/core/CommandTable.h"
#include "app/core/Log.h"
#include "app/core/Paths.h"
#include "app/core/ScriptConstants.h"
#include "expr/RegisterFiles.h"
#include "program/ElfWrapper.h"
#include "program/FileFinder.h"
#include "script/Project.h"
#include "script/TScript.h"
#include "target/DeviceConfig.h"
#include "views/MessageBox.h"

#include <QAction>
#include <QFile>
#include <QFileInfo>
#include <QMenu>
#include <QMenuBar>

namespace {

constexpr int MAX_RECENT_PROJECTS = 4;

QStringList Filtered(const QStringList& List, const char* Patterns, int Max) {
    QStringList Kept;
    for (const QString& Path : List) {
        if (Kept.size() < Max && !Kept.contains(Path) &&
            Paths::MatchesAny(QFileInfo(Path).fileName(), Patterns) && QFileInfo(Path).isFile()) {
            Kept.append(Path);
        }
    }
    return Kept;
}

/// The checks of the project against what the layers above the script know so far.
class CSessionChecks : public IProjectChecks {
public:
    bool IsRegisterSetLoaded() override {
        if (!CProject::Instance()->GetDefaultCpuFile().isEmpty()) {
            return true;
        }
        // Peripheral descriptions don't count: the core's registers come from a "cpu" file.
        for (const QString& Svd : CProject::Instance()->GetSvdFiles()) {
            if (RegisterFiles::GetFileFormat(Svd) == RegisterFiles::SVD_FORMAT_CPU) {
                return true;
            }
        }
        return false;
    }
    bool HasDefaultRegisterSet() override {
        // Registers are a matter of the device's core; while it is unknown there is nothing to miss.
        return !IsDeviceCoreKnown() || RegisterFiles::HasCpuSVDFileForCore(CoreBinding::GetConfiguredCore());
    }
    bool CanFindFile(const QString& Path) override {
        return !CFileFinder::Instance()->ResolvePath(Path).isEmpty();
    }
    bool IsDeviceCoreKnown() override { return GetDeviceConfig().GetParam(DEVICE_INDEX) > 0; }
    bool IsCorePluginLoaded() override { return CorePluginLoader::IsLoaded(); }
    bool IsOSPluginSet() override { return !CProject::Instance()->GetOSPluginPath().isEmpty(); }
    bool IsProgramOpen() override { return ELF_IsLoaded(); }
    bool HasProgramSymbol(const QString& Name) override { return ELF_HasProgramSymbol(Name); }
    // The core plug-in's verdict on the program and the byte orders are asked for once the session
    // controller configures the target for the program.
    bool IsProgramForTarget() override { return true; }
    bool IsDataEndianMatching() override { return true; }
    bool IsInstEndianMatching() override { return true; }
};

/// The core plug-in's bodies of the user functions of a generated project.
int PluginBody(int Id, char* Buffer, int Capacity) {
    const CORE_PLUGIN_API& Api = CorePluginLoader::GetApi();
    if (!CorePluginLoader::IsLoaded() || !Api.GetScriptHandlerText) {
        return -1;
    }
    return Api.GetScriptHandlerText(static_cast<U32>(Id), Buffer, static_cast<U32>(Capacity));
}

CSessionChecks s_Checks;

} // namespace

void CMainWindow::LoadDefaultRegisterSet() {
    if (!s_Checks.IsDeviceCoreKnown() || s_Checks.IsRegisterSetLoaded()) {
        return;
    }
    const U32 Core = CoreBinding::GetConfiguredCore();
    if (!RegisterFiles::HasCpuSVDFileForCore(Core)) {
        return;
    }
    const QString File = Paths::ExpandPath(RegisterFiles::GetCpuSVDFileForCore(Core));
    // A notice, not a warning: every project of a supported core that names no file comes here.
    LogInfoMsg(CatalogBareText(71, File.toUtf8().constData()));
    CProject::Instance()->SetDefaultCpuFile(File);
}

void CMainWindow::ConnectProject() {
    CProject* Project = CProject::Instance();
    Project->SetChecks(&s_Checks);
    Project->SetAskSaveAsHook([this]() { return AskSaveProjectPath(); });
    Project->SetUserFunctionRunner([this](int Id) { return ExecUserFunction(Id); });
    Project->SetCmdLineLinesHook([this]() { return MakeCmdLineLines(false); });
    Project->SetConfirmChangedFileHook([this](const QString& Path) {
        // Unattended, a file that someone else changed is left alone.
        return MessageBox::Ask(this, QStringLiteral("Project File Changed"),
                               QStringLiteral("The project file %1 was changed by another program since it "
                                              "was read.\n\nSave the file as it is now, with the settings of "
                                              "this session in OnProjectLoad?")
                                   .arg(Path),
                               QMessageBox::Yes | QMessageBox::No, QMessageBox::No) == QMessageBox::Yes;
    });
    Project->SetProbeSettingsHook([]() {
        const CDeviceConfig& Config = GetDeviceConfig();
        ProjectText::PROBE_SETTINGS Probe;
        Probe.Device = Config.GetText(DEVICE_NAME);
        Probe.HostIF = Config.GetParam(HOST_IF);
        if (Probe.HostIF == HOST_IF_IP) {
            Probe.HostIdent = Config.GetText(HOST_NAME);
        } else if (Config.GetParam(USE_SERIAL_NO) != 0) {
            Probe.HostIdent = QString::number(static_cast<U32>(Config.GetParam(USB_SERIAL_NO)));
        }
        Probe.TargetIF = Config.GetParam(TARGET_IF);
        Probe.Speed = Config.GetParam(TIF_SPEED);
        return Probe;
    });
    TScript::SetUserFunctionBodyProvider(&PluginBody);
    CSysVarsEditor::SetWriteSystemSettings([this]() {
        CProject* P = CProject::Instance();
        if (P->WriteSystemSettings()) {
            return true;
        }
        MessageBox::Inform(this, QMessageBox::Warning, QStringLiteral("Project Warning"),
                           QStringLiteral("Project settings could not be saved: ") + P->GetLastWriteError());
        return false;
    });

    connect(Project, &CProject::ModifiedChanged, this, &CMainWindow::OnProjectModifiedChanged);
    connect(Project, &CProject::AboutToClose, this, &CMainWindow::OnProjectAboutToClose);
    connect(Project, &CProject::Opened, this, &CMainWindow::OnProjectFileOpened);
    connect(Project, &CProject::Closed, this, &CMainWindow::OnProjectFileClosed);

    // The recent lists stand in the File menu behind Open.
    if (QMenu* File = menuBar()->actions().isEmpty() ? nullptr : menuBar()->actions().first()->menu()) {
        QAction* Before = Action(CMD_FILE_LOAD);
        m_RecentProjectsMenu = new QMenu(QStringLiteral("Recent &Projects"), File);
        m_RecentProjectsMenu->setObjectName(QStringLiteral("menuRecentProjects"));
        m_RecentProgramsMenu = new QMenu(QStringLiteral("Recent P&rograms"), File);
        m_RecentProgramsMenu->setObjectName(QStringLiteral("menuRecentPrograms"));
        File->insertMenu(Before, m_RecentProjectsMenu);
        File->insertMenu(Before, m_RecentProgramsMenu);
    }
}

void CMainWindow::FilterRecentLists() {
    m_RecentProjects = Filtered(m_RecentProjects, "*.tvproj", MAX_RECENT_PROJECTS);
    m_RecentPrograms = Filtered(m_RecentPrograms, "*.bin *.mot *.srec *.hex *.elf *.out *.axf", 10);
    UpdateRecentMenus();
}

void CMainWindow::AddRecentProject(const QString& Path, const QString& Replaced) {
    if (Path.isEmpty()) {
        return;
    }
    // Absolute, so that the next start from another folder still finds the file.
    const QString Absolute = QFileInfo(Path).absoluteFilePath();
    m_RecentProjects.removeAll(Absolute);
    const qsizetype Old =
        Replaced.isEmpty() ? -1 : m_RecentProjects.indexOf(QFileInfo(Replaced).absoluteFilePath());
    if (Old >= 0) {
        m_RecentProjects[Old] = Absolute;
    } else {
        m_RecentProjects.prepend(Absolute);
    }
    while (m_RecentProjects.size() > MAX_RECENT_PROJECTS) {
        m_RecentProjects.removeLast();
    }
    UpdateRecentMenus();
}

void CMainWindow::UpdateRecentMenus() {
    if (!m_RecentProjectsMenu || !m_RecentProgramsMenu) {
        return;
    }
    // One index over both lists: the projects first, then the programs (File.OpenRecent).
    int Index = 0;
    for (auto [Menu, List] : {std::pair{m_RecentProjectsMenu, &m_RecentProjects},
                              std::pair{m_RecentProgramsMenu, &m_RecentPrograms}}) {
        Menu->clear();
        for (const QString& Path : *List) {
            QAction* A = Menu->addAction(QStringLiteral("&%1 %2").arg(Index + 1).arg(Path));
            A->setData(Index);
            connect(A, &QAction::triggered, this,
                    [Index]() { Commands::ExecCommand(CMD_FILE_OPEN_RECENT, QString::number(Index)); });
            ++Index;
        }
        Menu->setEnabled(!List->isEmpty());
    }
}

void CMainWindow::UpdateProjectActions() {
    const CProject* Project = CProject::Instance();
    Commands::SetCommandEnabled(CMD_FILE_SAVE_PROJECT_AS, Project->IsLoaded());
    Commands::SetCommandEnabled(CMD_FILE_SAVE_ALL, Project->IsLoaded() && Project->IsModified());
    UpdateRecentMenus();
    UpdateSessionActions();
}

void CMainWindow::OnActionFileNewProjectTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_FILE_NEW_PROJECT)) {
        return;
    }
    RunWhenScriptIdle([this]() { NewProject(); });
}

void CMainWindow::OnActionFileNewProjectWizardTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_FILE_NEW_PROJECT_WIZARD)) {
        return;
    }
    CProjectWizard Wizard(this);
    connect(&Wizard, &CProjectWizard::Finished, this, &CMainWindow::OnProjectWizardFinished);
    MessageBox::Exec(&Wizard, QDialog::Rejected);
}

void CMainWindow::OnActionFileOpenRecentTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_FILE_OPEN_RECENT)) {
        return;
    }
    const I64 Index =
        ScriptConstants::ParseConstantOrNumber(Commands::GetCommandArgs(CMD_FILE_OPEN_RECENT).first());
    const QStringList All = m_RecentProjects + m_RecentPrograms;
    if (Index < 0 || Index >= All.size()) {
        Commands::SetCommandError(CMD_FILE_OPEN_RECENT, QStringLiteral("invalid parameter"));
        return;
    }
    const QString Path = All[static_cast<int>(Index)];
    if (!QFileInfo(Path).isFile()) {
        Commands::SetCommandError(CMD_FILE_OPEN_RECENT, QStringLiteral("file not found"));
        return;
    }
    const I32 Outer = m_OpenCommand;
    m_OpenCommand = CMD_FILE_OPEN_RECENT;
    OpenFile(Path);
    m_OpenCommand = Outer;
}

int CMainWindow::SaveProjectAs(const QString& Name) {
    QString Path =
        Name.trimmed().isEmpty() ? CProject::Instance()->AskSaveAs() : Paths::ExpandPath(Name.trimmed());
    if (Path.isEmpty()) {
        // Canceled: no error and no echo.
        Commands::SetCommandDone(CMD_FILE_SAVE_PROJECT_AS);
        return 2;
    }
    if (QFileInfo(Path).suffix().isEmpty()) {
        Path += QStringLiteral(".tvproj");
    }
    const QFileInfo Info(Path);
    bool Writable = Paths::MatchesAny(Info.fileName(), "*.tvproj") && !Info.isDir();
    if (Writable && Info.exists()) {
        // Opened for appending, so that the check leaves the file as it is.
        QFile Probe(Path);
        Writable = Probe.open(QIODevice::WriteOnly | QIODevice::Append);
    }
    if (!Writable) {
        Commands::SetCommandError(CMD_FILE_SAVE_PROJECT_AS, QStringLiteral("invalid project filename"));
        return -1;
    }
    m_DefaultDirSave = Info.absolutePath();
    if (!SaveProject(Path)) {
        Commands::SetCommandError(CMD_FILE_SAVE_PROJECT_AS, CProject::Instance()->GetLastWriteError());
        return -1;
    }
    return 0;
}

void CMainWindow::OnActionFileSaveProjectAsTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_FILE_SAVE_PROJECT_AS, 0)) {
        return;
    }
    const QStringList Args = Commands::GetCommandArgs(CMD_FILE_SAVE_PROJECT_AS);
    Commands::SetCommandResult(CMD_FILE_SAVE_PROJECT_AS,
                               SaveProjectAs(Args.isEmpty() ? QString() : Args.first()));
}

void CMainWindow::OnActionFileSaveAllTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_FILE_SAVE_ALL)) {
        return;
    }
    CProject* Project = CProject::Instance();
    if (!Project->IsModified()) {
        return;
    }
    if (QFileInfo(Project->GetPath()).isFile()) {
        if (!SaveProject(Project->GetPath())) {
            Commands::SetCommandError(CMD_FILE_SAVE_ALL, Project->GetLastWriteError());
        }
        return;
    }
    Commands::ExecCommand(CMD_FILE_SAVE_PROJECT_AS);
}
