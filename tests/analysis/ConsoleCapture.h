#pragma once

#include "app/core/ConsoleRing.h"
#include "app/core/Log.h"

#include <QStringList>

/// Collects what the log sends to the Console while it lives.
class ConsoleCapture {
public:
    ConsoleCapture() {
        ConsoleRing::Clear();
        SetConsoleAttached(true);
    }
    ~ConsoleCapture() {
        SetConsoleAttached(false);
        ConsoleRing::Clear();
    }
    /// The lines since the last call.
    QStringList Lines() {
        QStringList L;
        CConsoleMsg Msg;
        while (ConsoleRing::Pop(Msg)) {
            L << QString::fromUtf8(Msg.Text);
        }
        return L;
    }
};
