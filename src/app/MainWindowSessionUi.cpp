// The main window as the user interface of the session's controller: status bar, actions, title,
// questions, the debug windows and the session's timers.

#include "app/MainWindow.h"

#include "app/StatusBar.h"
#include "app/core/Check.h"
#include "app/session/SessionController.h"
#include "views/MessageBox.h"

#include <QTimer>

class CMainWindowSessionUi : public QObject, public ISessionUi {
public:
    explicit CMainWindowSessionUi(CMainWindow* Window) : QObject(Window), W(Window) {}

    void SetStatusMessage(const QString& Text) override { W->m_StatusBar->SetStatusMessage(Text); }
    void EndProgress() override { W->m_StatusBar->EndProgress(); }
    void UpdateSessionActions() override { W->UpdateSessionActions(); }
    int ExecUserFunction(int Id) override { return W->ExecUserFunction(Id); }
    bool AskYesNo(const QString& Title, const QString& Text) override {
        return MessageBox::Ask(W, Title, Text, QMessageBox::Yes | QMessageBox::No, QMessageBox::Yes) ==
               QMessageBox::Yes;
    }
    void Warn(const QString& Title, const QString& Text) override {
        MessageBox::Inform(W, QMessageBox::Warning, Title, Text);
    }
    void RepaintWindows() override {
        for (CWindow* Window : W->m_DebugWindows) {
            Window->Repaint();
        }
    }
    void StartMessageBoxTimer() override { W->m_MessageBoxTimer->start(); }
    void StartPeriodicUpdate() override { W->m_PeriodicUpdateTimer->start(); }
    QString ProgramPath() const override { return W->m_ProgramPath; }
    void OpenProject(const QString& Path) override { W->OpenProject(Path); }
    void CloseWindow() override { W->close(); }
    void DownloadStarting(const QString& File) override { emit W->DataFileAboutToDownload(File); }
    void DownloadFinished(const QString& File) override { emit W->DataFileDownloaded(File); }

private:
    CMainWindow* W;
};

void CMainWindow::CreateSession() {
    ARNEX_CHECK_GUI_THREAD();
    m_SessionUi = new CMainWindowSessionUi(this);
    m_Session = new CSessionController(m_SessionUi, this);
    // The actions, the connection field and the title follow every change of step.
    connect(m_Session, &CSessionController::StepChanged, this, [this]() {
        if (m_StatusBar) {
            UpdateSessionActions();
        }
    });
}
