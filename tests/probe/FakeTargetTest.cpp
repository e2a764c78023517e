// The fake target through the exported functions: what the layers above will test against.

#include "ApiFixture.h"

using namespace probetest;
namespace fake = tarvo::fake;

namespace {
constexpr U32 Any = 0xFFFFFFF0, HardOnly = 0xFFFFFF00, SoftOnly = 0x000000F0;

TARVO_DATA_EVENT WriteEvent(U32 Address, U32 AddrMask = 0) {
    TARVO_DATA_EVENT E{};
    E.Size = sizeof E;
    E.Type = 1;
    E.Addr = Address;
    E.AddrMask = AddrMask;
    E.DataMask = 0xFFFFFFFF;
    E.Access = 1 | 4;    // write, word
    E.AccessMask = 0x10; // any privilege
    return E;
}
} // namespace

class FakeTarget : public ApiTest {};

TEST_F(FakeTarget, ConnectsHaltedWithItsRegisterFile) {
    fake::SetRegister(TARVO_REG_R0 + 7, 0x1234);
    fake::SetRegister(TARVO_REG_CONTROL, 2);
    fake::SetRegisterAvailable(TARVO_REG_FPSCR, false);
    ConnectFake();
    EXPECT_EQ(TARVOARM_IsHalted(), 1);
    EXPECT_EQ(Reg(7), 0x1234u);
    EXPECT_EQ(Reg(TARVO_REG_CONTROL), 2u);
    const U32 Indices[] = {7, TARVO_REG_FPSCR, TARVO_REG_XPSR};
    U64 Values[3];
    U8 Status[3];
    ASSERT_EQ(TARVOARM_ReadRegs(Indices, Values, Status, 3), 0);
    EXPECT_EQ(Status[0], 0);
    EXPECT_EQ(Status[1], 1) << "an unavailable register is marked, not invented";
    EXPECT_EQ(Status[2], 0);
    ASSERT_EQ(TARVOARM_WriteReg(5, 0xCAFE), 0);
    EXPECT_EQ(fake::GetRegister(5), 0xCAFEu);
    EXPECT_NE(TARVOARM_WriteReg(TARVO_REG_FPSCR, 1), 0);
    EXPECT_EQ(fake::GetCounter(fake::Connects), 1);
}

TEST_F(FakeTarget, ReadsStopAtTheFirstByteThatFails) {
    ConnectFake();
    const U8 Bytes[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    ASSERT_EQ(TARVOARM_WriteMemEx(0x20000100, 8, Bytes, 0), 8);
    U32 Words[2] = {};
    U8 Status[2] = {9, 9};
    ASSERT_EQ(TARVOARM_ReadMemU32(0x20000100, 2, Words, Status), 2);
    EXPECT_EQ(Words[1], 0x08070605u);
    fake::FailReads(0x20000105, 1);
    EXPECT_EQ(TARVOARM_ReadMemU32(0x20000100, 2, Words, Status), 1);
    EXPECT_EQ(Status[0], 0);
    EXPECT_EQ(Status[1], 1);
    EXPECT_EQ(Words[1], 0u) << "an item that wasn't read is zero";
    U8 Block[8];
    EXPECT_EQ(TARVOARM_ReadMemEx(0x20000100, 8, Block, 0), 5);
    // The end of RAM: 40 bytes readable of 100.
    U8 Big[100];
    EXPECT_EQ(TARVOARM_ReadMemEx(0x20010000 - 40, 100, Big, 0), 40);
    fake::FailWrites(0x20000200, 4);
    EXPECT_NE(TARVOARM_WriteU32(0x20000200, 1), 0);
    EXPECT_EQ(TARVOARM_WriteMemEx(0x200001FE, 4, Bytes, 0), 2);
}

TEST_F(FakeTarget, TypedAndZonedCallsCountAsTheirCallersExpect) {
    ConnectFake();
    ASSERT_EQ(TARVOARM_WriteU64(0x20000000, 0x1122334455667788ULL), 0);
    U64 Wide = 0;
    U16 Half = 0;
    U32 Word = 0;
    U8 Status[8];
    EXPECT_EQ(TARVOARM_ReadMemU64(0x20000000, 1, &Wide, Status), 1);
    EXPECT_EQ(Wide, 0x1122334455667788ULL);
    // Zoned typed reads take and give bytes: (2 bytes) -> 2, (count 1) -> 4.
    EXPECT_EQ(TARVO_ReadMemZonedU16(0x20000000, 2, &Half, Status, "Default"), 2);
    EXPECT_EQ(Half, 0x7788);
    EXPECT_EQ(TARVO_ReadMemZonedU32(0x20000000, 1, &Word, Status, nullptr), 4);
    EXPECT_EQ(Word, 0x55667788u);
    EXPECT_EQ(TARVO_ReadMemZonedU32(0x20000000, 1, &Word, Status, "AHB-AP"), -1) << "no such zone";
    TARVO_MEM_ZONE Zones[16];
    ASSERT_EQ(TARVO_GetMemZones(Zones, 16), 1);
    EXPECT_STREQ(Zones[0].sName, "Default");
    ASSERT_EQ(TARVO_WriteZonedU16(0x20000010, 0xBEEF, "default"), 0);
    EXPECT_EQ(fake::Peek(0x20000010, 2), (std::vector<U8>{0xEF, 0xBE}));
}

TEST_F(FakeTarget, RunsAlongItsScriptToABreakpoint) {
    fake::SetScript({{0x100}, {0x102}, {0x104}, {0x106}, {0x108}, {0x10A}});
    fake::SetRunPolls(2);
    ConnectFake();
    EXPECT_EQ(Reg(TARVO_REG_PC), 0x100u);
    ASSERT_EQ(TARVOARM_Step(), 0);
    EXPECT_EQ(Reg(TARVO_REG_PC), 0x102u);
    const int Bp = TARVOARM_SetBPEx(0x106, Any);
    ASSERT_GT(Bp, 0);
    TARVOARM_GoEx(0, 1);
    EXPECT_EQ(TARVOARM_IsHalted(), 0);
    U64 Pc;
    EXPECT_NE(TARVOARM_ReadReg(TARVO_REG_PC, &Pc), 0) << "no registers while running";
    EXPECT_EQ(WaitHalted(), 1);
    EXPECT_EQ(Reg(TARVO_REG_PC), 0x106u);
    // Resuming with the step-over flag leaves the breakpoint behind; without it stops at once.
    TARVOARM_GoEx(0, 0);
    EXPECT_EQ(WaitHalted(), 1);
    EXPECT_EQ(Reg(TARVO_REG_PC), 0x106u);
    TARVOARM_GoEx(0, 1);
    EXPECT_EQ(TARVOARM_IsHalted(), 0);
    ASSERT_EQ(TARVOARM_Halt(), 0);
    EXPECT_EQ(TARVOARM_IsHalted(), 1);
    EXPECT_EQ(Reg(TARVO_REG_PC), 0x108u);
    ASSERT_EQ(TARVOARM_Reset(), 0);
    EXPECT_EQ(Reg(TARVO_REG_PC), 0x100u);
    EXPECT_EQ(fake::GetCounter(fake::Resets), 1);
}

TEST_F(FakeTarget, ResetLoadsTheVectorTable) {
    fake::Poke(0, {0x00, 0x10, 0x00, 0x20, 0x41, 0x01, 0x00, 0x00});
    ConnectFake();
    ASSERT_EQ(TARVOARM_Reset(), 0);
    EXPECT_EQ(Reg(TARVO_REG_SP), 0x20001000u);
    EXPECT_EQ(Reg(TARVO_REG_PC), 0x140u) << "the Thumb bit isn't part of the PC";
}

TEST_F(FakeTarget, BreakpointsFallBackToSoftwareWhenComparatorsRunOut) {
    fake::SetHardwareLimits(1, 1);
    ConnectFake();
    const int Hard = TARVOARM_SetBPEx(0x200, Any);
    const int SoftFlash = TARVOARM_SetBPEx(0x204, Any);
    const int SoftRam = TARVOARM_SetBPEx(0x20000100, Any | 4);
    ASSERT_GT(Hard, 0);
    ASSERT_GT(SoftFlash, 0);
    ASSERT_GT(SoftRam, 0);
    EXPECT_EQ(TARVOARM_SetBPEx(0x208, HardOnly), 0) << "no comparator left and no software allowed";
    EXPECT_EQ(TARVOARM_SetBPEx(0x200, Any), Hard) << "the same address gives the same handle";
    EXPECT_EQ(TARVOARM_FindBP(0x204), SoftFlash);
    EXPECT_EQ(TARVOARM_FindBP(0x208), 0);
    TARVO_BP_INFO Info{};
    Info.Size = sizeof Info;
    ASSERT_EQ(TARVOARM_GetBPInfoEx(Hard, &Info), 0);
    EXPECT_EQ(Info.ImplFlags, 1u);
    ASSERT_EQ(TARVOARM_GetBPInfoEx(SoftFlash, &Info), 0);
    EXPECT_EQ(Info.ImplFlags, 0x10u);
    ASSERT_EQ(TARVOARM_GetBPInfoEx(SoftRam, &Info), 0);
    EXPECT_EQ(Info.ImplFlags, 0x02u);
    EXPECT_EQ(TARVOARM_GetBPInfoEx(-1, nullptr), 3);
    EXPECT_EQ(fake::GetCounter(fake::Breakpoints), 3);
    ASSERT_EQ(TARVOARM_ClrBPEx(Hard), 0);
    EXPECT_NE(TARVOARM_ClrBPEx(Hard), 0) << "a handle works once";
    EXPECT_GT(TARVOARM_SetBPEx(0x208, HardOnly), 0) << "the comparator is free again";
    ASSERT_EQ(TARVOARM_ClrBPEx(-1), 0);
    EXPECT_EQ(fake::GetCounter(fake::Breakpoints), 0);
    EXPECT_EQ(TARVOARM_GetBPInfoEx(-1, nullptr), 0);
    // Software breakpoints switched off: only comparators.
    TARVOARM_EnableSoftBPs(0);
    EXPECT_GT(TARVOARM_SetBPEx(0x300, Any), 0);
    EXPECT_EQ(TARVOARM_SetBPEx(0x304, Any), 0);
    TARVOARM_EnableSoftBPs(1);
    const int Soft = TARVOARM_SetBPEx(0x304, SoftOnly);
    EXPECT_GT(Soft, 0);
    EXPECT_EQ(TARVOARM_FindBP(0x304), Soft);
}

TEST_F(FakeTarget, AWatchpointStopsTheScriptedAccess) {
    fake::SetScript({{0x100}, {0x102, 0x20000040, 1}, {0x104, 0x20000044, 2}, {0x106}});
    ConnectFake();
    TARVO_DATA_EVENT E = WriteEvent(0x20000044);
    U32 Handle = 0;
    ASSERT_EQ(TARVOARM_SetDataEvent(&E, &Handle), 0);
    EXPECT_GT(Handle, 0u);
    TARVOARM_GoEx(0, 1);
    EXPECT_EQ(WaitHalted(), 1);
    EXPECT_EQ(Reg(TARVO_REG_PC), 0x104u) << "the read at 0x102 of another word didn't stop it";
    ASSERT_EQ(TARVOARM_GetWPInfoEx(-1, nullptr), 1);
    TARVO_DATA_EVENT_INFO Info{};
    ASSERT_EQ(TARVOARM_GetWPInfoEx(0, &Info), 0);
    EXPECT_EQ(Info.Size, 40u);
    EXPECT_EQ(Info.Handle, Handle);
    EXPECT_EQ(Info.Addr, 0x20000044u);
    EXPECT_EQ(Info.AddrMask, 3u) << "a word access widens the mask";
    EXPECT_EQ(Info.Access, 5u);
    EXPECT_EQ(Info.AccessMask, 0x10u);
    ASSERT_EQ(TARVOARM_ClrDataEvent(static_cast<int>(Handle)), 0);
    EXPECT_EQ(TARVOARM_GetWPInfoEx(-1, nullptr), 0);
    EXPECT_EQ(fake::GetCounter(fake::Watchpoints), 0);
}

TEST_F(FakeTarget, DataEventsThatCantBeMadeSayWhy) {
    fake::SetHardwareLimits(6, 1);
    ConnectFake();
    TARVO_DATA_EVENT E = WriteEvent(0x20000000, 0xF0);
    U32 Handle = 0;
    EXPECT_EQ(TARVOARM_SetDataEvent(&E, &Handle), static_cast<int>(0x80000020u)) << "mask of scattered bits";
    E = WriteEvent(0x20000000);
    E.DataMask = 0xFFFF0000;
    EXPECT_EQ(TARVOARM_SetDataEvent(&E, &Handle), static_cast<int>(0x80000040u)) << "a value condition";
    E = WriteEvent(0x20000000);
    E.AccessMask = 0x40;
    EXPECT_EQ(TARVOARM_SetDataEvent(&E, &Handle), static_cast<int>(0x80000080u));
    E = WriteEvent(0x20000000, 0xFF);
    ASSERT_EQ(TARVOARM_SetDataEvent(&E, &Handle), 0) << "a block of 256 bytes";
    E = WriteEvent(0x20000100);
    EXPECT_EQ(TARVOARM_SetDataEvent(&E, &Handle), static_cast<int>(0x80000002u)) << "no comparator left";
    E.Type = 2;
    EXPECT_EQ(TARVOARM_SetDataEvent(&E, &Handle), static_cast<int>(0x80000000u));
    EXPECT_EQ(TARVOARM_ClrDataEvent(-1), 0);
    EXPECT_EQ(TARVOARM_ClrDataEvent(12345), -1);
}

TEST_F(FakeTarget, ADeadConnectionIsReportedByEveryCall) {
    ConnectFake();
    fake::SetFault(fake::DeadConnection, true);
    EXPECT_LT(TARVOARM_IsHalted(), 0);
    EXPECT_FALSE(TARVOARM_IsConnected());
    U32 Word;
    U8 Status = 0;
    EXPECT_LE(TARVOARM_ReadMemU32(0x20000000, 1, &Word, &Status), 0);
    EXPECT_EQ(Status, 1);
    EXPECT_NE(TARVOARM_Halt(), 0);
    EXPECT_NE(TARVOARM_Step(), 0);
    EXPECT_EQ(TARVOARM_SetBPEx(0x100, Any), 0);
    U64 V;
    EXPECT_NE(TARVOARM_ReadReg(0, &V), 0);
}

TEST_F(FakeTarget, FailingCallsFailAndTheErrorIsTold) {
    fake::SetFault(fake::ConnectFails, true);
    ASSERT_EQ(TARVOARM_SelectUSB(0), 0);
    ASSERT_EQ(TARVOARM_Open(), nullptr);
    ASSERT_EQ(Exec("device=FAKE"), "");
    EXPECT_NE(TARVOARM_Connect(), 0);
    EXPECT_FALSE(TARVOARM_IsConnected());
    EXPECT_TRUE(Messages::Get().Contains("error: The fake target refused the connection"));
    fake::SetFault(fake::ConnectFails, false);
    ASSERT_EQ(TARVOARM_Connect(), 0);
    fake::SetFault(fake::HaltFails, true);
    TARVOARM_GoEx(0, 1);
    EXPECT_NE(TARVOARM_Halt(), 0);
    fake::SetFault(fake::HaltFails, false);
    EXPECT_EQ(TARVOARM_Halt(), 0);
    fake::SetFault(fake::StepFails, true);
    EXPECT_NE(TARVOARM_Step(), 0);
}

TEST_F(FakeTarget, TwoThreadsShareTheLibraryWithoutLocking) {
    ConnectFake();
    std::atomic<int> Failures{0};
    const auto Reader = [&Failures] {
        for (int i = 0; i < 2000; ++i) {
            U32 Word;
            U8 Status;
            if (TARVOARM_ReadMemU32(0x20000000, 1, &Word, &Status) != 1 || TARVOARM_IsHalted() != 1) {
                ++Failures;
            }
        }
    };
    std::thread Gui(Reader);
    for (int i = 0; i < 2000; ++i) {
        if (TARVOARM_WriteU32(0x20000004, static_cast<U32>(i)) != 0) {
            ++Failures;
        }
    }
    Gui.join();
    EXPECT_EQ(Failures.load(), 0);
}
