#include "target/DeviceEvents.h"

#include "target/Device.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <QPointer>
#include <QTimerEvent>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <mutex>
#include <vector>

namespace {

/// The registered listeners, in order of registration. A destroyed listener leaves a hole that the next
/// one takes.
std::vector<CDeviceEventListener*>& Listeners() {
    static std::vector<CDeviceEventListener*> s_Listeners;
    return s_Listeners;
}

struct EVENT_SLOT {
    std::atomic<U32> Kind{0};
    U64 A = 0;
    U64 B = 0;
};

struct EventRing {
    EVENT_SLOT Slots[DeviceEvents::RING_SIZE];
    U32 WriteIndex = 0;
    U32 ReadIndex = 0;
    std::mutex PushLock;
    std::mutex PopLock;
    std::atomic<U64> Pushed{0};
    std::atomic<U64> Popped{0};
    char Pool[DeviceEvents::POOL_SIZE][DeviceEvents::POOL_TEXT + 1] = {};
    std::atomic<U32> PoolIndex{0};
    std::mutex PoolLock;
    QPointer<CDeviceEventWorker> Worker;
    CDeviceEventListener* DataManager = nullptr;
    bool (*CpuMode)(U32*) = nullptr;
    bool (*ExecMode)(U32*) = nullptr;
    U32 LastCpuMode = 0;
    U32 LastExecMode = 0;
};

EventRing& Ring() {
    static EventRing s_Ring;
    return s_Ring;
}

/// Puts a text into the next pool slot; the slot's number goes with the event. A null text leaves the
/// slot as it was.
U64 PoolPut(const char* Text) {
    EventRing& R = Ring();
    std::lock_guard<std::mutex> Guard(R.PoolLock);
    const U32 Slot = R.PoolIndex.fetch_add(1) % DeviceEvents::POOL_SIZE;
    if (Text) {
        std::strncpy(R.Pool[Slot], Text, DeviceEvents::POOL_TEXT);
        R.Pool[Slot][DeviceEvents::POOL_TEXT] = '\0';
    }
    return Slot;
}

template <typename F>
void ForEachListener(F Call) {
    // Copy first: a listener may register or leave while it is being told.
    const std::vector<CDeviceEventListener*> Copy = Listeners();
    for (CDeviceEventListener* L : Copy) {
        if (L && std::find(Listeners().begin(), Listeners().end(), L) != Listeners().end()) {
            Call(L);
        }
    }
}

bool IsStep(U32 Type) {
    return Jobs::IsStepKind(Type);
}

/// A step or halt whose moment has passed is not shown: only the last of a run of steps counts.
bool SkipJob(const DEVICE_JOB* Job) {
    if (!Job || Job->Type >= JT_LAST) {
        return true;
    }
    CDevice* D = CDevice::Instance();
    if ((Job->Type == JT_CONNECT || Job->Type == JT_RESET) && Job->Param[0] == 4) {
        return true;
    }
    if (Job->Type == JT_CONNECT && Job->Param[0] == CM_SILENT) {
        return true;
    }
    if (Job->Type == JT_HALT) {
        return !D->HaltDone.load() || D->PC.load() != Job->Result[0];
    }
    if (IsStep(Job->Type)) {
        if (!D->HaltDone.load() || D->PC.load() != Job->Result[0] || D->SrcStepActive.load()) {
            return true;
        }
        // Another step event waiting among the next ten means this one is already old.
        EventRing& R = Ring();
        for (U32 i = 0; i < 10; ++i) {
            const EVENT_SLOT& S = R.Slots[(R.ReadIndex + i) % DeviceEvents::RING_SIZE];
            if (S.Kind.load(std::memory_order_acquire) != DE_JOB) {
                continue;
            }
            const auto* Next = reinterpret_cast<const DEVICE_JOB*>(S.A);
            if (Next && Next != Job && (Next->Type == JT_STEP || IsStep(Next->Type))) {
                return true;
            }
        }
    }
    return false;
}

/// After a job that may change the core's mode, ask the plug-in for the modes and tell of a change.
/// A missing reader counts as mode 0; a reader that fails brings no news.
void CheckModes(const DEVICE_JOB* Job) {
    EventRing& R = Ring();
    if (Job->Type == JT_RESET) {
        ForEachListener([](CDeviceEventListener* L) {
            L->OnDeviceCPUModeChanged(0);
            L->OnDeviceExecModeChanged(0);
        });
        return;
    }
    U32 Mode = 0;
    if ((!R.CpuMode || R.CpuMode(&Mode)) && Mode != R.LastCpuMode) {
        R.LastCpuMode = Mode;
        ForEachListener([Mode](CDeviceEventListener* L) { L->OnDeviceCPUModeChanged(Mode); });
    }
    Mode = 0;
    if ((!R.ExecMode || R.ExecMode(&Mode)) && Mode != R.LastExecMode) {
        R.LastExecMode = Mode;
        ForEachListener([Mode](CDeviceEventListener* L) { L->OnDeviceExecModeChanged(Mode); });
    }
}

void DeliverJob(DEVICE_JOB* Job) {
    CDevice* D = CDevice::Instance();
    if (!D->IsJobValid(Job)) {
        return;
    }
    if (SkipJob(Job)) {
        qDebug("Skipping job event %s", Jobs::JobName(Job->Type));
        D->ReleaseSlot(Job);
        return;
    }
    const U32 Type = Job->Type;
    if (Type == JT_RESET || Type == JT_HALT || IsStep(Type) || Type == JT_WRITE_REG) {
        CheckModes(Job);
    }
    EventRing& R = Ring();
    if (Type == JT_READ_REG || Type == JT_READ_REGS || Type == JT_READ_MEM) {
        // Reads answer the windows that asked, through the data cache alone.
        if (R.DataManager) {
            R.DataManager->OnDeviceJobDone(Job);
        }
    } else {
        ForEachListener([Job](CDeviceEventListener* L) { L->OnDeviceJobDone(Job); });
    }
    // Only now: every listener could read the job's buffers.
    D->ReleaseSlot(Job);
}

} // namespace

// ---------------------------------------------------------------------------------------------------------
// Listener

CDeviceEventListener::CDeviceEventListener() {
    auto& L = Listeners();
    auto Hole = std::find(L.begin(), L.end(), nullptr);
    if (Hole != L.end()) {
        *Hole = this;
    } else {
        L.push_back(this);
    }
}

CDeviceEventListener::~CDeviceEventListener() {
    auto& L = Listeners();
    std::replace(L.begin(), L.end(), static_cast<CDeviceEventListener*>(this),
                 static_cast<CDeviceEventListener*>(nullptr));
    EventRing& R = Ring();
    if (R.DataManager == this) {
        R.DataManager = nullptr;
    }
}

void CDeviceEventListener::OnDeviceJobDone(DEVICE_JOB* Job) {
    const U32 Type = Job->Type;
    CDevice* D = CDevice::Instance();
    if ((Type == JT_WRITE_REG || Type == JT_WRITE_CP_REG || Type == JT_WRITE_MEM ||
         Type == JT_WRITE_MEM_MULTIPLE || Type == JT_WRITE_BYTE) &&
        D->SessionActive.load()) {
        OnDeviceWriteAccess();
    }
    const bool Ok = Job->Status == JS_DONE;
    const U64* P = Job->Param;
    const U64* Res = Job->Result;
    const auto B = [Job](int i) { return Job->Buf[i]; };
    const auto S = [Job](int i) { return static_cast<const char*>(Job->Buf[i]); };
    const U32 P0 = static_cast<U32>(P[0]);
    const U32 P1 = static_cast<U32>(P[1]);
    const U32 PC = static_cast<U32>(Res[0]);
    switch (Type) {
    case JT_CONNECT:
        Ok ? OnDeviceConnectDone(static_cast<CONNECT_MODES>(P0))
           : OnDeviceConnectFailed(static_cast<CONNECT_MODES>(P0));
        break;
    case JT_DISCONNECT:
        Ok ? OnDeviceDisconnectDone() : OnDeviceDisconnectFailed();
        break;
    case JT_CONTINUE:
        Ok ? OnDeviceResumeDone(static_cast<RESUME_MODES>(P0))
           : OnDeviceResumeFailed(static_cast<RESUME_MODES>(P0));
        break;
    case JT_HALT:
        Ok ? OnDeviceHaltDone(PC, static_cast<HALT_REASONS>(Res[1])) : OnDeviceHaltFailed();
        break;
    case JT_RESET:
        Ok ? OnDeviceResetDone(PC, static_cast<RESET_MODES>(P0))
           : OnDeviceResetFailed(PC, static_cast<RESET_MODES>(P0));
        if (D->PC.load() == Res[0] && D->SessionActive.load()) {
            OnDeviceHaltDone(PC, HR_NORMAL);
        }
        break;
    case JT_RUN_TO:
        Ok ? OnDeviceRunToSymbolDone(PC) : OnDeviceRunToSymbolFailed(PC);
        break;
    case JT_STEP_INST:
        Ok ? OnDeviceStepInstDone(PC) : OnDeviceStepInstFailed(PC);
        OnDeviceStepped(PC);
        break;
    case JT_STEP_INTO:
        Ok ? OnDeviceStepIntoDone(PC) : OnDeviceStepIntoFailed(PC);
        OnDeviceStepped(PC);
        break;
    case JT_STEP_OVER:
        Ok ? OnDeviceStepOverDone(PC) : OnDeviceStepOverFailed(PC);
        OnDeviceStepped(PC);
        break;
    case JT_STEP_OUT:
        Ok ? OnDeviceStepOutDone(PC) : OnDeviceStepOutFailed(PC);
        OnDeviceStepped(PC);
        break;
    case JT_END_DOWNLOAD:
        Ok ? OnDeviceEndDownloadDone(S(0), static_cast<DOWNLOAD_MODES>(P0))
           : OnDeviceEndDownloadFailed(S(0), static_cast<DOWNLOAD_MODES>(P0), static_cast<int>(Res[0]));
        break;
    case JT_READ_MEM:
        Ok ? OnDeviceReadMemDone(P0, P1, S(2), static_cast<const U8*>(B(0)), static_cast<const U8*>(B(1)))
           : OnDeviceReadMemFailed(P0, P1, S(2));
        break;
    case JT_WRITE_MEM:
        Ok ? OnDeviceWriteMemDone(P0, P1, static_cast<const U8*>(B(0)))
           : OnDeviceWriteMemFailed(P0, P1, static_cast<const U8*>(B(0)));
        break;
    case JT_WRITE_MEM_MULTIPLE:
        Ok ? OnDeviceWriteMemMultipleDone(P0, static_cast<const U32*>(B(0)), static_cast<const U8*>(B(1)))
           : OnDeviceWriteMemMultipleFailed(P0, static_cast<const U32*>(B(0)), static_cast<const U8*>(B(1)));
        break;
    case JT_READ_REG:
        Ok ? OnDeviceReadRegDone(P0, Res[0]) : OnDeviceReadRegFailed(P0);
        break;
    case JT_READ_CP_REG:
        Ok ? OnDeviceReadCPRegDone(S(0), Res[0]) : OnDeviceReadCPRegFailed(S(0));
        break;
    case JT_WRITE_REG:
        Ok ? OnDeviceWriteRegDone(P0, P[1]) : OnDeviceWriteRegFailed(P0);
        if (Ok && P0 == D->PCRegisterIndex() && D->SessionActive.load()) {
            OnDeviceHaltDone(static_cast<U32>(P[1]), HR_PC_WRITTEN);
        }
        break;
    case JT_WRITE_CP_REG:
        Ok ? OnDeviceWriteCPRegDone(S(0), P[0]) : OnDeviceWriteCPRegFailed(S(0));
        break;
    case JT_READ_REGS:
        Ok ? OnDeviceReadRegsDone(P0, static_cast<const U32*>(B(0)), static_cast<const U64*>(B(1)),
                                  static_cast<const U8*>(B(2)))
           : OnDeviceReadRegsFailed(P0, static_cast<const U32*>(B(0)));
        break;
    case JT_READ_LOCS:
        Ok ? OnDeviceReadLocsDone(P0, static_cast<const ELF_SYM_LOC*>(B(0)), static_cast<const U64*>(B(1)),
                                  static_cast<const U8*>(B(2)), P[1])
           : OnDeviceReadLocsFailed(P0, static_cast<const ELF_SYM_LOC*>(B(0)), P[1]);
        break;
    case JT_ENABLE_SIMPLE_TRACE:
        Ok ? OnDeviceEnableInstTraceDone() : OnDeviceEnableInstTraceFailed();
        break;
    case JT_DISABLE_SIMPLE_TRACE:
        Ok ? OnDeviceDisableInstTraceDone() : OnDeviceDisableInstTraceFailed();
        break;
    case JT_START_SIMPLE_TRACE:
        Ok ? OnDeviceStartInstTraceDone() : OnDeviceStartInstTraceFailed();
        break;
    case JT_STOP_SIMPLE_TRACE:
        Ok ? OnDeviceStopInstTraceDone() : OnDeviceStopInstTraceFailed();
        break;
    case JT_FLUSH_STRACE_BUFFER:
        Ok ? OnDeviceFlushInstTraceDone() : OnDeviceFlushInstTraceFailed();
        break;
    case JT_READ_INST_STATS:
        Ok ? OnDeviceReadInstStatsDone(P0, static_cast<const U32*>(B(0)), Res[0], Res[1], Res[2],
                                       static_cast<const U64*>(B(1)), static_cast<const U64*>(B(2)))
           : OnDeviceReadInstStatsFailed(P0, static_cast<const U32*>(B(0)));
        break;
    case JT_READ_SIMPLE_TRACE:
        Ok ? OnDeviceReadInstTraceDone(P0, Res[0], Res[1], Res[2], static_cast<const U32*>(B(0)), B(1),
                                       Res[3])
           : OnDeviceReadInstTraceFailed(P0);
        break;
    case JT_START_SWO_TRACE:
        Ok ? OnDeviceStartSWOTraceDone(P0, P1, static_cast<U32>(P[2]))
           : OnDeviceStartSWOTraceFailed(P0, P1, static_cast<U32>(P[2]));
        break;
    case JT_STOP_SWO_TRACE:
        Ok ? OnDeviceStopSWOTraceDone(P0) : OnDeviceStopSWOTraceFailed(P0);
        break;
    case JT_READ_SWO_TRACE:
        Ok ? OnDeviceReadSWOTraceDone(P0, P1, Res[0], static_cast<const U8*>(B(0)))
           : OnDeviceReadSWOTraceFailed(P0, P1);
        break;
    case JT_SWO_GET_COMPAT_SPEEDS:
        Ok ? OnDeviceSWOGetCompatSpeedsDone(P0, P1, static_cast<const U32*>(B(0)))
           : OnDeviceSWOGetCompatSpeedsFailed(P0, P1, static_cast<const U32*>(B(0)));
        break;
    case JT_START_HSS:
        Ok ? OnDeviceStartHSSDone(P0, static_cast<const U32*>(B(0)), P1, static_cast<U32>(P[2]))
           : OnDeviceStartHSSFailed(P0, static_cast<const U32*>(B(0)), P1, static_cast<U32>(P[2]));
        break;
    case JT_STOP_HSS:
        Ok ? OnDeviceStopHSSDone() : OnDeviceStopHSSFailed();
        break;
    case JT_READ_HSS:
        Ok ? OnDeviceReadHSSDone(P0, Res[0], static_cast<const U8*>(B(0))) : OnDeviceReadHSSFailed(P0);
        break;
    case JT_START_POWER_TRACE:
        Ok ? OnDeviceStartPowerTraceDone(P0, Res[1], static_cast<U32>(P[2]), static_cast<U32>(P[3]))
           : OnDeviceStartPowerTraceFailed(P0, P1, static_cast<U32>(P[2]), static_cast<U32>(P[3]));
        break;
    case JT_STOP_POWER_TRACE:
        Ok ? OnDeviceStopPowerTraceDone() : OnDeviceStopPowerTraceFailed();
        break;
    case JT_READ_POWER_TRACE:
        Ok ? OnDeviceReadPowerTraceDone(P0, Res[0], static_cast<const U64*>(B(0)))
           : OnDeviceReadPowerTraceFailed(P0);
        break;
    case JT_FLUSH_POWER_TRACE:
        Ok ? OnDeviceFlushPowerTraceDone() : OnDeviceFlushPowerTraceFailed();
        break;
    case JT_START_MCT:
        Ok ? OnDeviceStartMCTDone() : OnDeviceStartMCTFailed();
        break;
    case JT_STOP_MCT:
        Ok ? OnDeviceStopMCTDone() : OnDeviceStopMCTFailed();
        break;
    case JT_WRITE_MCT:
        Ok ? OnDeviceWriteMCTDone(P0, P1, static_cast<const U8*>(B(0)))
           : OnDeviceWriteMCTFailed(P0, P1, Res[1], static_cast<const U8*>(B(0)));
        break;
    case JT_READ_MCT:
        Ok ? OnDeviceReadMCTDone(P0, P1, Res[0], static_cast<const U8*>(B(0)))
           : OnDeviceReadMCTFailed(P0, P1);
        break;
    case JT_SET_SH_INPUT_TEXT:
        Ok ? OnDeviceSetSHInputTextDone(P0, S(0)) : OnDeviceSetSHInputTextFailed(P0, S(0));
        break;
    case JT_SET_BP:
        Ok ? OnDeviceSetBPDone(P0) : OnDeviceSetBPFailed(P0);
        OnDeviceBPStateChanged();
        break;
    case JT_SET_BPS:
        Ok ? OnDeviceSetBPsDone(P0, static_cast<const U32*>(B(0)))
           : OnDeviceSetBPsFailed(P0, static_cast<const U32*>(B(0)));
        OnDeviceBPStateChanged();
        break;
    case JT_CLEAR_BP:
        Ok ? OnDeviceClearBPDone(P0) : OnDeviceClearBPFailed(P0);
        OnDeviceBPStateChanged();
        break;
    case JT_CLEAR_BPS:
        Ok ? OnDeviceClearBPsDone(P0, static_cast<const U32*>(B(0)))
           : OnDeviceClearBPsFailed(P0, static_cast<const U32*>(B(0)));
        OnDeviceBPStateChanged();
        break;
    case JT_CLEAR_ALL_BPS:
        Ok ? OnDeviceClearAllBPsDone() : OnDeviceClearAllBPsFailed();
        OnDeviceBPStateChanged();
        break;
    case JT_RESET_BPS:
        Ok ? OnDeviceResetBPsDone() : OnDeviceResetBPsFailed();
        break;
    case JT_SET_WPS:
        Ok ? OnDeviceSetWPsDone(P0, static_cast<const WP*>(B(0)))
           : OnDeviceSetWPsFailed(P0, static_cast<const WP*>(B(0)));
        OnDeviceWPStateChanged();
        break;
    case JT_CLEAR_WPS:
        Ok ? OnDeviceClearWPsDone(P0, static_cast<const WP*>(B(0)))
           : OnDeviceClearWPsFailed(P0, static_cast<const WP*>(B(0)));
        OnDeviceWPStateChanged();
        break;
    case JT_CLEAR_ALL_WPS:
        Ok ? OnDeviceClearAllWPsDone() : OnDeviceClearAllWPsFailed();
        OnDeviceWPStateChanged();
        break;
    case JT_SET_TPS:
    case JT_CLEAR_TPS:
    case JT_CLEAR_ALL_TPS:
        OnDeviceTPStateChanged();
        break;
    case JT_CONFIGURE:
        Ok ? OnDeviceConfigureDone(S(0)) : OnDeviceConfigureFailed(S(0));
        break;
    case JT_SET_CONFIG_PARAM:
        if (B(0)) {
            Ok ? OnDeviceSetConfigParamDone(static_cast<int>(P0), S(0))
               : OnDeviceSetConfigParamFailed(static_cast<int>(P0), S(0));
        } else {
            Ok ? OnDeviceSetConfigParamDone(static_cast<int>(P0), static_cast<int>(P1))
               : OnDeviceSetConfigParamFailed(static_cast<int>(P0), static_cast<int>(P1));
        }
        break;
    case JT_EXEC_TARVO_CMD:
        Ok ? OnDeviceExecTarvoCmdDone(S(0)) : OnDeviceExecTarvoCmdFailed(S(0), S(1));
        break;
    case JT_SET_TARGET_EXEC_STATE:
        Ok ? OnDeviceSetTargetExecStateDone(P[0], P[1]) : OnDeviceSetTargetExecStateFailed(P[0], P[1]);
        if (Ok) {
            OnDeviceResetDone(static_cast<U32>(D->PC.load()), RM_EXEC_STATE);
        }
        break;
    case JT_RESET_TARGET_EXEC_STATE:
        Ok ? OnDeviceResetTargetExecStateDone() : OnDeviceResetTargetExecStateFailed();
        break;
    case JT_GET_DEVICE_INFO:
        Ok ? OnDeviceGetDeviceInfoDone(S(0), Res[1]) : OnDeviceGetDeviceInfoFailed(S(0));
        break;
    case JT_MEASURE_CORE_SPEED:
        Ok ? OnDeviceMeasureCoreSpeedDone(Res[0]) : OnDeviceMeasureCoreSpeedFailed();
        break;
    default:
        break;
    }
}

// ---------------------------------------------------------------------------------------------------------
// Worker

CDeviceEventWorker::CDeviceEventWorker(QObject* Parent) : QTimer(Parent) {
    setSingleShot(true);
    setInterval(1);
    Ring().Worker = this;
}

CDeviceEventWorker::~CDeviceEventWorker() {
    if (Ring().Worker == this) {
        Ring().Worker = nullptr;
    }
}

void CDeviceEventWorker::timerEvent(QTimerEvent* Event) {
    if (Event->timerId() != timerId()) {
        QTimer::timerEvent(Event);
        return;
    }
    const int Delivered = DeviceEvents::DeliverDeviceEvents(10);
    if (Delivered == 0) {
        stop();
    } else {
        start();
    }
}

// ---------------------------------------------------------------------------------------------------------
// Ring

namespace DeviceEvents {

int PushDeviceEvent(U32 Kind, U64 A, U64 B) {
    EventRing& R = Ring();
    EVENT_SLOT* Slot = nullptr;
    {
        std::lock_guard<std::mutex> Guard(R.PushLock);
        Slot = &R.Slots[R.WriteIndex];
        if (Slot->Kind.load(std::memory_order_acquire) != DE_NONE) {
            Slot = nullptr;
        } else {
            R.WriteIndex = (R.WriteIndex + 1) % RING_SIZE;
            Slot->A = A;
            Slot->B = B;
            // The kind goes in last: it publishes the slot.
            Slot->Kind.store(Kind, std::memory_order_release);
            R.Pushed.fetch_add(1);
        }
    }
    if (!Slot) {
        qDebug("Target event queue full. job not inserted");
        return -1;
    }
    if (CDeviceEventWorker* W = R.Worker.data()) {
        QMetaObject::invokeMethod(W, qOverload<>(&QTimer::start), Qt::QueuedConnection);
    }
    return 0;
}

DEVICE_EVENT PopDeviceEvent() {
    EventRing& R = Ring();
    std::lock_guard<std::mutex> Guard(R.PopLock);
    EVENT_SLOT& Slot = R.Slots[R.ReadIndex];
    const U32 Kind = Slot.Kind.load(std::memory_order_acquire);
    if (Kind == DE_NONE) {
        return DEVICE_EVENT{0, 0, 0};
    }
    DEVICE_EVENT Event{Kind, Slot.A, Slot.B};
    Slot.Kind.store(DE_NONE, std::memory_order_release);
    R.ReadIndex = (R.ReadIndex + 1) % RING_SIZE;
    R.Popped.fetch_add(1);
    return Event;
}

void DispatchDeviceEvent(const DEVICE_EVENT& Event) {
    const U64 A = Event.A;
    const U64 B = Event.B;
    switch (Event.Kind) {
    case DE_JOB:
        DeliverJob(reinterpret_cast<DEVICE_JOB*>(A));
        break;
    case DE_EVAL_BP_CONDITION:
        ForEachListener([A](CDeviceEventListener* L) { L->OnDeviceEvalBPCondition(static_cast<U32>(A)); });
        break;
    case DE_CONFIG_PARAM_CHANGED:
        ForEachListener([A, B](CDeviceEventListener* L) {
            L->OnDeviceConfigParamChanged(static_cast<int>(A), static_cast<int>(B));
        });
        break;
    case DE_HW_CAPABILITY_CHANGED:
        ForEachListener([A, B](CDeviceEventListener* L) {
            L->OnDeviceHWCapabilityChanged(static_cast<int>(A), static_cast<int>(B));
        });
        break;
    case DE_CONNECTION_LOST:
        ForEachListener([](CDeviceEventListener* L) { L->OnDeviceConnectionLost(); });
        break;
    case DE_ABOUT_TO_DISCONNECT:
        ForEachListener([](CDeviceEventListener* L) { L->OnDeviceAboutToDisconnect(); });
        break;
    case DE_ABOUT_TO_RESUME:
        ForEachListener(
            [A](CDeviceEventListener* L) { L->OnDeviceAboutToResume(static_cast<RESUME_MODES>(A)); });
        break;
    case DE_ABOUT_TO_STEP:
        ForEachListener([](CDeviceEventListener* L) { L->OnDeviceAboutToStep(); });
        break;
    case DE_ENDIANESS_CHANGED:
        ForEachListener([A, B](CDeviceEventListener* L) {
            L->OnDeviceEndianessChanged(static_cast<int>(A), static_cast<int>(B));
        });
        break;
    case DE_LOG_MSG: {
        const char* Text = PoolText(A);
        ForEachListener([Text, B](CDeviceEventListener* L) { L->OnDeviceLogMsg(Text, static_cast<U32>(B)); });
        break;
    }
    case DE_STATUS_MSG: {
        const char* Text = PoolText(A);
        ForEachListener([Text](CDeviceEventListener* L) { L->OnDeviceSetStatusMsg(Text); });
        break;
    }
    case DE_PROGRESS_MSG: {
        const char* Text = PoolText(A);
        ForEachListener([Text](CDeviceEventListener* L) { L->OnDeviceSetProgressMsg(Text); });
        break;
    }
    case DE_START_PROGRESS:
        ForEachListener([A, B](CDeviceEventListener* L) {
            L->OnDeviceStartProgress(static_cast<int>(A), static_cast<int>(B));
        });
        break;
    case DE_END_PROGRESS:
        ForEachListener([](CDeviceEventListener* L) { L->OnDeviceEndProgress(); });
        break;
    case DE_PROGRESS_VALUE:
        ForEachListener([A](CDeviceEventListener* L) { L->OnDeviceSetProgressValue(static_cast<int>(A)); });
        break;
    default:
        break;
    }
}

int DeliverDeviceEvents(int Max, U64 StopAfterJobId, bool* Found) {
    int Delivered = 0;
    if (Found) {
        *Found = false;
    }
    while (Delivered < Max) {
        const DEVICE_EVENT Event = PopDeviceEvent();
        if (Event.Kind == DE_NONE) {
            break;
        }
        bool Last = false;
        if (StopAfterJobId != 0 && Event.Kind == DE_JOB) {
            const auto* Job = reinterpret_cast<const DEVICE_JOB*>(Event.A);
            Last = Job && Job->Id + 1 == StopAfterJobId;
        }
        DispatchDeviceEvent(Event);
        ++Delivered;
        if (Last) {
            if (Found) {
                *Found = true;
            }
            break;
        }
    }
    return Delivered;
}

void ResetRing() {
    EventRing& R = Ring();
    std::lock_guard<std::mutex> Push(R.PushLock);
    std::lock_guard<std::mutex> Pop(R.PopLock);
    R.WriteIndex = 0;
    R.ReadIndex = 0;
    R.Pushed = 0;
    R.Popped = 0;
}

U64 PushedCount() {
    return Ring().Pushed.load();
}

U32 FreeCount() {
    const U64 Used = Ring().Pushed.load() - Ring().Popped.load();
    return Used >= RING_SIZE ? 0 : static_cast<U32>(RING_SIZE - Used);
}
U64 PoppedCount() {
    return Ring().Popped.load();
}

const char* PoolText(U64 Slot) {
    return Ring().Pool[Slot % POOL_SIZE];
}

void PostDeviceJob(DEVICE_JOB* Job) {
    if (!Job || Job->Type == 0) {
        return;
    }
    if (PushDeviceEvent(DE_JOB, reinterpret_cast<U64>(Job), 0) < 0) {
        CDevice::Instance()->ReleaseSlot(Job);
    }
}

void PostEvalBPCondition(U32 Address) {
    PushDeviceEvent(DE_EVAL_BP_CONDITION, Address, 0);
}
void PostConfigParamChanged(int Param, int Value) {
    PushDeviceEvent(DE_CONFIG_PARAM_CHANGED, static_cast<U64>(Param),
                    static_cast<U64>(static_cast<I64>(Value)));
}
void PostHWCapabilityChanged(int Index, int Value) {
    PushDeviceEvent(DE_HW_CAPABILITY_CHANGED, static_cast<U64>(Index), static_cast<U64>(Value));
}
void PostConnectionLost() {
    PushDeviceEvent(DE_CONNECTION_LOST, 0, 0);
}

// Callers raise these right before they schedule the job: on the GUI thread they are told at once.
void PostAboutToDisconnect() {
    if (QThread::currentThread() == qApp->thread()) {
        DispatchDeviceEvent({DE_ABOUT_TO_DISCONNECT, 0, 0});
    } else {
        PushDeviceEvent(DE_ABOUT_TO_DISCONNECT, 0, 0);
    }
}
void PostAboutToResume(RESUME_MODES Mode) {
    if (QThread::currentThread() == qApp->thread()) {
        DispatchDeviceEvent({DE_ABOUT_TO_RESUME, Mode, 0});
    } else {
        PushDeviceEvent(DE_ABOUT_TO_RESUME, Mode, 0);
    }
}
void PostAboutToStep() {
    if (QThread::currentThread() == qApp->thread()) {
        DispatchDeviceEvent({DE_ABOUT_TO_STEP, 0, 0});
    } else {
        PushDeviceEvent(DE_ABOUT_TO_STEP, 0, 0);
    }
}
void PostEndianessChanged(int OldData, int OldInstruction) {
    PushDeviceEvent(DE_ENDIANESS_CHANGED, static_cast<U64>(OldData), static_cast<U64>(OldInstruction));
}
void PostLogMsg(const char* Text, U32 Flags) {
    PushDeviceEvent(DE_LOG_MSG, PoolPut(Text), Flags);
}
void PostStatusMsg(const char* Text) {
    PushDeviceEvent(DE_STATUS_MSG, PoolPut(Text), 0);
}
void PostProgressMsg(const char* Text) {
    PushDeviceEvent(DE_PROGRESS_MSG, PoolPut(Text), 0);
}
void PostStartProgress(int Min, int Max) {
    PushDeviceEvent(DE_START_PROGRESS, static_cast<U64>(Min), static_cast<U64>(Max));
}
void PostEndProgress() {
    PushDeviceEvent(DE_END_PROGRESS, 0, 0);
}
void PostProgressValue(int Value) {
    PushDeviceEvent(DE_PROGRESS_VALUE, static_cast<U64>(Value), 0);
}

void SetModeReaders(bool (*CpuMode)(U32*), bool (*ExecMode)(U32*)) {
    Ring().CpuMode = CpuMode;
    Ring().ExecMode = ExecMode;
}

void SetDataManager(CDeviceEventListener* Manager) {
    Ring().DataManager = Manager;
}

} // namespace DeviceEvents
