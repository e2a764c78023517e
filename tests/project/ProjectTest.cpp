// CProject: opening and closing, a project made from lines, and the project check.

#include "ProjectFixture.h"

#include "app/core/Catalogue.h"
#include "script/TScript.h"

#include <QFileInfo>

namespace {

using ProjectTest = ProjectFixture;

const char* const LOGS = "void OnProjectLoad (void) {\n  Util.Log(\"loaded\");\n}\n";

TEST_F(ProjectTest, OpenAndCloseSignalInOrder) {
    const QString One = Write("one.tvproj", LOGS);
    const QString Two = Write("two.tvproj", LOGS);
    EXPECT_EQ(Project()->GetPath(), "");
    Project()->Open(One);
    EXPECT_EQ(m_Signals, QStringList({"Closed()", "ModifiedChanged(false)", "Opened(" + One + ")"}));
    EXPECT_TRUE(Project()->IsLoaded());
    EXPECT_EQ(Project()->GetPath(), One);
    EXPECT_TRUE(TScript::HasUserFunction(1)) << "loaded, but OnProjectLoad is the opener's to run";
    EXPECT_TRUE(m_Runs.isEmpty());

    m_Signals.clear();
    Project()->Open(Two);
    EXPECT_EQ(m_Signals, QStringList({"AboutToClose(" + One + ")", "Closed(" + One + ")",
                                      "ModifiedChanged(false)", "Opened(" + Two + ")"}));

    m_Signals.clear();
    Project()->Open(m_Dir.filePath("missing.tvproj"));
    EXPECT_FALSE(Project()->IsLoaded());
    EXPECT_EQ(m_Signals,
              QStringList({"ModifiedChanged(false)", "Opened(" + m_Dir.filePath("missing.tvproj") + ")"}));
}

TEST_F(ProjectTest, CloseForgetsWhatTheProjectSet) {
    Project()->Open(Write("p.tvproj", LOGS));
    Project()->AddSvdFile("/x/a.svd");
    Project()->AddSvdFile("/x/a.svd");
    EXPECT_EQ(Project()->GetSvdFiles(), QStringList({"/x/a.svd"}));
    Project()->SetProgramFile("/x/app.elf", QDateTime::currentDateTime());
    Project()->SetCorePluginPath("/x/core.so");
    Project()->SetOSPluginPath("/x/os.so");
    Project()->AddWarning("w");
    Project()->SetModified(true);
    Project()->Close();
    EXPECT_TRUE(Project()->GetSvdFiles().isEmpty());
    EXPECT_TRUE(Project()->GetProgramFile().isEmpty());
    EXPECT_FALSE(Project()->GetProgramFileTime().isValid());
    EXPECT_TRUE(Project()->GetCorePluginPath().isEmpty());
    EXPECT_TRUE(Project()->GetOSPluginPath().isEmpty());
    EXPECT_TRUE(Project()->GetWarnings().isEmpty());
    EXPECT_FALSE(Project()->IsModified());
    EXPECT_TRUE(Project()->IsLoaded()) << "an empty project stands";
    EXPECT_EQ(Project()->GetPath(), "");
}

TEST_F(ProjectTest, ProjectOpenedFromAScriptFunctionWaitsForItsEnd) {
    const QString Two = Write("two.tvproj", LOGS);
    const QString One = Write("one.tvproj", "void OnProjectLoad (void) { }\n"
                                            "void Switch (void) {\n  File.Open(\"" +
                                                Two.toUtf8() + "\");\n  Util.Log(\"after\");\n}\n");
    Project()->Open(One);
    QStringList DuringCall;
    OnCommand("File.Open", [&DuringCall, this]() {
        Project()->OpenLater(Commands::GetCommandArgs(Id("File.Open")).first());
        DuringCall = m_Signals;
    });
    m_Signals.clear();
    Exec("Switch", {});
    EXPECT_EQ(DuringCall, QStringList({"AboutToOpen(" + Two + ")"}))
        << "announced, not opened, inside the function";
    EXPECT_TRUE(Project()->IsOpenPending());
    EXPECT_EQ(Project()->GetPath(), One);
    ASSERT_TRUE(WaitFor([]() { return !Project()->IsOpenPending(); }));
    EXPECT_EQ(Project()->GetPath(), Two);
    EXPECT_EQ(m_Signals.last(), "Opened(" + Two + ")");
    // The function stopped at its next step: the line behind File.Open never ran.
    for (const RUN& R : m_Runs) {
        EXPECT_NE(R.Name, "Util.Log");
    }
}

TEST_F(ProjectTest, OpenLaterWithoutAScriptOpensAtOnce) {
    const QString Path = Write("p.tvproj", LOGS);
    Project()->OpenLater(Path);
    EXPECT_FALSE(Project()->IsOpenPending());
    EXPECT_EQ(m_Signals.first(), "AboutToOpen(" + Path + ")");
    EXPECT_EQ(m_Signals.last(), "Opened(" + Path + ")");
}

TEST_F(ProjectTest, CreatedFromLinesRunsOnProjectLoadAndIsModified) {
    TScript::SetScriptPath(m_Dir.filePath("new.tvproj"));
    ASSERT_EQ(Project()->CreateFromLines({"Project.SetDevice (\"X\");", "File.Open (\"a.elf\");"}), 0);
    ASSERT_EQ(m_Runs.size(), 2);
    EXPECT_EQ(m_Runs[0].Name, "Project.SetDevice");
    EXPECT_EQ(m_Runs[0].Args, QStringList({"X"}));
    EXPECT_EQ(m_Runs[1].Name, "File.Open");
    EXPECT_TRUE(Project()->IsModified());
    EXPECT_EQ(m_Signals.last(), "ModifiedChanged(true)");
    EXPECT_EQ(Project()->GetPath(), m_Dir.filePath("new.tvproj"));
    EXPECT_FALSE(QFileInfo::exists(m_Dir.filePath("new.tvproj"))) << "no file until it is saved";
    // The runner of the application takes the call when there is one.
    int Ran = -1;
    Project()->SetUserFunctionRunner([&Ran](int Id) { return Ran = Id, 0; });
    Project()->CreateFromLines({});
    EXPECT_EQ(Ran, 1);
}

TEST_F(ProjectTest, CommandGivenTwiceIsOneWarning) {
    Project()->Open(Write("p.tvproj",
                          "void OnProjectLoad (void) {\n"
                          "  Project.SetDevice (\"A\");\n  Project.AddSvdFile (\"a.svd\");\n"
                          "  Project.AddSvdFile (\"b.svd\");\n  Project.SetDevice (\"B\");\n}\n"));
    const QStringList W = Project()->GetWarnings();
    EXPECT_EQ(W,
              QStringList({"Project warning (2075): project command specified twice: Project.SetDevice."}));
    EXPECT_EQ(Project()->ReportWarnings(W), 1);
    EXPECT_EQ(Project()->ReportWarnings(W), 0) << "a warning is logged once until the project closes";
    EXPECT_EQ(TakeConsole().filter("specified twice").size(), 1);
    Project()->Close();
    EXPECT_TRUE(Project()->GetWarnings().isEmpty()) << "the closed project's file is no longer read";
}

TEST_F(ProjectTest, WarningsThatDifferInCaseAreLoggedOnce) {
    Project()->AddWarning("Device not found");
    Project()->AddWarning("DEVICE NOT FOUND");
    Project()->AddWarning("Device not found");
    const QStringList W = Project()->GetWarnings();
    EXPECT_EQ(W, QStringList({"Device not found", "DEVICE NOT FOUND"}));
    EXPECT_EQ(Project()->ReportWarnings(W), 1);
    EXPECT_EQ(TakeConsole(), QStringList({"Device not found"}));
    EXPECT_FALSE(Project()->MarkReported("device NOT found"));
    EXPECT_TRUE(Project()->MarkReported("another"));
}

TEST_F(ProjectTest, ScriptErrorIsAWarning) {
    Project()->Open(Write("bad.tvproj", "void Other (void) { }\n"));
    EXPECT_EQ(
        Project()->GetWarnings(),
        QStringList({"Project warning (2074): script interpretation failure: Required user function missing: "
                     "void OnProjectLoad (void);."}));
    // Binary junk loads as a script that fails, and the program goes on.
    QByteArray Junk;
    for (int i = 0; i < 4096; ++i) {
        Junk.append(static_cast<char>((i * 7919 + 13) % 256));
    }
    Project()->Open(Write("junk.tvproj", Junk));
    const QStringList W = Project()->GetWarnings();
    ASSERT_EQ(W.size(), 1);
    EXPECT_TRUE(W[0].startsWith("Project warning (2074): script interpretation failure: "))
        << W[0].toStdString();
}

/// Every check fails, so that the order of the list shows.
class AllFailing : public IProjectChecks {
public:
    bool IsRegisterSetLoaded() override { return false; }
    bool HasDefaultRegisterSet() override { return false; }
    bool CanFindFile(const QString&) override { return false; }
    bool IsDeviceCoreKnown() override { return true; }
    bool IsCorePluginLoaded() override { return false; }
    bool IsOSPluginSet() override { return false; }
    bool IsProgramOpen() override { return true; }
    bool HasProgramSymbol(const QString&) override { return true; }
    bool IsProgramForTarget() override { return false; }
    bool IsDataEndianMatching() override { return false; }
    bool IsInstEndianMatching() override { return false; }
};

TEST_F(ProjectTest, CheckListsItsFindingsInOrder) {
    AllFailing Checks;
    Project()->SetChecks(&Checks);
    Project()->Open(Write("p.tvproj", "void OnProjectLoad (void) {\n  Project.SetDevice (\"A\");\n"
                                      "  Project.SetDevice (\"B\");\n  Util.Log(\"x\") y;\n}\n"));
    ASSERT_NE(TScript::ExecUserFunction(1), 0);
    Project()->AddWarning("added by a command");
    Project()->AddSvdFile("a.svd");
    const QStringList Codes = [] {
        QStringList C;
        for (const QString& W : Project()->GetWarnings()) {
            const qsizetype Open = W.indexOf('(');
            C << (Open < 0 ? W : W.mid(Open + 1, 4));
        }
        return C;
    }();
    EXPECT_EQ(Codes, QStringList({"added by a command", "2074", "2069", "2069", "2068", "2072", "2073",
                                  "1035", "1036", "1037", "2075"}));
}

TEST_F(ProjectTest, ContainsInLoadFunctionReadsTheCodeOnDisk) {
    Project()->Open(Write("p.tvproj", "void Other (void) { Project.SetTraceFile(\"t\", 1, 1); }\n"
                                      "void OnProjectLoad (void) {\n"
                                      "  // Project.SetTraceTiming(0, 0, 0, 0);\n"
                                      "  Project.SetTraceSource(\"Trace Pins\");\n}\n"));
    EXPECT_TRUE(Project()->ContainsInLoadFunction("Project.SetTraceSource"));
    EXPECT_FALSE(Project()->ContainsInLoadFunction("Project.SetTraceTiming")) << "a comment doesn't count";
    EXPECT_FALSE(Project()->ContainsInLoadFunction("Project.SetTraceFile"))
        << "another function doesn't count";
}

TEST_F(ProjectTest, CompanionFiles) {
    EXPECT_EQ(CProject::UserFilePath("/p/app.tvproj"), "/p/app.tvproj.user");
    EXPECT_EQ(CProject::UserFilePath("/p.d/app"), "/p.d/app.tvproj.user");
    EXPECT_EQ(CProject::UserFilePath(""), "");
    const QString Path = Write("app.tvproj", LOGS);
    EXPECT_EQ(CProject::ProbeScriptPath(Path), "") << "counts only if it exists";
    const QString Script = Write("app.tarvo", "// probe\n");
    EXPECT_EQ(CProject::ProbeScriptPath(Path), Script);
    Project()->Open(Path);
    EXPECT_EQ(Project()->GetUserFilePath(), Path + ".user");
    EXPECT_EQ(Project()->GetProbeScriptPath(), Script);
}

} // namespace
