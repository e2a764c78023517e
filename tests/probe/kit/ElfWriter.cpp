#include "ElfWriter.h"

#include <cstdio>
#include <cstring>

namespace probetest {
namespace {

template <typename T>
void Put(std::vector<uint8_t>& Out, size_t At, T Value) {
    std::memcpy(&Out[At], &Value, sizeof(T));
}

} // namespace

bool WriteElf(const std::string& Path, const std::vector<ElfBlock>& Blocks, uint32_t Entry) {
    constexpr size_t EHDR = 52, PHDR = 32, SHDR = 40;
    const size_t Count = Blocks.size();
    // Section names: "", ".sec0", ".sec1", ..., ".shstrtab".
    std::string Names(1, '\0');
    std::vector<uint32_t> NameAt;
    for (size_t i = 0; i < Count; ++i) {
        NameAt.push_back(static_cast<uint32_t>(Names.size()));
        Names += ".sec" + std::to_string(i) + '\0';
    }
    const uint32_t StrtabName = static_cast<uint32_t>(Names.size());
    Names += std::string(".shstrtab") + '\0';

    size_t Offset = EHDR + PHDR * Count;
    std::vector<size_t> DataAt;
    for (const ElfBlock& B : Blocks) {
        Offset = (Offset + 3) & ~size_t(3);
        DataAt.push_back(Offset);
        Offset += B.Bytes.size();
    }
    const size_t NamesAt = Offset;
    Offset += Names.size();
    const size_t SectionsAt = (Offset + 3) & ~size_t(3);
    const size_t Total = SectionsAt + SHDR * (Count + 2);

    std::vector<uint8_t> Out(Total, 0);
    const uint8_t Ident[16] = {0x7F, 'E', 'L', 'F', 1, 1, 1, 0};
    std::memcpy(Out.data(), Ident, sizeof(Ident));
    Put<uint16_t>(Out, 16, 2);  // ET_EXEC
    Put<uint16_t>(Out, 18, 40); // EM_ARM
    Put<uint32_t>(Out, 20, 1);  // EV_CURRENT
    Put<uint32_t>(Out, 24, Entry);
    Put<uint32_t>(Out, 28, static_cast<uint32_t>(EHDR));
    Put<uint32_t>(Out, 32, static_cast<uint32_t>(SectionsAt));
    Put<uint32_t>(Out, 36, 0x05000200); // EABI version 5, soft float
    Put<uint16_t>(Out, 40, static_cast<uint16_t>(EHDR));
    Put<uint16_t>(Out, 42, static_cast<uint16_t>(PHDR));
    Put<uint16_t>(Out, 44, static_cast<uint16_t>(Count));
    Put<uint16_t>(Out, 46, static_cast<uint16_t>(SHDR));
    Put<uint16_t>(Out, 48, static_cast<uint16_t>(Count + 2));
    Put<uint16_t>(Out, 50, static_cast<uint16_t>(Count + 1));
    for (size_t i = 0; i < Count; ++i) {
        const ElfBlock& B = Blocks[i];
        const size_t P = EHDR + PHDR * i;
        const uint32_t Size = static_cast<uint32_t>(B.Bytes.size());
        Put<uint32_t>(Out, P, 1); // PT_LOAD
        Put<uint32_t>(Out, P + 4, static_cast<uint32_t>(DataAt[i]));
        Put<uint32_t>(Out, P + 8, B.Address);
        Put<uint32_t>(Out, P + 12, B.Address);
        Put<uint32_t>(Out, P + 16, Size);
        Put<uint32_t>(Out, P + 20, Size);
        Put<uint32_t>(Out, P + 24, 5); // R X
        Put<uint32_t>(Out, P + 28, 4);
        std::memcpy(&Out[DataAt[i]], B.Bytes.data(), B.Bytes.size());
        const size_t S = SectionsAt + SHDR * (i + 1);
        Put<uint32_t>(Out, S, NameAt[i]);
        Put<uint32_t>(Out, S + 4, 1); // SHT_PROGBITS
        Put<uint32_t>(Out, S + 8, 6); // SHF_ALLOC | SHF_EXECINSTR
        Put<uint32_t>(Out, S + 12, B.Address);
        Put<uint32_t>(Out, S + 16, static_cast<uint32_t>(DataAt[i]));
        Put<uint32_t>(Out, S + 20, Size);
        Put<uint32_t>(Out, S + 32, 4);
    }
    std::memcpy(&Out[NamesAt], Names.data(), Names.size());
    const size_t S = SectionsAt + SHDR * (Count + 1);
    Put<uint32_t>(Out, S, StrtabName);
    Put<uint32_t>(Out, S + 4, 3); // SHT_STRTAB
    Put<uint32_t>(Out, S + 16, static_cast<uint32_t>(NamesAt));
    Put<uint32_t>(Out, S + 20, static_cast<uint32_t>(Names.size()));
    Put<uint32_t>(Out, S + 32, 1);

    FILE* F = std::fopen(Path.c_str(), "wb");
    if (!F) {
        return false;
    }
    const bool Ok = std::fwrite(Out.data(), 1, Out.size(), F) == Out.size();
    return std::fclose(F) == 0 && Ok;
}

std::vector<uint8_t> PatternBytes(size_t Size, uint32_t Seed) {
    std::vector<uint8_t> Bytes(Size);
    uint32_t X = Seed * 2654435761u + 1;
    for (size_t i = 0; i < Size; ++i) {
        X = X * 1664525u + 1013904223u;
        Bytes[i] = static_cast<uint8_t>(X >> 24);
    }
    return Bytes;
}

} // namespace probetest
