#pragma once

#include "app/core/Check.h"
#include "app/core/Types.h"
#include "probe/CorePluginAPI.h"
#include "program/DataBlock.h"
#include "target/DeviceTypes.h"

#include <QElapsedTimer>
#include <QRecursiveMutex>
#include <QString>
#include <QStringList>
#include <QThread>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <vector>

struct ELF_SYM_LOC;

/// Bits of the access flags of memory reads and writes.
enum MEM_ACCESS_FLAGS : U32 {
    MEM_ACCESS_ITEM_RETRY = 8,
    MEM_ACCESS_HALT = 16,
    MEM_ACCESS_FLASH = 32,
    /// The writes belong to a download that the next JT_END_DOWNLOAD closes: they open the probe's
    /// download, and what they wrote is checked at its end.
    MEM_ACCESS_DOWNLOAD = 64,
};

/// What the device knows of the probe library, the probe and the chosen device. A copy, taken under a
/// lock: any thread.
struct DEVICE_FACTS {
    U32 LibraryVersion = 0;
    QString LibraryPath;
    U32 SerialNo = 0;
    int DeviceCount = 0;
    QString Firmware; ///< cut before the word "compiled"
    QString WebServerURL;
    QString DeviceName;
    U32 Core = 0;       ///< the device's core identifier, 0 if none
    U32 CoreFamily = 0; ///< its top byte
    QString CoreName;
    U32 RamAddr = 0;
    U32 RamSize = 0;
    U32 FlashAddr = 0;
    U32 FlashSize = 0;
    U32 TIFSpeedHz = 0; ///< the interface speed in force: Hz, or 0 (maximum) or 65535 (adaptive)
    U32 DataEndian = 0;
    U32 InstEndian = 0;
    QStringList Zones;
    std::vector<U32> SupportedCores;
};

/// In a member of CDevice: the caller must be the device thread or hold the device mutex.
#define ARNEX_CHECK_DEVICE_THREAD()                                                                          \
    ARNEX_CHECK_THREAD(IsDeviceThreadOrLocked(),                                                             \
                       QLatin1String(Q_FUNC_INFO) + QStringLiteral(" is device-thread only"))

/// The device's recursive mutex, which knows which thread holds it, so that the members that reach the
/// probe can check that they run on the device thread or under the lock.
class CDeviceMutex {
public:
    void lock() {
        m_Mutex.lock();
        if (m_Depth++ == 0) {
            m_Owner = QThread::currentThreadId();
        }
    }
    bool tryLock(int TimeoutMs = 0) {
        if (!m_Mutex.tryLock(TimeoutMs)) {
            return false;
        }
        if (m_Depth++ == 0) {
            m_Owner = QThread::currentThreadId();
        }
        return true;
    }
    void unlock() {
        if (--m_Depth == 0) {
            m_Owner = nullptr;
        }
        m_Mutex.unlock();
    }
    bool IsHeldByCurrentThread() const { return m_Owner.load() == QThread::currentThreadId(); }

private:
    QRecursiveMutex m_Mutex;
    // Changed only by the holder; atomic since the toolkit's mutex is invisible to the race checker.
    std::atomic<int> m_Depth{0};
    std::atomic<Qt::HANDLE> m_Owner{nullptr};
};

/// The one object that talks to the target: a thread that runs the jobs of three rings in order. Any
/// thread schedules jobs; only this thread calls the probe library, apart from the direct calls named
/// below. Results go back to the GUI thread as device events.
class CDevice : public QThread {
    Q_OBJECT

public:
    static constexpr U32 RING_SIZE = 10000;
    static constexpr int BATCH_JOBS = 100;
    static constexpr U64 MAILBOX_EMPTY = ~0ull;
    /// Free event slots a job needs before it runs: room for its event and the messages it may raise.
    static constexpr U32 EVENT_RESERVE = 64;

    /// The process-wide device; the first access starts its thread.
    static CDevice* Instance();
    static bool Exists();
    /// Ends the thread: pending jobs that have not started are dropped, the thread is asked to stop and
    /// waited for while the caller's events are processed. The object stays.
    static void Shutdown();

    // Jobs -----------------------------------------------------------------------------------------------
    /// Accepts a job into the ring of its kind: 0, or -1 (null, bad kind, ring slot occupied).
    int ScheduleJob(DEVICE_JOB* Job);
    /// Waits until the oldest pending job of a kind has run: its Id (plus one, so that the first job's Id 0
    /// cannot be taken for "none pending"), 0 when none was pending, -1 on a time-out or a stopped thread.
    I64 WaitForJob(U32 Kind, bool ProcessEvents, int TimeoutMs = -1);
    /// Waits for the job of a kind that was scheduled last (also when it has run already), then delivers
    /// device events on this thread up to the job's own. The job's Id plus one, 0 if none was scheduled,
    /// -1 on a time-out.
    I64 WaitForJobEvent(U32 Kind, bool ProcessEvents);
    /// Ring position of the first pending job of a kind, and its ring through Queue; -1 if none.
    int FindJob(U32 Kind, U32* Queue = nullptr) const;
    bool IsJobPending(U32 Kind) const;
    /// True while a ring holds a job the thread has not reached yet, canceled ones included.
    bool HasQueuedJobs() const;
    /// Clears the pending bit of every pending job of a kind (JT_ANY: all) in the chosen rings.
    void CancelJobs(U32 Kind, U32 Queue);
    /// True for a job that lies on a slot of a ring or of the event array, has a kind, and has its first
    /// buffer where the kind needs one.
    bool IsJobValid(const DEVICE_JOB* Job) const;
    /// Releases a job of a ring or of the event array after its event was delivered.
    void ReleaseSlot(DEVICE_JOB* Job);
    /// Raises a job event without a job. Device thread only.
    void PostJobEvent(U32 Kind, U32 Status, U64 Param0, U64 Result0, U64 Result1);
    /// A non-zero byte keeps a kind from raising job events.
    void SetEventSuppressed(U32 Kind, bool Suppressed);
    bool IsEventSuppressed(U32 Kind) const;

    // Mailboxes: other threads fill them, the device thread empties them.
    void SetPendingConnect(U64 Mode);
    void SetPendingReset(U64 Mode);
    void SetPendingBPCondition(U64 AddressAndVerdict);

    // Scheduling forms of this layer's own.
    int ScheduleGetDeviceInfo(const char* Name);
    /// GUI thread: ends a connection job that waits or runs, without an event; the library's wait for
    /// the target ends at once. True if there was one.
    bool CancelConnect();
    /// Whether a connection job waits or runs. Any thread.
    bool IsConnecting() const;
    /// Why the last connection or download failed, for the Console; empty after success. Any thread.
    QString LastErrorText() const;

    /// Held by the device thread during a batch; others take it to keep a batch from running.
    CDeviceMutex& Mutex() { return m_DeviceMutex; }
    /// True on the device thread, or on a thread that holds the device mutex (which keeps batches out).
    bool IsDeviceThreadOrLocked() const;
    /// The kind of the job accepted last.
    U32 LastScheduledKind() const { return m_LastScheduledKind.load(); }
    /// Number of jobs accepted so far.
    U64 JobCount() const { return m_JobCounter.load(); }

    // Scheduling forms -----------------------------------------------------------------------------------
    int ScheduleConnect(CONNECT_MODES Mode);
    int ScheduleDisconnect();
    int ScheduleReset(RESET_MODES Mode);
    int ScheduleHalt();
    int ScheduleContinue(RESUME_MODES Mode);
    int ScheduleReadReg(U32 Index);
    int ScheduleWriteReg(U32 Index, U64 Value);
    int ScheduleReadRegs(U32 Count, const U32* Indices);
    int ScheduleReadCPReg(const char* Id);
    int ScheduleWriteCPReg(const char* Id, U64 Value);
    /// Width 255 takes VAR_ACCESS_WIDTH.
    int ScheduleReadMem(U32 Address, U32 Count, U32 Chunk, U8 Width, U32 Flags, const char* Zone = nullptr);
    int ScheduleWriteMem(U32 Address, U32 Count, const void* Data, U32 Chunk, U8 Width, U32 Flags,
                         const char* Zone = nullptr);
    int ScheduleWriteMemMultiple(U32 RangeCount, const U32* Ranges, U32 DataSize, const void* Data, U32 Chunk,
                                 U8 Width, U32 Flags, const char* Zone = nullptr);
    int ScheduleReadLocs(U32 Count, const ELF_SYM_LOC* Locs, U64 Tag);
    int ScheduleSetConfigParam(int Param, I32 Value);
    int ScheduleSetConfigParam(int Param, const char* Text);
    int ScheduleConfigure(const char* SettingsText);
    int ScheduleExecTarvoCmd(const char* Command);

    // Memory and registers (device thread; the direct forms from any thread) --------------------------
    int ValidateMemoryAccessParams(bool IsRead, U32 Address, U32 Count, U8 Width, U32 Flags, const void* Data,
                                   const U8* Status);
    U32 ReadMem(U32 Address, U32 Count, U32 Chunk, U8 Width, U32 Flags, const char* Zone, U8* Data,
                U8* Status);
    U32 ReadMemSimple(U32 Address, U32 Count, U8 Width, U32 Flags, const char* Zone, U8* Data, U8* Status);
    U32 ReadMemItemWise(U32 Address, U32 Count, U8 Width, U32 Flags, const char* Zone, U8* Data, U8* Status);
    U32 ReadMemChunkWise(U32 Address, U32 Count, U32 Chunk, U8 Width, U32 Flags, const char* Zone, U8* Data,
                         U8* Status);
    U32 WriteMem(U32 Address, U32 Count, U32 Chunk, U8 Width, U32 Flags, const char* Zone, const U8* Data);
    U32 WriteMemSimple(U32 Address, U32 Count, U8 Width, const char* Zone, const U8* Data);
    U32 WriteMemItemWise(U32 Address, U32 Count, U8 Width, const char* Zone, const U8* Data);
    U32 WriteMemChunkWise(U32 Address, U32 Count, U32 Chunk, U8 Width, U32 Flags, const char* Zone,
                          const U8* Data);
    U32 WriteMemMultiple(U32 RangeCount, const U32* Ranges, U32 DataSize, const U8* Data, U32 Chunk, U8 Width,
                         U32 Flags, const char* Zone);
    /// A synchronous read for cached data, under the device mutex: -1 unless all bytes came; without status
    /// at most 5000 bytes.
    int ReadMemDirect(U32 Address, const char* Zone, U32 Count, U8* Data, U8* Status);
    int ReadReg(U32 Index, U64* Value);
    /// A synchronous register read for a command of the GUI, under the device mutex.
    int ReadRegDirect(U32 Index, U64* Value);
    int WriteReg(U32 Index, U64 Value);
    int ReadRegs(U32 Count, const U32* Indices, U64* Values, U8* Status);
    int ReadCPReg(const char* Id, U64* Value);
    int WriteCPReg(const char* Id, U64 Value);
    int ReadLocs(U32 Count, const ELF_SYM_LOC* Locs, U64* Values, U8* Status);
    void HaltBeforeMemoryIO();
    void ResumeAfterMemoryIO();
    bool IsMemoryAccessible();
    bool HasBackgroundAccess() const;
    /// The halt state: on the device thread from the probe, elsewhere from HaltDone.
    bool IsTargetHalted();

    /// 1 halted, 0 running, a negative value when the connection is gone, -2 when asked again within the
    /// interval.
    int PollTargetHaltStatus(qint64 IntervalMs);
    /// Notices a broken connection: all pending jobs are canceled and the listeners told, once.
    void OnInvalidHaltStatus();
    /// True when the connection is gone; notices a target that runs when it should not.
    bool TestConnectionLost();
    /// Takes the PC (and SP) as given, or reads them from the target when both are 0.
    int SetTargetExecState(U64 NewPC, U64 NewSP);
    void ResetTargetExecState();
    /// The end of a connection or reset that a project's handler made (the mailboxes).
    int FinishConnect(U32 Mode);
    int FinishReset(U32 Mode);
    void OnBPConditionEvaluated(U32 Address, bool Verdict);
    /// The configuration on the device thread: the record and what the probe must hear of a change.
    int SetConfigParam(int Param, I32 Value);
    int SetConfigParam(int Param, const char* Text);
    int ConfigureFromText(const char* Text);
    /// Sends a command to the probe library: 0, or the library's result with the answer as error text.
    int ExecTarvoCmd(const char* Command, int AnswerSize, char* Answer, bool LogSuccess);

    // Connection (device thread; DeviceConnect.cpp) -------------------------------------------------------
    /// Chooses the probe's link by HOST_IF: 0, or -1 with the warning.
    int SelectHostIF();
    /// Opens the library, configures the probe and connects to the target: 0, or -1 with the library
    /// closed again.
    int ConnectSimple();
    /// The connection job: CM_SILENT opens the connection alone; any other mode closes a standing one
    /// first and finishes the connection in that mode.
    int Connect(U32 Mode);
    /// Stops the channels, clears the probe's breakpoints (unless the connection is gone) and closes.
    int Disconnect();
    /// Resets the target; RM_HARDWARE resets alone and leaves the execution state as it was.
    int Reset(U32 Mode);
    int ResetHardware();
    /// True on failure.
    bool TurnOnTargetPower();
    void TurnOffTargetPower();
    int ExecTarvoScript(const char* Path);
    /// Keeps the library from asking for a device of its own.
    void SetSuppressDeviceSelectionDialog(bool Suppress);
    /// The state of no connection.
    void ResetState();

    // What the device knows (DeviceInfo.cpp) ------------------------------------------------------------
    /// Reads the chosen device's entry of the library's table: 0, or -1 for no device.
    int UpdateDeviceInfo();
    void UpdateMemZones();
    void UpdateTIFSpeed();
    void UpdateEndianess();
    void ApplyDataEndianess(int BigEndian);
    void UpdateHWCapabilityFlags();
    void ResetHWCapabilityFlags();
    void UpdateTarvoWebserverURL();
    void UpdateTarvoFuncPtrs();
    /// Collects the core identifiers of all devices of the table: their number, or -1 when the list is full.
    int UpdateSupportedCoresList();
    DEVICE_FACTS GetFacts() const;
    /// The device index changed: the entry, the optional functions, the zones and the capabilities anew.
    void OnDeviceIndexChanged();

    // Download (DeviceDownload.cpp) ----------------------------------------------------------------------
    /// Opens the probe's download: -1 when not connected.
    int BeginDownload();
    /// Ends the probe's download, which programs and checks what was written since it began: 0, or the
    /// negative code of the library's table (-1 unspecified, -2 compare, -3 program/erase, -4 verify).
    int EndDownload(bool HaltAround = true);
    /// The unit of a download's writes at an interface speed in Hz; 0 for no limit.
    static U32 DownloadChunkSize(U32 SpeedHz);
    /// The text of an EndDownload code.
    static const char* DownloadErrorText(int Code);
    /// Schedules the writes of the blocks and the end of the download, in that order. 0, or -1 when a
    /// job could not be scheduled.
    int ScheduleDownload(const ELF_DATA_BLOCKS& Blocks, const QString& File, DOWNLOAD_MODES Mode,
                         const char* Zone = nullptr);
    int ScheduleEndDownload(const QString& File, DOWNLOAD_MODES Mode, bool HaltAround = false);
    /// Breakpoints in flash leave the probe for the time of a download and come back after it; the pair
    /// counts how often it ran, for the breakpoint engine that fills them in.
    void ClearBreakpointsBeforeFlashDL();
    void RestoreBreakpointsAfterFlashDL();
    int FlashBreakpointRestores() const { return m_FlashBPRestores.load(); }
    I32 LastDownloadError() const { return m_LastDownloadError.load(); }

    /// The core plug-in's record and static facts, set by its loader under the device mutex.
    void SetCorePlugin(const CORE_PLUGIN_API* Api, const CORE_INFO* Info);
    const CORE_PLUGIN_API* CorePlugin() const { return m_CoreApi.load(); }
    U32 PCRegisterIndex() const;

    // State flags: written on the device thread unless stated.
    std::atomic<U8> Connected{0};
    std::atomic<U8> ConnectionLost{0};
    std::atomic<U8> Halted{0};
    std::atomic<U8> HaltDone{0};
    std::atomic<U8> WaitForHalt{1};
    std::atomic<U8> ResetSeqDone{0};
    std::atomic<U8> InHaltSeq{0};
    std::atomic<U8> SessionActive{0};
    std::atomic<U8> SrcStepActive{0};
    std::atomic<U8> UserHaltPending{0};
    std::atomic<U8> StopRequested{0};
    std::atomic<U8> InstTraceEnabled{0};
    std::atomic<U8> InstTraceStarted{0};
    std::atomic<U8> SWOStarted{0};
    std::atomic<U8> MCTStarted{0};
    std::atomic<U8> HSSStarted{0};
    std::atomic<U8> PowerTraceStarted{0};
    /// Set by the session controller while its sequence of connect, reset and download runs, so that a
    /// waiting script knows the device isn't idle between two of its jobs.
    std::atomic<U8> ControllerBusy{0};
    /// The connect and reset modes in force (RESET_MODES of the last reset).
    std::atomic<U32> ConnectMode{CM_DOWNLOAD_RESET};
    std::atomic<U32> ResetMode{RM_RESET_HALT};
    /// Capability bytes: 0 background memory access (0 none, 1 yes, 2 emulated), 1 SWO, 2 streaming trace,
    /// 3 trace pins, 4 trace buffer, 5 SWO trace.
    std::atomic<U8> Capabilities[6] = {1, 1, 1, 1, 1, 1};
    /// The program counter as the device knows it; all ones when unknown.
    std::atomic<U64> PC{~0ull};

signals:
    /// The thread ran a batch; for tests and the shutdown wait.
    void BatchDone(int Jobs);

protected:
    void run() override;

private:
    CDevice();
    ~CDevice() override;

    struct RING {
        DEVICE_JOB Slots[RING_SIZE];
        std::atomic<U32> ReadIndex{0};
        U32 WriteIndex = 0;
    };

    /// WaitForJob, and the slot that held the job.
    I64 WaitForJobSlot(U32 Kind, bool ProcessEvents, int TimeoutMs, DEVICE_JOB** Slot);
    /// One turn of a job wait: false when the wait must give up (the thread ended, or the time ran out).
    bool WaitTick(U32 Kind, const QElapsedTimer& Clock, int Limit, bool ProcessEvents,
                  const std::function<bool()>& Ran);
    int RunBatch();
    void CheckHandleHalt();
    /// Device thread: logs a failure as a warning and keeps it as the last error text. Gives -1.
    int Fail(const QString& Text);
    void ClearLastError();
    /// Device thread, during a connection job: whether it was canceled.
    bool IsConnectCanceled() const;
    /// A connection in an attach mode learns the halt state at once, halting the target for
    /// CM_ATTACH_HALT, so that the first register read after it finds the halt known.
    void RecordAttachHalt(U32 Mode);
    /// Halts a running target for a memory access that asks for it; true if it did. The access sees
    /// the target halted until ResumeAfterAccess.
    bool HaltForAccess(U32 Flags);
    void ResumeAfterAccess(bool HaltedForIt);
    /// While connected and halted, the library is asked at least every 500 ms, so that a broken link is
    /// noticed within a second.
    void CheckConnection();
    void CheckHandleNotifications();
    /// Thread start: the library's version, path, devices and optional functions.
    void ReadLibraryFacts();
    /// Installs the device's hooks into the configuration record.
    void HookConfiguration();
    /// The probe's settings before a connection: device, byte order, core, interface, chain and speed.
    int ConfigureProbe();
    /// Keeps the ranges and bytes of a download's writes for the check at its end.
    void RecordDownloadWrites(U32 RangeCount, const U32* Ranges, U32 DataSize, const U8* Data, U32 Written);
    /// Reads back what the download wrote: 0, or -4 on a difference.
    int VerifyDownload();
    void ForgetDownload();
    void RunJob(DEVICE_JOB* Job);
    bool PrepareJob(DEVICE_JOB* Job);
    I64 ExecuteJob(DEVICE_JOB* Job);
    void FinishJob(DEVICE_JOB* Job, I64 Value);
    DEVICE_JOB* NextJob();
    void Wake();
    void CleanUpAtEnd();
    DEVICE_JOB* RingSlot(U32 Queue, U32 Position) { return &m_Rings[Queue].Slots[Position]; }
    const DEVICE_JOB* RingSlot(U32 Queue, U32 Position) const { return &m_Rings[Queue].Slots[Position]; }
    /// Flash writes are bracketed as a download.
    void BeginDownloadBracket();
    void EndDownloadBracket();

    RING m_Rings[3];
    DEVICE_JOB m_EventJobs[RING_SIZE] = {};
    U32 m_EventJobIndex = 0;
    std::mutex m_EventJobLock;
    std::mutex m_ScheduleLock;
    std::atomic<U64> m_JobCounter{0};
    std::atomic<U32> m_LastScheduledKind{0};
    std::atomic<DEVICE_JOB*> m_LastSlotOfKind[JT_LAST] = {};
    std::atomic<U64> m_LastIdOfKind[JT_LAST] = {};
    std::atomic<U8> m_Suppressed[JT_LAST] = {};
    std::atomic<U64> m_PendingConnect{MAILBOX_EMPTY};
    std::atomic<U64> m_PendingReset{MAILBOX_EMPTY};
    std::atomic<U64> m_PendingBPCondition{MAILBOX_EMPTY};
    CDeviceMutex m_DeviceMutex;
    std::mutex m_DoneLock; // wakes a waiter as soon as a job has run
    std::condition_variable m_JobDone;
    std::mutex m_WakeLock;
    std::condition_variable m_WakeUp;
    bool m_WakeFlag = false;
    std::atomic<Qt::HANDLE> m_ThreadId{nullptr};
    std::atomic<const CORE_PLUGIN_API*> m_CoreApi{nullptr};
    U32 m_InstAlign = 2;
    U32 m_PCIndex = 15;
    U8 m_ScratchStatus[5000] = {};
    std::atomic<qint64> m_LastHaltQuery{-1000};
    std::atomic<DEVICE_JOB*> m_RunningJob{nullptr};
    std::atomic<U8> m_AccessHalt{0}; // the target stands for an access that halted it
    bool m_HaltToReport = false;     // a halt that a connection found, reported after its event
    mutable std::mutex m_ErrorLock;
    QString m_LastError;
    bool m_EventsBackedUp = false;

    mutable std::mutex m_FactsLock;
    DEVICE_FACTS m_Facts;
    std::atomic<void*> m_FuncEndian{nullptr};  // optional function 12
    std::atomic<void*> m_FuncBMA{nullptr};     // optional function 10
    std::atomic<void*> m_FuncWebInfo{nullptr}; // optional function 33
    std::atomic<void*> m_FuncCancel{nullptr};  // optional function TARVO_PFUNC_CANCEL_CONNECT
    std::atomic<I32> m_LastDownloadError{0};
    std::atomic<int> m_FlashBPRestores{0};
    // The download in progress (device thread): whether the probe's download is open, the ranges and
    // bytes written, and whether a write fell short.
    bool m_DownloadOpen = false;
    bool m_FlashBPsRemoved = false;
    bool m_DownloadShort = false;
    std::vector<U32> m_DownloadRanges;
    std::vector<U8> m_DownloadData;
};
