// The device in the main window: its start, its messages, and the Target commands for memory and
// registers.

#include "app/MainWindow.h"

#include "analysis/CoreBinding.h"
#include "app/StatusBar.h"
#include "app/core/CommandTable.h"
#include "app/core/Log.h"
#include "app/core/Numbers.h"
#include "app/core/ScriptConstants.h"
#include "app/core/SysVars.h"
#include "probe/Tarvo.h"
#include "target/Device.h"
#include "target/DeviceConfig.h"
#include "target/DeviceScriptWaits.h"

#include <QtEndian>

#include <vector>

namespace {

constexpr U32 FILL_LIMIT = 64u * 1024u * 1024u;

/// The variables whose value the device configuration holds: the interface speed and the scan chain.
I64 DeviceConfigValue(I32 Id) {
    switch (Id) {
    case VAR_TIF_SPEED:
        return GetDeviceConfig().GetParam(TIF_SPEED);
    case VAR_TIF_SCAN_CHAIN_POS:
        return GetDeviceConfig().GetParam(DR_PRE);
    case VAR_TIF_SCAN_CHAIN_LEN:
        return GetDeviceConfig().GetParam(IR_PRE);
    default:
        return 0;
    }
}

void SetDeviceConfigValue(I32 Id, I64 Value) {
    const int Param = Id == VAR_TIF_SPEED ? TIF_SPEED : Id == VAR_TIF_SCAN_CHAIN_POS ? DR_PRE : IR_PRE;
    // The record takes the value at once, so that it reads back; the job tells a connected probe.
    GetDeviceConfig().SetParam(Param, static_cast<I32>(Value));
    CDevice::Instance()->ScheduleSetConfigParam(Param, static_cast<I32>(Value));
}

/// Core register names of the ARM cores, by the index the probe library and the plug-in take.
I32 RegisterIndexOf(const QString& Name) {
    const QString N = Name.trimmed().toUpper();
    static const struct {
        const char* Name;
        I32 Index;
    } Names[] = {{"SP", TARVO_REG_SP},
                 {"R13", TARVO_REG_SP},
                 {"LR", TARVO_REG_LR},
                 {"R14", TARVO_REG_LR},
                 {"PC", TARVO_REG_PC},
                 {"R15", TARVO_REG_PC},
                 {"XPSR", TARVO_REG_XPSR},
                 {"PSR", TARVO_REG_XPSR},
                 {"MSP", TARVO_REG_MSP},
                 {"PSP", TARVO_REG_PSP},
                 {"PRIMASK", TARVO_REG_PRIMASK},
                 {"BASEPRI", TARVO_REG_BASEPRI},
                 {"FAULTMASK", TARVO_REG_FAULTMASK},
                 {"CONTROL", TARVO_REG_CONTROL},
                 {"FPSCR", TARVO_REG_FPSCR}};
    for (const auto& E : Names) {
        if (N == QLatin1String(E.Name)) {
            return E.Index;
        }
    }
    bool Ok = false;
    if (N.startsWith(QLatin1Char('R'))) {
        const int R = N.mid(1).toInt(&Ok);
        if (Ok && R >= 0 && R <= 12) {
            return TARVO_REG_R0 + R;
        }
    }
    if (N.startsWith(QLatin1Char('S'))) {
        const int S = N.mid(1).toInt(&Ok);
        if (Ok && S >= 0 && S <= 31) {
            return TARVO_REG_S0 + S;
        }
    }
    return -1;
}

/// The plug-in's own index of a register; the identity without a plug-in that maps.
U32 PluginIndex(I32 Logical) {
    const CORE_PLUGIN_API* Api = CDevice::Instance()->CorePlugin();
    return Api && Api->MapRegIndex ? Api->MapRegIndex(static_cast<U32>(Logical)) : static_cast<U32>(Logical);
}

bool ParseValue(const QString& Text, I64& Value) {
    if (const SCRIPT_CONST* C = ScriptConstants::Lookup(Text)) {
        Value = C->Value;
        return true;
    }
    return Numbers::ParseInteger(Text, Value);
}

/// Bytes of a value as the target keeps them.
std::vector<U8> TargetBytes(U64 Value, U32 Size) {
    const bool Big = GetDeviceConfig().GetParam(ENDIAN) != 0;
    std::vector<U8> Bytes(Size);
    for (U32 i = 0; i < Size; ++i) {
        Bytes[Big ? Size - 1 - i : i] = static_cast<U8>(Value >> (8 * i));
    }
    return Bytes;
}

U64 ValueOf(const U8* Bytes, U32 Size) {
    const bool Big = GetDeviceConfig().GetParam(ENDIAN) != 0;
    U64 Value = 0;
    for (U32 i = 0; i < Size; ++i) {
        Value |= static_cast<U64>(Bytes[Big ? Size - 1 - i : i]) << (8 * i);
    }
    return Value;
}

QString Hex(U64 Value, int Digits) {
    return QStringLiteral("0x") +
           QString::number(Value, 16).rightJustified(Digits, QLatin1Char('0')).toUpper();
}

} // namespace

void CMainWindow::ConnectDevice() {
    CDevice::Instance();
    InstallDeviceScriptWaits();
    CoreBinding::InstallServices();
    SysVars::SetDeviceConfigAccess(DeviceConfigValue, SetDeviceConfigValue);
}

void CMainWindow::OnDeviceLogMsg(const char* Text, U32 Flags) {
    LogMessage(QString::fromUtf8(Text), Flags);
}
void CMainWindow::OnDeviceSetStatusMsg(const char* Text) {
    m_StatusBar->SetStatusMessage(QString::fromUtf8(Text));
}
void CMainWindow::OnDeviceSetProgressMsg(const char* Text) {
    m_StatusBar->SetProgressMessage(QString::fromUtf8(Text));
}
void CMainWindow::OnDeviceStartProgress(int Min, int Max) {
    m_StatusBar->StartProgress(Min, Max);
}
void CMainWindow::OnDeviceEndProgress() {
    m_StatusBar->EndProgress();
}
void CMainWindow::OnDeviceSetProgressValue(int Value) {
    m_StatusBar->SetProgressValue(Value);
}

bool CMainWindow::CheckMemoryAccess(U32 Id) {
    CDevice* D = CDevice::Instance();
    if (!D->isRunning()) {
        Commands::SetCommandDone(Id);
        return false;
    }
    if (!D->Connected.load()) {
        Commands::SetCommandError(Id, QStringLiteral("cannot access target memory: target not connected"));
        return false;
    }
    if (D->ConnectionLost.load()) {
        Commands::SetCommandError(Id, QStringLiteral("cannot access target memory: connection lost"));
        return false;
    }
    if (!D->HaltDone.load() && !D->HasBackgroundAccess()) {
        Commands::SetCommandError(
            Id,
            QStringLiteral("cannot access target memory: target not halted and background memory access not "
                           "supported"));
        return false;
    }
    return true;
}

bool CMainWindow::CheckRegisterAccess(U32 Id) {
    CDevice* D = CDevice::Instance();
    if (!D->Connected.load()) {
        Commands::SetCommandError(Id, QStringLiteral("cannot access target registers: target not connected"));
        return false;
    }
    if (D->ConnectionLost.load()) {
        Commands::SetCommandError(Id, QStringLiteral("cannot access target registers: connection lost"));
        return false;
    }
    if (!D->HaltDone.load()) {
        Commands::SetCommandError(Id, QStringLiteral("cannot access target registers: target not halted"));
        return false;
    }
    return true;
}

void CMainWindow::ReadMemoryCommand(U32 Id, U32 Size) {
    if (!Commands::CheckCommandArgCount(Id)) {
        return;
    }
    U64 Address = 0;
    if (!Numbers::ParseHex(Commands::GetCommandArgs(Id).first(), Address) || Address > 0xFFFFFFFFull) {
        Commands::SetCommandError(Id, QStringLiteral("invalid parameter"));
        return;
    }
    if (!CheckMemoryAccess(Id)) {
        return;
    }
    U8 Bytes[4] = {};
    if (CDevice::Instance()->ReadMemDirect(static_cast<U32>(Address), nullptr, Size, Bytes, nullptr) < 0) {
        Commands::SetCommandError(Id, QStringLiteral("could not read target memory"));
        return;
    }
    const U64 Value = ValueOf(Bytes, Size);
    Commands::SetCommandResult(Id, static_cast<I64>(Value));
    PrintConsole(Hex(Value, static_cast<int>(Size) * 2), COLOR_LOGGING_USER);
}

void CMainWindow::WriteMemoryCommand(U32 Id, U32 Size) {
    if (!Commands::CheckCommandArgCount(Id)) {
        return;
    }
    const QStringList Args = Commands::GetCommandArgs(Id);
    U64 Address = 0;
    I64 Value = 0;
    if (!Numbers::ParseHex(Args[0], Address) || Address > 0xFFFFFFFFull || !ParseValue(Args[1], Value)) {
        Commands::SetCommandError(Id, QStringLiteral("invalid parameter"));
        return;
    }
    if (!CheckMemoryAccess(Id)) {
        return;
    }
    const std::vector<U8> Bytes = TargetBytes(static_cast<U64>(Value), Size);
    if (CDevice::Instance()->ScheduleWriteMem(static_cast<U32>(Address), Size, Bytes.data(), 0, 255, 0) < 0) {
        Commands::SetCommandError(Id, QStringLiteral("could not write target memory"));
    }
}

void CMainWindow::OnActionTargetReadU8Triggered() {
    ReadMemoryCommand(CMD_READ_U8, 1);
}
void CMainWindow::OnActionTargetReadU16Triggered() {
    ReadMemoryCommand(CMD_READ_U16, 2);
}
void CMainWindow::OnActionTargetReadU32Triggered() {
    ReadMemoryCommand(CMD_READ_U32, 4);
}
void CMainWindow::OnActionTargetWriteU8Triggered() {
    WriteMemoryCommand(CMD_WRITE_U8, 1);
}
void CMainWindow::OnActionTargetWriteU16Triggered() {
    WriteMemoryCommand(CMD_WRITE_U16, 2);
}
void CMainWindow::OnActionTargetWriteU32Triggered() {
    WriteMemoryCommand(CMD_WRITE_U32, 4);
}
void CMainWindow::OnActionTargetWriteU64Triggered() {
    WriteMemoryCommand(CMD_WRITE_U64, 8);
}

void CMainWindow::OnActionTargetFillMemoryTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_FILL_MEMORY)) {
        return;
    }
    const QStringList Args = Commands::GetCommandArgs(CMD_FILL_MEMORY);
    U64 Address = 0;
    I64 Size = 0;
    I64 Value = 0;
    if (!Numbers::ParseHex(Args[0], Address) || Address > 0xFFFFFFFFull || !ParseValue(Args[1], Size) ||
        Size <= 0 || Size > FILL_LIMIT || !ParseValue(Args[2], Value) || Value < 0 || Value > 0xFF) {
        Commands::SetCommandError(CMD_FILL_MEMORY, QStringLiteral("invalid parameter"));
        return;
    }
    if (!CheckMemoryAccess(CMD_FILL_MEMORY)) {
        return;
    }
    const std::vector<U8> Bytes(static_cast<size_t>(Size), static_cast<U8>(Value));
    if (CDevice::Instance()->ScheduleWriteMem(static_cast<U32>(Address), static_cast<U32>(Size), Bytes.data(),
                                              0x10000, 255, MEM_ACCESS_ITEM_RETRY) < 0) {
        Commands::SetCommandError(CMD_FILL_MEMORY, QStringLiteral("could not write target memory"));
    }
}

void CMainWindow::OnActionTargetGetRegTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_GET_REG)) {
        return;
    }
    const I32 Index = RegisterIndexOf(Commands::GetCommandArgs(CMD_GET_REG).first());
    if (Index < 0) {
        Commands::SetCommandError(CMD_GET_REG, QStringLiteral("invalid parameter"));
        return;
    }
    if (!CheckRegisterAccess(CMD_GET_REG)) {
        return;
    }
    U64 Value = 0;
    if (CDevice::Instance()->ReadRegDirect(PluginIndex(Index), &Value) < 0) {
        Commands::SetCommandError(CMD_GET_REG, QStringLiteral("could not read the register"));
        return;
    }
    Commands::SetCommandResult(CMD_GET_REG, static_cast<I64>(Value));
    PrintConsole(Hex(Value, 8), COLOR_LOGGING_USER);
}

void CMainWindow::OnActionTargetSetRegTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_SET_REG)) {
        return;
    }
    const QStringList Args = Commands::GetCommandArgs(CMD_SET_REG);
    const I32 Index = RegisterIndexOf(Args[0]);
    I64 Value = 0;
    if (Index < 0 || !ParseValue(Args[1], Value)) {
        Commands::SetCommandError(CMD_SET_REG, QStringLiteral("invalid parameter"));
        return;
    }
    if (!CheckRegisterAccess(CMD_SET_REG)) {
        return;
    }
    if (CDevice::Instance()->ScheduleWriteReg(PluginIndex(Index), static_cast<U64>(Value)) < 0) {
        Commands::SetCommandError(CMD_SET_REG, QStringLiteral("could not write the register"));
    }
}

void CMainWindow::OnActionTargetSetAccessWidthTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_SET_ACCESS_WIDTH)) {
        return;
    }
    const SYSVAR_INFO* Row = SysVars::GetVarRow(VAR_ACCESS_WIDTH);
    bool Ok = false;
    const I64 Width = SysVars::ParseVarValue(Row, Commands::GetCommandArgs(CMD_SET_ACCESS_WIDTH).first(), Ok);
    if (!Ok || (Width != 0 && Width != 1 && Width != 2 && Width != 4)) {
        Commands::SetCommandError(CMD_SET_ACCESS_WIDTH, QStringLiteral("invalid parameter"));
        return;
    }
    SysVars::SetVarValue(Row, Width, false);
    emit SysVarEdited(VAR_ACCESS_WIDTH, Width);
}

void CMainWindow::OnActionTargetSetEndianessTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_SET_ENDIANESS)) {
        return;
    }
    I64 Big = 0;
    if (!ParseValue(Commands::GetCommandArgs(CMD_SET_ENDIANESS).first(), Big) || (Big != 0 && Big != 1)) {
        Commands::SetCommandError(CMD_SET_ENDIANESS, QStringLiteral("invalid parameter"));
        return;
    }
    CDevice::Instance()->ScheduleSetConfigParam(ENDIAN, static_cast<I32>(Big));
}
