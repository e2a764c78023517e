#include "target/DeviceTypes.h"

#include "app/core/Log.h"

#include <cstdlib>
#include <cstring>

namespace {

struct KIND_INFO {
    const char* Name;
    U32 Queue;
    int WaitMs;
    bool NeedsBuffer;
};

// Indexed by kind number. Keep in step with JOB_TYPES.
const KIND_INFO s_Kinds[JT_LAST] = {
    {"JT_NONE", JQ_COMMAND, 5000, false},
    {"JT_CONNECT", JQ_COMMAND, 120000, false},
    {"JT_DISCONNECT", JQ_COMMAND, 5000, false},
    {"JT_RESET", JQ_COMMAND, 60000, false},
    {"JT_HALT", JQ_COMMAND, 5000, false},
    {"JT_CONTINUE", JQ_COMMAND, 5000, false},
    {"JT_STEP_INST", JQ_COMMAND, 5000, false},
    {"JT_STEP_INTO", JQ_COMMAND, 5000, false},
    {"JT_STEP_OVER", JQ_COMMAND, 5000, false},
    {"JT_STEP_OUT", JQ_COMMAND, 5000, false},
    {"JT_STEP", JQ_COMMAND, 5000, false},
    {"JT_RUN_TO", JQ_COMMAND, 5000, false},
    {"JT_EXEC_TARVO_CMD", JQ_COMMAND, 60000, true},
    {"JT_SET_BP", JQ_COMMAND, 5000, false},
    {"JT_SET_BPS", JQ_COMMAND, 5000, true},
    {"JT_CLEAR_BP", JQ_COMMAND, 5000, false},
    {"JT_CLEAR_BPS", JQ_COMMAND, 5000, true},
    {"JT_CLEAR_ALL_BPS", JQ_COMMAND, 5000, false},
    {"JT_RESET_BPS", JQ_COMMAND, 5000, false},
    {"JT_SET_WPS", JQ_COMMAND, 5000, true},
    {"JT_CLEAR_WPS", JQ_COMMAND, 5000, true},
    {"JT_CLEAR_ALL_WPS", JQ_COMMAND, 5000, false},
    {"JT_SET_TPS", JQ_COMMAND, 5000, true},
    {"JT_CLEAR_TPS", JQ_COMMAND, 5000, true},
    {"JT_CLEAR_ALL_TPS", JQ_COMMAND, 5000, false},
    {"JT_READ_REG", JQ_READ, 5000, false},
    {"JT_WRITE_REG", JQ_COMMAND, 5000, false},
    {"JT_READ_CP_REG", JQ_READ, 5000, true},
    {"JT_WRITE_CP_REG", JQ_COMMAND, 5000, true},
    {"JT_READ_REGS", JQ_READ, 5000, true},
    {"JT_END_DOWNLOAD", JQ_COMMAND, 120000, false},
    {"JT_READ_MEM", JQ_READ, 10000, false},
    {"JT_WRITE_MEM", JQ_COMMAND, 120000, true},
    {"JT_WRITE_MEM_MULTIPLE", JQ_COMMAND, 5000, true},
    {"JT_READ_BYTE", JQ_COMMAND, 5000, false},
    {"JT_WRITE_BYTE", JQ_COMMAND, 5000, false},
    {"JT_READ_LOCS", JQ_READ, 5000, true},
    {"JT_ENABLE_SIMPLE_TRACE", JQ_COMMAND, 5000, false},
    {"JT_DISABLE_SIMPLE_TRACE", JQ_COMMAND, 5000, false},
    {"JT_START_SIMPLE_TRACE", JQ_COMMAND, 5000, false},
    {"JT_STOP_SIMPLE_TRACE", JQ_COMMAND, 5000, false},
    {"JT_READ_SIMPLE_TRACE", JQ_READ, 5000, true},
    {"JT_READ_INST_STATS", JQ_READ, 5000, true},
    {"JT_FLUSH_STRACE_BUFFER", JQ_COMMAND, 5000, false},
    {"JT_START_SWO_TRACE", JQ_COMMAND, 10000, false},
    {"JT_STOP_SWO_TRACE", JQ_COMMAND, 10000, false},
    {"JT_READ_SWO_TRACE", JQ_READ, 5000, true},
    {"JT_SWO_GET_COMPAT_SPEEDS", JQ_COMMAND, 5000, true},
    {"JT_START_MCT", JQ_COMMAND, 10000, false},
    {"JT_STOP_MCT", JQ_COMMAND, 10000, false},
    {"JT_FLUSH_MCT", JQ_READ, 10000, false},
    {"JT_READ_MCT", JQ_READ, 5000, true},
    {"JT_WRITE_MCT", JQ_READ, 5000, false},
    {"JT_START_HSS", JQ_COMMAND, 10000, false},
    {"JT_STOP_HSS", JQ_COMMAND, 10000, false},
    {"JT_READ_HSS", JQ_READ, 5000, true},
    {"JT_START_POWER_TRACE", JQ_COMMAND, 10000, false},
    {"JT_STOP_POWER_TRACE", JQ_COMMAND, 10000, false},
    {"JT_READ_POWER_TRACE", JQ_READ, 5000, false},
    {"JT_FLUSH_POWER_TRACE", JQ_COMMAND, 5000, false},
    {"JT_CONFIGURE", JQ_COMMAND, 60000, true},
    {"JT_SET_CONFIG_PARAM", JQ_COMMAND, 5000, false},
    {"JT_GET_DEVICE_INFO", JQ_READ, 5000, true},
    {"JT_MEASURE_CORE_SPEED", JQ_BACKGROUND, 5000, false},
    {"JT_RESET_TARGET_EXEC_STATE", JQ_COMMAND, 5000, false},
    {"JT_SET_TARGET_EXEC_STATE", JQ_COMMAND, 5000, false},
    {"JT_SET_SH_INPUT_TEXT", JQ_READ, 5000, true},
    {"JT_ANY", JQ_COMMAND, 5000, false},
};

constexpr U32 MAX_PARAM_BYTES = 1000000000u;

} // namespace

namespace Jobs {

const char* JobName(U32 Type) {
    if (Type == JT_LAST) {
        return "Last";
    }
    if (Type >= 1 && Type < JT_LAST && Type != JT_STEP && Type != JT_ANY) {
        return s_Kinds[Type].Name;
    }
    return "Unknown";
}

U32 QueueOf(U32 Type) {
    return Type < JT_LAST ? s_Kinds[Type].Queue : JQ_COMMAND;
}

int DefaultWaitMs(U32 Type) {
    return Type < JT_LAST ? s_Kinds[Type].WaitMs : 5000;
}

bool NeedsBuffer(U32 Type) {
    return Type < JT_LAST && s_Kinds[Type].NeedsBuffer;
}

DEVICE_JOB NewJob(U32 Type) {
    DEVICE_JOB Job;
    std::memset(static_cast<void*>(&Job), 0, sizeof(Job));
    Job.Type = Type;
    return Job;
}

bool IsStepKind(U32 Type) {
    return Type == JT_STEP_INST || Type == JT_STEP_INTO || Type == JT_STEP_OVER || Type == JT_STEP_OUT;
}

int AllocJobParam(DEVICE_JOB* Job, int Index, U32 Size) {
    if (!Job || Job->Type == 0 || Job->Type >= JT_ANY || Index < 0 || Index > 2) {
        return -1;
    }
    if (Job->Buf[Index]) {
        LogWarnMsg(
            QStringLiteral("Job %1 has unallocated parameter.").arg(QLatin1String(JobName(Job->Type))));
        return -1;
    }
    if (Size == 0 || Size > MAX_PARAM_BYTES) {
        LogErrorMsg(QStringLiteral("Size limit exceeded for dynamic parameter of job %1.")
                        .arg(QLatin1String(JobName(Job->Type))));
        return -1;
    }
    void* Buffer = std::calloc(static_cast<size_t>(Size) + 1, 1);
    if (!Buffer) {
        LogErrorMsg(QStringLiteral("Size limit exceeded for dynamic parameter of job %1.")
                        .arg(QLatin1String(JobName(Job->Type))));
        return -1;
    }
    Job->Buf[Index] = Buffer;
    Job->BufSize[Index] = Size + 1;
    return 0;
}

int SetJobParam(DEVICE_JOB* Job, int Index, U32 Size, const void* Data) {
    if (AllocJobParam(Job, Index, Size) < 0) {
        return -1;
    }
    if (Data) {
        std::memcpy(Job->Buf[Index], Data, Size);
    }
    return 0;
}

void ReleaseJob(DEVICE_JOB* Job) {
    if (!Job) {
        return;
    }
    for (int i = 0; i < 3; ++i) {
        if (Job->BufSize[i] != 0) {
            std::free(Job->Buf[i]);
        }
    }
    std::memset(static_cast<void*>(Job), 0, sizeof(DEVICE_JOB));
}

} // namespace Jobs
