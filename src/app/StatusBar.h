#pragma once

#include <QStatusBar>

class QLabel;
class QProgressBar;
class QTimer;

/// The main window's status bar: status and progress messages, the connection field, the active window's
/// status and a progress bar. Setters only store; one short timer draws, so a burst costs one repaint.
class CStatusBar : public QStatusBar {
    Q_OBJECT

public:
    static CStatusBar* Instance(QWidget* Parent = nullptr);

    QString GetStatusMessage() const { return m_Status; }
    QString GetConnectionInfo() const { return m_Connection; }
    QString GetProgressMessage() const { return m_Progress; }
    int GetProgressValue() const { return m_Value; }
    bool WasCanceled() const { return m_Canceled; }

public slots:
    void SetStatusMessage(const QString& Text);
    void SetProgressMessage(const QString& Text);
    void SetConnectionInfo(const QString& Text);
    void SetActiveWindowStatus(const QString& Text);
    void SetProgressValue(int Value);
    /// (0, 0) gives a busy bar.
    void StartProgress(int Min, int Max);
    void EndProgress();
    void OnButtonCancelClicked() { m_Canceled = true; }
    void OnTimerTimeout();

private:
    explicit CStatusBar(QWidget* Parent);
    void Schedule();

    QString m_Status;
    QString m_Progress;
    QString m_Connection;
    QString m_WindowStatus;
    int m_Min = 0;
    int m_Max = 0;
    int m_Value = 0;
    bool m_ProgressShown = false;
    bool m_Canceled = false;
    QLabel* m_StatusLabel;
    QLabel* m_ProgressLabel;
    QLabel* m_WindowLabel;
    QLabel* m_ConnectionLabel;
    QProgressBar* m_Bar;
    QTimer* m_Timer;
};
