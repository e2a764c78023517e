#include "DeviceFixture.h"

#include "app/core/SysVars.h"
#include "target/DeviceConfig.h"

#include <QFile>
#include <QTemporaryDir>

namespace {

DEVICE_JOB ConfigJob(I32 Value) {
    DEVICE_JOB Job = Jobs::NewJob(JT_SET_CONFIG_PARAM);
    Job.Param[0] = CORE_INDEX;
    Job.Param[1] = static_cast<U64>(Value);
    return Job;
}

using Rings = DeviceFixture;

TEST_F(Rings, TheCommandRingRunsFirst) {
    {
        // Held still, the thread sees both jobs at once.
        QMutexLocker Hold(&m_Device->Mutex());
        ASSERT_EQ(m_Device->ScheduleReadMem(0x20000000, 4, 0, 0, 0), 0);
        DEVICE_JOB Job = ConfigJob(3);
        ASSERT_EQ(m_Device->ScheduleJob(&Job), 0);
    }
    WaitIdle();
    DrainEvents();
    ASSERT_EQ(m_Listener.Events.size(), 1u) << "read answers go to the data cache alone";
    EXPECT_EQ(m_Listener.Events[0].Type, static_cast<U32>(JT_SET_CONFIG_PARAM));
    EXPECT_EQ(GetDeviceConfig().GetParam(CORE_INDEX), 3);
}

TEST_F(Rings, ExecutionJobsDropQueuedReads) {
    ConnectFake();
    RecordingListener Cache;
    DeviceEvents::SetDataManager(&Cache);
    {
        QMutexLocker Hold(&m_Device->Mutex());
        for (int i = 0; i < 5; ++i) {
            ASSERT_EQ(m_Device->ScheduleReadMem(0x20000000, 4, 0, 0, 0), 0);
        }
        ASSERT_EQ(m_Device->ScheduleReset(RM_HARDWARE), 0);
    }
    WaitIdle();
    DrainEvents();
    EXPECT_TRUE(Cache.Events.empty()) << "their results would be stale";
    DeviceEvents::SetDataManager(nullptr);
}

TEST_F(Rings, AHaltOfAHaltedTargetRunsNothing) {
    ConnectFake();
    const int Halts = tarvo::fake::GetCounter(tarvo::fake::Halts);
    ASSERT_EQ(m_Device->ScheduleHalt(), 0);
    WaitIdle();
    DrainEvents();
    EXPECT_TRUE(m_Listener.Events.empty());
    EXPECT_EQ(tarvo::fake::GetCounter(tarvo::fake::Halts), Halts);
}

TEST_F(Rings, CanceledJobsRaiseNothing) {
    {
        QMutexLocker Hold(&m_Device->Mutex());
        for (int i = 0; i < 10; ++i) {
            DEVICE_JOB Job = ConfigJob(i);
            ASSERT_EQ(Jobs::AllocJobParam(&Job, 2, 64), 0) << "a buffer that the cancel must free";
            ASSERT_EQ(m_Device->ScheduleJob(&Job), 0);
        }
        EXPECT_TRUE(m_Device->IsJobPending(JT_SET_CONFIG_PARAM));
        m_Device->CancelJobs(JT_SET_CONFIG_PARAM, JQ_OF_KIND);
        EXPECT_FALSE(m_Device->IsJobPending(JT_SET_CONFIG_PARAM));
    }
    WaitIdle();
    DrainEvents();
    EXPECT_TRUE(m_Listener.Events.empty());
}

TEST_F(Rings, AFullRingRefusesAndTheWaitTimesOut) {
    QTemporaryDir Dir;
    ASSERT_TRUE(OpenLogChannel(LOG_CHANNEL_APP, Dir.filePath("log.txt")));
    SetLogInterval("1");
    {
        QMutexLocker Hold(&m_Device->Mutex());
        int Accepted = 0;
        for (U32 i = 0; i < CDevice::RING_SIZE; ++i) {
            DEVICE_JOB Job = ConfigJob(1);
            Accepted += m_Device->ScheduleJob(&Job) == 0;
        }
        EXPECT_EQ(Accepted, static_cast<int>(CDevice::RING_SIZE))
            << "the 10000th is accepted while its slot is free";
        DEVICE_JOB Job = ConfigJob(1);
        EXPECT_EQ(m_Device->ScheduleJob(&Job), -1);
        EXPECT_EQ(m_Device->WaitForJob(JT_SET_CONFIG_PARAM, false, 50), -1);
    }
    WaitIdle();
    // The device pushes the held-back events as slots free up: a loaded machine may pause it a while.
    DrainEvents(1000);
    EXPECT_EQ(m_Listener.Events.size(), static_cast<size_t>(CDevice::RING_SIZE));
    CloseLogChannel(LOG_CHANNEL_APP);
    QFile Log(Dir.filePath("log.txt"));
    ASSERT_TRUE(Log.open(QIODevice::ReadOnly));
    const QByteArray Text = Log.readAll();
    EXPECT_TRUE(Text.contains("[W] Job JT_SET_CONFIG_PARAM not scheduled. Queue is full."));
    EXPECT_TRUE(Text.contains("[W] Timeout while waiting for Job JT_SET_CONFIG_PARAM"));
}

TEST_F(Rings, UndeliveredEventsKeepTheirSlots) {
    // Round the ring once with events left undelivered: the slot of the first job is still taken. The
    // event ring holds as many events as a job ring has slots.
    ASSERT_EQ(DeviceEvents::PushedCount(), DeviceEvents::PoppedCount());
    for (U32 i = 0; i < CDevice::RING_SIZE; ++i) {
        DEVICE_JOB Job = ConfigJob(2);
        ASSERT_EQ(m_Device->ScheduleJob(&Job), 0) << i;
        if (i % 1000 == 999) {
            WaitIdle();
        }
    }
    WaitIdle();
    DEVICE_JOB Job = ConfigJob(2);
    EXPECT_EQ(m_Device->ScheduleJob(&Job), -1) << "refused although the read index is far away";
    EXPECT_EQ(Job.Type, 0u) << "a refused job is released";
    DrainEvents(50);
    DEVICE_JOB Again = ConfigJob(2);
    EXPECT_EQ(m_Device->ScheduleJob(&Again), 0);
    WaitIdle();
    DrainEvents();
}

TEST_F(Rings, WaitingGivesTheJobAndNothingPendingGivesZero) {
    EXPECT_EQ(m_Device->WaitForJob(JT_SET_CONFIG_PARAM, false, 1000), 0) << "nothing queued: at once";
    const U64 Id = m_Device->JobCount();
    DEVICE_JOB Job = ConfigJob(5);
    ASSERT_EQ(m_Device->ScheduleJob(&Job), 0);
    const I64 Result = m_Device->WaitForJobEvent(JT_SET_CONFIG_PARAM, false);
    EXPECT_EQ(Result, static_cast<I64>(Id) + 1) << "the job's Id plus one, never taken for 'none pending'";
    ASSERT_FALSE(m_Listener.Events.empty()) << "the job's event is delivered before the wait returns";
    EXPECT_EQ(m_Listener.Events.back().Id, Id);
}

TEST_F(Rings, FullBatchesRunOnWithoutWaiting) {
    QElapsedTimer T;
    {
        QMutexLocker Hold(&m_Device->Mutex());
        for (int i = 0; i < 250; ++i) {
            DEVICE_JOB Job = ConfigJob(i);
            ASSERT_EQ(m_Device->ScheduleJob(&Job), 0);
        }
        T.start();
    }
    WaitIdle();
    EXPECT_LT(T.elapsed(), 1000) << "without a target the thread would otherwise sleep until woken";
    DrainEvents();
    // Beside its job event each change of a parameter is told as such.
    EXPECT_EQ(m_Listener.Events.size(), 250u);
}

using Events = DeviceFixture;

TEST_F(Events, LogTextsAreCutAt1000Bytes) {
    DeviceEvents::PostLogMsg(std::string(1001, 'x').c_str(), MSG_INFO);
    DeviceEvents::PostLogMsg("", MSG_INFO);
    DrainEvents();
    ASSERT_EQ(m_Listener.Logs.size(), 2);
    EXPECT_EQ(m_Listener.Logs[0].size(), 1000);
    EXPECT_TRUE(m_Listener.Logs[1].isEmpty());
}

TEST_F(Events, StaleHaltsAndStepsAreSkipped) {
    m_Device->HaltDone = 1;
    m_Device->PC = 0x200;
    {
        // Events come from the device thread: the test stands in for it under its lock.
        QMutexLocker Lock(&m_Device->Mutex());
        m_Device->PostJobEvent(JT_HALT, JS_DONE, 0, 0x100, HR_NORMAL);
        m_Device->PostJobEvent(JT_HALT, JS_DONE, 0, 0x200, HR_BREAKPOINT);
    }
    DrainEvents();
    ASSERT_EQ(m_Listener.Halts.size(), 1u) << "a halt with an old PC is not shown";
    EXPECT_EQ(m_Listener.Halts[0].second, HR_BREAKPOINT);

    {
        QMutexLocker Lock(&m_Device->Mutex());
        m_Device->PostJobEvent(JT_STEP_INST, JS_DONE, 0, 0x200, 0);
        m_Device->PostJobEvent(JT_STEP_INST, JS_DONE, 0, 0x200, 0);
    }
    DrainEvents();
    EXPECT_EQ(m_Listener.Stepped.size(), 1u) << "of two queued steps only the last is shown";
    m_Device->HaltDone = 0;
    m_Device->PC = ~0ull;
}

TEST_F(Events, SuppressedKindsRaiseNothingButTheMailboxDoes) {
    m_Device->SetEventSuppressed(JT_CONNECT, true);
    {
        QMutexLocker Lock(&m_Device->Mutex());
        m_Device->PostJobEvent(JT_CONNECT, JS_FAILED, CM_ATTACH, 0, 0);
    }
    DrainEvents();
    EXPECT_TRUE(m_Listener.ConnectFailed.empty());
    m_Device->SetEventSuppressed(JT_CONNECT, false);
    // The handler of a project did the connecting; the device finishes it from the mailbox. No library
    // session is open, so the connection does not stand.
    m_Device->SetPendingConnect(CM_ATTACH);
    QElapsedTimer T;
    T.start();
    while (m_Listener.ConnectFailed.empty() && T.elapsed() < 2000) {
        DeviceEvents::DeliverDeviceEvents(10);
        QThread::msleep(1);
    }
    ASSERT_EQ(m_Listener.ConnectFailed.size(), 1u);
    EXPECT_EQ(m_Listener.ConnectFailed[0], CM_ATTACH);
}

TEST_F(Events, AListenerGoneBeforeItsAnswerHearsNothing) {
    auto* Cache = new RecordingListener;
    DeviceEvents::SetDataManager(Cache);
    ConnectFake();
    {
        QMutexLocker Hold(&m_Device->Mutex());
        ASSERT_EQ(m_Device->ScheduleReadMem(0x20000000, 16, 0, 0, 0), 0);
    }
    WaitIdle();
    delete Cache;
    EXPECT_GE(DrainEvents(), 1) << "the answer arrives, and nobody is called";
}

} // namespace
