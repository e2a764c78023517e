// The plug-in in a program without the probe library: register access fails cleanly and says why,
// once per function. The program loads the plug-in itself and links nothing of the debugger, so that
// no probe library comes in through a link line.
#include "probe/CorePluginAPI.h"
#include "probe/TarvoCores.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <string>
#include <vector>

namespace {

std::vector<std::string> s_Log;
const U8 s_Code[2] = {0x01, 0x20}; // movs r0, #1 at 0x100

int Log(const char* sText, int Level) {
    s_Log.push_back(std::to_string(Level) + ' ' + sText);
    return 0;
}

int ReadMem(U64 Addr, U32 Size, void* pBuf) {
    if (Addr < 0x100 || Addr + Size > 0x102) {
        return -1;
    }
    memcpy(pBuf, s_Code + (Addr - 0x100), Size);
    return 0;
}

TEST(NoProbeTest, RegisterAccessFailsAndIsReportedOnce) {
    ASSERT_EQ(dlsym(RTLD_DEFAULT, "TARVOARM_ReadReg"), nullptr);
    const std::string Path = std::string(getenv("ARNEX_BIN_DIR")) + "/Plugins/Core/CorePluginARM.so";
    void* Lib = dlopen(Path.c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(Lib, nullptr) << dlerror();
    auto GetApi = reinterpret_cast<int (*)(CORE_PLUGIN_API*, U32)>(dlsym(Lib, "CORE_PLUGIN_GetAPI"));
    auto SetApi = reinterpret_cast<int (*)(const CORE_DEBUGGER_API*, U32)>(dlsym(Lib, "CORE_PLUGIN_SetAPI"));
    ASSERT_NE(GetApi, nullptr);
    ASSERT_NE(SetApi, nullptr);
    CORE_PLUGIN_API A{};
    ASSERT_EQ(GetApi(&A, sizeof A), 0);
    CORE_DEBUGGER_API D{};
    D.ReadMem = ReadMem;
    D.Log = Log;
    ASSERT_EQ(SetApi(&D, sizeof D), 0);
    CORE_PLUGIN_CONFIG C{};
    C.Core = TARVO_CORE_CORTEX_M3;
    ASSERT_EQ(A.Init(&C), 0);

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
    EXPECT_EQ(s_Log, (std::vector<std::string>{
                         "0 Core plug-in: the probe library function TARVOARM_ReadReg is not available",
                         "0 Core plug-in: the probe library function TARVOARM_WriteReg is not available"}));
    // Decoding needs no probe.
    char Text[64];
    INST_INFO I{};
    ASSERT_EQ(A.AnalyzeInst(0x100, &I, 2), 0);
    ASSERT_EQ(A.PrintInst(0x100, I.Size, Text, sizeof Text), 2);
    EXPECT_STREQ(Text, "movs\tr0, #1");
    dlclose(Lib);
}

} // namespace
