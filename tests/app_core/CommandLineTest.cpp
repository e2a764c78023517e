// Console lines: parsing, the call text of the echo, and what the Console reports.
#include "CommandFixture.h"

namespace {

using CommandLine = CommandFixture;

TEST_F(CommandLine, NamesAreFoundWithoutRegardToCase) {
    PARSED_COMMAND P = Commands::ParseCommandLine("window.show (\"Terminal\")");
    ASSERT_TRUE(P.Found);
    EXPECT_EQ(Commands::GetCommandName(P.Id), "Window.Show");
    EXPECT_EQ(P.Args, QStringList({"Terminal"}));
    P = Commands::ParseCommandLine("WINDOW.SHOW Terminal");
    EXPECT_EQ(Commands::GetCommandName(P.Id), "Window.Show");
    P = Commands::ParseCommandLine("tools.preferences");
    EXPECT_EQ(Commands::GetCommandName(P.Id), "Tools.Preferences");
    P = Commands::ParseCommandLine("edit.preferences ()");
    EXPECT_EQ(Commands::GetCommandName(P.Id), "Tools.Preferences") << "second names are found too";
}

TEST_F(CommandLine, QuotedArgumentsStayWhole) {
    for (const char* Line : {"File.Open \"a b.elf\"", "File.Open (\"a b.elf\")", "File.Open(\"a b.elf\");"}) {
        const PARSED_COMMAND P = Commands::ParseCommandLine(Line);
        ASSERT_TRUE(P.Found) << Line;
        EXPECT_EQ(P.Args, QStringList({"a b.elf"})) << Line;
        EXPECT_EQ(Commands::GetCommandRawArgs(P.Id), QStringList({"a b.elf"})) << "stored on the action";
    }
    PARSED_COMMAND P = Commands::ParseCommandLine("Util.Log (\"a,b\")");
    EXPECT_EQ(P.Args, QStringList({"a,b"}));
    P = Commands::ParseCommandLine("Util.Log \"x^y z\"");
    EXPECT_EQ(P.Args, QStringList({"x^y z"})) << "a caret in the text is the user's own";
}

TEST_F(CommandLine, BlankAndParenthesisForms) {
    PARSED_COMMAND P = Commands::ParseCommandLine("Target.WriteU32 0x2000 1");
    EXPECT_EQ(P.Args, QStringList({"0x2000", "1"}));
    P = Commands::ParseCommandLine("Target.WriteU32 (0x2000, 1);");
    EXPECT_EQ(P.Args, QStringList({"0x2000", "1"}));
    P = Commands::ParseCommandLine("  Target.WriteU32    0x2000\t  1  ");
    EXPECT_EQ(P.Args, QStringList({"0x2000", "1"}));
    P = Commands::ParseCommandLine("Target.WriteU32 (0x2000,,1)");
    EXPECT_EQ(P.Args, QStringList({"0x2000", "1"})) << "empty items are dropped";
    P = Commands::ParseCommandLine("Util.Log (unclosed");
    EXPECT_TRUE(P.Found);
    EXPECT_TRUE(P.Args.isEmpty()) << "a ( without ) gives no arguments";
    P = Commands::ParseCommandLine("Help.Commands (VOID)");
    EXPECT_TRUE(P.Args.isEmpty());
    EXPECT_EQ(Commands::GetCommandArgs(P.Id), QStringList());
    P = Commands::ParseCommandLine("(Util.Log)");
    EXPECT_FALSE(P.Found) << "a ( at the start gives no name";
}

TEST_F(CommandLine, FormatsTheCallText) {
    Commands::SetCommandArgs(Id("Util.Log"), {"a,b"});
    EXPECT_EQ(Commands::FormatCommandText(Id("Util.Log")), "Util.Log (\"a,b\");");
    Commands::SetCommandArgs(Id("Util.Log"), {"\"q\""});
    EXPECT_EQ(Commands::FormatCommandText(Id("Util.Log")), "Util.Log (\"q\");")
        << "one layer of quotes dropped";
    Commands::SetCommandArgs(Id("Help.Commands"), {});
    EXPECT_EQ(Commands::FormatCommandText(Id("Help.Commands")), "Help.Commands();");
    Commands::SetCommandArgs(Id("Edit.SysVar"), {"0", "rm_reset_and_run"});
    EXPECT_EQ(Commands::FormatCommandText(Id("Edit.SysVar")), "Edit.SysVar (0, RM_RESET_AND_RUN);")
        << "a constant takes its spelling, a number stays";
    Commands::SetCommandArgs(Id("Target.WriteU32"), {"0x2000", "yes"});
    EXPECT_EQ(Commands::FormatCommandText(Id("Target.WriteU32")), "Target.WriteU32 (0x2000, 1);");
    Commands::SetCommandArgs(Id("Project.SetTIFSpeed"), {"4 MHz"});
    EXPECT_EQ(Commands::FormatCommandText(Id("Project.SetTIFSpeed")), "Project.SetTIFSpeed (\"4 MHz\");")
        << "a string parameter stays text";
    Commands::SetCommandArgs(Id("Edit.RefreshRate"), {"x", "12 Hz"});
    EXPECT_EQ(Commands::FormatCommandText(Id("Edit.RefreshRate")), "Edit.RefreshRate (\"x\", 12);")
        << "a frequency text of a number parameter becomes the number";
    Commands::SetCommandArgs(Id("Edit.RefreshRate"), {"x", "10 hz"});
    EXPECT_EQ(Commands::FormatCommandText(Id("Edit.RefreshRate")), "Edit.RefreshRate (\"x\", FREQ_10_HZ);")
        << "a constant's display text comes before the frequency parser";
    Commands::SetCommandArgs(Id("Edit.RefreshRate"), {"x", "fast"});
    EXPECT_EQ(Commands::FormatCommandText(Id("Edit.RefreshRate")), "Edit.RefreshRate (\"x\", fast);");
    EXPECT_TRUE(Commands::FormatCommandText(8).isEmpty()) << "an action-only row has no text";
}

TEST_F(CommandLine, ExecuteReportsUnknownDisabledAndHelp) {
    int HelpRuns = 0;
    QObject::connect(Commands::GetCommandAction(55), &QAction::triggered, [&]() { ++HelpRuns; });
    EXPECT_EQ(Commands::ExecuteCommandLine("?"), 1);
    EXPECT_EQ(Commands::ExecuteCommandLine("help"), 1);
    EXPECT_EQ(Commands::ExecuteCommandLine("HELP"), 1);
    EXPECT_EQ(HelpRuns, 3);
    TakeConsole();

    EXPECT_EQ(Commands::ExecuteCommandLine("? "), 0);
    EXPECT_EQ(TakeConsole(),
              QStringList({"? : unknown command. Type ? or help for a list of available commands."}));
    EXPECT_EQ(Commands::ExecuteCommandLine("   "), 0);
    EXPECT_EQ(TakeConsole().size(), 1);
    EXPECT_EQ(Commands::ExecuteCommandLine("Nope.Nothing (1);"), 0);
    EXPECT_EQ(
        TakeConsole(),
        QStringList({"Nope.Nothing (1): unknown command. Type ? or help for a list of available commands."}));

    Commands::SetCommandEnabled(Id("Debug.Start"), false);
    EXPECT_EQ(Commands::ExecuteCommandLine("debug.start ()"), 2);
    EXPECT_EQ(TakeConsole(), QStringList({"debug.start: Command disabled"}));
    EXPECT_EQ(Commands::ExecuteCommandLine("Util.Log hi"), 1);
}

TEST_F(CommandLine, EchoBeforeAndErrorAfter) {
    const U32 Log = Id("Util.Log");
    QAction* A = Commands::GetCommandAction(Log);
    QObject::connect(A, &QAction::triggered, [=]() { Commands::SetCommandError(Log, "not connected"); });
    Commands::ParseCommandLine("Util.Log (\"a,b\")");
    Commands::ReportCommandTriggered(A);
    A->trigger();
    Commands::ReportCommandPerformed(A);
    EXPECT_EQ(TakeConsole(), QStringList({"Util.Log (\"a,b\");", "Util.Log (\"a,b\"); not connected"}));
    EXPECT_TRUE(Commands::GetCommandArgs(Log).isEmpty()) << "the report clears the state";
}

TEST_F(CommandLine, EchoAfterTheRunAndDoneCommandsStaySilent) {
    const U32 SysVar = Id("Edit.SysVar");
    QAction* A = Commands::GetCommandAction(SysVar);
    Commands::ParseCommandLine("Edit.SysVar (0, 2)");
    Commands::ReportCommandTriggered(A);
    EXPECT_TRUE(TakeConsole().isEmpty()) << "echo comes after the run";
    Commands::SetDisplayArgs(SysVar, {"0", "RM_RESET_AND_RUN"});
    Commands::ReportCommandPerformed(A);
    EXPECT_EQ(TakeConsole(), QStringList({"Edit.SysVar (0, RM_RESET_AND_RUN);"}));

    Commands::ParseCommandLine("Edit.SysVar (0, 2, 0)");
    Commands::SetCommandDone(SysVar);
    Commands::ReportCommandPerformed(A);
    EXPECT_TRUE(TakeConsole().isEmpty());
}

TEST_F(CommandLine, VeryLongLinesAreHandled) {
    const QString Text = QString(100000, 'x');
    EXPECT_EQ(Commands::ExecuteCommandLine(Text), 0);
    const QStringList Lines = TakeConsole();
    ASSERT_EQ(Lines.size(), 1);
    EXPECT_EQ(Lines.first().toUtf8().size(), 1000) << "the Console keeps at most 1000 bytes of a line";
    const PARSED_COMMAND P = Commands::ParseCommandLine("Util.Log (\"" + QString(100000, 'y') + "\")");
    ASSERT_TRUE(P.Found);
    EXPECT_EQ(P.Args.first().size(), 100000);
}

} // namespace
