#pragma once

#include <QObject>

/// A process-wide object that start-up creates after the main window; it has no behaviour beyond its
/// existence.
class CAppConsole : public QObject {
    Q_OBJECT

public:
    static CAppConsole* Instance();

private:
    CAppConsole() = default;
};
