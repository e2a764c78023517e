#pragma once

// The device thread against the probe library's fake target: a core record that reads registers through
// the library, a listener that records what it hears, and helpers to hold the thread still.

#include "app/core/Log.h"
#include "probe/CorePluginAPI.h"
#include "probe/FakeTarget.h"
#include "probe/Tarvo.h"
#include "target/Device.h"
#include "target/DeviceEvents.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QStringList>

#include <gtest/gtest.h>

#include <cstdio>

/// Records every job event it hears, in order.
class RecordingListener : public CDeviceEventListener {
public:
    struct Heard {
        U32 Type;
        U64 Id;
        U32 Status;
    };
    void OnDeviceJobDone(DEVICE_JOB* Job) override {
        Events.push_back({Job->Type, Job->Id, Job->Status});
        if (Echo) {
            std::printf("heard %s\n", Jobs::JobName(Job->Type));
        }
        CDeviceEventListener::OnDeviceJobDone(Job);
    }
    void OnDeviceReadMemDone(U32 Addr, U32 Count, const char*, const U8* Data, const U8* Status) override {
        LastRead.assign(Data, Data + Count);
        LastStatus.assign(Status, Status + Count);
        LastReadAddr = Addr;
    }
    void OnDeviceLogMsg(const char* Text, U32) override { Logs << QString::fromUtf8(Text); }
    void OnDeviceConnectFailed(CONNECT_MODES Mode) override { ConnectFailed.push_back(Mode); }
    void OnDeviceHaltDone(U32 PC, HALT_REASONS Reason) override { Halts.push_back({PC, Reason}); }
    void OnDeviceStepped(U32 PC) override { Stepped.push_back(PC); }

    std::vector<Heard> Events;
    bool Echo = false;
    std::vector<U8> LastRead;
    std::vector<U8> LastStatus;
    U32 LastReadAddr = 0;
    QStringList Logs;
    std::vector<U32> ConnectFailed;
    std::vector<std::pair<U32, HALT_REASONS>> Halts;
    std::vector<U32> Stepped;
};

/// A core plug-in record that reaches the registers through the probe library, as the ARM plug-in does.
inline const CORE_PLUGIN_API* TestCoreApi() {
    static CORE_PLUGIN_API Api = [] {
        CORE_PLUGIN_API A = {};
        A.ReadReg = [](U32 Index, U32, U64* Value) { return TARVOARM_ReadReg(Index, Value); };
        A.WriteReg = [](U32 Index, U32, const U64* Value) { return TARVOARM_WriteReg(Index, *Value); };
        A.ReadRegs = [](U32 Count, const U32* Indices, U32, U64* Values, U8* Status) {
            return TARVOARM_ReadRegs(Indices, Values, Status, Count);
        };
        A.MapRegIndex = [](U32 Index) { return Index; };
        return A;
    }();
    return &Api;
}

class DeviceFixture : public ::testing::Test {
protected:
    void SetUp() override {
        m_Device = CDevice::Instance();
        DrainEvents();
        static CORE_INFO Info = [] {
            CORE_INFO I = {};
            I.InstAlign = 2;
            I.PCIndex = 15;
            return I;
        }();
        m_Device->SetCorePlugin(TestCoreApi(), &Info);
    }
    void TearDown() override {
        Disconnect();
        DrainEvents();
        m_Listener.Events.clear();
    }

    /// The library connected to the fake target, and the device told so.
    void ConnectFake() {
        tarvo::fake::Reset();
        ASSERT_EQ(TARVOARM_SelectUSB(0), 0);
        ASSERT_EQ(TARVOARM_Open(), nullptr);
        char Answer[256] = {};
        ASSERT_EQ(TARVOARM_ExecCommand("device=FAKE", Answer, sizeof(Answer)), 0) << Answer;
        ASSERT_EQ(TARVOARM_Connect(), 0);
        TARVOARM_Halt();
        m_Device->Connected = 1;
        m_Device->Halted = 1;
        m_Device->HaltDone = 1;
        m_Device->WaitForHalt = 0;
        m_Device->Capabilities[0] = 0;
    }
    void Disconnect() {
        QMutexLocker Lock(&m_Device->Mutex());
        m_Device->Connected = 0;
        m_Device->Halted = 0;
        m_Device->HaltDone = 0;
        m_Device->SessionActive = 0;
        TARVOARM_Close();
    }
    /// Delivers events until none arrives for a moment.
    int DrainEvents(int QuietMs = 30) {
        int Total = 0;
        QElapsedTimer Quiet;
        Quiet.start();
        while (Quiet.elapsed() < QuietMs) {
            const int N = DeviceEvents::DeliverDeviceEvents(1000);
            if (N > 0) {
                Total += N;
                Quiet.restart();
            }
            QThread::msleep(1);
        }
        return Total;
    }
    /// Waits until the device ran every job of the rings, or until it holds jobs back because the event
    /// ring is full and nothing moves (they would otherwise cost the whole timeout).
    void WaitIdle() {
        QElapsedTimer T;
        T.start();
        QElapsedTimer Still;
        Still.start();
        U64 Pushed = DeviceEvents::PushedCount();
        while (m_Device->HasQueuedJobs() && T.elapsed() < 30000 &&
               !(Still.elapsed() > 300 && DeviceEvents::FreeCount() < CDevice::EVENT_RESERVE)) {
            QThread::msleep(1);
            if (DeviceEvents::PushedCount() != Pushed) {
                Pushed = DeviceEvents::PushedCount();
                Still.restart();
            }
        }
    }

    CDevice* m_Device = nullptr;
    RecordingListener m_Listener;
};
