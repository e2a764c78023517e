#include "ElfImage.h"

#include "probe/backends/ElfFile.h"

#include <cstdlib>

namespace probetest {

bool ElfImage::Load(const std::string& Path, std::string& Error) {
    tarvo::ElfFile File;
    if (!File.Load(Path, Error)) {
        return false;
    }
    m_File = std::make_shared<tarvo::ElfFile>(std::move(File));
    m_Segments.clear();
    for (const tarvo::ElfSegment& S : m_File->Segments()) {
        m_Segments.push_back({S.Address, S.Bytes});
    }
    return true;
}

uint32_t ElfImage::Symbol(const std::string& Name) const {
    const tarvo::ElfSymbol* S = m_File ? m_File->Symbol(Name) : nullptr;
    return S ? S->Value : 0;
}

uint32_t ElfImage::SymbolSize(const std::string& Name) const {
    const tarvo::ElfSymbol* S = m_File ? m_File->Symbol(Name) : nullptr;
    return S ? S->Size : 0;
}

std::string FirmwarePath(const std::string& Program, const std::string& Variant) {
    const char* Bin = std::getenv("ARNEX_BIN_DIR");
    const std::string Build = Bin ? std::string(Bin) + "/.." : std::string(ARNEX_BUILD_DIR);
    return Build + "/firmware/" + Program + "-" + Variant + ".elf";
}

} // namespace probetest
