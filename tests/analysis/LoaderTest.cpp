// Finding and loading the core plug-in: the file for a core, each failure with its message, and the
// same file configured again in place of a reload.
#include "ArmPlugin.h"
#include "ConsoleCapture.h"

#include "app/core/Paths.h"
#include "probe/TarvoCores.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cstring>
#include <dlfcn.h>

namespace {

using namespace CorePluginLoader;

QString TestPlugin(const char* Variant) {
    return QStringLiteral(ARNEX_TEST_PLUGIN_DIR "/TestPlugin") + QLatin1String(Variant) +
           QStringLiteral(".so");
}

CORE_PLUGIN_CONFIG Config(U32 Core, const char* sPath = "") {
    CORE_PLUGIN_CONFIG C = ArmPlugin::Config(Core);
    snprintf(C.sPath, sizeof C.sPath, "%s", sPath);
    return C;
}

bool ApiIsZero() {
    static const CORE_PLUGIN_API Zero{};
    return memcmp(&GetApi(), &Zero, sizeof Zero) == 0;
}

struct Counts {
    int Init = -1;
    int Reconfigure = -1;
    U32 Core = 0;
};

/// Init and Reconfigure calls the working test plug-in has seen since it was loaded; nothing if it
/// isn't loaded. The handle is taken without loading, so the loader's reference is all that counts.
Counts TestPluginCounts() {
    Counts C;
    void* Handle = dlopen(TestPlugin("Good").toUtf8().constData(), RTLD_LAZY | RTLD_NOLOAD);
    if (Handle == nullptr) {
        return C;
    }
    if (auto Get = reinterpret_cast<void (*)(int*, int*, U32*)>(dlsym(Handle, "TestPlugin_GetCounts"))) {
        Get(&C.Init, &C.Reconfigure, &C.Core);
    }
    dlclose(Handle);
    return C;
}

class LoaderTest : public ::testing::Test {
protected:
    void SetUp() override {
        Unload();
        SetProjectPath(QString());
        SetFileDialogHook(nullptr);
        m_Console.Lines();
    }
    void TearDown() override {
        Unload();
        SetProjectPath(QString());
        SetFileDialogHook(nullptr);
    }
    /// A failed load: its result, its message (kept and logged), and nothing left loaded.
    void ExpectFailure(int Result, const QString& Message) {
        EXPECT_EQ(Result, LOAD_FAILED);
        EXPECT_EQ(GetLastError(), Message);
        EXPECT_TRUE(m_Console.Lines().join('\n').contains(Message.mid(1)));
        EXPECT_FALSE(IsLoaded());
        EXPECT_TRUE(ApiIsZero());
        EXPECT_TRUE(GetLoadedPath().isEmpty());
    }

    ConsoleCapture m_Console;
};

TEST_F(LoaderTest, TheCoreFamilyChoosesTheFile) {
    EXPECT_EQ(GetDefaultName(TARVO_CORE_CORTEX_M3), "CorePluginARM");
    for (U32 Family : {6u, 7u, 12u, 14u, 15u}) {
        EXPECT_EQ(GetDefaultName(Family << 24 | 0x0100), "CorePluginARM") << Family;
    }
    EXPECT_EQ(GetDefaultName(TARVO_CORE_RISCV32), "CorePluginRISCV");
    for (U32 Family : {1u, 2u, 4u, 5u, 13u, 16u, 18u, 20u}) {
        EXPECT_TRUE(GetDefaultName(Family << 24).isEmpty()) << Family;
    }
    EXPECT_EQ(GetDefaultPath(TARVO_CORE_CORTEX_M4), Paths::GetCorePluginDir() + "CorePluginARM.so");
    EXPECT_TRUE(GetDefaultPath(0x01000000).isEmpty());
}

TEST_F(LoaderTest, TheDefaultFileLoadsAndNamesTheCore) {
    ASSERT_EQ(Load(Config(TARVO_CORE_CORTEX_M4), false), LOAD_DONE);
    EXPECT_TRUE(IsLoaded());
    EXPECT_EQ(GetLoadedPath(), QFileInfo(GetDefaultPath(TARVO_CORE_CORTEX_M4)).canonicalFilePath());
    EXPECT_TRUE(GetLastError().isEmpty());
    char Name[64];
    ASSERT_NE(GetApi().GetCoreName, nullptr);
    GetApi().GetCoreName(TARVO_CORE_CORTEX_M4, Name, sizeof Name);
    EXPECT_STREQ(Name, "Cortex-M4");
    Unload();
    EXPECT_FALSE(IsLoaded());
    EXPECT_TRUE(ApiIsZero());
}

TEST_F(LoaderTest, BadCoreOrMissingFileIsAProjectWarning) {
    ExpectFailure(Load(Config(0), false), "Project Warning: unknown target device specified.");
    ExpectFailure(Load(Config(0x83000000), false), "Project Warning: unknown target device specified.");
    // No default for the family, and none built for RISC-V.
    const QString NoDefault =
        "Project Warning: target core support plugin not specified and could not determine default.";
    ExpectFailure(Load(Config(0x01000000), false), NoDefault);
    ExpectFailure(Load(Config(TARVO_CORE_RISCV32), false), NoDefault);
    SetProjectPath("/nonexistent/CorePluginARM.so");
    ExpectFailure(Load(Config(TARVO_CORE_CORTEX_M3), false),
                  "Project Warning: target core support plugin not found at /nonexistent/CorePluginARM.so");
}

TEST_F(LoaderTest, EachBrokenStepUnloadsWithItsMessage) {
    QTemporaryDir Dir;
    const QString NotALibrary = Dir.filePath("CorePluginARM.so");
    QFile F(NotALibrary);
    ASSERT_TRUE(F.open(QIODevice::WriteOnly));
    F.write("not a shared library\n");
    F.close();
    const struct {
        QString Path;
        QString Message;
    } Cases[] = {
        {NotALibrary, "Failed to load library at " + NotALibrary},
        {TestPlugin("NoGetName"),
         "invalid target core support plugin: required function 'CORE_PLUGIN_GetName' not found."},
        {TestPlugin("GetApiFails"),
         "Target core support plugin initialization failed: incompatible plugin API"},
        {TestPlugin("SetApiFails"),
         "Target core support plugin initialization failed: incompatible debugger API"},
        {TestPlugin("NoInit"),
         "Target core support plugin initialization failed: plugin API is missing init function"},
    };
    for (const auto& C : Cases) {
        SCOPED_TRACE(C.Path.toStdString());
        SetProjectPath(C.Path);
        ExpectFailure(Load(Config(TARVO_CORE_CORTEX_M3), false), C.Message);
    }
    SetProjectPath(TestPlugin("Good"));
    ExpectFailure(
        Load(Config(TARVO_CORE_CORTEX_M3, "init=-7"), false),
        "Target core support plugin initialization failed: plugin API function 'Init' returned error "
        "code -7");
}

TEST_F(LoaderTest, AFailedLoadUnloadsThePluginInUse) {
    ASSERT_EQ(Load(Config(TARVO_CORE_CORTEX_M3), false), LOAD_DONE);
    SetProjectPath(TestPlugin("NoInit"));
    EXPECT_EQ(Load(Config(TARVO_CORE_CORTEX_M3), false), LOAD_FAILED);
    EXPECT_FALSE(IsLoaded());
    EXPECT_TRUE(ApiIsZero());
}

TEST_F(LoaderTest, TheSameFileIsReconfiguredByItsAnswer) {
    SetProjectPath(TestPlugin("Good"));
    ASSERT_EQ(Load(Config(TARVO_CORE_CORTEX_M3), false), LOAD_DONE);
    Counts C = TestPluginCounts();
    EXPECT_EQ(C.Init, 1);
    EXPECT_EQ(C.Reconfigure, 0);

    // 0: taken over in place.
    EXPECT_EQ(Load(Config(TARVO_CORE_CORTEX_M4, "reconf=0"), false), LOAD_RECONFIGURED);
    C = TestPluginCounts();
    EXPECT_EQ(C.Init, 1);
    EXPECT_EQ(C.Reconfigure, 1);
    EXPECT_EQ(C.Core, TARVO_CORE_CORTEX_M4);
    // 1: passed on to the caller.
    EXPECT_EQ(Load(Config(TARVO_CORE_CORTEX_M7, "reconf=1"), false), LOAD_RECONFIGURE_PASSED);
    EXPECT_EQ(TestPluginCounts().Reconfigure, 2);
    // Anything else: the plug-in is loaded anew, so its counters start again.
    EXPECT_EQ(Load(Config(TARVO_CORE_CORTEX_M3, "reconf=5"), false), LOAD_DONE);
    C = TestPluginCounts();
    EXPECT_EQ(C.Init, 1);
    EXPECT_EQ(C.Reconfigure, 0);
    EXPECT_TRUE(IsLoaded());
}

TEST_F(LoaderTest, TheArmPluginTakesANewCoreInPlace) {
    ASSERT_EQ(ArmPlugin::Load(TARVO_CORE_CORTEX_M4), LOAD_DONE);
    // An ARMv7-M instruction that ARMv6-M lacks.
    ArmPlugin::SetCode(0x100, {0xF103, 0x0C20}); // add.w ip, r3, #32
    EXPECT_EQ(ArmPlugin::Analyze(0x100).Size, 4);
    ASSERT_EQ(ArmPlugin::Load(TARVO_CORE_CORTEX_M0), LOAD_RECONFIGURED);
    int Result = 0;
    ArmPlugin::Analyze(0x100, &Result);
    EXPECT_GT(Result, 0);
    char Name[64];
    GetApi().GetCoreName(TARVO_CORE_CORTEX_M0, Name, sizeof Name);
    EXPECT_STREQ(Name, "Cortex-M0");
    // A core the ARM plug-in can't serve is refused by Reconfigure, so the file is loaded again and
    // Init refuses it too.
    CORE_PLUGIN_CONFIG Risc = ArmPlugin::Config(TARVO_CORE_RISCV32);
    EXPECT_EQ(LoadFile(GetLoadedPath(), Risc), LOAD_FAILED);
    EXPECT_EQ(GetLastError(), "Target core support plugin initialization failed: plugin API function 'Init' "
                              "returned error code -2");
    CoreDebugger::ClearProgramImage();
}

TEST_F(LoaderTest, TheDialogAsksOnlyWhenAllowedAndItsChoiceIsDroppedForAnotherCore) {
    int Asked = 0;
    QString Title, Text;
    SetFileDialogHook([&](const QString& T, const QString& X) {
        ++Asked;
        Title = T;
        Text = X;
        return TestPlugin("Good");
    });
    // RISC-V has no plug-in in the install directory.
    EXPECT_EQ(Load(Config(TARVO_CORE_RISCV32), false), LOAD_FAILED);
    EXPECT_EQ(Asked, 0);
    EXPECT_EQ(Load(Config(TARVO_CORE_RISCV32), true), LOAD_DONE);
    EXPECT_EQ(Asked, 1);
    EXPECT_EQ(Title, "Project Warning");
    EXPECT_EQ(Text, "Arnex could not locate the target core support plugin for the selected device.\n"
                    "Please specify the file location manually.");
    EXPECT_EQ(GetProjectPath(), TestPlugin("Good"));
    EXPECT_EQ(Load(Config(TARVO_CORE_RISCV32, "reconf=0"), true), LOAD_RECONFIGURED);
    // The pick stood in for the RISC-V plug-in, so an ARM core goes back to its default file.
    EXPECT_EQ(Load(Config(TARVO_CORE_CORTEX_M3), true), LOAD_DONE);
    EXPECT_EQ(Asked, 1);
    EXPECT_TRUE(GetProjectPath().isEmpty());
    EXPECT_EQ(GetLoadedPath(), QFileInfo(GetDefaultPath(TARVO_CORE_CORTEX_M3)).canonicalFilePath());
}

TEST_F(LoaderTest, AProjectPathWinsOverTheDefaultAndStaysForAnotherCore) {
    SetProjectPath(TestPlugin("Good"));
    EXPECT_EQ(Load(Config(TARVO_CORE_CORTEX_M3), true), LOAD_DONE);
    EXPECT_EQ(GetLoadedPath(), QFileInfo(TestPlugin("Good")).canonicalFilePath());
    EXPECT_EQ(Load(Config(TARVO_CORE_RISCV32, "reconf=0"), true), LOAD_RECONFIGURED);
    EXPECT_EQ(GetProjectPath(), TestPlugin("Good"));
}

} // namespace
