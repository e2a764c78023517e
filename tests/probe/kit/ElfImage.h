#pragma once

// Just enough of a 32-bit little-endian ELF file for the probe tests: the loadable segments (to
// download a program) and the symbol table (to find functions and variables).

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace probetest {

struct Segment {
    uint32_t Address; // the load (physical) address
    std::vector<uint8_t> Bytes;
};

class ElfImage {
public:
    /// False with Error for anything that isn't a 32-bit little-endian ELF file.
    bool Load(const std::string& Path, std::string& Error);
    const std::vector<Segment>& Segments() const { return m_Segments; }
    /// The address of a symbol (a function's without the Thumb bit); 0 if missing.
    uint32_t Symbol(const std::string& Name) const;
    uint32_t SymbolSize(const std::string& Name) const;

private:
    std::vector<Segment> m_Segments;
    std::map<std::string, std::pair<uint32_t, uint32_t>> m_Symbols;
};

/// Path of a built target program, e.g. Firmware("demo", "O0-dwarf4").
std::string FirmwarePath(const std::string& Program, const std::string& Variant = "O0-dwarf4");

} // namespace probetest
