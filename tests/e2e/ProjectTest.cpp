#include "ArnexProcess.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QSettings>

#include <gtest/gtest.h>

namespace {

QString WriteFile(const ArnexProcess& Arnex, const QString& Name, const QByteArray& Text) {
    const QString Path = Arnex.TempPath(Name);
    QFile F(Path);
    F.open(QIODevice::WriteOnly | QIODevice::Truncate);
    F.write(Text);
    return Path;
}

QByteArray ReadFile(const QString& Path) {
    QFile F(Path);
    return F.open(QIODevice::ReadOnly) ? F.readAll() : QByteArray();
}

const QString HEAD = "/" + QString(69, '*');

TEST(Project, OnProjectLoadConfiguresTheSession) {
    ArnexProcess Arnex;
    const QString Path = WriteFile(Arnex, "app.tvproj",
                                   "void OnProjectLoad (void) {\n"
                                   "  Project.SetDevice (\"STM32F407VG\");\n"
                                   "  Project.SetHostIF (\"IP\", \"10.0.0.9\");\n"
                                   "  Project.SetTargetIF (\"SWD\");\n"
                                   "  Project.SetTIFSpeed (\"1501 Hz\");\n"
                                   "}\n"
                                   "int Twice (int x) { return x + x; }\n");
    const QString Saved = Arnex.TempPath("saved.tvproj");
    const ArnexRun R = Arnex.Run({Path, "-exec", "File.SaveProjectAs \"" + Saved + "\"", "-quit"});
    ASSERT_TRUE(R.Finished);
    EXPECT_EQ(R.ExitCode, 0) << R.Lines.join('\n').toStdString();
    EXPECT_TRUE(R.Lines.contains("Executing script function: OnProjectLoad"));
    // What OnProjectLoad set is what the saved file says; the user's function goes along.
    const QString Text = QString::fromUtf8(ReadFile(Saved));
    EXPECT_TRUE(Text.contains("void OnProjectLoad (void) {\n"
                              "  Project.SetDevice (\"STM32F407VG\");\n"
                              "  Project.SetHostIF (\"IP\", \"10.0.0.9\");\n"
                              "  Project.SetTargetIF (\"SWD\");\n"
                              "  Project.SetTIFSpeed (\"2 kHz\");\n"
                              "  Project.AddPathSubstitute (\"" +
                              Arnex.ConfigHome() + "\", \"$(ProjectDir)\");\n"))
        << Text.toStdString();
    EXPECT_TRUE(Text.endsWith("int Twice (int x) { return x + x; }\n"));
    EXPECT_TRUE(QFile::exists(Saved + ".user")) << "the user file of the project as it closes";
    QSettings Store(Arnex.SettingsFile(), QSettings::IniFormat);
    EXPECT_EQ(Store.value("AppData/MainWindow/RecentProjects").toStringList(), QStringList({Saved}));
}

TEST(Project, SavedFileRoundTripsByteForByte) {
    ArnexProcess Arnex;
    const QString First = Arnex.TempPath("first.tvproj");
    ArnexRun R =
        Arnex.Exec({"File.NewProject", "Project.SetDevice \"STM32F407VG\"", "Project.SetHostIF (USB, 1234)",
                    "Project.SetTargetIF cJTAG", "Project.SetTIFSpeed \"12 MHz\"",
                    "File.SaveProjectAs \"" + Arnex.TempPath("first") + "\""});
    ASSERT_EQ(R.ExitCode, 0) << R.Lines.join('\n').toStdString();
    const QByteArray Text = ReadFile(First);
    EXPECT_EQ(Text.count(HEAD.toUtf8()), 15);
    EXPECT_TRUE(Text.contains("  Project.SetTIFSpeed (\"12 MHz\");\n"));

    const QString Second = Arnex.TempPath("second.tvproj");
    R = Arnex.Run({First, "-exec", "File.SaveProjectAs \"" + Second + "\"", "-quit"});
    ASSERT_EQ(R.ExitCode, 0) << R.Lines.join('\n').toStdString();
    EXPECT_EQ(ReadFile(Second), Text);
    // And once more from the copy, as the only argument.
    const QString Third = Arnex.TempPath("third.tvproj");
    R = Arnex.Run({Second, "-exec", "File.SaveProjectAs \"" + Third + "\"", "-quit"});
    EXPECT_EQ(ReadFile(Third), Text);
}

TEST(Project, WarningsOfBrokenProjectsAndTheProgramGoesOn) {
    ArnexProcess Arnex;
    QByteArray Junk;
    for (int i = 0; i < 3000; ++i) {
        Junk.append(static_cast<char>((i * 131 + 7) % 256));
    }
    const struct {
        const char* Name;
        QByteArray Text;
        const char* Warning;
    } Cases[] = {
        {"twice.tvproj",
         "void OnProjectLoad (void) {\n  Project.SetDevice (\"A\");\n  Project.AddSvdFile (\"a.svd\");\n"
         "  Project.AddSvdFile (\"b.svd\");\n  Project.SetDevice (\"B\");\n}\n",
         "Project warning (2075): project command specified twice: Project.SetDevice."},
        {"syntax.tvproj", "void OnProjectLoad (void) {\n  Util.Log(\"x\") y;\n}\n",
         "Project warning (2074): script interpretation failure: Expected a ';' at line 2."},
        {"unknown.tvproj", "void OnProjectLoad (void) {\n  Util.Log(\"x\");\n  Frob.Nicate (1);\n}\n",
         "Project warning (2074): script interpretation failure: syntax error at line 3."},
        {"noload.tvproj", "void Other (void) { }\n",
         "Project warning (2074): script interpretation failure: Required user function missing: void "
         "OnProjectLoad "
         "(void);."},
        {"junk.tvproj", Junk, "Project warning (2074): script interpretation failure: "},
        {"empty.tvproj", "", "Project warning (2074): script interpretation failure: empty file."},
    };
    for (const auto& C : Cases) {
        const QString Path = WriteFile(Arnex, C.Name, C.Text);
        const ArnexRun R = Arnex.Exec({"File.Open \"" + Path + "\"", "Util.Log alive"});
        ASSERT_TRUE(R.Finished) << C.Name;
        EXPECT_EQ(R.ExitCode, 1) << C.Name << " warnings are errors of the run";
        EXPECT_EQ(R.Lines.last(), "alive") << C.Name;
        EXPECT_EQ(R.Lines.filter(QString::fromLatin1(C.Warning)).size(), 1)
            << C.Name << "\n"
            << R.Lines.join('\n').toStdString();
        EXPECT_TRUE(R.Lines.contains("[Project File Warnings] dialog not shown while unattended")) << C.Name;
    }
    // The twice-given AddSvdFile is no warning; the missing files are, once.
    const ArnexRun R = Arnex.Exec({"File.Open \"" + Arnex.TempPath("twice.tvproj") + "\""});
    EXPECT_TRUE(R.Lines.filter("specified twice: Project.AddSvdFile").isEmpty());
    EXPECT_EQ(R.Lines.filter("Project warning (2069)").size(), 1);
}

TEST(Project, TheDemoOpensWithoutAWarning) {
    ArnexProcess Arnex;
    const QString Demo = QDir::cleanPath(qEnvironmentVariable("ARNEX_BIN_DIR") + "/../firmware/demo.tvproj");
    const ArnexRun R = Arnex.Run({Demo, "-quit"});
    ASSERT_TRUE(R.Finished);
    const std::string All = R.Lines.join('\n').toStdString();
    EXPECT_EQ(R.ExitCode, 0) << "nothing was logged as an error\n" << All;
    EXPECT_TRUE(R.Lines
                    .filter(QRegularExpression("warning|error|not found|could not",
                                               QRegularExpression::CaseInsensitiveOption))
                    .isEmpty())
        << All;
    EXPECT_FALSE(R.Lines.contains("[Project File Warnings] dialog not shown while unattended")) << All;
    // The core's registers come from the description the program brings for the Cortex-M3.
    EXPECT_TRUE(R.Lines.contains("No CPU register set description file specified, loading default: " +
                                 QDir::cleanPath(qEnvironmentVariable("ARNEX_BIN_DIR")) +
                                 "/Config/CPU/Cortex-M3.svd"))
        << All;
    EXPECT_TRUE(R.Lines.contains("File.Open (\"$(ProjectDir)/demo-O0-dwarf4.elf\");")) << All;
}

TEST(Project, CreatedFromTheCommandLine) {
    ArnexProcess Arnex;
    const QString Path = Arnex.TempPath("new.tvproj");
    ArnexRun R = Arnex.Run({"-device", "STM32F407VG", "-if", "SWD", "-usb", "-project", Path, "-quit"});
    ASSERT_TRUE(R.Finished);
    EXPECT_EQ(R.ExitCode, 0);
    QString Text = QString::fromUtf8(ReadFile(Path));
    EXPECT_EQ(Text.count(HEAD), 15);
    EXPECT_TRUE(Text.contains("  //\n  // Dialog-generated settings\n  //\n"
                              "  Project.SetDevice (\"STM32F407VG\");\n"
                              "  Project.SetHostIF (\"USB\", \"\");\n"
                              "  Project.SetTargetIF (\"SWD\");\n"))
        << Text.toStdString();
    EXPECT_TRUE(R.Lines.contains("Project.SetDevice (\"STM32F407VG\");")) << "the project was loaded";
    // The device's core names the core plug-in, whose line stands with the probe settings.
    EXPECT_TRUE(Text.contains("  Project.SetCorePlugin (\"$(InstallDir)/Plugins/Core/CorePluginARM.so\");\n"))
        << Text.toStdString();
    EXPECT_TRUE(R.Lines.filter("Invalid device name").isEmpty());

    // An existing file gets the command line's settings in its dialog section, and then opens.
    R = Arnex.Run({"-device", "MK66FN2M0XXX18", "-if", "JTAG", "-ip", "10.1.1.1", "-speed", "2000",
                   "-project", Path, "-quit"});
    EXPECT_EQ(R.ExitCode, 0);
    EXPECT_TRUE(R.Lines.contains("Project settings were written to the project file"));
    EXPECT_TRUE(R.Lines.contains("Project.SetTIFSpeed (\"2000\");"));
    Text = QString::fromUtf8(ReadFile(Path));
    EXPECT_EQ(Text.count("Project.SetDevice"), 1);
    EXPECT_TRUE(Text.contains(
        "  Project.SetDevice (\"MK66FN2M0XXX18\");\n  Project.SetHostIF (\"IP\", \"10.1.1.1\");\n"
        "  Project.SetTargetIF (\"JTAG\");\n  Project.SetTIFSpeed (\"2000\");\n"));

    // A missing piece: the message, and no file.
    const QString None = Arnex.TempPath("none.tvproj");
    R = Arnex.Run({"-device", "STM32F407VG", "-usb", "-project", None, "-quit"});
    EXPECT_TRUE(
        R.Lines.contains("Failed to create project from command line arguments: required argument \"target "
                         "interface\" is missing."))
        << R.Lines.join('\n').toStdString();
    EXPECT_FALSE(QFile::exists(None));
    R = Arnex.Run({"-device", "STM32F407VG", "-if", "SWD", "-quit"});
    EXPECT_TRUE(R.Lines.contains("Failed to create project from command line arguments: required argument "
                                 "\"host interface\" is missing."));

    // A device that the probe library doesn't know is said, and the project is made all the same.
    const QString Unknown = Arnex.TempPath("unknown.tvproj");
    R = Arnex.Run({"-device", "NOSUCHCHIP", "-if", "SWD", "-usb", "-project", Unknown, "-quit"});
    EXPECT_EQ(R.Lines.filter("Invalid device name supplied to function GetDeviceInfo.").size(), 1)
        << R.Lines.join('\n').toStdString();
    Text = QString::fromUtf8(ReadFile(Unknown));
    EXPECT_TRUE(Text.contains("  Project.SetDevice (\"NOSUCHCHIP\");\n"));
    EXPECT_FALSE(Text.contains("Project.SetCorePlugin"));
}

TEST(Project, RecentListsHoldAbsolutePaths) {
    ArnexProcess Arnex;
    QDir(Arnex.ConfigHome()).mkpath("sub");
    const QString Path = WriteFile(Arnex, "sub/rel.tvproj", "void OnProjectLoad (void) { }\n");
    QFile::copy(qEnvironmentVariable("ARNEX_BIN_DIR") + "/../firmware/demo-O0-dwarf4.elf",
                Arnex.TempPath("sub/prog.elf"));
    // Relative to the working folder of the run, which is the settings folder.
    ArnexRun R = Arnex.Run({"sub/rel.tvproj", "-exec", "File.Open sub/prog.elf", "-quit"});
    ASSERT_EQ(R.ExitCode, 0) << R.Lines.join('\n').toStdString();
    QSettings Store(Arnex.SettingsFile(), QSettings::IniFormat);
    EXPECT_EQ(Store.value("AppData/MainWindow/RecentProjects").toStringList(), QStringList({Path}));
    EXPECT_EQ(Store.value("AppData/MainWindow/RecentPrograms").toStringList(),
              QStringList({Arnex.TempPath("sub/prog.elf")}));
}

TEST(Project, JunkUserFileDoesNoHarmAndIsWrittenAnew) {
    ArnexProcess Arnex;
    const QString Path = WriteFile(Arnex, "j.tvproj", "void OnProjectLoad (void) { }\n");
    QByteArray Junk;
    for (int i = 0; i < 20000; ++i) {
        Junk.append(static_cast<char>((i * 37 + i / 7) % 256));
    }
    Junk += "\nOpenWindow=\"Console\", DockArea=, x=zz, y=, w=-5, h=99999999999\nOpenToolbar\n=\n,,,\n";
    WriteFile(Arnex, "j.tvproj.user", Junk);
    const ArnexRun R = Arnex.Run({Path, "-exec", "Util.Log alive", "-quit"});
    ASSERT_TRUE(R.Finished);
    EXPECT_EQ(R.ExitCode, 0);
    EXPECT_EQ(R.Lines.last(), "alive");
    EXPECT_TRUE(ReadFile(Path + ".user").contains("OpenWindow=\"Console\", DockArea=BOTTOM"));
}

TEST(Project, AProjectFileArgumentWinsOverTheDevice) {
    ArnexProcess Arnex;
    const QString Path =
        WriteFile(Arnex, "first.tvproj", "void OnProjectLoad (void) { Util.Log(\"first\"); }\n");
    const QString Other = Arnex.TempPath("other.tvproj");
    const ArnexRun R =
        Arnex.Run({Path, "-device", "STM32F407VG", "-if", "SWD", "-usb", "-project", Other, "-quit"});
    EXPECT_EQ(R.ExitCode, 0);
    EXPECT_TRUE(R.Lines.contains("first"));
    EXPECT_FALSE(R.Lines.contains("Project.SetDevice (\"STM32F407VG\");"));
    EXPECT_FALSE(QFile::exists(Other));
}

TEST(Project, UnattendedRunsNeverWaitAndRecentListsAreFiltered) {
    ArnexProcess Arnex;
    const QString Kept = WriteFile(Arnex, "kept.tvproj", "void OnProjectLoad (void) { }\n");
    QDir().mkpath(Arnex.ConfigHome() + "/Tolvek");
    {
        QSettings Store(Arnex.SettingsFile(), QSettings::IniFormat);
        Store.setValue("AppData/MainWindow/RecentProjects",
                       QStringList({Arnex.TempPath("gone.tvproj"), Kept, WriteFile(Arnex, "x.txt", "x")}));
        Store.setValue("AppData/MainWindow/RecentPrograms", QStringList({Arnex.TempPath("gone.elf"), Kept}));
    }
    // Recent projects would bring up the welcome screen; unattended, nothing waits.
    ArnexRun R =
        Arnex.Exec({"File.NewProject", "File.SaveProjectAs", "File.NewProjectWizard", "Util.Log done"});
    ASSERT_TRUE(R.Finished);
    EXPECT_EQ(R.ExitCode, 0) << R.Lines.join('\n').toStdString();
    EXPECT_EQ(R.Lines.last(), "done");
    EXPECT_TRUE(R.Lines.contains("[New Project Wizard] dialog not shown while unattended"));
    QSettings Store(Arnex.SettingsFile(), QSettings::IniFormat);
    EXPECT_EQ(Store.value("AppData/MainWindow/RecentProjects").toStringList(), QStringList({Kept}));
    EXPECT_TRUE(Store.value("AppData/MainWindow/RecentPrograms").toStringList().isEmpty());

    // File.OpenRecent by index, and its errors.
    R = Arnex.Exec({"File.OpenRecent 0", "File.OpenRecent 7"});
    EXPECT_TRUE(R.Lines.contains("Executing script function: OnProjectLoad"));
    EXPECT_EQ(R.Lines.last(), "File.OpenRecent (7); invalid parameter");
}

} // namespace
