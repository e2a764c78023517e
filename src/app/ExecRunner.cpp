#include "app/ExecRunner.h"

#include "app/MainWindow.h"
#include "app/core/Log.h"
#include "script/Project.h"
#include "views/ConsoleWindow.h"

#include <QTimer>

namespace {
bool s_Ran = false;
}

CExecRunner::CExecRunner(CMainWindow* Window, const QStringList& Lines, bool Quit)
    : QObject(Window), m_Window(Window), m_Lines(Lines), m_Quit(Quit) {
    connect(Window, &CMainWindow::StartupDone, this, &CExecRunner::Start, Qt::QueuedConnection);
}

int CExecRunner::ExitCode() {
    return s_Ran && GetErrorCount() > 0 ? 1 : 0;
}

void CExecRunner::Start() {
    if (m_Started) {
        return;
    }
    m_Started = true;
    s_Ran = true;
    ResetErrorCount();
    RunNext();
}

void CExecRunner::RunNext() {
    // Each line gets a turn of the event loop of its own, as a typed line would: what a line queued
    // (a close by File.Exit, say) happens before the next line runs.
    if (m_Window->IsClosing()) {
        return;
    }
    // A project that a line asked for opens before the next line runs.
    if (CProject::Instance()->IsOpenPending()) {
        QTimer::singleShot(10, this, &CExecRunner::RunNext);
        return;
    }
    if (m_Next < m_Lines.size()) {
        m_Window->GetConsole()->OnCommandEntered(m_Lines[m_Next++]);
        QTimer::singleShot(0, this, &CExecRunner::RunNext);
        return;
    }
    if (m_Quit) {
        m_Window->close();
    }
}
