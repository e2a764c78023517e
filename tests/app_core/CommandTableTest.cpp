#include "CommandFixture.h"

#include <QKeySequence>
#include <QRegularExpression>
#include <QSet>

namespace {

TEST(CommandRows, IdsEqualIndicesAndNamesAreWellFormed) {
    QSet<QString> ActionNames;
    int Named = 0;
    for (U32 Id = 0; Id < COMMAND_COUNT; ++Id) {
        const COMMAND_ROW_DEF& Row = g_CommandRows[Id];
        EXPECT_EQ(Row.Id, Id);
        const QString Action = QString::fromLatin1(Row.ActionName).toLower();
        EXPECT_FALSE(Action.isEmpty()) << Id;
        EXPECT_FALSE(ActionNames.contains(Action)) << "action name twice: " << Row.ActionName;
        ActionNames.insert(Action);
        const QString Proto = QString::fromLatin1(Row.Prototype);
        if (!Proto.isEmpty()) {
            ++Named;
            EXPECT_TRUE(Proto.startsWith("__api__ ")) << Id;
            EXPECT_TRUE(Proto.endsWith(";")) << Id;
            EXPECT_FALSE(Commands::GetCommandName(Id).isEmpty()) << Id;
            EXPECT_TRUE(Row.Flags & CF_ECHO) << Id;
        } else {
            EXPECT_FALSE(Row.Scriptable) << Id;
        }
    }
    EXPECT_EQ(Named, 180);
}

TEST(CommandRows, SystemVariablesOfSevenRows) {
    const struct {
        const char* Name;
        I32 Var;
    } Expected[] = {{"Debug.SetResetMode", 0},        {"Debug.SetConnectMode", 1},
                    {"Project.SetSemihosting", 2},    {"Project.SetMCT", 3},
                    {"Target.SetAccessWidth", 9},     {"Project.SetBPType", 10},
                    {"Project.SetMemZoneRunning", 16}};
    int Count = 0;
    for (U32 Id = 0; Id < COMMAND_COUNT; ++Id) {
        Count += g_CommandRows[Id].SysVar != COMMAND_NO_SYSVAR;
    }
    EXPECT_EQ(Count, 7);
    for (const auto& E : Expected) {
        const I32 Id = Commands::FindCommand(E.Name);
        ASSERT_GE(Id, 0) << E.Name;
        EXPECT_EQ(g_CommandRows[Id].SysVar, E.Var) << E.Name;
    }
}

TEST(CommandRows, OnlyEditCopyTakesRawArguments) {
    for (U32 Id = 0; Id < COMMAND_COUNT; ++Id) {
        EXPECT_EQ((g_CommandRows[Id].Flags & CF_RAW_ARGS) != 0, Commands::GetCommandName(Id) == "Edit.Copy")
            << Id;
    }
}

TEST(CommandRows, AliasesPointBothWays) {
    EXPECT_EQ(Commands::GetCommandAlias(Commands::FindCommand("Watch.Add")), "Watch");
    EXPECT_EQ(Commands::GetCommandAlias(Commands::FindCommand("Window.SetDisplayFormat")),
              "Window.SetNumberBase");
    EXPECT_EQ(Commands::GetCommandAlias(Commands::FindCommand("Break.Edit")), "Edit.Break");
    EXPECT_EQ(Commands::GetCommandAlias(Commands::FindCommand("Project.AddSvdFile")),
              "Project.SetPeripheralFile");
    EXPECT_EQ(Commands::GetCommandAlias(Commands::FindCommand("Tools.SysVars")), "Edit.SysVars");
    EXPECT_EQ(Commands::GetCommandAlias(Commands::FindCommand("Help.UserGuide")), "Help.Manual");
    EXPECT_TRUE(Commands::GetCommandAlias(Commands::FindCommand("File.Open")).isEmpty());
    int WithAlias = 0;
    for (U32 Id = 0; Id < COMMAND_COUNT; ++Id) {
        WithAlias += !Commands::GetCommandAlias(Id).isEmpty();
    }
    EXPECT_EQ(WithAlias, 15) << "of the 16 pairs only Trace and Trace.Add have no row";
}

TEST(CommandRows, LookUpsAndParameters) {
    EXPECT_EQ(Commands::FindCommand("File.Open"), 2);
    EXPECT_EQ(Commands::FindCommand("file.open"), -1) << "the script side compares exactly";
    EXPECT_EQ(Commands::FindCommand("Edit.Break"), Commands::FindCommand("Break.Edit"));
    EXPECT_EQ(Commands::FindCommand(""), -1);
    EXPECT_EQ(Commands::GetCommandParamCount(0), 0) << "void counts as none";
    EXPECT_EQ(Commands::GetCommandParamCount(84), 0) << "() counts as none";
    EXPECT_EQ(Commands::GetCommandParamCount(154), 6);
    EXPECT_TRUE(Commands::IsStringParam(2, 0));
    EXPECT_FALSE(Commands::IsStringParam(4, 1));
    EXPECT_TRUE(Commands::IsStringParam(158, 0)) << "unsigned char* is a string";
    EXPECT_FALSE(Commands::IsStringParam(158, 1)) << "unsigned char is not";
    EXPECT_FALSE(Commands::IsStringParam(2, 5));

    const COMMAND_INFO Outside = Commands::GetCommandInfo(353);
    EXPECT_EQ(Outside.Id, 353u);
    EXPECT_TRUE(Outside.Prototype.isEmpty());
    EXPECT_EQ(Commands::ExecCommand(353), -1);
    EXPECT_EQ(Commands::TriggerCommand(400), -1);
}

TEST(CommandRows, AlternativeHotkeys) {
    EXPECT_EQ(Commands::AlternativeHotkeyFor("Ctrl++"), "Ctrl+=");
    EXPECT_EQ(Commands::AlternativeHotkeyFor("Alt++"), "Alt+=");
    EXPECT_EQ(Commands::AlternativeHotkeyFor("+"), "=");
    EXPECT_EQ(Commands::AlternativeHotkeyFor("Ctrl+F5"), "F6");
    EXPECT_TRUE(Commands::AlternativeHotkeyFor("F5").isEmpty());
    const QList<U32> F6 = Commands::FindRowsByAlternativeHotkey("F6");
    ASSERT_EQ(F6.size(), 1);
    EXPECT_EQ(Commands::GetCommandName(F6.first()), "Debug.Halt");
    EXPECT_EQ(Commands::FindRowsByAlternativeHotkey("Ctrl+=").size(), 1);
    EXPECT_GE(Commands::FindRowsByAlternativeHotkey("Alt+=").size(), 3u);
}

using Binding = CommandFixture;

TEST_F(Binding, ActionsTakeHotkeyTipsAndEnabledMark) {
    QAction* Open = Commands::GetCommandAction(2);
    ASSERT_NE(Open, nullptr);
    EXPECT_EQ(Open->shortcut(), QKeySequence("Ctrl+O"));
    EXPECT_EQ(Open->statusTip(), QString::fromLatin1(g_CommandRows[2].StatusTip));
    EXPECT_TRUE(
        Open->toolTip().endsWith(" (" + QKeySequence("Ctrl+O").toString(QKeySequence::NativeText) + ")"));
    EXPECT_TRUE(Commands::IsCommandEnabled(2));
    EXPECT_EQ(Commands::GetCommandIdOfAction(Open), 2);

    Commands::SetCommandEnabled(2, false);
    EXPECT_FALSE(Open->isEnabled());
    EXPECT_FALSE(Commands::IsCommandEnabled(2));
}

TEST_F(Binding, UnknownActionsAreCollectedOnceInOrder) {
    QObject Other;
    (new QAction(&Other))->setObjectName("actionZeta");
    (new QAction(&Other))->setObjectName("actionAlpha");
    (new QAction(&Other))->setObjectName("actionZeta");
    (new QAction(&Other))->setObjectName("");
    (new QAction(&Other))->setObjectName("ACTIONFILEOPEN");
    Commands::BindActions(&Other);
    EXPECT_EQ(Commands::GetUnlinkedActions(), QStringList({"actionAlpha", "actionZeta"}));
    EXPECT_EQ(Commands::GetCommandAction(2)->parent(), &Other) << "the last window bound wins, any case";
}

TEST_F(Binding, ArgumentsErrorsAndResultsLiveOnTheAction) {
    const U32 Log = Id("Util.Log");
    Commands::SetCommandArgs(Log, {"\"quoted\"", "x"});
    EXPECT_EQ(Commands::GetCommandArgs(Log), QStringList({"quoted", "x"}));
    EXPECT_FALSE(Commands::CheckCommandArgCount(Log));
    EXPECT_EQ(Commands::GetCommandError(Log), "wrong parameter count");
    Commands::ClearCommandState(Log);
    EXPECT_TRUE(Commands::GetCommandArgs(Log).isEmpty());
    EXPECT_TRUE(Commands::GetCommandError(Log).isEmpty());

    const U32 Write = Id("Target.WriteU32");
    Commands::SetCommandError(Write, "invalid parameter", "0xZZ");
    EXPECT_EQ(Commands::GetCommandError(Write), "invalid parameter: 0xZZ");
    Commands::SetCommandError(Log, "invalid parameter", "detail");
    EXPECT_EQ(Commands::GetCommandError(Log), "invalid parameter") << "one argument: no detail";

    Commands::SetCommandDone(Log);
    EXPECT_TRUE(Commands::IsCommandDone(Log));

    const U32 Copy = Id("Edit.Copy");
    Commands::SetDisplayArgs(Copy, {"\"0x1\u20082\""});
    EXPECT_EQ(Commands::GetCommandArgs(Copy).first(), QString("\"0x1\u20082\"")) << "raw arguments stay";
    Commands::SetDisplayArgs(Write, {"\"0x20\u2008000\"", "1"});
    EXPECT_EQ(Commands::GetCommandRawArgs(Write).first(), "0x20000");
}

TEST_F(Binding, ExecCommandGivesTheLastGoodResult) {
    const U32 Read = Id("Target.ReadU32");
    int Runs = 0;
    QObject::connect(Commands::GetCommandAction(Read), &QAction::triggered, [&]() {
        ++Runs;
        const QString Arg = Commands::GetCommandArgs(Read).value(0);
        if (Arg == "good") {
            Commands::SetCommandResult(Read, 0x1234);
        } else {
            Commands::SetCommandError(Read, "not connected");
        }
    });
    EXPECT_EQ(Commands::ExecCommand(Read, "good"), 0x1234);
    EXPECT_EQ(Commands::ExecCommand(Read, "bad"), 0x1234) << "a failing run leaves the result as it was";
    EXPECT_EQ(Runs, 2);

    Commands::SetCommandEnabled(Read, false);
    EXPECT_EQ(Commands::ExecCommand(Read, "good"), -1);
    EXPECT_EQ(Runs, 2) << "a disabled command never reaches its slot";
    EXPECT_EQ(TakeConsole().last(), "Target.ReadU32: Command disabled");
}

TEST_F(Binding, ExecCommandsRunsOnlyPermittedOnes) {
    int Runs = 0;
    for (U32 Id : {55u, 53u}) {
        QObject::connect(Commands::GetCommandAction(Id), &QAction::triggered, [&]() { ++Runs; });
    }
    Commands::SetCommandEnabled(53, false);
    EXPECT_EQ(Commands::ExecCommands({55, 53}).size(), 1);
    EXPECT_EQ(Runs, 1);
}

TEST_F(Binding, HelpListsEchoedCommandsInColumns) {
    const QStringList Help = Commands::GetCommandHelp();
    ASSERT_GT(Help.size(), 150);
    EXPECT_EQ(Help[0], QString("Command").leftJustified(29) + QString("Arguments").leftJustified(27) +
                           QString("Hotkey").leftJustified(20) + "Description");
    QStringList Names;
    for (int i = 1; i < Help.size(); ++i) {
        Names << Help[i].section(' ', 0, 0);
    }
    QStringList Sorted = Names;
    Sorted.sort();
    EXPECT_EQ(Names, Sorted);
    const QString Open = Help.filter(QRegularExpression("^File\\.Open ")).value(0);
    EXPECT_EQ(Open.mid(29, 8), "FileName");
    EXPECT_EQ(Open.mid(56, 6), "Ctrl+O");
    EXPECT_EQ(Open.mid(76), QString::fromLatin1(g_CommandRows[2].StatusTip));
    EXPECT_TRUE(Help.filter(QRegularExpression("^actionCPReset")).isEmpty());
}

} // namespace
