#pragma once

// Writes small ARM ELF executables for tests and benchmarks: loadable segments of given bytes, each with
// a section of its own, so that readers and gdb-multiarch take them like a linker's output.

#include <cstdint>
#include <string>
#include <vector>

namespace probetest {

struct ElfBlock {
    uint32_t Address;
    std::vector<uint8_t> Bytes;
};

/// A 32-bit little-endian ARM executable with one PT_LOAD segment and one PROGBITS section ".sec<n>"
/// for each block. False if the file could not be written.
bool WriteElf(const std::string& Path, const std::vector<ElfBlock>& Blocks, uint32_t Entry);

/// Pseudo-random bytes, the same for the same Seed, so that a misplaced block shows.
std::vector<uint8_t> PatternBytes(size_t Size, uint32_t Seed);

} // namespace probetest
