#include "app/StatusBar.h"

#include <QLabel>
#include <QProgressBar>
#include <QTimer>

CStatusBar* CStatusBar::Instance(QWidget* Parent) {
    static CStatusBar* s_Bar = nullptr;
    if (!s_Bar) {
        s_Bar = new CStatusBar(Parent);
    }
    return s_Bar;
}

CStatusBar::CStatusBar(QWidget* Parent) : QStatusBar(Parent) {
    setObjectName(QStringLiteral("StatusBar"));
    setSizeGripEnabled(false);
    m_StatusLabel = new QLabel(this);
    m_ProgressLabel = new QLabel(this);
    m_Bar = new QProgressBar(this);
    m_Bar->setMaximumWidth(160);
    m_Bar->setMaximumHeight(14);
    m_Bar->hide();
    m_WindowLabel = new QLabel(this);
    m_ConnectionLabel = new QLabel(this);
    addWidget(m_StatusLabel, 1);
    addWidget(m_ProgressLabel);
    addWidget(m_Bar);
    addPermanentWidget(m_WindowLabel);
    addPermanentWidget(m_ConnectionLabel);
    m_Timer = new QTimer(this);
    m_Timer->setSingleShot(true);
    m_Timer->setInterval(20);
    connect(m_Timer, &QTimer::timeout, this, &CStatusBar::OnTimerTimeout);
    SetConnectionInfo(QStringLiteral("Disconnected"));
}

void CStatusBar::Schedule() {
    if (!m_Timer->isActive()) {
        m_Timer->start();
    }
}

void CStatusBar::SetStatusMessage(const QString& Text) {
    if (Text == m_Status) {
        return;
    }
    m_Status = Text;
    Schedule();
}

void CStatusBar::SetProgressMessage(const QString& Text) {
    m_Progress = Text;
    Schedule();
}

void CStatusBar::SetConnectionInfo(const QString& Text) {
    m_Connection = Text;
    Schedule();
}

void CStatusBar::SetActiveWindowStatus(const QString& Text) {
    m_WindowStatus = Text;
    Schedule();
}

void CStatusBar::SetProgressValue(int Value) {
    m_Value = Value;
    Schedule();
}

void CStatusBar::StartProgress(int Min, int Max) {
    m_Min = Min;
    m_Max = Max;
    m_Value = Min;
    m_Canceled = false;
    m_ProgressShown = true;
    Schedule();
}

void CStatusBar::EndProgress() {
    // The message names the work under way; it goes with the bar.
    m_ProgressShown = false;
    m_Progress.clear();
    Schedule();
}

void CStatusBar::OnTimerTimeout() {
    m_StatusLabel->setText(m_Status);
    m_ProgressLabel->setText(m_Progress);
    m_WindowLabel->setText(m_WindowStatus);
    m_ConnectionLabel->setText(m_Connection);
    m_Bar->setRange(m_Min, m_Max);
    m_Bar->setValue(m_Value);
    m_Bar->setVisible(m_ProgressShown);
}
