// Opening projects.

#include "app/MainWindow.h"

#include "app/core/Log.h"

bool CMainWindow::OpenProject(const QString& Path) {
    LogErrorMsg(QStringLiteral("Projects cannot be opened yet: ") + Path);
    return false;
}
