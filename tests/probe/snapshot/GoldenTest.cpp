// The target snapshots that the capture fixture made on the emulated board, loaded into the fake
// target: the registers and bytes that the exported functions give back must be gdb-multiarch's on
// the same stop, and what the firmware is known to have set up must be there.

#include "../ApiFixture.h"
#include "kit/ElfImage.h"
#include "probe/backends/ElfFile.h"
#include "probe/backends/Snapshot.h"

#include <cstdlib>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>

using namespace probetest;
namespace fake = tarvo::fake;

namespace {

/// The snapshots of the fixture, as paths without .snap and .golden.
std::vector<std::string> Snapshots() {
    std::vector<std::string> Out;
    std::istringstream In(std::getenv("ARNEX_SNAPSHOTS") ? std::getenv("ARNEX_SNAPSHOTS") : "");
    for (std::string Base; std::getline(In, Base, '|');) {
        if (!Base.empty()) {
            Out.push_back(Base);
        }
    }
    return Out;
}

/// The golden text by its "=== COMMAND" sections.
std::map<std::string, std::string> ReadGolden(const std::string& Path) {
    std::ifstream In(Path);
    std::map<std::string, std::string> Sections;
    std::string* Current = nullptr;
    for (std::string Line; std::getline(In, Line);) {
        if (Line.rfind("=== ", 0) == 0) {
            Current = &Sections[Line.substr(4)];
        } else if (Current) {
            *Current += Line + "\n";
        }
    }
    return Sections;
}

/// "r0             0xa                 10"
std::map<std::string, U32> GdbRegisters(const std::string& Text) {
    std::map<std::string, U32> Out;
    std::istringstream In(Text);
    const std::regex Register(R"(^(\w+)\s+0x([0-9a-f]+)\s)");
    std::smatch M;
    for (std::string Line; std::getline(In, Line);) {
        if (std::regex_search(Line, M, Register)) {
            Out[M[1]] = static_cast<U32>(std::stoul(M[2], nullptr, 16));
        }
    }
    return Out;
}

/// "0x56 <Fibonacci>:\t0xb538\t0x4604": the items of an x command, by address.
std::vector<std::pair<U32, U32>> GdbMemory(const std::string& Text, U32 ItemSize) {
    std::vector<std::pair<U32, U32>> Out;
    std::istringstream In(Text);
    const std::regex Row(R"(^0x([0-9a-f]+)(?: <[^>]*>)?:((?:\s+0x[0-9a-f]+)+))");
    std::smatch M;
    for (std::string Line; std::getline(In, Line);) {
        if (std::regex_search(Line, M, Row)) {
            U32 Address = static_cast<U32>(std::stoul(M[1], nullptr, 16));
            std::istringstream Items(M[2].str());
            for (std::string Item; Items >> Item; Address += ItemSize) {
                Out.emplace_back(Address, static_cast<U32>(std::stoul(Item, nullptr, 16)));
            }
        }
    }
    return Out;
}

U32 RegisterIndex(const std::string& GdbName) {
    static const std::map<std::string, U32> Names = {
        {"sp", TARVO_REG_SP}, {"lr", TARVO_REG_LR}, {"pc", TARVO_REG_PC}, {"xpsr", TARVO_REG_XPSR}};
    const auto It = Names.find(GdbName);
    if (It != Names.end()) {
        return It->second;
    }
    return GdbName[0] == 'r' ? static_cast<U32>(std::stoul(GdbName.substr(1))) : U32(TARVO_REG_COUNT);
}

std::string Name(const ::testing::TestParamInfo<std::string>& I) {
    std::string N = I.param.substr(I.param.rfind('/') + 1);
    for (char& C : N) {
        C = std::isalnum(static_cast<unsigned char>(C)) ? C : '_';
    }
    return N;
}

} // namespace

class SnapshotGolden : public ApiTest, public ::testing::WithParamInterface<std::string> {
protected:
    void SetUp() override {
        ApiTest::SetUp();
        std::string Error;
        ASSERT_TRUE(tarvo::ReadSnapshotFile(GetParam() + ".snap", Snap, Error)) << Error;
        Golden = ReadGolden(GetParam() + ".golden");
        ASSERT_EQ(Golden.size(), 7u) << GetParam() << ".golden";
        ConnectFake();
        ASSERT_TRUE(fake::LoadSnapshot(GetParam() + ".snap", "", &Error)) << Error;
    }

    tarvo::TargetSnapshot Snap;
    std::map<std::string, std::string> Golden;
};

TEST_P(SnapshotGolden, RegistersAreGdbs) {
    const std::map<std::string, U32> Gdb = GdbRegisters(Golden["info registers"]);
    ASSERT_EQ(Gdb.size(), 17u) << Golden["info registers"];
    for (const auto& [GdbName, Value] : Gdb) {
        const U32 Index = RegisterIndex(GdbName);
        ASSERT_LT(Index, U32(TARVO_REG_COUNT)) << GdbName;
        EXPECT_EQ(Reg(Index), Value) << GdbName;
    }
    EXPECT_EQ(Reg(TARVO_REG_PC), Snap.StopPc);
    // The core's view of the stack pointers: SP is MSP in handler mode and unless CONTROL selects PSP.
    const U64 Xpsr = Reg(TARVO_REG_XPSR), Control = Reg(TARVO_REG_CONTROL);
    const bool OnProcessStack = (Xpsr & 0x1FF) == 0 && (Control & 2) != 0;
    EXPECT_EQ(Reg(OnProcessStack ? TARVO_REG_PSP : TARVO_REG_MSP), Reg(TARVO_REG_SP));
    EXPECT_EQ(Xpsr & 0x01000000, 0x01000000u) << "Thumb state";
    // The emulated Cortex-M3 has no floating point unit.
    const U32 Fpu[] = {TARVO_REG_FPSCR, TARVO_REG_S0};
    U64 Values[2];
    U8 Status[2];
    ASSERT_EQ(TARVOARM_ReadRegs(Fpu, Values, Status, 2), 0);
    EXPECT_EQ(Status[0], 1);
    EXPECT_EQ(Status[1], 1);
}

TEST_P(SnapshotGolden, StackAndCodeAreGdbs) {
    const auto Stack = GdbMemory(Golden["x/16wx $sp"], 4);
    ASSERT_GE(Stack.size(), 4u) << Golden["x/16wx $sp"];
    EXPECT_EQ(Stack.front().first, Reg(TARVO_REG_SP));
    for (const auto& [Address, Word] : Stack) {
        U32 Ours = 0;
        U8 Status = 1;
        ASSERT_EQ(TARVOARM_ReadMemU32(Address, 1, &Ours, &Status), 1) << std::hex << Address;
        EXPECT_EQ(Ours, Word) << std::hex << "at 0x" << Address;
    }
    // Code memory comes from the program file.
    const auto Code = GdbMemory(Golden["x/8hx $pc"], 2);
    ASSERT_EQ(Code.size(), 8u) << Golden["x/8hx $pc"];
    for (const auto& [Address, Half] : Code) {
        U16 Ours = 0;
        U8 Status = 1;
        ASSERT_EQ(TARVOARM_ReadMemU16(Address, 1, &Ours, &Status), 1) << std::hex << Address;
        EXPECT_EQ(Ours, Half) << std::hex << "at 0x" << Address;
    }
}

TEST_P(SnapshotGolden, EveryCapturedByteAndNothingElse) {
    for (const tarvo::SnapshotRange& R : Snap.Ranges) {
        std::vector<U8> Bytes(R.Bytes.size());
        ASSERT_EQ(TARVOARM_ReadMemEx(R.Address, static_cast<U32>(Bytes.size()), Bytes.data(), 0),
                  static_cast<int>(Bytes.size()));
        EXPECT_EQ(Bytes, R.Bytes) << std::hex << "range at 0x" << R.Address;
    }
    // Just below the stack nothing was captured: the fake target fails the read as a board would not,
    // so that a test that wanders off the snapshot shows.
    U8 Byte = 0;
    const U32 Below = static_cast<U32>(Reg(TARVO_REG_SP)) - 1;
    const bool Captured =
        std::any_of(Snap.Ranges.begin(), Snap.Ranges.end(),
                    [Below](const tarvo::SnapshotRange& R) { return Below >= R.Address && Below < R.End(); });
    EXPECT_EQ(TARVOARM_ReadMemEx(Below, 1, &Byte, 0), Captured ? 1 : 0);
    // The stack reaches up to its top, the initial SP of the vector table (and may pass it, to hold
    // the 16 words from SP).
    probetest::ElfImage Elf;
    std::string Error;
    const std::string Folder = GetParam().substr(0, GetParam().rfind('/') + 1);
    ASSERT_TRUE(Elf.Load(Folder + Snap.Elf, Error)) << Error;
    const U32 Top = Elf.Symbol("_stack_top");
    ASSERT_NE(Top, 0u);
    U8 Word[4];
    EXPECT_EQ(TARVOARM_ReadMemEx(Top - 4, 4, Word, 0), 4);
    // .data and .bss are all there.
    const U32 Data = Elf.Symbol("_data_start"), End = Elf.Symbol("_bss_end");
    ASSERT_LT(Data, End);
    std::vector<U8> Globals(End - Data);
    EXPECT_EQ(TARVOARM_ReadMemEx(Data, End - Data, Globals.data(), 0), static_cast<int>(End - Data));
}

TEST_P(SnapshotGolden, WhatTheFirmwareSetUpIsThere) {
    const std::string Base = GetParam().substr(GetParam().rfind('/') + 1);
    probetest::ElfImage Elf;
    std::string Error;
    ASSERT_TRUE(Elf.Load(GetParam().substr(0, GetParam().rfind('/') + 1) + Snap.Elf, Error)) << Error;
    const std::string& Bt = Golden["bt"];
    EXPECT_EQ(Bt.rfind("#0  ", 0), 0u) << Bt;
    if (Base.find(".SysTick_Handler.") != std::string::npos) {
        // The handler of exception 15, on the main stack; main set BASEPRI and PSP before the ticks.
        EXPECT_EQ(Reg(TARVO_REG_XPSR) & 0x1FF, 15u);
        EXPECT_EQ(Reg(TARVO_REG_BASEPRI), 0x40u);
        EXPECT_EQ(Reg(TARVO_REG_PSP), Elf.Symbol("g_ProcessStack") + 64 * 4);
        EXPECT_EQ(Reg(TARVO_REG_LR), 0xFFFFFFF9u) << "return to thread mode on the main stack";
        EXPECT_NE(Bt.find("<signal handler called>"), std::string::npos) << Bt;
    }
    if (Base.find(".Fibonacci.") != std::string::npos) {
        // Each arrival at the breakpoint is one call deeper: the n-th hit has n Fibonacci frames.
        const int Hit = std::stoi(Base.substr(Base.rfind('.') + 1));
        size_t Frames = 0;
        for (size_t At = Bt.find(" Fibonacci ("); At != std::string::npos;
             At = Bt.find(" Fibonacci (", At + 1)) {
            ++Frames;
        }
        EXPECT_EQ(Frames, static_cast<size_t>(Hit)) << Bt;
    }
    if (Base.find(".Level3.") != std::string::npos) {
        for (const char* Caller : {"Level2 (", "Level1 (", "main ("}) {
            EXPECT_NE(Bt.find(Caller), std::string::npos) << Caller << "\n" << Bt;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Captured, SnapshotGolden, ::testing::ValuesIn(Snapshots()), Name);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(SnapshotGolden);

TEST(SnapshotFixture, MadeEverySnapshot) {
    const std::vector<std::string> List = Snapshots();
    EXPECT_GE(List.size(), 8u) << "ARNEX_SNAPSHOTS names the captures of the fixture";
    for (const std::string& Base : List) {
        EXPECT_TRUE(std::ifstream(Base + ".snap").good()) << Base;
        EXPECT_TRUE(std::ifstream(Base + ".golden").good()) << Base;
    }
}
