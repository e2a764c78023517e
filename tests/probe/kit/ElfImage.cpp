#include "ElfImage.h"

#include <cstdlib>
#include <cstring>
#include <elf.h>
#include <fstream>
#include <iterator>

namespace probetest {

bool ElfImage::Load(const std::string& Path, std::string& Error) {
    std::ifstream In(Path, std::ios::binary);
    const std::vector<uint8_t> File((std::istreambuf_iterator<char>(In)), std::istreambuf_iterator<char>());
    if (File.size() < sizeof(Elf32_Ehdr) || std::memcmp(File.data(), ELFMAG, SELFMAG) != 0 ||
        File[EI_CLASS] != ELFCLASS32 || File[EI_DATA] != ELFDATA2LSB) {
        Error = Path + " is not a 32-bit little-endian ELF file";
        return false;
    }
    Elf32_Ehdr H;
    std::memcpy(&H, File.data(), sizeof H);
    for (unsigned i = 0; i < H.e_phnum; ++i) {
        Elf32_Phdr P;
        const size_t At = H.e_phoff + i * static_cast<size_t>(H.e_phentsize);
        if (At + sizeof P > File.size()) {
            Error = "truncated program header";
            return false;
        }
        std::memcpy(&P, File.data() + At, sizeof P);
        if (P.p_type != PT_LOAD || P.p_filesz == 0) {
            continue;
        }
        if (P.p_offset + P.p_filesz > File.size()) {
            Error = "truncated segment";
            return false;
        }
        m_Segments.push_back({P.p_paddr, std::vector<uint8_t>(File.begin() + P.p_offset,
                                                              File.begin() + P.p_offset + P.p_filesz)});
    }
    for (unsigned i = 0; i < H.e_shnum; ++i) {
        Elf32_Shdr S;
        std::memcpy(&S, File.data() + H.e_shoff + i * static_cast<size_t>(H.e_shentsize), sizeof S);
        if (S.sh_type != SHT_SYMTAB) {
            continue;
        }
        Elf32_Shdr Strings;
        std::memcpy(&Strings, File.data() + H.e_shoff + S.sh_link * static_cast<size_t>(H.e_shentsize),
                    sizeof Strings);
        for (size_t Off = 0; Off + sizeof(Elf32_Sym) <= S.sh_size; Off += sizeof(Elf32_Sym)) {
            Elf32_Sym Sym;
            std::memcpy(&Sym, File.data() + S.sh_offset + Off, sizeof Sym);
            const char* Name = reinterpret_cast<const char*>(File.data() + Strings.sh_offset + Sym.st_name);
            if (*Name) {
                const bool Function = ELF32_ST_TYPE(Sym.st_info) == STT_FUNC;
                m_Symbols[Name] = {Function ? Sym.st_value & ~1u : Sym.st_value, Sym.st_size};
            }
        }
    }
    return true;
}

uint32_t ElfImage::Symbol(const std::string& Name) const {
    const auto It = m_Symbols.find(Name);
    return It == m_Symbols.end() ? 0 : It->second.first;
}

uint32_t ElfImage::SymbolSize(const std::string& Name) const {
    const auto It = m_Symbols.find(Name);
    return It == m_Symbols.end() ? 0 : It->second.second;
}

std::string FirmwarePath(const std::string& Program, const std::string& Variant) {
    const char* Bin = std::getenv("ARNEX_BIN_DIR");
    const std::string Build = Bin ? std::string(Bin) + "/.." : std::string(ARNEX_BUILD_DIR);
    return Build + "/firmware/" + Program + "-" + Variant + ".elf";
}

} // namespace probetest
