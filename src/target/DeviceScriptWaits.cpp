#include "target/DeviceScriptWaits.h"

#include "script/TApiWaits.h"
#include "target/Device.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <chrono>
#include <thread>

namespace {

/// The device's side of the script waits: a script sees the effect of a job before its next line.
class CDeviceScriptWaits : public TapiWaits::CDeviceWaits {
public:
    int WaitForJobEvent(TapiWaits::JOB_KINDS Kind, bool ProcessEvents) override {
        return CDevice::Instance()->WaitForJobEvent(Kind, ProcessEvents) < 0 ? -1 : 0;
    }

    bool WaitForHalted() override {
        CDevice* D = CDevice::Instance();
        QElapsedTimer Clock;
        Clock.start();
        while (!D->HaltDone.load() && Clock.elapsed() < 100) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return D->HaltDone.load() != 0;
    }

    int WaitForDeviceIdle() override {
        CDevice* D = CDevice::Instance();
        QElapsedTimer Clock;
        Clock.start();
        for (;;) {
            U32 Queue = JQ_COMMAND;
            const bool Busy = D->FindJob(JT_ANY, &Queue) >= 0;
            // The controller's sequence has ended, with a session or without one (a failed connection or
            // reset), and no job of its is left: nothing more will happen by itself.
            if ((!Busy && !D->ControllerBusy.load()) || !D->isRunning()) {
                return 0;
            }
            if (Clock.elapsed() > 120000) {
                return -1;
            }
            QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
            QThread::yieldCurrentThread();
        }
    }

    TapiWaits::JOB_KINDS ScheduledKind(TapiWaits::JOB_KINDS First, TapiWaits::JOB_KINDS Second) override {
        return CDevice::Instance()->LastScheduledKind() == static_cast<U32>(Second) ? Second : First;
    }
};

} // namespace

void InstallDeviceScriptWaits() {
    static CDeviceScriptWaits s_Waits;
    CDevice::Instance();
    TapiWaits::SetDeviceWaits(&s_Waits);
}
