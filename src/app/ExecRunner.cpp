#include "app/ExecRunner.h"

#include "app/MainWindow.h"
#include "app/core/CommandTable.h"
#include "app/core/Log.h"
#include "script/Project.h"
#include "script/TApiWaits.h"
#include "views/ConsoleWindow.h"

#include <QRegularExpression>
#include <QTimer>

CExecRunner::CExecRunner(CMainWindow* Window, const QStringList& Lines, bool Quit)
    : QObject(Window), m_Window(Window), m_Lines(Lines), m_Quit(Quit) {
    connect(Window, &CMainWindow::StartupDone, this, &CExecRunner::Start, Qt::QueuedConnection);
}

int CExecRunner::ExitCode() {
    // Counted from the start: a project that failed to open before the first line fails the run too.
    return GetErrorCount() > 0 ? 1 : 0;
}

void CExecRunner::Start() {
    if (m_Started) {
        return;
    }
    m_Started = true;
    RunNext();
}

void CExecRunner::RunNext() {
    // Each line gets a turn of the event loop of its own, as a typed line would: what a line queued
    // (a close by File.Exit, say) happens before the next line runs.
    if (m_Window->IsClosing()) {
        return;
    }
    // A close that waits for the session's end comes before any further line.
    if (m_Window->IsClosePending()) {
        QTimer::singleShot(10, this, &CExecRunner::RunNext);
        return;
    }
    // A project that a line asked for opens before the next line runs.
    if (CProject::Instance()->IsOpenPending()) {
        QTimer::singleShot(10, this, &CExecRunner::RunNext);
        return;
    }
    if (m_Next < m_Lines.size()) {
        const QString Line = m_Lines[m_Next++];
        m_Window->GetConsole()->OnCommandEntered(Line);
        // Like a script's line, a line that set the target to work waits for it before the next runs.
        static const QRegularExpression s_NameEnd(QStringLiteral("[\\s(]"));
        const I32 Id = Commands::FindCommand(Line.trimmed().section(s_NameEnd, 0, 0));
        if (Id >= 0 && Commands::IsCommandEnabled(static_cast<U32>(Id))) {
            TapiWaits::WaitAfterCommand(static_cast<U32>(Id), nullptr, 0);
        }
        QTimer::singleShot(0, this, &CExecRunner::RunNext);
        return;
    }
    if (m_Quit) {
        m_Window->close();
    }
}
