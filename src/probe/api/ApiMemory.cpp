// Exported functions of memory access and download. Typed reads give the number of whole items
// read, block reads the number of bytes; both stop at the first byte that can't be read. The access
// width of block calls can't be chosen over the remote protocol and is taken as a hint only.

#include "probe/api/Exports.h"

#include "probe/api/Session.h"

#include <cctype>
#include <cstring>
#include <vector>

using tarvo::api::Session;

namespace {

using Guard = std::lock_guard<std::recursive_mutex>;

Session& S() {
    return Session::Instance();
}

bool IsDefaultZone(const char* Zone) {
    if (!Zone) {
        return true;
    }
    const char* Name = "default";
    for (; *Zone && *Name; ++Zone, ++Name) {
        if (std::tolower(static_cast<unsigned char>(*Zone)) != *Name) {
            return false;
        }
    }
    return *Zone == '\0' && *Name == '\0';
}

int ReadBytes(U32 Addr, U32 NumBytes, void* Data) {
    if (!Data) {
        return -1;
    }
    Guard Lock(S().Mutex);
    tarvo::Backend* B = S().Connected();
    if (!B) {
        return -1;
    }
    return static_cast<int>(B->ReadMemory(Addr, NumBytes, static_cast<U8*>(Data)));
}

int WriteBytes(U32 Addr, U32 NumBytes, const void* Data) {
    if (!Data) {
        return -1;
    }
    Guard Lock(S().Mutex);
    tarvo::Backend* B = S().Connected();
    if (!B) {
        return -1;
    }
    return static_cast<int>(B->WriteMemory(Addr, NumBytes, static_cast<const U8*>(Data)));
}

template <typename T>
int ReadItems(U32 Addr, U32 NumItems, T* Data, U8* Status) {
    if (!Data) {
        return -1;
    }
    std::vector<U8> Bytes(static_cast<size_t>(NumItems) * sizeof(T), 0);
    const int Got = ReadBytes(Addr, static_cast<U32>(Bytes.size()), Bytes.data());
    const U32 Items = Got > 0 ? static_cast<U32>(Got) / sizeof(T) : 0;
    for (U32 i = 0; i < NumItems; ++i) {
        T Value = 0;
        if (i < Items) {
            std::memcpy(&Value, &Bytes[i * sizeof(T)], sizeof(T));
        }
        Data[i] = Value;
        if (Status) {
            Status[i] = i < Items ? 0 : 1;
        }
    }
    return Got < 0 ? -1 : static_cast<int>(Items);
}

template <typename T>
int WriteValue(U32 Addr, T Value) {
    U8 Bytes[sizeof(T)];
    std::memcpy(Bytes, &Value, sizeof(T));
    return WriteBytes(Addr, sizeof(T), Bytes) == static_cast<int>(sizeof(T)) ? 0 : -1;
}

// Zoned typed reads: the count is in bytes, rounded up to whole items, and so is the result.
template <typename T>
int ReadZonedItems(U32 Addr, U32 NumBytes, T* Data, U8* Status, const char* Zone) {
    if (!IsDefaultZone(Zone)) {
        return -1;
    }
    const U32 Items = (NumBytes + sizeof(T) - 1) / sizeof(T);
    const int Got = ReadItems(Addr, Items, Data, Status);
    return Got < 0 ? -1 : Got * static_cast<int>(sizeof(T));
}

} // namespace

extern "C" {

int TARVOARM_ReadMemU8(U32 Addr, U32 NumItems, U8* pData, U8* pStatus) {
    return ReadItems(Addr, NumItems, pData, pStatus);
}

int TARVOARM_ReadMemU16(U32 Addr, U32 NumItems, U16* pData, U8* pStatus) {
    return ReadItems(Addr, NumItems, pData, pStatus);
}

int TARVOARM_ReadMemU32(U32 Addr, U32 NumItems, U32* pData, U8* pStatus) {
    return ReadItems(Addr, NumItems, pData, pStatus);
}

int TARVOARM_ReadMemU64(U32 Addr, U32 NumItems, U64* pData, U8* pStatus) {
    return ReadItems(Addr, NumItems, pData, pStatus);
}

int TARVOARM_ReadMemEx(U32 Addr, U32 NumBytes, void* pData, U32 Width) {
    (void)Width;
    return ReadBytes(Addr, NumBytes, pData);
}

int TARVOARM_WriteU8(U32 Addr, U8 Data) {
    return WriteValue(Addr, Data);
}

int TARVOARM_WriteU16(U32 Addr, U16 Data) {
    return WriteValue(Addr, Data);
}

int TARVOARM_WriteU32(U32 Addr, U32 Data) {
    return WriteValue(Addr, Data);
}

int TARVOARM_WriteU64(U32 Addr, U64 Data) {
    return WriteValue(Addr, Data);
}

int TARVOARM_WriteMemEx(U32 Addr, U32 NumBytes, const void* pData, U32 Width) {
    (void)Width;
    return WriteBytes(Addr, NumBytes, pData);
}

int TARVOARM_WriteMem(U32 Addr, U32 NumBytes, const void* pData) {
    return WriteBytes(Addr, NumBytes, pData);
}

int TARVO_ReadMemZonedEx(U32 Addr, U32 NumBytes, void* pData, U32 Width, const char* sZone) {
    return IsDefaultZone(sZone) ? TARVOARM_ReadMemEx(Addr, NumBytes, pData, Width) : -1;
}

int TARVO_ReadMemZonedU16(U32 Addr, U32 NumItems, U16* pData, U8* pStatus, const char* sZone) {
    return ReadZonedItems(Addr, NumItems, pData, pStatus, sZone);
}

int TARVO_ReadMemZonedU32(U32 Addr, U32 NumItems, U32* pData, U8* pStatus, const char* sZone) {
    return ReadZonedItems(Addr, NumItems, pData, pStatus, sZone);
}

int TARVO_WriteMemZonedEx(U32 Addr, U32 NumBytes, const void* pData, U32 Width, const char* sZone) {
    return IsDefaultZone(sZone) ? TARVOARM_WriteMemEx(Addr, NumBytes, pData, Width) : -1;
}

int TARVO_WriteZonedU16(U32 Addr, U16 Data, const char* sZone) {
    return IsDefaultZone(sZone) ? TARVOARM_WriteU16(Addr, Data) : -1;
}

int TARVO_WriteZonedU32(U32 Addr, U32 Data, const char* sZone) {
    return IsDefaultZone(sZone) ? TARVOARM_WriteU32(Addr, Data) : -1;
}

int TARVOARM_BeginDownload(U32 Flags) {
    (void)Flags;
    Guard Lock(S().Mutex);
    tarvo::Backend* B = S().Connected();
    if (!B) {
        return -1;
    }
    B->BeginDownload();
    return 0;
}

int TARVOARM_EndDownload(void) {
    Guard Lock(S().Mutex);
    tarvo::Backend* B = S().Connected();
    if (!B) {
        return -1;
    }
    return B->EndDownload();
}

} // extern "C"
