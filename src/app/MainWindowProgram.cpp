// Opening program and data files.

#include "app/MainWindow.h"

#include "app/core/Log.h"

bool CMainWindow::OpenDataFile(const QString& Path) {
    LogErrorMsg(QStringLiteral("Program files cannot be opened yet: ") + Path);
    return false;
}
