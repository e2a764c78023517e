// The device's connection, reset and download jobs on the emulated board: the demo program arrives
// whole and starts at its reset vector, and a GDB server that goes away is noticed within a second.

#include "../DeviceFixture.h"

#include "kit/ElfImage.h"
#include "kit/QemuHarness.h"
#include "program/ElfWrapper.h"
#include "program/FileWorker.h"
#include "target/DeviceConfig.h"

#include <cstring>

namespace {

using namespace probetest;

class SessionBoard : public DeviceFixture {
protected:
    void SetUp() override {
        DeviceFixture::SetUp();
        m_Listener.Events.clear();
    }
    void TearDown() override {
        if (m_Device->Connected.load()) {
            m_Device->ScheduleDisconnect();
            m_Device->WaitForJobEvent(JT_DISCONNECT, false);
        }
        GetDeviceConfig().Reset();
        DeviceFixture::TearDown();
    }
    void Configure(I32 HostIF, const QString& Host) {
        CDeviceConfig& Config = GetDeviceConfig();
        Config.Reset();
        Config.SetParam(HOST_IF, HostIF);
        Config.SetText(HOST_NAME, Host.toUtf8().constData());
        Config.SetText(DEVICE_NAME, "MPS2-AN385");
    }
    bool Heard(U32 Type, U32 Status) const {
        for (const RecordingListener::Heard& H : m_Listener.Events) {
            if (H.Type == Type && H.Status == Status) {
                return true;
            }
        }
        return false;
    }
};

class LossListener : public CDeviceEventListener {
public:
    void OnDeviceConnectionLost() override { ++Lost; }
    int Lost = 0;
};

TEST_F(SessionBoard, TheDemoProgramArrivesWholeAndStartsAtItsResetVector) {
    Configure(HOST_IF_USB, QString());
    ASSERT_EQ(m_Device->ScheduleConnect(CM_DOWNLOAD_RESET), 0);
    m_Device->WaitForJobEvent(JT_CONNECT, false);
    ASSERT_TRUE(m_Device->Connected.load());
    ASSERT_TRUE(Heard(JT_CONNECT, JS_DONE));

    const QString Path = QString::fromStdString(FirmwarePath("demo"));
    ELF_DATA_BLOCKS Blocks;
    {
        QMutexLocker Lock(&ELF_GetDataMutex());
        Blocks = TFile::CFileWorker::Instance()->ReadFile(Path);
    }
    ASSERT_FALSE(Blocks.empty());
    m_Device->ScheduleReset(RM_RESET_DOWNLOAD);
    ASSERT_EQ(m_Device->ScheduleDownload(Blocks, Path, DOWNLOAD_PROGRAM), 0);
    m_Device->WaitForJobEvent(JT_END_DOWNLOAD, false);
    EXPECT_TRUE(Heard(JT_END_DOWNLOAD, JS_DONE));
    EXPECT_EQ(m_Device->LastDownloadError(), 0);

    ElfImage Elf;
    std::string Error;
    ASSERT_TRUE(Elf.Load(FirmwarePath("demo"), Error)) << Error;
    for (const Segment& S : Elf.Segments()) {
        std::vector<U8> Data(S.Bytes.size());
        std::vector<U8> Status(S.Bytes.size());
        QMutexLocker Lock(&m_Device->Mutex());
        ASSERT_EQ(m_Device->ReadMem(S.Address, static_cast<U32>(Data.size()), 0, 0, 0, nullptr, Data.data(),
                                    Status.data()),
                  Data.size());
        EXPECT_EQ(Data, S.Bytes) << std::hex << S.Address;
    }

    // A reset now starts the program that is there.
    m_Device->ScheduleReset(RM_RESET_HALT);
    m_Device->WaitForJobEvent(JT_RESET, false);
    U32 Vector = 0;
    std::memcpy(&Vector, Elf.Segments().front().Bytes.data() + 4, 4);
    EXPECT_EQ(m_Device->PC.load(), Vector & ~1u);
    EXPECT_TRUE(m_Device->HaltDone.load());
    EXPECT_EQ(m_Device->ResetSeqDone.load(), 1);
}

TEST_F(SessionBoard, AServerThatGoesAwayIsNoticedWithinASecond) {
    QemuHarness Server;
    std::string Error;
    ASSERT_TRUE(Server.Start("mps2-an385", FirmwarePath("demo"), 20000, Error)) << Error;
    Configure(HOST_IF_IP, QStringLiteral("localhost:%1").arg(Server.Port()));
    ASSERT_EQ(m_Device->ScheduleConnect(CM_ATTACH_HALT), 0);
    m_Device->WaitForJobEvent(JT_CONNECT, false);
    ASSERT_TRUE(m_Device->Connected.load());
    EXPECT_EQ(m_Device->Capabilities[0].load(), 2) << "a GDB server reads memory only by halting";
    QElapsedTimer Settle;
    Settle.start();
    while (!m_Device->HaltDone.load() && Settle.elapsed() < 2000) {
        QThread::msleep(1);
    }
    LossListener Loss;
    Server.Stop();
    QElapsedTimer T;
    T.start();
    while (Loss.Lost == 0 && T.elapsed() < 3000) {
        DrainEvents(5);
    }
    EXPECT_EQ(Loss.Lost, 1);
    EXPECT_LT(T.elapsed(), 1000);
    EXPECT_TRUE(m_Device->ConnectionLost.load());
}

} // namespace
