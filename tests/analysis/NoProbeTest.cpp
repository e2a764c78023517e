// The plug-in in a program without the probe library: register access fails cleanly and says why,
// once per function.
#include "ArmPlugin.h"
#include "ConsoleCapture.h"

#include "app/core/Paths.h"
#include "probe/TarvoCores.h"

#include <QCoreApplication>

#include <gtest/gtest.h>

namespace {

TEST(NoProbeTest, RegisterAccessFailsAndIsReportedOnce) {
    ConsoleCapture Console;
    ASSERT_EQ(ArmPlugin::Load(TARVO_CORE_CORTEX_M3), CorePluginLoader::LOAD_DONE);
    const CORE_PLUGIN_API& A = ArmPlugin::Api();
    U64 V = 5;
    EXPECT_EQ(A.ReadReg(TARVO_REG_PC, sizeof V, &V), -1);
    EXPECT_EQ(A.ReadReg(TARVO_REG_SP, sizeof V, &V), -1);
    EXPECT_EQ(A.WriteReg(TARVO_REG_SP, sizeof V, &V), -1);
    EXPECT_EQ(V, 5u);
    const U32 Index[2] = {0, 1};
    U64 Values[2] = {};
    U8 Status[2] = {0, 0};
    EXPECT_EQ(A.ReadRegs(2, Index, sizeof Values, Values, Status), -1);
    EXPECT_EQ(Status[0], 1);
    EXPECT_EQ(Status[1], 1);
    U32 Mode = 0;
    EXPECT_EQ(A.GetCPUMode(&Mode), -1);
    EXPECT_EQ(Console.Lines(),
              QStringList({"Core plug-in: the probe library function TARVOARM_ReadReg is not available",
                           "Core plug-in: the probe library function TARVOARM_WriteReg is not available"}));
    // Decoding needs no probe.
    ArmPlugin::SetCode(0x100, {0x2001});
    EXPECT_EQ(ArmPlugin::Print(0x100), "movs\tr0, #1");
    CorePluginLoader::Unload();
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication App(argc, argv);
    Paths::SetInstallDirOverride(qEnvironmentVariable("ARNEX_BIN_DIR"));
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
