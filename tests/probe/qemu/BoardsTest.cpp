// Each emulated board with its memory map: a few instructions put into its code memory by hand.

#include "BoardFixture.h"

using namespace probetest;

namespace {

struct BoardCase {
    const char* Device;
    U32 Code;
    U32 Ram;
    U32 RamSize;
    bool Fpu;
};

} // namespace

class Boards : public Board, public ::testing::WithParamInterface<BoardCase> {};

TEST_P(Boards, RunsCodeFromItsMemoryMap) {
    const BoardCase& C = GetParam();
    Start(C.Device, "");
    TARVO_DEVICE_INFO Info{};
    Info.SizeOfStruct = sizeof Info;
    ASSERT_EQ(TARVOARM_DEVICE_GetInfo(TARVOARM_DEVICE_GetIndex(C.Device), &Info), 0);
    EXPECT_EQ(Info.FlashAddr, C.Code);
    EXPECT_EQ(Info.RAMAddr, C.Ram);
    // Vector table: the stack at the end of RAM, reset at code + 0x40:
    //   movs r0, #1; adds r0, #1; adds r0, #1; b .
    const U32 Vectors[2] = {C.Ram + C.RamSize, C.Code + 0x41};
    const U16 Code[4] = {0x2001, 0x3001, 0x3001, 0xE7FE};
    ASSERT_EQ(TARVOARM_WriteMemEx(C.Code, 8, Vectors, 0), 8);
    ASSERT_EQ(TARVOARM_WriteMemEx(C.Code + 0x40, 8, Code, 0), 8);
    ASSERT_EQ(TARVOARM_Reset(), 0);
    EXPECT_EQ(Reg(TARVO_REG_PC), C.Code + 0x40);
    EXPECT_EQ(Reg(TARVO_REG_SP), C.Ram + C.RamSize);
    EXPECT_EQ(Reg(TARVO_REG_MSP), C.Ram + C.RamSize);
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(TARVOARM_Step(), 0);
    }
    EXPECT_EQ(Reg(0), 3u);
    EXPECT_EQ(Reg(TARVO_REG_PC), C.Code + 0x46);
    // The last word of RAM takes a value.
    ASSERT_EQ(TARVOARM_WriteU32(C.Ram + C.RamSize - 4, 0xA5A5F00D), 0);
    EXPECT_EQ(Word(C.Ram + C.RamSize - 4), 0xA5A5F00Du);
    U64 S0;
    EXPECT_EQ(TARVOARM_ReadReg(TARVO_REG_S0, &S0) == 0, C.Fpu);
    TARVOARM_GoEx(0, 1);
    EXPECT_EQ(TARVOARM_IsHalted(), 0);
    EXPECT_EQ(TARVOARM_Halt(), 0);
    EXPECT_EQ(Reg(TARVO_REG_PC), C.Code + 0x46) << "b . holds it there";
}

INSTANTIATE_TEST_SUITE_P(Emulated, Boards,
                         ::testing::Values(BoardCase{"MPS2-AN385", 0x00000000, 0x20000000, 0x400000, false},
                                           BoardCase{"MPS2-AN386", 0x00000000, 0x20000000, 0x400000, true},
                                           BoardCase{"MPS2-AN500", 0x00000000, 0x20000000, 0x400000, true},
                                           BoardCase{"MPS2-AN505", 0x10000000, 0x38000000, 0x400000, true}),
                         [](const ::testing::TestParamInfo<BoardCase>& I) {
                             std::string Name = I.param.Device;
                             Name.erase(std::remove(Name.begin(), Name.end(), '-'), Name.end());
                             return Name;
                         });
