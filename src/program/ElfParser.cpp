// Opening and closing ELF files, the slot table, and the header, segment and section tables.

#include "program/DwarfReader.h"
#include "program/ElfInternal.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>

#include <bit>
#include <climits>
#include <new>

static_assert(std::endian::native == std::endian::little, "the tables are swapped for a little-endian host");

using namespace ElfFormat;

namespace ElfInternal {

State& S() {
    static State Instance;
    return Instance;
}

const U8* SectionData(const ELF_FILE* File, U32 Index) {
    if (Index >= File->Sections.size()) {
        return nullptr;
    }
    const ELF32_SHDR& Sh = File->Sections[Index];
    if (Sh.sh_type == SHT_NOBITS || Sh.sh_size == 0 || !InFile(File, Sh.sh_offset, Sh.sh_size)) {
        return nullptr;
    }
    return File->Image.get() + Sh.sh_offset;
}

const char* StringAt(const ELF_FILE* File, I64 SecIndex, U32 Offset) {
    if (SecIndex < 0) {
        return "";
    }
    const U8* Data = SectionData(File, static_cast<U32>(SecIndex));
    if (!Data) {
        return "";
    }
    const U32 Size = File->Sections[static_cast<size_t>(SecIndex)].sh_size;
    if (Offset >= Size) {
        return "";
    }
    // A name must end inside its string table; a table without the final NUL gives no name.
    if (!std::memchr(Data + Offset, 0, Size - Offset)) {
        return "";
    }
    return reinterpret_cast<const char*>(Data + Offset);
}

const char* SectionName(const ELF_FILE* File, U32 Index) {
    if (Index >= File->Sections.size()) {
        return "";
    }
    return StringAt(File, File->Header.e_shstrndx, File->Sections[Index].sh_name);
}

} // namespace ElfInternal

using namespace ElfInternal;

namespace {

bool IsBigEndian(const ELF_FILE* File) {
    return File->Header.e_ident[5] == ELFDATA2MSB;
}

int ReadHeader(ELF_FILE* File) {
    const U8* Image = File->Image.get();
    const bool Magic =
        File->FileSize >= 4 && Image[0] == 0x7F && Image[1] == 'E' && Image[2] == 'L' && Image[3] == 'F';
    if (!Magic) {
        ELF_ReportError(ELF_ERR_NO_MAGIC);
        return -1;
    }
    if (File->FileSize < EHDR_SIZE) {
        ELF_ReportError(ELF_ERR_READ, QStringLiteral("the file is shorter than an ELF header"));
        return -1;
    }
    ELF32_EHDR& H = File->Header;
    std::memcpy(&H, Image, EHDR_SIZE);
    if (H.e_ident[5] == ELFDATA2MSB) {
        SwapField(H.e_type);
        SwapField(H.e_machine);
        SwapField(H.e_version);
        SwapField(H.e_entry);
        SwapField(H.e_phoff);
        SwapField(H.e_shoff);
        SwapField(H.e_flags);
        SwapField(H.e_ehsize);
        SwapField(H.e_phentsize);
        SwapField(H.e_phnum);
        SwapField(H.e_shentsize);
        SwapField(H.e_shnum);
        SwapField(H.e_shstrndx);
    }
    if (H.e_type != ET_EXEC) {
        ELF_ReportError(ELF_ERR_NOT_EXECUTABLE);
        return -1;
    }
    if (H.e_ident[4] == 0) {
        ELF_ReportError(ELF_ERR_CLASS_NONE);
        return -1;
    }
    // The 64-bit layouts differ from the 32-bit ones from e_entry on: reading them would give nonsense.
    if (H.e_ident[4] == ELFCLASS64) {
        ELF_ReportError(ELF_ERR_NOT_EXECUTABLE, QStringLiteral("64-bit ELF files are not supported"));
        return -1;
    }
    if (H.e_ident[5] != ELFDATA2LSB && H.e_ident[5] != ELFDATA2MSB) {
        ELF_ReportError(ELF_ERR_DATA_NONE);
        return -1;
    }
    if (H.e_ident[6] != 1) {
        ELF_ReportError(ELF_ERR_HEADER_VERSION);
        return -1;
    }
    if (H.e_version == 0) {
        ELF_ReportError(ELF_ERR_FILE_VERSION);
        return -1;
    }
    return 0;
}

int ReadProgramHeaders(ELF_FILE* File) {
    const ELF32_EHDR& H = File->Header;
    // Entries shorter than a header would overlap; with them a small file could claim a large table.
    if (H.e_phnum != 0 && H.e_phentsize < PHDR_SIZE) {
        ELF_ReportError(ELF_ERR_READ, QStringLiteral("program header entries are shorter than 32 bytes"));
        return -1;
    }
    if (H.e_phnum != 0 &&
        !InFile(File, H.e_phoff + static_cast<U64>(H.e_phnum - 1) * H.e_phentsize, PHDR_SIZE)) {
        ELF_ReportError(ELF_ERR_READ, QStringLiteral("the program headers lie outside the file"));
        return -1;
    }
    File->Segments.resize(H.e_phnum);
    for (U32 i = 0; i < H.e_phnum; ++i) {
        const U64 Offset = H.e_phoff + static_cast<U64>(i) * H.e_phentsize;
        if (!InFile(File, Offset, PHDR_SIZE)) {
            ELF_ReportError(ELF_ERR_READ, QStringLiteral("program header %1 lies outside the file").arg(i));
            return -1;
        }
        ELF32_PHDR& P = File->Segments[i];
        std::memcpy(&P, File->Image.get() + Offset, PHDR_SIZE);
        if (IsBigEndian(File)) {
            for (U32* W : {&P.p_type, &P.p_offset, &P.p_vaddr, &P.p_paddr, &P.p_filesz, &P.p_memsz,
                           &P.p_flags, &P.p_align}) {
                SwapField(*W);
            }
        }
    }
    return 0;
}

int ReadSectionHeaders(ELF_FILE* File) {
    const ELF32_EHDR& H = File->Header;
    if (H.e_shnum != 0 && H.e_shentsize < SHDR_SIZE) {
        ELF_ReportError(ELF_ERR_READ, QStringLiteral("section header entries are shorter than 40 bytes"));
        return -1;
    }
    if (H.e_shnum != 0 &&
        !InFile(File, H.e_shoff + static_cast<U64>(H.e_shnum - 1) * H.e_shentsize, SHDR_SIZE)) {
        ELF_ReportError(ELF_ERR_READ, QStringLiteral("the section headers lie outside the file"));
        return -1;
    }
    File->Sections.resize(H.e_shnum);
    for (U32 i = 0; i < H.e_shnum; ++i) {
        const U64 Offset = H.e_shoff + static_cast<U64>(i) * H.e_shentsize;
        if (!InFile(File, Offset, SHDR_SIZE)) {
            ELF_ReportError(ELF_ERR_READ, QStringLiteral("section header %1 lies outside the file").arg(i));
            return -1;
        }
        ELF32_SHDR& Sh = File->Sections[i];
        std::memcpy(&Sh, File->Image.get() + Offset, SHDR_SIZE);
        if (IsBigEndian(File)) {
            for (U32* W : {&Sh.sh_name, &Sh.sh_type, &Sh.sh_flags, &Sh.sh_addr, &Sh.sh_offset, &Sh.sh_size,
                           &Sh.sh_link, &Sh.sh_info, &Sh.sh_addralign, &Sh.sh_entsize}) {
                SwapField(*W);
            }
        }
    }
    File->StrTabIndex = -1;
    File->SymTabIndex = -1;
    for (U32 i = 0; i < File->Sections.size(); ++i) {
        const char* Name = SectionName(File, i);
        if (File->StrTabIndex < 0 && std::strcmp(Name, ".strtab") == 0) {
            File->StrTabIndex = static_cast<I32>(i);
        } else if (File->SymTabIndex < 0 && std::strcmp(Name, ".symtab") == 0) {
            File->SymTabIndex = static_cast<I32>(i);
        } else if (std::strcmp(Name, ".note.iar") == 0) {
            File->CfaFactor = 4;
        }
    }
    return 0;
}

int FreeSlot() {
    for (int i = 0; i < ELF_SLOT_COUNT; ++i) {
        if (!S().Slots[i]) {
            return i;
        }
    }
    return -1;
}

/// Reads the whole file into a new record; null after reporting the code.
std::unique_ptr<ELF_FILE> ReadImage(const QString& Path) {
    QFile In(Path);
    if (QFileInfo(Path).isDir()) {
        ELF_ReportError(ELF_ERR_OPEN, Path + QStringLiteral(": is a directory"));
        return nullptr;
    }
    if (!In.open(QIODevice::ReadOnly)) {
        ELF_ReportError(ELF_ERR_OPEN, Path + QStringLiteral(": ") + In.errorString());
        return nullptr;
    }
    // The size the file system reports, never a size that the file's contents claim.
    const qint64 Size = In.size();
    if (Size <= 0 || Size > INT_MAX) {
        ELF_ReportError(ELF_ERR_FILE_SIZE, Size <= 0 ? QStringLiteral("the file is empty")
                                                     : QStringLiteral("the file is larger than 2 GB"));
        return nullptr;
    }
    std::unique_ptr<ELF_FILE> File(new (std::nothrow) ELF_FILE);
    if (File) {
        File->Image.reset(new (std::nothrow) U8[static_cast<size_t>(Size)]);
    }
    if (!File || !File->Image) {
        ELF_ReportError(ELF_ERR_OUT_OF_MEMORY);
        return nullptr;
    }
    File->FileSize = static_cast<U32>(Size);
    if (In.read(reinterpret_cast<char*>(File->Image.get()), Size) != Size) {
        ELF_ReportError(ELF_ERR_READ);
        return nullptr;
    }
    File->Path = Path;
    return File;
}

void FreeFile(ELF_FILE* File) {
    State& St = S();
    for (ELF_FILE*& Slot : St.Slots) {
        if (Slot == File) {
            Slot = nullptr;
        }
    }
    ELF_FreeDebugInfo(File);
    delete File;
}

} // namespace

ELF_FILE* ELF_Open(const QString& Path, bool ParseDebugInfo) {
    State& St = S();
    St.Parsing = true;
    const int Slot = FreeSlot();
    if (Slot < 0) {
        ELF_ReportError(ELF_ERR_TOO_MANY_FILES);
        St.Parsing = false;
        return nullptr;
    }
    std::unique_ptr<ELF_FILE> Owned = ReadImage(Path);
    if (!Owned) {
        St.Parsing = false;
        return nullptr;
    }
    ELF_FILE* File = Owned.release();
    ELF_FILE* Previous = St.Current;
    St.Slots[Slot] = File;
    File->Loaded = false;
    File->OpenTime = QDateTime::currentMSecsSinceEpoch();
    St.Current = File;

    if (ReadHeader(File) < 0 || ReadProgramHeaders(File) < 0 || ReadSectionHeaders(File) < 0 ||
        ReadSymbols(File) < 0) {
        FreeFile(File);
        St.Current = Previous;
        St.Parsing = false;
        return nullptr;
    }
    // A file without usable debug information is still a program.
    if (ParseDebugInfo && ELF_ReadDebugInfo(File) < 0) {
        ELF_ReportError(ELF_ERR_DEBUG_INFO);
    }
    File->Loaded = true;
    St.Parsing = false;
    // Resolves the relocation records against the file; while parsing, the look-ups would find nothing.
    ELF_SetCurrentFile(File);
    return File;
}

void ELF_Close(ELF_FILE* File) {
    State& St = S();
    if (!File || ELF_GetSlotIndex(File) < 0) {
        return;
    }
    St.Closing = true;
    if (St.Current == File) {
        St.Current = nullptr;
        St.SegmentTable.clear();
        St.Bounds = ELF_ADDR_BOUNDS();
        St.CurrentByteOrder = ELF_UNKNOWN_ENDIAN;
    }
    File->Loaded = false;
    FreeFile(File);
    // The relocation table is filled by the project script before the program opens; it is emptied
    // with the last open file, so that a data file read beside the program does not take it away.
    if (!St.Slots[0] && !St.Slots[1] && !St.Slots[2]) {
        St.Relocations.clear();
    }
    St.Closing = false;
}

void ELF_CloseAll() {
    for (int i = 0; i < ELF_SLOT_COUNT; ++i) {
        ELF_Close(S().Slots[i]);
    }
}

ELF_FILE* ELF_GetCurrentFile() {
    return S().Current;
}

void ELF_SetCurrentFile(ELF_FILE* File) {
    State& St = S();
    St.Current = ELF_GetSlotIndex(File) >= 0 ? File : nullptr;
    St.CurrentByteOrder = ELF_GetByteOrder(St.Current);
    // Names in the relocation records mean sections and symbols of the current file: a data file read
    // beside the program borrows the table, and giving the program back resolves it against it again.
    ELF_ResolveRelocations();
    RebuildSegmentTable();
    RebuildAddrBounds();
}

int ELF_GetSlotIndex(const ELF_FILE* File) {
    if (!File) {
        return -1;
    }
    for (int i = 0; i < ELF_SLOT_COUNT; ++i) {
        if (S().Slots[i] == File) {
            return i;
        }
    }
    return -1;
}

ELF_FILE* ELF_GetSlotFile(int Slot) {
    return Slot >= 0 && Slot < ELF_SLOT_COUNT ? S().Slots[Slot] : nullptr;
}

bool ELF_IsValid(const ELF_FILE* File) {
    return !S().Parsing && !S().Closing && ELF_GetSlotIndex(File) >= 0;
}

void ELF_SetInstAlign(U32 Align) {
    // Only powers of two make sense as an alignment.
    S().InstAlign = (Align != 0 && (Align & (Align - 1)) == 0) ? Align : 2;
}

U32 ELF_GetInstAlign() {
    return S().InstAlign;
}

U32 ELF_AlignInst(U32 Addr) {
    return Addr & ~(S().InstAlign - 1);
}

int ELF_GetClass(const ELF_FILE* File) {
    return ELF_IsValid(File) ? File->Header.e_ident[4] : 0;
}

int ELF_GetByteOrder(const ELF_FILE* File) {
    if (!ELF_IsValid(File)) {
        return ELF_UNKNOWN_ENDIAN;
    }
    switch (File->Header.e_ident[5]) {
    case ELFDATA2LSB:
        return ELF_LITTLE_ENDIAN;
    case ELFDATA2MSB:
        return ELF_BIG_ENDIAN;
    default:
        return ELF_UNKNOWN_ENDIAN;
    }
}

int ELF_GetCurrentByteOrder() {
    return S().CurrentByteOrder;
}

const ELF32_EHDR* ELF_GetHeader(const ELF_FILE* File) {
    return ELF_IsValid(File) ? &File->Header : nullptr;
}

U32 ELF_GetEntryPoint(const ELF_FILE* File) {
    if (!ELF_IsValid(File)) {
        return 0;
    }
    const U32 Entry = File->Header.e_entry;
    if (Entry == 0xFFFFFFFF) {
        return Entry;
    }
    return ELF_ToTargetAddr(ELF_AlignInst(Entry), 1, 0);
}

U32 ELF_GetSegmentCount(const ELF_FILE* File) {
    return ELF_IsValid(File) ? static_cast<U32>(File->Segments.size()) : 0;
}

U32 ELF_GetSectionCount(const ELF_FILE* File) {
    return ELF_IsValid(File) ? static_cast<U32>(File->Sections.size()) : 0;
}

namespace {

const ELF32_PHDR* Segment(const ELF_FILE* File, U32 Index) {
    return ELF_IsValid(File) && Index < File->Segments.size() ? &File->Segments[Index] : nullptr;
}

const ELF32_SHDR* Section(const ELF_FILE* File, U32 Index) {
    return ELF_IsValid(File) && Index < File->Sections.size() ? &File->Sections[Index] : nullptr;
}

} // namespace

#define SEGMENT_FIELD(Func, Field)                                                                           \
    U32 Func(const ELF_FILE* File, U32 Index) {                                                              \
        const ELF32_PHDR* P = Segment(File, Index);                                                          \
        return P ? P->Field : 0;                                                                             \
    }
SEGMENT_FIELD(ELF_GetSegmentType, p_type)
SEGMENT_FIELD(ELF_GetSegmentOffset, p_offset)
SEGMENT_FIELD(ELF_GetSegmentVirtAddr, p_vaddr)
SEGMENT_FIELD(ELF_GetSegmentPhysAddr, p_paddr)
SEGMENT_FIELD(ELF_GetSegmentFileSize, p_filesz)
SEGMENT_FIELD(ELF_GetSegmentMemSize, p_memsz)
SEGMENT_FIELD(ELF_GetSegmentFlags, p_flags)
SEGMENT_FIELD(ELF_GetSegmentAlign, p_align)
#undef SEGMENT_FIELD

const U8* ELF_GetSegmentData(const ELF_FILE* File, U32 Index) {
    const ELF32_PHDR* P = Segment(File, Index);
    if (!P || !InFile(File, P->p_offset, P->p_filesz)) {
        return nullptr;
    }
    return File->Image.get() + P->p_offset;
}

U32 ELF_GetSegmentFirstSectionOffset(const ELF_FILE* File, U32 Index) {
    const ELF32_PHDR* P = Segment(File, Index);
    if (!P) {
        return 0;
    }
    const U64 Start = P->p_vaddr;
    const U64 End = Start + P->p_filesz;
    U64 Lowest = UINT64_MAX;
    for (const ELF32_SHDR& Sh : File->Sections) {
        if (!(Sh.sh_flags & SHF_ALLOC) || Sh.sh_size == 0) {
            continue;
        }
        if (Sh.sh_addr >= Start && static_cast<U64>(Sh.sh_addr) + Sh.sh_size <= End && Sh.sh_addr < Lowest) {
            Lowest = Sh.sh_addr;
        }
    }
    return Lowest == UINT64_MAX ? 0 : static_cast<U32>(Lowest - Start);
}

const std::vector<ELF_SEGMENT>& ELF_GetSegmentTable() {
    return S().SegmentTable;
}

const char* ELF_GetSectionName(const ELF_FILE* File, U32 Index) {
    return Section(File, Index) ? SectionName(File, Index) : "";
}

#define SECTION_FIELD(Func, Field)                                                                           \
    U32 Func(const ELF_FILE* File, U32 Index) {                                                              \
        const ELF32_SHDR* Sh = Section(File, Index);                                                         \
        return Sh ? Sh->Field : 0;                                                                           \
    }
SECTION_FIELD(ELF_GetSectionType, sh_type)
SECTION_FIELD(ELF_GetSectionFlags, sh_flags)
SECTION_FIELD(ELF_GetSectionAddr, sh_addr)
SECTION_FIELD(ELF_GetSectionOffset, sh_offset)
SECTION_FIELD(ELF_GetSectionSize, sh_size)
SECTION_FIELD(ELF_GetSectionLink, sh_link)
SECTION_FIELD(ELF_GetSectionInfo, sh_info)
SECTION_FIELD(ELF_GetSectionAddrAlign, sh_addralign)
SECTION_FIELD(ELF_GetSectionEntSize, sh_entsize)
#undef SECTION_FIELD

const U8* ELF_GetSectionData(const ELF_FILE* File, U32 Index) {
    return Section(File, Index) ? SectionData(File, Index) : nullptr;
}

I32 ELF_FindSection(const ELF_FILE* File, const char* Name) {
    if (!ELF_IsValid(File) || !Name) {
        return -1;
    }
    for (U32 i = 0; i < File->Sections.size(); ++i) {
        if (std::strcmp(SectionName(File, i), Name) == 0) {
            return static_cast<I32>(i);
        }
    }
    return -1;
}

I32 ELF_FindSectionByInfo(const ELF_FILE* File, U32 Info) {
    if (!ELF_IsValid(File)) {
        return -1;
    }
    for (U32 i = 0; i < File->Sections.size(); ++i) {
        if (File->Sections[i].sh_info == Info) {
            return static_cast<I32>(i);
        }
    }
    return -1;
}

I32 ELF_FindSectionAt(const ELF_FILE* File, U32 Addr, I64 Type) {
    if (!ELF_IsValid(File)) {
        return -1;
    }
    for (U32 i = 0; i < File->Sections.size(); ++i) {
        const ELF32_SHDR& Sh = File->Sections[i];
        if (Type != -1 && Sh.sh_type != static_cast<U64>(Type)) {
            continue;
        }
        if (Sh.sh_addr <= Addr && Addr < RangeEnd(Sh.sh_addr, Sh.sh_size)) {
            return static_cast<I32>(i);
        }
    }
    return -1;
}

bool ELF_GetProgramLoadAddr(const ELF_FILE* File, U32& Addr) {
    if (!ELF_IsValid(File)) {
        return false;
    }
    bool Found = false;
    for (const ELF32_PHDR& P : File->Segments) {
        if (P.p_type == PT_LOAD && P.p_filesz != 0 && (!Found || P.p_paddr < Addr)) {
            Addr = P.p_paddr;
            Found = true;
        }
    }
    return Found;
}

I32 ELF_GetVectorSection(const ELF_FILE* File) {
    const I32 Named = ELF_FindSection(File, ".vectors");
    if (Named >= 0) {
        return Named;
    }
    U32 Load = 0;
    if (!ELF_GetProgramLoadAddr(File, Load)) {
        return -1;
    }
    return ELF_FindSectionAt(File, Load, SHT_PROGBITS);
}

U32 ELF_GetCfaFactor(const ELF_FILE* File) {
    return ELF_IsValid(File) ? File->CfaFactor : 1;
}

ELF_SRC_LANG ELF_GetSrcLang(const ELF_FILE* File) {
    return ELF_IsValid(File) ? File->SrcLang : 0;
}
