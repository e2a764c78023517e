// Writing project files: the settings groups, the system settings, a new file, and what a failed write
// leaves behind.

#include "ProjectFixture.h"

#include "program/LogCapture.h"
#include "script/ProjectText.h"
#include "script/TScript.h"

#include <QDir>

namespace {

using ProjectWriteTest = ProjectFixture;

QByteArray Generated(const QStringList& Lines) {
    return TScript::GenerateProjectText(Lines).toUtf8();
}

QByteArray LOGS_TEXT() {
    return "void OnProjectLoad (void) {\n  Util.Log(\"loaded\");\n}\n";
}

ProjectText::PROBE_SETTINGS Probe() {
    ProjectText::PROBE_SETTINGS P;
    P.Device = "STM32F407VG";
    P.HostIF = 1;
    P.HostIdent = "123";
    P.TargetIF = 1;
    P.Speed = 4000000;
    return P;
}

TEST_F(ProjectWriteTest, TraceGroupWrittenTwiceLeavesOneCopy) {
    Project()->Open(Write("p.tvproj", Generated({"Project.SetDevice (\"X\");", "File.Open (\"a.elf\");"})));
    const QStringList Trace = {"Project.SetTraceSource (\"Trace Pins\");", "Project.SetTracePortWidth (2);"};
    ASSERT_TRUE(Project()->WriteTraceSettings(Trace));
    ASSERT_TRUE(Project()->WriteTraceSettings(Trace));
    const QString Text = QString::fromUtf8(Read(Project()->GetPath()));
    EXPECT_EQ(Text.count("Project.SetTraceSource"), 1);
    EXPECT_EQ(Text.count("Project.SetTracePortWidth"), 1);
    EXPECT_TRUE(Text.contains(
        "  //\n  // Dialog-generated settings\n  //\n  Project.SetTraceSource (\"Trace Pins\");\n"
        "  Project.SetTracePortWidth (2);\n  Project.SetDevice (\"X\");\n"
        "  //\n  // User settings\n  //\n  File.Open (\"a.elf\");\n}\n"));
    EXPECT_EQ(TakeConsole().count("Trace settings were written to the project file"), 2);
    // The program's own write isn't taken for a change from outside.
    EXPECT_FALSE(TScript::ReloadIfChanged());
}

TEST_F(ProjectWriteTest, MissingMarkerIsLoggedAndTheLinesStillArrive) {
    LogCapture Log;
    Project()->Open(Write("p.tvproj", "void OnProjectLoad (void) {\n  Util.Log(\"mine\");\n}\n"));
    ASSERT_TRUE(Project()->WriteTarvoSettings({"Project.SetDevice (\"X\");"}));
    EXPECT_EQ(Read(Project()->GetPath()),
              "void OnProjectLoad (void) {\n  Util.Log(\"mine\");\n  Project.SetDevice (\"X\");\n}\n");
    // The log starts its lines with a capital.
    EXPECT_FALSE(
        Log.Lines()
            .filter("could not find dialog-generated text section in script function 'OnProjectLoad'",
                    Qt::CaseInsensitive)
            .isEmpty());
    EXPECT_TRUE(Log.Lines().filter("user settings text section", Qt::CaseInsensitive).isEmpty());
}

TEST_F(ProjectWriteTest, FailedWriteLeavesTheFileAsItWas) {
    LogCapture Log;
    const QByteArray Text = "void Other (void) { Project.SetDevice(\"A\"); }\n";
    Project()->Open(Write("p.tvproj", Text));
    EXPECT_FALSE(Project()->WriteTarvoSettings({"Project.SetDevice (\"X\");"}));
    EXPECT_EQ(Read(Project()->GetPath()), Text);
    EXPECT_EQ(Project()->GetLastWriteError(),
              "could not determine text insertion position.\nVerify that script "
              "function 'OnProjectLoad' is present.");
    EXPECT_FALSE(
        Log.Lines().filter("Could not determine text bounds of script function OnProjectLoad").isEmpty());
    EXPECT_EQ(QDir(m_Dir.path()).entryList(QDir::Files), QStringList({"p.tvproj"}));
}

TEST_F(ProjectWriteTest, WriteWithoutAFileAsksForOne) {
    Project()->CreateFromLines({"Project.SetDevice (\"X\");"});
    EXPECT_FALSE(Project()->WriteTraceSettings({"Project.SetTracePortWidth (1);"}));
    EXPECT_EQ(Project()->GetLastWriteError(), "project file path not specified");
    EXPECT_TRUE(TakeConsole().contains("Error writing project settings :project file path not specified"));

    const QString Chosen = m_Dir.filePath("chosen.tvproj");
    Project()->SetAskSaveAsHook([Chosen]() { return Chosen; });
    ASSERT_TRUE(Project()->WriteTraceSettings({"Project.SetTracePortWidth (1);"}));
    EXPECT_EQ(Project()->GetPath(), Chosen);
    EXPECT_FALSE(Project()->IsModified());
    const QString Text = QString::fromUtf8(Read(Chosen));
    EXPECT_EQ(Text.count("Project.SetTracePortWidth (1);"), 1);
    EXPECT_EQ(Text.count(QString("/") + QString(69, '*')), 15);
}

TEST_F(ProjectWriteTest, SaveKeepsUserFunctionsAndRoundTrips) {
    Project()->SetProbeSettingsHook(&Probe);
    const QByteArray Own = "\nint Twice (int x) {\n  return x + x;\n}\n";
    QByteArray Text0 = Generated({"Project.SetDevice (\"OLD\");"}) + Own;
    Text0.replace("  // User settings\n  //\n", "  // User settings\n  //\n  Util.Log(\"user\");\n");
    const QString First = Write("first.tvproj", Text0);
    Project()->Open(First);
    Project()->SetModified(true);
    const QString Second = m_Dir.filePath("second.tvproj");
    ASSERT_TRUE(Project()->SaveNew(Second));
    EXPECT_EQ(Project()->GetPath(), Second);
    EXPECT_FALSE(Project()->IsModified());
    const QString Text = QString::fromUtf8(Read(Second));
    EXPECT_TRUE(Text.endsWith(QString::fromUtf8(Own))) << "the user's own function stays";
    EXPECT_TRUE(
        Text.contains("  //\n  // Dialog-generated settings\n  //\n  Project.SetDevice (\"STM32F407VG\");\n"
                      "  Project.SetHostIF (\"USB\", \"123\");\n  Project.SetTargetIF (\"SWD\");\n"
                      "  Project.SetTIFSpeed (\"4 MHz\");\n  Project.AddPathSubstitute (\"" +
                      m_Dir.path() + "\", \"$(ProjectDir)\");\n"))
        << Text.toStdString();
    EXPECT_FALSE(Text.contains("OLD"));
    EXPECT_TRUE(Text.contains("  //\n  // User settings\n  //\n  Util.Log(\"user\");\n}\n"));
    // Open and save again: byte for byte the same.
    Project()->Open(Second);
    const QString Third = m_Dir.filePath("third.tvproj");
    ASSERT_TRUE(Project()->SaveNew(Third));
    EXPECT_EQ(Read(Second), Read(Third));
}

TEST_F(ProjectWriteTest, SaveOfANewProjectWritesAGeneratedFile) {
    Project()->SetProbeSettingsHook(&Probe);
    Project()->AddSvdFile("/somewhere/STM32F407.svd");
    const QString Path = m_Dir.filePath("new.tvproj");
    ASSERT_TRUE(Project()->SaveNew(Path));
    const QString Text = QString::fromUtf8(Read(Path));
    EXPECT_EQ(Text.count(QString("/") + QString(69, '*')), 15);
    EXPECT_TRUE(Text.contains("  Project.AddSvdFile (\"/somewhere/STM32F407.svd\");\n"));
    EXPECT_TRUE(TScript::HasUserFunction(1)) << "the written text is the project's script now";
}

TEST_F(ProjectWriteTest, FailedSaveKeepsThePathAndTheChanges) {
    const QString Path = Write("p.tvproj", LOGS_TEXT());
    Project()->Open(Path);
    Project()->SetModified(true);
    EXPECT_FALSE(Project()->SaveNew(m_Dir.filePath("no/such/dir/x.tvproj")));
    EXPECT_EQ(Project()->GetPath(), Path);
    EXPECT_TRUE(Project()->IsModified());
    EXPECT_EQ(Project()->GetLastWriteError(), "file could not be written");
    EXPECT_EQ(Read(Path), LOGS_TEXT());
}

TEST_F(ProjectWriteTest, AFailedScriptIsSavedAsTheUserWroteIt) {
    Project()->SetProbeSettingsHook(&Probe);
    // The error stops OnProjectLoad before the target interface is set: the session doesn't know it.
    const QByteArray Failing =
        "void OnProjectLoad (void) {\n  Project.SetDevice (\"A\");\n  Util.Log(\"x\") y;\n"
        "  Project.SetTargetIF (\"cJTAG\");\n}\n";
    Project()->Open(Write("failing.tvproj", Failing));
    ASSERT_NE(TScript::ExecUserFunction(1), 0);
    ASSERT_TRUE(Project()->SaveNew(m_Dir.filePath("copy.tvproj")));
    EXPECT_EQ(Read(m_Dir.filePath("copy.tvproj")), Failing);
    // A file that doesn't parse at all goes along as well.
    const QByteArray Broken = "void OnProjectLoad (void) {\n  Project.SetTargetIF (\"FINE\");\n}\n}}}\n";
    Project()->Open(Write("broken.tvproj", Broken));
    ASSERT_TRUE(Project()->SaveNew(m_Dir.filePath("broken2.tvproj")));
    EXPECT_EQ(Read(m_Dir.filePath("broken2.tvproj")), Broken);
}

TEST_F(ProjectWriteTest, ProjectFromTheCommandLineWritesOnlyItsLines) {
    const QByteArray Text = Generated({"Project.SetDevice (\"OLD\");", "Project.AddSvdFile (\"keep.svd\");"});
    const QString Path = Write("cmd.tvproj", Text);
    Project()->SetProbeSettingsHook(&Probe);
    Project()->SetCmdLineLinesHook([]() { return QStringList({"Project.SetDevice (\"CMD\");"}); });
    Project()->SetFromCmdLine(true);
    ASSERT_TRUE(Project()->SaveNew(Path));
    const QString Written = QString::fromUtf8(Read(Path));
    EXPECT_TRUE(Written.contains("  Project.SetDevice (\"CMD\");\n  Project.AddSvdFile (\"keep.svd\");\n"));
    EXPECT_FALSE(Written.contains("STM32F407VG")) << "the session's other settings are not written";
}

TEST_F(ProjectWriteTest, SystemSettingsThroughTheirCommands) {
    Project()->Open(Write("p.tvproj", Generated({})));
    EXPECT_TRUE(CProject::SystemSettingsLines().isEmpty()) << "nothing differs from its default";
    SysVars::SetVarValue(SysVars::GetVarRow(VAR_RESET_MODE), 2, false);
    SysVars::SetVarValue(SysVars::GetVarRow(VAR_TRACE_PORT_DELAY_0), -150, false);
    SysVars::SetVarValue(SysVars::GetVarRow(VAR_TRACE_PORT_WIDTH), 1, false);
    SysVars::SetVarText(SysVars::GetVarRow(VAR_BREAK_AT_THIS_SYMBOL), "Reset_Handler", 0);
    SysVars::SetVarText(SysVars::GetVarRow(VAR_MEM_ZONE_RUNNING), "AHB-AP", 0);
    const QStringList Lines = {"Debug.SetResetMode (RM_RESET_AND_RUN);",
                               "Edit.SysVar (VAR_BREAK_AT_THIS_SYMBOL, \"Reset_Handler\");",
                               "Project.SetMemZoneRunning (\"AHB-AP\");",
                               "Edit.SysVar (VAR_TRACE_PORT_WIDTH, 1);",
                               "Edit.SysVar (VAR_TRACE_PORT_DELAY_0, -150);"};
    EXPECT_EQ(CProject::SystemSettingsLines(), Lines);
    ASSERT_TRUE(Project()->WriteSystemSettings());
    ASSERT_TRUE(Project()->WriteSystemSettings());
    const QString Text = QString::fromUtf8(Read(Project()->GetPath()));
    EXPECT_TRUE(Text.contains("  // Dialog-generated settings\n  //\n  " + Lines.join("\n  ") + "\n  //\n"))
        << Text.toStdString();
    // Back at the defaults, the lines go.
    SysVars::ResetAll();
    ASSERT_TRUE(Project()->WriteSystemSettings());
    EXPECT_FALSE(QString::fromUtf8(Read(Project()->GetPath())).contains("SysVar"));
    EXPECT_EQ(TakeConsole().count("System settings were written to the project file"), 3);
    // A text variable's line gives the command its text, not the string's address.
    ASSERT_EQ(TScript::Parse(TScript::GenerateProjectText({Lines[1]})), 0);
    m_Runs.clear();
    ASSERT_EQ(TScript::ExecUserFunction(1), 0);
    ASSERT_EQ(m_Runs.size(), 1);
    EXPECT_EQ(m_Runs[0].Args, QStringList({"0xC", "Reset_Handler"}));
}

} // namespace

namespace {

// A save writes into the file as it is on disk: what a dialog or the user put there since the load stays,
// and a file changed from outside is written only on the user's word.
TEST_F(ProjectWriteTest, SaveWritesIntoTheFileAsItIsOnDisk) {
    Project()->SetProbeSettingsHook(&Probe);
    const QString Path = Write("p.tvproj", Generated({"Project.SetDevice (\"OLD\");"}));
    Project()->Open(Path);
    SysVars::SetVarValue(SysVars::GetVarRow(VAR_RESET_MODE), 2, false);
    ASSERT_TRUE(Project()->WriteSystemSettings());
    Project()->SetModified(true);
    ASSERT_TRUE(Project()->SaveNew(Path));
    QString Text = QString::fromUtf8(Read(Path));
    EXPECT_EQ(Text.count("  Debug.SetResetMode (RM_RESET_AND_RUN);\n"), 1) << "the dialog's line stays";
    EXPECT_TRUE(Text.contains("Project.SetDevice (\"STM32F407VG\");"));

    // A function added outside the program: no save over it without consent, and with it the function stays.
    const QByteArray Added = Read(Path) + "\nint Added (void) {\n  return 1;\n}\n";
    Write("p.tvproj", Added);
    Project()->SetModified(true);
    EXPECT_FALSE(Project()->SaveNew(Path));
    EXPECT_EQ(Read(Path), Added);
    EXPECT_EQ(Project()->GetPath(), Path);
    EXPECT_TRUE(Project()->IsModified());
    EXPECT_EQ(Project()->GetLastWriteError(), "the project file was changed by another program: " + Path);
    QStringList Asked;
    Project()->SetConfirmChangedFileHook([&Asked](const QString& P) {
        Asked << P;
        return true;
    });
    const QString Copy = m_Dir.filePath("copy.tvproj");
    ASSERT_TRUE(Project()->SaveNew(Copy));
    EXPECT_EQ(Asked, QStringList({Path}));
    EXPECT_TRUE(QString::fromUtf8(Read(Copy)).endsWith("int Added (void) {\n  return 1;\n}\n"));
    // The copy is the program's own write: saving it again asks nothing.
    ASSERT_TRUE(Project()->SaveNew(Copy));
    EXPECT_EQ(Asked.size(), 1);

    // A file that has lost its OnProjectLoad outside is never replaced by a generated text.
    const QByteArray Mangled = "void OnProjectLod (void) {\n}\nint Mine (void) { return 2; }\n";
    Write("copy.tvproj", Mangled);
    EXPECT_FALSE(Project()->SaveNew(Copy));
    EXPECT_EQ(Read(Copy), Mangled);
    Project()->SetConfirmChangedFileHook(nullptr);
}

TEST_F(ProjectWriteTest, ABrokenProjectFixedOutsideIsSavedFixed) {
    Project()->SetProbeSettingsHook(&Probe);
    const QString Path = Write(
        "b.tvproj", "void OnProjectLoad (void) {\n  Project.SetDevice (\"A\");\n  Util.Log(\"x\") y;\n}\n");
    Project()->Open(Path);
    ASSERT_NE(TScript::ExecUserFunction(1), 0);
    const QByteArray Fixed =
        "void OnProjectLoad (void) {\n  Project.SetDevice (\"A\");\n  Util.Log(\"x\");\n}\n";
    Write("b.tvproj", Fixed);
    Project()->SetModified(true);
    ASSERT_TRUE(Project()->SaveNew(Path));
    EXPECT_EQ(Read(Path), Fixed);
    ASSERT_TRUE(Project()->SaveNew(m_Dir.filePath("b2.tvproj")));
    EXPECT_EQ(Read(m_Dir.filePath("b2.tvproj")), Fixed);
}

// Bytes that aren't UTF-8, a byte order mark and CR LF line ends come back as they were; only the lines
// that a write changes are new, in the same form.
TEST_F(ProjectWriteTest, WriteBackKeepsTheFilesBytesAndLineEnds) {
    Project()->SetProbeSettingsHook(&Probe);
    const QStringList Trace = {"Project.SetTraceSource (\"Trace Pins\");"};
    QByteArray Latin = "// caf\xE9 \xA9 Tolvek\n" + Generated({"Project.SetDevice (\"X\");"});
    Latin.replace("}\n", "  Util.Log(\"d\xE9j\xE0\");\n}\n");
    const QString LatinPath = Write("latin.tvproj", Latin);
    Project()->Open(LatinPath);
    m_Runs.clear();
    ASSERT_EQ(TScript::ExecUserFunction(1), 0);
    ASSERT_FALSE(m_Runs.isEmpty());
    EXPECT_EQ(m_Runs.last().Args, QStringList({QString::fromUtf8("d\xC3\xA9j\xC3\xA0")}))
        << "read as Latin-1";
    ASSERT_TRUE(Project()->WriteTraceSettings(Trace));
    QByteArray Bytes = Read(LatinPath);
    EXPECT_TRUE(Bytes.startsWith("// caf\xE9 \xA9 Tolvek\n")) << Bytes.left(40).toHex().toStdString();
    EXPECT_TRUE(Bytes.contains("Util.Log(\"d\xE9j\xE0\");"));
    EXPECT_FALSE(Bytes.contains("\xEF\xBF\xBD")) << "no replacement characters";
    Project()->SetModified(true);
    ASSERT_TRUE(Project()->SaveNew(LatinPath));
    Bytes = Read(LatinPath);
    EXPECT_TRUE(Bytes.startsWith("// caf\xE9 \xA9 Tolvek\n"));
    EXPECT_TRUE(Bytes.contains("Project.SetTraceSource (\"Trace Pins\");"));
    // A character that Latin-1 can't hold makes the file UTF-8 as a whole, so that nothing is lost.
    ASSERT_TRUE(Project()->WriteTarvoSettings({"Project.SetDevice (\"\xCE\xA9mega\");"}));
    Bytes = Read(LatinPath);
    EXPECT_TRUE(Bytes.startsWith("// caf\xC3\xA9 \xC2\xA9 Tolvek\n"));
    EXPECT_TRUE(Bytes.contains("Project.SetDevice (\"\xCE\xA9mega\");"));

    QByteArray Crlf = Generated({"Project.SetDevice (\"X\");", "File.Open (\"a.elf\");"}) +
                      "\nint Mine (void) {\n  return 3;\n}\n";
    Crlf.replace("\n", "\r\n");
    Crlf.prepend("\xEF\xBB\xBF");
    const QString CrlfPath = Write("crlf.tvproj", Crlf);
    Project()->Open(CrlfPath);
    ASSERT_TRUE(Project()->WriteTraceSettings(Trace));
    Project()->SetModified(true);
    ASSERT_TRUE(Project()->SaveNew(CrlfPath));
    Bytes = Read(CrlfPath);
    EXPECT_TRUE(Bytes.startsWith("\xEF\xBB\xBF/****"));
    EXPECT_EQ(Bytes.count("\n"), Bytes.count("\r\n")) << "one line end style";
    EXPECT_TRUE(Bytes.contains("  Project.SetTraceSource (\"Trace Pins\");\r\n"));
    EXPECT_TRUE(Bytes.endsWith("int Mine (void) {\r\n  return 3;\r\n}\r\n"));
    // The file as the program wrote it is no change from outside.
    EXPECT_FALSE(TScript::ReloadIfChanged());
}

} // namespace
