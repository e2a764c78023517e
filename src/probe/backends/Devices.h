#pragma once

// The device table behind TARVOARM_DEVICE_GetInfo: the emulated boards, the generic cores and common
// parts, with their flash, RAM and core. Entry 0 is a placeholder, since callers take index 0 for
// "no device".

#include "probe/Tarvo.h"

#include <string_view>
#include <vector>

namespace tarvo {

struct DeviceEntry {
    const char* Name;
    const char* Manufacturer;
    U32 Core;
    U32 FlashAddr;
    U32 FlashSize;
    U32 RamAddr;
    U32 RamSize;
    const char* Machine = nullptr; // QEMU machine of an emulated board
};

const std::vector<DeviceEntry>& DeviceTable();
/// Index by name, case-insensitive; -1 if unknown.
int FindDevice(std::string_view Name);
/// "Cortex-M4" and so on; "Unknown" for an identifier that isn't in the table.
const char* CoreName(U32 Core);
/// The name of the fake target of the tests, on the USB interface.
constexpr const char* FakeDeviceName = "FAKE";

} // namespace tarvo
