#include "ArnexProcess.h"

#include <QFile>

#include <gtest/gtest.h>

namespace {

QString WriteProject(const ArnexProcess& Arnex, const QString& Name, const QByteArray& Text) {
    const QString Path = Arnex.TempPath(Name);
    QFile F(Path);
    F.open(QIODevice::WriteOnly | QIODevice::Truncate);
    F.write(Text);
    return Path;
}

const char* const PROJECT = "void OnProjectLoad (void) {\n"
                            "  Util.Log(\"Project loaded\");\n"
                            "}\n"
                            "\n"
                            "void MyFunc (void) {\n"
                            "  __int64 i;\n"
                            "  i = 0;\n"
                            "  while (i < 2) {\n"
                            "    Util.LogHex(\"i=\", i + 0x1E);\n"
                            "    i += 1;\n"
                            "  }\n"
                            "  Util.Log(\"done\");\n"
                            "}\n"
                            "\n"
                            "void Deeper (void) { Script.Exec(\"Deeper\"); }\n";

TEST(Script, ProjectLoadsAndScriptExecRunsAFunction) {
    ArnexProcess Arnex;
    const QString Path = WriteProject(Arnex, "app.tvproj", PROJECT);
    const ArnexRun R = Arnex.Exec({"File.Open \"" + Path + "\"", "Script.Exec (\"MyFunc\")"});
    ASSERT_TRUE(R.Finished);
    EXPECT_EQ(R.ExitCode, 0) << R.Stderr.toStdString();
    EXPECT_EQ(R.Lines,
              QStringList({"File.Open (\"" + Path + "\");", "Executing script function: OnProjectLoad",
                           "Util.Log (\"Project loaded\");", "Project loaded", "Script.Exec (\"MyFunc\");",
                           "Util.LogHex (\"i=\", 0x1E);", "i=0x0000001E", "Util.LogHex (\"i=\", 0x1F);",
                           "i=0x0000001F", "Util.Log (\"done\");", "done"}));
}

TEST(Script, ProjectGivenOnTheCommandLine) {
    ArnexProcess Arnex;
    const QString Path = WriteProject(Arnex, "app.tvproj", PROJECT);
    const ArnexRun R = Arnex.Run({Path, "-exec", "Script.Exec (\"MyFunc\")", "-quit"});
    EXPECT_EQ(R.ExitCode, 0) << R.Stderr.toStdString();
    EXPECT_TRUE(R.Lines.contains("Project loaded"));
    EXPECT_EQ(R.Lines.last(), "done");
}

TEST(Script, NestedScriptExecEndsAtTheCallLevel) {
    ArnexProcess Arnex;
    const QString Path = WriteProject(Arnex, "app.tvproj", PROJECT);
    const ArnexRun R =
        Arnex.Exec({"File.Open \"" + Path + "\"", "Script.Exec (\"Deeper\")", "Util.Log after"});
    EXPECT_EQ(R.ExitCode, 1);
    EXPECT_EQ(R.Lines.count("Script.Exec (\"Deeper\");"), 12);
    EXPECT_TRUE(R.Lines.contains("Script.Exec (\"Deeper\"); maximum call level reached"));
    EXPECT_EQ(R.Lines.last(), "after");
}

TEST(Script, ScriptErrorsFailTheOpenWithTheirLine) {
    ArnexProcess Arnex;
    const QString Bad =
        WriteProject(Arnex, "bad.tvproj", "void OnProjectLoad (void) {\n  Util.Log(\"a\") x;\n}\n");
    const QString None = WriteProject(Arnex, "none.tvproj", "void Other (void) { }\n");
    const ArnexRun R = Arnex.Exec({"File.Open \"" + Bad + "\"", "File.Open \"" + None + "\"",
                                   "Script.Exec (\"Other\")", "Script.DefineConst (\"K\", \"1 +\")"});
    EXPECT_EQ(R.ExitCode, 1);
    EXPECT_TRUE(
        R.Lines.contains("File.Open (\"" + Bad +
                         "\"); Project warning (2074): script interpretation failure: Expected a ';' at "
                         "line 2."));
    EXPECT_TRUE(R.Lines.contains("File.Open (\"" + None +
                                 "\"); Project warning (2074): script interpretation failure: Required user "
                                 "function missing: void OnProjectLoad (void);."));
    // A script that failed runs nothing more until it is loaded again.
    EXPECT_TRUE(R.Lines.contains("Script.Exec (\"Other\"); syntax error"));
    EXPECT_TRUE(R.Lines.contains(
        "Script.DefineConst (\"K\", \"1 +\"); invalid parameter: expected a value or an identifier."));
}

TEST(Script, ProjectOpenedFromAScriptOpensWhenTheFunctionHasReturned) {
    ArnexProcess Arnex;
    const QString Second =
        WriteProject(Arnex, "two.tvproj", "void OnProjectLoad (void) { Util.Log(\"two\"); }\n");
    const QString First = WriteProject(Arnex, "one.tvproj",
                                       "void OnProjectLoad (void) { Util.Log(\"one\"); }\n"
                                       "void Switch (void) { File.Open(\"" +
                                           Second.toUtf8() + "\"); Util.Log(\"not reached\"); }\n");
    const ArnexRun R =
        Arnex.Exec({"File.Open \"" + First + "\"", "Script.Exec (\"Switch\")", "Util.Sleep 100"});
    EXPECT_EQ(R.ExitCode, 0) << R.Stderr.toStdString();
    EXPECT_TRUE(R.Lines.contains("one"));
    EXPECT_TRUE(R.Lines.contains("two"));
    EXPECT_FALSE(R.Lines.contains("not reached"));
}

TEST(Script, StringCheckRefusesAnInteger) {
    ArnexProcess Arnex;
    const QString Path = WriteProject(Arnex, "app.tvproj",
                                      "void OnProjectLoad (void) { }\n"
                                      "void F (void) { Util.LogHex(\"r=\", File.Open(123)); }\n");
    const ArnexRun R = Arnex.Exec({"File.Open \"" + Path + "\"", "Script.Exec (\"F\")"});
    EXPECT_EQ(R.ExitCode, 1);
    EXPECT_TRUE(R.Lines.contains("Invalid command argument in command \"FileOpen\": 0x7B (123)"));
    EXPECT_EQ(R.Lines.last(), "r=0xFFFFFFFF");
}

} // namespace
