// Run control, memory and breakpoints on the emulated board.

#include "BoardFixture.h"

#include <csignal>
#include <cstring>
#include <dirent.h>
#include <fstream>
#include <unistd.h>

using namespace probetest;

namespace probetest {

int EmulatedBoardPid() {
    DIR* Proc = opendir("/proc");
    int Found = 0;
    while (dirent* E = readdir(Proc)) {
        std::ifstream Stat(std::string("/proc/") + E->d_name + "/stat");
        std::string Line;
        if (!std::getline(Stat, Line)) {
            continue;
        }
        // pid (comm) state ppid ...
        const size_t Close = Line.rfind(')');
        const std::string Comm = Line.substr(Line.find('(') + 1, Close - Line.find('(') - 1);
        int Ppid = 0;
        char State;
        std::sscanf(Line.c_str() + Close + 2, "%c %d", &State, &Ppid);
        if (Ppid == getpid() && Comm == "qemu-system-arm" && State != 'Z') {
            Found = std::atoi(E->d_name);
        }
    }
    closedir(Proc);
    return Found;
}

} // namespace probetest

class Session : public Board {};

TEST_F(Session, ResetStartsAtTheVectorTable) {
    Start("MPS2-AN385", "demo");
    EXPECT_EQ(Reg(TARVO_REG_PC), Elf.Symbol("Reset_Handler"));
    EXPECT_EQ(Reg(TARVO_REG_SP), Elf.Symbol("_stack_top"));
    EXPECT_EQ(Reg(TARVO_REG_MSP), Elf.Symbol("_stack_top"));
    EXPECT_EQ(Reg(TARVO_REG_XPSR) & 0x01000000u, 0x01000000u) << "Thumb state";
    char Firmware[256];
    TARVOARM_GetFirmwareString(Firmware, sizeof Firmware);
    EXPECT_NE(std::strstr(Firmware, "MPS2-AN385"), nullptr) << Firmware;
    EXPECT_EQ(TARVOARM_GetSN(), TARVO_EMU_SERIAL_NO);
    auto* Background = reinterpret_cast<int (*)()>(TARVO_GetpFunc(10));
    EXPECT_EQ(Background(), 1) << "memory can be read while the board runs";
}

// A session resets before it downloads: the reset finds the board's memory empty and loads PC and the
// T bit from it. The program must start where its own vector table says, in Thumb state, and run.
TEST_F(Session, AProgramDownloadedAfterTheResetStartsInThumbState) {
    constexpr U64 T = 0x01000000;
    Start("MPS2-AN385", "");
    ASSERT_EQ(TARVOARM_Reset(), 0);
    EXPECT_EQ(Reg(TARVO_REG_XPSR) & T, T) << "a reset from empty memory";
    std::string Error;
    ASSERT_TRUE(Elf.Load(FirmwarePath("calls", "O0-dwarf4"), Error)) << Error;
    ASSERT_EQ(TARVOARM_BeginDownload(0), 0);
    for (const Segment& S : Elf.Segments()) {
        ASSERT_EQ(TARVOARM_WriteMemEx(S.Address, static_cast<U32>(S.Bytes.size()), S.Bytes.data(), 0),
                  static_cast<int>(S.Bytes.size()));
    }
    ASSERT_EQ(TARVOARM_EndDownload(), 0);
    EXPECT_EQ(Reg(TARVO_REG_PC), Elf.Symbol("Reset_Handler"));
    EXPECT_EQ(Reg(TARVO_REG_SP), Elf.Symbol("_stack_top"));
    EXPECT_EQ(Reg(TARVO_REG_XPSR) & T, T);
    // As a project's handler sets it: the address from the vector, Thumb bit included.
    ASSERT_EQ(TARVOARM_WriteReg(TARVO_REG_XPSR, 0), 0);
    ASSERT_EQ(TARVOARM_WriteReg(TARVO_REG_PC, Elf.Symbol("Reset_Handler") | 1), 0);
    EXPECT_EQ(Reg(TARVO_REG_PC), Elf.Symbol("Reset_Handler"));
    EXPECT_EQ(Reg(TARVO_REG_XPSR) & T, T);
    TARVOARM_GoEx(0, 1);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    ASSERT_EQ(TARVOARM_Halt(), 0);
    EXPECT_GT(Word(Elf.Symbol("g_Iterations")), 0u) << "the program ran";
    EXPECT_NE(Reg(TARVO_REG_XPSR) & 0x1FF, 3u) << "not in the HardFault handler";
}

TEST_F(Session, HaltsStepsAndContinues) {
    Start("MPS2-AN385", "calls");
    RunTo("Level3");
    const U64 Pc = Reg(TARVO_REG_PC);
    ASSERT_EQ(TARVOARM_Step(), 0);
    const U64 After = Reg(TARVO_REG_PC);
    EXPECT_TRUE(After == Pc + 2 || After == Pc + 4) << std::hex << Pc << " -> " << After;
    for (int i = 0; i < 20; ++i) {
        ASSERT_EQ(TARVOARM_Step(), 0);
    }
    EXPECT_EQ(TARVOARM_IsHalted(), 1);
    TARVOARM_GoEx(0, 1);
    EXPECT_EQ(TARVOARM_IsHalted(), 0);
    EXPECT_NE(TARVOARM_Step(), 0) << "no step while running";
    U64 V;
    EXPECT_NE(TARVOARM_ReadReg(TARVO_REG_PC, &V), 0) << "no registers while running";
    const U32 Before = Word(Elf.Symbol("g_Iterations"));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    ASSERT_EQ(TARVOARM_Halt(), 0);
    EXPECT_EQ(TARVOARM_IsHalted(), 1);
    EXPECT_GT(Word(Elf.Symbol("g_Iterations")), Before) << "the program ran";
    const U64 Stopped = Reg(TARVO_REG_PC);
    EXPECT_GE(Stopped, 0x40u) << "in the program's code";
    EXPECT_LT(Stopped, Elf.Segments()[0].Bytes.size());
    EXPECT_EQ(TARVOARM_Halt(), 0) << "halting a halted target is no failure";
}

TEST_F(Session, MemoryOfEveryWidth) {
    Start("MPS2-AN385", "");
    const U32 Base = 0x20001000;
    ASSERT_EQ(TARVOARM_WriteU8(Base, 0x11), 0);
    ASSERT_EQ(TARVOARM_WriteU16(Base + 2, 0x3322), 0);
    ASSERT_EQ(TARVOARM_WriteU32(Base + 4, 0x77665544), 0);
    ASSERT_EQ(TARVOARM_WriteU64(Base + 8, 0xFFEEDDCCBBAA9988ULL), 0);
    U8 B[16];
    ASSERT_EQ(TARVOARM_ReadMemEx(Base, 16, B, 0), 16);
    EXPECT_EQ(B[0], 0x11);
    EXPECT_EQ(B[3], 0x33);
    EXPECT_EQ(B[15], 0xFF);
    U16 H[2];
    U32 W;
    U64 D;
    U8 Status[4];
    EXPECT_EQ(TARVOARM_ReadMemU16(Base + 2, 2, H, Status), 2);
    EXPECT_EQ(H[0], 0x3322);
    EXPECT_EQ(H[1], 0x5544);
    EXPECT_EQ(TARVOARM_ReadMemU32(Base + 5, 1, &W, Status), 1) << "unaligned";
    EXPECT_EQ(W, 0x88776655u);
    EXPECT_EQ(TARVOARM_ReadMemU64(Base + 8, 1, &D, Status), 1);
    EXPECT_EQ(D, 0xFFEEDDCCBBAA9988ULL);
    // 64 KB through many packets, then the end of a memory region where nothing follows.
    std::vector<U8> Big(65536);
    for (size_t i = 0; i < Big.size(); ++i) {
        Big[i] = static_cast<U8>(i ^ (i >> 8));
    }
    ASSERT_EQ(TARVOARM_WriteMemEx(0x20010000, 65536, Big.data(), 0), 65536);
    std::vector<U8> Back(65536);
    ASSERT_EQ(TARVOARM_ReadMemEx(0x20010000, 65536, Back.data(), 0), 65536);
    EXPECT_EQ(Back, Big);
    U8 Edge[40];
    EXPECT_EQ(TARVOARM_ReadMemEx(0x23FFFFF0, 40, Edge, 0), 16) << "the bit-band alias ends at 0x24000000";
    EXPECT_EQ(TARVOARM_ReadMemU32(0x30000000, 1, &W, Status), 0);
    EXPECT_EQ(Status[0], 1);
}

TEST_F(Session, BreakpointsOfBothKindsStopAndSurviveResumes) {
    Start("MPS2-AN385", "calls");
    const int Hard = TARVOARM_SetBPEx(Elf.Symbol("Level3"), HardBp);
    const int Soft = TARVOARM_SetBPEx(Elf.Symbol("Fibonacci"), SoftBp);
    ASSERT_GT(Hard, 0);
    ASSERT_GT(Soft, 0);
    TARVO_BP_INFO Info{};
    ASSERT_EQ(TARVOARM_GetBPInfoEx(Hard, &Info), 0);
    EXPECT_EQ(Info.ImplFlags, 1u);
    ASSERT_EQ(TARVOARM_GetBPInfoEx(Soft, &Info), 0);
    EXPECT_EQ(Info.ImplFlags, 2u) << "the board's code memory is RAM";
    TARVOARM_GoEx(0, 1);
    ASSERT_EQ(WaitHalted(), 1);
    EXPECT_EQ(Reg(TARVO_REG_PC), Elf.Symbol("Level3"));
    // Fibonacci(10) calls itself 177 times: the breakpoint stays through halts and resumes.
    for (int i = 0; i < 5; ++i) {
        TARVOARM_GoEx(0, 1);
        ASSERT_EQ(WaitHalted(), 1);
        EXPECT_EQ(Reg(TARVO_REG_PC), Elf.Symbol("Fibonacci")) << "hit " << i;
    }
    const U64 N = Reg(0);
    TARVOARM_GoEx(0, 1);
    ASSERT_EQ(WaitHalted(), 1);
    EXPECT_EQ(Reg(0), N - 1) << "the next recursion level";
    ASSERT_EQ(TARVOARM_ClrBPEx(Soft), 0);
    TARVOARM_GoEx(0, 1);
    ASSERT_EQ(WaitHalted(), 1);
    EXPECT_EQ(Reg(TARVO_REG_PC), Elf.Symbol("Level3")) << "the main loop comes back to Level3";
    ASSERT_EQ(TARVOARM_ClrBPEx(-1), 0);
    TARVOARM_GoEx(0, 1);
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_EQ(TARVOARM_IsHalted(), 0) << "no breakpoint left";
}

TEST_F(Session, ResetKeepsBreakpoints) {
    Start("MPS2-AN385", "demo");
    const int Handle = TARVOARM_SetBPEx(Elf.Symbol("main"), AnyBp);
    ASSERT_GT(Handle, 0);
    TARVOARM_GoEx(0, 1);
    ASSERT_EQ(WaitHalted(), 1);
    ASSERT_EQ(TARVOARM_Reset(), 0);
    EXPECT_EQ(TARVOARM_IsHalted(), 1);
    EXPECT_EQ(Reg(TARVO_REG_PC), Elf.Symbol("Reset_Handler"));
    TARVOARM_GoEx(0, 1);
    ASSERT_EQ(WaitHalted(), 1);
    EXPECT_EQ(Reg(TARVO_REG_PC), Elf.Symbol("main"));
}

TEST_F(Session, KillingTheBoardIsReportedWithinASecond) {
    Start("MPS2-AN385", "demo");
    TARVOARM_GoEx(0, 1);
    ASSERT_EQ(TARVOARM_IsHalted(), 0);
    const int Pid = EmulatedBoardPid();
    ASSERT_GT(Pid, 0);
    const auto Start = std::chrono::steady_clock::now();
    kill(Pid, SIGKILL);
    int State = 0;
    while (State == 0 && std::chrono::steady_clock::now() - Start < std::chrono::seconds(2)) {
        State = TARVOARM_IsHalted();
    }
    const auto Took = std::chrono::steady_clock::now() - Start;
    EXPECT_LT(State, 0);
    EXPECT_LT(Took, std::chrono::seconds(1));
    EXPECT_FALSE(TARVOARM_IsConnected());
    EXPECT_TRUE(
        Messages::Get().Contains("error: Connection to the target lost: qemu-system-arm ended by signal 9"))
        << ::testing::PrintToString(Messages::Get().Lines());
    // Nothing waits on the dead board.
    const auto Calls = std::chrono::steady_clock::now();
    U32 W;
    U8 St;
    EXPECT_LE(TARVOARM_ReadMemU32(0x20000000, 1, &W, &St), 0);
    EXPECT_NE(TARVOARM_Halt(), 0);
    EXPECT_NE(TARVOARM_Reset(), 0);
    TARVOARM_Close();
    EXPECT_LT(std::chrono::steady_clock::now() - Calls, std::chrono::milliseconds(500));
}

TEST_F(Session, KillingTheBoardWhileHaltedIsReportedAtTheNextCall) {
    Start("MPS2-AN385", "demo");
    const int Pid = EmulatedBoardPid();
    ASSERT_GT(Pid, 0);
    kill(Pid, SIGKILL);
    // The callback comes from the board's watchdog, on its own thread.
    for (int i = 0; i < 100 && !Messages::Get().Contains("Connection to the target lost"); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_TRUE(Messages::Get().Contains("Connection to the target lost"));
    const auto Start = std::chrono::steady_clock::now();
    U64 V;
    EXPECT_NE(TARVOARM_ReadReg(TARVO_REG_PC, &V), 0);
    EXPECT_LT(TARVOARM_IsHalted(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - Start, std::chrono::milliseconds(200));
}

TEST_F(Session, CloseEndsTheBoard) {
    Start("MPS2-AN385", "demo");
    const int Pid = EmulatedBoardPid();
    ASSERT_GT(Pid, 0);
    TARVOARM_Close();
    EXPECT_EQ(EmulatedBoardPid(), 0);
    EXPECT_NE(kill(Pid, 0), 0) << "the process is gone and reaped";
    EXPECT_FALSE(Messages::Get().Contains("Connection to the target lost")) << "an intended end is no loss";
}
