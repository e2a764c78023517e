#include "views/ConsoleWindow.h"
#include "app/core/CommandTable.h"
#include "app/core/ConsoleRing.h"
#include "app/core/Log.h"

#include <QAction>
#include <QKeyEvent>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTextBlock>

#include <gtest/gtest.h>

#include <memory>

namespace {

class ConsoleWindowTest : public ::testing::Test {
protected:
    void SetUp() override {
        ConsoleRing::Clear();
        m_Console = std::make_unique<CConsoleWindow>();
        m_Console->resize(600, 300);
    }
    void TearDown() override {
        m_Console.reset();
        Commands::UnbindAll();
        ConsoleRing::Clear();
    }
    void Key(int Code) {
        QKeyEvent Press(QEvent::KeyPress, Code, Qt::NoModifier);
        QCoreApplication::sendEvent(m_Console->GetInputField(), &Press);
    }
    QStringList Lines() const { return m_Console->GetText().split('\n'); }

    std::unique_ptr<CConsoleWindow> m_Console;
};

TEST_F(ConsoleWindowTest, ShowsQueuedMessagesInOrderWithTheirColours) {
    AppendConsoleMsg("first", COLOR_LOGGING_ERROR);
    PrintConsole("second", 0xFF00008Bu);
    PrintConsole("third", COLOR_VALUE_TRANSPARENT);
    m_Console->Drain();
    EXPECT_EQ(Lines(), QStringList({"first", "second", "third"}));

    const QTextBlock First = m_Console->GetTextPane()->document()->firstBlock();
    const QColor Error = First.begin().fragment().charFormat().foreground().color();
    EXPECT_EQ(Error, GetColor(COLOR_LOGGING_ERROR));
    const QColor Probe = First.next().begin().fragment().charFormat().foreground().color();
    EXPECT_EQ(Probe.rgba(), 0xFF00008Bu);
    const QColor Text = First.next().next().begin().fragment().charFormat().foreground().color();
    EXPECT_EQ(Text, m_Console->palette().color(QPalette::Text));
}

TEST_F(ConsoleWindowTest, TheTimerShowsAtMostAHundredPerTick) {
    for (int i = 0; i < 250; ++i) {
        AppendConsoleMsg(QString::number(i), COLOR_LOGGING_USER);
    }
    m_Console->OnUpdateTimerTimeout();
    EXPECT_EQ(m_Console->GetTextPane()->document()->blockCount(), 100);
    QTRY_COMPARE_WITH_TIMEOUT(m_Console->GetTextPane()->document()->blockCount(), 250, 2000);
    EXPECT_EQ(Lines().last(), "249");
}

TEST_F(ConsoleWindowTest, TimestampPaneKeepsLineForLine) {
    AppendConsoleMsg("one\ntwo\nthree", COLOR_LOGGING_USER);
    AppendConsoleMsg("four", COLOR_LOGGING_USER);
    m_Console->Drain();
    EXPECT_EQ(m_Console->GetTextPane()->document()->blockCount(), 4);
    EXPECT_EQ(m_Console->GetTimestampPane()->document()->blockCount(), 4);
    EXPECT_FALSE(m_Console->IsSidebarVisible());
    m_Console->SetSidebarVisible(true);
    EXPECT_TRUE(m_Console->IsSidebarVisible());
}

TEST_F(ConsoleWindowTest, TimestampFormats) {
    EXPECT_EQ(CConsoleWindow::FormatTimestamp(1234567), "1.234 567");
    EXPECT_EQ(CConsoleWindow::FormatTimestamp(59999999), "59.999 999");
    EXPECT_EQ(CConsoleWindow::FormatTimestamp(61000001), "01:01.000 001");
    EXPECT_EQ(CConsoleWindow::FormatTimestamp(3723004005ull), "1:02:03.004 005");
}

TEST_F(ConsoleWindowTest, HistoryBrowsesAndWraps) {
    m_Console->OnCommandEntered("Util.Log a");
    m_Console->OnCommandEntered("Util.Log b");
    m_Console->OnCommandEntered("Util.Log c");
    m_Console->OnCommandEntered("Util.Log a");
    EXPECT_EQ(m_Console->GetHistory(), QStringList({"Util.Log c", "Util.Log b", "Util.Log a"}));
    QLineEdit* Input = m_Console->GetInputField();
    Key(Qt::Key_Up);
    EXPECT_EQ(Input->text(), "Util.Log c");
    Key(Qt::Key_Up);
    Key(Qt::Key_Up);
    EXPECT_EQ(Input->text(), "Util.Log a");
    Key(Qt::Key_Up);
    EXPECT_EQ(Input->text(), "Util.Log c") << "from the oldest to the newest";
    Key(Qt::Key_Down);
    EXPECT_EQ(Input->text(), "Util.Log a") << "from the newest to the oldest";
    Key(Qt::Key_Down);
    EXPECT_EQ(Input->text(), "Util.Log b");
}

TEST_F(ConsoleWindowTest, EnteredLinesRunAndEmptyLinesPrintEmptyLines) {
    m_Console->OnCommandEntered("no.such.command");
    m_Console->OnCommandEntered("");
    m_Console->OnCommandEntered("   ");
    m_Console->Drain();
    EXPECT_EQ(Lines().first(),
              "no.such.command: unknown command. Type ? or help for a list of available commands.");
    EXPECT_EQ(Lines().last().trimmed(), "");
    EXPECT_TRUE(m_Console->GetInputField()->text().isEmpty());
    EXPECT_EQ(m_Console->GetHistory(), QStringList({"no.such.command"})) << "blank lines are not kept";
    Key(Qt::Key_Up);
    EXPECT_EQ(m_Console->GetInputField()->text(), "no.such.command");
}

TEST_F(ConsoleWindowTest, ReportsCommandsOfTheWindowsItHears) {
    CWindow Other("Other");
    auto* Log = new QAction(&Other);
    Log->setObjectName("actionUtilLog");
    Commands::BindActions(&Other);
    Commands::SetActionEnabled(Log, true);
    Other.ConnectAction(Log, &Other, &CWindow::Repaint);
    m_Console->AddCommandListener(&Other);
    m_Console->AddCommandListener(&Other);

    EXPECT_EQ(m_Console->ExecuteCommand("Util.Log (\"a,b\")"), 1);
    m_Console->Drain();
    EXPECT_EQ(Lines(), QStringList({"Util.Log (\"a,b\");"})) << "one echo although added twice";

    m_Console->RemoveCommandListener(&Other);
    EXPECT_EQ(m_Console->ExecuteCommand("Util.Log x"), 1);
    m_Console->Drain();
    EXPECT_EQ(Lines().size(), 1);
}

TEST_F(ConsoleWindowTest, ClearEmptiesPanesAndRing) {
    AppendConsoleMsg("shown", COLOR_LOGGING_USER);
    m_Console->Drain();
    AppendConsoleMsg("queued", COLOR_LOGGING_USER);
    m_Console->GetInputField()->setText("half typed");
    m_Console->Clear();
    m_Console->Drain();
    EXPECT_TRUE(m_Console->GetText().isEmpty());
    EXPECT_TRUE(m_Console->GetInputField()->text().isEmpty());
    EXPECT_TRUE(m_Console->GetTimestampPane()->toPlainText().isEmpty());
}

TEST_F(ConsoleWindowTest, EscapeAnywhereInTheConsoleAsksToStopTheScript) {
    QSignalSpy Stop(m_Console.get(), &CConsoleWindow::StopScriptRequested);
    m_Console->show();
    m_Console->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(m_Console.get()));
    m_Console->GetInputField()->setText("half typed");
    QTest::keyClick(m_Console->GetInputField(), Qt::Key_Escape);
    EXPECT_EQ(Stop.count(), 1);
    EXPECT_EQ(m_Console->GetInputField()->text(), "half typed") << "the typed line stays";
    QTest::keyClick(m_Console->GetTextPane(), Qt::Key_Escape);
    EXPECT_EQ(Stop.count(), 2);
}

TEST_F(ConsoleWindowTest, WritesItsTextToTheConsoleLogFile) {
    QTemporaryDir Dir;
    const QString Path = Dir.filePath("console.txt");
    m_Console->SetLogFile(Path);
    AppendConsoleMsg("logged", COLOR_LOGGING_USER);
    m_Console->Drain();
    m_Console->SetLogFile(QString());
    QFile F(Path);
    ASSERT_TRUE(F.open(QIODevice::ReadOnly));
    EXPECT_EQ(F.readAll(), "logged\n");
}

} // namespace
