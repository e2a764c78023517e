// The exported functions that don't need a target: version, host interfaces, commands, the optional
// functions, the device table, and the channels this library can't offer.

#include "ApiFixture.h"

#include "probe/TarvoCores.h"

#include <cstring>
#include <set>

using namespace probetest;

class Api : public ApiTest {};

TEST_F(Api, VersionAndOptionalFunctions) {
    EXPECT_EQ(TARVOARM_GetDLLVersion(), 62200u);
    // Above 62006 and not 62100/62101: a web server port of 0 leaves the URL unset.
    EXPECT_GT(TARVOARM_GetDLLVersion(), 62006u);
    auto* WebServer = reinterpret_cast<int (*)(void*, int)>(TARVO_GetpFunc(33));
    ASSERT_NE(WebServer, nullptr);
    U32 Record[2] = {99, 99};
    EXPECT_EQ(WebServer(Record, sizeof Record), 0);
    EXPECT_EQ(Record[1], 0u);
    EXPECT_EQ(TARVO_GetpFunc(11), nullptr);
    auto* Endian = reinterpret_cast<int (*)()>(TARVO_GetpFunc(12));
    ASSERT_NE(Endian, nullptr);
    EXPECT_LT(Endian(), 0) << "unknown until connected";
    auto* Background = reinterpret_cast<int (*)()>(TARVO_GetpFunc(10));
    ASSERT_NE(Background, nullptr);
    ASSERT_EQ(TARVOARM_SelectIP("127.0.0.1", 0), 0);
    EXPECT_EQ(Background(), 2) << "a GDB server's memory is reached by halting the target briefly";
    ConnectFake();
    EXPECT_EQ(Background(), 1);
    EXPECT_EQ(Endian(), 0) << "little-endian data and instructions";
}

TEST_F(Api, SelectsTheHostInterface) {
    char Firmware[256];
    ASSERT_EQ(TARVOARM_SelectIP("gdbhost", 0), 0);
    TARVOARM_GetFirmwareString(Firmware, sizeof Firmware);
    EXPECT_NE(std::strstr(Firmware, "gdbhost:3333"), nullptr) << Firmware << ": port 3333 when none is given";
    EXPECT_NE(std::strstr(Firmware, " compiled "), nullptr) << "the caller cuts the text before this word";
    ASSERT_EQ(TARVOARM_SelectIP("127.0.0.1:4444", 0), 0);
    TARVOARM_GetFirmwareString(Firmware, sizeof Firmware);
    EXPECT_NE(std::strstr(Firmware, "127.0.0.1:4444"), nullptr) << Firmware;
    EXPECT_EQ(TARVOARM_SelectIP("host:99999", 0), 1);
    EXPECT_EQ(TARVOARM_SelectIP("host:x", 0), 1);
    EXPECT_EQ(TARVOARM_SelectIP("", 0), 1);
    EXPECT_EQ(TARVOARM_SelectIP(nullptr, 0), 1);
    EXPECT_LT(TARVOARM_EMU_SelectByUSBSN(12345), 0) << "no such probe";
    ASSERT_EQ(TARVOARM_EMU_SelectByUSBSN(TARVO_EMU_SERIAL_NO), 0);
    EXPECT_EQ(TARVOARM_GetSN(), TARVO_EMU_SERIAL_NO);
    EXPECT_LT(TARVOARM_SelectUSB(1), 0);
    ASSERT_EQ(TARVOARM_Open(), nullptr);
    EXPECT_TRUE(TARVOARM_IsOpen());
    TARVOARM_Close();
    EXPECT_FALSE(TARVOARM_IsOpen());
    EXPECT_NE(TARVOARM_Connect(), 0) << "not open";
}

TEST_F(Api, CommandsAnswerWithAnErrorText) {
    ASSERT_EQ(TARVOARM_SelectUSB(0), 0);
    EXPECT_EQ(Exec("HideDeviceSelection=1"), "");
    EXPECT_EQ(Exec("device="), "");
    EXPECT_EQ(Exec("Nonsense=1"), "Unknown command \"Nonsense\"");
    EXPECT_EQ(Exec("device=NoSuchChip"), "Unknown device \"NoSuchChip\"");
    EXPECT_NE(Exec("device=STM32F407VG").find("can't be emulated"), std::string::npos);
    EXPECT_EQ(Exec("device=\"mps2-an385\""), "") << "quotes and case don't matter";
    EXPECT_NE(Exec("ScriptFile=/tmp/x.tvscript"), "");
    EXPECT_NE(Exec("SupplyPower=1"), "");
    EXPECT_NE(Exec("TraceSampleAdjust TD = 2000"), "");
    EXPECT_EQ(Exec("SetMCTAddr 0x20000000"), "");
    EXPECT_NE(Exec("Timeout=0"), "");
    // The answer is cut to the buffer and always terminated.
    char Small[8];
    std::memset(Small, 'x', sizeof Small);
    EXPECT_NE(TARVOARM_ExecCommand("Nonsense", Small, sizeof Small), 0);
    EXPECT_EQ(std::strlen(Small), 7u);
    EXPECT_NE(TARVOARM_ExecCommand(nullptr, Small, sizeof Small), 0);
}

TEST_F(Api, AMissingQemuNamesThePackageToInstall) {
    ASSERT_EQ(TARVOARM_SelectUSB(0), 0);
    ASSERT_EQ(TARVOARM_Open(), nullptr);
    ASSERT_EQ(Exec("QemuPath=/nonexistent/qemu-system-arm"), "");
    const std::string Answer = Exec("device=MPS2-AN386");
    EXPECT_NE(Answer.find("install the package qemu-system-arm"), std::string::npos) << Answer;
    EXPECT_NE(TARVOARM_Connect(), 0);
    EXPECT_TRUE(Messages::Get().Contains("install the package qemu-system-arm"));
    EXPECT_EQ(Exec("device=FAKE"), "") << "the fake target needs no QEMU";
}

TEST_F(Api, ChannelsOfProbeHardwareFailAsTheirCallersExpect) {
    ConnectFake();
    EXPECT_EQ(TARVOARM_EMU_HasCapEx(23), 0);
    EXPECT_LT(TARVOARM_SWO_EnableTarget(72000000, 0, 0, 1), 0);
    EXPECT_LT(TARVOARM_SWO_DisableTarget(0xFFFFFFFF), 0);
    U32 Speeds[10];
    EXPECT_LE(TARVOARM_SWO_GetCompatibleSpeeds(72000000, 0, Speeds, 10), 0);
    U8 Data[16];
    EXPECT_EQ(TARVOARM_SWO_ReadStimulus(0, Data, sizeof Data), 0);
    EXPECT_NE(TARVO_MCTERMINAL_Control(0, nullptr), 0);
    EXPECT_LT(TARVO_MCTERMINAL_Read(0, Data, sizeof Data), 0);
    TARVO_HSS_MEM_BLOCK Block{0x20000000, 4, 0, 0};
    EXPECT_EQ(TARVO_HSS_Start(&Block, 1, 1000, 0), -4);
    EXPECT_LT(TARVO_HSS_Read(Data, sizeof Data), 0);
    TARVO_POWERTRACE_CAPS Caps{12, 0, 0};
    EXPECT_LT(TARVO_POWERTRACE_Control(4, nullptr, &Caps), 0);
    TARVO_POWERTRACE_SETUP Setup{24, 1, 1000, 2, 1, 0};
    EXPECT_LT(TARVO_POWERTRACE_Control(0, &Setup, nullptr), 0);
    EXPECT_LT(TARVO_STRACE_Start(), 0);
    U32 Addresses[4];
    EXPECT_LT(TARVO_STRACE_Read(Addresses, 4), 0);
    EXPECT_LT(TARVO_STRACE_Control(2, nullptr), 0);
    EXPECT_TRUE(Messages::Get().Contains("High speed sampling is not available"));
}

TEST(DeviceTable, EntryZeroIsNoDevice) {
    const int Count = TARVOARM_DEVICE_GetInfo(-1, nullptr);
    EXPECT_GE(Count, 40);
    TARVO_DEVICE_INFO Info{};
    Info.SizeOfStruct = sizeof Info;
    ASSERT_EQ(TARVOARM_DEVICE_GetInfo(0, &Info), 0);
    EXPECT_EQ(Info.Core, 0u);
    EXPECT_EQ(TARVOARM_DEVICE_GetInfo(Count, &Info), -1);
    EXPECT_EQ(TARVOARM_DEVICE_GetInfo(1, nullptr), -1);
    EXPECT_EQ(TARVOARM_DEVICE_GetIndex("NoSuchChip"), -1);
    EXPECT_EQ(TARVOARM_DEVICE_GetIndex(nullptr), -1);
}

TEST(DeviceTable, HoldsTheBoardsCoresAndCommonParts) {
    struct Expected {
        const char* Name;
        U32 Core;
        U32 FlashSize;
        U32 RamAddr;
    };
    const Expected Devices[] = {
        {"MPS2-AN385", TARVO_CORE_CORTEX_M3, 4u << 20, 0x20000000},
        {"MPS2-AN386", TARVO_CORE_CORTEX_M4, 4u << 20, 0x20000000},
        {"MPS2-AN500", TARVO_CORE_CORTEX_M7, 4u << 20, 0x20000000},
        {"MPS2-AN505", TARVO_CORE_CORTEX_M33, 4u << 20, 0x38000000},
        {"Cortex-M0+", TARVO_CORE_CORTEX_M0P, 0, 0x20000000},
        {"Cortex-M23", TARVO_CORE_CORTEX_M23, 0, 0x20000000},
        {"STM32F103C8", TARVO_CORE_CORTEX_M3, 64u << 10, 0x20000000},
        {"STM32F407VG", TARVO_CORE_CORTEX_M4, 1u << 20, 0x20000000},
        {"STM32H743ZI", TARVO_CORE_CORTEX_M7, 2u << 20, 0x24000000},
        {"nRF52840_xxAA", TARVO_CORE_CORTEX_M4, 1u << 20, 0x20000000},
        {"LPC1768", TARVO_CORE_CORTEX_M3, 512u << 10, 0x10000000},
        {"MK66FN2M0XXX18", TARVO_CORE_CORTEX_M4, 2u << 20, 0x1FFF0000},
    };
    for (const Expected& E : Devices) {
        const int Index = TARVOARM_DEVICE_GetIndex(E.Name);
        ASSERT_GT(Index, 0) << E.Name;
        TARVO_DEVICE_INFO Info{};
        Info.SizeOfStruct = sizeof Info;
        ASSERT_EQ(TARVOARM_DEVICE_GetInfo(Index, &Info), 0);
        EXPECT_STREQ(Info.sName, E.Name);
        EXPECT_EQ(Info.Core, E.Core) << E.Name;
        EXPECT_EQ(Info.FlashSize, E.FlashSize) << E.Name;
        EXPECT_EQ(Info.RAMAddr, E.RamAddr) << E.Name;
        EXPECT_NE(Info.sManu, nullptr);
    }
    EXPECT_EQ(TARVOARM_DEVICE_GetIndex("stm32f407vg"), TARVOARM_DEVICE_GetIndex("STM32F407VG"));
}

TEST(DeviceTable, NamesAreUniqueAndCoresBelongToArmFamilies) {
    const int Count = TARVOARM_DEVICE_GetInfo(-1, nullptr);
    std::set<std::string> Names;
    const std::set<U32> ArmFamilies = {3, 6, 7, 8, 9, 10, 11, 12, 14, 15};
    for (int i = 1; i < Count; ++i) {
        TARVO_DEVICE_INFO Info{};
        Info.SizeOfStruct = sizeof Info;
        ASSERT_EQ(TARVOARM_DEVICE_GetInfo(i, &Info), 0);
        EXPECT_TRUE(Names.insert(Info.sName).second) << Info.sName;
        EXPECT_TRUE(ArmFamilies.count(TARVO_CORE_FAMILY(Info.Core))) << Info.sName;
        EXPECT_STRNE(TARVOARM_Core2CoreName(Info.Core), "Unknown") << Info.sName;
        EXPECT_EQ(TARVOARM_DEVICE_GetIndex(Info.sName), i);
    }
    EXPECT_STREQ(TARVOARM_Core2CoreName(TARVO_CORE_CORTEX_M0P), "Cortex-M0+");
    EXPECT_STREQ(TARVOARM_Core2CoreName(0x7F000000), "Unknown");
}

TEST(DeviceTable, FillsNoMoreThanTheCallerSays) {
    // A caller with an older, shorter record: the core identifier at 560 lies beyond it.
    TARVO_DEVICE_INFO Info;
    std::memset(&Info, 0xEE, sizeof Info);
    Info.SizeOfStruct = 48;
    ASSERT_EQ(TARVOARM_DEVICE_GetInfo(TARVOARM_DEVICE_GetIndex("LPC1768"), &Info), 0);
    EXPECT_EQ(Info.FlashSize, 512u << 10);
    EXPECT_STREQ(Info.sManu, "NXP");
    EXPECT_EQ(Info.Core, 0xEEEEEEEEu);
}
