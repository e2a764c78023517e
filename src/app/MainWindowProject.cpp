// Opening projects.

#include "app/MainWindow.h"

#include "app/core/Catalogue.h"
#include "app/core/CommandTable.h"
#include "app/core/Log.h"
#include "script/TScript.h"
#include "views/ConsoleWindow.h"
#include "views/DockWindow.h"

#include <QTimer>

namespace {

constexpr U32 CMD_FILE_OPEN = 2;
/// How often a pending open looks whether the running script function has returned.
constexpr int OPEN_POLL_MS = 10;

} // namespace

bool CMainWindow::OpenProject(const QString& Path) {
    // A running script function would lose its text under it: the project opens once it has returned.
    if (TScript::GetCallLevel() > 0) {
        TScript::RequestStop();
        QTimer::singleShot(OPEN_POLL_MS, this, [this, Path]() { OpenProject(Path); });
        return true;
    }
    const bool Loaded = TScript::LoadProject(Path) == 0;
    if (Loaded && ExecUserFunction(1) >= 0 && !TScript::HasError()) {
        return true;
    }
    const QString Error = CatalogText(74, TScript::GetLastError().toUtf8().constData());
    // Inside File.Open the error is the command's; an open that waited for a script has no run left.
    if (Commands::GetCommandRawArgs(CMD_FILE_OPEN).isEmpty() && !Commands::IsCommandDone(CMD_FILE_OPEN)) {
        LogErrorMsg(Error);
    } else {
        Commands::SetCommandError(CMD_FILE_OPEN, Error);
    }
    if (m_Console && m_Console->GetDock()) {
        m_Console->GetDock()->show();
    }
    return false;
}
