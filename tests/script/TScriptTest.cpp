// The script host: loading, user functions, the results of ExecFunction and the last error.

#include "HostFixture.h"

#include "app/core/ScriptConstants.h"
#include "script/Interp.h"

#include <QFile>
#include <QTimer>

#include <stdexcept>

namespace {

using Host = HostFixture;

const char* const LOAD_LOGS = "void OnProjectLoad (void) {\n  Util.Log(\"loaded\");\n}\n";

QString WriteFile(const QTemporaryDir& Dir, const QString& Name, const QByteArray& Text) {
    const QString Path = Dir.filePath(Name);
    QFile F(Path);
    F.open(QIODevice::WriteOnly | QIODevice::Truncate);
    F.write(Text);
    return Path;
}

TEST_F(Host, ProjectLoadsAndRunsOnProjectLoad) {
    const QString Path = WriteFile(m_Dir, "p.tvproj", LOAD_LOGS);
    ASSERT_EQ(TScript::LoadProject(Path), 0);
    EXPECT_EQ(TScript::GetScriptPath(), Path);
    EXPECT_EQ(TScript::GetScriptDir(), m_Dir.path());
    EXPECT_EQ(TScript::GetScriptHash(), TScript::HashText(QByteArray(LOAD_LOGS)));
    EXPECT_TRUE(TScript::HasUserFunction(1));
    // A missing optional function is ruled out by asking, not by an error.
    EXPECT_FALSE(TScript::HasUserFunction(2));
    EXPECT_FALSE(TScript::HasError());
    ASSERT_EQ(TScript::ExecUserFunction(1), 0);
    ASSERT_EQ(m_Runs.size(), 1);
    EXPECT_EQ(m_Runs[0].Name, "Util.Log");
    EXPECT_EQ(m_Runs[0].Args, QStringList({"loaded"}));
}

TEST_F(Host, ProjectWithoutOnProjectLoadFails) {
    const QString Path = WriteFile(m_Dir, "p.tvproj", "void Other (void) { }\n");
    EXPECT_EQ(TScript::LoadProject(Path), -1);
    EXPECT_TRUE(TScript::HasError());
    EXPECT_EQ(TScript::GetLastErrorText(), "Required user function missing: void OnProjectLoad (void);");
    EXPECT_EQ(TScript::GetLastError(), "Required user function missing: void OnProjectLoad (void);");
}

TEST_F(Host, MissingAndEmptyFiles) {
    EXPECT_EQ(TScript::LoadProject(m_Dir.filePath("none.tvproj")), -1);
    EXPECT_EQ(TScript::GetLastError(), "file not found");
    EXPECT_EQ(TScript::LoadProject(WriteFile(m_Dir, "e.tvproj", "")), -1);
    EXPECT_EQ(TScript::GetLastError(), "empty file");
    EXPECT_EQ(TScript::GetInterpreter(), nullptr);
    EXPECT_EQ(TScript::ExecUserFunction(1), -1);
    EXPECT_EQ(TScript::GetLastError(), "Script interpreter not allocated");
}

TEST_F(Host, SyntaxErrorInABodyAppearsWhenItRuns) {
    const QString Path = WriteFile(
        m_Dir, "p.tvproj", "void OnProjectLoad (void) {\n  Util.Log(\"a\");\n  Util.Log(\"b\") x;\n}\n");
    ASSERT_EQ(TScript::LoadProject(Path), 0);
    EXPECT_EQ(TScript::ExecUserFunction(1), -1);
    EXPECT_TRUE(TScript::HasError());
    EXPECT_EQ(TScript::GetLastErrorText(), "Expected a ';'");
    EXPECT_EQ(TScript::GetLastErrorLine(), 3);
    EXPECT_EQ(TScript::GetLastErrorSource(), "  Util.Log(\"b\") x;");
    EXPECT_EQ(TScript::GetLastError(), "Expected a ';' at line 3");
    EXPECT_EQ(m_Runs.size(), 2) << "the statements before the error ran";
}

TEST_F(Host, FailedScriptStaysFailedUntilLoadedAgain) {
    const QString Path =
        WriteFile(m_Dir, "p.tvproj",
                  "void OnProjectLoad (void) { nothing(); }\nvoid Other (void) { Util.Log(\"o\"); }\n");
    ASSERT_EQ(TScript::LoadProject(Path), 0);
    EXPECT_EQ(TScript::ExecUserFunction(1), -1);
    EXPECT_EQ(TScript::ExecFunction("Other", 0, 0, nullptr, nullptr), -4);
    EXPECT_EQ(TScript::GetLastError(), "syntax error");
    EXPECT_TRUE(m_Runs.isEmpty());
    ASSERT_EQ(TScript::LoadProject(Path), 0);
    EXPECT_EQ(TScript::ExecFunction("Other", 0, 0, nullptr, nullptr), 0);
    EXPECT_EQ(m_Runs.size(), 1);
}

TEST_F(Host, ErrorsAtLoadTime) {
    EXPECT_EQ(Load("void OnProjectLoad (void) {\n}\nint x;\n"), -1);
    EXPECT_EQ(TScript::GetLastError(), "Expected a '(' at line 3");
    EXPECT_EQ(TScript::GetInterpreter(), nullptr);
    EXPECT_EQ(Load("void F (void) { /* open }"), -1);
    EXPECT_EQ(TScript::GetLastError(), "C-comment has not been closed properly at line 1");
}

TEST_F(Host, LastErrorIsSimplifiedForTheUser) {
    ASSERT_EQ(Load("void F (void) {\n  __int64 x;\n  x = \"a\\qb\";\n}\n"), 0);
    EXPECT_EQ(Exec("F", {}), -1);
    EXPECT_EQ(TScript::GetLastErrorText(), "unexpected escape character.");
    EXPECT_EQ(TScript::GetLastError(), "unexpected escape character at line 3");
}

TEST_F(Host, AnErrorInACallsArgumentNamesItsCauseFunctionAndLine) {
    ASSERT_EQ(Load("void Helper (void) {\n  Util.Log(\"one\");\n  Util.Log(\"a\\qb\");\n}\n"
                   "void AfterTargetDownload (void) {\n  Helper();\n}\n"),
              0);
    EXPECT_EQ(TScript::ExecUserFunction(11), -1);
    EXPECT_EQ(TScript::GetLastError(), "unexpected escape character at line 3");
    EXPECT_EQ(TScript::GetLastErrorSource(), "  Util.Log(\"a\\qb\");");
    EXPECT_EQ(TScript::GetLastErrorFunction(), "Helper") << "the function in which the error stands";
}

TEST_F(Host, TheUserStopsARunawayScriptWhileItsEventsAreProcessed) {
    ASSERT_EQ(Load("void Spin (void) {\n  while (1) {\n  }\n}\n__int64 Five (void) { return 5; }\n"), 0);
    EXPECT_FALSE(TScript::StopScript()) << "no script runs";
    // The stop arrives as the user's would, from the event loop, while the script runs.
    bool Asked = false;
    QTimer::singleShot(20, [&Asked]() { Asked = TScript::StopScript(); });
    // Without the stop the run ends here, with no error.
    TScript::GetInterpreter()->StepLimit = 200000000;
    EXPECT_EQ(TScript::ExecFunction("Spin", 0, 0, nullptr, nullptr), -1);
    EXPECT_TRUE(Asked);
    EXPECT_EQ(TScript::GetLastError(), "script stopped by the user at line 2");
    EXPECT_EQ(TScript::GetLastErrorFunction(), "Spin");
    TScript::ClearError();
    U64 Result = 0;
    EXPECT_EQ(Exec("Five", {}, &Result), 0) << "a stopped script runs again";
    EXPECT_EQ(Result, 5u);
}

TEST_F(Host, ExecFunctionResults) {
    EXPECT_EQ(TScript::ExecFunction("F", 0, 0, nullptr, nullptr), -1);
    EXPECT_EQ(TScript::GetLastErrorText(), "Script interpreter not allocated");
    ASSERT_EQ(Load("__int64 F (__int64 a, __int64 b) { return a * b; }\n"), 0);
    EXPECT_EQ(TScript::ExecFunction("", 0, 0, nullptr, nullptr), -2);
    EXPECT_EQ(TScript::GetLastErrorText(), "empty function name");
    EXPECT_EQ(TScript::ExecFunction("G", 0, 0, nullptr, nullptr), -2);
    EXPECT_EQ(TScript::GetLastErrorText(), "unknown function");
    EXPECT_EQ(TScript::ExecFunction("Util.Log", 0, 0, nullptr, nullptr), -2)
        << "natives are no script functions";
    const U64 Args[8] = {6, 7, 1, 1, 1, 1, 1, 1};
    U64 Result = 0;
    EXPECT_EQ(TScript::ExecFunction("F", 0, 8, Args, &Result), -6);
    EXPECT_EQ(TScript::GetLastErrorText(), "maximum amount of parameters (7) exceeded");
    EXPECT_EQ(TScript::ExecFunction("F", 0, 7, Args, &Result), 0);
    EXPECT_EQ(Result, 42u);
    EXPECT_EQ(TScript::ExecUserFunction(16), -2);
    EXPECT_EQ(TScript::ExecUserFunction(0), -2);
    EXPECT_FALSE(TScript::HasError()) << "refused calls are no script errors";
    TScript::RequestStop();
    EXPECT_EQ(TScript::ExecFunction("F", 0, 2, Args, &Result), 0);
    EXPECT_EQ(TScript::GetLastErrorText(), "script is closing");
}

TEST_F(Host, TwelveNestedScriptExecEndAtTheCallLevel) {
    OnCommand("Script.Exec", [this]() {
        I64 Result = 0;
        QString Error;
        if (TScript::ExecByName(Commands::GetCommandArgs(Id("Script.Exec")).value(0), {}, Result, Error) <
            0) {
            Commands::SetCommandError(Id("Script.Exec"), Error);
            m_Errors.append(Error);
        }
    });
    ASSERT_EQ(Load("void A (void) { Util.Log(\"in\"); Script.Exec(\"A\"); }\n"), 0);
    I64 Result = 0;
    QString Error;
    ASSERT_EQ(TScript::ExecByName("A", {}, Result, Error), 0) << Error.toStdString();
    int Logs = 0;
    for (const RUN& R : m_Runs) {
        Logs += R.Name == "Util.Log";
    }
    EXPECT_EQ(Logs, SCRIPT_MAX_CALL_LEVEL);
    ASSERT_EQ(m_Errors.size(), 1);
    EXPECT_EQ(TScript::GetLastErrorText(), "maximum call level reached.");
    EXPECT_EQ(m_Errors[0], "maximum call level reached");
    EXPECT_EQ(TScript::GetCallLevel(), 0);
    EXPECT_EQ(TScript::GetCurrentFunction(), -1);
}

TEST_F(Host, ScriptExecPassesParamsAndReturnsTheResult) {
    ASSERT_EQ(Load("__int64 Mul (__int64 a, __int64 b) { return a * b; }\nvoid Bad (void) { x = 1; }\n"), 0);
    I64 Result = 0;
    QString Error;
    ASSERT_EQ(TScript::ExecByName("Mul", {"6", "0x7"}, Result, Error), 0);
    EXPECT_EQ(Result, 42);
    ASSERT_EQ(TScript::ExecByName("Mul", {"FREQ_1_KHZ", "YES"}, Result, Error), 0);
    EXPECT_EQ(Result, 1000);
    EXPECT_EQ(TScript::ExecByName("Mul", {"six"}, Result, Error), -1);
    EXPECT_EQ(Error, "not a number");
    EXPECT_EQ(TScript::ExecByName("Nope", {}, Result, Error), -2);
    EXPECT_EQ(Error, "unknown function");
    EXPECT_EQ(TScript::ExecByName("Bad", {}, Result, Error), -1);
    EXPECT_EQ(Error, "syntax error at line 2");
    // A call with arguments leaves no pending error behind.
    EXPECT_FALSE(TScript::HasError());
    ASSERT_EQ(TScript::ExecByName("Mul", {"2", "3"}, Result, Error), 0);
}

TEST_F(Host, ConstantsOfTheTablesAndOldSpellings) {
    const struct {
        const char* Name;
        U64 Value;
    } Cases[] = {
        {"RM_RESET_AND_RUN", 2},
        {"RM_BREAK_AT_MAIN", 1},
        {"AW_AUTO", 0},
        {"FREQ_50_MHZ", 50000000},
        {"TRUE", 1},
        {"DISABLED", 0},
        {"DISABLE_SAVE_ANY", ~U64(0)},
        {"cJTAG", 7},
        {"TIMESTAMP_FORMAT_TIME", 3},
        {"COLOR_SELECTION_HIGHLIGHT", 0},
        {"COLOR_LOGGING_ERROR", COLOR_LOGGING_ERROR},
        {"COLOR_TABLE_FILTER_MATCH", COLOR_COUNT - 1},
    };
    for (const auto& C : Cases) {
        ASSERT_EQ(Load(QStringLiteral("__int64 F (void) { return %1; }").arg(C.Name)), 0);
        U64 Result = 0;
        EXPECT_EQ(Exec("F", {}, &Result), 0) << C.Name;
        EXPECT_EQ(Result, C.Value) << C.Name;
    }
}

TEST_F(Host, DefineConstTakesNumbersConstantsAndExpressions) {
    I64 Value = 0;
    QString Error;
    ASSERT_EQ(Load("__int64 Base (void) { return 0x1000; }\n__int64 F (void) { return RAM_END; }\n"), 0);
    EXPECT_EQ(TScript::DefineConst("RAM_BASE", "0x20000000", Value, Error), 0);
    EXPECT_EQ(Value, 0x20000000);
    EXPECT_EQ(TScript::DefineConst("SPEED", "FREQ_4_MHZ", Value, Error), 0);
    EXPECT_EQ(Value, 4000000);
    EXPECT_EQ(TScript::DefineConst("RAM_END", "RAM_BASE + Base() * 2", Value, Error), 0);
    EXPECT_EQ(Value, 0x20002000);
    U64 Result = 0;
    ASSERT_EQ(Exec("F", {}, &Result), 0);
    EXPECT_EQ(Result, 0x20002000u);
    ASSERT_NE(ScriptConstants::Lookup("RAM_END"), nullptr);
    EXPECT_EQ(ScriptConstants::Lookup("RAM_END")->Value, 0x20002000);

    EXPECT_EQ(TScript::DefineConst("BAD", "RAM_BASE +", Value, Error), -1);
    EXPECT_EQ(Error, "expected a value or an identifier.");
    EXPECT_FALSE(TScript::HasError()) << "a bad expression is the command's error, not the script's";
    EXPECT_EQ(TScript::DefineConst("1st", "1", Value, Error), -1);
    EXPECT_EQ(Error, "invalid parameter");
    const QString Long = "N" + QString(200, 'x');
    EXPECT_EQ(TScript::DefineConst(Long, "5", Value, Error), 0);
    EXPECT_NE(ScriptConstants::Lookup(Long.left(127)), nullptr);
    ScriptConstants::ResetToBuiltIn();
}

TEST_F(Host, ExceptionInACallIsReported) {
    ASSERT_EQ(Load("void OnProjectLoad (void) { Throw(); }"), 0);
    ScriptInterp::RegisterNative(TScript::GetInterpreter(), "__api__ int Throw (void);",
                                 [](const U64*, int) -> I32 { throw std::runtime_error("boom"); });
    EXPECT_EQ(TScript::ExecUserFunction(1), -1);
    EXPECT_EQ(TScript::GetLastError(), "Error in script function void OnProjectLoad (void);");
    EXPECT_TRUE(TScript::HasError());
    const CScriptHeap* H = TScript::GetInterpreter();
    EXPECT_EQ(H->High, H->BlockEnd);
    EXPECT_EQ(H->Nesting, 0);
    EXPECT_EQ(H->Function, nullptr);
    EXPECT_EQ(TScript::GetCallLevel(), 0);
}

TEST_F(Host, RunOutOfNodesIsOutOfMemory) {
    ASSERT_EQ(Load("void F (void) { while (1) { int x; } }"), 0);
    EXPECT_EQ(Exec("F", {}), -1);
    EXPECT_EQ(TScript::GetLastError(), "out of memory");
}

TEST_F(Host, LoadDuringACallIsRefused) {
    ASSERT_EQ(Load("void F (void) { Reload(); Util.Log(\"after\"); }"), 0);
    ScriptInterp::RegisterNative(TScript::GetInterpreter(), "__api__ int Reload (void);",
                                 [](const U64*, int) -> I32 { return TScript::Parse("void G (void) { }"); });
    const U8* Block = TScript::GetHeapBlock();
    EXPECT_EQ(Exec("F", {}), 0);
    EXPECT_EQ(TScript::GetHeapBlock(), Block) << "the block of the running call stays";
    EXPECT_TRUE(m_Runs.isEmpty()) << "the script was asked to stop";
    EXPECT_TRUE(TScript::IsClosing());
    EXPECT_EQ(TScript::Close(), 0);
}

TEST_F(Host, ReloadWhenTheFileChanges) {
    const QString Path = WriteFile(m_Dir, "p.tvproj", LOAD_LOGS);
    ASSERT_EQ(TScript::LoadProject(Path), 0);
    EXPECT_FALSE(TScript::ReloadIfChanged());
    WriteFile(m_Dir, "p.tvproj", "void OnProjectLoad (void) { }\nvoid TargetReset (void) { }\n");
    EXPECT_TRUE(TScript::ReloadIfChanged());
    EXPECT_TRUE(TScript::HasUserFunction(2));
    EXPECT_FALSE(TScript::ReloadIfChanged());
}

TEST_F(Host, SetTextWritesAndTakesTheFile) {
    ASSERT_EQ(Load(LOAD_LOGS), 0);
    const QString Path = m_Dir.filePath("w.tvproj");
    ASSERT_EQ(TScript::SetText(Path, QString()), 0);
    QFile F(Path);
    ASSERT_TRUE(F.open(QIODevice::ReadOnly));
    EXPECT_EQ(F.readAll(), QByteArray(LOAD_LOGS));
    EXPECT_EQ(TScript::GetScriptPath(), Path);
    ASSERT_EQ(TScript::SetText(Path, "void OnProjectLoad (void) { }"), 0);
    EXPECT_EQ(TScript::GetScriptHash(), TScript::HashText(QByteArray("void OnProjectLoad (void) { }")));
    EXPECT_FALSE(TScript::ReloadIfChanged()) << "the hash is that of the text written";
}

TEST_F(Host, HashIsTheClassicToolkitHash) {
    EXPECT_EQ(TScript::HashText(QByteArray()), 0u);
    EXPECT_EQ(TScript::HashText(QByteArray("a")), 97u);
    EXPECT_EQ(TScript::HashText(QByteArray("ab")), 97u * 16 + 98);
    EXPECT_EQ(TScript::HashText(QString("OnProjectLoad")), TScript::HashText(QByteArray("OnProjectLoad")));
    EXPECT_NE(TScript::HashText(QByteArray("ab")), TScript::HashText(QByteArray("ba")));
}

TEST_F(Host, UserFunctionTable) {
    EXPECT_EQ(TScript::GetUserFunctionName(1), "OnProjectLoad");
    EXPECT_EQ(TScript::GetUserFunctionName(15), "BeforeTargetResume");
    EXPECT_EQ(TScript::GetUserFunctionPrototype(11), "void AfterTargetDownload (void);");
    EXPECT_EQ(TScript::GetUserFunctionName(16), "");
    const QStringList Head = TScript::GetUserFunctionText(3, {}).split('\n');
    ASSERT_GE(Head.size(), 11);
    for (int i = 0; i < 11; ++i) {
        EXPECT_EQ(Head[i].size(), 70) << i;
    }
    EXPECT_EQ(Head[0], "/" + QString(69, '*'));
    EXPECT_EQ(Head[2].trimmed(), "*       BeforeTargetReset");
    EXPECT_EQ(Head[5].trimmed(), "*   Event handler routine. Optional.");
    EXPECT_EQ(Head[8].trimmed(), "*/");
    EXPECT_EQ(Head[9].trimmed(), "//void BeforeTargetReset (void) {");
    EXPECT_EQ(Head[10].trimmed(), "//}");
    const QString Reset = TScript::GetUserFunctionText(2, {});
    EXPECT_TRUE(Reset.contains("*      TargetReset "));
    EXPECT_TRUE(Reset.contains("//    Util.Log(\"Resetting Program.\");"));
    EXPECT_TRUE(Reset.contains("//  Exec.Reset();"));
    const QString Download = TScript::GetUserFunctionText(11, {});
    EXPECT_TRUE(Download.contains("*    - Sets the SP register to program reset value on Cortex-M."));
    EXPECT_FALSE(Download.contains("Exec.Reset"));
    const QString OnLoad =
        TScript::GetUserFunctionText(1, {"File.Open (\"a.elf\");", "Project.SetDevice (\"X\");"});
    EXPECT_TRUE(OnLoad.endsWith("void OnProjectLoad (void) {\n  //\n  // Dialog-generated settings\n  //\n"
                                "  Project.SetDevice (\"X\");\n  //\n  // User settings\n  //\n"
                                "  File.Open (\"a.elf\");\n}\n"));
    // Every generated block is a valid script on its own.
    QString All;
    for (int Id = 1; Id <= USER_FUNCTION_COUNT; ++Id) {
        All += TScript::GetUserFunctionText(Id, {}) + "\n";
    }
    ASSERT_EQ(Load(All), 0) << TScript::GetLastError().toStdString();
    EXPECT_TRUE(TScript::HasUserFunction(1));
    EXPECT_FALSE(TScript::HasUserFunction(2));
}

} // namespace
