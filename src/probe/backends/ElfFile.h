#pragma once

// Just enough of a 32-bit little-endian ELF executable for the probe library and its tests: the
// loadable segments (the bytes a download writes, which the fake target serves as code memory), the
// sections, the symbol table and the file's fingerprint. Every offset is checked against the file, so
// a damaged file gives an error, never a read outside it.

#include "probe/Tarvo.h"

#include <map>
#include <string>
#include <vector>

namespace tarvo {

struct ElfSegment {
    U32 Address;        // load (physical) address: where a download puts the bytes
    U32 VirtualAddress; // where the program sees them at run time
    U32 Flags;          // PF_X, PF_W, PF_R
    std::vector<U8> Bytes;
};

struct ElfSection {
    std::string Name;
    U32 Type;
    U32 Flags; // SHF_WRITE, SHF_ALLOC, SHF_EXECINSTR
    U32 Address;
    U32 Size;
};

struct ElfSymbol {
    U32 Value; // a function's without the Thumb bit
    U32 Size;
    bool Function;
};

class ElfFile {
public:
    /// False with Error for anything that isn't a readable 32-bit little-endian ELF file.
    bool Load(const std::string& Path, std::string& Error);
    bool Parse(std::vector<U8> File, std::string& Error);

    /// Segments of type PT_LOAD that have bytes in the file.
    const std::vector<ElfSegment>& Segments() const { return m_Segments; }
    const std::vector<ElfSection>& Sections() const { return m_Sections; }
    /// Null if there is no such symbol.
    const ElfSymbol* Symbol(const std::string& Name) const;
    U32 Entry() const { return m_Entry; }
    size_t FileSize() const { return m_File.size(); }
    /// SHA-256 of the whole file as lower-case hex.
    std::string Sha256() const;

private:
    bool ReadSections(std::string& Error);

    std::vector<U8> m_File;
    std::vector<ElfSegment> m_Segments;
    std::vector<ElfSection> m_Sections;
    std::map<std::string, ElfSymbol> m_Symbols;
    U32 m_Entry = 0;
};

} // namespace tarvo
