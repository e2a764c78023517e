// The session's controller on the probe library's fake target, with a user interface that records what
// it is asked to show: the whole sequence of a session, the attach modes, the end of a session, a lost
// connection, and the checks of wrong transitions and wrong threads.

#include "app/session/SessionController.h"
#include "app/core/Check.h"
#include "app/core/SysVars.h"
#include "probe/FakeTarget.h"
#include "target/Device.h"
#include "target/DeviceConfig.h"
#include "target/DeviceEvents.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

#include <functional>
#include <thread>

namespace {

class RecordingUi : public ISessionUi {
public:
    void SetStatusMessage(const QString& Text) override { Status << Text; }
    void EndProgress() override { ++ProgressEnds; }
    void UpdateSessionActions() override { ++ActionUpdates; }
    int ExecUserFunction(int Id) override {
        UserFunctions.push_back(Id);
        return 0;
    }
    bool AskYesNo(const QString& Title, const QString& Text) override {
        Questions << Title + QStringLiteral(": ") + Text;
        return Answer;
    }
    void Warn(const QString& Title, const QString& Text) override { Warnings << Title + ": " + Text; }
    void RepaintWindows() override { ++Repaints; }
    void StartMessageBoxTimer() override { ++MessageBoxTimers; }
    void StartPeriodicUpdate() override { ++PeriodicStarts; }
    QString ProgramPath() const override { return Program; }
    void OpenProject(const QString& Path) override { Opened << Path; }
    void CloseWindow() override { ++Closes; }
    void DownloadStarting(const QString& File) override { DownloadsStarted << File; }
    void DownloadFinished(const QString& File) override { DownloadsFinished << File; }

    QStringList Status;
    int ProgressEnds = 0;
    int ActionUpdates = 0;
    std::vector<int> UserFunctions;
    QStringList Questions;
    bool Answer = true;
    QStringList Warnings;
    int Repaints = 0;
    int MessageBoxTimers = 0;
    int PeriodicStarts = 0;
    QString Program;
    QStringList Opened;
    int Closes = 0;
    QStringList DownloadsStarted;
    QStringList DownloadsFinished;
};

/// Hands the device's answers to the controller, as the main window does.
class Forwarder : public CDeviceEventListener {
public:
    explicit Forwarder(CSessionController& C) : S(C) {}
    void OnDeviceConnectDone(CONNECT_MODES Mode) override { S.OnDeviceConnectDone(Mode); }
    void OnDeviceConnectFailed(CONNECT_MODES Mode) override { S.OnDeviceConnectFailed(Mode); }
    void OnDeviceResetDone(U32 PC, RESET_MODES Mode) override { S.OnDeviceResetDone(PC, Mode); }
    void OnDeviceResetFailed(U32 PC, RESET_MODES Mode) override { S.OnDeviceResetFailed(PC, Mode); }
    void OnDeviceDisconnectDone() override { S.OnDeviceDisconnectDone(); }
    void OnDeviceDisconnectFailed() override { S.OnDeviceDisconnectFailed(); }
    void OnDeviceConnectionLost() override { S.OnDeviceConnectionLost(); }
    void OnDeviceEndDownloadDone(const char* File, DOWNLOAD_MODES Mode) override {
        S.OnDeviceEndDownloadDone(File, Mode);
    }
    void OnDeviceEndDownloadFailed(const char* File, DOWNLOAD_MODES Mode, int Error) override {
        S.OnDeviceEndDownloadFailed(File, Mode, Error);
    }
    void OnDeviceHaltDone(U32 PC, HALT_REASONS Reason) override { S.OnDeviceHaltDone(PC, Reason); }
    void OnDeviceResumeDone(RESUME_MODES Mode) override { S.OnDeviceResumeDone(Mode); }
    void OnDeviceResumeFailed(RESUME_MODES Mode) override { S.OnDeviceResumeFailed(Mode); }
    void OnDeviceRunToSymbolDone(U32 PC) override { S.OnDeviceRunToSymbolDone(PC); }

private:
    CSessionController& S;
};

/// The vector table of a Thumb program: initial SP, reset handler at 0x101.
const QByteArray VECTORS("\x00\x10\x00\x20\x01\x01\x00\x00", 8);

class SessionController : public ::testing::Test {
protected:
    void SetUp() override {
        m_Device = CDevice::Instance();
        tarvo::fake::Reset();
        CDeviceConfig& Config = GetDeviceConfig();
        Config.Reset();
        Config.SetParam(HOST_IF, HOST_IF_USB);
        Config.SetText(DEVICE_NAME, "FAKE");
        SysVars::ResetAll();
        ASSERT_TRUE(m_Dir.isValid());
        m_Ui.Program = m_Dir.filePath(QStringLiteral("program.bin"));
        QFile F(m_Ui.Program);
        ASSERT_TRUE(F.open(QIODevice::WriteOnly));
        F.write(VECTORS + QByteArray(248, '\x5A'));
        F.close();
        QObject::connect(&m_Session, &CSessionController::StepChanged,
                         [this](SESSION_STEPS, SESSION_STEPS To) { m_Steps << To; });
    }
    void TearDown() override {
        Checks::SetHandler(nullptr);
        if (m_Device->Connected.load()) {
            m_Session.Disconnect();
            Until([this] { return !m_Device->Connected.load(); });
        }
        Until([this] { return !m_Device->HasQueuedJobs(); });
        Deliver();
        m_Device->SessionActive = 0;
        GetDeviceConfig().Reset();
        SysVars::ResetAll();
    }
    /// Delivers the device's events until Done holds; false after two seconds (a failure).
    bool Until(const std::function<bool()>& Done) {
        QElapsedTimer T;
        T.start();
        while (T.elapsed() < 2000) {
            DeviceEvents::DeliverDeviceEvents(1000);
            if (Done()) {
                return true;
            }
            QThread::msleep(1);
        }
        return false;
    }
    /// Delivers what is left once the device has run every job.
    void Deliver() {
        while (m_Device->HasQueuedJobs()) {
            QThread::msleep(1);
        }
        QThread::msleep(5);
        DeviceEvents::DeliverDeviceEvents(10000);
    }
    bool Settled(SESSION_STEPS Step) {
        return Until([&] { return m_Session.Step() == Step && !m_Device->ControllerBusy.load(); });
    }
    void SetModes(CONNECT_MODES Connect, RESET_MODES Reset) {
        SysVars::SetVarValue(SysVars::GetVarRow(VAR_CONNECT_MODE), Connect, false);
        SysVars::SetVarValue(SysVars::GetVarRow(VAR_RESET_MODE), Reset, false);
    }
    std::vector<U8> Vectors() const { return std::vector<U8>(VECTORS.begin(), VECTORS.end()); }

    CDevice* m_Device = nullptr;
    QTemporaryDir m_Dir;
    RecordingUi m_Ui;
    CSessionController m_Session{&m_Ui};
    Forwarder m_Events{m_Session};
    QList<SESSION_STEPS> m_Steps;
};

TEST_F(SessionController, DownloadAndResetRunsEveryStepToTheHalt) {
    SetModes(CM_DOWNLOAD_RESET, RM_RESET_HALT);
    EXPECT_EQ(CSessionController::DebugState(), DS_DISCONNECTED);
    m_Session.Connect(CM_DOWNLOAD_RESET);
    EXPECT_EQ(m_Session.Step(), SS_CONNECTING) << "at once, before the device answers";
    EXPECT_TRUE(m_Device->ControllerBusy.load()) << "a waiting script sees the sequence";
    ASSERT_TRUE(Settled(SS_HALTED)) << CSessionController::StepName(m_Session.Step());
    EXPECT_EQ(m_Steps, (QList<SESSION_STEPS>{SS_CONNECTING, SS_RESETTING, SS_DOWNLOADING, SS_HALTED}));
    EXPECT_EQ(m_Ui.Status, QStringList({"Connecting...", "Connected", "Resetting Device...",
                                        "Writing Memory...", "Download Complete."}));
    EXPECT_EQ(m_Ui.DownloadsStarted, QStringList{m_Ui.Program});
    EXPECT_EQ(m_Ui.DownloadsFinished, QStringList{m_Ui.Program});
    EXPECT_EQ(tarvo::fake::Peek(0, 8), Vectors()) << "the program reached the target";
    EXPECT_TRUE(m_Device->SessionActive.load());
    EXPECT_EQ(m_Ui.PeriodicStarts, 1);
    EXPECT_TRUE(m_Ui.Warnings.isEmpty()) << m_Ui.Warnings.join('\n').toStdString();
    ASSERT_TRUE(Until([] { return CSessionController::DebugState() == DS_HALTED; }));

    // A reset from the standing session; then a run, as the device reports it, that a halt ends.
    Deliver();
    m_Steps.clear();
    m_Session.Reset(RM_RESET_HALT);
    EXPECT_EQ(m_Session.Step(), SS_RESETTING);
    ASSERT_TRUE(Settled(SS_HALTED));
    m_Session.OnDeviceResumeDone(GO_USER);
    m_Session.OnDeviceHaltDone(0x100, HR_NORMAL);
    EXPECT_EQ(m_Steps, (QList<SESSION_STEPS>{SS_RESETTING, SS_HALTED, SS_RUNNING, SS_HALTED}));
}

TEST_F(SessionController, AnUnknownBreakSymbolHaltsAndTellsAfterwards) {
    SetModes(CM_DOWNLOAD_RESET, RM_BREAK_AT_SYMBOL);
    GetDeviceConfig().SetParam(BREAK_SYMBOL_ADDR, -1);
    m_Session.Connect(CM_DOWNLOAD_RESET);
    ASSERT_TRUE(Settled(SS_HALTED));
    EXPECT_EQ(m_Steps, (QList<SESSION_STEPS>{SS_CONNECTING, SS_RESETTING, SS_DOWNLOADING, SS_HALTED}));
    EXPECT_EQ(m_Ui.MessageBoxTimers, 1) << "the message comes after the stop, by its timer";
}

TEST_F(SessionController, AttachModesLeaveTheProgramAlone) {
    SetModes(CM_ATTACH_HALT, RM_RESET_HALT);
    m_Session.Connect(CM_ATTACH_HALT);
    ASSERT_TRUE(Settled(SS_HALTED));
    EXPECT_EQ(m_Steps, (QList<SESSION_STEPS>{SS_CONNECTING, SS_HALTED}));
    EXPECT_TRUE(m_Ui.DownloadsStarted.isEmpty()) << "an attached program is not downloaded";
    EXPECT_NE(tarvo::fake::Peek(0, 8), Vectors());
    m_Session.Disconnect();
    ASSERT_TRUE(Settled(SS_DISCONNECTED));

    // Attached to a running program, the session runs until halted.
    m_Steps.clear();
    m_Ui.Status.clear();
    SetModes(CM_ATTACH, RM_RESET_HALT);
    m_Session.Connect(CM_ATTACH);
    ASSERT_TRUE(Until([this] { return m_Session.Step() != SS_CONNECTING; }));
    const bool Running = m_Session.Step() == SS_RUNNING;
    EXPECT_EQ(m_Ui.Status.contains("CPU running..."), Running);
    if (Running) {
        m_Device->ScheduleHalt();
        ASSERT_TRUE(Settled(SS_HALTED));
        EXPECT_EQ(m_Steps, (QList<SESSION_STEPS>{SS_CONNECTING, SS_RUNNING, SS_HALTED}));
    } else {
        EXPECT_EQ(m_Steps, (QList<SESSION_STEPS>{SS_CONNECTING, SS_HALTED}));
    }
}

TEST_F(SessionController, TheEndOfASessionRunsThePendingAction) {
    SetModes(CM_ATTACH_HALT, RM_RESET_HALT);
    m_Session.Connect(CM_ATTACH_HALT);
    ASSERT_TRUE(Settled(SS_HALTED));
    m_Session.SetPendingAction(PA_OPEN_PROJECT, QStringLiteral("/p/next.tvproj"));
    m_Steps.clear();
    m_Ui.Status.clear();
    m_Session.Disconnect();
    EXPECT_EQ(m_Session.Step(), SS_DISCONNECTING);
    ASSERT_TRUE(Settled(SS_DISCONNECTED));
    EXPECT_EQ(m_Steps, (QList<SESSION_STEPS>{SS_DISCONNECTING, SS_DISCONNECTED}));
    EXPECT_EQ(m_Ui.Status, QStringList{"Ready"});
    EXPECT_EQ(m_Ui.Opened, QStringList{"/p/next.tvproj"});
    EXPECT_EQ(m_Session.PendingAction(), PA_NONE) << "taken once";
    EXPECT_EQ(m_Ui.Closes, 0);
    EXPECT_EQ(CSessionController::DebugState(), DS_DISCONNECTED);

    // A failed connection goes back to where it began.
    m_Steps.clear();
    tarvo::fake::SetFault(tarvo::fake::ConnectFails, true);
    m_Session.Connect(CM_ATTACH_HALT);
    ASSERT_TRUE(Settled(SS_DISCONNECTED));
    tarvo::fake::SetFault(tarvo::fake::ConnectFails, false);
    EXPECT_EQ(m_Steps, (QList<SESSION_STEPS>{SS_CONNECTING, SS_DISCONNECTED}));
    EXPECT_EQ(m_Ui.Status.last(), "Tarvo: error connecting to device");
}

TEST_F(SessionController, ALostConnectionAsksAndEndsTheSession) {
    SetModes(CM_DOWNLOAD_RESET, RM_RESET_HALT);
    m_Session.Connect(CM_DOWNLOAD_RESET);
    ASSERT_TRUE(Settled(SS_HALTED));
    Deliver();
    m_Steps.clear();
    // A halted target is asked for its link twice a second: the broken one shows within a second.
    tarvo::fake::SetFault(tarvo::fake::DeadConnection, true);
    ASSERT_TRUE(Until([this] { return m_Session.Step() == SS_DISCONNECTED; }))
        << CSessionController::StepName(m_Session.Step());
    tarvo::fake::SetFault(tarvo::fake::DeadConnection, false);
    EXPECT_EQ(m_Ui.Questions,
              QStringList{"Target Connection Lost: Failed to read target status. Abort Debug Session?"});
    EXPECT_EQ(m_Steps, (QList<SESSION_STEPS>{SS_DISCONNECTING, SS_DISCONNECTED}));
    EXPECT_FALSE(m_Device->ControllerBusy.load());
}

TEST_F(SessionController, AnEventInAWrongStateFiresTheCheck) {
    QStringList Fired;
    Checks::SetHandler([&](const QString& Text) { Fired << Text; });
    // The end of a reset before a download, with no session at all.
    m_Session.OnDeviceResetDone(0, RM_RESET_DOWNLOAD);
    ASSERT_EQ(Fired.size(), 1);
    EXPECT_TRUE(Fired[0].contains("from disconnected to downloading")) << Fired[0].toStdString();
    EXPECT_EQ(m_Session.Step(), SS_DISCONNECTED) << "the step stays";
    EXPECT_TRUE(m_Ui.DownloadsStarted.isEmpty()) << "and nothing is downloaded";
    // An attach that nobody started.
    m_Session.OnDeviceConnectDone(CM_ATTACH_HALT);
    EXPECT_EQ(Fired.size(), 2);
    EXPECT_TRUE(m_Steps.isEmpty());
}

TEST_F(SessionController, AWrongTransitionAbortsUnderTheTests) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(m_Session.SetStep(SS_HALTED, "a test"), "Check failed: session: a test is not allowed");
}

TEST_F(SessionController, TheControllerAndTheDeviceCheckTheirThreads) {
    QStringList Fired;
    Checks::SetHandler([&](const QString& Text) { Fired << Text; });
    std::thread([this] { m_Session.SetStep(SS_DISCONNECTED, "another thread"); }).join();
    ASSERT_EQ(Fired.size(), 1);
    EXPECT_TRUE(Fired[0].contains("wrong thread")) << Fired[0].toStdString();
    // The probe is the device thread's; another thread reaches it only while it holds the device's lock.
    Fired.clear();
    U64 Value = 0;
    m_Device->ReadReg(15, &Value);
    EXPECT_EQ(Fired.size(), 1);
    {
        QMutexLocker Lock(&m_Device->Mutex());
        m_Device->ReadReg(15, &Value);
    }
    EXPECT_EQ(Fired.size(), 1);
}

} // namespace
