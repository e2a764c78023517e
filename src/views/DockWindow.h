#pragma once

#include <QDockWidget>

class CWindow;

/// The dock frame of one debug window. Closing it hides the window, it is never destroyed.
class CDockWindow : public QDockWidget {
    Q_OBJECT

public:
    CDockWindow(CWindow* Window, const QString& Title, QWidget* Parent);
    CWindow* GetWindow() const { return m_Window; }

signals:
    void WindowClosed(CWindow* Window);

protected:
    void closeEvent(QCloseEvent* Event) override;

private:
    CWindow* m_Window;
};
