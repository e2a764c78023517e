#include "probe/backends/Devices.h"

#include "probe/TarvoCores.h"

#include <algorithm>
#include <cctype>

namespace tarvo {

namespace {
constexpr U32 K = 1024;
constexpr U32 M = 1024 * 1024;
} // namespace

const std::vector<DeviceEntry>& DeviceTable() {
    // Flash and RAM are the main code flash and the main contiguous SRAM of each part. The emulated
    // boards' "flash" is their code memory, which is RAM that a download simply writes.
    static const std::vector<DeviceEntry> Table = {
        {"Unspecified", "", 0, 0, 0, 0, 0},
        {"MPS2-AN385", "ARM", TARVO_CORE_CORTEX_M3, 0x00000000, 4 * M, 0x20000000, 4 * M, "mps2-an385"},
        {"MPS2-AN386", "ARM", TARVO_CORE_CORTEX_M4, 0x00000000, 4 * M, 0x20000000, 4 * M, "mps2-an386"},
        {"MPS2-AN500", "ARM", TARVO_CORE_CORTEX_M7, 0x00000000, 4 * M, 0x20000000, 4 * M, "mps2-an500"},
        {"MPS2-AN505", "ARM", TARVO_CORE_CORTEX_M33, 0x10000000, 4 * M, 0x38000000, 4 * M, "mps2-an505"},
        {FakeDeviceName, "Test", TARVO_CORE_CORTEX_M3, 0x00000000, 256 * K, 0x20000000, 64 * K},
        {"Cortex-M0", "ARM", TARVO_CORE_CORTEX_M0, 0x00000000, 0, 0x20000000, 0},
        {"Cortex-M0+", "ARM", TARVO_CORE_CORTEX_M0P, 0x00000000, 0, 0x20000000, 0},
        {"Cortex-M3", "ARM", TARVO_CORE_CORTEX_M3, 0x00000000, 0, 0x20000000, 0},
        {"Cortex-M4", "ARM", TARVO_CORE_CORTEX_M4, 0x00000000, 0, 0x20000000, 0},
        {"Cortex-M7", "ARM", TARVO_CORE_CORTEX_M7, 0x00000000, 0, 0x20000000, 0},
        {"Cortex-M23", "ARM", TARVO_CORE_CORTEX_M23, 0x00000000, 0, 0x20000000, 0},
        {"Cortex-M33", "ARM", TARVO_CORE_CORTEX_M33, 0x00000000, 0, 0x20000000, 0},
        {"STM32F030F4", "ST", TARVO_CORE_CORTEX_M0, 0x08000000, 16 * K, 0x20000000, 4 * K},
        {"STM32F072RB", "ST", TARVO_CORE_CORTEX_M0, 0x08000000, 128 * K, 0x20000000, 16 * K},
        {"STM32F103C8", "ST", TARVO_CORE_CORTEX_M3, 0x08000000, 64 * K, 0x20000000, 20 * K},
        {"STM32F103RB", "ST", TARVO_CORE_CORTEX_M3, 0x08000000, 128 * K, 0x20000000, 20 * K},
        {"STM32F103ZE", "ST", TARVO_CORE_CORTEX_M3, 0x08000000, 512 * K, 0x20000000, 64 * K},
        {"STM32F207ZG", "ST", TARVO_CORE_CORTEX_M3, 0x08000000, 1 * M, 0x20000000, 128 * K},
        {"STM32F303VC", "ST", TARVO_CORE_CORTEX_M4, 0x08000000, 256 * K, 0x20000000, 40 * K},
        {"STM32F401RE", "ST", TARVO_CORE_CORTEX_M4, 0x08000000, 512 * K, 0x20000000, 96 * K},
        {"STM32F407VG", "ST", TARVO_CORE_CORTEX_M4, 0x08000000, 1 * M, 0x20000000, 128 * K},
        {"STM32F429ZI", "ST", TARVO_CORE_CORTEX_M4, 0x08000000, 2 * M, 0x20000000, 192 * K},
        {"STM32F446RE", "ST", TARVO_CORE_CORTEX_M4, 0x08000000, 512 * K, 0x20000000, 128 * K},
        {"STM32F746NG", "ST", TARVO_CORE_CORTEX_M7, 0x08000000, 1 * M, 0x20000000, 320 * K},
        {"STM32F767ZI", "ST", TARVO_CORE_CORTEX_M7, 0x08000000, 2 * M, 0x20000000, 512 * K},
        {"STM32H743ZI", "ST", TARVO_CORE_CORTEX_M7, 0x08000000, 2 * M, 0x24000000, 512 * K},
        {"STM32G071RB", "ST", TARVO_CORE_CORTEX_M0P, 0x08000000, 128 * K, 0x20000000, 36 * K},
        {"STM32G474RE", "ST", TARVO_CORE_CORTEX_M4, 0x08000000, 512 * K, 0x20000000, 128 * K},
        {"STM32L053R8", "ST", TARVO_CORE_CORTEX_M0P, 0x08000000, 64 * K, 0x20000000, 8 * K},
        {"STM32L476RG", "ST", TARVO_CORE_CORTEX_M4, 0x08000000, 1 * M, 0x20000000, 96 * K},
        {"STM32L552ZE", "ST", TARVO_CORE_CORTEX_M33, 0x08000000, 512 * K, 0x20000000, 256 * K},
        {"STM32U575ZI", "ST", TARVO_CORE_CORTEX_M33, 0x08000000, 2 * M, 0x20000000, 768 * K},
        {"STM32WB55RG", "ST", TARVO_CORE_CORTEX_M4, 0x08000000, 1 * M, 0x20000000, 192 * K},
        {"nRF51822_xxAA", "Nordic Semi", TARVO_CORE_CORTEX_M0, 0x00000000, 256 * K, 0x20000000, 16 * K},
        {"nRF52832_xxAA", "Nordic Semi", TARVO_CORE_CORTEX_M4, 0x00000000, 512 * K, 0x20000000, 64 * K},
        {"nRF52840_xxAA", "Nordic Semi", TARVO_CORE_CORTEX_M4, 0x00000000, 1 * M, 0x20000000, 256 * K},
        {"nRF5340_xxAA_APP", "Nordic Semi", TARVO_CORE_CORTEX_M33, 0x00000000, 1 * M, 0x20000000, 512 * K},
        {"LPC1114/302", "NXP", TARVO_CORE_CORTEX_M0, 0x00000000, 32 * K, 0x10000000, 8 * K},
        {"LPC1768", "NXP", TARVO_CORE_CORTEX_M3, 0x00000000, 512 * K, 0x10000000, 32 * K},
        {"LPC55S69", "NXP", TARVO_CORE_CORTEX_M33, 0x00000000, 608 * K, 0x20000000, 320 * K},
        {"MK64FN1M0XXX12", "NXP", TARVO_CORE_CORTEX_M4, 0x00000000, 1 * M, 0x1FFF0000, 256 * K},
        {"MK66FN2M0XXX18", "NXP", TARVO_CORE_CORTEX_M4, 0x00000000, 2 * M, 0x1FFF0000, 256 * K},
        {"MKL25Z128xxx4", "NXP", TARVO_CORE_CORTEX_M0P, 0x00000000, 128 * K, 0x1FFFF000, 16 * K},
        {"ATSAMD21G18A", "Microchip", TARVO_CORE_CORTEX_M0P, 0x00000000, 256 * K, 0x20000000, 32 * K},
        {"ATSAMD51J19A", "Microchip", TARVO_CORE_CORTEX_M4, 0x00000000, 512 * K, 0x20000000, 192 * K},
        {"ATSAME70Q21", "Microchip", TARVO_CORE_CORTEX_M7, 0x00400000, 2 * M, 0x20400000, 384 * K},
        {"ATSAML11E16A", "Microchip", TARVO_CORE_CORTEX_M23, 0x00000000, 64 * K, 0x20000000, 16 * K},
        {"ATSAM3X8E", "Microchip", TARVO_CORE_CORTEX_M3, 0x00080000, 512 * K, 0x20070000, 96 * K},
        {"RP2040", "Raspberry Pi", TARVO_CORE_CORTEX_M0P, 0x10000000, 2 * M, 0x20000000, 264 * K},
        {"EFM32GG990F1024", "Silicon Labs", TARVO_CORE_CORTEX_M3, 0x00000000, 1 * M, 0x20000000, 128 * K},
        {"TM4C123GH6PM", "TI", TARVO_CORE_CORTEX_M4, 0x00000000, 256 * K, 0x20000000, 32 * K},
        {"MSP432P401R", "TI", TARVO_CORE_CORTEX_M4, 0x00000000, 256 * K, 0x20000000, 64 * K},
        {"GD32F103C8", "GigaDevice", TARVO_CORE_CORTEX_M3, 0x08000000, 64 * K, 0x20000000, 20 * K},
        {"M2351KIAAE", "Nuvoton", TARVO_CORE_CORTEX_M23, 0x00000000, 512 * K, 0x20000000, 96 * K},
    };
    return Table;
}

int FindDevice(std::string_view Name) {
    const std::vector<DeviceEntry>& Table = DeviceTable();
    for (size_t i = 0; i < Table.size(); ++i) {
        const std::string_view Entry = Table[i].Name;
        if (Entry.size() == Name.size() &&
            std::equal(Entry.begin(), Entry.end(), Name.begin(), [](char A, char B) {
                return std::tolower(static_cast<unsigned char>(A)) ==
                       std::tolower(static_cast<unsigned char>(B));
            })) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

const char* CoreName(U32 Core) {
    switch (Core) {
    case TARVO_CORE_CORTEX_M0:
        return "Cortex-M0";
    case TARVO_CORE_CORTEX_M0P:
        return "Cortex-M0+";
    case TARVO_CORE_CORTEX_M3:
        return "Cortex-M3";
    case TARVO_CORE_CORTEX_M4:
        return "Cortex-M4";
    case TARVO_CORE_CORTEX_M7:
        return "Cortex-M7";
    case TARVO_CORE_CORTEX_M23:
        return "Cortex-M23";
    case TARVO_CORE_CORTEX_M33:
        return "Cortex-M33";
    case TARVO_CORE_RISCV32:
        return "RV32";
    default:
        return "Unknown";
    }
}

} // namespace tarvo
