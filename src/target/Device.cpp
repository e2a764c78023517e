#include "target/Device.h"

#include "app/core/Log.h"
#include "probe/Tarvo.h"
#include "target/DeviceConfig.h"
#include "target/DeviceEvents.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <chrono>
#include <cstring>
#include <thread>

namespace {

CDevice* s_Device = nullptr;

// Fields of a ring slot that two threads touch: the kind publishes a slot, the pending bit may be
// cleared by a cancel while the device thread looks at it, and a waiter reads the Id.
std::atomic_ref<U32> TypeOf(DEVICE_JOB* Job) {
    return std::atomic_ref<U32>(Job->Type);
}
std::atomic_ref<U32> FlagsOf(DEVICE_JOB* Job) {
    return std::atomic_ref<U32>(Job->Flags);
}
std::atomic_ref<U64> IdOf(DEVICE_JOB* Job) {
    return std::atomic_ref<U64>(Job->Id);
}
U32 LoadType(const DEVICE_JOB* Job) {
    return std::atomic_ref<U32>(const_cast<DEVICE_JOB*>(Job)->Type).load(std::memory_order_acquire);
}
U32 LoadFlags(const DEVICE_JOB* Job) {
    return std::atomic_ref<U32>(const_cast<DEVICE_JOB*>(Job)->Flags).load(std::memory_order_acquire);
}

} // namespace

CDevice* CDevice::Instance() {
    if (!s_Device) {
        s_Device = new CDevice();
        s_Device->start();
    }
    return s_Device;
}

bool CDevice::Exists() {
    return s_Device != nullptr;
}

CDevice::CDevice() {
    qRegisterMetaType<DEVICE_JOB>("DEVICE_JOB");
    for (auto& R : m_Rings) {
        std::memset(static_cast<void*>(R.Slots), 0, sizeof(R.Slots));
    }
    HookConfiguration();
}

namespace {

/// Every change of the configuration is told to the listeners; a new device also renews what the
/// device knows of it. Runs on the thread that made the change.
void OnConfigChanged(int Param, I32 Value) {
    if (Param == DEVICE_INDEX && CDevice::Exists()) {
        CDevice::Instance()->OnDeviceIndexChanged();
    }
    DeviceEvents::PostConfigParamChanged(Param, Value);
}

/// Device names resolve through the library's table; 0 is its placeholder and counts as unknown.
int LookupDeviceIndex(const char* Name) {
    const int Index = TARVOARM_DEVICE_GetIndex(Name);
    return Index > 0 ? Index : -1;
}

} // namespace

void CDevice::HookConfiguration() {
    CDeviceConfig& Config = GetDeviceConfig();
    Config.SetDeviceIndexLookup(&LookupDeviceIndex);
    Config.SetChangeListener(&OnConfigChanged);
}

CDevice::~CDevice() = default;

void CDevice::Shutdown() {
    if (!s_Device) {
        return;
    }
    CDevice* D = s_Device;
    // Jobs that have not started are dropped and count as done; a connection under way gives up at once
    // (a server that babbles would otherwise hold it, and the close, until its time-outs).
    D->CancelConnect();
    D->CancelJobs(JT_ANY, JQ_ALL);
    D->StopRequested = 1;
    D->Wake();
    while (D->isRunning()) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        D->wait(10);
    }
}

void CDevice::Wake() {
    {
        std::lock_guard<std::mutex> Guard(m_WakeLock);
        m_WakeFlag = true;
    }
    m_WakeUp.notify_one();
}

int CDevice::ScheduleJob(DEVICE_JOB* Job) {
    if (!Job || Job->Type < 1 || Job->Type > JT_ANY) {
        return -1;
    }
    const U32 Queue = Jobs::QueueOf(Job->Type);
    RING& Ring = m_Rings[Queue];
    {
        std::lock_guard<std::mutex> Guard(m_ScheduleLock);
        DEVICE_JOB* Slot = &Ring.Slots[Ring.WriteIndex];
        if (LoadType(Slot) == 0) {
            Ring.WriteIndex = (Ring.WriteIndex + 1) % RING_SIZE;
            // The slot was free and is now behind the write index: it is ours to fill. The kind goes in
            // last, because it is what tells the device thread that the slot holds a job.
            const U32 Type = Job->Type;
            Slot->Queue = Queue;
            Slot->Status = 0;
            std::memcpy(Slot->Result, Job->Result, sizeof(Slot->Result));
            std::memcpy(Slot->Param, Job->Param, sizeof(Slot->Param));
            std::memcpy(static_cast<void*>(Slot->Buf), Job->Buf, sizeof(Slot->Buf));
            std::memcpy(Slot->BufSize, Job->BufSize, sizeof(Slot->BufSize));
            IdOf(Slot).store(m_JobCounter.fetch_add(1), std::memory_order_relaxed);
            FlagsOf(Slot).store(JOB_FLAG_PENDING, std::memory_order_relaxed);
            m_LastIdOfKind[Type] = IdOf(Slot).load(std::memory_order_relaxed);
            m_LastSlotOfKind[Type] = Slot;
            TypeOf(Slot).store(Type, std::memory_order_release);
            m_LastScheduledKind = Type;
            // The buffers belong to the slot now.
            std::memset(static_cast<void*>(Job->Buf), 0, sizeof(Job->Buf));
            std::memset(Job->BufSize, 0, sizeof(Job->BufSize));
            LogDebugMsg(QStringLiteral("Job scheduled: %1").arg(QLatin1String(Jobs::JobName(Type))));
            Wake();
            return 0;
        }
    }
    LogWarnMsg(
        QStringLiteral("Job %1 not scheduled. Queue is full.").arg(QLatin1String(Jobs::JobName(Job->Type))));
    Jobs::ReleaseJob(Job);
    return -1;
}

int CDevice::FindJob(U32 Kind, U32* Queue) const {
    U32 First = 0;
    U32 Last = 2;
    const U32 Asked = Queue ? *Queue : JQ_ALL;
    if (Asked <= JQ_BACKGROUND) {
        First = Last = Asked;
    } else if (Asked == JQ_OF_KIND) {
        First = Last = Jobs::QueueOf(Kind);
    }
    for (U32 Q = First; Q <= Last; ++Q) {
        const RING& Ring = m_Rings[Q];
        // Every pending job lies between the read index and the write index; a scan of the whole ring
        // also finds it and needs no lock on the write index.
        const U32 Start = Ring.ReadIndex.load(std::memory_order_acquire);
        for (U32 i = 0; i < RING_SIZE; ++i) {
            const U32 Pos = (Start + i) % RING_SIZE;
            const DEVICE_JOB* Slot = RingSlot(Q, Pos);
            const U32 Type = LoadType(Slot);
            if (Type == 0) {
                if (i > 0 || Pos == Start) {
                    // A free slot ends the queued run of this ring.
                    break;
                }
                continue;
            }
            if ((LoadFlags(Slot) & JOB_FLAG_PENDING) && (Kind == JT_ANY || Type == Kind)) {
                if (Queue) {
                    *Queue = Q;
                }
                return static_cast<int>(Pos);
            }
        }
    }
    return -1;
}

bool CDevice::IsJobPending(U32 Kind) const {
    if (Kind == JT_STEP) {
        for (U32 K : {JT_STEP_INST, JT_STEP_INTO, JT_STEP_OVER, JT_STEP_OUT}) {
            U32 Q = JQ_COMMAND;
            if (FindJob(K, &Q) >= 0) {
                return true;
            }
        }
        return false;
    }
    U32 Q = JQ_OF_KIND;
    return FindJob(Kind, &Q) >= 0;
}

bool CDevice::HasQueuedJobs() const {
    for (U32 Q = 0; Q < 3; ++Q) {
        const U32 Pos = m_Rings[Q].ReadIndex.load(std::memory_order_acquire);
        const DEVICE_JOB* Slot = RingSlot(Q, Pos);
        if (LoadType(Slot) != 0 && !(LoadFlags(Slot) & JOB_FLAG_RAN)) {
            return true;
        }
    }
    return false;
}

void CDevice::CancelJobs(U32 Kind, U32 Queue) {
    U32 First = 0;
    U32 Last = 2;
    if (Queue <= JQ_BACKGROUND) {
        First = Last = Queue;
    } else if (Queue == JQ_OF_KIND) {
        First = Last = Jobs::QueueOf(Kind);
    }
    for (U32 Q = First; Q <= Last; ++Q) {
        for (U32 Pos = 0; Pos < RING_SIZE; ++Pos) {
            DEVICE_JOB* Slot = RingSlot(Q, Pos);
            const U32 Type = LoadType(Slot);
            if (Type != 0 && (Kind == JT_ANY || Type == Kind)) {
                FlagsOf(Slot).fetch_and(~JOB_FLAG_PENDING, std::memory_order_acq_rel);
            }
        }
    }
    Wake();
}

bool CDevice::IsJobValid(const DEVICE_JOB* Job) const {
    if (!Job || LoadType(Job) == 0) {
        return false;
    }
    bool OnSlot = false;
    const auto Inside = [Job](const DEVICE_JOB* Base) { return Job >= Base && Job < Base + RING_SIZE; };
    for (const RING& R : m_Rings) {
        OnSlot = OnSlot || Inside(R.Slots);
    }
    OnSlot = OnSlot || Inside(m_EventJobs);
    if (!OnSlot) {
        return false;
    }
    const U32 Type = LoadType(Job);
    return Type < JT_LAST && (!Jobs::NeedsBuffer(Type) || Job->Buf[0] != nullptr);
}

void CDevice::ReleaseSlot(DEVICE_JOB* Job) {
    if (!Job) {
        return;
    }
    for (int i = 0; i < 3; ++i) {
        if (Job->BufSize[i] != 0) {
            std::free(Job->Buf[i]);
        }
        Job->Buf[i] = nullptr;
        Job->BufSize[i] = 0;
    }
    Job->Queue = 0;
    Job->Status = 0;
    std::memset(Job->Result, 0, sizeof(Job->Result));
    std::memset(Job->Param, 0, sizeof(Job->Param));
    IdOf(Job).store(0, std::memory_order_relaxed);
    FlagsOf(Job).store(0, std::memory_order_relaxed);
    // The free kind comes last: from here on a scheduler may take the slot.
    TypeOf(Job).store(0, std::memory_order_release);
}

I64 CDevice::WaitForJob(U32 Kind, bool ProcessEvents, int TimeoutMs) {
    return WaitForJobSlot(Kind, ProcessEvents, TimeoutMs, nullptr);
}

I64 CDevice::WaitForJobSlot(U32 Kind, bool ProcessEvents, int TimeoutMs, DEVICE_JOB** SlotOut) {
    U32 Queue = JQ_ALL;
    const int Pos = FindJob(Kind, &Queue);
    if (Pos < 0) {
        return 0;
    }
    DEVICE_JOB* Slot = RingSlot(Queue, static_cast<U32>(Pos));
    if (SlotOut) {
        *SlotOut = Slot;
    }
    const U64 Id = IdOf(Slot).load(std::memory_order_acquire);
    const U32 Type = LoadType(Slot);
    const int Limit = TimeoutMs == -1 ? Jobs::DefaultWaitMs(Type) : TimeoutMs;
    QElapsedTimer Clock;
    Clock.start();
    const auto Ran = [&]() {
        // A slot that no longer holds this job has run it (and may hold another by now).
        return LoadType(Slot) != Type || IdOf(Slot).load(std::memory_order_acquire) != Id ||
               !(LoadFlags(Slot) & JOB_FLAG_PENDING);
    };
    while (!Ran()) {
        if (!WaitTick(Type, Clock, Limit, ProcessEvents, Ran)) {
            return -1;
        }
    }
    return static_cast<I64>(Id) + 1;
}

bool CDevice::WaitTick(U32 Kind, const QElapsedTimer& Clock, int Limit, bool ProcessEvents,
                       const std::function<bool()>& Ran) {
    if (!isRunning() || StopRequested.load()) {
        return false;
    }
    if (Clock.elapsed() > Limit) {
        LogWarnMsg(
            QStringLiteral("Timeout while waiting for Job %1").arg(QLatin1String(Jobs::JobName(Kind))));
        return false;
    }
    if (ProcessEvents) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
        std::this_thread::yield();
    } else {
        std::unique_lock<std::mutex> Lock(m_DoneLock);
        m_JobDone.wait_for(Lock, std::chrono::milliseconds(1), Ran);
    }
    return true;
}

I64 CDevice::WaitForJobEvent(U32 Kind, bool ProcessEvents) {
    if (Kind >= JT_LAST) {
        return 0;
    }
    DEVICE_JOB* Slot = m_LastSlotOfKind[Kind].load();
    const U64 Id = m_LastIdOfKind[Kind].load();
    if (!Slot) {
        return 0;
    }
    const auto Held = [&]() {
        return LoadType(Slot) == Kind && IdOf(Slot).load(std::memory_order_acquire) == Id;
    };
    if (!Held()) {
        // Run and delivered already.
        return static_cast<I64>(Id) + 1;
    }
    const int Limit = Jobs::DefaultWaitMs(Kind);
    QElapsedTimer Clock;
    Clock.start();
    const auto Ran = [&]() { return !Held() || !(LoadFlags(Slot) & JOB_FLAG_PENDING); };
    while (!Ran()) {
        if (!WaitTick(Kind, Clock, Limit, ProcessEvents, Ran)) {
            return -1;
        }
    }
    // The job has run; its event follows a moment later. Deliver until it came, or until the slot shows
    // that the job raised none.
    const I64 Result = static_cast<I64>(Id) + 1;
    Clock.restart();
    for (;;) {
        bool Found = false;
        DeviceEvents::DeliverDeviceEvents(100, static_cast<U64>(Result), &Found);
        if (Found || !Held() || !isRunning() || Clock.elapsed() > 1000) {
            break;
        }
        std::this_thread::yield();
    }
    return Result;
}

void CDevice::SetEventSuppressed(U32 Kind, bool Suppressed) {
    if (Kind < JT_LAST) {
        m_Suppressed[Kind] = Suppressed ? 1 : 0;
    }
}

bool CDevice::IsEventSuppressed(U32 Kind) const {
    return Kind < JT_LAST && m_Suppressed[Kind].load() != 0;
}

void CDevice::SetPendingConnect(U64 Mode) {
    m_PendingConnect = Mode;
    Wake();
}

void CDevice::SetPendingReset(U64 Mode) {
    m_PendingReset = Mode;
    Wake();
}

void CDevice::SetPendingBPCondition(U64 AddressAndVerdict) {
    m_PendingBPCondition = AddressAndVerdict;
    Wake();
}

bool CDevice::IsDeviceThreadOrLocked() const {
    return QThread::currentThreadId() == m_ThreadId.load() || m_DeviceMutex.IsHeldByCurrentThread();
}

void CDevice::PostJobEvent(U32 Kind, U32 Status, U64 Param0, U64 Result0, U64 Result1) {
    ARNEX_CHECK_DEVICE_THREAD();
    if (Kind == 0 || Kind >= JT_LAST || IsEventSuppressed(Kind)) {
        return;
    }
    DEVICE_JOB* Slot = nullptr;
    {
        std::lock_guard<std::mutex> Guard(m_EventJobLock);
        Slot = &m_EventJobs[m_EventJobIndex];
        if (LoadType(Slot) != 0) {
            // Not delivered since the array went round once: the event is lost rather than a job
            // overwritten that a listener may still read.
            return;
        }
        m_EventJobIndex = (m_EventJobIndex + 1) % RING_SIZE;
        Slot->Status = Status;
        Slot->Param[0] = Param0;
        Slot->Result[0] = Result0;
        Slot->Result[1] = Result1;
        IdOf(Slot).store(m_JobCounter.fetch_add(1), std::memory_order_relaxed);
        TypeOf(Slot).store(Kind, std::memory_order_release);
    }
    DeviceEvents::PostDeviceJob(Slot);
}

void CDevice::run() {
    m_ThreadId = QThread::currentThreadId();
    setPriority(QThread::LowestPriority);
    {
        QMutexLocker Lock(&m_DeviceMutex);
        ReadLibraryFacts();
    }
    while (!StopRequested.load()) {
        int Ran = 0;
        {
            QMutexLocker Lock(&m_DeviceMutex);
            Ran = RunBatch();
        }
        if (Ran >= BATCH_JOBS || StopRequested.load()) {
            continue;
        }
        std::unique_lock<std::mutex> Lock(m_WakeLock);
        const auto Woken = [this]() { return m_WakeFlag || StopRequested.load(); };
        if (m_EventsBackedUp) {
            m_WakeUp.wait_for(Lock, std::chrono::milliseconds(1), Woken);
        } else if (Connected.load()) {
            m_WakeUp.wait_for(Lock, std::chrono::milliseconds(200), Woken);
        } else {
            m_WakeUp.wait(Lock, Woken);
        }
        m_WakeFlag = false;
    }
    QMutexLocker Lock(&m_DeviceMutex);
    CleanUpAtEnd();
    // What nobody will run any more is released, so that no buffer is left behind.
    for (U32 Q = 0; Q < 3; ++Q) {
        for (U32 Pos = 0; Pos < RING_SIZE; ++Pos) {
            DEVICE_JOB* Slot = RingSlot(Q, Pos);
            // Canceled jobs the thread never reached are released too; a job that ran waits for its event.
            if (LoadType(Slot) != 0 && !(LoadFlags(Slot) & JOB_FLAG_RAN)) {
                ReleaseSlot(Slot);
            }
        }
    }
}

DEVICE_JOB* CDevice::NextJob() {
    for (U32 Q = 0; Q < 3; ++Q) {
        RING& Ring = m_Rings[Q];
        const U32 Pos = Ring.ReadIndex.load(std::memory_order_relaxed);
        DEVICE_JOB* Slot = &Ring.Slots[Pos];
        // A slot whose job ran long ago and still waits for delivery: the ring went round once and the
        // next job can only come after it.
        if (LoadType(Slot) == 0 || (LoadFlags(Slot) & JOB_FLAG_RAN)) {
            continue;
        }
        Ring.ReadIndex.store((Pos + 1) % RING_SIZE, std::memory_order_release);
        return Slot;
    }
    return nullptr;
}

int CDevice::RunBatch() {
    ARNEX_CHECK_DEVICE_THREAD();
    int Ran = 0;
    m_EventsBackedUp = false;
    for (int Pass = 0; Pass < BATCH_JOBS; ++Pass) {
        CheckHandleNotifications();
        CheckHandleHalt();
        CheckConnection();
        // A job's event must find room: while the GUI side has not taken enough, jobs wait in their rings
        // rather than lose their events.
        if (DeviceEvents::FreeCount() < EVENT_RESERVE) {
            m_EventsBackedUp = true;
            break;
        }
        DEVICE_JOB* Job = NextJob();
        if (!Job) {
            break;
        }
        RunJob(Job);
        ++Ran;
    }
    return Ran;
}

void CDevice::CheckHandleNotifications() {
    const U64 Connect = m_PendingConnect.exchange(MAILBOX_EMPTY);
    if (Connect != MAILBOX_EMPTY) {
        FinishConnect(static_cast<U32>(Connect));
        PostJobEvent(JT_CONNECT, Connected.load() ? JS_DONE : JS_FAILED, Connect, PC.load(), 0);
    }
    const U64 Reset = m_PendingReset.exchange(MAILBOX_EMPTY);
    if (Reset != MAILBOX_EMPTY) {
        FinishReset(static_cast<U32>(Reset));
        PostJobEvent(JT_RESET, JS_DONE, Reset, PC.load(), 0);
    }
    const U64 Condition = m_PendingBPCondition.exchange(MAILBOX_EMPTY);
    if (Condition != MAILBOX_EMPTY) {
        OnBPConditionEvaluated(static_cast<U32>(Condition & ~1ull), (Condition & 1) != 0);
    }
}

void CDevice::RunJob(DEVICE_JOB* Job) {
    if (!(LoadFlags(Job) & JOB_FLAG_PENDING) && LoadType(Job) == JT_END_DOWNLOAD && IsJobValid(Job)) {
        // A download ends in an event even when its end was canceled (the connection broke): the flow
        // that waits for it must end.
        ForgetDownload();
        m_LastDownloadError = -1;
        Job->Result[0] = static_cast<U64>(-1ll);
        FinishJob(Job, -1);
        return;
    }
    if (!(LoadFlags(Job) & JOB_FLAG_PENDING) || !IsJobValid(Job)) {
        // Canceled, or missing a parameter it needs: released without an event.
        ReleaseSlot(Job);
        return;
    }
    I64 Value = 0;
    if (PrepareJob(Job)) {
        m_RunningJob = Job;
        Value = ExecuteJob(Job);
        m_RunningJob = nullptr;
    }
    FinishJob(Job, Value);
}

bool CDevice::PrepareJob(DEVICE_JOB* Job) {
    const U32 Type = LoadType(Job);
    if (Type == JT_HALT && IsTargetHalted()) {
        return false;
    }
    if (Type == JT_RESET || Type == JT_HALT || Type == JT_CONTINUE || Jobs::IsStepKind(Type)) {
        // Results of queued reads would be stale after the target moves.
        CancelJobs(JT_ANY, JQ_BACKGROUND);
        CancelJobs(JT_ANY, JQ_READ);
    } else if (Type == JT_START_HSS) {
        CancelJobs(JT_READ_HSS, JQ_READ);
    } else if (Type == JT_START_POWER_TRACE) {
        CancelJobs(JT_READ_POWER_TRACE, JQ_READ);
    }
    return true;
}

void CDevice::FinishJob(DEVICE_JOB* Job, I64 Value) {
    const U32 Type = LoadType(Job);
    Job->Status = Value == -1 ? JS_FAILED : (Value < 0 ? JS_CANCELED : JS_DONE);
    if (Type == JT_RESET || Jobs::IsStepKind(Type)) {
        Job->Result[0] = PC.load();
    }
    if (Type == JT_WRITE_REG && Job->Status == JS_DONE) {
        SetTargetExecState(0, 0);
    }
    // The pending bit goes before the job is handed on: once delivered, its slot may carry a new job.
    {
        std::lock_guard<std::mutex> Guard(m_DoneLock);
        FlagsOf(Job).store(JOB_FLAG_RAN, std::memory_order_release);
    }
    m_JobDone.notify_all();
    const bool NoEvent =
        Job->Status == JS_CANCELED || Type == JT_HALT || Type == JT_RUN_TO ||
        ((Type == JT_STEP_INTO || Type == JT_STEP_OVER || Type == JT_STEP_OUT) && Value == 1) ||
        IsEventSuppressed(Type);
    if (NoEvent) {
        ReleaseSlot(Job);
        return;
    }
    DeviceEvents::PostDeviceJob(Job);
}
