// The API binding: registration of the command table, argument checks and packing, results and waits.

#include "HostFixture.h"

#include "script/Interp.h"
#include "script/TApi.h"
#include "script/TApiWaits.h"

namespace {

using Api = HostFixture;
using namespace TapiWaits;

/// Records the waits a command asks for; the last command "scheduled" the second of two kinds.
class RecordingDevice : public CDeviceWaits {
public:
    int WaitForJobEvent(JOB_KINDS Kind, bool ProcessEvents) override {
        Calls.append(QStringLiteral("job %1%2").arg(Kind).arg(ProcessEvents ? " events" : ""));
        return 0;
    }
    bool WaitForHalted() override {
        Calls.append("halted");
        return true;
    }
    int WaitForDeviceIdle() override {
        Calls.append("idle");
        return 0;
    }
    JOB_KINDS ScheduledKind(JOB_KINDS, JOB_KINDS Second) override { return Second; }
    QStringList Calls;
};

/// Runs one statement as the body of a function.
int RunLine(const QString& Statement) {
    if (TScript::Parse("void F (void) { " + Statement + " }") != 0) {
        return -100;
    }
    U64 Arg = 0;
    U64 Result = 0;
    return TScript::ExecFunction("F", 0, 0, &Arg, &Result);
}

TEST_F(Api, EveryScriptableRowIsANativeUnderBothNames) {
    ASSERT_EQ(Load("void F (void) { }"), 0);
    const CScriptHeap* H = TScript::GetInterpreter();
    int Natives = 0;
    for (U32 Row = 0; Row < COMMAND_COUNT; ++Row) {
        const QString Name = Commands::GetCommandName(Row);
        const bool Scriptable = Commands::IsCommandScriptable(Row);
        EXPECT_EQ(Commands::GetCommandInfo(Row).Func != nullptr, Scriptable) << Row;
        if (Name.isEmpty()) {
            continue;
        }
        for (const QString& N : {Name, Commands::GetCommandAlias(Row)}) {
            if (N.isEmpty()) {
                continue;
            }
            const QByteArray Bytes = N.toLatin1();
            const CScriptNode* Fn = ScriptInterp::FindSymbol(H, Bytes.constData(), Bytes.size());
            EXPECT_EQ(Fn != nullptr, Scriptable) << Bytes.constData();
            if (Fn) {
                EXPECT_EQ(Fn->Kind, NK_FUNCTION);
                EXPECT_EQ(Fn->Func.Entry, TAPI::GetEntry(Row)) << Bytes.constData();
                EXPECT_EQ(Fn->Func.ParamCount, Commands::GetCommandParamCount(Row)) << Bytes.constData();
                ++Natives;
            }
        }
    }
    EXPECT_GT(Natives, 170);
    const QStringList Console = TakeConsole();
    EXPECT_TRUE(Console.filter("Error registering API function").isEmpty())
        << Console.join('\n').toStdString();
}

TEST_F(Api, IntegerForAStringIsRefusedWithItsLogLine) {
    ConsoleRing::Clear();
    ASSERT_EQ(
        Load("__int64 F (void) { return File.Open(123); }\n__int64 G (void) { return File.Open(\"x\"); }"),
        0);
    U64 Arg = 0;
    U64 Result = 0;
    ASSERT_EQ(TScript::ExecFunction("F", 0, 0, &Arg, &Result), 0);
    EXPECT_EQ(static_cast<I64>(Result), -1);
    EXPECT_TRUE(m_Runs.isEmpty());
    EXPECT_EQ(TakeConsole(), QStringList({"Invalid command argument in command \"FileOpen\": 0x7B (123)"}));
    ASSERT_EQ(TScript::ExecFunction("G", 0, 0, &Arg, &Result), 0);
    EXPECT_EQ(Result, 0u);
    ASSERT_EQ(m_Runs.size(), 1);
    EXPECT_EQ(m_Runs[0].Name, "File.Open");
    EXPECT_EQ(m_Runs[0].Args, QStringList({"x"}));
}

TEST_F(Api, CheckStringArgNamesTheCommand) {
    ASSERT_EQ(Load("void F (void) { }"), 0);
    EXPECT_EQ(TAPI::WrapperName(Id("File.Open")), "TAPI::FileOpenGen");
    EXPECT_EQ(TAPI::WrapperName(Id("Project.SetHostIF")), "TAPI::ProjectSetHostIFGen");
    EXPECT_TRUE(
        TAPI::CheckStringArg(reinterpret_cast<uintptr_t>(TScript::GetHeapBlock()) + 10, "TAPI::XGen"));
    EXPECT_TRUE(TakeConsole().isEmpty());
    EXPECT_FALSE(TAPI::CheckStringArg(~U64(0), "TAPI::UtilLogGen"));
    EXPECT_FALSE(TAPI::CheckStringArg(reinterpret_cast<uintptr_t>(TScript::GetHeapBlock()) + SCRIPT_HEAP_SIZE,
                                      "TAPI::UtilLogGen"));
    const QStringList Lines = TakeConsole();
    ASSERT_EQ(Lines.size(), 2);
    EXPECT_EQ(Lines[0], "Invalid command argument in command \"UtilLog\": 0xFFFFFFFFFFFFFFFF (-1)");
    EXPECT_TRUE(Lines[1].startsWith("Invalid command argument in command \"UtilLog\": 0x"));
}

TEST_F(Api, NumbersArePackedAsHexOfTheParameterWidth) {
    ASSERT_EQ(RunLine("Util.LogHex(\"v=\", 0 - 1); Edit.SysVar(1, 0 - 1); Target.WriteU8(0x20, 0x1FF); "
                      "Project.SetTraceFile(\"f\", 0x123456789, 1);"),
              0);
    ASSERT_EQ(m_Runs.size(), 4);
    EXPECT_EQ(m_Runs[0].Args, QStringList({"v=", "0xFFFFFFFF"}));
    EXPECT_EQ(m_Runs[1].Args, QStringList({"0x1", "0xFFFFFFFFFFFFFFFF"}));
    EXPECT_EQ(m_Runs[2].Args, QStringList({"0x20", "0xFF"}));
    EXPECT_EQ(m_Runs[3].Args, QStringList({"f", "0x123456789", "0x1"}));
}

TEST_F(Api, ConstantsAndBooleanWordsAsArguments) {
    ASSERT_EQ(RunLine("Edit.SysVar(VAR_RESET_MODE, RM_RESET_AND_RUN); Project.SetMCT(ON); "
                      "Project.SetMCT(TRUE); Project.SetMCT(1); Project.SetMCT(OFF);"),
              0);
    ASSERT_EQ(m_Runs.size(), 5);
    EXPECT_EQ(m_Runs[0].Args, QStringList({"0x0", "0x2"})) << "variables are constants of their index";
    for (int i = 1; i <= 3; ++i) {
        EXPECT_EQ(m_Runs[i].Args, QStringList({"0x1"})) << i;
    }
    EXPECT_EQ(m_Runs[4].Args, QStringList({"0x0"}));
}

TEST_F(Api, AliasesRunTheSameCommand) {
    ASSERT_EQ(RunLine("Project.AddSvdFile(\"a.svd\"); Project.SetPeripheralFile(\"b.svd\"); "
                      "Tools.TarvoSettings(); Edit.TarvoSettings();"),
              0);
    ASSERT_EQ(m_Runs.size(), 4);
    EXPECT_EQ(m_Runs[0].Name, "Project.AddSvdFile");
    EXPECT_EQ(m_Runs[1].Name, "Project.AddSvdFile");
    EXPECT_EQ(m_Runs[1].Args, QStringList({"b.svd"}));
    EXPECT_EQ(m_Runs[2].Name, m_Runs[3].Name);
}

TEST_F(Api, ResultIsTheCommandsCutTo32Bits) {
    OnCommand("Target.ReadU32",
              [this]() { Commands::SetCommandResult(Id("Target.ReadU32"), 0x100000005LL); });
    ASSERT_EQ(Load("__int64 F (void) { return Target.ReadU32(0x1000); }\n"
                   "__int64 G (void) { return Debug.Start(); }\n"),
              0);
    U64 Arg = 0;
    U64 Result = 0;
    ASSERT_EQ(TScript::ExecFunction("F", 0, 0, &Arg, &Result), 0);
    EXPECT_EQ(Result, 5u);
    OnCommand("Target.ReadU32", [this]() { Commands::SetCommandResult(Id("Target.ReadU32"), 0xFFFFFFFFLL); });
    ASSERT_EQ(TScript::ExecFunction("F", 0, 0, &Arg, &Result), 0);
    EXPECT_EQ(Result, ~U64(0)) << "a native's result is a signed 32-bit number";
    // A disabled command gives -1 and prints its report.
    Commands::SetCommandEnabled(Id("Debug.Start"), false);
    ConsoleRing::Clear();
    ASSERT_EQ(TScript::ExecFunction("G", 0, 0, &Arg, &Result), 0);
    EXPECT_EQ(static_cast<I64>(Result), -1);
    EXPECT_EQ(TakeConsole(), QStringList({"Debug.Start: Command disabled"}));
}

TEST_F(Api, CommandsWaitForTheirDeviceJobs) {
    RecordingDevice Device;
    SetDeviceWaits(&Device);
    const struct {
        const char* Statement;
        QStringList Calls;
    } Cases[] = {
        {"File.Open(\"a.elf\");", {"job 30"}},
        {"Edit.SysVar(1, 2);", {"job 61 events"}},
        {"Debug.Start();", {"idle"}},
        {"Debug.Halt();", {"job 4", "halted"}},
        {"Debug.StepOver();", {"job 6"}},
        {"Project.SetMCT(ON);", {"job 48"}},
        {"Project.SetMCT(0x100000000);", {"job 49"}},
        {"Target.WriteU32(0x20000000, 1);", {"job 32", "job 30"}},
        {"Exec.Reset();", {"job 3", "halted"}},
        {"Exec.Connect();", {"job 1 events"}},
        {"Break.ClearOnData(1, 2, 3, 4, 5, 6);", {"job 20"}},
        {"Util.Log(\"no device job\");", {}},
    };
    for (const auto& C : Cases) {
        Device.Calls.clear();
        EXPECT_EQ(RunLine(C.Statement), 0) << C.Statement;
        EXPECT_EQ(Device.Calls, C.Calls) << C.Statement;
    }
    // A command that fails asks the device for nothing, and so does any command without a device.
    Device.Calls.clear();
    Commands::SetCommandEnabled(Id("Debug.Halt"), false);
    EXPECT_EQ(RunLine("Debug.Halt();"), 0);
    EXPECT_TRUE(Device.Calls.isEmpty());
    SetDeviceWaits(nullptr);
    EXPECT_EQ(RunLine("File.Open(\"a.elf\");"), 0);
    EXPECT_TRUE(Device.Calls.isEmpty());
}

TEST_F(Api, WaitTableNamesExistingScriptableCommands) {
    int Count = 0;
    const COMMAND_WAIT* Rows = GetRows(&Count);
    EXPECT_GE(Count, 60);
    for (int i = 0; i < Count; ++i) {
        const I32 Row = Commands::FindCommand(QString::fromLatin1(Rows[i].Command));
        ASSERT_GE(Row, 0) << Rows[i].Command;
        EXPECT_TRUE(Commands::IsCommandScriptable(static_cast<U32>(Row))) << Rows[i].Command;
        EXPECT_EQ(FindWait(static_cast<U32>(Row)), &Rows[i]) << Rows[i].Command;
        EXPECT_NE(Rows[i].Steps[0].Op, WAIT_NONE) << Rows[i].Command;
    }
    EXPECT_EQ(FindWait(Id("Util.Log")), nullptr);
    EXPECT_EQ(FindWait(COMMAND_COUNT), nullptr);
}

TEST_F(Api, NumberArgumentFormat) {
    EXPECT_EQ(TAPI::FormatNumberArg(31, 32), "0x1F");
    EXPECT_EQ(TAPI::FormatNumberArg(0, 32), "0x0");
    EXPECT_EQ(TAPI::FormatNumberArg(~U64(0), 8), "0xFF");
    EXPECT_EQ(TAPI::FormatNumberArg(~U64(0), 64), "0xFFFFFFFFFFFFFFFF");
    EXPECT_EQ(TAPI::ParamBits(Id("Edit.SysVar"), 1), 64);
    EXPECT_EQ(TAPI::ParamBits(Id("Target.WriteU8"), 1), 8);
    EXPECT_EQ(TAPI::ParamBits(Id("Target.WriteU8"), 0), 32);
}

} // namespace
