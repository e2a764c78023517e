// Throughput of the device thread: jobs per second through the rings on the fake target, and 4-byte
// reads per second from the GUI thread through the device thread to the emulated board, against the
// probe library called directly on the same board in the same run.

#include "probe/CorePluginAPI.h"
#include "probe/FakeTarget.h"
#include "probe/Tarvo.h"
#include "target/Device.h"
#include "target/DeviceConfig.h"
#include "target/DeviceEvents.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <cstdio>

namespace {

/// Answers the reads for the device, as the data cache does.
class ReadCounter : public CDeviceEventListener {
public:
    void OnDeviceJobDone(DEVICE_JOB*) override { ++Done; }
    long Done = 0;
};

bool Connect(const char* Device) {
    TARVOARM_Close();
    char Answer[2049] = {};
    if (TARVOARM_SelectUSB(0) != 0 || TARVOARM_Open() != nullptr ||
        TARVOARM_ExecCommand((QByteArray("device=") + Device).constData(), Answer, sizeof Answer) != 0 ||
        TARVOARM_Connect() != 0) {
        std::fprintf(stderr, "could not connect to %s: %s\n", Device, Answer);
        return false;
    }
    TARVOARM_Halt();
    CDevice* D = CDevice::Instance();
    D->Connected = 1;
    D->Halted = 1;
    D->HaltDone = 1;
    D->WaitForHalt = 0;
    return true;
}

double JobsPerSecond(int Jobs) {
    CDevice* D = CDevice::Instance();
    ReadCounter Counter;
    QElapsedTimer T;
    T.start();
    int Scheduled = 0;
    while (Scheduled < Jobs || Counter.Done < Jobs) {
        if (Scheduled < Jobs) {
            DEVICE_JOB Job = Jobs::NewJob(JT_SET_CONFIG_PARAM);
            Job.Param[0] = CORE_INDEX;
            Job.Param[1] = static_cast<U64>(Scheduled & 3);
            Scheduled += D->ScheduleJob(&Job) == 0;
        }
        DeviceEvents::DeliverDeviceEvents(Scheduled < Jobs ? 10 : 1000);
    }
    return Jobs / (T.nsecsElapsed() / 1e9);
}

double DirectReadsPerSecond(double Seconds) {
    QElapsedTimer T;
    T.start();
    long N = 0;
    U32 Value = 0;
    U8 Status = 0;
    while (T.nsecsElapsed() < Seconds * 1e9) {
        TARVOARM_ReadMemU32(0x20000000, 1, &Value, &Status);
        ++N;
    }
    return N / (T.nsecsElapsed() / 1e9);
}

double DeviceReadsPerSecond(double Seconds) {
    CDevice* D = CDevice::Instance();
    ReadCounter Cache;
    DeviceEvents::SetDataManager(&Cache);
    QElapsedTimer T;
    T.start();
    long N = 0;
    while (T.nsecsElapsed() < Seconds * 1e9) {
        D->ScheduleReadMem(0x20000000, 4, 0, 4, 0);
        D->WaitForJobEvent(JT_READ_MEM, false);
        ++N;
    }
    DeviceEvents::SetDataManager(nullptr);
    return N / (T.nsecsElapsed() / 1e9);
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication App(argc, argv);
    CDevice::Instance();
    static CORE_INFO Info = {};
    Info.InstAlign = 2;
    Info.PCIndex = 15;
    CDevice::Instance()->SetCorePlugin(nullptr, &Info);

    if (!Connect("FAKE")) {
        return 1;
    }
    JobsPerSecond(20000);
    const double Jobs = JobsPerSecond(200000);
    std::printf("jobs through the rings (fake target):      %10.0f /s\n", Jobs);

    if (!Connect("MPS2-AN385")) {
        return 1;
    }
    double Direct = 0;
    double ViaDevice = 0;
    // Alternate rounds so that a busy machine weighs on both alike; the best round of each counts.
    for (int Round = 0; Round < 3; ++Round) {
        Direct = std::max(Direct, DirectReadsPerSecond(1.0));
        ViaDevice = std::max(ViaDevice, DeviceReadsPerSecond(1.0));
    }
    std::printf("4-byte reads, probe library directly:      %10.0f /s\n", Direct);
    std::printf("4-byte reads, GUI -> device thread -> board: %8.0f /s\n", ViaDevice);
    std::printf("device thread overhead: %.2fx the direct time (ratio direct/device %.2f)\n",
                Direct / ViaDevice, ViaDevice / Direct);
    {
        QMutexLocker Lock(&CDevice::Instance()->Mutex());
        CDevice::Instance()->Connected = 0;
    }
    TARVOARM_Close();
    CDevice::Shutdown();
    return 0;
}
