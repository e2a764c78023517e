// The irq program: a semihosting stop at its bkpt 0xAB, the special registers it sets, memory read
// while it runs, and watchpoints.

#include "BoardFixture.h"

#include <cstring>

using namespace probetest;

class Running : public Board {
protected:
    /// The address of the bkpt 0xAB instruction that SYS_WRITE0 goes through: in SemihostWrite0
    /// where the call was inlined (-O2), else in SemihostCall.
    U32 SemihostingTrap() {
        for (const char* Function : {"SemihostWrite0", "SemihostCall"}) {
            const U32 Start = Elf.Symbol(Function);
            std::vector<U16> Code(Elf.SymbolSize(Function) / 2);
            std::vector<U8> Status(Code.size());
            EXPECT_EQ(TARVOARM_ReadMemU16(Start, static_cast<U32>(Code.size()), Code.data(), Status.data()),
                      static_cast<int>(Code.size()));
            for (size_t i = 0; i < Code.size(); ++i) {
                if (Code[i] == 0xBEAB) {
                    return Start + static_cast<U32>(2 * i);
                }
            }
        }
        ADD_FAILURE() << "no bkpt 0xAB for SYS_WRITE0";
        return 0;
    }

    std::string ReadText(U32 Address) {
        char Text[64] = {};
        EXPECT_GT(TARVOARM_ReadMemEx(Address, sizeof Text - 1, Text, 0), 0);
        return Text;
    }

    /// Runs to the semihosting trap, checks the request and answers it as a debugger would.
    void ServeWrite0(const std::string& Expected) {
        const U32 Trap = SemihostingTrap();
        RunToAddress(Trap);
        EXPECT_EQ(Reg(0), 4u) << "SYS_WRITE0";
        EXPECT_EQ(ReadText(static_cast<U32>(Reg(1))), Expected);
        ASSERT_EQ(TARVOARM_WriteReg(0, 0), 0);
        ASSERT_EQ(TARVOARM_WriteReg(TARVO_REG_PC, Trap + 2), 0);
    }
};

TEST_F(Running, ABkptForSemihostingStopsLikeABreakpoint) {
    Start("MPS2-AN385", "irq");
    ServeWrite0("irq: started\n");
    RunTo("StartTicks");
    EXPECT_EQ(Reg(0), 0u) << "the answer given";
}

TEST_F(Running, SpecialRegistersShowWhatTheProgramSet) {
    Start("MPS2-AN385", "irq", "O2-dwarf5");
    ServeWrite0("irq: started\n");
    RunTo("StartTicks");
    EXPECT_EQ(Reg(TARVO_REG_BASEPRI), 0x40u);
    EXPECT_EQ(Reg(TARVO_REG_PSP), Elf.Symbol("g_ProcessStack") + 64 * 4);
    EXPECT_EQ(Reg(TARVO_REG_MSP), Reg(TARVO_REG_SP));
    EXPECT_EQ(Reg(TARVO_REG_PRIMASK), 0u);
    EXPECT_EQ(Reg(TARVO_REG_FAULTMASK), 0u);
    EXPECT_EQ(Reg(TARVO_REG_CONTROL), 0u);
}

TEST_F(Running, MemoryIsReadWhileTheProgramRuns) {
    Start("MPS2-AN385", "irq");
    ServeWrite0("irq: started\n");
    TARVOARM_GoEx(0, 1);
    const U32 Busy = Elf.Symbol("g_Busy");
    const U32 Ticks = Elf.Symbol("g_Ticks");
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    const U32 Busy1 = Word(Busy);
    const U32 Ticks1 = Word(Ticks);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const U32 Busy2 = Word(Busy);
    const U32 Ticks2 = Word(Ticks);
    EXPECT_EQ(TARVOARM_IsHalted(), 0) << "reading doesn't stop the board";
    EXPECT_GT(Busy2, Busy1);
    EXPECT_GT(Ticks2, Ticks1) << "the SysTick handler runs";
    // A block read of the running board, up to where memory ends.
    std::vector<U8> Block(4096 + 3);
    EXPECT_EQ(TARVOARM_ReadMemEx(0x20000001, static_cast<U32>(Block.size()), Block.data(), 0),
              static_cast<int>(Block.size()));
    U8 Edge[32];
    EXPECT_EQ(TARVOARM_ReadMemEx(0x23FFFFF8, 32, Edge, 0), 8) << "the bit-band alias ends at 0x24000000";
    // Writes stop the board for a moment.
    ASSERT_EQ(TARVOARM_WriteU32(Busy, 5), 0);
    EXPECT_EQ(TARVOARM_IsHalted(), 0);
    ASSERT_EQ(TARVOARM_Halt(), 0);
    EXPECT_LT(Word(Busy), Busy2) << "the write went in";
}

TEST_F(Running, WatchpointsOfEveryDirection) {
    Start("MPS2-AN385", "calls");
    RunTo("main"); // past the start-up code that clears both variables
    const U32 Sink = Elf.Symbol("g_Sink");
    const U32 Iterations = Elf.Symbol("g_Iterations");
    const auto Event = [](U32 Address, bool Write, bool Either) {
        TARVO_DATA_EVENT E{};
        E.Size = sizeof E;
        E.Type = 1;
        E.Addr = Address;
        E.DataMask = 0xFFFFFFFF;
        E.Access = (Write ? 1 : 0) | 4;
        E.AccessMask = 0x10 | (Either ? 1 : 0);
        return E;
    };
    // Writes: g_Sink is first stored in Level3.
    TARVO_DATA_EVENT E = Event(Sink, true, false);
    U32 Handle = 0;
    ASSERT_EQ(TARVOARM_SetDataEvent(&E, &Handle), 0);
    TARVOARM_GoEx(0, 1);
    ASSERT_EQ(WaitHalted(), 1);
    const U64 Pc = Reg(TARVO_REG_PC);
    EXPECT_GE(Pc, Elf.Symbol("Level3"));
    EXPECT_LT(Pc, Elf.Symbol("Level3") + Elf.SymbolSize("Level3"));
    // Resuming passes the store (it is reported before it completes) and stops at the next one.
    TARVOARM_GoEx(0, 1);
    ASSERT_EQ(WaitHalted(), 1);
    EXPECT_NE(Reg(TARVO_REG_PC), Pc);
    ASSERT_EQ(TARVOARM_ClrDataEvent(static_cast<int>(Handle)), 0);
    // Reads: the main loop reads g_Iterations before it writes it.
    E = Event(Iterations, false, false);
    ASSERT_EQ(TARVOARM_SetDataEvent(&E, &Handle), 0);
    TARVOARM_GoEx(0, 1);
    ASSERT_EQ(WaitHalted(), 1);
    const U64 ReadPc = Reg(TARVO_REG_PC);
    EXPECT_GE(ReadPc, Elf.Symbol("main"));
    const U32 Count = Word(Iterations);
    ASSERT_EQ(TARVOARM_ClrDataEvent(-1), 0);
    // Either direction: the write of the increment comes next.
    E = Event(Iterations, false, true);
    ASSERT_EQ(TARVOARM_SetDataEvent(&E, &Handle), 0);
    TARVOARM_GoEx(0, 1);
    ASSERT_EQ(WaitHalted(), 1);
    EXPECT_GT(Reg(TARVO_REG_PC), ReadPc);
    ASSERT_EQ(TARVOARM_Step(), 0) << "a step passes the access";
    EXPECT_EQ(Word(Iterations), Count + 1);
    ASSERT_EQ(TARVOARM_ClrDataEvent(-1), 0);
    EXPECT_EQ(TARVOARM_GetWPInfoEx(-1, nullptr), 0);
}
