// Target memory: checks, the library call that fits size and alignment, chunks, and retries item by item.

#include "target/Device.h"

#include "app/core/Log.h"
#include "app/core/SysVars.h"
#include "probe/Tarvo.h"
#include "target/DeviceEvents.h"

#include <cstring>

namespace {

constexpr U32 PROGRESS_ABOVE = 4000;

bool Aligned(U32 Address, U32 Count) {
    return Count != 0 && Address % Count == 0;
}

U32 Item(U8 Width) {
    return Width > 0 ? Width : 1;
}

void FillStatus(U8* Status, U32 Count, U32 Got) {
    if (!Status) {
        return;
    }
    std::memset(Status, 0, Got);
    std::memset(Status + Got, 1, Count - Got);
}

/// Runs a block access chunk by chunk with progress. A single chunk was already tried whole by the
/// caller, so only its item-wise retry is left; with MEM_ACCESS_ITEM_RETRY a short chunk is retried item by
/// item. Gives the bytes done.
template <class SimpleFn, class ItemFn>
U32 RunChunks(U32 Count, U32 Chunk, U32 Flags, const char* Message, SimpleFn Simple, ItemFn ItemWise) {
    if (Chunk == 0 || Chunk > Count) {
        Chunk = Count;
    }
    const U32 Chunks = (Count + Chunk - 1) / Chunk;
    const bool Progress = Count > PROGRESS_ABOVE;
    if (Progress) {
        DeviceEvents::PostProgressMsg(Message);
        if (Chunks > 1) {
            DeviceEvents::PostStartProgress(0, static_cast<int>(Chunks - 1));
        }
    }
    U32 Sum = 0;
    for (U32 i = 0; i < Chunks; ++i) {
        const U32 Offset = i * Chunk;
        const U32 Size = qMin(Chunk, Count - Offset);
        U32 Done = Size != Count ? Simple(Offset, Size) : 0;
        if ((Flags & MEM_ACCESS_ITEM_RETRY) && Done < Size) {
            Done = ItemWise(Offset, Size);
        }
        Sum += Done;
        if (Progress) {
            DeviceEvents::PostProgressValue(static_cast<int>(i));
        }
    }
    return Sum;
}

} // namespace

bool CDevice::HasBackgroundAccess() const {
    const U8 Cap = Capabilities[0].load();
    if (Cap == 1) {
        return true;
    }
    return Cap == 2 && SysVars::GetVarValue(VAR_ALLOW_BMA_EMULATION) != 0;
}

bool CDevice::IsMemoryAccessible() {
    if (!Connected.load()) {
        return false;
    }
    const bool Halted = m_AccessHalt.load() ||
                        (QThread::currentThreadId() == m_ThreadId ? IsTargetHalted() : HaltDone.load() != 0);
    return Halted || HasBackgroundAccess();
}

int CDevice::ValidateMemoryAccessParams(bool IsRead, U32 Address, U32 Count, U8, U32, const void* Data,
                                        const U8* Status) {
    const QString Prefix = IsRead ? QStringLiteral("ReadMem:") : QStringLiteral("WriteMem:");
    QString Problem;
    if (!Connected.load()) {
        Problem = QStringLiteral("not connected to target");
    } else if (!Data) {
        Problem = QStringLiteral("invalid data buffer");
    } else if (IsRead && !Status) {
        Problem = QStringLiteral("invalid status buffer");
    } else if (Count == 0) {
        Problem = QStringLiteral("byte count is 0");
    } else if (static_cast<U32>(Address + Count) == 0xFFFFFFFFu) {
        Problem = QStringLiteral("access outside address range limit");
    } else if (Address == 0xFFFFFFFFu) {
        Problem = QStringLiteral("attempting to access %1 bytes at invalid address %2")
                      .arg(Count)
                      .arg(Address, 0, 16);
    } else if (!IsMemoryAccessible()) {
        Problem = QStringLiteral("cannot access memory while target is running");
    }
    if (Problem.isEmpty()) {
        return 0;
    }
    LogWarnMsg(Prefix + Problem);
    return -1;
}

U32 CDevice::ReadMemSimple(U32 Address, U32 Count, U8 Width, U32 Flags, const char* Zone, U8* Data,
                           U8* Status) {
    if (!Data || !Status ||
        ValidateMemoryAccessParams(true, Address, Count, Width, Flags, Data, Status) < 0) {
        return 0;
    }
    std::memset(Data, 0, Count);
    const bool Align = Aligned(Address, Count);
    int Got = 0;
    U8 ItemStatus[8] = {};
    if (Count == 1 && !Zone) {
        Got = TARVOARM_ReadMemU8(Address, 1, Data, ItemStatus) == 1 ? 1 : 0;
    } else if (Count == 2 && Align) {
        U16 Value = 0;
        Got = Zone ? (TARVO_ReadMemZonedU16(Address, 2, &Value, ItemStatus, Zone) == 2 ? 2 : 0)
                   : (TARVOARM_ReadMemU16(Address, 1, &Value, ItemStatus) == 1 ? 2 : 0);
        std::memcpy(Data, &Value, Got);
    } else if (Count == 4 && Align) {
        U32 Value = 0;
        Got = Zone ? (TARVO_ReadMemZonedU32(Address, 1, &Value, ItemStatus, Zone) == 4 ? 4 : 0)
                   : (TARVOARM_ReadMemU32(Address, 1, &Value, ItemStatus) == 1 ? 4 : 0);
        std::memcpy(Data, &Value, Got);
    } else if (Count == 8 && Align && !Zone) {
        U64 Value = 0;
        Got = TARVOARM_ReadMemU64(Address, 1, &Value, ItemStatus) == 1 ? 8 : 0;
        std::memcpy(Data, &Value, Got);
    } else {
        Got = Zone ? TARVO_ReadMemZonedEx(Address, Count, Data, Width, Zone)
                   : TARVOARM_ReadMemEx(Address, Count, Data, Width);
        Got = Got < 0 ? 0 : qMin(static_cast<U32>(Got), Count);
    }
    FillStatus(Status, Count, static_cast<U32>(Got));
    return static_cast<U32>(Got);
}

U32 CDevice::ReadMemItemWise(U32 Address, U32 Count, U8 Width, U32 Flags, const char* Zone, U8* Data,
                             U8* Status) {
    const U32 Size = Item(Width);
    U32 Sum = 0;
    for (U32 Offset = 0; Offset < Count; Offset += Size) {
        const U32 N = qMin(Size, Count - Offset);
        Status[Offset] = 1;
        Sum += ReadMemSimple(Address + Offset, N, Width, Flags, Zone, Data + Offset, Status + Offset);
    }
    return Sum;
}

U32 CDevice::ReadMemChunkWise(U32 Address, U32 Count, U32 Chunk, U8 Width, U32 Flags, const char* Zone,
                              U8* Data, U8* Status) {
    if (!Data || !Status) {
        return 0;
    }
    const U32 Sum = RunChunks(
        Count, Chunk, Flags, "Reading Memory...",
        [&](U32 Offset, U32 Size) {
            return ReadMemSimple(Address + Offset, Size, Width, Flags, Zone, Data + Offset, Status + Offset);
        },
        [&](U32 Offset, U32 Size) {
            return ReadMemItemWise(Address + Offset, Size, Width, Flags, Zone, Data + Offset,
                                   Status + Offset);
        });
    if (IsTargetHalted()) {
        DeviceEvents::PostEndProgress();
    }
    return Sum;
}

U32 CDevice::ReadMem(U32 Address, U32 Count, U32 Chunk, U8 Width, U32 Flags, const char* Zone, U8* Data,
                     U8* Status) {
    ARNEX_CHECK_DEVICE_THREAD();
    if (!Data || !Status) {
        return 0;
    }
    const bool Halted = HaltForAccess(Flags);
    Flags &= ~static_cast<U32>(MEM_ACCESS_HALT);
    U32 Got = 0;
    if (ValidateMemoryAccessParams(true, Address, Count, Width, Flags, Data, Status) == 0) {
        Got = ReadMemSimple(Address, Count, Width, Flags, Zone, Data, Status);
        if (Got < Count && Chunk != 0) {
            Got += ReadMemChunkWise(Address + Got, Count - Got, Chunk, Width, Flags, Zone, Data + Got,
                                    Status + Got);
        }
    } else {
        FillStatus(Status, Count, 0);
    }
    ResumeAfterAccess(Halted);
    return Got;
}

int CDevice::ReadMemDirect(U32 Address, const char* Zone, U32 Count, U8* Data, U8* Status) {
    // Any thread: the lock keeps a batch of the device thread out for the time of the read.
    QMutexLocker Lock(&m_DeviceMutex);
    U8* Use = Status;
    if (!Use) {
        if (Count > sizeof(m_ScratchStatus)) {
            return -1;
        }
        Use = m_ScratchStatus;
    }
    return ReadMem(Address, Count, 0, 0, 0, Zone, Data, Use) == Count ? 0 : -1;
}

U32 CDevice::WriteMemSimple(U32 Address, U32 Count, U8 Width, const char* Zone, const U8* Data) {
    if (!Data || ValidateMemoryAccessParams(false, Address, Count, Width, 0, Data, nullptr) < 0) {
        return 0;
    }
    const bool Align = Aligned(Address, Count);
    int Written = 0;
    if (Count == 1) {
        Written = TARVOARM_WriteU8(Address, Data[0]) == 0 ? 1 : 0;
    } else if (Count == 2 && Align) {
        U16 V = 0;
        std::memcpy(&V, Data, 2);
        Written = (Zone ? TARVO_WriteZonedU16(Address, V, Zone) : TARVOARM_WriteU16(Address, V)) == 0 ? 2 : 0;
    } else if (Count == 4 && Align) {
        U32 V = 0;
        std::memcpy(&V, Data, 4);
        Written = (Zone ? TARVO_WriteZonedU32(Address, V, Zone) : TARVOARM_WriteU32(Address, V)) == 0 ? 4 : 0;
    } else if (Count == 8 && Align && !Zone) {
        U64 V = 0;
        std::memcpy(&V, Data, 8);
        Written = TARVOARM_WriteU64(Address, V) == 0 ? 8 : 0;
    } else {
        Written = Zone ? TARVO_WriteMemZonedEx(Address, Count, Data, Width, Zone)
                       : TARVOARM_WriteMemEx(Address, Count, Data, Width);
        Written = Written < 0 ? 0 : qMin(static_cast<U32>(Written), Count);
    }
    return static_cast<U32>(Written);
}

U32 CDevice::WriteMemItemWise(U32 Address, U32 Count, U8 Width, const char* Zone, const U8* Data) {
    const U32 Size = Item(Width);
    U32 Sum = 0;
    for (U32 Offset = 0; Offset < Count; Offset += Size) {
        Sum += WriteMemSimple(Address + Offset, qMin(Size, Count - Offset), Width, Zone, Data + Offset);
    }
    return Sum;
}

U32 CDevice::WriteMemChunkWise(U32 Address, U32 Count, U32 Chunk, U8 Width, U32 Flags, const char* Zone,
                               const U8* Data) {
    if (!Data) {
        return 0;
    }
    const U32 Sum = RunChunks(
        Count, Chunk, Flags, "Writing Memory...",
        [&](U32 Offset, U32 Size) {
            return WriteMemSimple(Address + Offset, Size, Width, Zone, Data + Offset);
        },
        [&](U32 Offset, U32 Size) {
            return WriteMemItemWise(Address + Offset, Size, Width, Zone, Data + Offset);
        });
    DeviceEvents::PostEndProgress();
    return Sum;
}

U32 CDevice::WriteMem(U32 Address, U32 Count, U32 Chunk, U8 Width, U32 Flags, const char* Zone,
                      const U8* Data) {
    ARNEX_CHECK_DEVICE_THREAD();
    if (!Data) {
        return 0;
    }
    const bool Halted = HaltForAccess(Flags);
    Flags &= ~static_cast<U32>(MEM_ACCESS_HALT);
    const bool Flash = Flags & MEM_ACCESS_FLASH;
    if (Flash) {
        BeginDownloadBracket();
    }
    U32 Written = 0;
    if (ValidateMemoryAccessParams(false, Address, Count, Width, Flags, Data, nullptr) == 0) {
        Written = WriteMemSimple(Address, Count, Width, Zone, Data);
        if (Written < Count && Chunk != 0) {
            Written += WriteMemChunkWise(Address + Written, Count - Written, Chunk, Width, Flags, Zone,
                                         Data + Written);
        }
    }
    if (Flash) {
        EndDownloadBracket();
    }
    ResumeAfterAccess(Halted);
    return Written;
}

U32 CDevice::WriteMemMultiple(U32 RangeCount, const U32* Ranges, U32 DataSize, const U8* Data, U32 Chunk,
                              U8 Width, U32 Flags, const char* Zone) {
    ARNEX_CHECK_DEVICE_THREAD();
    if (!Ranges || !Data || RangeCount == 0) {
        return 0;
    }
    const bool Halted = HaltForAccess(Flags);
    const bool Flash = Flags & MEM_ACCESS_FLASH;
    if (Flash) {
        BeginDownloadBracket();
    }
    // The writes of a download open the probe's download once; JT_END_DOWNLOAD closes it.
    const bool Download = Flags & MEM_ACCESS_DOWNLOAD;
    if (Download && !m_DownloadOpen) {
        m_DownloadOpen = BeginDownload() == 0;
    }
    const U32 Inner = Flags & ~static_cast<U32>(MEM_ACCESS_FLASH | MEM_ACCESS_HALT | MEM_ACCESS_DOWNLOAD);
    U32 Consumed = 0;
    U32 Written = 0;
    for (U32 i = 0; i < RangeCount; ++i) {
        const U32 Begin = Ranges[2 * i];
        const U32 End = Ranges[2 * i + 1];
        const U32 Length = End - Begin;
        if (End < Begin || static_cast<U64>(Consumed) + Length > DataSize) {
            break;
        }
        Written += WriteMem(Begin, Length, Chunk, Width, Inner, Zone, Data + Consumed);
        Consumed += Length;
    }
    if (Download) {
        RecordDownloadWrites(RangeCount, Ranges, DataSize, Data, Written);
    }
    if (Flash) {
        EndDownloadBracket();
    }
    ResumeAfterAccess(Halted);
    return Written;
}

bool CDevice::HaltForAccess(U32 Flags) {
    if (!(Flags & MEM_ACCESS_HALT) || !Connected.load() || IsTargetHalted()) {
        return false;
    }
    // The halt is known from the library's answer: a query of the halt state right after it would be
    // refused by the 50 ms limit of the queries, and the access with it.
    if (TARVOARM_Halt() == 0) {
        m_AccessHalt = 1;
    }
    return true;
}

void CDevice::ResumeAfterAccess(bool HaltedForIt) {
    if (!HaltedForIt) {
        return;
    }
    m_AccessHalt = 0;
    if (Connected.load()) {
        TARVOARM_GoEx(0, 1);
    }
}

void CDevice::HaltBeforeMemoryIO() {
    if (Connected.load()) {
        TARVOARM_Halt();
    }
}

void CDevice::ResumeAfterMemoryIO() {
    if (Connected.load()) {
        TARVOARM_GoEx(0, 1);
    }
}

void CDevice::BeginDownloadBracket() {
    BeginDownload();
}

void CDevice::EndDownloadBracket() {
    EndDownload(false);
}
