// The connection, reset and download jobs against the probe library's fake target: what the device
// finds out when it connects, how each step fails, a broken link, and the end of every download.

#include "DeviceFixture.h"

#include "../probe/kit/Babbler.h"

#include "app/core/SysVars.h"
#include "probe/TarvoCores.h"
#include "target/DeviceConfig.h"

#include <QFile>
#include <QTemporaryDir>

#include <algorithm>

namespace {

constexpr U32 RAM = 0x20000000;

/// What the session's events said.
class SessionListener : public CDeviceEventListener {
public:
    void OnDeviceConnectDone(CONNECT_MODES Mode) override { Connected.push_back(Mode); }
    void OnDeviceConnectFailed(CONNECT_MODES Mode) override { Failed.push_back(Mode); }
    void OnDeviceResetDone(U32 PC, RESET_MODES Mode) override { Resets.push_back({PC, Mode}); }
    void OnDeviceDisconnectDone() override { ++Disconnects; }
    void OnDeviceConnectionLost() override { ++Lost; }
    void OnDeviceEndDownloadDone(const char* File, DOWNLOAD_MODES Mode) override {
        Downloads.push_back({QString::fromUtf8(File), Mode, 0});
    }
    void OnDeviceEndDownloadFailed(const char* File, DOWNLOAD_MODES Mode, int Error) override {
        Downloads.push_back({QString::fromUtf8(File), Mode, Error});
    }
    void OnDeviceConfigParamChanged(int Param, int Value) override { Changes.push_back({Param, Value}); }

    void Clear() {
        Connected.clear();
        Failed.clear();
        Resets.clear();
        Disconnects = 0;
        Lost = 0;
        Downloads.clear();
        Changes.clear();
    }

    struct DOWNLOAD {
        QString File;
        DOWNLOAD_MODES Mode;
        int Error;
    };
    std::vector<CONNECT_MODES> Connected;
    std::vector<CONNECT_MODES> Failed;
    std::vector<std::pair<U32, RESET_MODES>> Resets;
    int Disconnects = 0;
    int Lost = 0;
    std::vector<DOWNLOAD> Downloads;
    std::vector<std::pair<int, int>> Changes;
};

class Session : public DeviceFixture {
protected:
    void SetUp() override {
        DeviceFixture::SetUp();
        tarvo::fake::Reset();
        ASSERT_TRUE(m_LogDir.isValid());
        ASSERT_TRUE(OpenLogChannel(LOG_CHANNEL_APP, m_LogDir.filePath("log.txt")));
        SetLogInterval("1");
        Configure("FAKE");
        DrainEvents();
        m_Heard.Clear();
    }
    void TearDown() override {
        if (m_Device->Connected.load()) {
            m_Device->ScheduleDisconnect();
            m_Device->WaitForJobEvent(JT_DISCONNECT, false);
        }
        DrainEvents();
        CloseLogChannel(LOG_CHANNEL_APP);
        GetDeviceConfig().Reset();
        SysVars::ResetAll();
        DeviceFixture::TearDown();
    }
    void Configure(const char* Device, I32 HostIF = HOST_IF_USB) {
        CDeviceConfig& Config = GetDeviceConfig();
        Config.Reset();
        Config.SetParam(HOST_IF, HostIF);
        Config.SetText(DEVICE_NAME, Device);
    }
    /// Runs a connection job and delivers its events.
    void RunConnect(CONNECT_MODES Mode) {
        ASSERT_EQ(m_Device->ScheduleConnect(Mode), 0);
        m_Device->WaitForJobEvent(JT_CONNECT, false);
        WaitIdle();
        DrainEvents();
    }
    QByteArray LogText() {
        FlushLogBuffer();
        QFile Log(m_LogDir.filePath("log.txt"));
        return Log.open(QIODevice::ReadOnly) ? Log.readAll() : QByteArray();
    }
    /// A connected fake target, halted, with a vector table at 0.
    void ConnectHalted() {
        // The initial SP and the reset vector of a Thumb program at 0x100.
        tarvo::fake::Poke(0, {0x00, 0x10, 0x00, 0x20, 0x01, 0x01, 0x00, 0x00});
        RunConnect(CM_ATTACH_HALT);
        ASSERT_TRUE(m_Device->Connected.load());
        QElapsedTimer T;
        T.start();
        while (!m_Device->HaltDone.load() && T.elapsed() < 2000) {
            QThread::msleep(1);
        }
        ASSERT_TRUE(m_Device->HaltDone.load());
        DrainEvents();
        m_Heard.Clear();
    }
    ELF_DATA_BLOCK Block(U32 Address, U32 Size, U8 First) {
        ELF_DATA_BLOCK B;
        B.Address = B.VirtualAddress = Address;
        B.Size = Size;
        B.Data.resize(static_cast<qsizetype>(Size));
        for (U32 i = 0; i < Size; ++i) {
            B.Data[static_cast<qsizetype>(i)] = static_cast<char>(First + i * 7);
        }
        return B;
    }
    void RunDownload(const ELF_DATA_BLOCKS& Blocks) {
        ASSERT_EQ(m_Device->ScheduleDownload(Blocks, QStringLiteral("prog.elf"), DOWNLOAD_PROGRAM), 0);
        m_Device->WaitForJobEvent(JT_END_DOWNLOAD, false);
        WaitIdle();
        DrainEvents();
    }

    QTemporaryDir m_LogDir;
    SessionListener m_Heard;
};

TEST_F(Session, AConnectionLearnsTheProbeAndTheDevice) {
    RunConnect(CM_ATTACH_HALT);
    ASSERT_EQ(m_Heard.Connected, std::vector<CONNECT_MODES>{CM_ATTACH_HALT});
    EXPECT_TRUE(m_Device->Connected.load());
    EXPECT_TRUE(m_Device->SessionActive.load()) << "an attachment is a session from the start";
    const DEVICE_FACTS Facts = m_Device->GetFacts();
    EXPECT_EQ(Facts.SerialNo, TARVO_EMU_SERIAL_NO);
    EXPECT_FALSE(Facts.Firmware.isEmpty());
    EXPECT_FALSE(Facts.Firmware.contains(QLatin1String("compiled"))) << Facts.Firmware.toStdString();
    EXPECT_EQ(Facts.DeviceName, QStringLiteral("FAKE"));
    EXPECT_EQ(Facts.CoreName, QStringLiteral("Cortex-M3"));
    EXPECT_EQ(Facts.CoreFamily, Facts.Core >> 24);
    EXPECT_EQ(Facts.RamAddr, RAM);
    EXPECT_EQ(Facts.Zones, QStringList{QStringLiteral("Default")});
    EXPECT_EQ(Facts.LibraryVersion, TARVOARM_GetDLLVersion());
    EXPECT_TRUE(Facts.LibraryPath.endsWith(QLatin1String("libtarvo.so"))) << Facts.LibraryPath.toStdString();
    EXPECT_TRUE(Facts.WebServerURL.isEmpty()) << "a library of this version without a web server has none";
    for (int i = 3; i < 6; ++i) {
        EXPECT_EQ(m_Device->Capabilities[i].load(), 1) << i;
    }
    const QByteArray Log = LogText();
    EXPECT_TRUE(Log.contains("Opening connection to Tarvo..."));
    EXPECT_TRUE(Log.contains("Configuring hardware..."));

    ASSERT_EQ(m_Device->ScheduleDisconnect(), 0);
    m_Device->WaitForJobEvent(JT_DISCONNECT, false);
    DrainEvents();
    EXPECT_EQ(m_Heard.Disconnects, 1);
    EXPECT_FALSE(m_Device->Connected.load());
    EXPECT_FALSE(m_Device->SessionActive.load());
    EXPECT_EQ(TARVOARM_IsOpen(), 0);
}

TEST_F(Session, TheModeDecidesAboutTheSessionAndTheEvent) {
    RunConnect(CM_DOWNLOAD_RESET);
    EXPECT_TRUE(m_Device->Connected.load());
    EXPECT_FALSE(m_Device->SessionActive.load()) << "the session starts after the download";
    ASSERT_EQ(m_Heard.Connected.size(), 1u);
    // A connection of a script's own raises no event, and a second one finds the first standing.
    m_Device->ScheduleDisconnect();
    m_Device->WaitForJobEvent(JT_DISCONNECT, false);
    m_Heard.Clear();
    RunConnect(CM_SILENT);
    EXPECT_TRUE(m_Device->Connected.load());
    EXPECT_TRUE(m_Heard.Connected.empty());
    EXPECT_TRUE(m_Heard.Failed.empty());
}

TEST_F(Session, FailuresOfEachStepCloseTheLibraryAndFailTheJob) {
    // Text goes to the log; Reason is the device's last error, which the Console shows.
    struct CASE {
        const char* Name;
        std::function<void()> Arrange;
        const char* Text;
        const char* Reason;
    } Cases[] = {
        {"unknown host interface", [] { GetDeviceConfig().SetParam(HOST_IF, 3); },
         "Connect: unknown host interface", "Connect: unknown host interface"},
        {"IP without a host",
         [] {
             GetDeviceConfig().SetParam(HOST_IF, HOST_IF_IP);
             GetDeviceConfig().SetText(HOST_NAME, "");
         },
         "Connect: error during configuration of IP interface",
         "Connect: error during configuration of IP interface"},
        {"a serial number nobody has",
         [] {
             GetDeviceConfig().SetParam(USB_SERIAL_NO, 1234);
             GetDeviceConfig().SetParam(USE_SERIAL_NO, 1);
         },
         "Connect: serial number not found on usb", "Connect: serial number not found on usb"},
        {"a device the library doesn't know", [] { GetDeviceConfig().SetText(DEVICE_NAME, "NOPE"); },
         "Connect: could not configure Tarvo", "Unknown device \"NOPE\""},
        {"a target that doesn't answer", [] { tarvo::fake::SetFault(tarvo::fake::ConnectFails, true); },
         "Connect: TARVO API call failed", "Connect: TARVO API call failed"},
    };
    for (const CASE& C : Cases) {
        Configure("FAKE");
        tarvo::fake::Reset();
        C.Arrange();
        m_Heard.Clear();
        RunConnect(CM_ATTACH);
        EXPECT_EQ(m_Heard.Failed, std::vector<CONNECT_MODES>{CM_ATTACH}) << C.Name;
        EXPECT_TRUE(m_Heard.Connected.empty()) << C.Name;
        EXPECT_FALSE(m_Device->Connected.load()) << C.Name;
        EXPECT_EQ(TARVOARM_IsOpen(), 0) << C.Name << ": the library is closed again";
        EXPECT_TRUE(LogText().contains(C.Text)) << C.Name;
        EXPECT_EQ(m_Device->LastErrorText(), QLatin1String(C.Reason)) << C.Name;
    }
    EXPECT_EQ(tarvo::fake::GetCounter(tarvo::fake::Connects), 2) << "the connection is tried twice";
}

// A connection in an attach mode returns with the halt state known: the first register read after it
// must not depend on a poll of the device loop.
TEST_F(Session, AnAttachmentKnowsTheHaltWhenItsEventComes) {
    tarvo::fake::SetRegister(TARVO_REG_PC, 0x2000);
    struct CASE {
        CONNECT_MODES Mode;
        bool RunningBefore;
        bool HaltedAfter;
    } Cases[] = {{CM_ATTACH_HALT, true, true},
                 {CM_ATTACH_HALT, false, true},
                 {CM_ATTACH, false, true},
                 {CM_ATTACH, true, false}};
    for (const CASE& C : Cases) {
        tarvo::fake::SetRunningAtConnect(C.RunningBefore);
        m_Listener.Events.clear();
        ASSERT_EQ(m_Device->ScheduleConnect(C.Mode), 0);
        m_Device->WaitForJobEvent(JT_CONNECT, false);
        const std::string Name = std::to_string(C.Mode) + (C.RunningBefore ? " running" : " halted");
        ASSERT_TRUE(m_Device->Connected.load()) << Name;
        EXPECT_EQ(m_Device->HaltDone.load(), C.HaltedAfter ? 1 : 0) << Name;
        EXPECT_EQ(TARVOARM_IsHalted(), C.HaltedAfter ? 1 : 0) << Name;
        if (C.HaltedAfter) {
            EXPECT_EQ(m_Device->PC.load(), tarvo::fake::GetRegister(TARVO_REG_PC)) << Name;
            U64 Pc = 0;
            EXPECT_EQ(m_Device->ReadRegDirect(TARVO_REG_PC, &Pc), 0) << Name;
            // The halt is reported after the connection, as the session controller expects.
            DrainEvents();
            std::vector<U32> Kinds;
            for (const RecordingListener::Heard& H : m_Listener.Events) {
                Kinds.push_back(H.Type);
            }
            EXPECT_EQ(Kinds, (std::vector<U32>{JT_CONNECT, JT_HALT})) << Name;
        }
        m_Device->ScheduleDisconnect();
        m_Device->WaitForJobEvent(JT_DISCONNECT, false);
        DrainEvents();
    }
}

// A serial port given for a GDB server sends bytes that never form an answer: the connection fails
// after the reply time-out, once per try, or at once when it is canceled; a canceled one raises no event.
TEST_F(Session, AConnectionToABabblingPortEndsInTimeOrWhenCanceled) {
    probetest::Babbler Port;
    Configure("FAKE", HOST_IF_IP);
    GetDeviceConfig().SetText(HOST_NAME,
                              QStringLiteral("127.0.0.1:%1").arg(Port.Port()).toUtf8().constData());
    char Answer[256] = {};
    ASSERT_EQ(TARVOARM_ExecCommand("Timeout=300", Answer, sizeof(Answer)), 0);
    QElapsedTimer T;
    T.start();
    RunConnect(CM_ATTACH);
    EXPECT_EQ(m_Heard.Failed, std::vector<CONNECT_MODES>{CM_ATTACH});
    EXPECT_LT(T.elapsed(), 2 * 300 + 500) << "two tries of one time-out each";
    EXPECT_EQ(Port.Connections(), 2);

    ASSERT_EQ(TARVOARM_ExecCommand("Timeout=3000", Answer, sizeof(Answer)), 0);
    m_Heard.Clear();
    ASSERT_EQ(m_Device->ScheduleConnect(CM_ATTACH), 0);
    QThread::msleep(100);
    T.restart();
    EXPECT_TRUE(m_Device->CancelConnect());
    while (m_Device->HasQueuedJobs() && T.elapsed() < 5000) {
        QThread::msleep(1);
    }
    EXPECT_LT(T.elapsed(), 300) << "the library's wait ended with the cancel";
    DrainEvents();
    EXPECT_TRUE(m_Heard.Failed.empty());
    EXPECT_TRUE(m_Heard.Connected.empty());
    EXPECT_FALSE(m_Device->Connected.load());
    EXPECT_EQ(TARVOARM_IsOpen(), 0);
    EXPECT_EQ(Port.Connections(), 3) << "no second try after a cancel";
    EXPECT_FALSE(m_Device->CancelConnect()) << "nothing left to cancel";
}

TEST_F(Session, SerialNumberZeroSelectsTheFirstProbe) {
    GetDeviceConfig().SetParam(USB_SERIAL_NO, 0);
    GetDeviceConfig().SetParam(USE_SERIAL_NO, 1);
    RunConnect(CM_ATTACH);
    EXPECT_TRUE(m_Device->Connected.load());
}

TEST_F(Session, AScriptThatFailsDoesNotStopTheConnection) {
    GetDeviceConfig().SetText(SCRIPT_FILE, "/nowhere/probe.tarvo");
    RunConnect(CM_ATTACH);
    EXPECT_TRUE(m_Device->Connected.load());
    const QByteArray Log = LogText();
    EXPECT_TRUE(Log.contains("Executing Tarvo Script"));
    EXPECT_TRUE(Log.contains("Error executing Tarvo command \"ScriptFile=/nowhere/probe.tarvo\""));
}

TEST_F(Session, FinishingAConnectionOfAClosedLibraryLeavesItUnconnected) {
    m_Device->SetPendingConnect(CM_ATTACH);
    QElapsedTimer T;
    T.start();
    while (m_Heard.Failed.empty() && T.elapsed() < 2000) {
        DrainEvents(5);
    }
    EXPECT_EQ(m_Heard.Failed, std::vector<CONNECT_MODES>{CM_ATTACH});
    EXPECT_FALSE(m_Device->Connected.load());
}

TEST_F(Session, InterfaceSpeedWhileConnectedGoesToTheProbeInKilohertz) {
    ConnectHalted();
    ASSERT_EQ(m_Device->ScheduleSetConfigParam(TIF_SPEED, 4000000), 0);
    m_Device->WaitForJobEvent(JT_SET_CONFIG_PARAM, false);
    EXPECT_EQ(TARVOARM_GetSpeed(), 4000u);
    EXPECT_EQ(m_Device->GetFacts().TIFSpeedHz, 4000000u);
    m_Device->ScheduleSetConfigParam(TIF_SPEED, 65535);
    m_Device->WaitForJobEvent(JT_SET_CONFIG_PARAM, false);
    EXPECT_EQ(TARVOARM_GetSpeed(), 65535u) << "adaptive clocking stays as it is";
    EXPECT_EQ(GetDeviceConfig().GetParam(USE_ADAPTIVE), 1);
    EXPECT_EQ(GetDeviceConfig().GetParam(USE_MAX_SPEED), 0);
}

TEST_F(Session, ANewDeviceIsToldAndCountsAsCapable) {
    m_Device->Capabilities[2] = 0;
    ASSERT_EQ(m_Device->ScheduleSetConfigParam(DEVICE_NAME, "MPS2-AN386"), 0);
    m_Device->WaitForJobEvent(JT_SET_CONFIG_PARAM, false);
    DrainEvents();
    const auto Heard = [this](int Param) {
        return std::any_of(m_Heard.Changes.begin(), m_Heard.Changes.end(),
                           [Param](const std::pair<int, int>& C) { return C.first == Param; });
    };
    EXPECT_TRUE(Heard(DEVICE_INDEX));
    EXPECT_TRUE(Heard(DEVICE_NAME));
    EXPECT_EQ(m_Device->Capabilities[2].load(), 1);
    EXPECT_EQ(m_Device->GetFacts().CoreName, QStringLiteral("Cortex-M4"));
    // A name the library doesn't know leaves no device, and no "Unspecified" stands in for it.
    GetDeviceConfig().SetText(DEVICE_NAME, "NOPE");
    EXPECT_EQ(GetDeviceConfig().GetParam(DEVICE_INDEX), -1);
    EXPECT_EQ(m_Device->UpdateDeviceInfo(), -1);
    EXPECT_TRUE(m_Device->GetFacts().CoreName.isEmpty());
    EXPECT_NE(m_Device->GetFacts().DeviceName, QStringLiteral("Unspecified"));
}

TEST_F(Session, TheSupportedCoresAreEachNamedOnce) {
    ASSERT_GT(m_Device->UpdateSupportedCoresList(), 0);
    std::vector<U32> Cores = m_Device->GetFacts().SupportedCores;
    const size_t Count = Cores.size();
    std::sort(Cores.begin(), Cores.end());
    EXPECT_EQ(std::unique(Cores.begin(), Cores.end()) - Cores.begin(), static_cast<long>(Count));
    EXPECT_NE(std::find(Cores.begin(), Cores.end(), TARVO_CORE_CORTEX_M3), Cores.end());
}

TEST_F(Session, ResetsAndTheirModes) {
    ConnectHalted();
    m_Device->ResetSeqDone = 1;
    const U64 PC = m_Device->PC.load();
    const int Before = tarvo::fake::GetCounter(tarvo::fake::Resets);
    // The reset of Exec.Reset: the probe resets, the execution state and the reset sequence stay.
    ASSERT_EQ(m_Device->ScheduleReset(RM_HARDWARE), 0);
    m_Device->WaitForJobEvent(JT_RESET, false);
    DrainEvents();
    EXPECT_EQ(tarvo::fake::GetCounter(tarvo::fake::Resets), Before + 1);
    EXPECT_EQ(m_Device->ResetSeqDone.load(), 1);
    EXPECT_EQ(m_Device->PC.load(), PC);
    EXPECT_TRUE(m_Heard.Resets.empty()) << "no event for the reset alone";

    ASSERT_EQ(m_Device->ScheduleReset(RM_RESET_DOWNLOAD), 0);
    m_Device->WaitForJobEvent(JT_RESET, false);
    DrainEvents();
    ASSERT_EQ(m_Heard.Resets.size(), 1u);
    EXPECT_EQ(m_Heard.Resets[0].second, RM_RESET_DOWNLOAD);
    EXPECT_EQ(m_Heard.Resets[0].first, 0x100u) << "the PC of the vector table";
    EXPECT_EQ(m_Device->ResetSeqDone.load(), 0);
    EXPECT_EQ(m_Device->ResetMode.load(), RM_RESET_DOWNLOAD);
    EXPECT_TRUE(m_Device->HaltDone.load());

    m_Device->ScheduleReset(RM_RESET_HALT);
    m_Device->WaitForJobEvent(JT_RESET, false);
    EXPECT_EQ(m_Device->ResetSeqDone.load(), 1);
    EXPECT_TRUE(LogText().contains("Resetting target..."));
}

TEST_F(Session, AResetWithoutConnectionFails) {
    ASSERT_EQ(m_Device->ScheduleReset(RM_RESET_HALT), 0);
    m_Device->WaitForJobEvent(JT_RESET, false);
    WaitIdle();
    DrainEvents();
    ASSERT_EQ(m_Listener.Events.size(), 1u);
    EXPECT_EQ(m_Listener.Events[0].Status, static_cast<U32>(JS_FAILED));
    EXPECT_TRUE(LogText().contains("Reset: not connected"));
}

TEST_F(Session, ABrokenLinkIsNoticedWithinASecond) {
    ConnectHalted();
    tarvo::fake::SetFault(tarvo::fake::DeadConnection, true);
    QElapsedTimer T;
    T.start();
    while (m_Heard.Lost == 0 && T.elapsed() < 3000) {
        DrainEvents(5);
    }
    EXPECT_EQ(m_Heard.Lost, 1);
    EXPECT_LT(T.elapsed(), 1000);
    EXPECT_TRUE(m_Device->ConnectionLost.load());
    EXPECT_FALSE(m_Device->HaltDone.load());
    EXPECT_TRUE(LogText().contains("Invalid connection status received"));
    // The disconnection still works and leaves the probe's breakpoints alone.
    tarvo::fake::SetFault(tarvo::fake::DeadConnection, false);
    m_Device->ScheduleDisconnect();
    m_Device->WaitForJobEvent(JT_DISCONNECT, false);
    DrainEvents();
    EXPECT_EQ(m_Heard.Disconnects, 1);
    EXPECT_FALSE(m_Device->Connected.load());
    EXPECT_FALSE(m_Device->ConnectionLost.load());
}

TEST_F(Session, TargetPowerGoesThroughTheProbe) {
    SysVars::SetVarValue(SysVars::GetVarRow(VAR_TARGET_POWER_ON), 1, false);
    RunConnect(CM_ATTACH);
    EXPECT_TRUE(m_Device->Connected.load()) << LogText().toStdString();
    QMutexLocker Lock(&m_Device->Mutex());
    EXPECT_FALSE(m_Device->TurnOnTargetPower()) << "the fake target takes power from the probe";
}

// Downloads
// ---------------------------------------------------------------------------------------------------

TEST_F(Session, ChunksFollowTheInterfaceSpeed) {
    EXPECT_EQ(CDevice::DownloadChunkSize(65535), 16000u);
    EXPECT_EQ(CDevice::DownloadChunkSize(1), 8000u);
    EXPECT_EQ(CDevice::DownloadChunkSize(50000), 8000u);
    EXPECT_EQ(CDevice::DownloadChunkSize(50001), 16000u);
    EXPECT_EQ(CDevice::DownloadChunkSize(100000), 16000u);
    EXPECT_EQ(CDevice::DownloadChunkSize(100001), 32000u);
    EXPECT_EQ(CDevice::DownloadChunkSize(500000), 32000u);
    EXPECT_EQ(CDevice::DownloadChunkSize(500001), 0u);
    EXPECT_EQ(CDevice::DownloadChunkSize(0), 0u) << "the maximum speed has no limit";
}

TEST_F(Session, ADownloadWritesEveryBlockAndEndsOnce) {
    ConnectHalted();
    const int Restores = m_Device->FlashBreakpointRestores();
    RunDownload({Block(0x400, 3000, 1), Block(RAM + 0x100, 700, 9)});
    ASSERT_EQ(m_Heard.Downloads.size(), 1u);
    EXPECT_EQ(m_Heard.Downloads[0].File, QStringLiteral("prog.elf"));
    EXPECT_EQ(m_Heard.Downloads[0].Error, 0);
    EXPECT_EQ(m_Device->LastDownloadError(), 0);
    const ELF_DATA_BLOCK A = Block(0x400, 3000, 1);
    const ELF_DATA_BLOCK B = Block(RAM + 0x100, 700, 9);
    EXPECT_EQ(tarvo::fake::Peek(A.Address, A.Size), std::vector<U8>(A.Data.begin(), A.Data.end()));
    EXPECT_EQ(tarvo::fake::Peek(B.Address, B.Size), std::vector<U8>(B.Data.begin(), B.Data.end()));
    EXPECT_EQ(m_Device->FlashBreakpointRestores(), Restores + 1)
        << "breakpoints come back after the download";
}

TEST_F(Session, EveryFailureOfADownloadEndsInOneFailedEventWithItsCode) {
    ConnectHalted();
    // A write that falls short is a failed program phase.
    tarvo::fake::FailWrites(RAM + 0x180, 4);
    RunDownload({Block(RAM + 0x100, 512, 3)});
    tarvo::fake::FailWrites(0, 0);
    ASSERT_EQ(m_Heard.Downloads.size(), 1u);
    EXPECT_EQ(m_Heard.Downloads[0].Error, -3);
    EXPECT_STREQ(CDevice::DownloadErrorText(-3), "error during program/erase phase");
    EXPECT_EQ(m_Device->LastDownloadError(), -3);
    EXPECT_TRUE(LogText().contains("TARVOARM_EndDownload: Tarvo API call returned error code -3"));

    // Bytes that don't read back are a failed verification, unless verification is off.
    tarvo::fake::FailReads(RAM + 0x180, 4);
    m_Heard.Clear();
    RunDownload({Block(RAM + 0x100, 512, 4)});
    ASSERT_EQ(m_Heard.Downloads.size(), 1u);
    EXPECT_EQ(m_Heard.Downloads[0].Error, -4);
    SysVars::SetVarValue(SysVars::GetVarRow(VAR_VERIFY_DOWNLOAD), 0, false);
    m_Heard.Clear();
    RunDownload({Block(RAM + 0x100, 512, 5)});
    ASSERT_EQ(m_Heard.Downloads.size(), 1u);
    EXPECT_EQ(m_Heard.Downloads[0].Error, 0);
    tarvo::fake::FailReads(0, 0);
}

// A probe without background access halts a running target around the writes of a download; the
// writes must find the target halted, though the halt state was asked for a moment before.
TEST_F(Session, ADownloadToARunningTargetWithoutBackgroundAccess) {
    ConnectHalted();
    {
        QMutexLocker Hold(&m_Device->Mutex());
        TARVOARM_GoEx(0, 1);
        m_Device->Halted = 0;
        m_Device->HaltDone = 0;
        m_Device->WaitForHalt = 1;
        m_Device->Capabilities[0] = 0;
    }
    const int Halts = tarvo::fake::GetCounter(tarvo::fake::Halts);
    RunDownload({Block(RAM + 0x200, 600, 2)});
    ASSERT_EQ(m_Heard.Downloads.size(), 1u);
    EXPECT_EQ(m_Heard.Downloads[0].Error, 0);
    const ELF_DATA_BLOCK B = Block(RAM + 0x200, 600, 2);
    EXPECT_EQ(tarvo::fake::Peek(B.Address, B.Size), std::vector<U8>(B.Data.begin(), B.Data.end()));
    EXPECT_GT(tarvo::fake::GetCounter(tarvo::fake::Halts), Halts);
    EXPECT_EQ(TARVOARM_IsHalted(), 0) << "running again afterwards";
    EXPECT_FALSE(LogText().contains("cannot access memory while target is running"));
}

// The reason of a failed verification names the first byte that differs.
TEST_F(Session, AFailedVerificationNamesTheFirstByteThatDiffers) {
    ConnectHalted();
    tarvo::fake::FailReads(RAM + 0x183, 1);
    RunDownload({Block(RAM + 0x100, 512, 4)});
    tarvo::fake::FailReads(0, 0);
    ASSERT_EQ(m_Heard.Downloads.size(), 1u);
    EXPECT_EQ(m_Heard.Downloads[0].Error, -4);
    EXPECT_EQ(m_Device->LastErrorText(),
              QStringLiteral("Download: target memory differs from the program at 0x20000183"));
    m_Heard.Clear();
    RunDownload({Block(RAM + 0x100, 512, 5)});
    EXPECT_EQ(m_Device->LastErrorText(), QString()) << "a download that succeeds leaves no reason";
}

TEST_F(Session, ADownloadWhoseLinkBreaksStillEnds) {
    ConnectHalted();
    {
        // The writes and the end are queued; the link breaks before they run.
        QMutexLocker Hold(&m_Device->Mutex());
        ASSERT_EQ(
            m_Device->ScheduleDownload({Block(RAM, 4096, 6)}, QStringLiteral("x.elf"), DOWNLOAD_DATA_FILE),
            0);
        tarvo::fake::SetFault(tarvo::fake::DeadConnection, true);
    }
    QElapsedTimer T;
    T.start();
    while (m_Heard.Downloads.empty() && T.elapsed() < 3000) {
        DrainEvents(5);
    }
    DrainEvents();
    ASSERT_EQ(m_Heard.Downloads.size(), 1u);
    EXPECT_EQ(m_Heard.Downloads[0].Mode, DOWNLOAD_DATA_FILE);
    EXPECT_LT(m_Heard.Downloads[0].Error, 0);
    EXPECT_LT(m_Device->LastDownloadError(), 0);
    tarvo::fake::SetFault(tarvo::fake::DeadConnection, false);
}

TEST_F(Session, EndingADownloadOnARunningTargetHaltsAndResumesIt) {
    ConnectHalted();
    {
        QMutexLocker Hold(&m_Device->Mutex());
        TARVOARM_GoEx(0, 1);
        m_Device->Halted = 0;
        m_Device->HaltDone = 0;
        m_Device->WaitForHalt = 1;
        const int Halts = tarvo::fake::GetCounter(tarvo::fake::Halts);
        const int Resumes = tarvo::fake::GetCounter(tarvo::fake::Resumes);
        EXPECT_EQ(m_Device->EndDownload(true), 0);
        EXPECT_EQ(tarvo::fake::GetCounter(tarvo::fake::Halts), Halts + 1);
        EXPECT_EQ(tarvo::fake::GetCounter(tarvo::fake::Resumes), Resumes + 1);
    }
    // Without a connection there is nothing to end.
    m_Device->ScheduleDisconnect();
    m_Device->WaitForJobEvent(JT_DISCONNECT, false);
    QMutexLocker Hold(&m_Device->Mutex());
    EXPECT_EQ(m_Device->EndDownload(true), -1);
    EXPECT_EQ(m_Device->BeginDownload(), -1);
    EXPECT_TRUE(LogText().contains("BeginDL: not connected"));
    EXPECT_TRUE(LogText().contains("EndDL: not connected"));
}

} // namespace
