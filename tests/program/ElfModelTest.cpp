// The ELF model on hand-made files: refusals, the slot table, byte order, symbol sizes and lists,
// look-ups, relocation of symbols.

#include "ElfBuilder.h"

#include "program/ElfParser.h"
#include "program/FileWorker.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

struct Reports {
    std::vector<ELF_ERROR_RECORD> Records;
    std::vector<I32> Codes() const {
        std::vector<I32> C;
        for (const ELF_ERROR_RECORD& R : Records) {
            C.push_back(R.Code);
        }
        return C;
    }
};

void Collect(const ELF_ERROR_RECORD& Record, void* User) {
    static_cast<Reports*>(User)->Records.push_back(Record);
}

class ElfModel : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(Dir.isValid());
        ELF_SetErrorCallback(Collect, &Heard);
        ELF_SetInstAlign(2);
    }
    void TearDown() override {
        ELF_CloseAll();
        ELF_ClearRelocations();
        ELF_SetErrorCallback(nullptr, nullptr);
    }
    /// Writes the image and opens it.
    ELF_FILE* Open(const ElfBuilder& B, const QString& Name = "p.elf") {
        const QString Path = Dir.filePath(Name);
        EXPECT_TRUE(B.Write(Path));
        return ELF_Open(Path, false);
    }
    /// A program with a code section at 0x100, a data section at 0x20000000 and two load segments.
    static ElfBuilder Program(bool BigEndian = false) {
        ElfBuilder B(BigEndian);
        const int Text = B.AddCode(".text", 0x100, 0x40);
        const int DataIndex = B.AddData(".data", 0x20000000, QByteArray::fromHex("0102030405060708"));
        B.AddSegment({1, Text, Text, -1, false});
        B.AddSegment({1, DataIndex, DataIndex, 0x140, false});
        B.Entry = 0x101;
        return B;
    }
    QTemporaryDir Dir;
    Reports Heard;
};

TEST_F(ElfModel, HeaderRefusalsNameTheirCode) {
    const struct {
        const char* What;
        void (*Change)(ElfBuilder&);
        I32 Code;
    } Cases[] = {
        {"relocatable", [](ElfBuilder& B) { B.Type = 1; }, ELF_ERR_NOT_EXECUTABLE},
        {"shared", [](ElfBuilder& B) { B.Type = 3; }, ELF_ERR_NOT_EXECUTABLE},
        {"class none", [](ElfBuilder& B) { B.Class = 0; }, ELF_ERR_CLASS_NONE},
        {"64-bit", [](ElfBuilder& B) { B.Class = 2; }, ELF_ERR_NOT_EXECUTABLE},
        {"data none", [](ElfBuilder& B) { B.Data = 3; }, ELF_ERR_DATA_NONE},
        {"ident version", [](ElfBuilder& B) { B.IdentVersion = 0; }, ELF_ERR_HEADER_VERSION},
        {"file version", [](ElfBuilder& B) { B.Version = 0; }, ELF_ERR_FILE_VERSION},
    };
    for (const auto& C : Cases) {
        SCOPED_TRACE(C.What);
        Heard.Records.clear();
        ElfBuilder B = Program();
        C.Change(B);
        EXPECT_EQ(Open(B), nullptr);
        EXPECT_EQ(Heard.Codes(), std::vector<I32>{C.Code});
        EXPECT_EQ(ELF_GetSlotFile(0), nullptr);
        EXPECT_EQ(ELF_GetCurrentFile(), nullptr);
    }
    Heard.Records.clear();
    ElfBuilder B = Program();
    B.Class = 2;
    Open(B);
    ASSERT_EQ(Heard.Records.size(), 1u);
    EXPECT_TRUE(Heard.Records[0].Detail.contains("64-bit"));

    QByteArray Text = "plain text, not a program";
    QFile F(Dir.filePath("t.elf"));
    ASSERT_TRUE(F.open(QIODevice::WriteOnly));
    F.write(Text);
    F.close();
    Heard.Records.clear();
    EXPECT_EQ(ELF_Open(F.fileName(), false), nullptr);
    EXPECT_EQ(Heard.Codes(), std::vector<I32>{ELF_ERR_NO_MAGIC});
}

TEST_F(ElfModel, CatalogueRowsOfTheCodes) {
    EXPECT_EQ(ELF_CatalogIndexOfCode(118), 23);
    EXPECT_EQ(ELF_CatalogIndexOfCode(128), 33);
    EXPECT_EQ(ELF_CatalogIndexOfCode(133), 34);
    EXPECT_EQ(ELF_CatalogIndexOfCode(100), 49);
    EXPECT_EQ(ELF_CatalogIndexOfCode(117), 66);
    EXPECT_EQ(ELF_CatalogIndexOfCode(129), -1);
    EXPECT_EQ(ELF_CatalogIndexOfCode(99), -1);
}

TEST_F(ElfModel, NoProgramHeadersOpensWithoutSegmentsOrData) {
    ElfBuilder B;
    B.AddCode(".text", 0x100, 0x10);
    ELF_FILE* F = Open(B);
    ASSERT_NE(F, nullptr);
    EXPECT_EQ(ELF_GetSegmentCount(F), 0u);
    EXPECT_TRUE(ELF_GetSegmentTable().empty());
    U32 Load = 0;
    EXPECT_FALSE(ELF_GetProgramLoadAddr(F, Load));
    EXPECT_EQ(ELF_GetVectorSection(F), -1);
    EXPECT_TRUE(TFile::CFileWorker::Instance()->ReadFile(Dir.filePath("p.elf")).empty());
    EXPECT_TRUE(Heard.Records.empty());
}

TEST_F(ElfModel, ThreeSlotsAndNoMore) {
    ELF_FILE* A = Open(Program(), "a.elf");
    ELF_FILE* B = Open(Program(), "b.elf");
    ELF_FILE* C = Open(Program(), "c.elf");
    ASSERT_TRUE(A && B && C);
    EXPECT_EQ(ELF_GetSlotIndex(A), 0);
    EXPECT_EQ(ELF_GetSlotIndex(C), 2);
    EXPECT_EQ(ELF_GetCurrentFile(), C);
    ELF_SetCurrentFile(A);
    EXPECT_EQ(Open(Program(), "d.elf"), nullptr);
    EXPECT_EQ(Heard.Codes(), std::vector<I32>{ELF_ERR_TOO_MANY_FILES});
    EXPECT_EQ(ELF_GetCurrentFile(), A);
    EXPECT_EQ(ELF_GetSlotFile(0), A);
    EXPECT_EQ(ELF_GetSlotFile(1), B);
    EXPECT_EQ(ELF_GetSlotFile(2), C);

    // A closed file is no longer answered for; its slot takes the next file.
    ELF_Close(B);
    EXPECT_EQ(ELF_GetSegmentCount(B), 0u);
    EXPECT_EQ(ELF_GetHeader(B), nullptr);
    EXPECT_EQ(ELF_GetByteOrder(B), ELF_UNKNOWN_ENDIAN);
    ELF_FILE* D = Open(Program(), "d.elf");
    ASSERT_NE(D, nullptr);
    EXPECT_EQ(ELF_GetSlotIndex(D), 1);
}

TEST_F(ElfModel, BigEndianGivesTheSameValuesAndKeepsContents) {
    ELF_FILE* Files[2];
    for (int Big = 0; Big < 2; ++Big) {
        ElfBuilder B = Program(Big);
        B.AddSymbol({"main", 0x111, 0x10, 2, 1, 1});
        B.AddSymbol({"table", 0x20000000, 8, 1, 1, 2});
        Files[Big] = Open(B, Big ? "be.elf" : "le.elf");
        ASSERT_NE(Files[Big], nullptr);
    }
    ELF_FILE* Le = Files[0];
    ELF_FILE* Be = Files[1];
    EXPECT_EQ(ELF_GetByteOrder(Le), ELF_LITTLE_ENDIAN);
    EXPECT_EQ(ELF_GetByteOrder(Be), ELF_BIG_ENDIAN);
    EXPECT_EQ(ELF_GetCurrentByteOrder(), ELF_BIG_ENDIAN);
    EXPECT_EQ(ELF_GetEntryPoint(Be), 0x100u);
    EXPECT_EQ(ELF_GetSegmentCount(Be), 2u);
    for (U32 i = 0; i < 2; ++i) {
        EXPECT_EQ(ELF_GetSegmentPhysAddr(Le, i), ELF_GetSegmentPhysAddr(Be, i));
        EXPECT_EQ(ELF_GetSegmentVirtAddr(Le, i), ELF_GetSegmentVirtAddr(Be, i));
        EXPECT_EQ(ELF_GetSegmentFileSize(Le, i), ELF_GetSegmentFileSize(Be, i));
    }
    ASSERT_EQ(ELF_GetSectionCount(Le), ELF_GetSectionCount(Be));
    for (U32 i = 0; i < ELF_GetSectionCount(Le); ++i) {
        EXPECT_STREQ(ELF_GetSectionName(Le, i), ELF_GetSectionName(Be, i));
        EXPECT_EQ(ELF_GetSectionAddr(Le, i), ELF_GetSectionAddr(Be, i));
        EXPECT_EQ(ELF_GetSectionSize(Le, i), ELF_GetSectionSize(Be, i));
        EXPECT_EQ(ELF_GetSectionType(Le, i), ELF_GetSectionType(Be, i));
    }
    ASSERT_EQ(ELF_GetSymCount(Be), 3u);
    for (U32 i = 0; i < 3; ++i) {
        EXPECT_STREQ(ELF_GetSymName(Le, i), ELF_GetSymName(Be, i));
        EXPECT_EQ(ELF_GetSymValue(Le, i), ELF_GetSymValue(Be, i));
        EXPECT_EQ(ELF_GetSymSize(Le, i), ELF_GetSymSize(Be, i));
        EXPECT_EQ(ELF_GetSymSection(Le, i), ELF_GetSymSection(Be, i));
    }
    EXPECT_EQ(ELF_GetFuncSymAt(Be, 0x118, true), ELF_FindSymByName(Be, "main"));
    // Contents are not swapped: the bytes of .data read the same in both files.
    const I32 Data = ELF_FindSection(Be, ".data");
    EXPECT_EQ(QByteArray(reinterpret_cast<const char*>(ELF_GetSectionData(Be, Data)), 8),
              QByteArray::fromHex("0102030405060708"));
    EXPECT_EQ(QByteArray(reinterpret_cast<const char*>(ELF_GetSectionData(Le, Data)), 8),
              QByteArray::fromHex("0102030405060708"));
}

TEST_F(ElfModel, OneFunctionPerAddressAndNoHiddenNames) {
    ElfBuilder B = Program();
    const int Small = B.AddSymbol({"small", 0x101, 4, 2, 1, 1});
    B.AddSymbol({"large", 0x101, 8, 2, 1, 1});
    B.AddSymbol({"first", 0x111, 8, 2, 1, 1});
    B.AddSymbol({"second", 0x111, 8, 13, 1, 1});
    B.AddSymbol({"$t", 0x121, 4, 2, 0, 1});
    B.AddSymbol({"?helper", 0x131, 4, 2, 0, 1});
    B.AddSymbol({"low", 1, 4, 2, 1, 1});
    ELF_FILE* F = Open(B);
    ASSERT_NE(F, nullptr);
    ASSERT_EQ(ELF_GetFuncCount(F), 2u);
    EXPECT_STREQ(ELF_GetSymRecordName(F, ELF_GetFunc(F, 0)), "large");
    EXPECT_STREQ(ELF_GetSymRecordName(F, ELF_GetFunc(F, 1)), "first");
    EXPECT_EQ(ELF_GetMaxSymSize(F, 2), 8u);
    EXPECT_EQ(ELF_GetSymIndex(F, ELF_FindSymByName(F, "small")), Small);
    // Thumb functions are found from even addresses.
    EXPECT_STREQ(ELF_GetSymRecordName(F, ELF_GetFuncSymAt(F, 0x100, true)), "large");
    EXPECT_STREQ(ELF_GetSymRecordName(F, ELF_GetFuncSymAt(F, 0x106, true)), "large");
    EXPECT_EQ(ELF_GetFuncSymAt(F, 0x10A, true), nullptr);
    EXPECT_STREQ(ELF_GetSymRecordName(F, ELF_GetFuncSymAt(F, 0x10A, false)), "large");
    EXPECT_EQ(ELF_GetFuncSymAt(F, 0x80, false), nullptr);
}

TEST_F(ElfModel, SizesFromNeighbours) {
    ElfBuilder B;
    const int Text = B.AddCode(".text", 0x100, 0x40);
    const int DataIndex = B.AddData(".data", 0x1000, QByteArray(0x20, '\0'));
    ElfBuilder::Section Huge;
    Huge.Name = ".big";
    Huge.Type = 8;
    Huge.Flags = 3;
    Huge.Addr = 0x30000000;
    Huge.NoBitsSize = 0x2000000;
    const int HugeIndex = B.AddSection(Huge);
    B.AddSymbol({"f1", 0x101, 0, 2, 1, static_cast<U16>(Text)});
    B.AddSymbol({"label", 0x108, 0, 0, 1, static_cast<U16>(Text)});
    B.AddSymbol({"f2", 0x111, 0, 2, 1, static_cast<U16>(Text)});
    B.AddSymbol({"f3", 0x13F, 0, 2, 1, static_cast<U16>(Text)});
    B.AddSymbol({"f4", 0x141, 0, 2, 1, static_cast<U16>(Text)});
    B.AddSymbol({"a", 0x1000, 0, 1, 1, static_cast<U16>(DataIndex)});
    B.AddSymbol({"b", 0x1010, 0, 1, 1, static_cast<U16>(DataIndex)});
    B.AddSymbol({"c", 0x101C, 0, 1, 1, static_cast<U16>(DataIndex)});
    B.AddSymbol({"beyond", 0x2000, 4, 1, 1, static_cast<U16>(DataIndex)});
    B.AddSymbol({"far", 0x30000000, 0, 1, 1, static_cast<U16>(HugeIndex)});
    B.AddSymbol({"farther", 0x31000000, 4, 1, 1, static_cast<U16>(HugeIndex)});
    ELF_FILE* F = Open(B);
    ASSERT_NE(F, nullptr);
    const auto SizeOf = [F](const char* Name) { return ELF_FindSymByName(F, Name)->st_size; };
    EXPECT_EQ(SizeOf("f1"), 0x10u); // up to f2, aligned down
    EXPECT_EQ(SizeOf("f2"), 0x2Eu); // up to f3
    EXPECT_EQ(SizeOf("f3"), 2u);    // the last halfword of the section
    EXPECT_EQ(SizeOf("f4"), 0u);    // starts at the section's end: nothing left
    EXPECT_EQ(SizeOf("label"), 0u); // no type, no size
    EXPECT_EQ(SizeOf("a"), 0x10u);  // to the next symbol
    EXPECT_EQ(SizeOf("b"), 0xCu);   // to c
    EXPECT_EQ(SizeOf("c"), 0u);     // the next symbol lies beyond its section's end
    EXPECT_EQ(SizeOf("far"), 0u);   // 16 MB: not believed
}

TEST_F(ElfModel, ZeroSizedObjectAtTheEndOfItsSection) {
    ElfBuilder B;
    const int DataIndex = B.AddData(".data", 0x1000, QByteArray(0x10, '\0'));
    B.AddSymbol({"last", 0x100C, 0, 1, 1, static_cast<U16>(DataIndex)});
    ELF_FILE* F = Open(B);
    ASSERT_NE(F, nullptr);
    EXPECT_EQ(ELF_FindSymByName(F, "last")->st_size, 0u);
}

TEST_F(ElfModel, SymbolsOfATypeAtAnAddress) {
    ElfBuilder B = Program();
    B.AddSymbol({".Lx", 0x120, 0, 0, 0, 1});
    B.AddSymbol({"plain", 0x120, 0, 0, 0, 1});
    B.AddSymbol({"func", 0x121, 4, 2, 1, 1});
    B.AddSymbol({"obj", 0x120, 4, 1, 1, 1});
    B.AddSymbol({"$d", 0x130, 0, 0, 0, 1});
    ELF_FILE* F = Open(B);
    ASSERT_NE(F, nullptr);
    const auto Name = [F](const ELF32_SYM* S) {
        return S ? QString(ELF_GetSymRecordName(F, S)) : QString("-");
    };
    EXPECT_EQ(Name(ELF_GetSymOfTypeAt(F, 0x120, true, 0)), "plain");
    EXPECT_EQ(Name(ELF_GetSymOfTypeAt(F, 0x120, true, 2)), "func");
    EXPECT_EQ(Name(ELF_GetSymOfTypeAt(F, 0x120, true, 1)), "obj");
    EXPECT_EQ(Name(ELF_GetSymOfTypeAt(F, 0x124, true, -1)), "-");
    EXPECT_EQ(Name(ELF_GetSymOfTypeAt(F, 0x134, false, 0)), "plain");
    EXPECT_EQ(Name(ELF_GetSymOfTypeAt(F, 0x134, false, 2)), "func");
    EXPECT_EQ(Name(ELF_GetSymOfTypeAt(F, 0x10, false, 1)), "-");
}

TEST_F(ElfModel, RelocationEntriesAreReadInPlace) {
    ElfBuilder B = Program();
    ElfBuilder::Section Rel;
    Rel.Name = ".rel.text";
    Rel.Type = 9;
    Rel.Info = 1;
    Rel.EntSize = 8;
    const U32 Entries[] = {0x104, (2u << 8) | 10, 0x10C, (1u << 8) | 2, 0x120, (2u << 8) | 30};
    Rel.Data = QByteArray(reinterpret_cast<const char*>(Entries), sizeof Entries);
    B.AddSection(Rel);
    B.AddSymbol({"target", 0x20000000, 4, 1, 1, 2});
    B.AddSymbol({"callee", 0x131, 4, 2, 1, 1});
    ELF_FILE* F = Open(B);
    ASSERT_NE(F, nullptr);
    ELF_RELOC_INFO Info;
    ASSERT_TRUE(ELF_GetRelocationAt(F, 0x120, Info));
    EXPECT_EQ(Info.SymIndex, 2u);
    EXPECT_EQ(Info.Type, 30u);
    EXPECT_EQ(Info.SymName, "callee");
    EXPECT_EQ(Info.SymValue, 0x131u);
    ASSERT_TRUE(ELF_GetRelocationAt(F, 0x10C, Info));
    EXPECT_EQ(Info.SymName, "target");
    EXPECT_FALSE(ELF_GetRelocationAt(F, 0x108, Info));
    EXPECT_FALSE(ELF_GetRelocationAt(F, 0x20000000, Info));
}

TEST_F(ElfModel, SegmentThatHoldsTheHeaderLoadsFromItsFirstSection) {
    ElfBuilder B;
    const int Text = B.AddCode(".text", 0x8000, 0x20);
    B.AddSegment({1, Text, Text, -1, true});
    ELF_FILE* F = Open(B);
    ASSERT_NE(F, nullptr);
    const U32 Skip = ELF_GetSegmentFirstSectionOffset(F, 0);
    EXPECT_EQ(ELF_GetSegmentOffset(F, 0), 0u);
    EXPECT_EQ(ELF_GetSegmentVirtAddr(F, 0) + Skip, 0x8000u);
    ELF_CloseAll();
    const ELF_DATA_BLOCKS Blocks = TFile::CFileWorker::Instance()->ReadFile(Dir.filePath("p.elf"));
    ASSERT_EQ(Blocks.size(), 1u);
    EXPECT_EQ(Blocks[0].Address, 0x8000u);
    EXPECT_EQ(Blocks[0].Size, 0x20u);
    EXPECT_EQ(Blocks[0].Data[1], static_cast<char>(8));
}

TEST_F(ElfModel, VectorSectionWithoutItsName) {
    ElfBuilder B;
    B.AddCode(".boot", 0x0, 0x10);
    const int Text = B.AddCode(".text", 0x400, 0x10);
    B.AddSegment({1, Text, Text, -1, false});
    ELF_FILE* F = Open(B);
    ASSERT_NE(F, nullptr);
    EXPECT_EQ(ELF_GetVectorSection(F), Text);
    U32 Load = 0;
    ASSERT_TRUE(ELF_GetProgramLoadAddr(F, Load));
    EXPECT_EQ(Load, 0x400u);
}

TEST_F(ElfModel, CfaFactorOfIarFiles) {
    ElfBuilder B = Program();
    EXPECT_EQ(ELF_GetCfaFactor(Open(B, "gcc.elf")), 1u);
    ElfBuilder::Section Note;
    Note.Name = ".note.iar";
    Note.Type = 7;
    Note.Data = QByteArray(8, '\0');
    B.AddSection(Note);
    EXPECT_EQ(ELF_GetCfaFactor(Open(B, "iar.elf")), 4u);
}

TEST_F(ElfModel, RelocationBeforeTheOpenTakesEffectAtTheOpen) {
    EXPECT_EQ(ELF_AddRelocation("*", 0x1000), 0);
    EXPECT_EQ(ELF_AddRelocation(".nosuch", 0x2000), 0); // judged when a file is there
    ElfBuilder B = Program();
    B.AddSymbol({"main", 0x111, 0x10, 2, 1, 1});
    ELF_FILE* F = Open(B);
    ASSERT_NE(F, nullptr);
    ASSERT_EQ(ELF_GetRelocations().size(), 2u);
    EXPECT_EQ(ELF_GetRelocations()[1].Start, 0u);
    EXPECT_EQ(ELF_GetRelocations()[1].End, 0u);
    EXPECT_EQ(ELF_GetEntryPoint(F), 0x1100u);
    EXPECT_EQ(ELF_ToTargetAddr(0x110, 1, 0), 0x1110u);
    EXPECT_EQ(ELF_ToFileAddr(0x1110, 1, 0), 0x110u);
    EXPECT_EQ(ELF_GetAddrBounds().Low, 0x1110u); // main, aligned and moved
    EXPECT_EQ(ELF_AddRelocation(".nosuch", 0x10), -1);
    EXPECT_EQ(ELF_GetRelocations().size(), 3u);
}

TEST_F(ElfModel, RelocationSelectorsAndWrapping) {
    ElfBuilder B = Program();
    B.AddSymbol({"main", 0x111, 0x10, 2, 1, 1});
    B.AddSymbol({"table", 0x20000000, 8, 1, 1, 2});
    ASSERT_NE(Open(B), nullptr);
    EXPECT_EQ(ELF_AddRelocation("0xFFFFFF00-0xFFFFFFFF", 0x200), 0);
    EXPECT_EQ(ELF_AddRelocation("0xFFFFFF00-0xFFFFFFFF", -0x100), 0);
    EXPECT_EQ(ELF_AddRelocation(".data", 0x10), 0);
    EXPECT_EQ(ELF_AddRelocation("main", 0x4000), 0);
    EXPECT_EQ(ELF_AddRelocation("0-0", 1), -1);
    EXPECT_EQ(ELF_AddRelocation("", 1), -1);
    // The first entry would wrap the address past 32 bits: the second one decides.
    EXPECT_EQ(ELF_ToTargetAddr(0xFFFFFF10, 1, 0), 0xFFFFFE10u);
    EXPECT_EQ(ELF_ToTargetAddr(0x20000004, 1, 0), 0x20000014u);
    EXPECT_EQ(ELF_ToTargetAddr(0x20000008, 1, 0), 0x20000008u); // end is exclusive for a start address
    EXPECT_EQ(ELF_ToTargetAddr(0x20000008, 0, 1), 0x20000018u); // and inclusive for an end address
    EXPECT_EQ(ELF_ToTargetAddr(0x110, 1, 0), 0x4110u);
    EXPECT_EQ(ELF_ToTargetAddr(0x120, 1, 0), 0x120u);
    EXPECT_EQ(ELF_ToFileAddr(0x4110, 1, 0), 0x110u);
    // A data file opened beside the program does not take the records away; closing the last file does.
    ELF_FILE* Other = Open(Program(), "other.elf");
    ELF_Close(Other);
    EXPECT_EQ(ELF_GetRelocations().size(), 6u);
    ELF_CloseAll();
    EXPECT_TRUE(ELF_GetRelocations().empty());
}

TEST_F(ElfModel, EntryPointAllOnesStays) {
    ElfBuilder B = Program();
    B.Entry = 0xFFFFFFFF;
    ELF_AddRelocation("*", 0x10);
    EXPECT_EQ(ELF_GetEntryPoint(Open(B)), 0xFFFFFFFFu);
    ELF_SetInstAlign(4);
    B.Entry = 0x103;
    EXPECT_EQ(ELF_GetEntryPoint(Open(B, "q.elf")), 0x110u);
}

} // namespace
