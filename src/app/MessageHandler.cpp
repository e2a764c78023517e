#include "app/MessageHandler.h"

#include "app/core/CmdLineArgs.h"
#include "app/core/Log.h"

#include <QtGlobal>

namespace {

void ToolkitMessageHandler(QtMsgType Type, const QMessageLogContext&, const QString& Text) {
    const bool Verbose = !GetCmdLineArgs().LogFile.isEmpty() || GetCmdLineArgs().Debug;
    U32 Flags = MSG_FROM_TOOLKIT | MSG_TO_STDOUT | MSG_TO_LOGFILE;
    switch (Type) {
    case QtDebugMsg:
    case QtInfoMsg:
        if (!Verbose) {
            return;
        }
        Flags |= MSG_INFO;
        break;
    case QtWarningMsg:
        if (!Verbose) {
            return;
        }
        Flags |= MSG_WARNING;
        break;
    case QtCriticalMsg:
    case QtFatalMsg:
        Flags |= MSG_ERROR | MSG_TO_CONSOLE;
        break;
    }
    LogMessage(Text, Flags);
}

} // namespace

void InstallToolkitMessageHandler() {
    qInstallMessageHandler(ToolkitMessageHandler);
}
