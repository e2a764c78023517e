#include "DeviceFixture.h"

#include "target/DeviceConfig.h"

#include <map>
#include <thread>

namespace {

/// Counts each job's ending by Id: done, failed, or the cancel that the test made.
class CountingListener : public CDeviceEventListener {
public:
    void OnDeviceJobDone(DEVICE_JOB* Job) override {
        // Within a ring the events come in the order of their jobs.
        auto Last = LastOfQueue.find(Job->Queue);
        if (Last != LastOfQueue.end()) {
            EXPECT_LT(Last->second, Job->Id) << Jobs::JobName(Job->Type);
        }
        LastOfQueue[Job->Queue] = Job->Id;
        ++Ends[Job->Id];
    }
    std::map<U32, U64> LastOfQueue;
    std::map<U64, int> Ends;
};

using Stress = DeviceFixture;

TEST_F(Stress, EveryJobEndsExactlyOnce) {
    ConnectFake();
    CountingListener Counter;
    DeviceEvents::SetDataManager(&Counter);
    constexpr int JOBS = 100000;
    std::map<U64, bool> Canceled;
    std::atomic<bool> Done{false};
    // A second thread streams log events meanwhile, as the device's own messages do.
    std::thread Logger([&Done]() {
        int N = 0;
        while (!Done.load()) {
            DeviceEvents::PostLogMsg(N % 2 ? "device message" : "another one", MSG_INFO);
            ++N;
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    });
    const U8 Bytes[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    int Scheduled = 0;
    int Attempts = 0;
    while (Scheduled < JOBS) {
        ++Attempts;
        const U64 Id = m_Device->JobCount();
        int Result = 0;
        switch (Scheduled % 4) {
        case 0:
            Result = m_Device->ScheduleWriteMem(0x20000000 + (Scheduled % 64) * 8, 8, Bytes, 0, 0, 0);
            break;
        case 1: {
            DEVICE_JOB Job = Jobs::NewJob(JT_SET_CONFIG_PARAM);
            Job.Param[0] = CORE_INDEX;
            Job.Param[1] = static_cast<U64>(Scheduled % 3);
            Result = m_Device->ScheduleJob(&Job);
            break;
        }
        case 2:
            Result = m_Device->ScheduleWriteReg(TARVO_REG_R0 + 5, static_cast<U64>(Scheduled));
            break;
        default:
            Result = m_Device->ScheduleReadMem(0x20000000, 16, 0, 0, 0);
            break;
        }
        if (Result == 0) {
            ++Scheduled;
            if (Scheduled % 97 == 0) {
                // Some jobs are taken back before they run: they must raise nothing.
                QMutexLocker Hold(&m_Device->Mutex());
                const U64 Before = m_Device->JobCount();
                DEVICE_JOB Job = Jobs::NewJob(JT_CLEAR_ALL_TPS);
                if (m_Device->ScheduleJob(&Job) == 0) {
                    Canceled[Before] = true;
                    m_Device->CancelJobs(JT_CLEAR_ALL_TPS, JQ_OF_KIND);
                }
            }
        } else {
            EXPECT_EQ(m_Device->JobCount(), Id) << "a refused job takes no Id";
        }
        // The GUI side delivers as it goes; a full ring frees up as events are handed out.
        DeviceEvents::DeliverDeviceEvents(Result == 0 ? 10 : 1000);
    }
    WaitIdle();
    Done = true;
    Logger.join();
    DrainEvents(100);
    DeviceEvents::SetDataManager(nullptr);

    int Ended = 0;
    for (const auto& [Id, Count] : Counter.Ends) {
        EXPECT_EQ(Count, 1) << "job " << Id;
        EXPECT_FALSE(Canceled.count(Id)) << "a canceled job raised an event";
        ++Ended;
    }
    EXPECT_EQ(Ended, JOBS) << "after " << Attempts << " attempts";
}

} // namespace
