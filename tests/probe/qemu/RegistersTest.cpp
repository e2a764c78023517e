// Every register of the C interface on the emulated boards, the special registers reached by
// injected instructions among them.

#include "BoardFixture.h"

using namespace probetest;

class Registers : public Board {};

TEST_F(Registers, EveryCoreRegisterKeepsWhatIsWritten) {
    Start("MPS2-AN385", "demo");
    RunTo("main");
    for (U32 i = 0; i <= 12; ++i) {
        ASSERT_EQ(TARVOARM_WriteReg(i, 0x10101010u * (i + 1)), 0) << i;
    }
    ASSERT_EQ(TARVOARM_WriteReg(TARVO_REG_LR, 0x0000ABCD), 0);
    ASSERT_EQ(TARVOARM_WriteReg(TARVO_REG_PC, Elf.Symbol("Factorial")), 0);
    ASSERT_EQ(TARVOARM_WriteReg(TARVO_REG_XPSR, 0xF1000000), 0);
    for (U32 i = 0; i <= 12; ++i) {
        EXPECT_EQ(Reg(i), 0x10101010u * (i + 1)) << i;
    }
    EXPECT_EQ(Reg(TARVO_REG_LR), 0xABCDu);
    EXPECT_EQ(Reg(TARVO_REG_PC), Elf.Symbol("Factorial"));
    EXPECT_EQ(Reg(TARVO_REG_XPSR), 0xF1000000u);
    // The stack pointers: sp is MSP while CONTROL.SPSEL is 0, PSP after it is set.
    ASSERT_EQ(TARVOARM_WriteReg(TARVO_REG_SP, 0x20003000), 0);
    EXPECT_EQ(Reg(TARVO_REG_MSP), 0x20003000u);
    ASSERT_EQ(TARVOARM_WriteReg(TARVO_REG_MSP, 0x20002000), 0);
    EXPECT_EQ(Reg(TARVO_REG_SP), 0x20002000u);
    ASSERT_EQ(TARVOARM_WriteReg(TARVO_REG_PSP, 0x20001000), 0);
    EXPECT_EQ(Reg(TARVO_REG_PSP), 0x20001000u);
    ASSERT_EQ(TARVOARM_WriteReg(TARVO_REG_CONTROL, 2), 0);
    EXPECT_EQ(Reg(TARVO_REG_CONTROL), 2u);
    EXPECT_EQ(Reg(TARVO_REG_SP), 0x20001000u) << "thread mode on the process stack";
    ASSERT_EQ(TARVOARM_WriteReg(TARVO_REG_CONTROL, 0), 0);
    EXPECT_EQ(Reg(TARVO_REG_SP), 0x20002000u);
    ASSERT_EQ(TARVOARM_WriteReg(TARVO_REG_PRIMASK, 1), 0);
    ASSERT_EQ(TARVOARM_WriteReg(TARVO_REG_BASEPRI, 0x80), 0);
    ASSERT_EQ(TARVOARM_WriteReg(TARVO_REG_FAULTMASK, 1), 0);
    EXPECT_EQ(Reg(TARVO_REG_PRIMASK), 1u);
    EXPECT_EQ(Reg(TARVO_REG_BASEPRI), 0x80u);
    EXPECT_EQ(Reg(TARVO_REG_FAULTMASK), 1u);
    // Reaching them ran code in scratch RAM: the registers and memory it used are as they were.
    for (U32 i = 0; i <= 12; ++i) {
        EXPECT_EQ(Reg(i), 0x10101010u * (i + 1)) << i;
    }
    EXPECT_EQ(Reg(TARVO_REG_PC), Elf.Symbol("Factorial"));
    EXPECT_EQ(Reg(TARVO_REG_XPSR), 0xF1000000u);
    EXPECT_EQ(Word(0x20000000), 1u) << "g_Points[0].X still there";
    // A Cortex-M3 has no floating point unit: those registers are unavailable, not zero.
    const U32 Fpu[] = {TARVO_REG_FPSCR, TARVO_REG_S0, TARVO_REG_S0 + 31};
    U64 Values[3];
    U8 Status[3];
    ASSERT_EQ(TARVOARM_ReadRegs(Fpu, Values, Status, 3), 0);
    EXPECT_EQ(Status[0], 1);
    EXPECT_EQ(Status[2], 1);
}

TEST_F(Registers, SinglePrecisionRegistersOfACortexM4) {
    Start("MPS2-AN386", "demo");
    RunTo("main");
    ASSERT_EQ(TARVOARM_WriteReg(TARVO_REG_S0, 0x3F800000), 0);     // 1.0f
    ASSERT_EQ(TARVOARM_WriteReg(TARVO_REG_S0 + 1, 0x40490FDB), 0); // pi
    ASSERT_EQ(TARVOARM_WriteReg(TARVO_REG_S0 + 31, 0xC0000000), 0);
    ASSERT_EQ(TARVOARM_WriteReg(TARVO_REG_FPSCR, 0x00C00000), 0);
    EXPECT_EQ(Reg(TARVO_REG_S0), 0x3F800000u) << "writing s1 kept s0, its neighbour in d0";
    EXPECT_EQ(Reg(TARVO_REG_S0 + 1), 0x40490FDBu);
    EXPECT_EQ(Reg(TARVO_REG_S0 + 30), 0u);
    EXPECT_EQ(Reg(TARVO_REG_S0 + 31), 0xC0000000u);
    EXPECT_EQ(Reg(TARVO_REG_FPSCR), 0x00C00000u);
    std::vector<U32> All;
    for (U32 i = 0; i < TARVO_REG_COUNT; ++i) {
        All.push_back(i);
    }
    std::vector<U64> Values(All.size());
    std::vector<U8> Status(All.size());
    ASSERT_EQ(TARVOARM_ReadRegs(All.data(), Values.data(), Status.data(), static_cast<U32>(All.size())), 0);
    for (U32 i = 0; i < TARVO_REG_COUNT; ++i) {
        const bool Exists = i <= TARVO_REG_FPSCR || i >= TARVO_REG_S0;
        EXPECT_EQ(Status[i], Exists ? 0 : 1) << "register " << i;
    }
    EXPECT_EQ(Values[TARVO_REG_S0 + 1], 0x40490FDBu);
    EXPECT_EQ(Values[TARVO_REG_MSP], Values[TARVO_REG_SP]);
}
