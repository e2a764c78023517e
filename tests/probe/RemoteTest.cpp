// The GDB remote back end through the exported functions, against the simple target of the mock
// server on a loopback port.

#include "ApiFixture.h"
#include "MockServer.h"
#include "SimpleTarget.h"

#include <algorithm>
#include <thread>

using namespace probetest;

namespace {

constexpr U32 Any = 0xFFFFFFF0;

int64_t ElapsedMs(std::chrono::steady_clock::time_point Start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - Start)
        .count();
}

// The packets received since the last clear whose text starts with one of the prefixes.
std::vector<std::string> Packets(MockServer& Server, std::vector<std::string> Prefixes) {
    std::vector<std::string> Out;
    for (const std::string& P : Server.Received()) {
        for (const std::string& Prefix : Prefixes) {
            if (P.rfind(Prefix, 0) == 0) {
                Out.push_back(P);
                break;
            }
        }
    }
    return Out;
}

} // namespace

class Remote : public ApiTest {
protected:
    void Connect() {
        ASSERT_EQ(TARVOARM_SelectIP(("127.0.0.1:" + std::to_string(Server.Port())).c_str(), 0), 0);
        ASSERT_EQ(TARVOARM_Open(), nullptr);
        ASSERT_EQ(Exec("device="), "");
        ASSERT_EQ(TARVOARM_Connect(), 0);
        ASSERT_TRUE(TARVOARM_IsConnected());
    }
    MockServer Server{true};
    SimpleTarget Target{Server};
};

TEST_F(Remote, FindsRegistersByTheirNamesInTheDescription) {
    Target.SetRegister(3, 0x33);
    Target.SetRegister(16, 0x21000000); // xPSR
    Target.SetRegister(SimpleTarget::MspNumber, 0x20008000);
    Target.SetRegister(SimpleTarget::PrimaskNumber, 1);
    Target.SetRegister(SimpleTarget::D0Number + 1, 0x4000000040400000ULL); // d1 = s3:s2
    Connect();
    EXPECT_EQ(TARVOARM_IsHalted(), 1);
    EXPECT_EQ(Reg(3), 0x33u);
    EXPECT_EQ(Reg(TARVO_REG_PC), 0x100u);
    EXPECT_EQ(Reg(TARVO_REG_XPSR), 0x21000000u);
    EXPECT_EQ(Reg(TARVO_REG_MSP), 0x20008000u);
    EXPECT_EQ(Reg(TARVO_REG_PRIMASK), 1u) << "an 8-bit register";
    EXPECT_EQ(Reg(TARVO_REG_S0 + 2), 0x40400000u);
    EXPECT_EQ(Reg(TARVO_REG_S0 + 3), 0x40000000u);
    // Writing one single leaves its neighbour in the double alone.
    ASSERT_EQ(TARVOARM_WriteReg(TARVO_REG_S0 + 2, 0x3F800000), 0);
    EXPECT_EQ(Target.Register(SimpleTarget::D0Number + 1), 0x400000003F800000ULL);
    ASSERT_EQ(TARVOARM_WriteReg(TARVO_REG_BASEPRI, 0x40), 0);
    EXPECT_EQ(Reg(TARVO_REG_BASEPRI), 0x40u);
    // The core registers come in one g packet, the others one p each.
    Server.ClearReceived();
    const U32 All[] = {0, 1, 2, 3, 15, 16, TARVO_REG_MSP};
    U64 Values[7];
    U8 Status[7];
    ASSERT_EQ(TARVOARM_ReadRegs(All, Values, Status, 7), 0);
    EXPECT_EQ(Packets(Server, {"g", "p"}), (std::vector<std::string>{"g", "p1e"}));
    // Read again while halted: nothing goes to the server.
    ASSERT_EQ(TARVOARM_ReadRegs(All, Values, Status, 7), 0);
    EXPECT_EQ(Packets(Server, {"g", "p"}).size(), 2u);
    const U32 Unused[] = {25};
    ASSERT_EQ(TARVOARM_ReadRegs(Unused, Values, Status, 1), 0);
    EXPECT_EQ(Status[0], 1);
}

TEST_F(Remote, ReadsAndWritesMemoryInPackets) {
    Connect();
    std::vector<U8> Data(3000);
    for (size_t i = 0; i < Data.size(); ++i) {
        Data[i] = static_cast<U8>(i);
    }
    ASSERT_EQ(TARVOARM_WriteMemEx(0x20000001, static_cast<U32>(Data.size()), Data.data(), 0), 3000);
    EXPECT_TRUE(std::equal(Data.begin(), Data.end(), Target.Ram(0x20000001)));
    std::vector<U8> Back(3000);
    ASSERT_EQ(TARVOARM_ReadMemEx(0x20000001, 3000, Back.data(), 0), 3000);
    EXPECT_EQ(Back, Data);
    U8 Edge[64];
    EXPECT_EQ(TARVOARM_ReadMemEx(SimpleTarget::RamStart + SimpleTarget::RamSize - 24, 64, Edge, 0), 24);
    EXPECT_NE(TARVOARM_WriteU32(0x30000000, 1), 0);
}

TEST_F(Remote, ABreakpointAtThePcIsSteppedOverOnResume) {
    Connect();
    const int First = TARVOARM_SetBPEx(0x100, Any);
    const int Second = TARVOARM_SetBPEx(0x120, Any);
    ASSERT_GT(First, 0);
    ASSERT_GT(Second, 0);
    Server.ClearReceived();
    TARVOARM_GoEx(0, 1);
    ASSERT_EQ(WaitHalted(), 1);
    EXPECT_EQ(Reg(TARVO_REG_PC), 0x120u);
    EXPECT_EQ(Packets(Server, {"vCont"}), (std::vector<std::string>{"vCont;s", "vCont;c"}));
    // Without the flag the target stops where it is, as the server reports.
    TARVOARM_GoEx(0, 0);
    ASSERT_EQ(WaitHalted(), 1);
    EXPECT_EQ(Reg(TARVO_REG_PC), 0x120u);
}

TEST_F(Remote, BreakpointsFallBackToSoftwareInRamOnly) {
    Connect();
    const int H1 = TARVOARM_SetBPEx(0x08000100, Any);
    const int H2 = TARVOARM_SetBPEx(0x08000104, Any);
    ASSERT_GT(H1, 0);
    ASSERT_GT(H2, 0);
    EXPECT_EQ(TARVOARM_SetBPEx(0x08000108, Any), 0)
        << "two comparators, and flash takes no software breakpoint";
    const int Soft = TARVOARM_SetBPEx(0x20000010, Any);
    ASSERT_GT(Soft, 0);
    TARVO_BP_INFO Info{};
    ASSERT_EQ(TARVOARM_GetBPInfoEx(Soft, &Info), 0);
    EXPECT_EQ(Info.ImplFlags, 2u);
    EXPECT_EQ(Target.SoftBreaks.count(0x20000010), 1u);
    ASSERT_EQ(TARVOARM_ClrBPEx(-1), 0);
    EXPECT_TRUE(Target.HardBreaks.empty());
    EXPECT_TRUE(Target.SoftBreaks.empty());
}

TEST_F(Remote, WatchpointsMapToTheirPacketsAndAreSteppedOver) {
    Connect();
    TARVO_DATA_EVENT E{};
    E.Size = sizeof E;
    E.Type = 1;
    E.Addr = 0x20000040;
    E.DataMask = 0xFFFFFFFF;
    E.Access = 0;        // read
    E.AccessMask = 0x16; // any width
    U32 Handle = 0;
    ASSERT_EQ(TARVOARM_SetDataEvent(&E, &Handle), 0);
    E.Addr = 0x20000080;
    E.AddrMask = 0x7;
    E.Access = 1; // write
    ASSERT_EQ(TARVOARM_SetDataEvent(&E, &Handle), 0);
    E.Addr = 0x20000100;
    E.AccessMask = 0x17; // read or write
    EXPECT_EQ(TARVOARM_SetDataEvent(&E, &Handle), static_cast<int>(0x80000002u)) << "two comparators";
    const std::set<std::tuple<int, uint32_t, uint32_t>> Expected = {{3, 0x20000040, 1}, {2, 0x20000080, 8}};
    EXPECT_EQ(Target.Watches, Expected);
    // The target reports the access before it completes, and again on every resume.
    Target.WatchHitPc = 0x100;
    TARVOARM_GoEx(0, 1);
    ASSERT_EQ(WaitHalted(), 1);
    EXPECT_EQ(Reg(TARVO_REG_PC), 0x100u);
    Server.ClearReceived();
    TARVOARM_GoEx(0, 1);
    EXPECT_EQ(TARVOARM_IsHalted(), 0) << "past the access";
    // Watchpoints out, one step, watchpoints back in, then run.
    ASSERT_TRUE(Server.WaitReceived(6));
    const auto Seen = Packets(Server, {"z", "Z", "vCont"});
    ASSERT_EQ(Seen.size(), 6u);
    EXPECT_EQ(Seen[0][0], 'z');
    EXPECT_EQ(Seen[1][0], 'z');
    EXPECT_EQ(Seen[2], "vCont;s");
    EXPECT_EQ(Seen[3][0], 'Z');
    EXPECT_EQ(Seen[4][0], 'Z');
    EXPECT_EQ(Seen.back(), "vCont;c");
    ASSERT_EQ(TARVOARM_Halt(), 0);
    ASSERT_EQ(TARVOARM_ClrDataEvent(-1), 0);
    EXPECT_TRUE(Target.Watches.empty());
}

TEST_F(Remote, MemoryOfARunningTargetIsReadByHaltingItBriefly) {
    Connect();
    *Target.Ram(0x20000010) = 0x5A;
    TARVOARM_GoEx(0, 1);
    ASSERT_EQ(TARVOARM_IsHalted(), 0);
    for (int i = 0; i < 1000 && Server.Received().back() != "vCont;c"; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1)); // until the resume is in
    }
    Server.ClearReceived();
    U8 Byte = 0;
    U8 Status = 1;
    ASSERT_EQ(TARVOARM_ReadMemU8(0x20000010, 1, &Byte, &Status), 1);
    EXPECT_EQ(Byte, 0x5A);
    EXPECT_EQ(TARVOARM_IsHalted(), 0) << "running again afterwards";
    ASSERT_TRUE(Server.WaitReceived(3));
    EXPECT_EQ(Packets(Server, {"\x03", "m", "vCont"}),
              (std::vector<std::string>{"\x03", "m20000010,1", "vCont;c"}));
    ASSERT_EQ(TARVOARM_Halt(), 0);
    EXPECT_EQ(TARVOARM_IsHalted(), 1);
}

TEST_F(Remote, ResetGoesThroughTheServersMonitor) {
    Connect();
    ASSERT_EQ(TARVOARM_WriteReg(TARVO_REG_PC, 0x200), 0);
    ASSERT_EQ(TARVOARM_Reset(), 0);
    EXPECT_EQ(Target.MonitorCommands, (std::vector<std::string>{"reset halt"}));
    EXPECT_EQ(Reg(TARVO_REG_PC), 0x100u) << "registers are read anew after a reset";
    EXPECT_TRUE(Messages::Get().Contains("target halted due to debug-request"));
    EXPECT_EQ(Exec("monitor reset halt"), "");
    EXPECT_NE(Exec("monitor frobnicate"), "") << "a command the server doesn't know";
}

// A Cortex-M runs Thumb code only. A reset of a board whose memory is still empty loads T = 0 from its
// reset vector, and a PC written afterwards doesn't set it: the first instruction would fault.
TEST_F(Remote, TheCoreStaysInThumbStateAcrossResetDownloadAndPcWrites) {
    constexpr U64 T = 0x01000000;
    Target.ResetXpsr = 0;
    Connect();
    ASSERT_EQ(TARVOARM_Reset(), 0);
    EXPECT_EQ(Reg(TARVO_REG_XPSR), T) << "after a reset";
    // The download brings the vector table; the target still stands at its reset, so SP, PC and T come
    // from the new table as a reset would take them.
    const U8 Vectors[8] = {0x00, 0x10, 0x00, 0x20, 0x01, 0x02, 0x00, 0x08};
    ASSERT_EQ(TARVOARM_BeginDownload(0), 0);
    ASSERT_EQ(TARVOARM_WriteMemEx(SimpleTarget::FlashStart, 8, Vectors, 0), 8);
    ASSERT_EQ(TARVOARM_EndDownload(), 0);
    EXPECT_EQ(Reg(TARVO_REG_SP), 0x20001000u);
    EXPECT_EQ(Reg(TARVO_REG_PC), 0x08000200u);
    EXPECT_EQ(Reg(TARVO_REG_XPSR), T);
    // A PC written with the Thumb bit of an address (a vector, a function pointer).
    Target.SetRegister(16, 0);
    ASSERT_EQ(Exec("InvalidateCache"), "");
    ASSERT_EQ(TARVOARM_WriteReg(TARVO_REG_PC, 0x08000301), 0);
    EXPECT_EQ(Target.Register(SimpleTarget::PcNumber), 0x08000300u);
    EXPECT_EQ(Target.Register(16), T);
    // A target that has run keeps its registers through a later download.
    TARVOARM_GoEx(0, 1);
    ASSERT_EQ(TARVOARM_Halt(), 0);
    const U8 Other[8] = {0x00, 0x20, 0x00, 0x20, 0x01, 0x04, 0x00, 0x08};
    ASSERT_EQ(TARVOARM_BeginDownload(0), 0);
    ASSERT_EQ(TARVOARM_WriteMemEx(SimpleTarget::FlashStart, 8, Other, 0), 8);
    ASSERT_EQ(TARVOARM_EndDownload(), 0);
    EXPECT_EQ(Reg(TARVO_REG_PC), 0x08000300u);
    EXPECT_EQ(Reg(TARVO_REG_SP), 0x20001000u);
}

TEST_F(Remote, ProgramsFlashAtTheEndOfADownload) {
    Target.OfferNoAck = true;
    Connect();
    std::vector<U8> Image(1500);
    for (size_t i = 0; i < Image.size(); ++i) {
        Image[i] = static_cast<U8>(i * 3 + 1);
    }
    *Target.Flash(SimpleTarget::FlashStart + 0x7FF) = 0x77; // untouched byte of a touched block
    ASSERT_EQ(TARVOARM_BeginDownload(0), 0);
    ASSERT_EQ(TARVOARM_WriteMemEx(SimpleTarget::FlashStart + 0x100, 1500, Image.data(), 0), 1500);
    ASSERT_EQ(TARVOARM_WriteU32(0x20000000, 0x12345678), 0) << "RAM is written at once";
    EXPECT_EQ(*Target.Ram(0x20000000), 0x78);
    EXPECT_EQ(*Target.Flash(SimpleTarget::FlashStart + 0x100), 0xFF) << "flash waits for the end";
    EXPECT_EQ(TARVOARM_EndDownload(), 0);
    EXPECT_TRUE(std::equal(Image.begin(), Image.end(), Target.Flash(SimpleTarget::FlashStart + 0x100)));
    EXPECT_EQ(*Target.Flash(SimpleTarget::FlashStart + 0x7FF), 0x77) << "kept across the erase of its block";
    EXPECT_EQ(Packets(Server, {"vFlashErase"}), (std::vector<std::string>{"vFlashErase:8000000,800"}));
    // A flash that doesn't keep what was written fails the verification; one that can't erase fails earlier.
    Target.CorruptFlash = true;
    TARVOARM_BeginDownload(0);
    TARVOARM_WriteMemEx(SimpleTarget::FlashStart, 16, Image.data(), 0);
    EXPECT_EQ(TARVOARM_EndDownload(), -4);
    Target.EraseFails = true;
    TARVOARM_BeginDownload(0);
    TARVOARM_WriteMemEx(SimpleTarget::FlashStart, 16, Image.data(), 0);
    EXPECT_EQ(TARVOARM_EndDownload(), -3);
}

TEST_F(Remote, AServerThatStopsAnsweringIsALostConnection) {
    Connect();
    ASSERT_EQ(Exec("Timeout=300"), "");
    Server.Silent = true;
    const auto Start = std::chrono::steady_clock::now();
    U32 Word;
    U8 Status;
    EXPECT_NE(TARVOARM_ReadMemU32(0x20000000, 1, &Word, &Status), 1);
    EXPECT_LT(TARVOARM_IsHalted(), 0);
    EXPECT_LT(ElapsedMs(Start), 1000);
    EXPECT_FALSE(TARVOARM_IsConnected());
    EXPECT_TRUE(
        Messages::Get().Contains("error: Connection to the target lost: no answer from the GDB server"));
    const auto Again = std::chrono::steady_clock::now();
    EXPECT_NE(TARVOARM_Step(), 0);
    TARVOARM_Close();
    EXPECT_LT(ElapsedMs(Again), 200) << "nothing waits on a dead connection";
}

// A serial port given for a GDB server, or a server that floods the line: the connection gives up
// after the reply time-out, and a cancel from another thread ends it at once without an error.
TEST(RemoteBabble, ConnectingEndsInTimeOrWhenCanceled) {
    Messages::Get().Clear();
    Messages::Install();
    const auto Cancel = reinterpret_cast<void (*)()>(TARVO_GetpFunc(TARVO_PFUNC_CANCEL_CONNECT));
    ASSERT_NE(Cancel, nullptr);
    for (const bool Canceled : {false, true}) {
        MockServer Server(true);
        Server.SetHandler([](const std::string&) { return std::nullopt; });
        Server.Babble("Booting kernel on cpu0\r\nDRAM: 512 MiB\r\n", 5000);
        ASSERT_EQ(TARVOARM_SelectIP(("127.0.0.1:" + std::to_string(Server.Port())).c_str(), 0), 0);
        ASSERT_EQ(TARVOARM_Open(), nullptr);
        ASSERT_EQ(Exec(Canceled ? "Timeout=3000" : "Timeout=300"), "");
        std::thread Canceler([&] {
            if (Canceled) {
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
                Cancel();
            }
        });
        const auto Start = std::chrono::steady_clock::now();
        EXPECT_NE(TARVOARM_Connect(), 0);
        const int64_t Took = ElapsedMs(Start);
        Canceler.join();
        EXPECT_FALSE(TARVOARM_IsConnected());
        if (Canceled) {
            EXPECT_LT(Took, 100 + 200);
            EXPECT_FALSE(Messages::Get().Contains("error:")) << "a cancel is no error of the target's";
        } else {
            EXPECT_LT(Took, 300 + 200);
            EXPECT_TRUE(
                Messages::Get().Contains("error: GDB server did not answer: no answer from the GDB server "
                                         "within 300 ms"));
        }
        TARVOARM_Close();
        Messages::Get().Clear();
    }
    Cancel(); // with nothing under way: nothing happens
    Exec("Timeout=3000");
}

TEST_F(Remote, AServerThatGoesAwayWhileRunningIsALostConnection) {
    Connect();
    TARVOARM_GoEx(0, 1);
    ASSERT_EQ(TARVOARM_IsHalted(), 0);
    Server.Disconnect();
    const auto Start = std::chrono::steady_clock::now();
    int State = 0;
    while (State == 0 && ElapsedMs(Start) < 1000) {
        State = TARVOARM_IsHalted();
    }
    EXPECT_LT(State, 0);
    EXPECT_LT(ElapsedMs(Start), 1000);
}

TEST_F(Remote, AServerThatGoesAwayWhileHaltedIsNoticedWithoutARequest) {
    Connect();
    ASSERT_EQ(TARVOARM_IsHalted(), 1);
    Server.ClearReceived();
    EXPECT_EQ(TARVOARM_IsHalted(), 1);
    EXPECT_TRUE(Server.Received().empty()) << "a halted target is not asked";
    Server.Disconnect();
    const auto Start = std::chrono::steady_clock::now();
    int State = 1;
    while (State == 1 && ElapsedMs(Start) < 1000) {
        State = TARVOARM_IsHalted();
    }
    EXPECT_LT(State, 0);
    EXPECT_FALSE(TARVOARM_IsConnected());
    EXPECT_TRUE(
        Messages::Get().Contains("Connection to the target lost: connection closed by the GDB server"));
}

// QEMU's monitor answers OK to a command it doesn't know and says so in its output.
TEST_F(Remote, ResetFallsBackToQemusOwnMonitorCommand) {
    Connect();
    Server.ClearReceived();
    Target.UnknownMonitorCommands = {"reset halt"};
    ASSERT_EQ(TARVOARM_Reset(), 0);
    EXPECT_EQ(Target.MonitorCommands, (std::vector<std::string>{"reset halt", "system_reset"}));
}

TEST_F(Remote, AServerWithoutADescriptionIsRefused) {
    Target.WithDescription = false;
    ASSERT_EQ(TARVOARM_SelectIP(("127.0.0.1:" + std::to_string(Server.Port())).c_str(), 0), 0);
    ASSERT_EQ(TARVOARM_Open(), nullptr);
    EXPECT_NE(TARVOARM_Connect(), 0);
    EXPECT_TRUE(Messages::Get().Contains("Could not read the target description"));
}

TEST(RemoteRefused, NoServerAtThePort) {
    // A port that was free a moment ago: nobody listens there.
    Messages::Get().Clear();
    Messages::Install();
    MockServer* Probe = new MockServer(true);
    const uint16_t Port = Probe->Port();
    delete Probe;
    ASSERT_EQ(TARVOARM_SelectIP(("127.0.0.1:" + std::to_string(Port)).c_str(), 0), 0);
    ASSERT_EQ(TARVOARM_Open(), nullptr);
    EXPECT_NE(TARVOARM_Connect(), 0);
    EXPECT_TRUE(Messages::Get().Contains("Could not connect to the GDB server at 127.0.0.1:"));
    TARVOARM_Close();
}
