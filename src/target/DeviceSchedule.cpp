// The scheduling forms: each builds a job on the caller's stack and hands it to the rings.

#include "target/Device.h"

#include "app/core/Log.h"
#include "app/core/SysVars.h"
#include "program/SymLoc.h"
#include "target/DeviceEvents.h"

#include <cstring>

namespace {

using Jobs::NewJob;

/// Width 255 stands for the default access width of the session.
U8 WidthOrDefault(U8 Width) {
    return Width == 255 ? static_cast<U8>(SysVars::GetVarValue(VAR_ACCESS_WIDTH)) : Width;
}

U32 TextSize(const char* Text) {
    return static_cast<U32>(std::strlen(Text)) + 1;
}

} // namespace

int CDevice::ScheduleConnect(CONNECT_MODES Mode) {
    DEVICE_JOB Job = NewJob(JT_CONNECT);
    Job.Param[0] = Mode;
    return ScheduleJob(&Job);
}

int CDevice::ScheduleDisconnect() {
    DeviceEvents::PostAboutToDisconnect();
    DEVICE_JOB Job = NewJob(JT_DISCONNECT);
    return ScheduleJob(&Job);
}

int CDevice::ScheduleReset(RESET_MODES Mode) {
    DEVICE_JOB Job = NewJob(JT_RESET);
    Job.Param[0] = Mode;
    return ScheduleJob(&Job);
}

int CDevice::ScheduleHalt() {
    DEVICE_JOB Job = NewJob(JT_HALT);
    return ScheduleJob(&Job);
}

int CDevice::ScheduleContinue(RESUME_MODES Mode) {
    DeviceEvents::PostAboutToResume(Mode);
    DEVICE_JOB Job = NewJob(JT_CONTINUE);
    Job.Param[0] = Mode;
    return ScheduleJob(&Job);
}

int CDevice::ScheduleReadReg(U32 Index) {
    DEVICE_JOB Job = NewJob(JT_READ_REG);
    Job.Param[0] = Index;
    return ScheduleJob(&Job);
}

int CDevice::ScheduleWriteReg(U32 Index, U64 Value) {
    DEVICE_JOB Job = NewJob(JT_WRITE_REG);
    Job.Param[0] = Index;
    Job.Param[1] = Value;
    return ScheduleJob(&Job);
}

int CDevice::ScheduleReadRegs(U32 Count, const U32* Indices) {
    if (Count == 0 || !Indices) {
        return -1;
    }
    DEVICE_JOB Job = NewJob(JT_READ_REGS);
    Job.Param[0] = Count;
    if (Jobs::SetJobParam(&Job, 0, Count * 4, Indices) < 0 || Jobs::AllocJobParam(&Job, 1, Count * 8) < 0 ||
        Jobs::AllocJobParam(&Job, 2, Count) < 0) {
        Jobs::ReleaseJob(&Job);
        return -1;
    }
    std::memset(Job.Buf[2], 1, Count);
    return ScheduleJob(&Job);
}

int CDevice::ScheduleReadCPReg(const char* Id) {
    if (!Id) {
        return -1;
    }
    DEVICE_JOB Job = NewJob(JT_READ_CP_REG);
    if (Jobs::SetJobParam(&Job, 0, TextSize(Id), Id) < 0) {
        return -1;
    }
    return ScheduleJob(&Job);
}

int CDevice::ScheduleWriteCPReg(const char* Id, U64 Value) {
    if (!Id) {
        return -1;
    }
    DEVICE_JOB Job = NewJob(JT_WRITE_CP_REG);
    Job.Param[0] = Value;
    if (Jobs::SetJobParam(&Job, 0, TextSize(Id), Id) < 0) {
        return -1;
    }
    return ScheduleJob(&Job);
}

int CDevice::ScheduleReadMem(U32 Address, U32 Count, U32 Chunk, U8 Width, U32 Flags, const char* Zone) {
    DEVICE_JOB Job = NewJob(JT_READ_MEM);
    Job.Param[0] = Address;
    Job.Param[1] = Count;
    Job.Param[2] = Chunk;
    Job.Param[3] = WidthOrDefault(Width);
    Job.Param[4] = Flags;
    if (Jobs::AllocJobParam(&Job, 0, Count) < 0 || Jobs::AllocJobParam(&Job, 1, Count) < 0 ||
        (Zone && Jobs::SetJobParam(&Job, 2, TextSize(Zone), Zone) < 0)) {
        Jobs::ReleaseJob(&Job);
        return -1;
    }
    std::memset(Job.Buf[1], 1, Count);
    return ScheduleJob(&Job);
}

int CDevice::ScheduleWriteMem(U32 Address, U32 Count, const void* Data, U32 Chunk, U8 Width, U32 Flags,
                              const char* Zone) {
    DEVICE_JOB Job = NewJob(JT_WRITE_MEM);
    Job.Param[0] = Address;
    Job.Param[1] = Count;
    Job.Param[2] = Chunk;
    Job.Param[3] = WidthOrDefault(Width);
    Job.Param[4] = Flags;
    if (Jobs::SetJobParam(&Job, 0, Count, Data) < 0 ||
        (Zone && Jobs::SetJobParam(&Job, 1, TextSize(Zone), Zone) < 0)) {
        Jobs::ReleaseJob(&Job);
        return -1;
    }
    return ScheduleJob(&Job);
}

int CDevice::ScheduleWriteMemMultiple(U32 RangeCount, const U32* Ranges, U32 DataSize, const void* Data,
                                      U32 Chunk, U8 Width, U32 Flags, const char* Zone) {
    DEVICE_JOB Job = NewJob(JT_WRITE_MEM_MULTIPLE);
    Job.Param[0] = RangeCount;
    Job.Param[1] = DataSize;
    Job.Param[2] = Chunk;
    Job.Param[3] = WidthOrDefault(Width);
    Job.Param[4] = Flags;
    if (Jobs::SetJobParam(&Job, 0, RangeCount * 8, Ranges) < 0 ||
        Jobs::SetJobParam(&Job, 1, DataSize, Data) < 0 ||
        (Zone && Jobs::SetJobParam(&Job, 2, TextSize(Zone), Zone) < 0)) {
        Jobs::ReleaseJob(&Job);
        return -1;
    }
    return ScheduleJob(&Job);
}

int CDevice::ScheduleReadLocs(U32 Count, const ELF_SYM_LOC* Locs, U64 Tag) {
    DEVICE_JOB Job = NewJob(JT_READ_LOCS);
    Job.Param[0] = Count;
    Job.Param[1] = Tag;
    if (Jobs::SetJobParam(&Job, 0, Count * static_cast<U32>(sizeof(ELF_SYM_LOC)), Locs) < 0 ||
        Jobs::AllocJobParam(&Job, 1, Count * 8) < 0 || Jobs::AllocJobParam(&Job, 2, Count) < 0) {
        Jobs::ReleaseJob(&Job);
        return -1;
    }
    std::memset(Job.Buf[2], 1, Count);
    return ScheduleJob(&Job);
}

int CDevice::ScheduleSetConfigParam(int Param, I32 Value) {
    if (Param < 0 || Param >= 17) {
        LogWarnMsg(QStringLiteral("Unknown configuration parameter with ID %1").arg(Param));
        return -1;
    }
    DEVICE_JOB Job = NewJob(JT_SET_CONFIG_PARAM);
    Job.Param[0] = static_cast<U64>(Param);
    Job.Param[1] = static_cast<U64>(static_cast<I64>(Value));
    return ScheduleJob(&Job);
}

int CDevice::ScheduleSetConfigParam(int Param, const char* Text) {
    if (!Text) {
        return -1;
    }
    DEVICE_JOB Job = NewJob(JT_SET_CONFIG_PARAM);
    Job.Param[0] = static_cast<U64>(Param);
    if (Jobs::SetJobParam(&Job, 0, TextSize(Text), Text) < 0) {
        return -1;
    }
    return ScheduleJob(&Job);
}

int CDevice::ScheduleConfigure(const char* SettingsText) {
    if (!SettingsText) {
        return -1;
    }
    DEVICE_JOB Job = NewJob(JT_CONFIGURE);
    if (Jobs::SetJobParam(&Job, 0, TextSize(SettingsText), SettingsText) < 0) {
        return -1;
    }
    return ScheduleJob(&Job);
}

int CDevice::ScheduleExecTarvoCmd(const char* Command) {
    if (!Command) {
        return -1;
    }
    DEVICE_JOB Job = NewJob(JT_EXEC_TARVO_CMD);
    if (Jobs::SetJobParam(&Job, 0, TextSize(Command), Command) < 0 || Jobs::AllocJobParam(&Job, 1, 512) < 0) {
        Jobs::ReleaseJob(&Job);
        return -1;
    }
    return ScheduleJob(&Job);
}

int CDevice::ScheduleGetDeviceInfo(const char* Name) {
    if (!Name) {
        return -1;
    }
    DEVICE_JOB Job = NewJob(JT_GET_DEVICE_INFO);
    if (Jobs::SetJobParam(&Job, 0, TextSize(Name), Name) < 0) {
        return -1;
    }
    return ScheduleJob(&Job);
}
