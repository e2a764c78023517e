// Downloads: the writes of a program's blocks, the end of the probe's download, and the check of what
// was written.

#include "target/Device.h"

#include "app/core/Log.h"
#include "app/core/SysVars.h"
#include "probe/Tarvo.h"
#include "target/DeviceConfig.h"
#include "target/DeviceEvents.h"

#include <algorithm>
#include <cstring>

namespace {

using Jobs::NewJob;

/// A read-back compares in pieces of this size, so that the status buffer stays small.
constexpr U32 VERIFY_PIECE = 1u << 20;

} // namespace

U32 CDevice::DownloadChunkSize(U32 SpeedHz) {
    if (SpeedHz == 65535) {
        return 16000;
    }
    if (SpeedHz == 0 || SpeedHz > 500000) {
        return 0;
    }
    if (SpeedHz <= 50000) {
        return 8000;
    }
    return SpeedHz <= 100000 ? 16000 : 32000;
}

const char* CDevice::DownloadErrorText(int Code) {
    switch (Code) {
    case -2:
        return "error during compare phase";
    case -3:
        return "error during program/erase phase";
    case -4:
        return "error during verification phase";
    default:
        return "Tarvo reports an unspecified error";
    }
}

void CDevice::ClearBreakpointsBeforeFlashDL() {
    // Breakpoints that the probe keeps in flash would be erased with it; the breakpoint engine takes them
    // out here and notes which.
    m_FlashBPsRemoved = true;
}

void CDevice::RestoreBreakpointsAfterFlashDL() {
    // Only what the clear took out comes back.
    if (!m_FlashBPsRemoved) {
        return;
    }
    m_FlashBPsRemoved = false;
    m_FlashBPRestores.fetch_add(1);
}

int CDevice::BeginDownload() {
    ARNEX_CHECK_DEVICE_THREAD();
    if (!Connected.load()) {
        LogDebugMsg(QStringLiteral("BeginDL: not connected"));
        return -1;
    }
    ClearBreakpointsBeforeFlashDL();
    TARVOARM_BeginDownload(0);
    return 0;
}

void CDevice::RecordDownloadWrites(U32 RangeCount, const U32* Ranges, U32 DataSize, const U8* Data,
                                   U32 Written) {
    U32 Consumed = 0;
    for (U32 i = 0; i < RangeCount; ++i) {
        const U32 Begin = Ranges[2 * i];
        const U32 End = Ranges[2 * i + 1];
        if (End < Begin || static_cast<U64>(Consumed) + (End - Begin) > DataSize) {
            break;
        }
        m_DownloadRanges.push_back(Begin);
        m_DownloadRanges.push_back(End);
        m_DownloadData.insert(m_DownloadData.end(), Data + Consumed, Data + Consumed + (End - Begin));
        Consumed += End - Begin;
    }
    if (Written < Consumed) {
        m_DownloadShort = true;
    }
}

void CDevice::ForgetDownload() {
    m_DownloadOpen = false;
    m_DownloadShort = false;
    m_DownloadRanges.clear();
    m_DownloadRanges.shrink_to_fit();
    m_DownloadData.clear();
    m_DownloadData.shrink_to_fit();
}

int CDevice::VerifyDownload() {
    std::vector<U8> Back;
    std::vector<U8> Status;
    size_t Offset = 0;
    for (size_t i = 0; i + 1 < m_DownloadRanges.size(); i += 2) {
        const U32 Begin = m_DownloadRanges[i];
        const U32 Length = m_DownloadRanges[i + 1] - Begin;
        for (U32 Done = 0; Done < Length;) {
            const U32 Piece = qMin(VERIFY_PIECE, Length - Done);
            Back.resize(Piece);
            Status.resize(Piece);
            const U32 Got = ReadMem(Begin + Done, Piece, 0, 0, 0, nullptr, Back.data(), Status.data());
            // The first byte that didn't read back as written: what was read matches up to it.
            const U8* Want = &m_DownloadData[Offset + Done];
            const U32 Same =
                static_cast<U32>(std::mismatch(Back.begin(), Back.begin() + Got, Want).first - Back.begin());
            if (Same < Piece) {
                Fail(QStringLiteral("Download: target memory differs from the program at 0x%1")
                         .arg(Begin + Done + Same, 8, 16, QLatin1Char('0')));
                return -4;
            }
            Done += Piece;
        }
        Offset += Length;
    }
    return 0;
}

int CDevice::EndDownload(bool HaltAround) {
    ClearLastError();
    ARNEX_CHECK_DEVICE_THREAD();
    if (!Connected.load()) {
        LogDebugMsg(QStringLiteral("EndDL: not connected"));
        ForgetDownload();
        return -1;
    }
    // Without background access the check of what was written needs the target halted, as the writes
    // did.
    HaltAround = (HaltAround || !HasBackgroundAccess()) && HaltForAccess(MEM_ACCESS_HALT);
    DeviceEvents::PostProgressMsg("Writing Memory...");
    DeviceEvents::PostStartProgress(0, 0);
    int Result = TARVOARM_EndDownload();
    DeviceEvents::PostEndProgress();
    RestoreBreakpointsAfterFlashDL();
    // The probe programs flash; what went to memory directly is checked here, since a write that fell
    // short or bytes that read back differently are as much a failed download as a failed flash.
    if (Result >= 0 && m_DownloadShort) {
        Result = -3;
    } else if (Result >= 0 && !m_DownloadRanges.empty() && SysVars::GetVarValue(VAR_VERIFY_DOWNLOAD) != 0) {
        Result = VerifyDownload();
    }
    ForgetDownload();
    if (HaltAround) {
        m_AccessHalt = 0;
        if (WaitForHalt.load()) {
            TARVOARM_GoEx(0, 1);
        }
    }
    if (Connected.load()) {
        // A target that started running is noticed as TestConnectionLost does.
        TestConnectionLost();
    }
    if (Result < 0) {
        m_LastDownloadError = Result;
        LogWarnMsg(QStringLiteral("TARVOARM_EndDownload: Tarvo API call returned error code %1").arg(Result));
    } else {
        m_LastDownloadError = 0;
    }
    return Result;
}

int CDevice::ScheduleEndDownload(const QString& File, DOWNLOAD_MODES Mode, bool HaltAround) {
    DEVICE_JOB Job = NewJob(JT_END_DOWNLOAD);
    Job.Param[0] = Mode;
    Job.Param[1] = HaltAround ? 1 : 0;
    const QByteArray Name = File.toUtf8();
    if (Jobs::SetJobParam(&Job, 0, static_cast<U32>(Name.size()) + 1, Name.constData()) < 0) {
        return -1;
    }
    return ScheduleJob(&Job);
}

int CDevice::ScheduleDownload(const ELF_DATA_BLOCKS& Blocks, const QString& File, DOWNLOAD_MODES Mode,
                              const char* Zone) {
    std::vector<U32> Ranges;
    U64 Total = 0;
    for (const ELF_DATA_BLOCK& B : Blocks) {
        const U32 Size = qMin(B.Size, static_cast<U32>(B.Data.size()));
        // A block that would wrap the address space can't be described by a range.
        if (Size == 0 || static_cast<U64>(B.Address) + Size > 0xFFFFFFFFull) {
            continue;
        }
        Ranges.push_back(B.Address);
        Ranges.push_back(B.Address + Size);
        Total += Size;
    }
    if (Ranges.empty() || Total > 1000000000ull) {
        return ScheduleEndDownload(File, Mode, false);
    }
    DEVICE_JOB Job = NewJob(JT_WRITE_MEM_MULTIPLE);
    Job.Param[0] = Ranges.size() / 2;
    Job.Param[1] = Total;
    Job.Param[2] = DownloadChunkSize(GetFacts().TIFSpeedHz);
    Job.Param[3] = 0;
    // A probe that can't reach memory in the background needs the target halted for the writes.
    Job.Param[4] =
        MEM_ACCESS_DOWNLOAD | (Capabilities[0].load() == 1 ? 0u : static_cast<U32>(MEM_ACCESS_HALT));
    if (Jobs::SetJobParam(&Job, 0, static_cast<U32>(Ranges.size() * sizeof(U32)), Ranges.data()) < 0 ||
        Jobs::AllocJobParam(&Job, 1, static_cast<U32>(Total)) < 0) {
        Jobs::ReleaseJob(&Job);
        return -1;
    }
    U8* Data = static_cast<U8*>(Job.Buf[1]);
    for (const ELF_DATA_BLOCK& B : Blocks) {
        const U32 Size = qMin(B.Size, static_cast<U32>(B.Data.size()));
        if (Size == 0 || static_cast<U64>(B.Address) + Size > 0xFFFFFFFFull) {
            continue;
        }
        std::memcpy(Data, B.Data.constData(), Size);
        Data += Size;
    }
    if (Zone && Jobs::SetJobParam(&Job, 2, static_cast<U32>(std::strlen(Zone)) + 1, Zone) < 0) {
        Jobs::ReleaseJob(&Job);
        return -1;
    }
    if (ScheduleJob(&Job) < 0) {
        return -1;
    }
    return ScheduleEndDownload(File, Mode, false);
}
