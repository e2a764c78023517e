// Downloads in the main window: the program with the project's handlers around it, data files, the end of
// a download, and the Target commands that move memory to and from files.

#include "app/MainWindow.h"

#include "analysis/CoreDebuggerApi.h"
#include "analysis/CorePluginLoader.h"
#include "app/StatusBar.h"
#include "app/core/CommandTable.h"
#include "app/core/Log.h"
#include "app/core/Numbers.h"
#include "app/core/Paths.h"
#include "app/core/ScriptConstants.h"
#include "app/core/SysVars.h"
#include "app/session/SessionController.h"
#include "program/ElfWrapper.h"
#include "program/FileKinds.h"
#include "program/FileWorker.h"
#include "script/TScript.h"
#include "target/Device.h"
#include "target/DeviceConfig.h"
#include "views/MessageBox.h"

#include <QFileInfo>

#include <vector>

namespace {

CDevice* Device() {
    return CDevice::Instance();
}

/// The path of a file argument: macros expanded, relative to the working directory.
QString FilePath(const QString& Text) {
    const QString Path = Paths::ExpandPath(Text.trimmed());
    return Path.isEmpty() ? QString() : QFileInfo(Path).absoluteFilePath();
}

} // namespace

// The download step is the session controller's; the window forwards to it.

void CMainWindow::DownloadProgram(const QString& File, DOWNLOAD_MODES Mode, I64 LoadAddress) {
    m_Session->DownloadProgram(File, Mode, LoadAddress);
}
void CMainWindow::DownloadFile(const QString& File, const char* Zone, DOWNLOAD_MODES Mode, I64 LoadAddress) {
    m_Session->DownloadFile(File, Zone, Mode, LoadAddress);
}
void CMainWindow::OnDeviceEndDownloadDone(const char* File, DOWNLOAD_MODES Mode) {
    m_Session->OnDeviceEndDownloadDone(File, Mode);
}
void CMainWindow::OnDeviceEndDownloadFailed(const char* File, DOWNLOAD_MODES Mode, int Error) {
    m_Session->OnDeviceEndDownloadFailed(File, Mode, Error);
}
void CMainWindow::OnDownloadFailed(U32 Mode, int Error) {
    m_Session->OnDownloadFailed(Mode, Error);
}
void CMainWindow::OnDownloadDone(U32 Mode) {
    m_Session->OnDownloadDone(Mode);
}

void CMainWindow::ConfigTargetForProgramEndianess() {
    const int Order = ELF_GetEndianess();
    if (Order != ELF_LITTLE_ENDIAN && Order != ELF_BIG_ENDIAN) {
        return;
    }
    if (GetDeviceConfig().GetParam(ENDIAN) != Order) {
        // The record reads back at once; the job tells a connected probe.
        GetDeviceConfig().SetParam(ENDIAN, Order);
        Device()->ScheduleSetConfigParam(ENDIAN, Order);
    }
}

void CMainWindow::EvaluateBreakSymbol() {
    const QString Name = SysVars::GetVarString(SysVars::GetVarRow(VAR_BREAK_AT_THIS_SYMBOL));
    const I32 Address = static_cast<I32>(ELF_GetProgramSymAddr(Name));
    GetDeviceConfig().SetParam(BREAK_SYMBOL_ADDR, Address);
}

void CMainWindow::PassProgramImageToCore() {
    QVector<CORE_IMAGE_SEGMENT> Segments;
    for (const ELF_DATA_BLOCK& B : ELF_GetProgramBlocks()) {
        Segments.append({B.Address, B.Data});
    }
    CoreDebugger::SetProgramImage(Segments);
}

// Target commands on files
// ------------------------------------------------------------------------------------

void CMainWindow::OnActionTargetSaveMemoryTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_SAVE_MEMORY)) {
        return;
    }
    const QStringList Args = Commands::GetCommandArgs(CMD_SAVE_MEMORY);
    const QString Path = FilePath(Args[0]);
    U64 Address = 0;
    I64 Size = 0;
    if (Path.isEmpty() || !Numbers::ParseHex(Args[1], Address) || Address > 0xFFFFFFFFull ||
        !ScriptConstants::ParseNumber(Args[2], Size) || Size <= 0 ||
        static_cast<U64>(Size) > 0x100000000ull - Address) {
        Commands::SetCommandError(CMD_SAVE_MEMORY, QStringLiteral("invalid parameter"));
        return;
    }
    if (!CheckMemoryAccess(CMD_SAVE_MEMORY)) {
        return;
    }
    std::vector<U8> Data(static_cast<size_t>(Size));
    std::vector<U8> Status(static_cast<size_t>(Size));
    if (Device()->ReadMemDirect(static_cast<U32>(Address), nullptr, static_cast<U32>(Size), Data.data(),
                                Status.data()) < 0) {
        Commands::SetCommandError(CMD_SAVE_MEMORY, QStringLiteral("could not read target memory"));
        return;
    }
    if (TFile::CFileWorker::Instance()->SaveFile(Path, Data.data(), static_cast<U32>(Size)) < 0) {
        Commands::SetCommandError(CMD_SAVE_MEMORY, QStringLiteral("could not write file"));
        return;
    }
    Commands::SetCommandResult(CMD_SAVE_MEMORY, Size);
}

void CMainWindow::OnActionTargetLoadMemoryTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_LOAD_MEMORY)) {
        return;
    }
    const QStringList Args = Commands::GetCommandArgs(CMD_LOAD_MEMORY);
    const QString Path = FilePath(Args[0]);
    U64 Address = 0;
    if (Path.isEmpty() || !Numbers::ParseHex(Args[1], Address) || Address > 0xFFFFFFFFull) {
        Commands::SetCommandError(CMD_LOAD_MEMORY, QStringLiteral("invalid parameter"));
        return;
    }
    if (!QFileInfo(Path).isFile()) {
        Commands::SetCommandError(CMD_LOAD_MEMORY, QStringLiteral("file not found"));
        return;
    }
    if (!CheckMemoryAccess(CMD_LOAD_MEMORY)) {
        return;
    }
    ELF_DATA_BLOCKS Blocks;
    Blocks = ELF_ReadDataFile(Path, static_cast<I64>(Address));
    if (Blocks.empty()) {
        Commands::SetCommandError(CMD_LOAD_MEMORY, QStringLiteral("could not read file"));
        return;
    }
    // A memory load is a download without the project's handlers and follow-ups.
    if (Device()->ScheduleDownload(Blocks, Path, DOWNLOAD_SILENT) < 0) {
        Commands::SetCommandError(CMD_LOAD_MEMORY, QStringLiteral("could not write target memory"));
    }
}

void CMainWindow::OnActionTargetPowerOnTriggered() {
    if (!Commands::CheckCommandArgCount(CMD_POWER_ON)) {
        return;
    }
    const I64 On = ScriptConstants::ParseConstantOrNumber(Commands::GetCommandArgs(CMD_POWER_ON).first());
    if (On < 0) {
        Commands::SetCommandError(CMD_POWER_ON, QStringLiteral("invalid parameter"));
        return;
    }
    SysVars::SetVarValue(SysVars::GetVarRow(VAR_TARGET_POWER_ON), On != 0 ? 1 : 0, false);
    emit SysVarEdited(VAR_TARGET_POWER_ON, On != 0 ? 1 : 0);
    if (Device()->Connected.load()) {
        Device()->ScheduleExecTarvoCmd(On != 0 ? "SupplyPower=1" : "SupplyPower=0");
    }
}
