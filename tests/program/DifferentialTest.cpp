// The ELF model and the readers against the ARM toolchain, over every target program of the build and a
// big-endian build of the demo.

#include "Toolchain.h"

#include "program/ElfParser.h"
#include "program/FileWorker.h"

#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using Toolchain::Section;
using Toolchain::Symbol;

QString TypeName(U32 Type) {
    static const QMap<U32, QString> Names = {{0, "NULL"},
                                             {1, "PROGBITS"},
                                             {2, "SYMTAB"},
                                             {3, "STRTAB"},
                                             {4, "RELA"},
                                             {5, "HASH"},
                                             {6, "DYNAMIC"},
                                             {7, "NOTE"},
                                             {8, "NOBITS"},
                                             {9, "REL"},
                                             {11, "DYNSYM"},
                                             {14, "INIT_ARRAY"},
                                             {15, "FINI_ARRAY"},
                                             {16, "PREINIT_ARRAY"},
                                             {17, "GROUP"},
                                             {0x70000001, "ARM_EXIDX"},
                                             {0x70000003, "ARM_ATTRIBUTES"}};
    return Names.value(Type, QStringLiteral("?%1").arg(Type));
}

QString SectionFlags(U32 F) {
    const struct {
        U32 Bit;
        char Letter;
    } Letters[] = {{0x1, 'W'},  {0x2, 'A'},   {0x4, 'X'},   {0x10, 'M'},  {0x20, 'S'},  {0x40, 'I'},
                   {0x80, 'L'}, {0x100, 'O'}, {0x200, 'G'}, {0x400, 'T'}, {0x800, 'C'}, {0x20000000, 'y'}};
    QString Out;
    for (const auto& L : Letters) {
        if (F & L.Bit) {
            Out += QLatin1Char(L.Letter);
        }
    }
    return Out;
}

QString SegmentType(U32 Type) {
    static const QMap<U32, QString> Names = {{0, "NULL"},
                                             {1, "LOAD"},
                                             {2, "DYNAMIC"},
                                             {3, "INTERP"},
                                             {4, "NOTE"},
                                             {6, "PHDR"},
                                             {0x6474e551, "GNU_STACK"},
                                             {0x70000001, "EXIDX"}};
    return Names.value(Type, QStringLiteral("?%1").arg(Type));
}

QString SymType(U32 T) {
    static const char* Names[] = {"NOTYPE", "OBJECT", "FUNC", "SECTION", "FILE", "COMMON", "TLS"};
    return T < 7 ? QLatin1String(Names[T]) : QStringLiteral("?%1").arg(T);
}

QString SymBind(U32 B) {
    static const char* Names[] = {"LOCAL", "GLOBAL", "WEAK"};
    return B < 3 ? QLatin1String(Names[B]) : QStringLiteral("?%1").arg(B);
}

QString SymVis(U32 Other) {
    static const char* Names[] = {"DEFAULT", "INTERNAL", "HIDDEN", "PROTECTED"};
    return QLatin1String(Names[Other & 3]);
}

QString SymNdx(U32 Ndx) {
    if (Ndx == 0) {
        return QStringLiteral("UND");
    }
    if (Ndx == 0xFFF1) {
        return QStringLiteral("ABS");
    }
    if (Ndx == 0xFFF2) {
        return QStringLiteral("COM");
    }
    return QString::number(Ndx);
}

bool IsFunc(const Symbol& S) {
    return S.Type == QLatin1String("FUNC");
}

/// The size that a symbol without one gets from its neighbours, worked out from readelf's tables alone.
U32 ExpectedFilledSize(const std::vector<Symbol>& Syms, const std::vector<Section>& Secs, size_t Index) {
    const Symbol& S = Syms[Index];
    const bool Ok = S.Ndx.toUInt() > 0 && S.Ndx.toUInt() < Secs.size();
    if (S.Size != 0 || !Ok || (S.Type != QLatin1String("OBJECT") && !IsFunc(S))) {
        return S.Size;
    }
    const Section& Sec = Secs[S.Ndx.toUInt()];
    const U64 SecEnd = static_cast<U64>(Sec.Addr) + Sec.Size;
    std::vector<size_t> Order(Syms.size());
    for (size_t i = 0; i < Order.size(); ++i) {
        Order[i] = i;
    }
    std::stable_sort(Order.begin(), Order.end(),
                     [&](size_t A, size_t B) { return Syms[A].Value < Syms[B].Value; });
    const size_t Pos = static_cast<size_t>(std::find(Order.begin(), Order.end(), Index) - Order.begin());
    if (!IsFunc(S)) {
        for (size_t j = Pos + 1; j < std::min(Order.size(), Pos + 10); ++j) {
            const U32 V = Syms[Order[j]].Value;
            if (V > S.Value) {
                return V <= SecEnd && V - S.Value <= 10000000 ? V - S.Value : 0;
            }
        }
        return 0;
    }
    const U64 Start = S.Value & ~1u;
    U64 End = SecEnd & ~1ull;
    for (size_t j = Pos + 1; j < Order.size(); ++j) {
        if (IsFunc(Syms[Order[j]]) && Syms[Order[j]].Value > S.Value) {
            End = std::min<U64>(End, Syms[Order[j]].Value & ~1u);
            break;
        }
    }
    return End > Start && End - Start <= 10000000 ? static_cast<U32>(End - Start) : 0;
}

class ToolchainDiff : public ::testing::TestWithParam<QString> {
protected:
    void SetUp() override {
        ASSERT_TRUE(QFileInfo(GetParam()).isFile()) << GetParam().toStdString();
        File = ELF_Open(GetParam(), false);
        ASSERT_NE(File, nullptr);
    }
    void TearDown() override { ELF_CloseAll(); }
    ELF_FILE* File = nullptr;
};

TEST(ToolchainPrograms, TheBuildMadeTargetPrograms) {
    EXPECT_FALSE(Toolchain::FirmwareElfs().isEmpty());
    for (const QString& Elf : Toolchain::AllElfs()) {
        EXPECT_TRUE(QFileInfo(Elf).isFile()) << Elf.toStdString();
    }
}

TEST_P(ToolchainDiff, HeaderEqualsReadelf) {
    const QMap<QString, QString> H = Toolchain::ReadHeader(GetParam());
    const ELF32_EHDR* E = ELF_GetHeader(File);
    ASSERT_NE(E, nullptr);
    EXPECT_EQ(H["Class"], "ELF32");
    EXPECT_EQ(H["Data"].contains("big endian"), ELF_GetByteOrder(File) == ELF_BIG_ENDIAN);
    EXPECT_EQ(H["Data"].contains("little endian"), ELF_GetByteOrder(File) == ELF_LITTLE_ENDIAN);
    EXPECT_TRUE(H["Type"].startsWith("EXEC"));
    EXPECT_EQ(H["Machine"], E->e_machine == 40 ? "ARM" : "?");
    EXPECT_EQ(H["Version"], "0x" + QString::number(E->e_version, 16));
    EXPECT_EQ(H["Entry point address"], "0x" + QString::number(E->e_entry, 16));
    EXPECT_EQ(ELF_GetEntryPoint(File), E->e_entry & ~1u);
    EXPECT_EQ(H["Start of program headers"], QString("%1 (bytes into file)").arg(E->e_phoff));
    EXPECT_EQ(H["Start of section headers"], QString("%1 (bytes into file)").arg(E->e_shoff));
    EXPECT_TRUE(H["Flags"].startsWith("0x" + QString::number(E->e_flags, 16)));
    EXPECT_EQ(H["Size of this header"], QString("%1 (bytes)").arg(E->e_ehsize));
    EXPECT_EQ(H["Size of program headers"], QString("%1 (bytes)").arg(E->e_phentsize));
    EXPECT_EQ(H["Number of program headers"].toUInt(), ELF_GetSegmentCount(File));
    EXPECT_EQ(H["Size of section headers"], QString("%1 (bytes)").arg(E->e_shentsize));
    EXPECT_EQ(H["Number of section headers"].toUInt(), ELF_GetSectionCount(File));
    EXPECT_EQ(H["Section header string table index"].toUInt(), E->e_shstrndx);
}

TEST_P(ToolchainDiff, SegmentsEqualReadelf) {
    const std::vector<Toolchain::Segment> Segs = Toolchain::ReadSegments(GetParam());
    ASSERT_EQ(Segs.size(), ELF_GetSegmentCount(File));
    U32 Load = 0xFFFFFFFF;
    for (U32 i = 0; i < Segs.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(Segs[i].Type, SegmentType(ELF_GetSegmentType(File, i)));
        EXPECT_EQ(Segs[i].Offset, ELF_GetSegmentOffset(File, i));
        EXPECT_EQ(Segs[i].VirtAddr, ELF_GetSegmentVirtAddr(File, i));
        EXPECT_EQ(Segs[i].PhysAddr, ELF_GetSegmentPhysAddr(File, i));
        EXPECT_EQ(Segs[i].FileSize, ELF_GetSegmentFileSize(File, i));
        EXPECT_EQ(Segs[i].MemSize, ELF_GetSegmentMemSize(File, i));
        EXPECT_EQ(Segs[i].Align, ELF_GetSegmentAlign(File, i));
        const U32 F = ELF_GetSegmentFlags(File, i);
        EXPECT_EQ(Segs[i].Flags, QString("%1%2%3").arg(F & 4 ? "R" : "", F & 2 ? "W" : "", F & 1 ? "E" : ""));
        EXPECT_NE(ELF_GetSegmentData(File, i), nullptr);
        if (Segs[i].Type == "LOAD" && Segs[i].FileSize != 0) {
            Load = std::min(Load, Segs[i].PhysAddr);
        }
    }
    U32 Addr = 0;
    ASSERT_TRUE(ELF_GetProgramLoadAddr(File, Addr));
    EXPECT_EQ(Addr, Load);
    EXPECT_EQ(ELF_GetSegmentTable().size(), Segs.size());
}

TEST_P(ToolchainDiff, SectionsEqualReadelf) {
    const std::vector<Section> Secs = Toolchain::ReadSections(GetParam());
    ASSERT_EQ(Secs.size(), ELF_GetSectionCount(File));
    for (U32 i = 0; i < Secs.size(); ++i) {
        SCOPED_TRACE(Secs[i].Name.toStdString());
        EXPECT_EQ(Secs[i].Index, i);
        EXPECT_EQ(Secs[i].Name, QString::fromUtf8(ELF_GetSectionName(File, i)));
        EXPECT_EQ(Secs[i].Type, TypeName(ELF_GetSectionType(File, i)));
        EXPECT_EQ(Secs[i].Addr, ELF_GetSectionAddr(File, i));
        EXPECT_EQ(Secs[i].Offset, ELF_GetSectionOffset(File, i));
        EXPECT_EQ(Secs[i].Size, ELF_GetSectionSize(File, i));
        EXPECT_EQ(Secs[i].EntSize, ELF_GetSectionEntSize(File, i));
        EXPECT_EQ(Secs[i].Flags, SectionFlags(ELF_GetSectionFlags(File, i)));
        EXPECT_EQ(Secs[i].Link, ELF_GetSectionLink(File, i));
        EXPECT_EQ(Secs[i].Info, ELF_GetSectionInfo(File, i));
        EXPECT_EQ(Secs[i].Align, ELF_GetSectionAddrAlign(File, i));
        EXPECT_EQ(ELF_FindSection(File, Secs[i].Name.toUtf8().constData()),
                  static_cast<I32>(std::find_if(Secs.begin(), Secs.end(),
                                                [&](const Section& S) { return S.Name == Secs[i].Name; }) -
                                   Secs.begin()));
    }
    const auto Vectors =
        std::find_if(Secs.begin(), Secs.end(), [](const Section& S) { return S.Name == ".vectors"; });
    ASSERT_NE(Vectors, Secs.end());
    EXPECT_EQ(ELF_GetVectorSection(File), static_cast<I32>(Vectors - Secs.begin()));
}

TEST_P(ToolchainDiff, SymbolsEqualReadelf) {
    const std::vector<Symbol> Syms = Toolchain::ReadSymbols(GetParam());
    const std::vector<Section> Secs = Toolchain::ReadSections(GetParam());
    ASSERT_EQ(Syms.size(), ELF_GetSymCount(File));
    ASSERT_GT(Syms.size(), 10u);
    for (U32 i = 0; i < Syms.size(); ++i) {
        SCOPED_TRACE(Syms[i].Name.toStdString());
        const QString Name = QString::fromUtf8(ELF_GetSymName(File, i));
        if (Syms[i].Type == "SECTION") {
            // readelf names a section symbol after its section; the symbol itself has no name.
            EXPECT_EQ(Syms[i].Name, QString::fromUtf8(ELF_GetSectionName(File, ELF_GetSymSection(File, i))));
            EXPECT_EQ(Name, "");
        } else {
            EXPECT_EQ(Syms[i].Name, Name);
        }
        EXPECT_EQ(Syms[i].Value, ELF_GetSymValue(File, i));
        EXPECT_EQ(Syms[i].Type, SymType(ELF_GetSymType(File, i)));
        EXPECT_EQ(Syms[i].Bind, SymBind(ELF_GetSymBinding(File, i)));
        EXPECT_EQ(Syms[i].Vis, SymVis(ELF_GetSymOther(File, i)));
        EXPECT_EQ(Syms[i].Ndx, SymNdx(ELF_GetSymSection(File, i)));
        // Sizes are those of the file, or for objects and functions without one, those of the neighbours.
        EXPECT_EQ(ExpectedFilledSize(Syms, Secs, i), ELF_GetSymSize(File, i));
        const ELF32_SYM* ByName = ELF_FindSymByName(File, Name.toUtf8().constData());
        ASSERT_NE(ByName, nullptr);
        EXPECT_EQ(QString::fromUtf8(ELF_GetSymRecordName(File, ByName)), Name);
    }
}

TEST_P(ToolchainDiff, FunctionListAgreesWithNm) {
    const std::vector<Toolchain::NmEntry> Nm = Toolchain::ReadNm(GetParam());
    const std::vector<Symbol> Syms = Toolchain::ReadSymbols(GetParam());
    // Function addresses as readelf has them; nm prints Thumb functions without the Thumb bit.
    QMap<QString, U32> FuncValue;
    for (const Symbol& S : Syms) {
        if (IsFunc(S) && S.Value >= 2 && !S.Name.startsWith('$') && !S.Name.startsWith('?')) {
            FuncValue.insert(S.Name, S.Value);
        }
    }
    ASSERT_FALSE(FuncValue.isEmpty());
    std::vector<U32> Listed;
    for (U32 i = 0; i < ELF_GetFuncCount(File); ++i) {
        const ELF32_SYM* F = ELF_GetFunc(File, i);
        const QString Name = ELF_GetSymRecordName(File, F);
        SCOPED_TRACE(Name.toStdString());
        if (i > 0) {
            EXPECT_LT(ELF_GetFunc(File, i - 1)->st_value, F->st_value);
        }
        Listed.push_back(F->st_value);
        const auto It =
            std::find_if(Nm.begin(), Nm.end(), [&](const Toolchain::NmEntry& E) { return E.Name == Name; });
        ASSERT_NE(It, Nm.end());
        EXPECT_EQ(It->Value, F->st_value & ~1u);
        EXPECT_TRUE(QString("TtWw").contains(It->Kind));
        if (It->HasSize) {
            EXPECT_EQ(It->Size, F->st_size);
        }
        // One name per address: the largest, then the earliest in the table.
        for (const Toolchain::NmEntry& E : Nm) {
            if (E.Value == It->Value && FuncValue.contains(E.Name) && E.Name != Name) {
                EXPECT_TRUE(
                    E.Size < F->st_size ||
                    (E.Size == F->st_size && ELF_FindSymByName(File, E.Name.toUtf8().constData()) > F));
            }
        }
        // Every address of the function finds it, or a function that starts inside it and covers the
        // address too (the run-time library's entries fall through into one another).
        for (U32 A = F->st_value & ~1u; A < (F->st_value & ~1u) + F->st_size; A += 2) {
            const ELF32_SYM* At = ELF_GetFuncSymAt(File, A, true);
            ASSERT_NE(At, nullptr) << std::hex << A;
            if (At != F) {
                const U32 Start = At->st_value & ~1u;
                EXPECT_GT(Start, F->st_value & ~1u) << std::hex << A;
                EXPECT_LE(Start, A) << std::hex << A;
                EXPECT_GT(Start + At->st_size, A) << std::hex << A;
            }
        }
    }
    for (const Toolchain::NmEntry& E : Nm) {
        if (FuncValue.contains(E.Name)) {
            EXPECT_NE(std::find(Listed.begin(), Listed.end(), FuncValue[E.Name]), Listed.end())
                << E.Name.toStdString();
        }
    }
    for (const Symbol& S : Syms) {
        if (S.Type == "OBJECT" && S.Ndx != "UND") {
            const ELF32_SYM* At = ELF_GetSymOfTypeAt(File, S.Value, true, 1);
            ASSERT_NE(At, nullptr) << S.Name.toStdString();
            EXPECT_EQ(At->st_value, S.Value);
        }
    }
}

/// The bytes of the blocks by address; false on a byte given twice with different values.
std::map<U32, U8> BlockMap(const ELF_DATA_BLOCKS& Blocks) {
    std::map<U32, U8> Map;
    for (const ELF_DATA_BLOCK& B : Blocks) {
        EXPECT_EQ(B.Size, static_cast<U32>(B.Data.size()));
        for (U32 i = 0; i < B.Size; ++i) {
            Map[B.Address + i] = static_cast<U8>(B.Data[i]);
        }
    }
    return Map;
}

TEST_P(ToolchainDiff, ObjcopyOutputsReadBackToTheLoadableData) {
    ELF_CloseAll();
    const QString Elf = GetParam();
    TFile::CFileWorker* W = TFile::CFileWorker::Instance();
    const std::map<U32, U8> Segments = Toolchain::LoadableBytes(Elf);
    const std::map<U32, U8> FromElf = BlockMap(W->ReadFile(Elf));
    ASSERT_FALSE(FromElf.empty());
    EXPECT_EQ(FromElf, Segments);

    // objcopy writes the allocated sections: every byte of them must match, and what lies between them
    // inside a segment is padding.
    std::map<U32, U8> SectionBytes;
    for (const Section& S : Toolchain::ReadSections(Elf)) {
        if (S.Flags.contains('A') && S.Type != "NOBITS" && S.Size != 0) {
            for (const Toolchain::Segment& Seg : Toolchain::ReadSegments(Elf)) {
                if (Seg.Type == "LOAD" && S.Offset >= Seg.Offset &&
                    S.Offset + S.Size <= Seg.Offset + Seg.FileSize) {
                    for (U32 i = 0; i < S.Size; ++i) {
                        const U32 A = Seg.PhysAddr + (S.Offset - Seg.Offset) + i;
                        SectionBytes[A] = Segments.at(A);
                    }
                }
            }
        }
    }
    ASSERT_FALSE(SectionBytes.empty());

    QTemporaryDir Dir;
    const struct {
        const char* Format;
        const char* Name;
        U32 Shift;
    } Outputs[] = {{"ihex", "p.hex", 0},
                   {"srec", "p.srec", 0},
                   {"srec", "p.mot", 0},
                   {"ihex", "far.hex", 0x0800FF00},
                   {"srec", "far.srec", 0x0800FF00}};
    for (const auto& O : Outputs) {
        SCOPED_TRACE(O.Name);
        const QString Out = Dir.filePath(O.Name);
        QStringList Args = {"-O", O.Format};
        if (O.Shift) {
            Args << "--change-addresses" << QString("0x%1").arg(O.Shift, 0, 16);
        }
        QString Error;
        Toolchain::Run(Toolchain::Objcopy(), Args << Elf << Out, &Error);
        ASSERT_TRUE(Error.isEmpty()) << Error.toStdString();
        std::map<U32, U8> Expected;
        for (const auto& [A, B] : SectionBytes) {
            Expected[A + O.Shift] = B;
        }
        EXPECT_EQ(BlockMap(W->ReadFile(Out)), Expected);
    }

    const QString Bin = Dir.filePath("p.bin");
    QString Error;
    Toolchain::Run(Toolchain::Objcopy(), {"-O", "binary", Elf, Bin}, &Error);
    ASSERT_TRUE(Error.isEmpty()) << Error.toStdString();
    const U32 Low = SectionBytes.begin()->first;
    const U32 High = SectionBytes.rbegin()->first;
    const ELF_DATA_BLOCKS Image = W->ReadFile(Bin, Low);
    ASSERT_EQ(Image.size(), 1u);
    EXPECT_EQ(Image[0].Address, Low);
    EXPECT_EQ(Image[0].VirtualAddress, 0u);
    ASSERT_EQ(Image[0].Size, High - Low + 1);
    for (U32 A = Low; A <= High; ++A) {
        const auto It = SectionBytes.find(A);
        ASSERT_EQ(static_cast<U8>(Image[0].Data[A - Low]), It == SectionBytes.end() ? 0 : It->second)
            << std::hex << A;
    }
}

std::string ElfTestName(const ::testing::TestParamInfo<QString>& Info) {
    std::string Name = QFileInfo(Info.param).completeBaseName().toStdString();
    std::replace_if(
        Name.begin(), Name.end(), [](char C) { return !std::isalnum(static_cast<unsigned char>(C)); }, '_');
    return Name;
}

INSTANTIATE_TEST_SUITE_P(Programs, ToolchainDiff, ::testing::ValuesIn(Toolchain::AllElfs()), ElfTestName);

} // namespace
