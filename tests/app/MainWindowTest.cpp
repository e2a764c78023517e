#include "AppFixture.h"

#include "app/WelcomeScreen.h"
#include "app/core/Automation.h"
#include "app/core/SysVars.h"

#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QToolButton>

namespace {

using MainWindowTest = AppFixture;

TEST_F(MainWindowTest, TitleAndBoundActions) {
    EXPECT_EQ(Main()->windowTitle(), "Arnex - New Project");
    for (U32 Id = 0; Id < COMMAND_COUNT; ++Id) {
        if (*g_CommandRows[Id].Prototype) {
            EXPECT_NE(Commands::GetCommandAction(Id), nullptr) << "every named command has an action: " << Id;
        }
    }
    EXPECT_TRUE(Commands::IsCommandEnabled(55));
    EXPECT_FALSE(Commands::IsCommandEnabled(30)) << "Debug.Start waits for the session controller";
}

TEST_F(MainWindowTest, ResetModeFollowsTheVariable) {
    auto* Button = Main()->findChild<QToolButton*>("toolButtonDebugReset");
    ASSERT_NE(Button, nullptr);
    EXPECT_EQ(Run("Edit.SysVar (VAR_RESET_MODE, RM_RESET_AND_RUN)"),
              QStringList({"Edit.SysVar (VAR_RESET_MODE, RM_RESET_AND_RUN);"}));
    const QString RunTip = Button->toolTip();
    EXPECT_TRUE(RunTip.startsWith(Commands::GetCommandAction(52)->toolTip().section(" (", 0, 0)));
    EXPECT_TRUE(Commands::GetCommandAction(52)->isChecked());

    EXPECT_EQ(Run("Edit.SysVar (0, 0)"), QStringList({"Edit.SysVar (VAR_RESET_MODE, RM_RESET_HALT);"}));
    EXPECT_TRUE(Commands::GetCommandAction(51)->isChecked());
    EXPECT_NE(Button->toolTip(), RunTip);
    EXPECT_EQ(Run("Edit.SysVar (0, 2)"), QStringList({"Edit.SysVar (VAR_RESET_MODE, RM_RESET_AND_RUN);"}));
    EXPECT_EQ(Button->toolTip(), RunTip) << "the number and the constant have the same effect";

    EXPECT_EQ(Run("Edit.SysVar (VAR_RESET_MODE, 9)"),
              QStringList({"Edit.SysVar (VAR_RESET_MODE, 9); invalid parameter"}));
    EXPECT_EQ(SysVars::GetVarValue(VAR_RESET_MODE), 2) << "a value that is no mode is refused";

    EXPECT_EQ(Run("Debug.SetConnectMode (CM_ATTACH_HALT)"),
              QStringList({"Debug.SetConnectMode (CM_ATTACH_HALT);"}));
    EXPECT_EQ(SysVars::GetVarValue(VAR_CONNECT_MODE), 2);
    Commands::GetCommandAction(47)->trigger();
    Console()->Drain();
    EXPECT_EQ(SysVars::GetVarValue(VAR_CONNECT_MODE), 0) << "the mode menu relays through the command";
}

TEST_F(MainWindowTest, SystemVariableCommands) {
    EXPECT_EQ(Run("Edit.SysVar (\"VAR_NOPE\", 1)"),
              QStringList({"Edit.SysVar (VAR_NOPE, 1); unknown system variable"}));
    EXPECT_EQ(Run("Edit.SysVar (VAR_TRACE_PORT_DELAY_0, 120)"),
              QStringList({"Edit.SysVar (VAR_TRACE_PORT_DELAY_0, 100);"}));
    EXPECT_EQ(SysVars::GetVarValue(VAR_TRACE_PORT_DELAY_0), 100);
    Run("Edit.SysVar (VAR_TRACE_PORT_DELAY_0, -120)");
    EXPECT_EQ(SysVars::GetVarValue(VAR_TRACE_PORT_DELAY_0), -100);
    EXPECT_EQ(
        Run("Edit.SysVar (VAR_TIF_SCAN_CHAIN_LEN, 2000000000)"),
        QStringList({"Edit.SysVar (VAR_TIF_SCAN_CHAIN_LEN, Value 2000000000 is out of range (Min: 0, Max: "
                     "1000000000));"}))
        << "a number through the command is kept as given and reported";
    EXPECT_EQ(Run("Edit.SysVar (VAR_BREAK_AT_THIS_SYMBOL, Reset_Handler)"),
              QStringList({"Edit.SysVar (VAR_BREAK_AT_THIS_SYMBOL, Reset_Handler);"}));
    EXPECT_EQ(SysVars::GetVarString(SysVars::GetVarRow(VAR_BREAK_AT_THIS_SYMBOL)), "Reset_Handler")
        << "a symbol set before a program exists is taken as it is";
    EXPECT_TRUE(Run("Edit.SysVar (VAR_VERIFY_DOWNLOAD, 0, 0)").isEmpty())
        << "a third argument false: no echo";
    EXPECT_EQ(SysVars::GetVarValue(VAR_VERIFY_DOWNLOAD), 0);
    EXPECT_EQ(Run("Edit.SysVar (VAR_VERIFY_DOWNLOAD)"),
              QStringList({"Edit.SysVar (VAR_VERIFY_DOWNLOAD); wrong parameter count"}));
    EXPECT_EQ(Run("Edit.SysVar (PREF_SHOW_TOOLTIPS, 0)"),
              QStringList({"Edit.SysVar (PREF_SHOW_TOOLTIPS, 0); unknown system variable"}))
        << "preferences have their own command";
    EXPECT_EQ(Run("Edit.SysVar (VAR_SWO_SPEED, \"4 MHz\")"),
              QStringList({"Edit.SysVar (VAR_SWO_SPEED, FREQ_4_MHZ);"}));
}

TEST_F(MainWindowTest, TimestampsOffCorrectsTheFormat) {
    Run("Edit.Preference (PREF_TIMESTAMP_FORMAT, 3)");
    const QStringList Lines = Run("Edit.SysVar (VAR_TRACE_TIMESTAMPS_ENABLED, 0)");
    ASSERT_EQ(Lines.size(), 2);
    EXPECT_EQ(Lines[0],
              "timestamp format \"Time\" is not supported when trace timestamps are disabled. Selecting "
              "format Instruction Count.");
    EXPECT_EQ(SysVars::GetVarValue(PREF_TIMESTAMP_FORMAT), 1);
    Run("Edit.SysVar (VAR_TRACE_TIMESTAMPS_ENABLED, 1)");
}

TEST_F(MainWindowTest, PreferencesReachTheWindows) {
    EXPECT_EQ(Run("Edit.Preference (999, 1)"), QStringList({"Edit.Preference (999, 1); unknown preference"}));
    EXPECT_EQ(Run("Edit.Preference (PREF_SHOW_TOOLTIPS, 0)"),
              QStringList({"Edit.Preference (PREF_SHOW_TOOLTIPS, 0);"}));
    EXPECT_FALSE(Console()->IsSidebarVisible());
    Run("Edit.Preference (PREF_SHOW_TIMESTAMPS_CONSOLE, yes)");
    EXPECT_TRUE(Console()->IsSidebarVisible());
    Run("Edit.Preference (PREF_SHOW_TIMESTAMPS_CONSOLE, 0, 0)");
    EXPECT_TRUE(Console()->IsSidebarVisible()) << "told nobody";
    EXPECT_EQ(SysVars::GetVarValue(PREF_SHOW_TIMESTAMPS_CONSOLE), 0);
    Run("Edit.Preference (PREF_SHOW_TIMESTAMPS_CONSOLE, 0)");
    EXPECT_FALSE(Console()->IsSidebarVisible());
    EXPECT_EQ(Run("Edit.Preference (PREF_TAB_SPACING, 12)"),
              QStringList({"Edit.Preference (PREF_TAB_SPACING, 12);"}));
    EXPECT_EQ(Run("Edit.Preference (PREF_TAB_SPACING, many)"),
              QStringList({"Edit.Preference (PREF_TAB_SPACING, many); invalid parameter"}));
}

TEST_F(MainWindowTest, ColoursReachShownLines) {
    Console()->Clear();
    Run("no.such.command");
    EXPECT_EQ(Run("Edit.Color (COLOR_LOGGING_ERROR, \"#00ff00\")"),
              QStringList({"Edit.Color (COLOR_LOGGING_ERROR, \"#00FF00\");"}));
    QPlainTextEdit* Pane = Console()->GetTextPane();
    Pane->resize(600, 200);
    const QImage Shot = Pane->viewport()->grab().toImage();
    int Green = 0;
    int Red = 0;
    for (int Y = 0; Y < Shot.height(); ++Y) {
        for (int X = 0; X < Shot.width(); ++X) {
            const QColor C = Shot.pixelColor(X, Y);
            Green += C.green() > 200 && C.red() < 60 && C.blue() < 60;
            Red += C.red() > 150 && C.green() < 60;
        }
    }
    EXPECT_GT(Green, 20) << "the error line shown before the change is drawn in the new colour";
    EXPECT_EQ(Red, 0);
    EXPECT_EQ(Run("Edit.Color (25, 0xFFB22222)"),
              QStringList({"Edit.Color (COLOR_LOGGING_ERROR, \"#B22222\");"}));
    EXPECT_EQ(Run("Edit.Color (COLOR_LOGGING_ERROR, \"nocolour\")"),
              QStringList({"Edit.Color (COLOR_LOGGING_ERROR, \"nocolour\"); invalid parameter"}));
    EXPECT_EQ(Run("Edit.Color (39, \"#ffffff\")"),
              QStringList({"Edit.Color (39, \"#ffffff\"); unknown color"}));
}

TEST_F(MainWindowTest, FontsReachTheConsole) {
    QFont Font = Console()->GetTextPane()->font();
    Font.setPointSize(21);
    Run("Edit.Font (FONT_CONSOLE, \"" + Font.toString() + "\")");
    EXPECT_EQ(Console()->GetTextPane()->font().pointSize(), 21);
    EXPECT_EQ(Run("Edit.Font (FONT_NOPE, \"x\")"),
              QStringList({"Edit.Font (FONT_NOPE, \"x\"); unknown font"}));
    EXPECT_EQ(Run("Edit.Font (8, \"\")").last(), "Edit.Font (8, \"\"); invalid parameter");
}

TEST_F(MainWindowTest, CtrlCInTheConsoleCopiesWithoutACommand) {
    // Shortcuts need the window on the screen; its first paint runs the start-up, unattended here.
    Automation::SetActive(true);
    QSignalSpy Started(Main(), &CMainWindow::StartupDone);
    Main()->show();
    QApplication::setActiveWindow(Main());
    Started.wait(5000);
    Automation::SetActive(false);
    Run("Util.Log (\"copy me\")");
    QPlainTextEdit* Pane = Console()->GetTextPane();
    QTextCursor Cursor = Pane->document()->find("copy me");
    ASSERT_FALSE(Cursor.isNull());
    Pane->setTextCursor(Cursor);
    Pane->setFocus();
    QApplication::clipboard()->clear();
    const QString Before = Console()->GetText();
    QTest::keyClick(Pane, Qt::Key_C, Qt::ControlModifier);
    Console()->Drain();
    EXPECT_EQ(QApplication::clipboard()->text(), "copy me");
    EXPECT_EQ(Console()->GetText(), Before) << "no Edit.Copy line: the selection stays where it is";
    EXPECT_EQ(Pane->textCursor().selectedText(), "copy me");
    // Elsewhere Ctrl+C stays the command.
    EXPECT_EQ(Run("Edit.Copy (\"given\")").first(), "Edit.Copy (\"given\");");
    EXPECT_EQ(QApplication::clipboard()->text(), "given");
    Main()->hide();
}

TEST(WelcomeScreen, EnterOpensTheHighlightedRecentProject) {
    const QStringList Recent = {"/work/one.tvproj", "/work/two.tvproj", "/work/three.tvproj"};
    CWelcomeScreen Welcome(Recent, QApplication::font());
    Welcome.show();
    QApplication::setActiveWindow(&Welcome);
    auto* List = Welcome.findChild<QListWidget*>();
    ASSERT_NE(List, nullptr);
    EXPECT_EQ(List->currentRow(), 0) << "the most recent is highlighted";
    // The user highlights the second and presses Enter where the focus is.
    List->setCurrentRow(1);
    QWidget* Focus = Welcome.focusWidget() ? Welcome.focusWidget() : &Welcome;
    QTest::keyClick(Focus, Qt::Key_Return);
    EXPECT_EQ(Welcome.GetResult(), CWelcomeScreen::OPEN_RECENT);
    EXPECT_EQ(Welcome.GetChosenProject(), "/work/two.tvproj");
    EXPECT_FALSE(Welcome.isVisible());

    // The default button names what it does, and goes with the highlight.
    CWelcomeScreen Again(Recent, QApplication::font());
    QPushButton* Default = nullptr;
    for (QPushButton* B : Again.findChildren<QPushButton*>()) {
        if (B->isDefault()) {
            Default = B;
        }
    }
    ASSERT_NE(Default, nullptr);
    Again.findChild<QListWidget*>()->setCurrentRow(2);
    Default->click();
    EXPECT_EQ(Again.GetResult(), CWelcomeScreen::OPEN_RECENT);
    EXPECT_EQ(Again.GetChosenProject(), "/work/three.tvproj");
    Again.findChild<QListWidget*>()->setCurrentRow(-1);
    EXPECT_FALSE(Default->isEnabled()) << "nothing highlighted, nothing to open";
}

} // namespace
