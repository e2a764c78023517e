// The device's view of the target: halt state, execution state, the configuration on the device thread,
// and what happens when the connection breaks.

#include "target/Device.h"

#include "app/core/Log.h"
#include "probe/Tarvo.h"
#include "target/DeviceConfig.h"
#include "target/DeviceEvents.h"

#include <QElapsedTimer>

#include <cstring>

namespace {

/// One clock for the halt queries of all threads: the probe is asked at most once in 50 ms.
QElapsedTimer& QueryClock() {
    static QElapsedTimer s_Clock = [] {
        QElapsedTimer T;
        T.start();
        return T;
    }();
    return s_Clock;
}

constexpr qint64 HALT_QUERY_INTERVAL_MS = 50;
/// While halted, the link is checked this often.
constexpr qint64 CONNECTION_CHECK_MS = 500;

} // namespace

bool CDevice::IsTargetHalted() {
    if (!Connected.load()) {
        return false;
    }
    if (Halted.load() || m_AccessHalt.load()) {
        return true;
    }
    return PollTargetHaltStatus(HALT_QUERY_INTERVAL_MS) == 1;
}

int CDevice::PollTargetHaltStatus(qint64 IntervalMs) {
    if (!Connected.load()) {
        return 0;
    }
    const qint64 Now = QueryClock().elapsed();
    qint64 Last = m_LastHaltQuery.load();
    if (Now - Last < IntervalMs) {
        return -2;
    }
    m_LastHaltQuery.store(Now);
    const int State = TARVOARM_IsHalted();
    return State > 1 ? 1 : State;
}

void CDevice::CheckHandleHalt() {
    if (m_HaltToReport) {
        m_HaltToReport = false;
        if (Connected.load() && HaltDone.load() && SessionActive.load()) {
            PostJobEvent(JT_HALT, JS_DONE, 0, PC.load(), HR_NORMAL);
        }
    }
    if (!Connected.load() || ConnectionLost.load() || !WaitForHalt.load()) {
        return;
    }
    const int State = PollTargetHaltStatus(HALT_QUERY_INTERVAL_MS);
    if (State == -2 || State == 0) {
        return;
    }
    if (State < 0) {
        OnInvalidHaltStatus();
        return;
    }
    // The target stands: the halt is reported with the PC where it stopped.
    WaitForHalt = 0;
    Halted = 1;
    InHaltSeq = 1;
    SetTargetExecState(0, 0);
    HaltDone = 1;
    InHaltSeq = 0;
    UserHaltPending = 0;
    if (SessionActive.load()) {
        PostJobEvent(JT_HALT, JS_DONE, 0, PC.load(), HR_NORMAL);
    }
}

void CDevice::OnInvalidHaltStatus() {
    if (!Connected.load()) {
        return;
    }
    LogWarnMsg(QStringLiteral("Invalid connection status received"));
    if (ConnectionLost.exchange(1)) {
        return;
    }
    HaltDone = 0;
    CancelJobs(JT_ANY, JQ_ALL);
    DeviceEvents::PostConnectionLost();
}

bool CDevice::TestConnectionLost() {
    if (!Connected.load()) {
        return false;
    }
    const int State = TARVOARM_IsHalted();
    if (State < 0) {
        OnInvalidHaltStatus();
        return true;
    }
    if (State == 0 && !WaitForHalt.load() && !InHaltSeq.load()) {
        WaitForHalt = 1;
        Halted = 0;
        HaltDone = 0;
        PostJobEvent(JT_CONTINUE, JS_DONE, GO_USER, 0, 0);
    }
    return false;
}

int CDevice::SetTargetExecState(U64 NewPC, U64 NewSP) {
    // The session controller calls this on the GUI thread after a reset or a download.
    QMutexLocker Lock(&m_DeviceMutex);
    if (!Connected.load()) {
        return -1;
    }
    (void)NewSP;
    if (NewPC == 0) {
        U64 Value = 0;
        if (ReadReg(m_PCIndex, &Value) != 0) {
            PC = ~0ull;
            return -1;
        }
        NewPC = Value;
    }
    PC = NewPC;
    return 0;
}

void CDevice::ResetTargetExecState() {
    PC = ~0ull;
}

void CDevice::OnBPConditionEvaluated(U32 Address, bool Verdict) {
    // A true condition stops at the breakpoint; a false one lets the target go on.
    if (Verdict) {
        HaltDone = 1;
        PostJobEvent(JT_HALT, JS_DONE, 0, Address, HR_BREAKPOINT);
    } else if (Connected.load()) {
        Halted = 0;
        HaltDone = 0;
        TARVOARM_GoEx(0, 1);
        WaitForHalt = 1;
    }
}

int CDevice::SetConfigParam(int Param, I32 Value) {
    // The record keeps the speed parameters consistent and, through its listener, refreshes what the
    // device knows of a new device and tells the listeners.
    if (GetDeviceConfig().SetParam(Param, Value) < 0) {
        return -1;
    }
    if ((Param == TIF_SPEED || Param == USE_MAX_SPEED || Param == USE_ADAPTIVE) && Connected.load()) {
        const I32 Speed = GetDeviceConfig().GetParam(TIF_SPEED);
        TARVOARM_SetSpeed(Speed == TIF_SPEED_MAX || Speed == TIF_SPEED_ADAPTIVE
                              ? static_cast<U32>(Speed)
                              : static_cast<U32>(Speed) / 1000);
        UpdateTIFSpeed();
    }
    if (Param == ENDIAN) {
        ApplyDataEndianess(Value);
    }
    return 0;
}

int CDevice::SetConfigParam(int Param, const char* Text) {
    if (GetDeviceConfig().SetText(Param, Text) < 0) {
        return -1;
    }
    if (Param == LOG_FILE) {
        TARVOARM_SetLogFile(Text);
    }
    return 0;
}

int CDevice::ConfigureFromText(const char* Text) {
    if (!Text) {
        return -1;
    }
    return GetDeviceConfig().Configure(QString::fromUtf8(Text)) < 0 ? -1 : 0;
}

int CDevice::ExecTarvoCmd(const char* Command, int AnswerSize, char* Answer, bool LogSuccess) {
    if (!Answer || AnswerSize <= 0) {
        return -1;
    }
    Answer[0] = '\0';
    char Buffer[1024];
    std::strncpy(Buffer, Command ? Command : "", sizeof(Buffer) - 1);
    Buffer[sizeof(Buffer) - 1] = '\0';
    const int Result = TARVOARM_ExecCommand(Buffer, Answer, AnswerSize);
    if (Answer[0] != '\0') {
        LogErrorMsg(QStringLiteral("Error executing Tarvo command \"%1\": %2")
                        .arg(QString::fromUtf8(Buffer), QString::fromUtf8(Answer)));
        return Result;
    }
    if (LogSuccess) {
        LogInfoMsg(QStringLiteral("Executed Tarvo command \"%1\"").arg(QString::fromUtf8(Buffer)));
    }
    return 0;
}

void CDevice::CleanUpAtEnd() {
    // The thread ends: the connection closes as a disconnection does.
    Disconnect();
    ResetState();
}

void CDevice::CheckConnection() {
    if (!Connected.load() || ConnectionLost.load() || WaitForHalt.load()) {
        return;
    }
    // -2 only says that it is too early to ask again.
    const int State = PollTargetHaltStatus(CONNECTION_CHECK_MS);
    if (State < 0 && State != -2) {
        OnInvalidHaltStatus();
    }
}
