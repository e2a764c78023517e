// The job dispatcher of the device thread: one case per job kind.

#include "target/Device.h"

#include "app/core/Log.h"
#include "probe/Tarvo.h"
#include "program/SymLoc.h"
#include "target/DeviceConfig.h"

#include <cstring>

I64 CDevice::ExecuteJob(DEVICE_JOB* Job) {
    U64* P = Job->Param;
    U64* R = Job->Result;
    switch (Job->Type) {
    case JT_READ_MEM: {
        // Byte counts come back; the status bytes tell what is missing.
        auto* Data = static_cast<U8*>(Job->Buf[0]);
        auto* Status = static_cast<U8*>(Job->Buf[1]);
        if (!Data || !Status) {
            return -1;
        }
        return ReadMem(static_cast<U32>(P[0]), static_cast<U32>(P[1]), static_cast<U32>(P[2]),
                       static_cast<U8>(P[3]), static_cast<U32>(P[4]), static_cast<const char*>(Job->Buf[2]),
                       Data, Status);
    }
    case JT_WRITE_MEM:
        return WriteMem(static_cast<U32>(P[0]), static_cast<U32>(P[1]), static_cast<U32>(P[2]),
                        static_cast<U8>(P[3]), static_cast<U32>(P[4]), static_cast<const char*>(Job->Buf[1]),
                        static_cast<const U8*>(Job->Buf[0]));
    case JT_WRITE_MEM_MULTIPLE:
        return WriteMemMultiple(static_cast<U32>(P[0]), static_cast<const U32*>(Job->Buf[0]),
                                static_cast<U32>(P[1]), static_cast<const U8*>(Job->Buf[1]),
                                static_cast<U32>(P[2]), static_cast<U8>(P[3]), static_cast<U32>(P[4]),
                                static_cast<const char*>(Job->Buf[2]));
    case JT_READ_REG:
        return ReadReg(static_cast<U32>(P[0]), &R[0]);
    case JT_WRITE_REG:
        return WriteReg(static_cast<U32>(P[0]), P[1]);
    case JT_READ_REGS:
        return ReadRegs(static_cast<U32>(P[0]), static_cast<const U32*>(Job->Buf[0]),
                        static_cast<U64*>(Job->Buf[1]), static_cast<U8*>(Job->Buf[2]));
    case JT_READ_CP_REG:
        return ReadCPReg(static_cast<const char*>(Job->Buf[0]), &R[0]);
    case JT_WRITE_CP_REG:
        return WriteCPReg(static_cast<const char*>(Job->Buf[0]), P[0]);
    case JT_READ_LOCS:
        return ReadLocs(static_cast<U32>(P[0]), static_cast<const ELF_SYM_LOC*>(Job->Buf[0]),
                        static_cast<U64*>(Job->Buf[1]), static_cast<U8*>(Job->Buf[2]));
    case JT_READ_BYTE:
    case JT_WRITE_BYTE:
    case JT_FLUSH_MCT:
        // Never scheduled by the system; answered as failed.
        return -1;
    case JT_CONFIGURE:
        return ConfigureFromText(static_cast<const char*>(Job->Buf[0]));
    case JT_SET_CONFIG_PARAM:
        if (Job->Buf[0]) {
            return SetConfigParam(static_cast<int>(P[0]), static_cast<const char*>(Job->Buf[0]));
        }
        return SetConfigParam(static_cast<int>(P[0]), static_cast<I32>(P[1]));
    case JT_EXEC_TARVO_CMD: {
        char* Answer = static_cast<char*>(Job->Buf[1]);
        const int Size = Answer ? static_cast<int>(Job->BufSize[1]) : 0;
        const int Result = ExecTarvoCmd(static_cast<const char*>(Job->Buf[0]), Size, Answer, true);
        R[0] = static_cast<U64>(static_cast<I64>(Result));
        return Result == 0 ? 0 : -1;
    }
    case JT_CONNECT:
        return Connect(static_cast<U32>(P[0]));
    case JT_DISCONNECT:
        return Disconnect();
    case JT_RESET:
        return Reset(static_cast<U32>(P[0]));
    case JT_END_DOWNLOAD: {
        const int Result = EndDownload(P[1] != 0);
        R[0] = static_cast<U64>(static_cast<I64>(Result));
        // Every download ends in one event: any negative code is a failure, and the code travels in R0.
        return Result < 0 ? -1 : 0;
    }
    case JT_GET_DEVICE_INFO: {
        const int Index = TARVOARM_DEVICE_GetIndex(static_cast<const char*>(Job->Buf[0]));
        TARVO_DEVICE_INFO Entry;
        std::memset(&Entry, 0, sizeof(Entry));
        Entry.SizeOfStruct = sizeof(Entry);
        if (Index < 1 || TARVOARM_DEVICE_GetInfo(Index, &Entry) < 0) {
            return -1;
        }
        R[1] = Entry.Core;
        return 0;
    }
    case JT_RESET_TARGET_EXEC_STATE:
        ResetTargetExecState();
        return 0;
    case JT_SET_TARGET_EXEC_STATE:
        return SetTargetExecState(P[0], P[1]);
    default:
        // The kinds of the connection, run control, breakpoints, download, trace and channels come with
        // their handlers; until then a job of theirs fails rather than pretend.
        return -1;
    }
}
