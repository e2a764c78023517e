// Target snapshots without a board: the file format, its fingerprint, damaged and stale files, and the
// fake target serving a snapshot through the exported functions.

#include "probe/backends/Snapshot.h"
#include "ApiFixture.h"
#include "kit/ElfWriter.h"
#include "probe/backends/ElfFile.h"
#include "probe/backends/Sha256.h"

#include <QTemporaryDir>

#include <fstream>
#include <random>

using namespace probetest;
namespace fake = tarvo::fake;
using tarvo::TargetSnapshot;

namespace {

std::string Sha(const std::string& Text) {
    return tarvo::Sha256Hex(reinterpret_cast<const uint8_t*>(Text.data()), Text.size());
}

std::string ReadAll(const std::string& Path) {
    std::ifstream In(Path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(In)), std::istreambuf_iterator<char>());
}

void WriteAll(const std::string& Path, const std::string& Text) {
    std::ofstream(Path, std::ios::binary | std::ios::trunc) << Text;
}

/// A program (vector table and code at 0, initial data loaded straight into RAM at 0x20000000) and a
/// snapshot of it whose RAM ranges cover part of that data.
class SnapshotFiles : public ApiTest {
protected:
    void SetUp() override {
        ApiTest::SetUp();
        ASSERT_TRUE(m_Dir.isValid());
        m_Code = PatternBytes(0x200, 1);
        const U32 Vectors[2] = {0x20001000, 0x00000101};
        std::memcpy(m_Code.data(), Vectors, sizeof Vectors);
        m_Data = PatternBytes(0x40, 2);
        ASSERT_TRUE(WriteElf(Elf(), {{0, m_Code}, {0x20000000, m_Data}}, 0x101));
        ASSERT_TRUE(WriteElf(Path("other.elf"), {{0, PatternBytes(0x200, 3)}}, 0x101));

        tarvo::ElfFile File;
        std::string Error;
        ASSERT_TRUE(File.Load(Elf(), Error)) << Error;
        m_Snap.Elf = "prog.elf";
        m_Snap.ElfSize = File.FileSize();
        m_Snap.ElfSha256 = File.Sha256();
        m_Snap.Command = "snapshot_capture --elf prog.elf --stop Main";
        m_Snap.Device = "MPS2-AN385";
        m_Snap.StopPc = 0x124;
        m_Snap.StopReason = "breakpoint";
        m_Snap.StopDetail = "Main hit 1";
        for (U32 i = 0; i <= TARVO_REG_CONTROL; ++i) {
            m_Snap.Registers[i] = 0x1000 * i + 7;
        }
        m_Snap.Registers[TARVO_REG_SP] = 0x20000FC0;
        m_Snap.Registers[TARVO_REG_PC] = 0x124;
        m_Snap.Registers[TARVO_REG_S0 + 5] = 0x3F800000;
        // The stack to its top, and bytes 0x10..0x2F of the data: the rest of it comes from the file.
        m_Snap.Ranges = {{0x20000FC0, PatternBytes(0x40, 4)}, {0x20000010, PatternBytes(0x21, 5)}};
        ASSERT_TRUE(tarvo::WriteSnapshotFile(Snap(), m_Snap, Error)) << Error;
    }

    std::string Path(const std::string& Name) const { return (m_Dir.path() + "/").toStdString() + Name; }
    std::string Elf() const { return Path("prog.elf"); }
    std::string Snap() const { return Path("prog.snap"); }

    /// Loading fails with a text that holds Expected, and the fake target stays as it was.
    void ExpectRefused(const std::string& Snapshot, const std::string& ElfPath, const std::string& Expected) {
        fake::SetRegister(3, 0xABCD);
        fake::Poke(0x20000100, {1, 2, 3});
        std::string Error;
        EXPECT_FALSE(fake::LoadSnapshot(Snapshot, ElfPath, &Error));
        EXPECT_NE(Error.find(Expected), std::string::npos) << Error;
        EXPECT_EQ(fake::GetRegister(3), 0xABCDu);
        EXPECT_EQ(fake::Peek(0x20000100, 3), (std::vector<U8>{1, 2, 3}));
    }

    QTemporaryDir m_Dir;
    std::vector<U8> m_Code, m_Data;
    TargetSnapshot m_Snap;
};

} // namespace

TEST(SnapshotFormat, FingerprintIsSha256) {
    EXPECT_EQ(Sha(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(Sha("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    // 56 bytes: the length no longer fits in the first padded block.
    EXPECT_EQ(Sha("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
    EXPECT_EQ(Sha(std::string(1000000, 'a')),
              "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST(SnapshotFormat, WritesSortedMergedRangesAndReadsThemBack) {
    TargetSnapshot S;
    S.Elf = "a b.elf";
    S.ElfSize = 99;
    S.ElfSha256 = std::string(64, 'a');
    S.Command = "x --stop 'a b'\nsecond line";
    S.StopPc = 0x200;
    S.StopReason = "breakpoint";
    S.Registers = {{TARVO_REG_SP, 0x20000000}, {TARVO_REG_PC, 0x200}, {TARVO_REG_S0 + 31, 0xFFFFFFFF}};
    // Out of order, one byte, exactly a line, a line and a byte, overlapping and touching.
    S.Ranges = {{0x30000000, PatternBytes(33, 1)},
                {0x20000000, PatternBytes(1, 2)},
                {0x20000100, PatternBytes(32, 3)},
                {0x20000110, PatternBytes(32, 4)},
                {0x20000130, PatternBytes(2, 5)}};
    TargetSnapshot Back;
    std::string Error;
    const std::string Text = tarvo::FormatSnapshot(S);
    ASSERT_TRUE(tarvo::ParseSnapshot(Text, Back, Error)) << Error << "\n" << Text;
    EXPECT_EQ(Back.Elf, S.Elf);
    EXPECT_EQ(Back.Command, "x --stop 'a b' second line");
    EXPECT_EQ(Back.Registers, S.Registers);
    ASSERT_EQ(Back.Ranges.size(), 3u);
    EXPECT_EQ(Back.Ranges[1].Address, 0x20000100u);
    std::vector<U8> Expected = PatternBytes(32, 3);
    Expected.resize(0x10);
    for (const std::vector<U8>& Part : {PatternBytes(32, 4), PatternBytes(2, 5)}) {
        Expected.insert(Expected.end(), Part.begin(), Part.end());
    }
    EXPECT_EQ(Back.Ranges[1].Bytes, Expected) << "later bytes win where ranges overlap";
    EXPECT_EQ(Back.Ranges[2].Bytes, PatternBytes(33, 1));
    EXPECT_EQ(tarvo::FormatSnapshot(Back), Text);
}

TEST(SnapshotFormat, DamageGivesAClearErrorAndNoCrash) {
    TargetSnapshot S;
    S.Elf = "p.elf";
    S.ElfSha256 = std::string(64, '0');
    S.StopPc = 0x100;
    S.StopReason = "breakpoint";
    S.Registers = {{TARVO_REG_R0, 5}, {TARVO_REG_SP, 0x20000040}, {TARVO_REG_PC, 0x100}};
    S.Ranges = {{0x20000040, std::vector<U8>(70, 0x5A)}, {0x20001000, PatternBytes(8, 2)}};
    const std::string Good = tarvo::FormatSnapshot(S);
    TargetSnapshot Out;
    std::string Error;
    // Every cut before the end line is a truncated file.
    const size_t End = Good.rfind("end");
    for (size_t Cut = 0; Cut < End + 3; ++Cut) {
        Error.clear();
        ASSERT_FALSE(tarvo::ParseSnapshot(Good.substr(0, Cut), Out, Error)) << Cut;
        ASSERT_FALSE(Error.empty()) << Cut;
    }
    const auto Damaged = [&](const std::string& From, const std::string& To) {
        std::string Text = Good;
        const size_t At = Text.find(From);
        EXPECT_NE(At, std::string::npos) << From;
        Text.replace(At, From.size(), To);
        Error.clear();
        EXPECT_FALSE(tarvo::ParseSnapshot(Text, Out, Error)) << From << " -> " << To;
        return Error;
    };
    EXPECT_EQ(Damaged("arnex-snapshot 1", "ELF"),
              "line 2: not a target snapshot (it should start with \"arnex-snapshot\")");
    EXPECT_NE(Damaged("arnex-snapshot 1", "arnex-snapshot 2").find("version \"2\""), std::string::npos);
    EXPECT_NE(Damaged("register r0", "register r99").find("unknown register \"r99\""), std::string::npos);
    EXPECT_NE(Damaged("register r0 0x00000005", "register r0 5").find("needs one value"), std::string::npos);
    EXPECT_NE(Damaged("register r0", "register sp").find("register sp appears twice"), std::string::npos);
    EXPECT_NE(Damaged("register pc 0x00000100", "register pc 0x00000102").find("disagree"),
              std::string::npos);
    EXPECT_NE(Damaged("memory 0x20001000", "memory 0x20000050").find("overlaps"), std::string::npos);
    EXPECT_NE(Damaged("memory 0x20000040 70", "memory 0x20000040 0").find("empty"), std::string::npos);
    EXPECT_NE(Damaged("memory 0x20001000 8", "memory 0xfffffffc 8").find("past 4 GB"), std::string::npos);
    EXPECT_NE(Damaged("0x20000060 ", "0x20000064 ").find("line 14: expected the bytes at 0x20000060"),
              std::string::npos);
    EXPECT_NE(Damaged("\n0x20000080 5a", "\n0x20000080 5g")
                  .find("line 15: a byte that is not two hex digits at 0x20000080"),
              std::string::npos);
    EXPECT_NE(Damaged("elf-sha256 0", "elf-sha256 x").find("64 hex digits"), std::string::npos);
    EXPECT_NE(Damaged("elf p.elf\n", "").find("no \"elf\" line"), std::string::npos);
    EXPECT_NE(Damaged("end\n", "end\nregister r1 0x1\n").find("after the end line"), std::string::npos);
    EXPECT_NE(Damaged("stop 0x00000100 breakpoint", "stop here").find("PC"), std::string::npos);

    // Random damage: an error or a snapshot that writes back to itself, never a crash.
    std::mt19937 Random(14);
    for (int Round = 0; Round < 3000; ++Round) {
        std::string Text = Good;
        for (int Edits = 1 + Round % 4; Edits > 0 && !Text.empty(); --Edits) {
            const size_t At = Random() % Text.size();
            switch (Random() % 3) {
            case 0:
                Text[At] = static_cast<char>(Random());
                break;
            case 1:
                Text.erase(At, 1 + Random() % 40);
                break;
            default:
                Text.insert(At, Text.substr(Random() % Text.size(), 1 + Random() % 40));
            }
        }
        Error.clear();
        if (tarvo::ParseSnapshot(Text, Out, Error)) {
            TargetSnapshot Again;
            ASSERT_TRUE(tarvo::ParseSnapshot(tarvo::FormatSnapshot(Out), Again, Error)) << Error;
            ASSERT_EQ(tarvo::FormatSnapshot(Again), tarvo::FormatSnapshot(Out));
        } else {
            ASSERT_FALSE(Error.empty()) << Text;
        }
    }
}

TEST(SnapshotFormat, DamagedElfFilesAreRefusedNotOverread) {
    QTemporaryDir Dir;
    const std::string Path = (Dir.path() + "/p.elf").toStdString();
    ASSERT_TRUE(WriteElf(Path, {{0, PatternBytes(100, 1)}, {0x20000000, PatternBytes(30, 2)}}, 1));
    const std::string Whole = ReadAll(Path);
    tarvo::ElfFile File;
    std::string Error;
    ASSERT_TRUE(File.Parse(std::vector<U8>(Whole.begin(), Whole.end()), Error)) << Error;
    ASSERT_EQ(File.Segments().size(), 2u);
    EXPECT_EQ(File.Segments()[1].Bytes, PatternBytes(30, 2));
    EXPECT_EQ(File.Sha256(), Sha(Whole));
    for (size_t Cut = 0; Cut < Whole.size(); ++Cut) {
        Error.clear();
        if (!File.Parse(std::vector<U8>(Whole.begin(), Whole.begin() + static_cast<long>(Cut)), Error)) {
            ASSERT_FALSE(Error.empty());
        }
    }
    std::mt19937 Random(7);
    for (int Round = 0; Round < 2000; ++Round) {
        std::vector<U8> Bytes(Whole.begin(), Whole.end());
        for (int i = 0; i < 4; ++i) {
            Bytes[Random() % Bytes.size()] = static_cast<U8>(Random());
        }
        File.Parse(Bytes, Error);
    }
}

TEST_F(SnapshotFiles, FakeTargetServesTheCapturedStateAndTheProgramsCode) {
    ConnectFake();
    std::string Error;
    ASSERT_TRUE(fake::LoadSnapshot(Snap(), "", &Error)) << Error;
    EXPECT_EQ(TARVOARM_IsHalted(), 1);
    for (const auto& [Index, Value] : m_Snap.Registers) {
        EXPECT_EQ(Reg(Index), Value) << Index;
    }
    const U32 Indices[] = {TARVO_REG_FPSCR, TARVO_REG_S0, TARVO_REG_S0 + 5};
    U64 Values[3];
    U8 Status[3];
    ASSERT_EQ(TARVOARM_ReadRegs(Indices, Values, Status, 3), 0);
    EXPECT_EQ(Status[0], 1) << "a register the board didn't have";
    EXPECT_EQ(Status[1], 1);
    EXPECT_EQ(Status[2], 0);

    std::vector<U8> Code(m_Code.size());
    ASSERT_EQ(TARVOARM_ReadMemEx(0, static_cast<U32>(Code.size()), Code.data(), 0),
              static_cast<int>(Code.size()));
    EXPECT_EQ(Code, m_Code);
    // The data: file bytes, then the captured ones, then file bytes again.
    std::vector<U8> Data(0x40);
    ASSERT_EQ(TARVOARM_ReadMemEx(0x20000000, 0x40, Data.data(), 0), 0x40);
    std::vector<U8> Expected = m_Data;
    const std::vector<U8> Captured = PatternBytes(0x21, 5);
    std::copy(Captured.begin(), Captured.end(), Expected.begin() + 0x10);
    EXPECT_EQ(Data, Expected);
    std::vector<U8> Stack(0x40);
    ASSERT_EQ(TARVOARM_ReadMemEx(0x20000FC0, 0x40, Stack.data(), 0), 0x40);
    EXPECT_EQ(Stack, PatternBytes(0x40, 4));
    // Nothing else was captured: reads stop at its edges.
    U8 Byte;
    EXPECT_EQ(TARVOARM_ReadMemEx(0x20000FBF, 1, &Byte, 0), 0);
    EXPECT_EQ(TARVOARM_ReadMemEx(0x20001000, 1, &Byte, 0), 0);
    EXPECT_EQ(TARVOARM_ReadMemEx(0x200001FE, 4, Stack.data(), 0), 0);
    // RAM takes writes, the program's code doesn't.
    EXPECT_EQ(TARVOARM_WriteU32(0x20000FC0, 0x12345678), 0);
    EXPECT_EQ(TARVOARM_WriteU32(0x100, 0x12345678), -1);
    EXPECT_EQ(fake::Peek(0x100, 4), std::vector<U8>(m_Code.begin() + 0x100, m_Code.begin() + 0x104));
}

TEST_F(SnapshotFiles, ASnapshotOfAnotherProgramIsRefused) {
    ExpectRefused(Snap(), Path("other.elf"),
                  "The snapshot belongs to another program: it was made from prog.elf");
    // The program rebuilt after the capture: one byte differs.
    std::string Program = ReadAll(Elf());
    Program[0x100] ^= 1;
    WriteAll(Elf(), Program);
    ExpectRefused(Snap(), "", "SHA-256 " + m_Snap.ElfSha256 + "), but " + Elf() + " has");
    std::remove(Elf().c_str());
    ExpectRefused(Snap(), "", "Could not read the program of the snapshot " + Snap());
}

TEST_F(SnapshotFiles, ADamagedSnapshotIsRefusedAndTheTargetStaysAsItWas) {
    const std::string Good = ReadAll(Snap());
    ExpectRefused(Path("missing.snap"), Elf(), "Could not open the snapshot");
    WriteAll(Path("cut.snap"), Good.substr(0, Good.find("\n0x20000fc0 ") + 20));
    ExpectRefused(Path("cut.snap"), Elf(),
                  "The snapshot " + Path("cut.snap") +
                      " is damaged: line 37: expected 32 bytes (64 hex digits) at 0x20000fc0");
    WriteAll(Path("cut.snap"), Good.substr(0, Good.size() - 4));
    ExpectRefused(Path("cut.snap"), Elf(), "no end line: it is truncated");
    WriteAll(Path("binary.snap"), std::string("\x7f"
                                              "ELF\0\0\x01",
                                              7) +
                                      std::string(300, '\xff'));
    ExpectRefused(Path("binary.snap"), Elf(), "not a target snapshot");
    EXPECT_EQ(TARVO_FAKE_Control(fake::CmdLoadSnapshot, 0, 0, nullptr), -1);
}
