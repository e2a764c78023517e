#pragma once

#include "app/core/JobTypes.h"
#include "app/core/Types.h"

/// Which device job a script command waits for before the script's next line runs, and the device's side
/// of that wait. The device thread installs its side when it exists; until then no command waits.
namespace TapiWaits {

using JOB_KINDS = JOB_TYPES;

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
