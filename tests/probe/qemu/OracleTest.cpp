// The library against gdb-multiarch: the same program on two boards (one GDB client each), stopped at
// the same instruction; registers and memory must agree.

#include "BoardFixture.h"
#include "kit/QemuHarness.h"

#include <map>
#include <regex>
#include <sstream>

using namespace probetest;

namespace {

struct OracleCase {
    const char* Program;
    const char* Variant;
    const char* Function;
};

struct GdbView {
    std::map<std::string, U32> Registers;
    std::map<U32, U32> Words;
};

GdbView ParseGdb(const std::string& Output) {
    GdbView V;
    std::istringstream In(Output);
    const std::regex Register(R"(^(r\d+|sp|lr|pc|xpsr)\s+0x([0-9a-f]+)\b)");
    const std::regex Memory(R"(^0x([0-9a-f]+)(?: <[^>]*>)?:((?:\s+0x[0-9a-f]+)+))");
    for (std::string Line; std::getline(In, Line);) {
        std::smatch M;
        if (std::regex_search(Line, M, Register)) {
            V.Registers[M[1]] = static_cast<U32>(std::stoul(M[2], nullptr, 16));
        } else if (std::regex_search(Line, M, Memory)) {
            U32 Address = static_cast<U32>(std::stoul(M[1], nullptr, 16));
            std::istringstream Words(M[2].str());
            for (std::string W; Words >> W; Address += 4) {
                V.Words[Address] = static_cast<U32>(std::stoul(W, nullptr, 16));
            }
        }
    }
    return V;
}

} // namespace

class Oracle : public Board, public ::testing::WithParamInterface<OracleCase> {};

TEST_P(Oracle, RegistersAndMemoryAgreeWithGdb) {
    const OracleCase& C = GetParam();
    Start("MPS2-AN385", C.Program, C.Variant);
    const U32 Stop = Elf.Symbol(C.Function);
    const U32 Data = Elf.Symbol("_data_start");
    RunToAddress(Stop);
    const U32 Sp = static_cast<U32>(Reg(TARVO_REG_SP));

    QemuHarness Other;
    std::string Error;
    ASSERT_TRUE(Other.Start("mps2-an385", FirmwarePath(C.Program, C.Variant), 30000, Error)) << Error;
    char Stack[64], Globals[64];
    std::snprintf(Stack, sizeof Stack, "x/32xw 0x%x", Sp);
    std::snprintf(Globals, sizeof Globals, "x/32xw 0x%x", Data);
    const std::string Output =
        RunGdb(Other, FirmwarePath(C.Program, C.Variant),
               {"break *" + std::string(C.Function), "continue", "info registers", Stack, Globals, "kill"});
    const GdbView G = ParseGdb(Output);
    ASSERT_EQ(G.Registers.count("pc"), 1u) << Output;
    ASSERT_EQ(G.Registers.at("pc"), Stop) << Output;
    const std::pair<const char*, U32> Names[] = {
        {"sp", TARVO_REG_SP}, {"lr", TARVO_REG_LR}, {"pc", TARVO_REG_PC}, {"xpsr", TARVO_REG_XPSR}};
    for (U32 i = 0; i <= 12; ++i) {
        const std::string Name = "r" + std::to_string(i);
        ASSERT_EQ(G.Registers.count(Name), 1u) << Output;
        EXPECT_EQ(Reg(i), G.Registers.at(Name)) << Name;
    }
    for (const auto& [Name, Index] : Names) {
        ASSERT_EQ(G.Registers.count(Name), 1u) << Output;
        EXPECT_EQ(Reg(Index), G.Registers.at(Name)) << Name;
    }
    ASSERT_EQ(G.Words.size(), 64u) << Output;
    std::vector<U32> Ours(32);
    U8 Status[32];
    for (const U32 Base : {Sp, Data}) {
        ASSERT_EQ(TARVOARM_ReadMemU32(Base, 32, Ours.data(), Status), 32);
        for (U32 i = 0; i < 32; ++i) {
            EXPECT_EQ(Ours[i], G.Words.at(Base + 4 * i)) << std::hex << "at 0x" << Base + 4 * i;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Programs, Oracle,
                         ::testing::Values(OracleCase{"calls", "O0-dwarf4", "Level3"},
                                           OracleCase{"calls", "O2-dwarf5", "Fibonacci"},
                                           OracleCase{"types", "O0-dwarf5", "UpdateFlags"},
                                           OracleCase{"types", "O2-dwarf4", "SumMatrix"}),
                         [](const ::testing::TestParamInfo<OracleCase>& I) {
                             std::string Name = std::string(I.param.Program) + "_" + I.param.Variant;
                             Name.erase(std::remove(Name.begin(), Name.end(), '-'), Name.end());
                             return Name;
                         });
