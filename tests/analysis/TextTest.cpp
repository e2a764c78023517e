// What the plug-in says besides instruction facts: encodings, data items, mapping symbols, program
// headers and the static core information.
#include "ArmPlugin.h"

#include "probe/TarvoCores.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

class TextTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_GE(ArmPlugin::Load(TARVO_CORE_CORTEX_M4), 0);
        // add.w ip, r3, #32; movs r1, #0; then the bytes 78 56 34 12 F0 DE BC 9A 11
        const QByteArray Bytes("\x03\xF1\x20\x0C\x00\x21\x78\x56\x34\x12\xF0\xDE\xBC\x9A\x11", 15);
        CoreDebugger::SetProgramImage({{0x100, Bytes}});
    }
    void TearDown() override { CoreDebugger::ClearProgramImage(); }
    static QString Call(int (*Entry)(U64, U32, char*, U32), U64 Addr, U32 Size, int Expect) {
        char Text[128];
        memset(Text, 'x', sizeof Text - 1);
        Text[sizeof Text - 1] = '\0';
        EXPECT_EQ(Entry(Addr, Size, Text, sizeof Text), Expect);
        return QString::fromUtf8(Text);
    }
    const CORE_PLUGIN_API& Api() { return ArmPlugin::Api(); }
};

TEST_F(TextTest, EncodingsAreHalfwordsAsFetched) {
    EXPECT_EQ(Call(Api().PrintInstBytes, 0x100, 4, 4), "F103 0C20");
    EXPECT_EQ(Call(Api().PrintInstBytes, 0x104, 2, 2), "2100");
    EXPECT_EQ(Call(Api().PrintInstBytes, 0x10C, 3, 3), "9ABC 11");
    EXPECT_EQ(Call(Api().PrintInstBytes, 0x10E, 2, -1), ""); // one byte past the image
}

TEST_F(TextTest, DataItemsAreDCDirectivesInTheDataByteOrder) {
    EXPECT_EQ(Call(Api().PrintData, 0x106, 4, 4), "DC32\t0x12345678");
    EXPECT_EQ(Call(Api().PrintData, 0x106, 2, 2), "DC16\t0x5678");
    EXPECT_EQ(Call(Api().PrintData, 0x106, 1, 1), "DC8\t0x78");
    EXPECT_EQ(Call(Api().PrintData, 0x106, 8, 8), "DC64\t0x9ABCDEF012345678");
    EXPECT_EQ(Call(Api().PrintData, 0x106, 3, 3), "DC8\t0x78, 0x56, 0x34");
    EXPECT_EQ(Call(Api().PrintDataBytes, 0x106, 4, 4), "12345678");
    EXPECT_EQ(Call(Api().PrintDataBytes, 0x106, 3, 3), "78 56 34");
    EXPECT_EQ(Call(Api().PrintData, 0x106, 0, -1), "");
    ASSERT_GE(ArmPlugin::Load(TARVO_CORE_CORTEX_M4, true), 0);
    EXPECT_EQ(Call(Api().PrintData, 0x106, 4, 4), "DC32\t0x78563412");
    EXPECT_EQ(Call(Api().PrintDataBytes, 0x106, 2, 2), "7856");
    // Instructions stay little endian on a big-endian data bus.
    EXPECT_EQ(Call(Api().PrintInst, 0x104, 2, 2), "movs\tr1, #0");
}

TEST_F(TextTest, AWordThatPointsAtASymbolNamesIt) {
    struct Symbols : ICoreDebuggerServices {
        int GetSymbolAt(U64 Addr, const char** psName, U64* pStart, U64* pEnd) override {
            if (Addr != 0x106) {
                return -1;
            }
            *psName = "counter";
            *pStart = 0x12345678;
            *pEnd = *pStart + 4;
            return 12;
        }
    } Services;
    CoreDebugger::SetServices(&Services);
    EXPECT_EQ(Call(Api().PrintData, 0x106, 4, 4), "DC32\t0x12345678\t; counter");
    EXPECT_EQ(Call(Api().PrintData, 0x10A, 4, 4), "DC32\t0x9ABCDEF0");
    CoreDebugger::SetServices(nullptr);
}

TEST_F(TextTest, MappingSymbols) {
    char Prefix[8];
    ASSERT_NE(Api().GetMappingSymbolPrefix(Prefix, sizeof Prefix), 0);
    EXPECT_STREQ(Prefix, "$");
    const struct {
        const char* Name;
        int Result;
        U32 Kind;
        const char* Text;
    } Cases[] = {{"$t", 0, 2, "Thumb code"},   {"$d", 0, 1, "Data"},
                 {"$a", 0, 3, "ARM code"},     {"$d.realdata", 0, 1, "Data"},
                 {"$t.x", 0, 2, "Thumb code"}, {"$x", -1, 0, ""},
                 {"$tt", -1, 0, ""},           {"$", -1, 0, ""},
                 {"main", -1, 0, ""}};
    for (const auto& C : Cases) {
        U32 Kind = 0;
        char Text[32] = "";
        EXPECT_EQ(Api().GetMappingSymbolInfo(C.Name, &Kind, Text, sizeof Text), C.Result) << C.Name;
        EXPECT_EQ(Kind, C.Kind) << C.Name;
        EXPECT_STREQ(Text, C.Text) << C.Name;
    }
    EXPECT_EQ(Api().GetMappingSymbolInfo("$d", nullptr, nullptr, 0), 0);
}

/// A 52-byte ELF header: class, byte order, machine and flags.
QByteArray ElfHeader(U8 Class, U8 Order, U16 Machine, U32 Flags) {
    QByteArray H(52, '\0');
    H[0] = 0x7F;
    H[1] = 'E';
    H[2] = 'L';
    H[3] = 'F';
    H[4] = static_cast<char>(Class);
    H[5] = static_cast<char>(Order);
    const bool BE = Order == 2;
    H[BE ? 19 : 18] = static_cast<char>(Machine & 0xFF);
    H[BE ? 18 : 19] = static_cast<char>(Machine >> 8);
    for (int i = 0; i < 4; ++i) {
        H[36 + (BE ? 3 - i : i)] = static_cast<char>((Flags >> (8 * i)) & 0xFF);
    }
    return H;
}

TEST_F(TextTest, ProgramHeaders) {
    auto Check = [&](const QByteArray& H) {
        return Api().CheckProgramHeader(52, reinterpret_cast<const U8*>(H.data()));
    };
    EXPECT_NE(Check(ElfHeader(1, 1, 40, 0x05000000)), 0);
    EXPECT_NE(Check(ElfHeader(1, 2, 40, 0x05800000)), 0);
    EXPECT_EQ(Check(ElfHeader(1, 1, 3, 0)), 0);   // x86
    EXPECT_EQ(Check(ElfHeader(2, 1, 40, 0)), 0);  // 64-bit
    EXPECT_EQ(Check(ElfHeader(1, 1, 243, 0)), 0); // RISC-V
    QByteArray NotElf = ElfHeader(1, 1, 40, 0);
    NotElf[1] = 'X';
    EXPECT_EQ(Check(NotElf), 0);
    EXPECT_EQ(Api().CheckProgramHeader(40, reinterpret_cast<const U8*>(ElfHeader(1, 1, 40, 0).data())), 0);

    auto Orders = [&](const QByteArray& H, U32& Inst, U32& Data) {
        return Api().GetProgramByteOrder(52, reinterpret_cast<const U8*>(H.data()), &Inst, &Data);
    };
    U32 Inst = 9, Data = 9;
    ASSERT_EQ(Orders(ElfHeader(1, 1, 40, 0x05000000), Inst, Data), 0);
    EXPECT_EQ(Inst, 0u);
    EXPECT_EQ(Data, 0u);
    ASSERT_EQ(Orders(ElfHeader(1, 2, 40, 0x05800000), Inst, Data), 0); // BE8
    EXPECT_EQ(Inst, 0u);
    EXPECT_EQ(Data, 1u);
    ASSERT_EQ(Orders(ElfHeader(1, 2, 40, 0x05000000), Inst, Data), 0); // big endian throughout
    EXPECT_EQ(Inst, 1u);
    EXPECT_EQ(Data, 1u);
    EXPECT_EQ(Orders(NotElf, Inst, Data), -1);
}

TEST_F(TextTest, StaticCoreInformationPassesTheDebuggersChecks) {
    CORE_INFO I;
    EXPECT_EQ(Api().GetCoreInfo(&I, sizeof I - 1), -1);
    ASSERT_EQ(Api().GetCoreInfo(&I, sizeof I), 0);
    EXPECT_EQ(I.WordSize, 4u);
    EXPECT_EQ(I.InstAlign, 2u);
    EXPECT_EQ(I.MinInstLen, 2u);
    EXPECT_EQ(I.MaxInstLen, 4u);
    EXPECT_GT(I.MaxMnemonicLen, 0u);
    EXPECT_EQ(I.NumRegs, static_cast<U32>(TARVO_REG_COUNT));
    EXPECT_EQ(I.RegSize, 4u);
    EXPECT_LE(I.SPSize, 8u);
    EXPECT_LE(I.PCSize, 8u);
    for (U32 Index : {I.SPIndex, I.PCIndex, I.LRIndex, I.CFAIndex, I.RAIndex, I.MaxUnwindReg}) {
        EXPECT_LT(Index, I.NumRegs);
    }
    EXPECT_EQ(I.SPIndex, static_cast<U32>(TARVO_REG_SP));
    EXPECT_EQ(I.PCIndex, static_cast<U32>(TARVO_REG_PC));
    EXPECT_EQ(I.RAIndex, static_cast<U32>(TARVO_REG_LR));
    EXPECT_EQ(Api().GetBPType(0x100), 1u);
    char Name[64];
    Api().GetCoreName(0x0E000300, Name, sizeof Name);
    EXPECT_STREQ(Name, "ARM core 0x0E000300");
}

} // namespace
