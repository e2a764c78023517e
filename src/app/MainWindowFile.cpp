// File.Open, File.Load and the way from a file name to what opens it.

#include "app/MainWindow.h"

#include "app/core/Automation.h"
#include "app/core/CommandTable.h"
#include "app/core/Log.h"
#include "app/core/Numbers.h"
#include "app/core/Paths.h"
#include "app/core/ScriptConstants.h"
#include "program/FileKinds.h"
#include "target/Device.h"

#include <QFileDialog>
#include <QFileInfo>
#include <QInputDialog>
#include <QLineEdit>

namespace {

/// The load address of File.Load: a number or a constant of the script, all ones (the script's -1) for
/// the addresses the file gives. False for anything else.
bool ParseLoadAddress(const QString& Text, I64& Address) {
    I64 Value = 0;
    if (const SCRIPT_CONST* C = ScriptConstants::Lookup(Text.trimmed())) {
        Value = C->Value;
    } else if (!Numbers::ParseInteger(Text.trimmed(), Value)) {
        return false;
    }
    if (Value == -1 || Value == 0xFFFFFFFFll) {
        Address = -1;
        return true;
    }
    if (Value < 0 || Value > 0xFFFFFFFFll) {
        return false;
    }
    Address = Value;
    return true;
}

} // namespace

void CMainWindow::OnActionFileOpenTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_FILE_OPEN, 0)) {
        return;
    }
    QString Path;
    const QStringList Args = Commands::GetCommandArgs(CMD_FILE_OPEN);
    if (Args.isEmpty()) {
        Path =
            QFileDialog::getOpenFileName(this, QStringLiteral("Open File"), m_DefaultDirOpen,
                                         QStringLiteral("Projects and programs (*.tvproj *.elf *.axf *.out "
                                                        "*.hex *.mot *.srec *.bin);;All files (*)"));
        if (Path.isEmpty()) {
            Commands::SetCommandDone(CMD_FILE_OPEN);
            return;
        }
        Commands::SetDisplayArgs(CMD_FILE_OPEN, {Path});
    } else {
        Path = Paths::ExpandPath(Args.first());
    }
    // What opens under this path (the project, the program) is found again from any folder.
    if (!Path.isEmpty()) {
        Path = QFileInfo(Path).absoluteFilePath();
    }
    if (!QFileInfo(Path).isFile()) {
        Commands::SetCommandError(CMD_FILE_OPEN, QStringLiteral("file not found"));
        return;
    }
    m_DefaultDirOpen = QFileInfo(Path).absolutePath();
    // What goes wrong while a project opens is this command's error.
    const I32 Outer = m_OpenCommand;
    m_OpenCommand = CMD_FILE_OPEN;
    // A program opened during a session may go to the target, if the user wants it.
    m_ProgramOpenFlags |= 1;
    OpenFile(Path);
    m_ProgramOpenFlags &= ~1u;
    m_OpenCommand = Outer;
}

void CMainWindow::OnActionFileLoadTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_FILE_LOAD, 0)) {
        return;
    }
    const QStringList Args = Commands::GetCommandArgs(CMD_FILE_LOAD);
    if (!CDevice::Instance()->Connected.load()) {
        Commands::SetCommandError(CMD_FILE_LOAD, QStringLiteral("not connected"));
        return;
    }
    QString Path;
    QString AddressText;
    if (Args.isEmpty()) {
        // From the menu: the file, then where it goes; unattended, nobody is there to choose.
        if (Automation::IsActive()) {
            Commands::SetCommandDone(CMD_FILE_LOAD);
            return;
        }
        Path = QFileDialog::getOpenFileName(
            this, QStringLiteral("Load Data File"), m_DefaultDirOpen,
            QStringLiteral("Data Files (%1);;All Files (*)").arg(QLatin1String(TFile::DATA_FILE_PATTERNS)));
        bool Ok = !Path.isEmpty();
        if (Ok) {
            // A binary has no addresses of its own; the other formats keep theirs unless told otherwise.
            AddressText = QInputDialog::getText(
                this, QStringLiteral("Load Data File"),
                QStringLiteral("Load address (0xFFFFFFFF: as the file says):"), QLineEdit::Normal,
                TFile::IsBinFile(Path) ? QStringLiteral("0x00000000") : QStringLiteral("0xFFFFFFFF"), &Ok);
        }
        if (!Ok) {
            Commands::SetCommandDone(CMD_FILE_LOAD);
            return;
        }
        Commands::SetDisplayArgs(CMD_FILE_LOAD, {Path, AddressText});
    } else {
        Path = Paths::ExpandPath(Args.first().trimmed());
        AddressText = Args.value(1, QStringLiteral("0xFFFFFFFF"));
    }
    I64 Address = -1;
    if (Path.isEmpty() || !ParseLoadAddress(AddressText, Address)) {
        Commands::SetCommandError(CMD_FILE_LOAD, QStringLiteral("invalid parameter"));
        return;
    }
    Path = QFileInfo(Path).absoluteFilePath();
    if (!QFileInfo(Path).isFile()) {
        Commands::SetCommandError(CMD_FILE_LOAD, QStringLiteral("file not found"));
        return;
    }
    m_DefaultDirOpen = QFileInfo(Path).absolutePath();
    // The file opens as the program does, and its end goes to the target as data at the address.
    const I32 Outer = m_OpenCommand;
    m_OpenCommand = CMD_FILE_LOAD;
    m_ProgramLoadMode = 1;
    m_ProgramLoadAddress = Address;
    const bool Opened = OpenDataFile(Path);
    m_ProgramLoadMode = 0;
    m_ProgramLoadAddress = -1;
    m_OpenCommand = Outer;
    if (!Opened) {
        Commands::SetCommandError(CMD_FILE_LOAD, QStringLiteral("could not read file"));
    }
}

void CMainWindow::OpenFile(const QString& Path) {
    if (Path.isEmpty() || !QFileInfo(Path).isFile()) {
        return;
    }
    const QString Name = QFileInfo(Path).fileName();
    if (Paths::MatchesAny(Name, "*.tvproj")) {
        OpenProject(Path);
    } else if (Paths::MatchesAny(Name, "*.h *.c *.hpp *.cpp *.s")) {
        LogErrorMsg(QStringLiteral("Source documents cannot be opened yet: ") + Path);
    } else if (Paths::MatchesAny(Name, "*.bin *.mot *.srec *.hex *.elf *.out *.axf") ||
               QFileInfo(Path).suffix().isEmpty()) {
        OpenDataFile(Path);
    } else {
        LogErrorMsg(QStringLiteral("Source documents cannot be opened yet: ") + Path);
    }
}
