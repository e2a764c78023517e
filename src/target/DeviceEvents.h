#pragma once

#include "app/core/Types.h"
#include "target/DeviceTypes.h"

#include <QTimer>

struct ELF_SYM_LOC;
struct WP;
struct TP;

/// Kinds of device events.
enum DEVICE_EVENT_KINDS : U32 {
    DE_NONE = 0,
    DE_JOB,
    DE_EVAL_BP_CONDITION,
    DE_CONFIG_PARAM_CHANGED,
    DE_HW_CAPABILITY_CHANGED,
    DE_CONNECTION_LOST,
    DE_ABOUT_TO_DISCONNECT,
    DE_ABOUT_TO_RESUME,
    DE_ABOUT_TO_STEP,
    DE_ENDIANESS_CHANGED,
    DE_LOG_MSG,
    DE_STATUS_MSG,
    DE_PROGRESS_MSG,
    DE_START_PROGRESS,
    DE_END_PROGRESS,
    DE_PROGRESS_VALUE,
};

/// One slot of the event ring; a kind of 0 is a free slot.
struct DEVICE_EVENT {
    U32 Kind;
    U64 A;
    U64 B;
};

/// Everything that hears from the device: windows, dialogs, the data caches. Listeners register in their
/// constructor and leave in their destructor; all operations run on the GUI thread (or on a thread that
/// waits for a job event in a script). Every operation but OnDeviceJobDone does nothing by default.
class CDeviceEventListener {
public:
    CDeviceEventListener();
    virtual ~CDeviceEventListener();
    CDeviceEventListener(const CDeviceEventListener&) = delete;
    CDeviceEventListener& operator=(const CDeviceEventListener&) = delete;

    /// Sends a finished job to the ...Done or ...Failed operation of its kind, with the follow-ups.
    virtual void OnDeviceJobDone(DEVICE_JOB* Job);

    virtual void OnDeviceConnectDone(CONNECT_MODES) {}
    virtual void OnDeviceConnectFailed(CONNECT_MODES) {}
    virtual void OnDeviceDisconnectDone() {}
    virtual void OnDeviceDisconnectFailed() {}
    virtual void OnDeviceResumeDone(RESUME_MODES) {}
    virtual void OnDeviceResumeFailed(RESUME_MODES) {}
    virtual void OnDeviceHaltDone(U32 /*PC*/, HALT_REASONS) {}
    virtual void OnDeviceHaltFailed() {}
    virtual void OnDeviceResetDone(U32 /*PC*/, RESET_MODES) {}
    virtual void OnDeviceResetFailed(U32 /*PC*/, RESET_MODES) {}
    virtual void OnDeviceRunToSymbolDone(U32 /*PC*/) {}
    virtual void OnDeviceRunToSymbolFailed(U32 /*PC*/) {}
    virtual void OnDeviceStepInstDone(U32 /*PC*/) {}
    virtual void OnDeviceStepInstFailed(U32 /*PC*/) {}
    virtual void OnDeviceStepIntoDone(U32 /*PC*/) {}
    virtual void OnDeviceStepIntoFailed(U32 /*PC*/) {}
    virtual void OnDeviceStepOverDone(U32 /*PC*/) {}
    virtual void OnDeviceStepOverFailed(U32 /*PC*/) {}
    virtual void OnDeviceStepOutDone(U32 /*PC*/) {}
    virtual void OnDeviceStepOutFailed(U32 /*PC*/) {}
    virtual void OnDeviceStepped(U32 /*PC*/) {}
    virtual void OnDeviceEndDownloadDone(const char* /*File*/, DOWNLOAD_MODES) {}
    virtual void OnDeviceEndDownloadFailed(const char* /*File*/, DOWNLOAD_MODES, int /*Error*/) {}
    virtual void OnDeviceReadMemDone(U32 /*Addr*/, U32 /*Count*/, const char* /*Zone*/, const U8* /*Data*/,
                                     const U8* /*Status*/) {}
    virtual void OnDeviceReadMemFailed(U32 /*Addr*/, U32 /*Count*/, const char* /*Zone*/) {}
    virtual void OnDeviceWriteMemDone(U32 /*Addr*/, U32 /*Count*/, const U8* /*Data*/) {}
    virtual void OnDeviceWriteMemFailed(U32 /*Addr*/, U32 /*Count*/, const U8* /*Data*/) {}
    virtual void OnDeviceWriteMemMultipleDone(U32 /*Ranges*/, const U32* /*RangeList*/, const U8* /*Data*/) {}
    virtual void OnDeviceWriteMemMultipleFailed(U32 /*Ranges*/, const U32* /*RangeList*/,
                                                const U8* /*Data*/) {}
    virtual void OnDeviceReadRegDone(U32 /*Index*/, U64 /*Value*/) {}
    virtual void OnDeviceReadRegFailed(U32 /*Index*/) {}
    virtual void OnDeviceReadCPRegDone(const char* /*Id*/, U64 /*Value*/) {}
    virtual void OnDeviceReadCPRegFailed(const char* /*Id*/) {}
    virtual void OnDeviceWriteRegDone(U32 /*Index*/, U64 /*Value*/) {}
    virtual void OnDeviceWriteRegFailed(U32 /*Index*/) {}
    virtual void OnDeviceWriteCPRegDone(const char* /*Id*/, U64 /*Value*/) {}
    virtual void OnDeviceWriteCPRegFailed(const char* /*Id*/) {}
    virtual void OnDeviceReadRegsDone(U32 /*Count*/, const U32* /*Indices*/, const U64* /*Values*/,
                                      const U8* /*Status*/) {}
    virtual void OnDeviceReadRegsFailed(U32 /*Count*/, const U32* /*Indices*/) {}
    virtual void OnDeviceReadLocDone(const ELF_SYM_LOC*, U32, const char*, U8*) {}
    virtual void OnDeviceReadLocFailed(const ELF_SYM_LOC*, U32, const char*, U8*) {}
    virtual void OnDeviceReadLocsDone(U32 /*Count*/, const ELF_SYM_LOC*, const U64* /*Values*/,
                                      const U8* /*Status*/, U64 /*Tag*/) {}
    virtual void OnDeviceReadLocsFailed(U32 /*Count*/, const ELF_SYM_LOC*, U64 /*Tag*/) {}
    virtual void OnDeviceEnableInstTraceDone() {}
    virtual void OnDeviceEnableInstTraceFailed() {}
    virtual void OnDeviceDisableInstTraceDone() {}
    virtual void OnDeviceDisableInstTraceFailed() {}
    virtual void OnDeviceStartInstTraceDone() {}
    virtual void OnDeviceStartInstTraceFailed() {}
    virtual void OnDeviceStopInstTraceDone() {}
    virtual void OnDeviceStopInstTraceFailed() {}
    virtual void OnDeviceFlushInstTraceDone() {}
    virtual void OnDeviceFlushInstTraceFailed() {}
    virtual void OnDeviceReadInstStatsDone(U32, const U32*, U64, U64, U64, const U64*, const U64*) {}
    virtual void OnDeviceReadInstStatsFailed(U32, const U32*) {}
    virtual void OnDeviceReadInstTraceDone(U32, U64, U64, U64, const U32*, const void*, U64) {}
    virtual void OnDeviceReadInstTraceFailed(U32) {}
    virtual void OnDeviceStartSWOTraceDone(U32, U32, U32) {}
    virtual void OnDeviceStartSWOTraceFailed(U32, U32, U32) {}
    virtual void OnDeviceStopSWOTraceDone(U32) {}
    virtual void OnDeviceStopSWOTraceFailed(U32) {}
    virtual void OnDeviceReadSWOTraceDone(U32, U32, U64, const U8*) {}
    virtual void OnDeviceReadSWOTraceFailed(U32, U32) {}
    virtual void OnDeviceSWOGetCompatSpeedsDone(U32, U32, const U32*) {}
    virtual void OnDeviceSWOGetCompatSpeedsFailed(U32, U32, const U32*) {}
    virtual void OnDeviceStartHSSDone(U32, const U32*, U32, U32) {}
    virtual void OnDeviceStartHSSFailed(U32, const U32*, U32, U32) {}
    virtual void OnDeviceStopHSSDone() {}
    virtual void OnDeviceStopHSSFailed() {}
    virtual void OnDeviceReadHSSDone(U32, U64, const U8*) {}
    virtual void OnDeviceReadHSSFailed(U32) {}
    virtual void OnDeviceStartPowerTraceDone(U32, U64, U32, U32) {}
    virtual void OnDeviceStartPowerTraceFailed(U32, U32, U32, U32) {}
    virtual void OnDeviceStopPowerTraceDone() {}
    virtual void OnDeviceStopPowerTraceFailed() {}
    virtual void OnDeviceReadPowerTraceDone(U32, U64, const U64*) {}
    virtual void OnDeviceReadPowerTraceFailed(U32) {}
    virtual void OnDeviceFlushPowerTraceDone() {}
    virtual void OnDeviceFlushPowerTraceFailed() {}
    virtual void OnDeviceStartMCTDone() {}
    virtual void OnDeviceStartMCTFailed() {}
    virtual void OnDeviceStopMCTDone() {}
    virtual void OnDeviceStopMCTFailed() {}
    virtual void OnDeviceWriteMCTDone(U32, U32, const U8*) {}
    virtual void OnDeviceWriteMCTFailed(U32, U32, U64, const U8*) {}
    virtual void OnDeviceReadMCTDone(U32, U32, U64, const U8*) {}
    virtual void OnDeviceReadMCTFailed(U32, U32) {}
    virtual void OnDeviceSetSHInputTextDone(U32, const char*) {}
    virtual void OnDeviceSetSHInputTextFailed(U32, const char*) {}
    virtual void OnDeviceSetBPDone(U32) {}
    virtual void OnDeviceSetBPFailed(U32) {}
    virtual void OnDeviceSetBPsDone(U32, const U32*) {}
    virtual void OnDeviceSetBPsFailed(U32, const U32*) {}
    virtual void OnDeviceClearBPDone(U32) {}
    virtual void OnDeviceClearBPFailed(U32) {}
    virtual void OnDeviceClearBPsDone(U32, const U32*) {}
    virtual void OnDeviceClearBPsFailed(U32, const U32*) {}
    virtual void OnDeviceClearAllBPsDone() {}
    virtual void OnDeviceClearAllBPsFailed() {}
    virtual void OnDeviceResetBPsDone() {}
    virtual void OnDeviceResetBPsFailed() {}
    virtual void OnDeviceSetWPsDone(U32, const WP*) {}
    virtual void OnDeviceSetWPsFailed(U32, const WP*) {}
    virtual void OnDeviceClearWPsDone(U32, const WP*) {}
    virtual void OnDeviceClearWPsFailed(U32, const WP*) {}
    virtual void OnDeviceClearAllWPsDone() {}
    virtual void OnDeviceClearAllWPsFailed() {}
    virtual void OnDeviceConfigureDone(const char*) {}
    virtual void OnDeviceConfigureFailed(const char*) {}
    virtual void OnDeviceSetConfigParamDone(int, const char*) {}
    virtual void OnDeviceSetConfigParamDone(int, int) {}
    virtual void OnDeviceSetConfigParamFailed(int, const char*) {}
    virtual void OnDeviceSetConfigParamFailed(int, int) {}
    virtual void OnDeviceExecTarvoCmdDone(const char*) {}
    virtual void OnDeviceExecTarvoCmdFailed(const char*, const char*) {}
    virtual void OnDeviceSetTargetExecStateDone(U64, U64) {}
    virtual void OnDeviceSetTargetExecStateFailed(U64, U64) {}
    virtual void OnDeviceResetTargetExecStateDone() {}
    virtual void OnDeviceResetTargetExecStateFailed() {}
    virtual void OnDeviceGetDeviceInfoDone(const char*, U64) {}
    virtual void OnDeviceGetDeviceInfoFailed(const char*) {}
    virtual void OnDeviceMeasureCoreSpeedDone(U64) {}
    virtual void OnDeviceMeasureCoreSpeedFailed() {}
    virtual void OnDeviceEvalBPCondition(U32) {}
    virtual void OnDeviceConfigParamChanged(int, int) {}
    virtual void OnDeviceHWCapabilityChanged(int, int) {}
    virtual void OnDeviceConnectionLost() {}
    virtual void OnDeviceAboutToDisconnect() {}
    virtual void OnDeviceAboutToStep() {}
    virtual void OnDeviceAboutToResume(RESUME_MODES) {}
    virtual void OnDeviceCPUModeChanged(U32) {}
    virtual void OnDeviceExecModeChanged(U32) {}
    virtual void OnDeviceEndianessChanged(int, int) {}
    virtual void OnDeviceLogMsg(const char*, U32 /*MSG_FLAGS*/) {}
    virtual void OnDeviceSetStatusMsg(const char*) {}
    virtual void OnDeviceSetProgressMsg(const char*) {}
    virtual void OnDeviceStartProgress(int, int) {}
    virtual void OnDeviceEndProgress() {}
    virtual void OnDeviceSetProgressValue(int) {}
    virtual void OnDeviceWPStateChanged() {}
    virtual void OnDeviceBPStateChanged() {}
    virtual void OnDeviceTPStateChanged() {}
    virtual void OnDeviceWriteAccess() {}
};

/// The device's answers on the GUI thread: a single-shot 1 ms timer that empties the event ring ten
/// events per tick. Owned by the main window.
class CDeviceEventWorker : public QTimer {
    Q_OBJECT

public:
    explicit CDeviceEventWorker(QObject* Parent = nullptr);
    ~CDeviceEventWorker() override;

protected:
    void timerEvent(QTimerEvent* Event) override;
};

/// The event ring: any thread pushes, the GUI thread pops and delivers.
namespace DeviceEvents {

constexpr U32 RING_SIZE = 10000;
constexpr U32 POOL_SIZE = 1000;
constexpr U32 POOL_TEXT = 1000;

/// 0, or -1 when the ring is full.
int PushDeviceEvent(U32 Kind, U64 A, U64 B);
/// The oldest event, or an all-zero one.
DEVICE_EVENT PopDeviceEvent();
/// Delivers one event to the listeners; a job event also releases the job.
void DispatchDeviceEvent(const DEVICE_EVENT& Event);
/// Pops and delivers up to Max events; stops after the job event whose Id plus one is StopAfter (if not
/// 0), and tells through Found whether it came.
int DeliverDeviceEvents(int Max, U64 StopAfter = 0, bool* Found = nullptr);
/// Zeroes the ring's indices and counters (start-up).
void ResetRing();
U64 PushedCount();
U64 PoppedCount();
/// Slots of the ring that are free now.
U32 FreeCount();

/// The text of a message pool slot.
const char* PoolText(U64 Slot);

// The device side: each raises one kind of event.
void PostDeviceJob(DEVICE_JOB* Job);
void PostEvalBPCondition(U32 Address);
void PostConfigParamChanged(int Param, int Value);
void PostHWCapabilityChanged(int Index, int Value);
void PostConnectionLost();
void PostAboutToDisconnect();
void PostAboutToResume(RESUME_MODES Mode);
void PostAboutToStep();
void PostEndianessChanged(int OldData, int OldInstruction);
void PostLogMsg(const char* Text, U32 Flags);
void PostStatusMsg(const char* Text);
void PostProgressMsg(const char* Text);
void PostStartProgress(int Min, int Max);
void PostEndProgress();
void PostProgressValue(int Value);

/// Asks the core plug-in for the CPU and execution modes after a job that may change them; set by the
/// layer that holds the plug-in. Returns false when the mode could not be read.
void SetModeReaders(bool (*CpuMode)(U32*), bool (*ExecMode)(U32*));

/// The listener that alone hears the answers of read jobs (the data cache).
void SetDataManager(CDeviceEventListener* Manager);

} // namespace DeviceEvents
