// Core registers through the probe library, served here by a fake register file: the plug-in finds
// these functions in the test program at run time, as it finds the library's in the debugger.
#include "ArmPlugin.h"

#include "probe/TarvoCores.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

struct FakeProbe {
    U64 Regs[TARVO_REG_COUNT] = {};
    bool Fails[TARVO_REG_COUNT] = {};
    int Calls = 0;
} s_Probe;

} // namespace

extern "C" {

int TARVOARM_ReadReg(U32 RegIndex, U64* pValue) {
    ++s_Probe.Calls;
    if (RegIndex >= TARVO_REG_COUNT || s_Probe.Fails[RegIndex]) {
        return -1;
    }
    *pValue = s_Probe.Regs[RegIndex];
    return 0;
}

int TARVOARM_WriteReg(U32 RegIndex, U64 Value) {
    ++s_Probe.Calls;
    if (RegIndex >= TARVO_REG_COUNT || s_Probe.Fails[RegIndex]) {
        return -1;
    }
    s_Probe.Regs[RegIndex] = Value;
    return 0;
}

int TARVOARM_ReadRegs(const U32* paRegIndex, U64* paValue, U8* paStatus, U32 NumRegs) {
    ++s_Probe.Calls;
    for (U32 i = 0; i < NumRegs; ++i) {
        const U32 R = paRegIndex[i];
        paStatus[i] = R < TARVO_REG_COUNT && !s_Probe.Fails[R] ? 0 : 1;
        paValue[i] = paStatus[i] == 0 ? s_Probe.Regs[R] : 0;
    }
    return 0;
}
}

namespace {

class RegisterTest : public ::testing::Test {
protected:
    void SetUp() override {
        s_Probe = FakeProbe();
        for (U32 i = 0; i < TARVO_REG_COUNT; ++i) {
            s_Probe.Regs[i] = 0x1000 + i;
        }
        ASSERT_GE(ArmPlugin::Load(TARVO_CORE_CORTEX_M4), 0);
    }
    const CORE_PLUGIN_API& Api() { return ArmPlugin::Api(); }
};

TEST_F(RegisterTest, ReadAndWriteByIndex) {
    U64 V = 0;
    ASSERT_EQ(Api().ReadReg(TARVO_REG_PC, sizeof V, &V), 0);
    EXPECT_EQ(V, 0x100Fu);
    V = 0x20001000;
    ASSERT_EQ(Api().WriteReg(TARVO_REG_SP, sizeof V, &V), 0);
    EXPECT_EQ(s_Probe.Regs[TARVO_REG_SP], 0x20001000u);
    ASSERT_EQ(Api().ReadReg(TARVO_REG_S0 + 31, sizeof V, &V), 0);
    EXPECT_EQ(V, 0x103Fu);
}

TEST_F(RegisterTest, BadRequestsNeverReachTheProbe) {
    U64 V = 7;
    EXPECT_EQ(Api().ReadReg(TARVO_REG_COUNT, sizeof V, &V), -1);
    EXPECT_EQ(Api().ReadReg(24, sizeof V, &V), -1); // no register between FPSCR and S0
    EXPECT_EQ(Api().ReadReg(TARVO_REG_PC, 4, &V), -1);
    EXPECT_EQ(Api().ReadReg(TARVO_REG_PC, sizeof V, nullptr), -1);
    EXPECT_EQ(Api().WriteReg(TARVO_REG_COUNT, sizeof V, &V), -1);
    EXPECT_EQ(s_Probe.Calls, 0);
    EXPECT_EQ(V, 7u);
}

TEST_F(RegisterTest, AFailingProbeFailsTheCall) {
    s_Probe.Fails[TARVO_REG_R0 + 3] = true;
    U64 V = 7;
    EXPECT_EQ(Api().ReadReg(3, sizeof V, &V), -1);
    EXPECT_EQ(V, 7u);
    EXPECT_EQ(Api().WriteReg(3, sizeof V, &V), -1);
}

TEST_F(RegisterTest, ReadManyWithAStatusEach) {
    s_Probe.Fails[TARVO_REG_BASEPRI] = true;
    const std::vector<U32> Index = {0, TARVO_REG_PC, TARVO_REG_BASEPRI, TARVO_REG_S0};
    std::vector<U64> Values(Index.size());
    std::vector<U8> Status(Index.size(), 255);
    ASSERT_EQ(Api().ReadRegs(4, Index.data(), 4 * sizeof(U64), Values.data(), Status.data()), 0);
    EXPECT_EQ(Status, (std::vector<U8>{0, 0, 1, 0}));
    EXPECT_EQ(Values[1], 0x100Fu);
    EXPECT_EQ(Values[3], 0x1020u);
    // A buffer too small for the count is refused.
    EXPECT_EQ(Api().ReadRegs(4, Index.data(), 3 * sizeof(U64), Values.data(), Status.data()), -1);
}

TEST_F(RegisterTest, RegistersTheCoreLacksHaveNoIndex) {
    const CORE_PLUGIN_API& A = Api();
    EXPECT_EQ(A.MapRegIndex(TARVO_REG_PC), static_cast<U32>(TARVO_REG_PC));
    EXPECT_EQ(A.MapRegIndex(TARVO_REG_BASEPRI), static_cast<U32>(TARVO_REG_BASEPRI));
    EXPECT_EQ(A.MapRegIndex(64), static_cast<U32>(TARVO_REG_S0)); // DWARF S0
    EXPECT_EQ(A.MapRegIndex(95), static_cast<U32>(TARVO_REG_S0 + 31));
    EXPECT_EQ(A.MapRegIndex(24), 0xFFFFFFFFu);
    EXPECT_EQ(A.MapRegIndex(96), 0xFFFFFFFFu);
    // ARMv6-M has neither BASEPRI and FAULTMASK nor floating-point registers.
    ASSERT_GE(ArmPlugin::Load(TARVO_CORE_CORTEX_M0), 0);
    EXPECT_EQ(A.MapRegIndex(TARVO_REG_PRIMASK), static_cast<U32>(TARVO_REG_PRIMASK));
    EXPECT_EQ(A.MapRegIndex(TARVO_REG_CONTROL), static_cast<U32>(TARVO_REG_CONTROL));
    EXPECT_EQ(A.MapRegIndex(TARVO_REG_BASEPRI), 0xFFFFFFFFu);
    EXPECT_EQ(A.MapRegIndex(TARVO_REG_FAULTMASK), 0xFFFFFFFFu);
    EXPECT_EQ(A.MapRegIndex(TARVO_REG_FPSCR), 0xFFFFFFFFu);
    EXPECT_EQ(A.MapRegIndex(64), 0xFFFFFFFFu);
    U64 V = 0;
    EXPECT_EQ(A.ReadReg(TARVO_REG_BASEPRI, sizeof V, &V), -1);
    // In a batch such a register is unavailable and the others are read one by one.
    const U32 Index[2] = {TARVO_REG_BASEPRI, TARVO_REG_LR};
    U64 Values[2] = {};
    U8 Status[2] = {255, 255};
    ASSERT_EQ(A.ReadRegs(2, Index, sizeof Values, Values, Status), 0);
    EXPECT_EQ(Status[0], 1);
    EXPECT_EQ(Status[1], 0);
    EXPECT_EQ(Values[1], 0x100Eu);
}

TEST_F(RegisterTest, HandlerModeFromTheExceptionNumber) {
    U32 Mode = 9;
    s_Probe.Regs[TARVO_REG_XPSR] = 0x61000000;
    ASSERT_EQ(Api().GetCPUMode(&Mode), 0);
    EXPECT_EQ(Mode, 0u);
    s_Probe.Regs[TARVO_REG_XPSR] = 0x2100000B; // SVCall
    ASSERT_EQ(Api().GetCPUMode(&Mode), 0);
    EXPECT_EQ(Mode, 1u);
    char Name[64];
    Api().GetCPUModeName(Mode, Name, sizeof Name);
    EXPECT_STREQ(Name, "Handler");
    s_Probe.Fails[TARVO_REG_XPSR] = true;
    EXPECT_EQ(Api().GetCPUMode(&Mode), -1);
}

} // namespace
