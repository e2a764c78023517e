#pragma once

// A small Cortex-M target behind the mock server, for tests of the library's remote back end through
// the C interface. Its registers carry numbers unlike QEMU's (the library must go by names), it has
// RAM, flash with a memory map and the flash packets, a limited number of comparators, and it runs,
// steps and stops the way QEMU's stub does: a breakpoint at the PC stops a continue at once, and so
// does a watchpoint whose instruction is at the PC.

#include "MockServer.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace probetest {

class SimpleTarget {
public:
    static constexpr uint32_t RamStart = 0x20000000, RamSize = 0x10000;
    static constexpr uint32_t FlashStart = 0x08000000, FlashSize = 0x4000, FlashBlock = 0x400;
    static constexpr int PcNumber = 15, MspNumber = 30, PrimaskNumber = 32, D0Number = 40;

    explicit SimpleTarget(MockServer& Server);
    /// Takes the handler off the server, waiting for one that runs.
    ~SimpleTarget();

    uint64_t Register(int Number) const { return m_Values.at(Number); }
    void SetRegister(int Number, uint64_t Value) { m_Values[Number] = Value; }
    uint8_t* Ram(uint32_t Address) { return &m_Ram[Address - RamStart]; }
    uint8_t* Flash(uint32_t Address) { return &m_Flash[Address - FlashStart]; }

    bool Running = false;
    std::optional<uint32_t> WatchHitPc; // a continue or step from here reports the first watchpoint
    uint32_t ResetPc = 0x100;
    uint32_t ResetXpsr = 0x01000000; // 0: as a reset from an empty vector table leaves it
    uint32_t Vtor = FlashStart;      // read at 0xE000ED08
    int HardLimit = 2;
    int WatchLimit = 2;
    bool EraseFails = false;
    bool CorruptFlash = false;
    bool OfferNoAck = false;
    bool WithDescription = true;
    std::vector<std::string> MonitorCommands;
    std::set<std::string> UnknownMonitorCommands; // answered with QEMU's complaint and OK
    std::set<uint32_t> SoftBreaks, HardBreaks;
    std::set<std::tuple<int, uint32_t, uint32_t>> Watches; // type, address, length

private:
    std::optional<std::string> Handle(const std::string& P);
    std::optional<std::string> Resume(bool Step);
    std::optional<std::string> Memory(const std::string& P);
    std::optional<std::string> Point(const std::string& P);
    std::optional<std::string> Xfer(const std::string& P);
    std::optional<std::string> Flash(const std::string& P);
    std::string HexOf(int Number) const;

    MockServer& m_Server;
    std::map<int, uint64_t> m_Values;
    std::map<int, int> m_Sizes; // bytes, by register number
    std::map<std::string, std::string> m_Files;
    std::vector<uint8_t> m_Ram = std::vector<uint8_t>(RamSize, 0);
    std::vector<uint8_t> m_Flash = std::vector<uint8_t>(FlashSize, 0xFF);
};

} // namespace probetest
