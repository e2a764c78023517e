// The download step of the session: the program with the project's handlers around it, data files, and
// the end of a download, which leads to the first program operation.

#include "app/session/SessionController.h"

#include "app/core/Check.h"
#include "app/core/Log.h"
#include "app/core/SysVars.h"
#include "program/ElfWrapper.h"
#include "script/TScript.h"
#include "target/Device.h"

#include <QFileInfo>

namespace {

CDevice* Device() {
    return CDevice::Instance();
}

} // namespace

void CSessionController::DownloadProgram(const QString& File, DOWNLOAD_MODES Mode, I64 LoadAddress) {
    ARNEX_CHECK_GUI_THREAD();
    if (Mode != DOWNLOAD_PROGRAM && File.isEmpty()) {
        return;
    }
    m_Ui->SetStatusMessage(QStringLiteral("Writing Memory..."));
    m_Ui->DownloadStarting(File);
    CDevice* D = Device();
    switch (Mode) {
    case DOWNLOAD_PROGRAM:
        if (D->Connected.load()) {
            SetStep(SS_DOWNLOADING, "DownloadProgram");
        }
        ExecUserFunctionIfPresent(UF_BEFORE_TARGET_DOWNLOAD);
        if (TScript::HasUserFunction(UF_TARGET_DOWNLOAD)) {
            // The handler writes through Exec.Download; its result is the device's stored error.
            D->SetEventSuppressed(JT_END_DOWNLOAD, true);
            m_Ui->ExecUserFunction(UF_TARGET_DOWNLOAD);
            D->SetEventSuppressed(JT_END_DOWNLOAD, false);
            if (IsLinkLost()) {
                EndLostDownload();
            } else if (D->LastDownloadError() < 0) {
                OnDownloadFailed(DOWNLOAD_PROGRAM, D->LastDownloadError());
            } else {
                OnDeviceEndDownloadDone(File.toUtf8().constData(), DOWNLOAD_PROGRAM);
            }
        } else if (!File.isEmpty()) {
            DownloadFile(File, nullptr, DOWNLOAD_PROGRAM, LoadAddress);
        } else {
            OnDeviceEndDownloadDone("", DOWNLOAD_PROGRAM);
        }
        break;
    case DOWNLOAD_DATA_FILE:
        ExecUserFunctionIfPresent(UF_BEFORE_TARGET_DOWNLOAD);
        DownloadFile(File, nullptr, DOWNLOAD_DATA_FILE, LoadAddress);
        break;
    case DOWNLOAD_SILENT:
        DownloadFile(File, nullptr, DOWNLOAD_SILENT, LoadAddress);
        break;
    default:
        LogErrorMsg(QStringLiteral("Error downloading file content: unknown download mode"));
        break;
    }
}

void CSessionController::DownloadFile(const QString& File, const char* Zone, DOWNLOAD_MODES Mode,
                                      I64 LoadAddress) {
    CDevice* D = Device();
    if (!D->Connected.load() || File.isEmpty()) {
        if (Mode == DOWNLOAD_PROGRAM && m_Step == SS_DOWNLOADING) {
            SetStep(TargetStep(), "DownloadFile without a connection");
        }
        return;
    }
    ELF_DATA_BLOCKS Blocks;
    // The program of the session has its blocks prepared; any other file is read for the request.
    if (LoadAddress < 0 && ELF_IsLoaded() && QFileInfo(ELF_GetProgramPath()) == QFileInfo(File)) {
        Blocks = ELF_GetProgramBlocks();
    }
    if (Blocks.empty()) {
        Blocks = ELF_ReadDataFile(File, LoadAddress);
    }
    if (Blocks.empty()) {
        LogErrorMsg(QStringLiteral("The file contains no loadable data: ") + File);
    }
    // The writes go first and the end of the download after them; the ring keeps that order. The device
    // reads back what it wrote at the end, so a program that didn't arrive whole fails the download.
    if (D->ScheduleDownload(Blocks, File, Mode, Zone) < 0) {
        OnDownloadFailed(Mode, -1);
    }
}

void CSessionController::EndLostDownload() {
    // The loss was told ("Target Connection Lost"); a failed download, the handlers after it and the
    // first program operation would only fail again against the dead link.
    m_Ui->SetStatusMessage(QStringLiteral("Ready"));
    SetControllerBusy(false);
    SetStep(TargetStep(), "download over a lost link");
    m_Ui->UpdateSessionActions();
}

void CSessionController::OnDeviceEndDownloadDone(const char* File, DOWNLOAD_MODES Mode) {
    if (IsLinkLost()) {
        EndLostDownload();
        return;
    }
    if (File && *File) {
        m_Ui->SetStatusMessage(QStringLiteral("Download Complete."));
    }
    OnDownloadDone(Mode);
}

void CSessionController::OnDeviceEndDownloadFailed(const char* File, DOWNLOAD_MODES Mode, int Error) {
    Q_UNUSED(File);
    if (IsLinkLost()) {
        EndLostDownload();
        return;
    }
    OnDownloadFailed(Mode, Error);
}

void CSessionController::OnDownloadFailed(U32 Mode, int Error) {
    if (SysVars::GetVarValue(VAR_VERIFY_DOWNLOAD) != 0) {
        const QString Text = QString::fromLatin1(CDevice::DownloadErrorText(Error));
        m_Ui->SetStatusMessage(QStringLiteral("Download Failed."));
        // Where the device found the difference, before the general text.
        const QString Reason = Device()->LastErrorText();
        if (!Reason.isEmpty()) {
            LogErrorMsg(Reason);
        }
        LogErrorMsg(Text);
        m_Ui->Warn(QStringLiteral("Download failed"),
                   QStringLiteral("Parts of the program file could not be written.\n\n") + Text);
    }
    OnDownloadDone(Mode);
}

void CSessionController::OnDownloadDone(U32 Mode) {
    ARNEX_CHECK_GUI_THREAD();
    if (Mode == DOWNLOAD_SILENT) {
        m_Ui->UpdateSessionActions();
        return;
    }
    if (TScript::HasUserFunction(UF_AFTER_TARGET_DOWNLOAD)) {
        m_Ui->ExecUserFunction(UF_AFTER_TARGET_DOWNLOAD);
    } else {
        const CORE_PLUGIN_API* Api = Device()->CorePlugin();
        if (Api && Api->AfterTargetReset) {
            Api->AfterTargetReset();
        }
        Device()->SetTargetExecState(0, 0);
    }
    m_Ui->DownloadFinished(m_Ui->ProgramPath());
    if (Mode == DOWNLOAD_PROGRAM) {
        m_Ui->RepaintWindows();
        PerformInitialProgramOperation();
        // Outside a download-and-reset session (or with the link gone) the target stays where it is.
        if (m_Step == SS_DOWNLOADING) {
            SetStep(TargetStep(), "OnDownloadDone");
        }
    } else if (Mode != DOWNLOAD_DATA_FILE) {
        LogErrorMsg(QStringLiteral("In function OnDownloadDone: unimplemented download mode ") +
                    QString::number(Mode));
    }
    SetControllerBusy(false);
    m_Ui->UpdateSessionActions();
}
