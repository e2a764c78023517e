#include "DeviceFixture.h"

#include "app/core/SysVars.h"

#include <QFile>
#include <QTemporaryDir>

namespace {

using Memory = DeviceFixture;

constexpr U32 RAM = 0x20000000;

TEST_F(Memory, EveryWidthReadsWhatWasWritten) {
    // Direct calls stand in for the device thread: under its lock, as the thread checks want.
    QMutexLocker Lock(&m_Device->Mutex());
    ConnectFake();
    const U8 Pattern[16] = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88,
                            0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xF0, 0x01};
    for (U32 Count : {1u, 2u, 4u, 8u, 3u, 16u}) {
        for (U32 Offset : {0u, 1u, 2u}) {
            const U32 Addr = RAM + 0x100 + Offset;
            ASSERT_EQ(m_Device->WriteMem(Addr, Count, 0, 0, 0, nullptr, Pattern), Count)
                << Count << "@" << Offset;
            EXPECT_EQ(tarvo::fake::Peek(Addr, Count), std::vector<U8>(Pattern, Pattern + Count));
            U8 Data[16] = {};
            U8 Status[16];
            std::memset(Status, 7, sizeof(Status));
            ASSERT_EQ(m_Device->ReadMem(Addr, Count, 0, 0, 0, nullptr, Data, Status), Count);
            EXPECT_EQ(std::memcmp(Data, Pattern, Count), 0);
            EXPECT_EQ(std::vector<U8>(Status, Status + Count), std::vector<U8>(Count, 0));
        }
    }
}

TEST_F(Memory, AReadThatFailsHalfWayMarksTheRightBytes) {
    // Direct calls stand in for the device thread: under its lock, as the thread checks want.
    QMutexLocker Lock(&m_Device->Mutex());
    ConnectFake();
    tarvo::fake::FailReads(RAM + 40, 60);
    U8 Data[100] = {};
    U8 Status[100] = {};
    const U32 Got = m_Device->ReadMem(RAM, 100, 16, 0, MEM_ACCESS_ITEM_RETRY, nullptr, Data, Status);
    EXPECT_EQ(Got, 40u);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(Status[i], i < 40 ? 0 : 1) << i;
    }
}

TEST_F(Memory, ItemRetryReadsAroundAHole) {
    // Direct calls stand in for the device thread: under its lock, as the thread checks want.
    QMutexLocker Lock(&m_Device->Mutex());
    ConnectFake();
    tarvo::fake::FailReads(RAM + 8, 4);
    U8 Data[32] = {};
    U8 Status[32] = {};
    const U32 Got = m_Device->ReadMem(RAM, 32, 8, 4, MEM_ACCESS_ITEM_RETRY, nullptr, Data, Status);
    EXPECT_EQ(Got, 28u);
    for (int i = 0; i < 32; ++i) {
        EXPECT_EQ(Status[i], i >= 8 && i < 12 ? 1 : 0) << i;
    }
}

TEST_F(Memory, RequestsThatCannotBeMadeAreRefused) {
    // Direct calls stand in for the device thread: under its lock, as the thread checks want.
    QMutexLocker Lock(&m_Device->Mutex());
    QTemporaryDir Dir;
    ASSERT_TRUE(OpenLogChannel(LOG_CHANNEL_APP, Dir.filePath("log.txt")));
    SetLogInterval("1");
    U8 Data[8] = {};
    U8 Status[8] = {};
    EXPECT_EQ(m_Device->ReadMem(RAM, 4, 0, 0, 0, nullptr, Data, Status), 0u);
    ConnectFake();
    EXPECT_EQ(m_Device->ReadMem(0xFFFFFFFEu, 1, 0, 0, 0, nullptr, Data, Status), 0u)
        << "the sum is 0xFFFFFFFF";
    EXPECT_EQ(m_Device->ReadMem(0xFFFFFFFFu, 1, 0, 0, 0, nullptr, Data, Status), 0u);
    EXPECT_EQ(m_Device->ReadMem(RAM, 0, 0, 0, 0, nullptr, Data, Status), 0u);
    EXPECT_EQ(m_Device->ValidateMemoryAccessParams(true, RAM, 4, 0, 0, Data, nullptr), -1);
    m_Device->Halted = 0;
    m_Device->HaltDone = 0;
    TARVOARM_GoEx(0, 1);
    EXPECT_EQ(m_Device->ReadMem(RAM, 4, 0, 0, 0, nullptr, Data, Status), 0u);
    EXPECT_EQ(Status[0], 1);
    CloseLogChannel(LOG_CHANNEL_APP);
    QFile Log(Dir.filePath("log.txt"));
    ASSERT_TRUE(Log.open(QIODevice::ReadOnly));
    const QByteArray Text = Log.readAll();
    EXPECT_TRUE(Text.contains("ReadMem:not connected to target"));
    EXPECT_TRUE(Text.contains("ReadMem:access outside address range limit"));
    EXPECT_TRUE(Text.contains("ReadMem:attempting to access 1 bytes at invalid address ffffffff"));
    EXPECT_TRUE(Text.contains("ReadMem:byte count is 0"));
    EXPECT_TRUE(Text.contains("ReadMem:invalid status buffer"));
    EXPECT_TRUE(Text.contains("ReadMem:cannot access memory while target is running"));
}

TEST_F(Memory, RunningTargetsAndTheHaltingEmulation) {
    // Direct calls stand in for the device thread: under its lock, as the thread checks want.
    QMutexLocker Lock(&m_Device->Mutex());
    ConnectFake();
    tarvo::fake::Poke(RAM, {1, 2, 3, 4});
    m_Device->Halted = 0;
    m_Device->HaltDone = 0;
    U8 Data[4] = {};
    U8 Status[4] = {};
    // Emulated background access needs the user's consent.
    m_Device->Capabilities[0] = 2;
    SysVars::SetVarValue(SysVars::GetVarRow(VAR_ALLOW_BMA_EMULATION), 0, false);
    EXPECT_FALSE(m_Device->IsMemoryAccessible());
    SysVars::SetVarValue(SysVars::GetVarRow(VAR_ALLOW_BMA_EMULATION), 1, false);
    EXPECT_TRUE(m_Device->IsMemoryAccessible());
    TARVOARM_GoEx(0, 1);
    const int ResumesBefore = tarvo::fake::GetCounter(tarvo::fake::Resumes);
    EXPECT_EQ(m_Device->ReadMem(RAM, 4, 0, 0, MEM_ACCESS_HALT, nullptr, Data, Status), 4u);
    EXPECT_EQ(Data[3], 4);
    EXPECT_EQ(tarvo::fake::GetCounter(tarvo::fake::Resumes), ResumesBefore + 1) << "halted around the read";
    SysVars::SetVarValue(SysVars::GetVarRow(VAR_ALLOW_BMA_EMULATION), 0, false);

    TARVOARM_Halt();
    m_Device->Halted = 1;
    m_Device->HaltDone = 1;
    const int Resumes = tarvo::fake::GetCounter(tarvo::fake::Resumes);
    EXPECT_EQ(m_Device->ReadMem(RAM, 4, 0, 0, MEM_ACCESS_HALT, nullptr, Data, Status), 4u);
    EXPECT_EQ(tarvo::fake::GetCounter(tarvo::fake::Resumes), Resumes) << "a halted target is not resumed";
}

TEST_F(Memory, MultipleRangesStopBeforeOneThatDoesNotFit) {
    // Direct calls stand in for the device thread: under its lock, as the thread checks want.
    QMutexLocker Lock(&m_Device->Mutex());
    ConnectFake();
    const U32 Ranges[6] = {RAM, RAM + 4, RAM + 16, RAM + 20, RAM + 32, RAM + 40};
    const U8 Data[10] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    EXPECT_EQ(m_Device->WriteMemMultiple(3, Ranges, 10, Data, 0, 0, 0, nullptr), 8u);
    EXPECT_EQ(tarvo::fake::Peek(RAM + 16, 4), std::vector<U8>({5, 6, 7, 8}));
    EXPECT_EQ(tarvo::fake::Peek(RAM + 32, 2), std::vector<U8>({0, 0}));
}

TEST_F(Memory, RegistersThroughThePlugin) {
    // Direct calls stand in for the device thread: under its lock, as the thread checks want.
    QMutexLocker Lock(&m_Device->Mutex());
    ConnectFake();
    tarvo::fake::SetRegister(TARVO_REG_PC, 0x1235);
    tarvo::fake::SetRegister(TARVO_REG_R0 + 3, 0xCAFE);
    U64 Value = 0;
    EXPECT_EQ(m_Device->ReadReg(TARVO_REG_PC, &Value), 0);
    EXPECT_EQ(Value, 0x1234u) << "the PC is aligned to the instruction size";
    EXPECT_EQ(m_Device->WriteReg(TARVO_REG_R0 + 4, 0x55), 0);
    EXPECT_EQ(tarvo::fake::GetRegister(TARVO_REG_R0 + 4), 0x55u);
    EXPECT_EQ(m_Device->ReadReg(0xFFFFFFFFu, &Value), -1);

    tarvo::fake::SetRegisterAvailable(TARVO_REG_R0 + 2, false);
    const U32 Indices[3] = {TARVO_REG_R0 + 2, TARVO_REG_R0 + 3, TARVO_REG_PC};
    U64 Values[3] = {};
    U8 Status[3] = {};
    EXPECT_EQ(m_Device->ReadRegs(3, Indices, Values, Status), 0);
    EXPECT_EQ(Status[0], 1);
    EXPECT_EQ(Values[0], ~0ull) << "an unavailable register reads all ones";
    EXPECT_EQ(Status[1], 0);
    EXPECT_EQ(Values[1], 0xCAFEu);
    EXPECT_EQ(Values[2], 0x1234u);

    m_Device->Halted = 0;
    m_Device->HaltDone = 0;
    TARVOARM_GoEx(0, 1);
    EXPECT_EQ(m_Device->ReadRegs(3, Indices, Values, Status), -1) << "registers of a running target";
}

TEST_F(Memory, JobsCarryReadsAndWrites) {
    ConnectFake();
    RecordingListener Cache;
    DeviceEvents::SetDataManager(&Cache);
    const U8 Bytes[6] = {9, 8, 7, 6, 5, 4};
    ASSERT_EQ(m_Device->ScheduleWriteMem(RAM + 0x40, 6, Bytes, 0, 255, 0), 0);
    ASSERT_EQ(m_Device->ScheduleReadMem(RAM + 0x40, 6, 0, 255, 0), 0);
    WaitIdle();
    DrainEvents();
    EXPECT_EQ(Cache.LastRead, std::vector<U8>(Bytes, Bytes + 6));
    EXPECT_EQ(Cache.LastStatus, std::vector<U8>(6, 0));
    DeviceEvents::SetDataManager(nullptr);
}

} // namespace
