#include "views/Window.h"

#include "views/DockWindow.h"

#include <QAction>

CWindow::CWindow(const QString& Name, QWidget* Parent) : QMainWindow(Parent), m_Name(Name) {}

bool CWindow::Connect(QObject* Sender, const char* Signal, QObject* Receiver, const char* Slot) {
    if (qobject_cast<QAction*>(Sender) && QByteArray(Signal) == QByteArray(SIGNAL(triggered()))) {
        bool Ok = connect(Sender, SIGNAL(triggered()), this, SLOT(OnActionTriggered()));
        Ok = connect(Sender, Signal, Receiver, Slot) && Ok;
        return connect(Sender, SIGNAL(triggered()), this, SLOT(OnActionPerformed())) && Ok;
    }
    return connect(Sender, Signal, Receiver, Slot);
}

bool CWindow::Disconnect(QObject* Sender, const char* Signal, QObject* Receiver, const char* Slot) {
    if (qobject_cast<QAction*>(Sender) && QByteArray(Signal) == QByteArray(SIGNAL(triggered()))) {
        disconnect(Sender, SIGNAL(triggered()), this, SLOT(OnActionTriggered()));
        disconnect(Sender, SIGNAL(triggered()), this, SLOT(OnActionPerformed()));
    }
    return disconnect(Sender, Signal, Receiver, Slot);
}

void CWindow::BracketAction(QAction* Action, std::function<void()> Slot) {
    connect(Action, &QAction::triggered, this, &CWindow::OnActionTriggered);
    connect(Action, &QAction::triggered, this, [Slot = std::move(Slot)]() { Slot(); });
    connect(Action, &QAction::triggered, this, &CWindow::OnActionPerformed);
}

bool CWindow::IsMatched(const QString& Text) const {
    const QString T = Text.trimmed();
    if (T.compare(GetName(), Qt::CaseInsensitive) == 0 ||
        T.compare(GetDisplayName(), Qt::CaseInsensitive) == 0) {
        return true;
    }
    for (const QString& Alias : GetAliasNames()) {
        if (T.compare(Alias, Qt::CaseInsensitive) == 0) {
            return true;
        }
    }
    return false;
}

bool CWindow::IsOpen() const {
    return m_Dock ? !m_Dock->isHidden() : !isHidden();
}

bool CWindow::IsVisible() const {
    return m_Dock ? m_Dock->isVisible() && !m_Dock->visibleRegion().isEmpty() : isVisible();
}

void CWindow::SetFlag(WINDOW_FLAGS Flag, bool On) {
    const U32 Old = m_Flags;
    m_Flags = On ? (m_Flags | Flag) : (m_Flags & ~static_cast<U32>(Flag));
    if (Old != m_Flags) {
        emit FlagChanged(Flag, On);
    }
}

void CWindow::OnActionTriggered() {
    if (auto* Action = qobject_cast<QAction*>(sender())) {
        emit ActionTriggered(Action);
    }
}

void CWindow::OnActionPerformed() {
    if (auto* Action = qobject_cast<QAction*>(sender())) {
        emit ActionPerformed(Action);
    }
}
