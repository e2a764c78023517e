#include "views/DockWindow.h"

#include "views/Window.h"

#include <QCloseEvent>

CDockWindow::CDockWindow(CWindow* Window, const QString& Title, QWidget* Parent)
    : QDockWidget(Title, Parent), m_Window(Window) {
    setObjectName(Window->objectName() + QStringLiteral("Dock"));
    setWidget(Window);
    Window->SetDock(this);
}

void CDockWindow::closeEvent(QCloseEvent* Event) {
    QDockWidget::closeEvent(Event);
    if (Event->isAccepted()) {
        m_Window->OnClosed();
        emit WindowClosed(m_Window);
    }
}
