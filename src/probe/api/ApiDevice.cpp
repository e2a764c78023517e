// Exported functions of the device table.

#include "probe/api/Exports.h"

#include "probe/backends/Devices.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

extern "C" {

int TARVOARM_DEVICE_GetInfo(int Index, TARVO_DEVICE_INFO* pInfo) {
    const auto& Table = tarvo::DeviceTable();
    if (Index == -1) {
        return static_cast<int>(Table.size());
    }
    if (Index < 0 || static_cast<size_t>(Index) >= Table.size() || !pInfo) {
        return -1;
    }
    const tarvo::DeviceEntry& D = Table[static_cast<size_t>(Index)];
    // The caller says in SizeOfStruct how much of the record it has; fill no further than that.
    const U32 Size = pInfo->SizeOfStruct == 0 ? sizeof(TARVO_DEVICE_INFO)
                                              : std::min<U32>(pInfo->SizeOfStruct, sizeof(TARVO_DEVICE_INFO));
    TARVO_DEVICE_INFO Info;
    std::memset(&Info, 0, sizeof Info);
    Info.SizeOfStruct = Size;
    Info.sName = D.Name;
    Info.FlashAddr = D.FlashAddr;
    Info.RAMAddr = D.RamAddr;
    Info.FlashSize = D.FlashSize;
    Info.RAMSize = D.RamSize;
    Info.sManu = D.Manufacturer;
    Info.Core = D.Core;
    std::memcpy(pInfo, &Info, Size);
    return 0;
}

int TARVOARM_DEVICE_GetIndex(const char* sName) {
    return sName ? tarvo::FindDevice(sName) : -1;
}

const char* TARVOARM_Core2CoreName(U32 Core) {
    return tarvo::CoreName(Core);
}

} // extern "C"
