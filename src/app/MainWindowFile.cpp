// File.Open and the way from a file name to what opens it.

#include "app/MainWindow.h"

#include "app/core/CommandTable.h"
#include "app/core/Log.h"
#include "app/core/Paths.h"

#include <QFileDialog>
#include <QFileInfo>

namespace {

constexpr U32 CMD_FILE_OPEN = 2;

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
