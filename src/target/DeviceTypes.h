#pragma once

#include "app/core/JobTypes.h"
#include "app/core/Types.h"

#include <QMetaType>

/// How a connection is made.
enum CONNECT_MODES : U32 {
    CM_DOWNLOAD_RESET = 0,
    CM_ATTACH = 1,
    CM_ATTACH_HALT = 2,
    CM_SILENT = 3, ///< open the connection and nothing else; raises no event
};

/// How a reset is made, and what follows it.
enum RESET_MODES : U32 {
    RM_RESET_HALT = 0,
    RM_BREAK_AT_SYMBOL = 1,
    RM_RESET_AND_RUN = 2,
    RM_RESET_DOWNLOAD = 3, ///< the reset before a download
    RM_HARDWARE = 4,       ///< the reset alone; raises no event
    RM_EXEC_STATE = 5,     ///< no reset took place: listeners refresh from the execution state
};

/// Why the target stopped.
enum HALT_REASONS : U32 {
    HR_NORMAL = 0,     ///< by request, after a reset or a step sequence
    HR_PC_WRITTEN = 1, ///< the PC was written; the target did not move
    HR_BREAKPOINT = 2, ///< a user breakpoint
    HR_RUN_TO = 3,     ///< a run-to reached its address
};

enum RESUME_MODES : U32 { GO_USER = 0, GO_RUN_TO = 1 };

/// What a download writes.
enum DOWNLOAD_MODES : U32 {
    DOWNLOAD_PROGRAM = 0,   ///< the program of the debug session
    DOWNLOAD_DATA_FILE = 1, ///< a file that the user chose
    DOWNLOAD_SILENT = 2,    ///< a file chosen at the session's start, without handler and follow-ups
};

/// The rings of the device.
enum JOB_QUEUES : U32 {
    JQ_COMMAND = 0,
    JQ_READ = 1,
    JQ_BACKGROUND = 2,
    JQ_OF_KIND = 3, ///< FindJob and CancelJobs: the ring of the kind
    JQ_ALL = 4,     ///< all rings in order
};

/// Status of a job that has run.
enum JOB_STATUS : U32 { JS_DONE = 0, JS_FAILED = 1, JS_CANCELED = 2 };

constexpr U32 JOB_FLAG_PENDING = 0x1;
/// The job has run and waits in its slot for its event to be delivered.
constexpr U32 JOB_FLAG_RAN = 0x2;

/// One unit of work for the device thread, copied by value.
struct DEVICE_JOB {
    U32 Type;
    U32 Queue;
    U64 Id;
    U32 Status;
    U32 Flags;
    U64 Result[4];
    U64 Param[6];
    void* Buf[3];
    U32 BufSize[3];
};
Q_DECLARE_METATYPE(DEVICE_JOB)

namespace Jobs {

/// The kind's name ("JT_CONNECT"), "Last" for JT_LAST and "Unknown" for any other number.
const char* JobName(U32 Type);
/// The ring that serves a kind.
U32 QueueOf(U32 Type);
/// The default time limit of WaitForJob for a kind, in milliseconds.
int DefaultWaitMs(U32 Type);
/// Kinds that need their first dynamic parameter to be valid.
bool NeedsBuffer(U32 Type);
bool IsStepKind(U32 Type);
/// A zeroed record of the kind, ready for its parameters.
DEVICE_JOB NewJob(U32 Type);

/// Allocates a dynamic parameter of Size bytes (zeroed, one byte more for a terminator). -1 with the
/// messages for an invalid job, an index above 2, a buffer already set, or a size of 0 or above 1e9.
int AllocJobParam(DEVICE_JOB* Job, int Index, U32 Size);
/// AllocJobParam and a copy of Size bytes of Data, if Data is not null.
int SetJobParam(DEVICE_JOB* Job, int Index, U32 Size, const void* Data);
/// Frees the dynamic parameters and zeroes the record, which frees its slot.
void ReleaseJob(DEVICE_JOB* Job);

} // namespace Jobs
