#pragma once

#include "app/core/Types.h"

/// Which device job a script command waits for before the script's next line runs, and the device's side
/// of that wait. The device thread installs its side when it exists; until then no command waits.
namespace TapiWaits {

/// Kinds of device jobs, with the device thread's fixed numbers.
enum JOB_KINDS : U32 {
    JT_NONE = 0,
    JT_CONNECT = 1,
    JT_DISCONNECT = 2,
    JT_RESET = 3,
    JT_HALT = 4,
    JT_CONTINUE = 5,
    JT_STEP_INST = 6,
    JT_STEP_INTO = 7,
    JT_STEP_OVER = 8,
    JT_STEP_OUT = 9,
    JT_RUN_TO = 11,
    JT_EXEC_TARVO_CMD = 12,
    JT_SET_BP = 13,
    JT_SET_BPS = 14,
    JT_CLEAR_BP = 15,
    JT_CLEAR_BPS = 16,
    JT_CLEAR_ALL_BPS = 17,
    JT_SET_WPS = 19,
    JT_CLEAR_WPS = 20,
    JT_CLEAR_ALL_WPS = 21,
    JT_SET_TPS = 22,
    JT_CLEAR_TPS = 23,
    JT_CLEAR_ALL_TPS = 24,
    JT_WRITE_REG = 26,
    JT_WRITE_CP_REG = 28,
    JT_END_DOWNLOAD = 30,
    JT_READ_MEM = 31,
    JT_WRITE_MEM = 32,
    JT_START_SWO_TRACE = 44,
    JT_START_MCT = 48,
    JT_STOP_MCT = 49,
    JT_CONFIGURE = 60,
    JT_SET_CONFIG_PARAM = 61,
};

enum WAIT_OPS : U8 {
    WAIT_NONE,
    WAIT_JOB,         ///< the job's event
    WAIT_JOB_EVENTS,  ///< the job's event, processing GUI events meanwhile
    WAIT_EITHER_JOB,  ///< Job or Other, whichever the device scheduled
    WAIT_ON_OFF_JOB,  ///< Job if the first argument is not 0, else Other
    WAIT_HALTED,      ///< the target to report halted
    WAIT_DEVICE_IDLE, ///< the session to stand with no job pending
};

struct WAIT_STEP {
    WAIT_OPS Op;
    JOB_KINDS Job;
    JOB_KINDS Other;
};

/// One row of the table: a command and up to two waits in order.
struct COMMAND_WAIT {
    const char* Command;
    WAIT_STEP Steps[2];
};

/// The device's side of the waits.
class CDeviceWaits {
public:
    virtual ~CDeviceWaits() = default;
    /// Waits for the job of that kind and delivers its event before returning.
    virtual int WaitForJobEvent(JOB_KINDS Kind, bool ProcessEvents) = 0;
    /// True if the target halted.
    virtual bool WaitForHalted() = 0;
    /// 0, or -1 after the time limit.
    virtual int WaitForDeviceIdle() = 0;
    /// Which of two kinds the last command scheduled: a step at source or at instruction level, one or
    /// several breakpoints, a core or a coprocessor register.
    virtual JOB_KINDS ScheduledKind(JOB_KINDS First, JOB_KINDS Second) = 0;
};

/// Installed by the device layer; null (the start) means no device and no waiting.
void SetDeviceWaits(CDeviceWaits* Device);
CDeviceWaits* GetDeviceWaits();

/// The wait row of a command id, or null.
const COMMAND_WAIT* FindWait(U32 CommandId);
/// All rows, for the tests.
const COMMAND_WAIT* GetRows(int* Count);
/// Runs the waits of a command that has just run with Args.
void WaitAfterCommand(U32 CommandId, const U64* Args, int Count);

} // namespace TapiWaits
