#include "ElfBuilder.h"

#include <QFile>

int ElfBuilder::AddSection(const Section& S) {
    m_Sections.push_back(S);
    return static_cast<int>(m_Sections.size());
}

int ElfBuilder::AddSymbol(const Symbol& S) {
    m_Symbols.push_back(S);
    return static_cast<int>(m_Symbols.size());
}

int ElfBuilder::AddCode(const std::string& Name, U32 Addr, U32 Size) {
    Section S;
    S.Name = Name;
    S.Flags = 6;
    S.Addr = Addr;
    S.Data.resize(Size);
    for (U32 i = 0; i < Size; ++i) {
        S.Data[i] = static_cast<char>(i * 7 + 1);
    }
    return AddSection(S);
}

int ElfBuilder::AddData(const std::string& Name, U32 Addr, const QByteArray& Bytes) {
    Section S;
    S.Name = Name;
    S.Flags = 3;
    S.Addr = Addr;
    S.Data = Bytes;
    return AddSection(S);
}

void ElfBuilder::Put16(QByteArray& B, qsizetype At, U16 V) const {
    if (m_BigEndian) {
        V = static_cast<U16>((V >> 8) | (V << 8));
    }
    std::memcpy(B.data() + At, &V, 2);
}

void ElfBuilder::Put32(QByteArray& B, qsizetype At, U32 V) const {
    if (m_BigEndian) {
        V = (V >> 24) | ((V >> 8) & 0xFF00u) | ((V << 8) & 0xFF0000u) | (V << 24);
    }
    std::memcpy(B.data() + At, &V, 4);
}

QByteArray ElfBuilder::Build() const {
    std::vector<Section> All;
    All.push_back(Section{"", 0, 0, 0, {}, 0, 0, 0, 0, 0});
    All.insert(All.end(), m_Sections.begin(), m_Sections.end());

    QByteArray StrTab(1, '\0');
    QByteArray SymTab(16, '\0');
    std::vector<U32> SymNames;
    for (const Symbol& S : m_Symbols) {
        SymNames.push_back(static_cast<U32>(StrTab.size()));
        StrTab.append(S.Name.c_str(), static_cast<qsizetype>(S.Name.size() + 1));
    }
    if (WithSymbols) {
        Section Str{".strtab", 3, 0, 0, StrTab, 0, 0, 0, 1, 0};
        All.push_back(Str);
        Section Sym{".symtab", 2, 0, 0, QByteArray(), 0, static_cast<U32>(All.size() - 1), 1, 4, 16};
        All.push_back(Sym);
    }
    QByteArray ShStrTab(1, '\0');
    std::vector<U32> SecNames;
    for (Section& S : All) {
        SecNames.push_back(S.Name.empty() ? 0 : static_cast<U32>(ShStrTab.size()));
        if (!S.Name.empty()) {
            ShStrTab.append(S.Name.c_str(), static_cast<qsizetype>(S.Name.size() + 1));
        }
    }
    SecNames.push_back(static_cast<U32>(ShStrTab.size()));
    ShStrTab.append(".shstrtab", 10);
    All.push_back(Section{".shstrtab", 3, 0, 0, ShStrTab, 0, 0, 0, 1, 0});
    const size_t ShStrIndex = All.size() - 1;

    // Symbol table contents, written in the file's byte order.
    if (WithSymbols) {
        QByteArray& Sym = All[All.size() - 2].Data;
        Sym = QByteArray(static_cast<qsizetype>(16 * (m_Symbols.size() + 1)), '\0');
        for (size_t i = 0; i < m_Symbols.size(); ++i) {
            const Symbol& S = m_Symbols[i];
            const qsizetype At = static_cast<qsizetype>(16 * (i + 1));
            Put32(Sym, At, SymNames[i]);
            Put32(Sym, At + 4, S.Value);
            Put32(Sym, At + 8, S.Size);
            Sym[At + 12] = static_cast<char>((S.Bind << 4) | (S.Type & 0xF));
            Put16(Sym, At + 14, S.Shndx);
        }
    }

    const U32 PhOff = 52;
    U32 Offset = PhOff + 32 * static_cast<U32>(m_Segments.size());
    std::vector<U32> Offsets(All.size(), 0);
    QByteArray Body;
    for (size_t i = 1; i < All.size(); ++i) {
        Offset = (Offset + 3) & ~3u;
        Offsets[i] = Offset;
        Offset += static_cast<U32>(All[i].Data.size());
    }
    const U32 ShOff = (Offset + 3) & ~3u;
    QByteArray Out(static_cast<qsizetype>(ShOff + 40 * All.size()), '\0');
    for (size_t i = 1; i < All.size(); ++i) {
        std::memcpy(Out.data() + Offsets[i], All[i].Data.constData(),
                    static_cast<size_t>(All[i].Data.size()));
    }

    const char Ident[7] = {0x7F,
                           'E',
                           'L',
                           'F',
                           static_cast<char>(Class),
                           static_cast<char>(Data ? Data : (m_BigEndian ? 2 : 1)),
                           static_cast<char>(IdentVersion)};
    std::memcpy(Out.data(), Ident, 7);
    Put16(Out, 16, Type);
    Put16(Out, 18, 40);
    Put32(Out, 20, Version);
    Put32(Out, 24, Entry);
    Put32(Out, 28, m_Segments.empty() ? 0 : PhOff);
    Put32(Out, 32, ShOff);
    Put16(Out, 40, 52);
    Put16(Out, 42, 32);
    Put16(Out, 44, static_cast<U16>(m_Segments.size()));
    Put16(Out, 46, 40);
    Put16(Out, 48, static_cast<U16>(All.size()));
    Put16(Out, 50, static_cast<U16>(ShStrIndex));

    for (size_t k = 0; k < m_Segments.size(); ++k) {
        Segment S = m_Segments[k];
        if (S.First > 0) {
            const Section& F = All[static_cast<size_t>(S.First)];
            const Section& L = All[static_cast<size_t>(S.Last)];
            S.Offset = Offsets[static_cast<size_t>(S.First)];
            S.VirtAddr = F.Addr;
            const U32 End = Offsets[static_cast<size_t>(S.Last)] + static_cast<U32>(L.Data.size());
            if (S.FromFileStart) {
                S.VirtAddr -= S.Offset;
                S.Offset = 0;
            }
            S.FileSize = End - S.Offset;
            S.MemSize = S.FileSize;
        }
        const U32 Phys = S.PhysAddr < 0 ? S.VirtAddr : static_cast<U32>(S.PhysAddr);
        const qsizetype At = static_cast<qsizetype>(PhOff + 32 * k);
        const U32 Fields[8] = {S.Type, S.Offset, S.VirtAddr, Phys, S.FileSize, S.MemSize, 5, 4};
        for (int f = 0; f < 8; ++f) {
            Put32(Out, At + 4 * f, Fields[f]);
        }
    }
    for (size_t i = 0; i < All.size(); ++i) {
        const Section& S = All[i];
        const qsizetype At = static_cast<qsizetype>(ShOff + 40 * i);
        const U32 Size = S.Type == 8 ? S.NoBitsSize : static_cast<U32>(S.Data.size());
        const U32 Fields[10] = {SecNames[i], S.Type, S.Flags, S.Addr,  i ? Offsets[i] : 0,
                                Size,        S.Link, S.Info,  S.Align, S.EntSize};
        for (int f = 0; f < 10; ++f) {
            Put32(Out, At + 4 * f, Fields[f]);
        }
    }
    return Out;
}

bool ElfBuilder::Write(const QString& Path) const {
    QFile F(Path);
    if (!F.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        return false;
    }
    const QByteArray B = Build();
    return F.write(B) == B.size();
}
