// The Project.* commands: what OnProjectLoad calls to set a session up. Each stores its setting where the
// part of the program that uses it reads it: the device configuration, the system variables, the project
// or the lists of source paths.

#include "app/MainWindow.h"

#include "analysis/CoreBinding.h"
#include "analysis/CorePluginLoader.h"
#include "app/core/Automation.h"
#include "app/core/CommandTable.h"
#include "app/core/Log.h"
#include "app/core/Numbers.h"
#include "app/core/Paths.h"
#include "app/core/ScriptConstants.h"
#include "app/core/SysVars.h"
#include "program/FileFinder.h"
#include "script/Project.h"
#include "script/ProjectText.h"
#include "script/TScript.h"
#include "target/DeviceConfig.h"
#include "target/ui/DeviceSelectionDialog.h"
#include "views/ConsoleWindow.h"
#include "views/MessageBox.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

namespace {

constexpr I32 TRACE_SOURCE_SWO = 3;

/// A file named by a project command, found where its kind is kept (beside the project, the program, in
/// the configuration folders, the plug-in folders, the search directories). Empty when it isn't found.
QString ResolveFile(const QString& Text) {
    return CFileFinder::Instance()->ResolvePath(Text.trimmed());
}

/// A path as given, made absolute against the project's directory (or the working directory).
QString AbsolutePath(const QString& Text) {
    const QString Path = Paths::ExpandPath(Text.trimmed());
    if (Path.isEmpty() || QFileInfo(Path).isAbsolute()) {
        return Path;
    }
    const QString Base = TScript::GetScriptDir().isEmpty() ? QDir::currentPath() : TScript::GetScriptDir();
    return QDir::cleanPath(QDir(Base).filePath(Path));
}

/// An int of the script: scripts pass numbers as 32-bit hexadecimal, so the low 32 bits carry the sign.
bool ParseInt32(const QString& Text, I32& Value) {
    I64 V = 0;
    if (!ScriptConstants::ParseNumber(Text, V) || V < INT32_MIN || V > static_cast<I64>(UINT32_MAX)) {
        return false;
    }
    Value = static_cast<I32>(static_cast<U32>(V));
    return true;
}

/// A variable's value from a text through the variable's own choices, constants and numbers.
bool ParseVar(I32 Id, const QString& Text, I64& Value) {
    bool Ok = false;
    Value = SysVars::ParseVarValue(SysVars::GetVarRow(Id), Text.trimmed(), Ok);
    return Ok;
}

/// A value that must be one of a choice row's values.
bool IsChoice(I32 Id, I64 Value) {
    QStringList Texts;
    QList<I64> Values;
    return !SysVars::GetVarChoices(SysVars::GetVarRow(Id), Texts, Values) || Values.contains(Value);
}

bool ParseOnOff(const QString& Text, bool& On) {
    const I64 V = ScriptConstants::ParseConstantOrNumber(Text);
    if (V < 0) {
        return false;
    }
    On = V != 0;
    return true;
}

} // namespace

void CMainWindow::OnActionProjectSetDeviceTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_SET_DEVICE, 0)) {
        return;
    }
    const QStringList Args = Commands::GetCommandArgs(CMD_SET_DEVICE);
    QString Name = Args.isEmpty() ? QString() : Args.first().trimmed();
    CDeviceConfig& Config = GetDeviceConfig();
    if (Name.isEmpty()) {
        // No name: the user chooses from the probe library's device table.
        CDeviceSelectionDialog Dialog(this);
        Dialog.SetDevice(Config.GetText(DEVICE_NAME), Config.GetParam(ENDIAN), Config.GetParam(CORE_INDEX));
        if (MessageBox::Exec(&Dialog, QDialog::Rejected) != QDialog::Accepted) {
            Commands::SetCommandDone(CMD_SET_DEVICE);
            return;
        }
        Name = Dialog.GetDeviceName();
        Config.SetParam(ENDIAN, Dialog.GetEndian());
        Config.SetParam(CORE_INDEX, Dialog.GetCoreIndex());
        CProject::Instance()->SetModified(true);
    }
    // The record finds the device's index in the library's table; its core chooses the core plug-in,
    // which may ask for the plug-in's file when a person opens the project.
    Config.SetText(DEVICE_NAME, Name.toUtf8().constData());
    const bool AllowDialog = !Automation::IsActive() && !CProject::Instance()->IsFromCmdLine();
    CoreBinding::LoadForConfiguredDevice(AllowDialog);
    UpdateSessionActions();
}

void CMainWindow::OnActionProjectSetTarvoScriptTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_SET_TARVO_SCRIPT)) {
        return;
    }
    const QString Given = Commands::GetCommandArgs(CMD_SET_TARVO_SCRIPT).first();
    const QString Path = ResolveFile(Given);
    if (Path.isEmpty()) {
        Commands::SetCommandError(CMD_SET_TARVO_SCRIPT, QStringLiteral("file not found: ") + Given);
        return;
    }
    GetDeviceConfig().SetText(SCRIPT_FILE, Path.toUtf8().constData());
}

void CMainWindow::OnActionProjectSetTarvoLogFileTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_SET_TARVO_LOG_FILE)) {
        return;
    }
    const QString Path = AbsolutePath(Commands::GetCommandArgs(CMD_SET_TARVO_LOG_FILE).first());
    if (Path.isEmpty() || QFileInfo(Path).isDir() || Path.toUtf8().size() >= CDeviceConfig::PATH_SIZE) {
        Commands::SetCommandError(CMD_SET_TARVO_LOG_FILE, QStringLiteral("invalid filename"));
        return;
    }
    GetDeviceConfig().SetText(LOG_FILE, Path.toUtf8().constData());
}

void CMainWindow::OnActionProjectAddSvdFileTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_ADD_SVD_FILE)) {
        return;
    }
    const QString Given = Commands::GetCommandArgs(CMD_ADD_SVD_FILE).first().trimmed();
    static const QRegularExpression s_Svd(QStringLiteral("\\.(svd|xml)$"),
                                          QRegularExpression::CaseInsensitiveOption);
    if (!s_Svd.match(Given).hasMatch()) {
        Commands::SetCommandError(CMD_ADD_SVD_FILE, QStringLiteral("invalid parameter"));
        return;
    }
    const QString Path = ResolveFile(Given);
    // The file is kept in the list even when it is missing, so that the project check names it.
    CProject::Instance()->AddSvdFile(Path.isEmpty() ? Paths::ExpandPath(Given) : Path);
    if (Path.isEmpty()) {
        Commands::SetCommandError(CMD_ADD_SVD_FILE, QStringLiteral("file not found"));
    }
}

void CMainWindow::OnActionProjectSetHostIFTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_SET_HOST_IF, 1)) {
        return;
    }
    const QStringList Args = Commands::GetCommandArgs(CMD_SET_HOST_IF);
    const I32 HostIF = ProjectText::ParseHostIF(Args[0]);
    const QString Ident = Args.size() > 1 ? Args[1].trimmed() : QString();
    CDeviceConfig& Config = GetDeviceConfig();
    if (HostIF < 0) {
        Commands::SetCommandError(CMD_SET_HOST_IF, QStringLiteral("unknown host interface"));
        return;
    }
    Config.SetParam(HOST_IF, HostIF);
    if (HostIF == HOST_IF_IP) {
        Config.SetText(HOST_NAME, Ident.toUtf8().constData());
        return;
    }
    I64 Serial = 0;
    const bool Given = !Ident.isEmpty();
    const bool Valid = Given && Numbers::ParseInteger(Ident, Serial) && Serial >= 0 && Serial <= UINT32_MAX;
    Config.SetParam(USB_SERIAL_NO, Valid ? static_cast<I32>(static_cast<U32>(Serial)) : 0);
    Config.SetParam(USE_SERIAL_NO, Valid ? 1 : 0);
    if (Given && !Valid) {
        Commands::SetCommandError(CMD_SET_HOST_IF, QStringLiteral("invalid parameter"));
    }
}

void CMainWindow::OnActionProjectSetTargetIFTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_SET_TARGET_IF)) {
        return;
    }
    const I32 TargetIF = ProjectText::ParseTargetIF(Commands::GetCommandArgs(CMD_SET_TARGET_IF).first());
    if (TargetIF < 0) {
        Commands::SetCommandError(CMD_SET_TARGET_IF, QStringLiteral("unknown target interface"));
        return;
    }
    GetDeviceConfig().SetParam(TARGET_IF, TargetIF);
}

void CMainWindow::OnActionProjectSetTIFSpeedTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_SET_TIF_SPEED)) {
        return;
    }
    I64 Hz = 0;
    if (!ProjectText::ParseTIFSpeed(Commands::GetCommandArgs(CMD_SET_TIF_SPEED).first(), Hz) ||
        Hz > INT32_MAX) {
        Commands::SetCommandError(CMD_SET_TIF_SPEED, QStringLiteral("invalid number"));
        return;
    }
    GetDeviceConfig().SetParam(TIF_SPEED, static_cast<I32>(Hz));
    SysVars::SetVarValue(SysVars::GetVarRow(VAR_TIF_SPEED), Hz, false);
    Commands::SetCommandResult(CMD_SET_TIF_SPEED, Hz);
}

void CMainWindow::OnActionProjectSetJTAGConfigTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_SET_JTAG_CONFIG)) {
        return;
    }
    const QStringList Args = Commands::GetCommandArgs(CMD_SET_JTAG_CONFIG);
    I32 DRPre = 0;
    I32 IRPre = 0;
    if (!ParseInt32(Args[0], DRPre) || !ParseInt32(Args[1], IRPre) || DRPre < 0 || IRPre < 0) {
        Commands::SetCommandError(CMD_SET_JTAG_CONFIG, QStringLiteral("invalid parameter"));
        return;
    }
    CDeviceConfig& Config = GetDeviceConfig();
    Config.SetParam(DR_PRE, DRPre);
    Config.SetParam(IR_PRE, IRPre);
    // A chain with nothing ahead of the target is a chain of one.
    Config.SetParam(MULTIPLE_TARGETS, DRPre > 0 || IRPre > 0 ? 1 : 0);
}

void CMainWindow::OnActionProjectConfigSWOTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_CONFIG_SWO)) {
        return;
    }
    const QStringList Args = Commands::GetCommandArgs(CMD_CONFIG_SWO);
    I64 Swo = 0;
    I64 Cpu = 0;
    if (!ParseVar(VAR_SWO_SPEED, Args[0], Swo) || !ParseVar(VAR_SWO_CPU_SPEED, Args[1], Cpu) || Swo < 0 ||
        Cpu < 0) {
        Commands::SetCommandError(CMD_CONFIG_SWO, QStringLiteral("invalid parameter"));
        return;
    }
    SysVars::SetVarValue(SysVars::GetVarRow(VAR_SWO_SPEED), Swo, false);
    SysVars::SetVarValue(SysVars::GetVarRow(VAR_SWO_CPU_SPEED), Cpu, false);
    emit SysVarEdited(VAR_SWO_SPEED, Swo);
    emit SysVarEdited(VAR_SWO_CPU_SPEED, Cpu);
}

void CMainWindow::OnActionProjectSetSWOTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_SET_SWO, 1)) {
        return;
    }
    const QStringList Args = Commands::GetCommandArgs(CMD_SET_SWO);
    bool On = false;
    I64 Swo = SysVars::GetVarValue(VAR_SWO_SPEED);
    I64 Cpu = SysVars::GetVarValue(VAR_SWO_CPU_SPEED);
    if (!ParseOnOff(Args[0], On) ||
        (Args.size() > 1 && (!ParseVar(VAR_SWO_SPEED, Args[1], Swo) || Swo < 0)) ||
        (Args.size() > 2 && (!ParseVar(VAR_SWO_CPU_SPEED, Args[2], Cpu) || Cpu < 0))) {
        Commands::SetCommandError(CMD_SET_SWO, QStringLiteral("invalid parameter"));
        return;
    }
    SysVars::SetVarValue(SysVars::GetVarRow(VAR_SWO_SPEED), Swo, false);
    SysVars::SetVarValue(SysVars::GetVarRow(VAR_SWO_CPU_SPEED), Cpu, false);
    const I64 Source = SysVars::GetVarValue(VAR_TRACE_SOURCE);
    const I64 NewSource = On ? TRACE_SOURCE_SWO : (Source == TRACE_SOURCE_SWO ? 0 : Source);
    SysVars::SetVarValue(SysVars::GetVarRow(VAR_TRACE_SOURCE), NewSource, false);
    emit SysVarEdited(VAR_SWO_SPEED, Swo);
    emit SysVarEdited(VAR_SWO_CPU_SPEED, Cpu);
    emit SysVarEdited(VAR_TRACE_SOURCE, NewSource);
}

void CMainWindow::OnActionProjectSetSemihostingTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_SET_SEMIHOSTING)) {
        return;
    }
    bool On = false;
    if (!ParseOnOff(Commands::GetCommandArgs(CMD_SET_SEMIHOSTING).first(), On)) {
        Commands::SetCommandError(CMD_SET_SEMIHOSTING, QStringLiteral("invalid parameter"));
        return;
    }
    SysVars::SetVarValue(SysVars::GetVarRow(VAR_SEMIHOSTING_ENABLED), On ? 1 : 0, false);
    emit SysVarEdited(VAR_SEMIHOSTING_ENABLED, On ? 1 : 0);
}

void CMainWindow::OnActionProjectConfigSemihostingTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_CONFIG_SEMIHOSTING)) {
        return;
    }
    const QString Config = Commands::GetCommandArgs(CMD_CONFIG_SEMIHOSTING).first().trimmed();
    if (Config.isEmpty()) {
        Commands::SetCommandError(CMD_CONFIG_SEMIHOSTING, QStringLiteral("invalid parameter"));
        return;
    }
    CProject::Instance()->SetSemihostingConfig(Config);
}

void CMainWindow::OnActionProjectSetMCTTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_SET_MCT)) {
        return;
    }
    bool On = false;
    if (!ParseOnOff(Commands::GetCommandArgs(CMD_SET_MCT).first(), On)) {
        Commands::SetCommandError(CMD_SET_MCT, QStringLiteral("invalid parameter"));
        return;
    }
    SysVars::SetVarValue(SysVars::GetVarRow(VAR_MCT_ENABLED), On ? 1 : 0, false);
    emit SysVarEdited(VAR_MCT_ENABLED, On ? 1 : 0);
}

void CMainWindow::OnActionProjectAddMCTSearchRangeTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_ADD_MCT_SEARCH_RANGE)) {
        return;
    }
    const QStringList Args = Commands::GetCommandArgs(CMD_ADD_MCT_SEARCH_RANGE);
    I64 Addr = 0;
    I64 Size = 0;
    if (!ScriptConstants::ParseNumber(Args[0], Addr) || !ScriptConstants::ParseNumber(Args[1], Size) ||
        Addr < 0 || Addr > UINT32_MAX || Size <= 0 || Size > UINT32_MAX) {
        Commands::SetCommandError(CMD_ADD_MCT_SEARCH_RANGE, QStringLiteral("invalid parameter"));
        return;
    }
    if (!GetDeviceConfig().AddMctSearchRange(static_cast<U32>(Addr), static_cast<U32>(Size))) {
        LogMessage(QStringLiteral("Could not add MCT search range. Buffer full."),
                   MSG_WARNING | MSG_TO_CONSOLE | MSG_TO_LOGFILE | MSG_FROM_APP);
    }
}

void CMainWindow::OnActionProjectAddRootPathTriggered() {
    if (Commands::CheckCommandArgCount(CMD_ADD_ROOT_PATH) &&
        !CFileFinder::Instance()->AddRootPath(Commands::GetCommandArgs(CMD_ADD_ROOT_PATH).first())) {
        Commands::SetCommandError(CMD_ADD_ROOT_PATH, QStringLiteral("invalid parameter"));
    }
}

void CMainWindow::OnActionProjectAddSearchPathTriggered() {
    if (Commands::CheckCommandArgCount(CMD_ADD_SEARCH_PATH) &&
        !CFileFinder::Instance()->AddSearchPath(Commands::GetCommandArgs(CMD_ADD_SEARCH_PATH).first())) {
        Commands::SetCommandError(CMD_ADD_SEARCH_PATH, QStringLiteral("invalid parameter"));
    }
}

void CMainWindow::OnActionProjectAddFileAliasTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_ADD_FILE_ALIAS)) {
        return;
    }
    const QStringList Args = Commands::GetCommandArgs(CMD_ADD_FILE_ALIAS);
    if (!CFileFinder::Instance()->AddFileAlias(Args[0], Args[1])) {
        Commands::SetCommandError(CMD_ADD_FILE_ALIAS, QStringLiteral("invalid parameter"));
    }
}

void CMainWindow::OnActionProjectAddPathSubstituteTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_ADD_PATH_SUBSTITUTE)) {
        return;
    }
    const QStringList Args = Commands::GetCommandArgs(CMD_ADD_PATH_SUBSTITUTE);
    if (!CFileFinder::Instance()->AddPathSubstitute(Args[0], Args[1])) {
        Commands::SetCommandError(CMD_ADD_PATH_SUBSTITUTE, QStringLiteral("invalid parameter"));
    }
}

void CMainWindow::OnActionProjectSetOSPluginTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_SET_OS_PLUGIN)) {
        return;
    }
    const QString Given = Commands::GetCommandArgs(CMD_SET_OS_PLUGIN).first().trimmed();
    // A plug-in is named by its file or by its name alone ("FreeRTOSPlugin").
    const QString Path =
        ResolveFile(QFileInfo(Given).suffix().isEmpty() ? Given + QStringLiteral(".so") : Given);
    if (Path.isEmpty()) {
        Commands::SetCommandError(CMD_SET_OS_PLUGIN, QStringLiteral("file not found"));
        return;
    }
    CProject::Instance()->SetOSPluginPath(Path);
}

void CMainWindow::OnActionProjectSetCorePluginTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_SET_CORE_PLUGIN)) {
        return;
    }
    const QString Given = Commands::GetCommandArgs(CMD_SET_CORE_PLUGIN).first().trimmed();
    const QString Path =
        ResolveFile(QFileInfo(Given).suffix().isEmpty() ? Given + QStringLiteral(".so") : Given);
    if (Path.isEmpty()) {
        Commands::SetCommandError(CMD_SET_CORE_PLUGIN, QStringLiteral("file not found"));
        return;
    }
    // The loader takes this file for the device's core once the device is known; a known device gets
    // it at once if the file changed or no plug-in is loaded.
    const bool Changed = CorePluginLoader::GetProjectPath() != Path;
    CProject::Instance()->SetCorePluginPath(Path);
    CorePluginLoader::SetProjectPath(Path);
    if (GetDeviceConfig().GetParam(DEVICE_INDEX) > 0 && (Changed || !CorePluginLoader::IsLoaded())) {
        CoreBinding::LoadForConfiguredDevice(false);
        UpdateSessionActions();
    }
}

void CMainWindow::OnActionProjectSetBPTypeTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_SET_BP_TYPE)) {
        return;
    }
    I64 Type = 0;
    if (!ParseVar(VAR_BREAKPOINT_TYPE, Commands::GetCommandArgs(CMD_SET_BP_TYPE).first(), Type) ||
        !IsChoice(VAR_BREAKPOINT_TYPE, Type)) {
        Commands::SetCommandError(CMD_SET_BP_TYPE, QStringLiteral("invalid parameter"));
        return;
    }
    SysVars::SetVarValue(SysVars::GetVarRow(VAR_BREAKPOINT_TYPE), Type, false);
    emit SysVarEdited(VAR_BREAKPOINT_TYPE, Type);
}

void CMainWindow::OnActionProjectSetTraceSourceTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_SET_TRACE_SOURCE)) {
        return;
    }
    I64 Source = 0;
    if (!ParseVar(VAR_TRACE_SOURCE, Commands::GetCommandArgs(CMD_SET_TRACE_SOURCE).first(), Source) ||
        !IsChoice(VAR_TRACE_SOURCE, Source)) {
        Commands::SetCommandError(CMD_SET_TRACE_SOURCE, QStringLiteral("invalid parameter"));
        return;
    }
    SysVars::SetVarValue(SysVars::GetVarRow(VAR_TRACE_SOURCE), Source, false);
    emit SysVarEdited(VAR_TRACE_SOURCE, Source);
}

void CMainWindow::OnActionProjectSetTracePortWidthTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_SET_TRACE_PORT_WIDTH)) {
        return;
    }
    I64 Width = 0;
    if (!ScriptConstants::ParseNumber(Commands::GetCommandArgs(CMD_SET_TRACE_PORT_WIDTH).first(), Width) ||
        !IsChoice(VAR_TRACE_PORT_WIDTH, Width)) {
        Commands::SetCommandError(CMD_SET_TRACE_PORT_WIDTH, QStringLiteral("invalid parameter"));
        return;
    }
    SysVars::SetVarValue(SysVars::GetVarRow(VAR_TRACE_PORT_WIDTH), Width, false);
    emit SysVarEdited(VAR_TRACE_PORT_WIDTH, Width);
}

void CMainWindow::OnActionProjectSetTraceTimingTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_SET_TRACE_TIMING)) {
        return;
    }
    const QStringList Args = Commands::GetCommandArgs(CMD_SET_TRACE_TIMING);
    I32 Delays[4] = {};
    I64 Min = 0;
    I64 Max = 0;
    SysVars::GetVarRange(SysVars::GetVarRow(VAR_TRACE_PORT_DELAY_0), Min, Max);
    for (int i = 0; i < 4; ++i) {
        if (!ParseInt32(Args[i], Delays[i]) || Delays[i] < Min || Delays[i] > Max) {
            Commands::SetCommandError(CMD_SET_TRACE_TIMING, QStringLiteral("invalid parameter"));
            return;
        }
    }
    for (int i = 0; i < 4; ++i) {
        SysVars::SetVarValue(SysVars::GetVarRow(VAR_TRACE_PORT_DELAY_0 + i), Delays[i], false);
        emit SysVarEdited(VAR_TRACE_PORT_DELAY_0 + i, Delays[i]);
    }
}

void CMainWindow::OnActionProjectSetTraceFileTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_SET_TRACE_FILE, 1)) {
        return;
    }
    const QStringList Args = Commands::GetCommandArgs(CMD_SET_TRACE_FILE);
    const QByteArray Path = AbsolutePath(Args[0]).toUtf8();
    if (Path.isEmpty() || Path.size() > 100) {
        Commands::SetCommandError(CMD_SET_TRACE_FILE, QStringLiteral("invalid filename"));
        return;
    }
    I64 MaxSize = SysVars::GetVarValue(VAR_TRACE_FILE_MAX_SIZE);
    bool KeepStart = SysVars::GetVarValue(VAR_TRACE_FILE_KEEP_START) != 0;
    if ((Args.size() > 1 && (!ScriptConstants::ParseNumber(Args[1], MaxSize) || MaxSize < 0)) ||
        (Args.size() > 2 && !ParseOnOff(Args[2], KeepStart))) {
        Commands::SetCommandError(CMD_SET_TRACE_FILE, QStringLiteral("invalid parameter"));
        return;
    }
    SysVars::SetVarText(SysVars::GetVarRow(VAR_TRACE_FILE_PATH), Path.constData(), 0);
    SysVars::SetVarValue(SysVars::GetVarRow(VAR_TRACE_FILE_MAX_SIZE), MaxSize, false);
    SysVars::SetVarValue(SysVars::GetVarRow(VAR_TRACE_FILE_KEEP_START), KeepStart ? 1 : 0, false);
}

void CMainWindow::OnActionProjectSetConsoleLogFileTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_SET_CONSOLE_LOG_FILE)) {
        return;
    }
    const QString Path = AbsolutePath(Commands::GetCommandArgs(CMD_SET_CONSOLE_LOG_FILE).first());
    if (Path.isEmpty() || QFileInfo(Path).isDir()) {
        Commands::SetCommandError(CMD_SET_CONSOLE_LOG_FILE, QStringLiteral("invalid filename"));
        return;
    }
    m_Console->SetLogFile(Path);
}

void CMainWindow::OnActionProjectSetTerminalLogFileTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_SET_TERMINAL_LOG_FILE)) {
        return;
    }
    const QString Path = AbsolutePath(Commands::GetCommandArgs(CMD_SET_TERMINAL_LOG_FILE).first());
    if (Path.isEmpty() || QFileInfo(Path).isDir() || !OpenLogChannel(LOG_CHANNEL_TERMINAL, Path)) {
        Commands::SetCommandError(CMD_SET_TERMINAL_LOG_FILE, QStringLiteral("invalid filename"));
    }
}

void CMainWindow::OnActionProjectDisableSessionSaveTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_DISABLE_SESSION_SAVE)) {
        return;
    }
    const I64 Flags =
        ScriptConstants::ParseConstantOrNumber(Commands::GetCommandArgs(CMD_DISABLE_SESSION_SAVE).first());
    if (Flags < 0 || Flags > static_cast<I64>(UINT32_MAX)) {
        Commands::SetCommandError(CMD_DISABLE_SESSION_SAVE, QStringLiteral("invalid parameter"));
        return;
    }
    // For this session only: the settings keep the user's own choice.
    SysVars::SetVarValue(SysVars::GetVarRow(PREF_SESSION_SAVE_FLAGS), Flags, false);
}

void CMainWindow::OnActionProjectSetMemZoneRunningTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_SET_MEM_ZONE_RUNNING)) {
        return;
    }
    const QString Zone = Commands::GetCommandArgs(CMD_SET_MEM_ZONE_RUNNING).first().trimmed();
    if (Zone.isEmpty()) {
        Commands::SetCommandError(CMD_SET_MEM_ZONE_RUNNING, QStringLiteral("invalid parameter"));
        return;
    }
    SysVars::SetVarText(SysVars::GetVarRow(VAR_MEM_ZONE_RUNNING), Zone.toUtf8().constData(), 0);
    emit SysVarEdited(VAR_MEM_ZONE_RUNNING, 0);
}
