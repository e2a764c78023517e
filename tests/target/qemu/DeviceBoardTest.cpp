// The device's memory access on the emulated board, connected through the library directly: every width,
// a read that fails half-way, and reads while the program runs.

#include "kit/QemuHarness.h"
#include "probe/qemu/BoardFixture.h"

#include "app/core/SysVars.h"
#include "probe/CorePluginAPI.h"
#include "target/Device.h"

#include <QCoreApplication>
#include <QThread>

#include <cstring>

using namespace probetest;

namespace {

constexpr U32 RAM = 0x20000000;
// The emulated board maps RAM and its bit-band alias up to here; above it nothing answers.
constexpr U32 MAPPED_END = 0x24000000;

const CORE_PLUGIN_API* CoreApi() {
    static CORE_PLUGIN_API Api = [] {
        CORE_PLUGIN_API A = {};
        A.ReadReg = [](U32 Index, U32, U64* Value) { return TARVOARM_ReadReg(Index, Value); };
        A.WriteReg = [](U32 Index, U32, const U64* Value) { return TARVOARM_WriteReg(Index, *Value); };
        A.MapRegIndex = [](U32 Index) { return Index; };
        return A;
    }();
    return &Api;
}

/// The device over a board that the test connected: the device is told what the library knows.
class DeviceBoard : public Board {
protected:
    void SetUp() override {
        Board::SetUp();
        m_Device = CDevice::Instance();
        static CORE_INFO Info = [] {
            CORE_INFO I = {};
            I.InstAlign = 2;
            I.PCIndex = 15;
            return I;
        }();
        m_Device->SetCorePlugin(CoreApi(), &Info);
    }
    void TearDown() override {
        {
            QMutexLocker Lock(&m_Device->Mutex());
            m_Device->Connected = 0;
            m_Device->Halted = 0;
            m_Device->HaltDone = 0;
        }
        SysVars::SetVarValue(SysVars::GetVarRow(VAR_ALLOW_BMA_EMULATION), 0, false);
        Board::TearDown();
    }
    /// The device takes the connection and the library's background access.
    void Attach(bool Halted) {
        QMutexLocker Lock(&m_Device->Mutex());
        m_Device->Connected = 1;
        m_Device->Halted = Halted ? 1 : 0;
        m_Device->HaltDone = Halted ? 1 : 0;
        m_Device->WaitForHalt = 0;
        auto Capability = reinterpret_cast<int (*)(void)>(TARVO_GetpFunc(10));
        m_Device->Capabilities[0] = static_cast<U8>(Capability ? Capability() : 0);
    }
    void Run() {
        TARVOARM_GoEx(0, 1);
        QMutexLocker Lock(&m_Device->Mutex());
        m_Device->Halted = 0;
        m_Device->HaltDone = 0;
    }
    CDevice* m_Device = nullptr;
};

TEST_F(DeviceBoard, EveryWidthOnTheBoard) {
    // Direct calls stand in for the device thread: under its lock, as the thread checks want.
    QMutexLocker Lock(&m_Device->Mutex());
    Start("MPS2-AN385", "");
    Attach(true);
    U8 Pattern[32];
    for (int i = 0; i < 32; ++i) {
        Pattern[i] = static_cast<U8>(0xA0 + i);
    }
    for (U32 Count : {1u, 2u, 4u, 8u, 5u, 32u}) {
        for (U32 Offset : {0u, 1u, 2u, 3u}) {
            const U32 Addr = RAM + 0x400 + Offset;
            ASSERT_EQ(m_Device->WriteMem(Addr, Count, 0, 0, 0, nullptr, Pattern), Count);
            U8 Data[32] = {};
            U8 Status[32];
            ASSERT_EQ(m_Device->ReadMem(Addr, Count, 0, 0, 0, nullptr, Data, Status), Count);
            EXPECT_EQ(std::memcmp(Data, Pattern, Count), 0) << Count << "@" << Offset;
            EXPECT_EQ(std::memcmp(Status, std::vector<U8>(Count, 0).data(), Count), 0);
            U8 Library[32] = {};
            ASSERT_EQ(TARVOARM_ReadMemEx(Addr, Count, Library, 0), static_cast<int>(Count));
            EXPECT_EQ(std::memcmp(Library, Pattern, Count), 0) << "as the library reads it";
        }
    }
}

TEST_F(DeviceBoard, AReadAcrossTheEndOfMemoryMarksTheMissingBytes) {
    // Direct calls stand in for the device thread: under its lock, as the thread checks want.
    QMutexLocker Lock(&m_Device->Mutex());
    Start("MPS2-AN385", "");
    Attach(true);
    U8 Data[100] = {};
    U8 Status[100] = {};
    const U32 Got =
        m_Device->ReadMem(MAPPED_END - 40, 100, 8, 4, MEM_ACCESS_ITEM_RETRY, nullptr, Data, Status);
    EXPECT_EQ(Got, 40u);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(Status[i], i < 40 ? 0 : 1) << i;
    }
}

TEST_F(DeviceBoard, ReadsWhileRunningWithBackgroundAccess) {
    // Direct calls stand in for the device thread: under its lock, as the thread checks want.
    QMutexLocker Lock(&m_Device->Mutex());
    Start("MPS2-AN385", "demo");
    Attach(true);
    ASSERT_EQ(m_Device->Capabilities[0].load(), 1) << "the emulated board reads memory while it runs";
    Run();
    const U32 Counter = Elf.Symbol("g_Counter");
    ASSERT_NE(Counter, 0u);
    U32 First = 0;
    U32 Second = 0;
    U8 Status[4] = {};
    ASSERT_EQ(m_Device->ReadMem(Counter, 4, 0, 4, 0, nullptr, reinterpret_cast<U8*>(&First), Status), 4u);
    QThread::msleep(50);
    ASSERT_EQ(m_Device->ReadMem(Counter, 4, 0, 4, 0, nullptr, reinterpret_cast<U8*>(&Second), Status), 4u);
    EXPECT_NE(First, Second) << "the counter goes on while the program runs";
    EXPECT_EQ(TARVOARM_IsHalted(), 0) << "nothing halted the target";
}

TEST_F(DeviceBoard, ReadsWhileRunningThroughTheHaltingEmulation) {
    // Direct calls stand in for the device thread: under its lock, as the thread checks want.
    QMutexLocker Lock(&m_Device->Mutex());
    // A plain GDB server cannot read a running target: the library halts it for a moment.
    QemuHarness Server;
    std::string Error;
    ASSERT_TRUE(Server.Start("mps2-an385", FirmwarePath("demo"), 20000, Error)) << Error;
    ASSERT_EQ(TARVOARM_SelectIP(("localhost:" + std::to_string(Server.Port())).c_str(), 0), 0);
    ASSERT_EQ(TARVOARM_Open(), nullptr);
    ASSERT_EQ(TARVOARM_Connect(), 0);
    ASSERT_EQ(Elf.Load(FirmwarePath("demo"), Error), true) << Error;
    Attach(true);
    ASSERT_EQ(m_Device->Capabilities[0].load(), 2);
    Run();
    const U32 Counter = Elf.Symbol("g_Counter");
    U32 Value = 0;
    U8 Status[4] = {};
    EXPECT_EQ(m_Device->ReadMem(Counter, 4, 0, 4, 0, nullptr, reinterpret_cast<U8*>(&Value), Status), 0u)
        << "without the user's consent";
    SysVars::SetVarValue(SysVars::GetVarRow(VAR_ALLOW_BMA_EMULATION), 1, false);
    EXPECT_EQ(m_Device->ReadMem(Counter, 4, 0, 4, 0, nullptr, reinterpret_cast<U8*>(&Value), Status), 4u);
    EXPECT_EQ(TARVOARM_IsHalted(), 0) << "running again after the read";
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication App(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
