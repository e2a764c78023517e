#pragma once

#include "app/core/Types.h"
#include "target/DeviceEvents.h"

#include <QList>
#include <QMainWindow>
#include <QPair>

#include <functional>

class QAction;
class CDockWindow;

/// Bits of a window's flags.
enum WINDOW_FLAGS : U32 {
    WF_NOTE_HALT = 0x01,            ///< the window takes note of each halt before deciding to update
    WF_CLEAR_ON_SESSION_END = 0x08, ///< clear the window at the end of a session
};

/// Base of the main window and of every debug window. Commands bound to its actions are bracketed by
/// ActionTriggered and ActionPerformed, which the Console hears; every window hears the device's events.
/// GUI thread only.
class CWindow : public QMainWindow, public CDeviceEventListener {
    Q_OBJECT

public:
    explicit CWindow(const QString& Name, QWidget* Parent = nullptr);

    /// Connects a signal; a QAction's triggered() gets three connections in this order: the window's
    /// OnActionTriggered, the slot, the window's OnActionPerformed.
    bool Connect(QObject* Sender, const char* Signal, QObject* Receiver, const char* Slot);
    bool Disconnect(QObject* Sender, const char* Signal, QObject* Receiver, const char* Slot);
    /// The typed form of Connect for a command action.
    template <typename Receiver>
    void ConnectAction(QAction* Action, Receiver* R, void (Receiver::*Slot)()) {
        BracketAction(Action, [R, Slot]() { (R->*Slot)(); });
    }

    virtual QString GetName() const { return m_Name; }
    virtual QString GetDisplayName() const { return m_Name; }
    /// Names under which Window.Show and friends also find the window.
    virtual QStringList GetAliasNames() const { return QStringList(); }
    /// True if Text names this window, without regard to case.
    virtual bool IsMatched(const QString& Text) const;
    virtual void Clear() {}
    virtual void Repaint() { update(); }
    /// A font of the font table changed.
    virtual void SetFont(int Id, const QFont& Font) {
        Q_UNUSED(Id);
        Q_UNUSED(Font);
    }
    /// A colour of the colour table changed (or the palette behind a symbolic one).
    virtual void SetColor(int Id, const QColor& Color) {
        Q_UNUSED(Id);
        Q_UNUSED(Color);
    }
    /// A user preference changed.
    virtual void SetPreference(int Id, I64 Value) {
        Q_UNUSED(Id);
        Q_UNUSED(Value);
    }
    virtual bool IsOpen() const;
    virtual bool IsVisible() const;

    U32 GetFlags() const { return m_Flags; }
    bool TestFlag(WINDOW_FLAGS Flag) const { return (m_Flags & Flag) != 0; }
    virtual void SetFlag(WINDOW_FLAGS Flag, bool On);

    /// Keys this window adds to its OpenWindow line in the project's user file, in the order of their ids
    /// (7 to 11 and behind 12, DisplayFormat 12); the text of a text value without its quotes.
    virtual QList<QPair<QString, QString>> GetUserFileKeys() const { return {}; }
    /// The window's OpenWindow line of a user file that is being read.
    virtual void ReadUserFileKeys(const QString& Line) { Q_UNUSED(Line); }

    CDockWindow* GetDock() const { return m_Dock; }
    void SetDock(CDockWindow* Dock) { m_Dock = Dock; }

signals:
    void FlagChanged(WINDOW_FLAGS Flag, bool On);
    void ActionTriggered(QAction* Action);
    void ActionPerformed(QAction* Action);

public slots:
    virtual void OnActionTriggered();
    virtual void OnActionPerformed();
    virtual void OnOpened() {}
    virtual void OnClosed() {}
    /// A project was opened, or it ended: a window clears what belonged to it.
    virtual void OnProjectFileOpened(const QString& Path) { Q_UNUSED(Path); }
    virtual void OnProjectFileClosed(const QString& Path) { Q_UNUSED(Path); }

protected:
    void BracketAction(QAction* Action, std::function<void()> Slot);

private:
    QString m_Name;
    U32 m_Flags = 0;
    CDockWindow* m_Dock = nullptr;
};
