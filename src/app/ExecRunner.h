#pragma once

#include <QObject>
#include <QStringList>

class CMainWindow;

/// Runs the -exec lines after the start-up decision, each as if typed into the Console, and closes the
/// program after the last one when -quit was given. GUI thread.
class CExecRunner : public QObject {
    Q_OBJECT

public:
    CExecRunner(CMainWindow* Window, const QStringList& Lines, bool Quit);
    /// 1 if any error was logged since start-up (a line's error, an unknown line included), else 0.
    static int ExitCode();

public slots:
    void Start();

private:
    void RunNext();

    CMainWindow* m_Window;
    QStringList m_Lines;
    bool m_Quit;
    bool m_Started = false;
    int m_Next = 0;
};
