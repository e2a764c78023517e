// Opening, resetting and closing the connection on the device thread: the host link, the probe's
// settings, the connection itself, the reset sequence and the target's power.

#include "target/Device.h"

#include "app/core/Log.h"
#include "app/core/SysVars.h"
#include "probe/Tarvo.h"
#include "target/DeviceConfig.h"
#include "target/DeviceEvents.h"

#include <QThread>

#include <cstring>

namespace {

// The library's three text callbacks: any thread, at any time.
void ProbeInfoText(const char* Text) {
    if (Text) {
        LogMessage(QString::fromUtf8(Text), MSG_INFO | MSG_TO_ALL | MSG_FROM_PROBE);
    }
}
void ProbeErrorText(const char* Text) {
    if (Text) {
        LogMessage(QString::fromUtf8(Text), MSG_ERROR | MSG_TO_ALL | MSG_FROM_PROBE);
    }
}
void ProbeWarnText(const char* Text) {
    if (Text) {
        LogMessage(QString::fromUtf8(Text), MSG_WARNING | MSG_TO_STDOUT | MSG_TO_LOGFILE | MSG_FROM_PROBE);
    }
}

/// The speed as the probe takes it: kHz, with 0 (maximum) and 65535 (adaptive) as they are.
U32 SpeedForProbe(const CDeviceConfig& Config) {
    if (Config.GetParam(USE_MAX_SPEED)) {
        return 0;
    }
    if (Config.GetParam(USE_ADAPTIVE)) {
        return 65535;
    }
    return static_cast<U32>(Config.GetParam(TIF_SPEED)) / 1000;
}

/// The firmware text up to the word "compiled".
QString FirmwareText() {
    char Buffer[512] = {};
    TARVOARM_GetFirmwareString(Buffer, sizeof(Buffer));
    QString Text = QString::fromUtf8(Buffer);
    const qsizetype Cut = Text.indexOf(QLatin1String("compiled"));
    if (Cut >= 0) {
        Text.truncate(Cut);
    }
    return Text.trimmed();
}

} // namespace

int CDevice::SelectHostIF() {
    const CDeviceConfig& Config = GetDeviceConfig();
    switch (Config.GetParam(HOST_IF)) {
    case HOST_IF_IP: {
        const QByteArray Host = Config.GetText(HOST_NAME).toUtf8();
        if (TARVOARM_SelectIP(Host.constData(), 0) == 1) {
            return Fail(QStringLiteral("Connect: error during configuration of IP interface"));
        }
        return 0;
    }
    case HOST_IF_USB: {
        const U32 Serial = static_cast<U32>(Config.GetParam(USB_SERIAL_NO));
        // A serial number of 0 stands for the first probe, whatever the switch says.
        const int Result = Config.GetParam(USE_SERIAL_NO) && Serial > 0 ? TARVOARM_EMU_SelectByUSBSN(Serial)
                                                                        : TARVOARM_SelectUSB(0);
        if (Result < 0) {
            return Fail(QStringLiteral("Connect: serial number not found on usb"));
        }
        return 0;
    }
    default:
        return Fail(QStringLiteral("Connect: unknown host interface"));
    }
}

int CDevice::ConfigureProbe() {
    const CDeviceConfig& Config = GetDeviceConfig();
    const QByteArray Command = QByteArrayLiteral("device=") + Config.GetText(DEVICE_NAME).toUtf8();
    char Answer[2049] = {};
    TARVOARM_ExecCommand(Command.constData(), Answer, sizeof(Answer));
    if (Answer[0] != '\0') {
        // The library's reason says more than the general failure below.
        return Fail(QString::fromUtf8(Answer));
    }
    TARVOARM_SetEndian(Config.GetParam(ENDIAN));
    TARVOARM_SetCoreIndex(static_cast<U32>(Config.GetParam(CORE_INDEX)));
    TARVOARM_TIF_Select(Config.GetParam(TARGET_IF));
    if (Config.GetParam(MULTIPLE_TARGETS)) {
        TARVOARM_ConfigJTAG(Config.GetParam(IR_PRE), Config.GetParam(DR_PRE));
    }
    TARVOARM_SetSpeed(SpeedForProbe(Config));
    return 0;
}

int CDevice::ConnectSimple() {
    ARNEX_CHECK_DEVICE_THREAD();
    ResetState();
    ClearLastError();
    // The callbacks come first: the library says why it refuses a host interface (a bad port).
    TARVOARM_EnableLog(&ProbeInfoText);
    TARVOARM_SetErrorOutHandler(&ProbeErrorText);
    TARVOARM_SetWarnOutHandler(&ProbeWarnText);
    if (SelectHostIF() < 0) {
        return -1;
    }

    LogDebugMsg(QStringLiteral("Opening connection to Tarvo..."));
    if (const char* Error = TARVOARM_Open()) {
        return Fail(QStringLiteral("Open: TARVO API call failed with error message: %1")
                        .arg(QString::fromUtf8(Error)));
    }
    const CDeviceConfig& Config = GetDeviceConfig();
    if (Config.GetParam(DEVICE_INDEX) == -1) {
        SetSuppressDeviceSelectionDialog(true);
    }
    if (SysVars::GetVarValue(VAR_TARGET_POWER_ON) != 0) {
        TurnOnTargetPower();
        QThread::msleep(500);
    }
    {
        const U32 Serial = TARVOARM_GetSN();
        const QString Firmware = FirmwareText();
        const int Count = TARVOARM_DEVICE_GetInfo(-1, nullptr);
        std::lock_guard<std::mutex> Guard(m_FactsLock);
        m_Facts.SerialNo = Serial;
        m_Facts.Firmware = Firmware;
        m_Facts.DeviceCount = Count;
    }
    UpdateTarvoFuncPtrs();
    UpdateTarvoWebserverURL();
    const QByteArray Script = Config.GetText(SCRIPT_FILE).toUtf8();
    if (!Script.isEmpty()) {
        // A failing script doesn't stop the connection.
        ExecTarvoScript(Script.constData());
    }

    LogDebugMsg(QStringLiteral("Configuring hardware..."));
    if (ConfigureProbe() < 0) {
        // The library's answer was the first reason and stays the one the Console shows.
        LogWarnMsg(QStringLiteral("Connect: could not configure Tarvo"));
        TARVOARM_Close();
        return -1;
    }
    // A canceled connection stops between its tries; the library ends a try under way itself.
    const auto Try = [this]() {
        return !IsConnectCanceled() && TARVOARM_Connect() == 0 && TARVOARM_IsConnected() ? 1 : 0;
    };
    Connected = Try();
    if (!Connected.load() && !IsConnectCanceled()) {
        LogDebugMsg(QStringLiteral("Connecting to target..."));
        Connected = Try();
    }
    if (IsConnectCanceled()) {
        LogDebugMsg(QStringLiteral("Connect: canceled"));
        ResetState();
        TARVOARM_Close();
        return -2;
    }
    if (!Connected.load()) {
        Fail(QStringLiteral("Connect: TARVO API call failed"));
        TARVOARM_Close();
        return -1;
    }
    UpdateTIFSpeed();
    UpdateHWCapabilityFlags();
    UpdateEndianess();
    UpdateMemZones();
    WaitForHalt = 1;
    return 0;
}

int CDevice::Connect(U32 Mode) {
    ARNEX_CHECK_DEVICE_THREAD();
    if (Mode != CM_SILENT) {
        Disconnect();
    }
    // -2, a canceled connection, ends the job without an event: the canceling side has ended its
    // sequence already.
    const int Result = ConnectSimple();
    if (Result < 0) {
        return Result == -2 ? -2 : -1;
    }
    if (Mode != CM_SILENT) {
        FinishConnect(Mode);
    }
    return 0;
}

bool CDevice::IsConnectCanceled() const {
    if (StopRequested.load()) {
        return true;
    }
    const DEVICE_JOB* Job = m_RunningJob.load();
    return Job && std::atomic_ref<U32>(const_cast<DEVICE_JOB*>(Job)->Type).load() == JT_CONNECT &&
           !(std::atomic_ref<U32>(const_cast<DEVICE_JOB*>(Job)->Flags).load() & JOB_FLAG_PENDING);
}

bool CDevice::IsConnecting() const {
    if (IsJobPending(JT_CONNECT)) {
        return true;
    }
    // The job that runs has left the queued part of its ring.
    DEVICE_JOB* Job = m_RunningJob.load();
    return Job && std::atomic_ref<U32>(Job->Type).load() == JT_CONNECT &&
           (std::atomic_ref<U32>(Job->Flags).load() & JOB_FLAG_PENDING);
}

bool CDevice::CancelConnect() {
    if (!IsConnecting()) {
        return false;
    }
    // Clears the pending bit of a running job as well, which is how the job learns of the cancel.
    CancelJobs(JT_CONNECT, JQ_COMMAND);
    if (auto Cancel = reinterpret_cast<void (*)()>(m_FuncCancel.load())) {
        Cancel();
    }
    return true;
}

int CDevice::Fail(const QString& Text) {
    LogWarnMsg(Text);
    std::lock_guard<std::mutex> Guard(m_ErrorLock);
    m_LastError = Text;
    return -1;
}

void CDevice::ClearLastError() {
    std::lock_guard<std::mutex> Guard(m_ErrorLock);
    m_LastError.clear();
}

QString CDevice::LastErrorText() const {
    std::lock_guard<std::mutex> Guard(m_ErrorLock);
    return m_LastError;
}

void CDevice::RecordAttachHalt(U32 Mode) {
    if (!Connected.load() || (Mode != CM_ATTACH && Mode != CM_ATTACH_HALT)) {
        return;
    }
    if (Mode == CM_ATTACH_HALT) {
        TARVOARM_Halt();
    }
    if (TARVOARM_IsHalted() < 1) {
        return; // running: the polls of the device loop follow it; a broken link shows there too
    }
    WaitForHalt = 0;
    Halted = 1;
    SetTargetExecState(0, 0);
    HaltDone = 1;
    UserHaltPending = 0;
    // The halt event follows the connection's own.
    m_HaltToReport = true;
}

int CDevice::FinishConnect(U32 Mode) {
    ARNEX_CHECK_DEVICE_THREAD();
    Connected = 0;
    ConnectionLost = 0;
    SrcStepActive = 0;
    if (!TARVOARM_IsOpen()) {
        return 0;
    }
    Connected = TARVOARM_IsConnected() ? 1 : 0;
    if (Mode == CM_ATTACH || Mode == CM_ATTACH_HALT) {
        SessionActive = 1;
    } else if (Mode == CM_DOWNLOAD_RESET) {
        SessionActive = 0;
    }
    ConnectMode = Mode;
    TARVOARM_EnableSoftBPs(1);
    ApplyDataEndianess(GetDeviceConfig().GetParam(ENDIAN));
    RecordAttachHalt(Mode);
    return 0;
}

int CDevice::Disconnect() {
    ARNEX_CHECK_DEVICE_THREAD();
    if (!Connected.load()) {
        return 0;
    }
    if (MCTStarted.load()) {
        TARVO_MCTERMINAL_Control(1, nullptr);
    }
    if (HSSStarted.load()) {
        TARVO_HSS_Stop();
    }
    if (SWOStarted.load()) {
        TARVOARM_SWO_DisableTarget(0xFFFFFFFFu);
    }
    if (InstTraceStarted.load()) {
        TARVO_STRACE_Stop();
    }
    if (!ConnectionLost.load()) {
        TARVOARM_ClrBPEx(-1);
        TARVOARM_ClrDataEvent(-1);
    }
    ForgetDownload();
    ResetState();
    TARVOARM_Close();
    return 0;
}

void CDevice::ResetState() {
    Connected = 0;
    ConnectionLost = 0;
    Halted = 0;
    HaltDone = 0;
    ResetSeqDone = 0;
    InHaltSeq = 0;
    SessionActive = 0;
    SrcStepActive = 0;
    InstTraceStarted = 0;
    SWOStarted = 0;
    MCTStarted = 0;
    HSSStarted = 0;
    UserHaltPending = 0;
    m_AccessHalt = 0;
    m_HaltToReport = false;
    ResetMode = RM_RESET_HALT;
    m_LastDownloadError = 0;
    WaitForHalt = 1;
    PC = ~0ull;
}

int CDevice::ResetHardware() {
    ARNEX_CHECK_DEVICE_THREAD();
    TARVOARM_SetResetType(0);
    TARVOARM_SetResetDelay(0);
    TARVOARM_Halt();
    if (TARVOARM_Reset() != 0) {
        LogWarnMsg(QStringLiteral("Reset: TARVO API call failed"));
        return -1;
    }
    if (TARVOARM_IsHalted() >= 1) {
        return 0;
    }
    LogWarnMsg(QStringLiteral("Reset: target did not halt following reset"));
    TARVOARM_Halt();
    return 0;
}

int CDevice::Reset(U32 Mode) {
    ARNEX_CHECK_DEVICE_THREAD();
    if (!Connected.load()) {
        LogDebugMsg(QStringLiteral("Reset: not connected"));
        return -1;
    }
    if (Mode == RM_HARDWARE) {
        return ResetHardware();
    }
    ResetMode = Mode;
    ResetSeqDone = 0;
    LogDebugMsg(QStringLiteral("Resetting target..."));
    if (ResetHardware() < 0) {
        return -1;
    }
    return FinishReset(Mode);
}

int CDevice::FinishReset(U32 Mode) {
    ARNEX_CHECK_DEVICE_THREAD();
    // A hidden breakpoint of a run-to or a step doesn't survive a reset; the breakpoint engine clears it
    // here once it exists.
    Halted = 1;
    HaltDone = 1;
    WaitForHalt = 0;
    ResetSeqDone = Mode == RM_RESET_HALT ? 1 : 0;
    SetTargetExecState(0, 0);
    return 0;
}

bool CDevice::TurnOnTargetPower() {
    char Answer[513] = {};
    return ExecTarvoCmd("SupplyPower=1", sizeof(Answer), Answer, false) != 0;
}

void CDevice::TurnOffTargetPower() {
    char Answer[513] = {};
    ExecTarvoCmd("SupplyPower=0", sizeof(Answer), Answer, false);
}

int CDevice::ExecTarvoScript(const char* Path) {
    LogDebugMsg(QStringLiteral("Executing Tarvo Script"));
    const QByteArray Command = QByteArrayLiteral("ScriptFile=") + QByteArray(Path ? Path : "");
    char Answer[1025] = {};
    return ExecTarvoCmd(Command.constData(), sizeof(Answer), Answer, true);
}

void CDevice::SetSuppressDeviceSelectionDialog(bool Suppress) {
    char Answer[513] = {};
    ExecTarvoCmd(Suppress ? "HideDeviceSelection=1" : "HideDeviceSelection=0", sizeof(Answer), Answer, false);
}
