#pragma once

#include "views/Window.h"

#include <QList>
#include <QPointer>
#include <QStringList>

class QLineEdit;
class QPlainTextEdit;
class QTimer;
class QKeyEvent;
struct CConsoleMsg;

/// The Console: shows the log's message ring, keeps a timestamp column, and runs typed command lines
/// through the command table. It hears ActionTriggered/ActionPerformed of every window and reports each
/// command (echo, error). GUI thread only.
class CConsoleWindow : public CWindow {
    Q_OBJECT

public:
    explicit CConsoleWindow(QWidget* Parent = nullptr);
    ~CConsoleWindow() override;

    using CWindow::OnActionPerformed;
    using CWindow::OnActionTriggered;

    /// Shows everything the ring holds now, in batches, without waiting for the timer.
    void Drain();
    /// Plain text of the message pane.
    QString GetText() const;
    /// Typed lines, newest first.
    QStringList GetHistory() const { return m_History; }
    QLineEdit* GetInputField() const { return m_Input; }
    QPlainTextEdit* GetTextPane() const { return m_Text; }
    QPlainTextEdit* GetTimestampPane() const { return m_TimeStamps; }
    bool IsSidebarVisible() const;

    /// Time text of a timestamp in microseconds: "s.mmm uuu", "mm:ss.mmm uuu" or "h:mm:ss.mmm uuu".
    static QString FormatTimestamp(quint64 Micros);

signals:
    /// Escape in the Console: the user asks to stop the running script.
    void StopScriptRequested();

public slots:
    void Update();
    void Clear() override;
    void SetFont(int Id, const QFont& Font) override;
    void SetColor(int Id, const QColor& Color) override;
    void SetPreference(int Id, I64 Value) override;
    void SetLogFile(const QString& Path);
    void SetSidebarVisible(bool Visible);
    int ExecuteCommand(const QString& Text);
    void AddCommandListener(CWindow* Window);
    void RemoveCommandListener(CWindow* Window);
    void PrintCommandHelp();
    void PrintCommandDisabled(const QString& Text);
    void ResizeSidebarToOptWidth();
    void OnCommandEntered(const QString& Text);
    void OnUpdateTimerTimeout();
    void OnActionHelpTriggered();
    void OnActionShowSidebarTriggered();
    void OnActionTriggered(QAction* Action);
    void OnActionPerformed(QAction* Action);

protected:
    bool eventFilter(QObject* Watched, QEvent* Event) override;
    void changeEvent(QEvent* Event) override;

private slots:
    void OnEditorContextMenuRequested(const QPoint& Pos);
    void OnSidebarContextMenuRequested(const QPoint& Pos);

private:
    /// Moves at most Max messages from the ring into the panes; the number taken.
    int TakeMessages(int Max);
    void ShowMessage(const CConsoleMsg& Msg);
    void OnInputFieldKeyPressed(QKeyEvent* Event);
    /// Gives the text shown in table colour Id (or in the palette's text colour, Id -2) its current colour.
    void Recolor(int Id);

    QPlainTextEdit* m_Text = nullptr;
    QPlainTextEdit* m_TimeStamps = nullptr;
    QLineEdit* m_Input = nullptr;
    QTimer* m_UpdateTimer = nullptr;
    QAction* m_ActionHelp = nullptr;
    QAction* m_ActionShowSidebar = nullptr;
    QAction* m_ActionClear = nullptr;
    QStringList m_History;
    int m_HistoryIndex = -1;
    QList<QPointer<CWindow>> m_Listened;
    bool m_Bold = false;
};
