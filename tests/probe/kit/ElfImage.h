#pragma once

// The probe tests' view of a target program: the loadable segments (to download it) and the symbol
// table (to find functions and variables), read by the probe library's own ELF reader.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace tarvo {
class ElfFile;
}

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
    /// The whole file: sections, symbols, fingerprint. Null before a successful Load.
    const tarvo::ElfFile* File() const { return m_File.get(); }
    /// The address of a symbol (a function's without the Thumb bit); 0 if missing.
    uint32_t Symbol(const std::string& Name) const;
    uint32_t SymbolSize(const std::string& Name) const;

private:
    std::vector<Segment> m_Segments;
    std::shared_ptr<const tarvo::ElfFile> m_File;
};

/// Path of a built target program, e.g. Firmware("demo", "O0-dwarf4").
std::string FirmwarePath(const std::string& Program, const std::string& Variant = "O0-dwarf4");

} // namespace probetest
