// Opening program and data files, and the commands that ask about the opened program.

#include "app/MainWindow.h"

#include "app/StatusBar.h"
#include "app/core/Catalogue.h"
#include "app/core/CommandTable.h"
#include "app/core/Log.h"
#include "app/core/Numbers.h"
#include "app/core/Paths.h"
#include "app/core/ScriptConstants.h"
#include "program/ElfWrapper.h"
#include "program/FileFinder.h"
#include "program/FileKinds.h"
#include "program/FileWorker.h"
#include "program/SymbolStore.h"
#include "script/Project.h"
#include "target/Device.h"
#include "views/MessageBox.h"

#include <QApplication>
#include <QEventLoop>
#include <QFileInfo>

namespace {

constexpr int MAX_RECENT_PROGRAMS = 10;
/// The catalogue's "file not found: %s" of the file readers.
constexpr int CATALOG_FILE_NOT_FOUND = 95;

QString AddressText(I64 Value) {
    return QStringLiteral("0x") +
           QString::number(static_cast<U32>(Value), 16).toUpper().rightJustified(8, QLatin1Char('0'));
}

/// Why a record or binary file gave nothing, once and in its own words.
void ReportUnreadableDataFile(const QString& Path) {
    const int Reason = TFile::CheckDataFile(Path);
    const QByteArray Name = Path.toUtf8();
    if (Reason == CATALOG_FILE_NOT_FOUND) {
        LogMessage(CatalogText(Reason, Name.constData()),
                   GetCatalogRow(Reason)->Flags | MSG_FROM_PROGRAM_DATA);
    } else if (Reason >= 0 && QFileInfo(Path).size() > 0) {
        // The reason in the ELF parser's words, but no ELF error: a record or binary file has no header.
        LogErrorMsg(QStringLiteral("Could not open file %1: %2")
                        .arg(Path, QLatin1String(GetCatalogRow(Reason)->Text)));
    } else {
        LogErrorMsg(QStringLiteral("The file contains no loadable data: ") + Path);
    }
}

} // namespace

void CMainWindow::CloseProgram() {
    if (m_ProgramLoader && m_ProgramLoader->IsRunning()) {
        m_ProgramLoader->Wait();
    }
    ELF_Unload();
    m_ProgramPath.clear();
    Paths::SetProgramFile(QString());
    PassProgramImageToCore();
    UpdateTitle();
}

bool CMainWindow::OpenDataFile(const QString& Path) {
    // No path closes the program.
    if (Path.isEmpty()) {
        CloseProgram();
        return true;
    }
    // The new program takes the place of the former one in the recent list, as an absolute path so that a
    // start from another folder still finds it.
    const QString Recent = QFileInfo(Path).absoluteFilePath();
    m_RecentPrograms.removeAll(Recent);
    const qsizetype Former =
        m_ProgramPath.isEmpty() ? -1 : m_RecentPrograms.indexOf(QFileInfo(m_ProgramPath).absoluteFilePath());
    if (Former >= 0) {
        m_RecentPrograms[Former] = Recent;
    } else {
        m_RecentPrograms.prepend(Recent);
    }
    while (m_RecentPrograms.size() > MAX_RECENT_PROGRAMS) {
        m_RecentPrograms.removeLast();
    }

    m_LoadTime.start();
    bool Ok = false;
    if (TFile::HasElfMagic(Path)) {
        QApplication::setOverrideCursor(Qt::WaitCursor);
        m_WaitCursor = true;
        m_StatusBar->SetStatusMessage(QStringLiteral("Opening File..."));
        Commands::SetCommandEnabled(CMD_DEBUG_DOWNLOAD, false);
        Ok = OpenElfDataFile(Path);
    } else if (TFile::IsBinFile(Path)) {
        Ok = OpenBinDataFile(Path);
    } else {
        Ok = OpenOtherDataFile(Path);
    }
    UpdateTitle();
    return Ok;
}

bool CMainWindow::OpenElfDataFile(const QString& Path) {
    m_ProgramFileTime = QFileInfo(Path).lastModified();
    return LoadProgramFile(Path);
}

bool CMainWindow::OpenBinDataFile(const QString& Path) {
    return LoadProgramFile(Path);
}

bool CMainWindow::OpenOtherDataFile(const QString& Path) {
    return LoadProgramFile(Path);
}

bool CMainWindow::LoadProgramFile(const QString& Path) {
    if (!m_ProgramLoader) {
        m_ProgramLoader = new CProgramLoader(this);
        connect(m_ProgramLoader, &CProgramLoader::Finished, this, &CMainWindow::OnProgramLoaderFinished);
        // The readers report their progress from the loader's thread; the status bar shows it here.
        TFile::CFileWorker* Worker = TFile::CFileWorker::Instance();
        connect(Worker, &TFile::CFileWorker::ProgressStarted, m_StatusBar,
                [this](QString Text, qint64 Total) {
                    m_StatusBar->SetProgressMessage(Text);
                    m_StatusBar->StartProgress(0, static_cast<int>(Total));
                });
        connect(Worker, &TFile::CFileWorker::ProgressChanged, m_StatusBar,
                [this](qint64 Done) { m_StatusBar->SetProgressValue(static_cast<int>(Done)); });
        connect(Worker, &TFile::CFileWorker::ProgressEnded, m_StatusBar, &CStatusBar::EndProgress);
        // The debug information reader reports from the loader's thread: queued, so the bar moves here
        // while the event loop below keeps the window answering.
        connect(
            m_ProgramLoader, &CProgramLoader::DebugInfoProgress, m_StatusBar,
            [this](int Percent) {
                if (Percent == 0) {
                    m_StatusBar->SetProgressMessage(QStringLiteral("Reading Debug Information..."));
                    m_StatusBar->StartProgress(0, 100);
                }
                m_StatusBar->SetProgressValue(Percent);
                if (Percent == 100) {
                    m_StatusBar->EndProgress();
                }
            },
            Qt::QueuedConnection);
    }
    if (m_ProgramLoader->IsRunning()) {
        LogErrorMsg(QStringLiteral("File.Open: another program file is being opened"));
        return false;
    }
    // A script or an -exec line goes on only once the program is there; the GUI stays alive meanwhile.
    // The loop's quit is queued after the loader's own report, so the report has run when it returns.
    QEventLoop Loop;
    const QMetaObject::Connection Quit =
        connect(m_ProgramLoader, &CProgramLoader::Finished, &Loop, &QEventLoop::quit, Qt::QueuedConnection);
    m_ProgramLoader->Start(Path);
    Loop.exec();
    disconnect(Quit);
    return !m_ProgramPath.isEmpty() && m_ProgramPath == Path && ELF_IsLoaded();
}

void CMainWindow::OnProgramLoaderFinished(const QString& Path, int Result) {
    // A file that is ELF by its name or its bytes went to the ELF parser, which has said why it failed.
    if (Result < 0 && !TFile::HasElfMagic(Path) && !TFile::IsElfFile(Path)) {
        ReportUnreadableDataFile(Path);
    }
    OnDataFileOpened(Result < 0 ? QString() : Path);
}

void CMainWindow::OnDataFileOpened(const QString& Path) {
    const QString Former = m_ProgramPath;
    if (!Path.isEmpty()) {
        ConfigTargetForProgramEndianess();
        emit DataFileOpened(Path);
        StoreProgramData(Path);
        LogInfoMsg(QStringLiteral("File.Open: completed in %1 ms").arg(m_LoadTime.elapsed()));
        ResolveProgramSources();
    } else {
        m_ProgramPath.clear();
    }
    PassProgramImageToCore();
    EvaluateBreakSymbol();
    UpdateSessionActions();
    CDevice* D = CDevice::Instance();
    const bool Elf = !Path.isEmpty() && TFile::HasElfMagic(Path);
    if (!D->Connected.load()) {
        m_StatusBar->SetStatusMessage(QStringLiteral("Ready"));
    } else if (m_ProgramLoadMode != 1 && D->SessionActive.load() && Elf) {
        if ((m_ProgramOpenFlags & 2) && Path == Former) {
            Reset(RM_RESET_DOWNLOAD);
        } else if (m_ProgramOpenFlags & 1) {
            if (m_WaitCursor) {
                QApplication::restoreOverrideCursor();
                m_WaitCursor = false;
            }
            if (MessageBox::Ask(this, QStringLiteral("Download"),
                                QStringLiteral("Program file opened. Download to target?"),
                                QMessageBox::Yes | QMessageBox::No, QMessageBox::No) == QMessageBox::Yes) {
                Reset(RM_RESET_DOWNLOAD);
            }
        }
    } else if (m_ProgramLoadMode == 1 && !Path.isEmpty()) {
        DownloadProgram(Path, DOWNLOAD_DATA_FILE, m_ProgramLoadAddress);
    }
    m_ProgramLoadMode = 0;
    m_ProgramOpenFlags = 0;
    if (m_WaitCursor) {
        QApplication::restoreOverrideCursor();
        m_WaitCursor = false;
    }
    UpdateTitle();
}

void CMainWindow::ResolveProgramSources() {
    // Where each source of the program is on this machine, so that the statistics tell at once how many
    // the project's paths fail to find.
    CFileFinder* Finder = CFileFinder::Instance();
    Finder->ClearStatistics();
    for (U32 Id : ELF_GetFileIds()) {
        Finder->ResolveSourcePath(ELF_GetFilePath(Id));
    }
    LogDebugMsg(QStringLiteral("Source files: %1 found, %2 not found")
                    .arg(Finder->GetResolvedFiles().size())
                    .arg(Finder->GetUnresolvedFiles().size()));
    for (const QString& Path : Finder->GetUnresolvedFiles()) {
        LogDebugMsg(QStringLiteral("Source file not found: ") + Path);
    }
}

void CMainWindow::StoreProgramData(const QString& Path) {
    m_ProgramPath = Path;
    Paths::SetProgramFile(Path);
    // The project keeps the file it names, for its settings lines and the watch for changes.
    CProject::Instance()->SetProgramFile(Path, QFileInfo(Path).lastModified());
}

void CMainWindow::OnActionElfGetBaseAddrTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_ELF_GET_BASE_ADDR)) {
        return;
    }
    const I64 Base = ELF_GetBaseAddr();
    Commands::SetCommandResult(CMD_ELF_GET_BASE_ADDR, Base);
    PrintConsole(AddressText(Base));
}

void CMainWindow::OnActionElfGetEntryPointPCTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_ELF_GET_ENTRY_POINT_PC)) {
        return;
    }
    const I64 Entry = ELF_GetEntryPointPC();
    Commands::SetCommandResult(CMD_ELF_GET_ENTRY_POINT_PC, Entry);
    PrintConsole(AddressText(Entry));
}

void CMainWindow::OnActionElfGetEntryFuncPCTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_ELF_GET_ENTRY_FUNC_PC)) {
        return;
    }
    const I64 Pc = ELF_GetEntryFuncPC();
    Commands::SetCommandResult(CMD_ELF_GET_ENTRY_FUNC_PC, Pc);
    PrintConsole(AddressText(Pc));
}

void CMainWindow::OnActionElfGetEndianessTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_ELF_GET_ENDIANESS)) {
        return;
    }
    const int Order = ELF_GetEndianess();
    Commands::SetCommandResult(CMD_ELF_GET_ENDIANESS, Order);
    PrintConsole(QString::number(Order));
}

void CMainWindow::OnActionProjectRelocateSymbolsTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_PROJECT_RELOCATE_SYMBOLS)) {
        return;
    }
    const QStringList Args = Commands::GetCommandArgs(CMD_PROJECT_RELOCATE_SYMBOLS);
    I64 Offset = 0;
    if (const SCRIPT_CONST* C = ScriptConstants::Lookup(Args[1])) {
        Offset = C->Value;
    } else if (!Numbers::ParseInteger(Args[1], Offset)) {
        Commands::SetCommandError(CMD_PROJECT_RELOCATE_SYMBOLS, QStringLiteral("invalid parameter"));
        return;
    }
    // The script passes an int: its low 32 bits, with their sign.
    const int Result = ELF_AddProgramRelocation(Args[0], static_cast<I32>(static_cast<U32>(Offset)));
    Commands::SetCommandResult(CMD_PROJECT_RELOCATE_SYMBOLS, Result);
    if (Result < 0) {
        Commands::SetCommandError(CMD_PROJECT_RELOCATE_SYMBOLS, QStringLiteral("invalid parameter"));
    }
}
