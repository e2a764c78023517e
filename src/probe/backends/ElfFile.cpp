#include "probe/backends/ElfFile.h"

#include "probe/backends/Sha256.h"

#include <cstring>
#include <elf.h>
#include <fstream>
#include <iterator>

namespace tarvo {

namespace {

/// Copies a record out of the file if it lies wholly inside it.
template <typename T>
bool ReadAt(const std::vector<U8>& File, size_t Offset, T& Out) {
    if (Offset > File.size() || File.size() - Offset < sizeof(T)) {
        return false;
    }
    std::memcpy(&Out, File.data() + Offset, sizeof(T));
    return true;
}

bool Inside(const std::vector<U8>& File, size_t Offset, size_t Size) {
    return Offset <= File.size() && File.size() - Offset >= Size;
}

/// A zero-terminated name inside a string table section; empty if it runs off the table.
std::string NameAt(const std::vector<U8>& File, const Elf32_Shdr& Table, U32 Offset) {
    if (Offset >= Table.sh_size || !Inside(File, Table.sh_offset, Table.sh_size)) {
        return {};
    }
    const char* Start = reinterpret_cast<const char*>(File.data() + Table.sh_offset + Offset);
    const size_t Room = Table.sh_size - Offset;
    const size_t Length = strnlen(Start, Room);
    return Length < Room ? std::string(Start, Length) : std::string();
}

} // namespace

bool ElfFile::Load(const std::string& Path, std::string& Error) {
    std::ifstream In(Path, std::ios::binary);
    if (!In) {
        Error = "Could not open " + Path;
        return false;
    }
    std::vector<U8> File((std::istreambuf_iterator<char>(In)), std::istreambuf_iterator<char>());
    if (!Parse(std::move(File), Error)) {
        Error = Path + ": " + Error;
        return false;
    }
    return true;
}

bool ElfFile::Parse(std::vector<U8> File, std::string& Error) {
    m_File = std::move(File);
    m_Segments.clear();
    m_Sections.clear();
    m_Symbols.clear();
    Elf32_Ehdr H;
    if (!ReadAt(m_File, 0, H) || std::memcmp(H.e_ident, ELFMAG, SELFMAG) != 0 ||
        H.e_ident[EI_CLASS] != ELFCLASS32 || H.e_ident[EI_DATA] != ELFDATA2LSB) {
        Error = "not a 32-bit little-endian ELF file";
        return false;
    }
    m_Entry = H.e_entry;
    for (unsigned i = 0; i < H.e_phnum; ++i) {
        Elf32_Phdr P;
        if (H.e_phentsize < sizeof P || !ReadAt(m_File, H.e_phoff + size_t(i) * H.e_phentsize, P)) {
            Error = "truncated program header";
            return false;
        }
        if (P.p_type != PT_LOAD || P.p_filesz == 0) {
            continue;
        }
        if (!Inside(m_File, P.p_offset, P.p_filesz)) {
            Error = "truncated segment";
            return false;
        }
        const auto Begin = m_File.begin() + P.p_offset;
        m_Segments.push_back({P.p_paddr, P.p_vaddr, P.p_flags, std::vector<U8>(Begin, Begin + P.p_filesz)});
    }
    return ReadSections(Error);
}

bool ElfFile::ReadSections(std::string& Error) {
    Elf32_Ehdr H;
    ReadAt(m_File, 0, H);
    if (H.e_shnum == 0) {
        return true; // stripped of section headers: segments are all a download needs
    }
    std::vector<Elf32_Shdr> Headers(H.e_shnum);
    for (unsigned i = 0; i < H.e_shnum; ++i) {
        if (H.e_shentsize < sizeof(Elf32_Shdr) ||
            !ReadAt(m_File, H.e_shoff + size_t(i) * H.e_shentsize, Headers[i])) {
            Error = "truncated section header";
            return false;
        }
    }
    const Elf32_Shdr* Names = H.e_shstrndx < Headers.size() ? &Headers[H.e_shstrndx] : nullptr;
    for (const Elf32_Shdr& S : Headers) {
        m_Sections.push_back({Names ? NameAt(m_File, *Names, S.sh_name) : std::string(), S.sh_type,
                              S.sh_flags, S.sh_addr, S.sh_size});
        if (S.sh_type != SHT_SYMTAB) {
            continue;
        }
        if (S.sh_link >= Headers.size() || !Inside(m_File, S.sh_offset, S.sh_size)) {
            Error = "truncated symbol table";
            return false;
        }
        const Elf32_Shdr& Strings = Headers[S.sh_link];
        for (size_t Off = 0; Off + sizeof(Elf32_Sym) <= S.sh_size; Off += sizeof(Elf32_Sym)) {
            Elf32_Sym Sym;
            ReadAt(m_File, S.sh_offset + Off, Sym);
            const std::string Name = NameAt(m_File, Strings, Sym.st_name);
            if (!Name.empty()) {
                const bool Function = ELF32_ST_TYPE(Sym.st_info) == STT_FUNC;
                m_Symbols[Name] = {Function ? Sym.st_value & ~1u : Sym.st_value, Sym.st_size, Function};
            }
        }
    }
    return true;
}

const ElfSymbol* ElfFile::Symbol(const std::string& Name) const {
    const auto It = m_Symbols.find(Name);
    return It == m_Symbols.end() ? nullptr : &It->second;
}

std::string ElfFile::Sha256() const {
    return Sha256Hex(m_File.data(), m_File.size());
}

} // namespace tarvo
