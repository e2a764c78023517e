#include "ArnexProcess.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QSettings>

#include <gtest/gtest.h>

namespace {

TEST(Startup, EchoesAndRunsTypedLines) {
    ArnexProcess Arnex;
    const ArnexRun R = Arnex.Exec({"Util.Log (\"a,b\")", "Util.LogHex \"PC=\" 0x1F"});
    ASSERT_TRUE(R.Finished);
    EXPECT_EQ(R.ExitCode, 0) << R.Stderr.toStdString();
    EXPECT_EQ(R.Lines,
              QStringList({"Util.Log (\"a,b\");", "a,b", "Util.LogHex (\"PC=\", 0x1F);", "PC=0x0000001F"}));
}

TEST(Startup, NamesTheProbeLibraryBesideTheProgram) {
    ArnexProcess Arnex;
    const ArnexRun R = Arnex.Exec({"Util.Log x"});
    EXPECT_EQ(R.Startup,
              "Tarvo software found at: " + qEnvironmentVariable("ARNEX_BIN_DIR") + "/libtarvo.so");
}

TEST(Startup, HelpTableHasItsColumns) {
    ArnexProcess Arnex;
    const ArnexRun R = Arnex.Exec({"help"});
    ASSERT_TRUE(R.Finished);
    EXPECT_EQ(R.ExitCode, 0);
    ASSERT_GT(R.Lines.size(), 150);
    EXPECT_EQ(R.Lines[0], "Help.Commands();");
    EXPECT_EQ(R.Lines[1], QString("Command").leftJustified(29) + QString("Arguments").leftJustified(27) +
                              QString("Hotkey").leftJustified(20) + "Description");
    const QStringList Open = R.Lines.filter(QRegularExpression("^File\\.Open "));
    ASSERT_EQ(Open.size(), 1);
    EXPECT_EQ(Open[0].mid(29, 10), "FileName  ");
    EXPECT_EQ(Open[0].mid(56, 8), "Ctrl+O  ");
    EXPECT_EQ(Open[0].mid(76), "Opens a project, program or source file");
    EXPECT_FALSE(R.Lines.filter(QRegularExpression("^Util\\.Sleep +ms ")).isEmpty());
}

TEST(Startup, UnknownAndDisabledCommandsFailTheRun) {
    ArnexProcess Arnex;
    ArnexRun R = Arnex.Exec({"Frobnicate (1);"});
    EXPECT_EQ(R.ExitCode, 1);
    EXPECT_EQ(R.Lines, QStringList({"Frobnicate (1): unknown command. Type ? or help for a list of available "
                                    "commands."}));
    R = Arnex.Exec({"Debug.Start"});
    EXPECT_EQ(R.ExitCode, 1);
    EXPECT_EQ(R.Lines, QStringList({"Debug.Start: Command disabled"}));
    R = Arnex.Exec({"Window.Show (\"NoSuchWindow\")"});
    EXPECT_EQ(R.ExitCode, 1);
    EXPECT_EQ(R.Lines.last(), "Window.Show (\"NoSuchWindow\"); unknown window");
    R = Arnex.Exec({"Util.Sleep (abc)"});
    EXPECT_EQ(R.Lines.last(), "Util.Sleep (abc); not a number");
    R = Arnex.Exec({"Util.Log"});
    EXPECT_EQ(R.Lines.last(), "Util.Log(); wrong parameter count");
}

TEST(Startup, WindowsAndToolbarsByName) {
    ArnexProcess Arnex;
    const ArnexRun R = Arnex.Exec({"window.show console", "Window.Close Console", "Window.Show (\"CONSOLE\")",
                                   "Toolbar.Show File", "Toolbar.Close (\"Debug\")", "Window.Clear Console",
                                   "Util.Log after"});
    EXPECT_EQ(R.ExitCode, 0);
    EXPECT_EQ(R.Lines.last(), "after");
    QSettings Store(Arnex.SettingsFile(), QSettings::IniFormat);
    EXPECT_EQ(Store.value("AppData/Perspectives/Debug/ToolbarFileState").toString(), "true");
    EXPECT_EQ(Store.value("AppData/Perspectives/Debug/ToolbarDebugState").toString(), "false");
}

TEST(Startup, SleepKeepsTheProgramAlive) {
    ArnexProcess Arnex;
    const ArnexRun R = Arnex.Exec({"Util.Sleep 200", "Util.Log done"});
    EXPECT_EQ(R.ExitCode, 0);
    EXPECT_EQ(R.Lines.last(), "done");
}

TEST(Startup, AboutBoxAnswersItselfWhenUnattended) {
    ArnexProcess Arnex;
    const ArnexRun R = Arnex.Exec({"Help.About"});
    EXPECT_EQ(R.ExitCode, 0);
    ASSERT_EQ(R.Lines.size(), 2);
    EXPECT_TRUE(R.Lines[1].startsWith("[About Arnex] Arnex - The Tarvo Debugger Version V2.60h, built "));
    EXPECT_TRUE(R.Lines[1].endsWith("-> OK (unattended: default answer)"));
}

TEST(Startup, ExitStopsTheRemainingLines) {
    ArnexProcess Arnex;
    const ArnexRun R = Arnex.Run({"-exec", "File.Exit", "-exec", "Util.Log never"});
    ASSERT_TRUE(R.Finished) << "File.Exit ends the program without -quit";
    EXPECT_EQ(R.ExitCode, 0);
    EXPECT_EQ(R.Lines, QStringList({"File.Exit();"}));
}

TEST(Startup, ExitDuringASessionEndsTheSessionFirst) {
    ArnexProcess Arnex;
    const QString Demo =
        QDir::cleanPath(qEnvironmentVariable("ARNEX_BIN_DIR") + "/../firmware/demo-O0-dwarf4.elf");
    const QString Project = Arnex.TempPath("fake.tvproj");
    QFile F(Project);
    ASSERT_TRUE(F.open(QIODevice::WriteOnly));
    F.write(("void OnProjectLoad (void) {\n  Project.SetDevice (\"FAKE\");\n  Project.SetHostIF (\"USB\", "
             "\"\");\n"
             "  File.Open (\"" +
             Demo +
             "\");\n}\n"
             "void AfterTargetDisconnect (void) {\n  Util.Log (\"Ran AfterTargetDisconnect\");\n}\n")
                .toUtf8());
    F.close();
    const ArnexRun R =
        Arnex.Run({Project, "-exec", "Debug.Connect", "-exec", "File.Exit", "-exec", "Util.Log never"});
    ASSERT_TRUE(R.Finished) << "File.Exit ends the program once the session has ended";
    const std::string All = R.Lines.join('\n').toStdString();
    EXPECT_EQ(R.ExitCode, 0) << All;
    const qsizetype Asked =
        R.Lines.indexOf("[Stop Debugging] Close this Session? -> Yes (unattended: default answer)");
    ASSERT_GE(Asked, 0) << All;
    EXPECT_GT(R.Lines.indexOf("Tarvo: connected to target device"), 0) << All;
    EXPECT_GT(R.Lines.indexOf("Ran AfterTargetDisconnect"), Asked) << "the session ends as by Debug.Stop\n"
                                                                   << All;
    EXPECT_FALSE(R.Lines.contains("never"));
}

TEST(Startup, StaleSettingsVanishAndJunkDoesNoHarm) {
    ArnexProcess Arnex;
    QDir().mkpath(Arnex.ConfigHome() + "/Tolvek");
    {
        QSettings Store(Arnex.SettingsFile(), QSettings::IniFormat);
        Store.setValue("AppData/OldVersion/Obsolete", 42);
        Store.setValue("AppData/MainWindow/Geometry", QByteArray("not a geometry"));
    }
    ArnexRun R = Arnex.Exec({"Util.Log ok"});
    EXPECT_EQ(R.ExitCode, 0);
    {
        QSettings Store(Arnex.SettingsFile(), QSettings::IniFormat);
        EXPECT_FALSE(Store.contains("AppData/OldVersion/Obsolete"));
        EXPECT_EQ(Store.value("AppData/MainWindow/Version").toString(), "V2.60h");
    }

    QFile Junk(Arnex.SettingsFile());
    ASSERT_TRUE(Junk.open(QIODevice::WriteOnly));
    Junk.write(QByteArray("\x00\xff[[[=\n\x01\x02junk=\\", 16).repeated(500));
    Junk.close();
    R = Arnex.Exec({"Util.Log ok"});
    EXPECT_EQ(R.ExitCode, 0);
    EXPECT_EQ(R.Lines.last(), "ok");
}

TEST(Startup, BadLogPathsAndHugeLines) {
    ArnexProcess Arnex;
    const QString Huge = "Util.Log (\"" + QString(100000, 'z') + "\")";
    const ArnexRun R = Arnex.Exec({Huge, QString(100000, 'q'), "Util.Log end"},
                                  {"-logfile", "/nonexistent/dir/arnex.log", "-loginterval", "abc"});
    ASSERT_TRUE(R.Finished);
    EXPECT_EQ(R.ExitCode, 1) << "the unknown 100000-character line is an error";
    EXPECT_EQ(R.Lines.last(), "end");
    for (const QString& Line : R.Lines) {
        EXPECT_LE(Line.toUtf8().size(), 1000);
    }
}

TEST(Startup, LogFileReceivesTheLog) {
    ArnexProcess Arnex;
    const QString Log = Arnex.TempPath("arnex.log");
    const ArnexRun R = Arnex.Exec({"Util.Log (\"into the file\")"}, {"-logfile", Log, "-loginterval", "1"});
    EXPECT_EQ(R.ExitCode, 0);
    QFile F(Log);
    ASSERT_TRUE(F.open(QIODevice::ReadOnly));
    EXPECT_TRUE(F.readAll().contains(" i  Into the file\n"));
}

TEST(Startup, ErrorsOfTheStartupFailAnUnattendedRun) {
    ArnexProcess Arnex;
    // The project named on the command line is missing.
    ArnexRun R = Arnex.Run({Arnex.TempPath("missing.tvproj"), "-exec", "Util.Log alive", "-quit"});
    ASSERT_TRUE(R.Finished);
    EXPECT_EQ(R.Lines.last(), "alive");
    EXPECT_EQ(R.ExitCode, 1) << R.Lines.join('\n').toStdString();
    // The project of the command line can't be made: a required argument is missing.
    R = Arnex.Run({"-device", "STM32F407VG", "-usb", "-exec", "Util.Log alive", "-quit"});
    EXPECT_TRUE(R.Lines.contains("Failed to create project from command line arguments: required argument "
                                 "\"target interface\" is missing."));
    EXPECT_EQ(R.ExitCode, 1);
    R = Arnex.Run({"-device", "STM32F407VG", "-usb", "-quit"});
    EXPECT_EQ(R.ExitCode, 1) << "-quit alone";
}

TEST(Startup, ToolkitMessagesOfTheWindowsConstructionReachTheLog) {
    ArnexProcess Arnex;
    QDir().mkpath(Arnex.ConfigHome() + "/Tolvek");
    {
        // A font the toolkit can't read: it complains while the main window loads its fonts.
        QSettings Store(Arnex.SettingsFile(), QSettings::IniFormat);
        Store.setValue("AppData/Preferences/Fonts/FONT_CONSOLE", QString(40, ','));
    }
    const QString Log = Arnex.TempPath("arnex.log");
    const ArnexRun R = Arnex.Exec({"Util.Log alive"}, {"-logfile", Log, "-loginterval", "1"});
    ASSERT_TRUE(R.Finished);
    QFile F(Log);
    ASSERT_TRUE(F.open(QIODevice::ReadOnly));
    const QString Text = QString::fromUtf8(F.readAll());
    EXPECT_TRUE(Text.contains("[W] QFont::fromString: Invalid description")) << Text.toStdString();
    EXPECT_FALSE(R.Stderr.contains("QFont::fromString")) << R.Stderr.toStdString();
}

TEST(Startup, AbsurdCommandLines) {
    ArnexProcess Arnex;
    QStringList Args;
    for (int i = 0; i < 500; ++i) {
        Args << "-device"
             << "---"
             << "-select"
             << "usb="
             << "-usb"
             << "x.tvproj.nothere";
    }
    const ArnexRun R = Arnex.Exec({"Util.Log alive"}, Args);
    ASSERT_TRUE(R.Finished);
    EXPECT_EQ(R.Lines.last(), "alive");
}

} // namespace

namespace {

TEST(Preferences, KeptPreferencesSurviveARestart) {
    ArnexProcess Arnex;
    ArnexRun R = Arnex.Exec(
        {"Edit.Preference (PREF_MAX_SYMBOL_MEMBERS, 1000, 1, 1)", "Edit.Preference (PREF_SHOW_TOOLTIPS, 0)",
         "Edit.Preference (PREF_RESET_DIALOG_DNSA, 1, 1, 1)", "Edit.Color (COLOR_SYNTAX_TEXT, \"#102030\")"});
    ASSERT_EQ(R.ExitCode, 0) << R.Lines.join('\n').toStdString();
    {
        QSettings Store(Arnex.SettingsFile(), QSettings::IniFormat);
        EXPECT_EQ(Store.value("AppData/Preferences/Preferences/PREF_MAX_SYMBOL_MEMBERS").toString(), "1000");
        EXPECT_EQ(Store.value("AppData/Preferences/Preferences/PREF_SHOW_TOOLTIPS").toString(), "1")
            << "not kept without the store flag";
        EXPECT_EQ(Store.value("AppData/Preferences/Colors/COLOR_SYNTAX_TEXT").toString(), "#102030");
        EXPECT_FALSE(Store.contains("AppData/Preferences/Colors/COLOR_LOGGING_USER"));
    }
    R = Arnex.Exec({"Util.Log again"});
    ASSERT_EQ(R.ExitCode, 0);
    QSettings Store(Arnex.SettingsFile(), QSettings::IniFormat);
    EXPECT_EQ(Store.value("AppData/Preferences/Preferences/PREF_MAX_SYMBOL_MEMBERS").toString(), "1000")
        << "loaded and written back";
    EXPECT_EQ(Store.value("AppData/Preferences/Preferences/PREF_RESET_DIALOG_DNSA").toString(), "0")
        << "cleared at every start";
    EXPECT_EQ(Store.value("AppData/Preferences/Colors/COLOR_SYNTAX_TEXT").toString(), "#102030");
}

TEST(Preferences, VariableErrorsInTheirWords) {
    ArnexProcess Arnex;
    const ArnexRun R = Arnex.Exec({"Edit.SysVar (\"VAR_NOPE\", 1)", "Edit.Preference (999, 1)",
                                   "Edit.SysVar (VAR_ACCESS_WIDTH, Dword)", "Edit.Color (NOPE, \"#000000\")",
                                   "Edit.Font (FONT_NOPE, \"Sans,9\")"});
    EXPECT_EQ(R.ExitCode, 1);
    EXPECT_EQ(R.Lines, QStringList({"Edit.SysVar (VAR_NOPE, 1); unknown system variable",
                                    "Edit.Preference (999, 1); unknown preference",
                                    "Edit.SysVar (VAR_ACCESS_WIDTH, Dword); invalid parameter",
                                    "Edit.Color (NOPE, \"#000000\"); unknown color",
                                    "Edit.Font (FONT_NOPE, \"Sans,9\"); unknown font"}));
}

} // namespace
