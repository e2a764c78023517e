// The program file readers and writer: dispatch by name, rebasing, the record formats line by line,
// merging of blocks, chunked reading and saving.

#include "ElfBuilder.h"
#include "LogCapture.h"

#include "program/ElfParser.h"
#include "program/FileKinds.h"
#include "program/FileWorker.h"
#include "program/RecordParser.h"

#include <QSignalSpy>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <csignal>
#include <sys/resource.h>

namespace {

using TFile::CFileWorker;

/// An Intel Hex line for a record: count, address, type, data and checksum.
QByteArray HexLine(U16 Address, U8 Type, const QByteArray& Data) {
    QByteArray Bytes;
    Bytes.append(static_cast<char>(Data.size()));
    Bytes.append(static_cast<char>(Address >> 8));
    Bytes.append(static_cast<char>(Address));
    Bytes.append(static_cast<char>(Type));
    Bytes.append(Data);
    U8 Sum = 0;
    for (char C : Bytes) {
        Sum += static_cast<U8>(C);
    }
    Bytes.append(static_cast<char>(0x100 - Sum));
    return ":" + Bytes.toHex().toUpper();
}

/// An S-record line of type 1, 2 or 3.
QByteArray SLine(int Type, U32 Address, const QByteArray& Data) {
    const int AddressBytes = Type == 1 ? 2 : Type == 2 ? 3 : 4;
    QByteArray Bytes;
    Bytes.append(static_cast<char>(AddressBytes + Data.size() + 1));
    for (int i = AddressBytes - 1; i >= 0; --i) {
        Bytes.append(static_cast<char>(Address >> (8 * i)));
    }
    Bytes.append(Data);
    U8 Sum = 0;
    for (char C : Bytes) {
        Sum += static_cast<U8>(C);
    }
    Bytes.append(static_cast<char>(~Sum));
    return "S" + QByteArray::number(Type) + Bytes.toHex().toUpper();
}

class FileReader : public ::testing::Test {
protected:
    QString Write(const QString& Name, const QByteArray& Bytes) {
        const QString Path = Dir.filePath(Name);
        QFile F(Path);
        EXPECT_TRUE(F.open(QIODevice::WriteOnly | QIODevice::Truncate));
        F.write(Bytes);
        return Path;
    }
    ELF_DATA_BLOCKS Read(const QString& Name, const QByteArray& Bytes, I64 Base = -1) {
        return W->ReadFile(Write(Name, Bytes), Base);
    }
    void TearDown() override { ELF_CloseAll(); }
    QTemporaryDir Dir;
    CFileWorker* W = CFileWorker::Instance();
};

TEST_F(FileReader, FileKindsByName) {
    EXPECT_TRUE(TFile::IsDataFile("a/b.HEX"));
    EXPECT_TRUE(TFile::IsElfFile("x.axf"));
    EXPECT_FALSE(TFile::IsElfFile("x.elf.bak"));
    EXPECT_TRUE(TFile::IsTextRecordFile("x.Mot"));
    EXPECT_TRUE(TFile::IsBinFile("x.BIN"));
    EXPECT_TRUE(TFile::IsSourceFile("main.cpp"));
    EXPECT_FALSE(TFile::IsSourceFile("main.cp"));
    EXPECT_TRUE(TFile::IsProjectFile("p.tvproj"));
    EXPECT_TRUE(TFile::IsSvdFile("chip.xml"));
    EXPECT_TRUE(TFile::IsDocumentFile("readme.txt"));
    EXPECT_TRUE(TFile::IsLibraryFile("lib.so"));
    EXPECT_EQ(TFile::GetGeneralFilter(),
              "All Files (*);;Source Files (*.h *.c *.hpp *.cpp *.s);;Data Files (*.bin "
              "*.mot *.srec *.hex *.elf *.out *.axf);;Project Files (*.tvproj)");
    EXPECT_EQ(TFile::GetDataFilter(), "Data Files (*.mot *.srec *.hex *.elf *.out *.axf)");
    EXPECT_EQ(TFile::GetProjectFilter(), "Project Files (*.tvproj)");
    EXPECT_EQ(TFile::GetFileDescription("a.BIN"), "Binary Data FIle");
    EXPECT_EQ(TFile::GetFileDescription("a.srec"), "S-Record File");
    EXPECT_EQ(TFile::GetFileDescription("a.tarvo"), "Tarvo Script file");
    EXPECT_EQ(TFile::GetFileDescription("a.zip"), "");
}

TEST_F(FileReader, ElfWithoutExtensionByItsIdentification) {
    ElfBuilder B;
    const int Text = B.AddCode(".text", 0x100, 0x10);
    B.AddSegment({1, Text, Text, -1, false});
    const QByteArray Image = B.Build();
    const ELF_DATA_BLOCKS Blocks = Read("firmware", Image);
    ASSERT_EQ(Blocks.size(), 1u);
    EXPECT_EQ(Blocks[0].Address, 0x100u);
    EXPECT_TRUE(Read("firmware.img", Image).empty());
    // Only a little-endian 32-bit identification counts without an extension.
    ElfBuilder Big(true);
    const int BigText = Big.AddCode(".text", 0x100, 0x10);
    Big.AddSegment({1, BigText, BigText, -1, false});
    EXPECT_TRUE(Read("bigfirmware", Big.Build()).empty());
    EXPECT_EQ(Read("big.elf", Big.Build()).size(), 1u);
}

TEST_F(FileReader, ElfBlocksCarryBothAddresses) {
    ElfBuilder B;
    const int Text = B.AddCode(".text", 0x100, 0x10);
    const int DataIndex = B.AddData(".data", 0x20000000, QByteArray::fromHex("AABBCCDD"));
    B.AddSegment({1, Text, Text, -1, false});
    B.AddSegment({1, DataIndex, DataIndex, 0x110, false});
    ElfBuilder::Segment Bss{1, -1, -1, -1, false};
    Bss.VirtAddr = 0x20000100;
    Bss.MemSize = 0x100;
    B.AddSegment(Bss);
    LogCapture Log;
    const ELF_DATA_BLOCKS Blocks = Read("p.out", B.Build());
    ASSERT_EQ(Blocks.size(), 2u);
    EXPECT_EQ(Blocks[1].Address, 0x110u);
    EXPECT_EQ(Blocks[1].VirtualAddress, 0x20000000u);
    EXPECT_EQ(Blocks[1].Data, QByteArray::fromHex("AABBCCDD"));
    EXPECT_TRUE(Log.Lines()
                    .filter("Virtual segment address differs from physical address by 0x1FFFFEF0 bytes")
                    .size() == 1);
    // The reader opens a file beside the program for its tables and leaves nothing open.
    EXPECT_EQ(ELF_GetSlotFile(0), nullptr);
}

TEST_F(FileReader, RebasingMovesEveryBlockByOneDelta) {
    const ELF_DATA_BLOCKS Bin = Read("image.bin", QByteArray(3000, 'x'), 0x08000000);
    ASSERT_EQ(Bin.size(), 1u);
    EXPECT_EQ(Bin[0].Address, 0x08000000u);
    EXPECT_EQ(Bin[0].VirtualAddress, 0u);
    EXPECT_EQ(Bin[0].Size, 3000u);

    const QByteArray Hex =
        HexLine(0x1000, 0, "ab") + "\n" + HexLine(0x2000, 0, "cd") + "\n" + HexLine(0, 1, "");
    const ELF_DATA_BLOCKS Moved = Read("p.hex", Hex, 0x800);
    ASSERT_EQ(Moved.size(), 2u);
    EXPECT_EQ(Moved[0].Address, 0x800u);
    EXPECT_EQ(Moved[1].Address, 0x1800u);
    EXPECT_EQ(Moved[1].VirtualAddress, 0x2000u);
    // The distance is taken modulo 2^32.
    const ELF_DATA_BLOCKS Wrapped = Read("w.hex", Hex, 0xFFFFFF00);
    EXPECT_EQ(Wrapped[1].Address, 0x00000F00u);
}

TEST_F(FileReader, DispatchComparesTheExtensionAsWritten) {
    const QByteArray Hex = HexLine(0x10, 0, "0102") + "\n";
    EXPECT_EQ(Read("a.hex", Hex).size(), 1u);
    EXPECT_TRUE(Read("b.HEX", Hex).empty());
    EXPECT_TRUE(Read("c.txt", Hex).empty());
    EXPECT_TRUE(W->ReadFile(Dir.filePath("missing.hex")).empty());
    EXPECT_TRUE(W->ReadFile(Dir.path()).empty());
}

TEST_F(FileReader, OverlappingRecordsLetTheLaterOneWin) {
    const QByteArray Srec = SLine(1, 0x100, "AAAAAAAA") + "\n" + SLine(1, 0x102, "BBBB") + "\n" +
                            SLine(1, 0xFE, "CCCC") + "\n" + SLine(9, 0, "") + "\n";
    const ELF_DATA_BLOCKS Blocks = Read("p.srec", Srec);
    ASSERT_EQ(Blocks.size(), 1u);
    EXPECT_EQ(Blocks[0].Address, 0xFEu);
    EXPECT_EQ(Blocks[0].Size, 10u);
    EXPECT_EQ(Blocks[0].Data, QByteArray("CCCCBBBBAA"));
}

TEST_F(FileReader, AGapOfOneByteKeepsBlocksApart) {
    const QByteArray Apart = SLine(2, 0x10000, "ab") + "\n" + SLine(2, 0x10003, "cd") + "\n";
    const ELF_DATA_BLOCKS Two = Read("a.mot", Apart);
    ASSERT_EQ(Two.size(), 2u);
    EXPECT_EQ(Two[0].Size, 2u);
    EXPECT_EQ(Two[1].Address, 0x10003u);
    const QByteArray Touching = SLine(3, 0x20000000, "ab") + "\n" + SLine(3, 0x20000002, "cd") + "\n";
    const ELF_DATA_BLOCKS One = Read("b.mot", Touching);
    ASSERT_EQ(One.size(), 1u);
    EXPECT_EQ(One[0].Data, QByteArray("abcd"));
}

TEST_F(FileReader, ExtendedAddressRecordsSetTheBase) {
    const QByteArray Hex = HexLine(0, 4, QByteArray::fromHex("0800")) + "\n" + HexLine(0, 0, "a") + "\n" +
                           HexLine(0x10, 0, "b") + "\n" + HexLine(0, 2, QByteArray::fromHex("1000")) + "\n" +
                           HexLine(4, 0, "c") + "\n" + HexLine(0, 5, QByteArray::fromHex("08000101")) + "\n" +
                           HexLine(0, 1, "") + "\n";
    const ELF_DATA_BLOCKS Blocks = Read("p.hex", Hex);
    ASSERT_EQ(Blocks.size(), 3u);
    EXPECT_EQ(Blocks[0].Address, 0x10004u);
    EXPECT_EQ(Blocks[1].Address, 0x08000000u);
    EXPECT_EQ(Blocks[2].Address, 0x08000010u);
    EXPECT_EQ(Blocks[2].Data, QByteArray("b"));
}

TEST_F(FileReader, ABadChecksumOnTheLastLineLoadsNothing) {
    QByteArray Last = SLine(1, 0x20, "zz");
    Last[Last.size() - 1] = Last.endsWith('0') ? '1' : '0';
    const QByteArray Srec = SLine(1, 0x10, "ab") + "\r\n\r\n" + SLine(1, 0x12, "cd") + "\r\n" + Last + "\r\n";
    LogCapture Log;
    int FirstBad = 0;
    EXPECT_TRUE(W->ReadRecordFile(Write("bad.srec", Srec), FirstBad).empty());
    EXPECT_EQ(FirstBad, 2);
    EXPECT_TRUE(Read("bad.srec", Srec).empty());
    const QStringList Lines = Log.Lines();
    EXPECT_EQ(Lines.filter("Discarded invalid record in s-record file").size(), 2);
    EXPECT_EQ(Lines
                  .filter("Error (5094): Could not open file " + Dir.filePath("bad.srec") +
                          ": file contains corrupt data record at line 2.")
                  .size(),
              1);
}

TEST_F(FileReader, EveryBadLineIsWarnedAndTheFirstOneCounts) {
    const QByteArray Hex =
        HexLine(0, 0, "ok") + "\nnot a record\n" + HexLine(0, 6, "") + "\n" + HexLine(2, 0, "x");
    LogCapture Log;
    int FirstBad = -1;
    EXPECT_TRUE(W->ReadRecordFile(Write("b.hex", Hex), FirstBad).empty());
    EXPECT_EQ(FirstBad, 1);
    EXPECT_EQ(Log.Lines().filter("Discarded invalid record").size(), 2);
}

TEST_F(FileReader, SRecordRules) {
    ELF_DATA_BLOCK B;
    const auto Ok = [&B](const QByteArray& L) {
        return TFile::ParseSRecord(L.constData(), static_cast<int>(L.size()), B);
    };
    EXPECT_TRUE(Ok(SLine(3, 0x12345678, "data")));
    EXPECT_EQ(B.Address, 0x12345678u);
    EXPECT_EQ(B.RecordType, 3u);
    EXPECT_EQ(B.Data, QByteArray("data"));
    EXPECT_TRUE(Ok("S00600004844521B")); // header record
    EXPECT_TRUE(Ok("S9030000FC"));       // start address, no data
    EXPECT_TRUE(Ok("S5030002FA"));       // record count
    EXPECT_FALSE(Ok("S9030000F"));       // shorter than 10
    EXPECT_FALSE(Ok("X9030000FC"));      // not an S-record
    EXPECT_FALSE(Ok("S4030000FC"));      // type 4 does not exist
    EXPECT_FALSE(Ok("S6030000FC"));      // nor type 6
    EXPECT_FALSE(Ok("S9040000FC"));      // count does not match the length
    EXPECT_FALSE(Ok("S9030000FD"));      // checksum
    EXPECT_FALSE(Ok("S90300G0FC"));      // not hex
    EXPECT_FALSE(Ok("S7030000FC"));      // too short for an 8-digit address
}

TEST_F(FileReader, IntelHexRules) {
    ELF_DATA_BLOCK B;
    U32 Base = 0;
    const auto Ok = [&](const QByteArray& L) {
        return TFile::ParseIntelHexRecord(L.constData(), static_cast<int>(L.size()), Base, B);
    };
    EXPECT_TRUE(Ok(":00000001FF"));
    EXPECT_FALSE(Ok(":0000000100FF")); // end of file must be 11 characters
    EXPECT_TRUE(Ok(HexLine(0, 4, QByteArray::fromHex("0001"))));
    EXPECT_EQ(Base, 0x10000u);
    EXPECT_FALSE(Ok(HexLine(2, 4, QByteArray::fromHex("0002")))); // address field must be 0
    EXPECT_EQ(Base, 0x10000u);
    EXPECT_TRUE(Ok(HexLine(0, 2, QByteArray::fromHex("0002"))));
    EXPECT_EQ(Base, 0x20u);
    EXPECT_FALSE(Ok(HexLine(0, 2, QByteArray::fromHex("000200")))); // wrong length
    EXPECT_TRUE(Ok(HexLine(0, 3, QByteArray::fromHex("00000000"))));
    EXPECT_FALSE(Ok(HexLine(0, 5, QByteArray::fromHex("000000")))); // start address needs 19 characters
    EXPECT_FALSE(Ok(HexLine(0, 6, "")));                            // unknown type
    EXPECT_FALSE(Ok(":0000001000"));                                // first type digit must be 0
    EXPECT_FALSE(Ok(":00000001FE"));                                // checksum
    EXPECT_FALSE(Ok(":0200000041BD"));                              // count and length disagree
    EXPECT_FALSE(Ok("00000001FF0"));                                // no colon
    EXPECT_TRUE(Ok(HexLine(0x1234, 0, "xy")));
    EXPECT_EQ(B.Address, 0x1254u);
    EXPECT_EQ(B.Data, QByteArray("xy"));
}

TEST_F(FileReader, LinesAcrossChunksAndLongLines) {
    // About 1.4 MB of records, so that lines are cut by the first chunk and read again.
    QByteArray Srec;
    QByteArray Expected;
    U32 Address = 0x1000;
    while (Srec.size() < 1400000) {
        const QByteArray Data(32, static_cast<char>('A' + (Address / 32) % 26));
        Srec += SLine(3, Address, Data) + (Address % 64 ? "\n" : "\r\n  ");
        Expected += Data;
        Address += 32;
    }
    QSignalSpy Started(W, &CFileWorker::ProgressStarted);
    QSignalSpy Ended(W, &CFileWorker::ProgressEnded);
    const ELF_DATA_BLOCKS Blocks = Read("big.srec", Srec.chopped(1));
    ASSERT_EQ(Blocks.size(), 1u);
    EXPECT_EQ(Blocks[0].Address, 0x1000u);
    EXPECT_EQ(Blocks[0].Data, Expected);
    ASSERT_EQ(Started.size(), 1);
    EXPECT_EQ(Started[0][0].toString(), "Reading File...");
    EXPECT_EQ(Started[0][1].toLongLong(), Srec.size() - 1);
    EXPECT_EQ(Ended.size(), 1);

    // A line longer than a chunk is one bad line, not a hang.
    int FirstBad = -1;
    EXPECT_TRUE(W->ReadRecordFile(
                     Write("long.hex", ":" + QByteArray(1500000, '0') + "\n" + HexLine(0, 1, "")), FirstBad)
                    .empty());
    EXPECT_EQ(FirstBad, 0);
}

TEST_F(FileReader, BlocksFromMemoryShareTheCallersBytes) {
    const U8 Bytes[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    const TFile::MEMORY_ENTRY Entries[2] = {{0x100, 0x200, 4, Bytes}, {0x300, 0x300, 4, Bytes + 4}};
    const ELF_DATA_BLOCKS Blocks = CFileWorker::BlocksFromMemory(2, Entries);
    ASSERT_EQ(Blocks.size(), 2u);
    EXPECT_EQ(Blocks[0].VirtualAddress, 0x200u);
    EXPECT_EQ(Blocks[1].Data.constData(), reinterpret_cast<const char*>(Bytes + 4));
    EXPECT_TRUE(Blocks[0].Data2.isEmpty());
}

TEST_F(FileReader, SaveFileWritesPiecesAndAllBytes) {
    QByteArray Data(2500000, '\0');
    for (qsizetype i = 0; i < Data.size(); ++i) {
        Data[i] = static_cast<char>(i % 251);
    }
    QSignalSpy Progress(W, &CFileWorker::ProgressChanged);
    QSignalSpy Saved(W, &CFileWorker::FileSaved);
    const QString Path = Dir.filePath("dump.bin");
    ASSERT_EQ(W->SaveFile(Path, reinterpret_cast<const U8*>(Data.constData()), 2500000), 0);
    ASSERT_EQ(Progress.size(), 2);
    EXPECT_EQ(Progress[0][0].toLongLong(), 1000000);
    EXPECT_EQ(Progress[1][0].toLongLong(), 2500000);
    ASSERT_EQ(Saved.size(), 1);
    EXPECT_EQ(Saved[0][0].toString(), Path);
    EXPECT_EQ(Saved[0][1].value<U32>(), 2500000u);
    QFile F(Path);
    ASSERT_TRUE(F.open(QIODevice::ReadOnly));
    EXPECT_EQ(F.readAll(), Data);
    EXPECT_EQ(W->SaveFile(Dir.filePath("empty.bin"), reinterpret_cast<const U8*>(Data.constData()), 0), -1);
    EXPECT_FALSE(QFile::exists(Dir.filePath("empty.bin")));
}

TEST_F(FileReader, AFullDiskLeavesNoPartialFile) {
    // A file size limit stands in for a full disk: the second piece cannot be written.
    struct rlimit Old;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &Old), 0);
    const auto OldHandler = std::signal(SIGXFSZ, SIG_IGN);
    struct rlimit Limit = Old;
    Limit.rlim_cur = 1500000;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &Limit), 0);
    const QByteArray Data(2500000, 'd');
    const QString Path = Dir.filePath("full.bin");
    const int Result = W->SaveFile(Path, reinterpret_cast<const U8*>(Data.constData()), 2500000);
    setrlimit(RLIMIT_FSIZE, &Old);
    std::signal(SIGXFSZ, OldHandler);
    EXPECT_EQ(Result, -1);
    EXPECT_FALSE(QFile::exists(Path));
}

} // namespace
