#pragma once

#include "app/MainWindow.h"
#include "app/core/CommandTable.h"
#include "app/core/ConsoleRing.h"
#include "views/ConsoleWindow.h"

#include <QPlainTextEdit>

#include <gtest/gtest.h>

/// The main window, made once for all tests, and the Console's text since the last call.
class AppFixture : public ::testing::Test {
protected:
    static CMainWindow* Main() { return CMainWindow::Instance(); }
    static CConsoleWindow* Console() { return Main()->GetConsole(); }
    /// Runs a Console line and gives the lines it printed.
    static QStringList Run(const QString& Line) {
        Console()->Drain();
        const QTextDocument* Doc = Console()->GetTextPane()->document();
        const int Before = Doc->isEmpty() ? 0 : Doc->blockCount();
        Console()->OnCommandEntered(Line);
        Console()->Drain();
        if (Doc->isEmpty()) {
            return QStringList();
        }
        return Console()->GetText().split('\n').mid(Before);
    }
};
