#pragma once

#include "app/core/Types.h"

#include <cstring>

/// The on-disk layouts of a 32-bit ELF file, field for field, and the helpers that read them from an
/// image of either byte order. Only these layouts are read; a 64-bit file is refused at the header.
namespace ElfFormat {

constexpr U32 EHDR_SIZE = 52;
constexpr U32 PHDR_SIZE = 32;
constexpr U32 SHDR_SIZE = 40;
constexpr U32 SYM_SIZE = 16;

constexpr U8 ELFCLASS32 = 1;
constexpr U8 ELFCLASS64 = 2;
constexpr U8 ELFDATA2LSB = 1;
constexpr U8 ELFDATA2MSB = 2;
constexpr U16 ET_EXEC = 2;

constexpr U32 PT_LOAD = 1;

constexpr U32 SHT_PROGBITS = 1;
constexpr U32 SHT_SYMTAB = 2;
constexpr U32 SHT_RELA = 4;
constexpr U32 SHT_NOBITS = 8;
constexpr U32 SHT_REL = 9;
constexpr U32 SHT_DYNSYM = 11;

constexpr U32 SHF_ALLOC = 2;
constexpr U32 SHF_EXECINSTR = 4;

constexpr U8 STT_NOTYPE = 0;
constexpr U8 STT_OBJECT = 1;
constexpr U8 STT_FUNC = 2;
constexpr U8 STT_ARM_TFUNC = 13;

} // namespace ElfFormat

/// The ELF header in host byte order (the file image keeps the file's own order).
struct ELF32_EHDR {
    U8 e_ident[16];
    U16 e_type;
    U16 e_machine;
    U32 e_version;
    U32 e_entry;
    U32 e_phoff;
    U32 e_shoff;
    U32 e_flags;
    U16 e_ehsize;
    U16 e_phentsize;
    U16 e_phnum;
    U16 e_shentsize;
    U16 e_shnum;
    U16 e_shstrndx;
};
static_assert(sizeof(ELF32_EHDR) == ElfFormat::EHDR_SIZE, "ELF header layout");

struct ELF32_PHDR {
    U32 p_type;
    U32 p_offset;
    U32 p_vaddr;
    U32 p_paddr;
    U32 p_filesz;
    U32 p_memsz;
    U32 p_flags;
    U32 p_align;
};
static_assert(sizeof(ELF32_PHDR) == ElfFormat::PHDR_SIZE, "program header layout");

struct ELF32_SHDR {
    U32 sh_name;
    U32 sh_type;
    U32 sh_flags;
    U32 sh_addr;
    U32 sh_offset;
    U32 sh_size;
    U32 sh_link;
    U32 sh_info;
    U32 sh_addralign;
    U32 sh_entsize;
};
static_assert(sizeof(ELF32_SHDR) == ElfFormat::SHDR_SIZE, "section header layout");

struct ELF32_SYM {
    U32 st_name;
    U32 st_value;
    U32 st_size;
    U8 st_info; ///< type in the low four bits, binding in the high four
    U8 st_other;
    U16 st_shndx;
};
static_assert(sizeof(ELF32_SYM) == ElfFormat::SYM_SIZE, "symbol layout");

namespace ElfFormat {

inline U16 Swap16(U16 V) {
    return static_cast<U16>((V >> 8) | (V << 8));
}
inline U32 Swap32(U32 V) {
    return (V >> 24) | ((V >> 8) & 0xFF00u) | ((V << 8) & 0xFF0000u) | (V << 24);
}
inline void SwapField(U16& V) {
    V = Swap16(V);
}
inline void SwapField(U32& V) {
    V = Swap32(V);
}

/// A 32-bit word read from any address of an image, in the image's own order.
inline U32 ReadRaw32(const U8* P) {
    U32 V;
    std::memcpy(&V, P, sizeof V);
    return V;
}

inline bool IsFunctionType(U32 Type) {
    return Type == STT_FUNC || Type == STT_ARM_TFUNC;
}

} // namespace ElfFormat
