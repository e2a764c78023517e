#include "app/AppConsole.h"
#include "app/ExecRunner.h"
#include "app/MainWindow.h"
#include "app/MessageHandler.h"
#include "app/core/Automation.h"
#include "app/core/Catalogue.h"
#include "app/core/CmdLineArgs.h"
#include "app/core/Log.h"
#include "app/core/Settings.h"
#include "app/core/Version.h"

#include <QApplication>

int main(int argc, char* argv[]) {
    QApplication App(argc, argv);
    QApplication::setStartDragDistance(30);
    // No toolkit plug-in is looked up outside the program's own directories.
    QApplication::setLibraryPaths(QStringList());
    QApplication::setOrganizationName(QLatin1String(Version::ORGANISATION));
    QApplication::setApplicationName(QLatin1String(Version::APP_NAME));
    QApplication::setApplicationVersion(Version::GetVersionText());

    RecordGuiThread();
    InitCatalog();

    CCmdLineArgs& Args = GetCmdLineArgs();
    Args.Parse(QApplication::arguments().mid(1));
    Automation::SetActive(Args.IsAutomated());
    SetLogInterval(Args.LogInterval);
    if (!Args.LogFile.isEmpty()) {
        OpenLogChannel(LOG_CHANNEL_APP, Args.LogFile);
    }
    if (!Args.TimestampLogFile.isEmpty()) {
        OpenLogChannel(LOG_CHANNEL_TIMESTAMPS, Args.TimestampLogFile);
    }

    CMainWindow* Window = CMainWindow::Instance();
    CAppConsole::Instance();
    SetLogDebugOutput(Args.Debug);
    if (Args.IsAutomated()) {
        new CExecRunner(Window, Args.ExecLines, Args.Quit);
    }

    InstallToolkitMessageHandler();
    Window->show();

    const int Result = App.exec();

    CMainWindow::Destroy();
    Settings::Save();
    FlushLogBuffer();
    return Args.IsAutomated() ? CExecRunner::ExitCode() : Result;
}
