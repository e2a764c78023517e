#pragma once

#include "app/core/Types.h"

#include <QByteArray>
#include <QString>

#include <string>
#include <vector>

/// Builds small 32-bit ELF images in either byte order for the tests: sections with contents, a symbol
/// table and program headers. Section 0 and symbol 0 are the null entries; ".shstrtab", ".strtab" and
/// ".symtab" are appended behind the sections that a test adds.
class ElfBuilder {
public:
    struct Section {
        std::string Name;
        U32 Type = 1;
        U32 Flags = 0;
        U32 Addr = 0;
        QByteArray Data;
        U32 NoBitsSize = 0; ///< size of a NOBITS section
        U32 Link = 0;
        U32 Info = 0;
        U32 Align = 4;
        U32 EntSize = 0;
    };
    struct Symbol {
        std::string Name;
        U32 Value = 0;
        U32 Size = 0;
        U8 Type = 0;
        U8 Bind = 1;
        U16 Shndx = 0;
    };
    /// A program header over the file bytes of sections First to Last (indices as AddSection returns).
    /// With FromFileStart the segment begins at file offset 0, so that it holds the ELF header too.
    struct Segment {
        U32 Type = 1;
        int First = -1; ///< -1: no sections, the explicit values below are used
        int Last = -1;
        I64 PhysAddr = -1; ///< -1: the virtual address
        bool FromFileStart = false;
        U32 Offset = 0, VirtAddr = 0, FileSize = 0, MemSize = 0;
    };

    explicit ElfBuilder(bool BigEndian = false) : m_BigEndian(BigEndian) {}

    /// Index of the new section (1 for the first one).
    int AddSection(const Section& S);
    /// Index of the new symbol (1 for the first one).
    int AddSymbol(const Symbol& S);
    void AddSegment(const Segment& S) { m_Segments.push_back(S); }
    /// A PROGBITS section with SHF_ALLOC | SHF_EXECINSTR and Size bytes of a pattern.
    int AddCode(const std::string& Name, U32 Addr, U32 Size);
    /// A writable, allocated section holding Bytes.
    int AddData(const std::string& Name, U32 Addr, const QByteArray& Bytes);

    U16 Type = 2;
    U8 Class = 1;
    U8 Data = 0; ///< 0: from the byte order given to the constructor
    U8 IdentVersion = 1;
    U32 Version = 1;
    U32 Entry = 0;
    bool WithSymbols = true;

    QByteArray Build() const;
    /// Build() written to Path; false if the file could not be written.
    bool Write(const QString& Path) const;

private:
    void Put16(QByteArray& B, qsizetype At, U16 V) const;
    void Put32(QByteArray& B, qsizetype At, U32 V) const;

    bool m_BigEndian;
    std::vector<Section> m_Sections;
    std::vector<Symbol> m_Symbols;
    std::vector<Segment> m_Segments;
};
