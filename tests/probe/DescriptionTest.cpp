// Target descriptions, the register map built on them, stop replies and QEMU's memory dumps.

#include "probe/backends/QmpClient.h"
#include "probe/backends/RegisterMap.h"
#include "probe/rsp/StopReply.h"
#include "probe/rsp/TargetDescription.h"

#include <gtest/gtest.h>
#include <map>

using namespace tarvo;
using namespace tarvo::rsp;

namespace {

// The layout QEMU sends for a Cortex-M4: core registers, xpsr at 25, then the doubles of the FPU.
const std::map<std::string, std::string> QemuFiles = {
    {"target.xml", R"(<?xml version="1.0"?><!DOCTYPE target SYSTEM "gdb-target.dtd"><target>
        <architecture>arm</architecture><xi:include href="arm-m-profile.xml"/><xi:include href="arm-vfp.xml"/>
        </target>)"},
    {"arm-m-profile.xml", R"(<?xml version="1.0"?>
        <!-- comment with <reg name="bogus" bitsize="32"/> inside -->
        <feature name="org.gnu.gdb.arm.m-profile">
        <reg name="r0" bitsize="32"/><reg name="r1" bitsize="32"/><reg name="r2" bitsize="32"/>
        <reg name="r3" bitsize="32"/><reg name="r4" bitsize="32"/><reg name="r5" bitsize="32"/>
        <reg name="r6" bitsize="32"/><reg name="r7" bitsize="32"/><reg name="r8" bitsize="32"/>
        <reg name="r9" bitsize="32"/><reg name="r10" bitsize="32"/><reg name="r11" bitsize="32"/>
        <reg name="r12" bitsize="32"/><reg name="sp" bitsize="32" type="data_ptr"/>
        <reg name="lr" bitsize="32"/><reg name="pc" bitsize="32" type="code_ptr"/>
        <reg name="xpsr" bitsize="32" regnum="25"/></feature>)"},
    {"arm-vfp.xml", R"(<feature name='org.gnu.gdb.arm.vfp'>
        <reg name="d0" bitsize="64" type="float"/><reg name="d1" bitsize="64" type="float"/>
        <reg name="fpscr" bitsize="32" type="int" group="float"/></feature>)"},
};

TargetDescription ParseFiles(const std::map<std::string, std::string>& Files) {
    TargetDescription D;
    std::string Error;
    const auto Include = [&](const std::string& Href) -> std::optional<std::string> {
        const auto It = Files.find(Href);
        return It == Files.end() ? std::nullopt : std::optional<std::string>(It->second);
    };
    EXPECT_TRUE(D.Parse(Files.at("target.xml"), Include, Error)) << Error;
    return D;
}

} // namespace

TEST(TargetDescription, NumbersRegistersAcrossIncludes) {
    TargetDescription D = ParseFiles(QemuFiles);
    EXPECT_EQ(D.Architecture(), "arm");
    ASSERT_EQ(D.Registers().size(), 20u);
    EXPECT_EQ(D.Find("r0")->Number, 0);
    EXPECT_EQ(D.Find("pc")->Number, 15);
    EXPECT_EQ(D.Find("xpsr")->Number, 25);
    EXPECT_EQ(D.Find("d0")->Number, 26) << "numbering goes on after an explicit regnum";
    EXPECT_EQ(D.Find("fpscr")->Number, 28);
    EXPECT_EQ(D.Find("d1")->Feature, "org.gnu.gdb.arm.vfp");
    EXPECT_EQ(D.Find("XPSR"), D.Find("xpsr")) << "names compare without case";
    EXPECT_EQ(D.Find("bogus"), nullptr) << "comments are skipped";
}

TEST(TargetDescription, LaysOutTheGPacketInNumberOrder) {
    TargetDescription D = ParseFiles(QemuFiles);
    D.LayoutG(17 * 4); // QEMU's g reply: r0-r15 and xpsr
    EXPECT_EQ(D.Find("r1")->GOffset, 4);
    EXPECT_EQ(D.Find("pc")->GOffset, 60);
    EXPECT_EQ(D.Find("xpsr")->GOffset, 64) << "no room for the numbers 16 to 24 that don't exist";
    EXPECT_EQ(D.Find("d0")->GOffset, -1) << "beyond the g reply: read with p";
}

TEST(TargetDescription, RejectsMalformedDocuments) {
    TargetDescription D;
    std::string Error;
    const auto None = [](const std::string&) { return std::optional<std::string>(); };
    EXPECT_FALSE(D.Parse("<target><reg name=\"r0\"", None, Error));
    EXPECT_FALSE(D.Parse("<target><reg name=\"r0\"/></target>", None, Error)) << "no bitsize";
    EXPECT_FALSE(D.Parse("<target><xi:include href=\"missing.xml\"/></target>", None, Error));
    EXPECT_NE(Error.find("missing.xml"), std::string::npos);
    EXPECT_FALSE(D.Parse("<target><reg name=r0 bitsize=32/></target>", None, Error)) << "unquoted attributes";
    // A document that includes itself must end.
    const auto Self = [](const std::string&) {
        return std::optional<std::string>("<target><xi:include href=\"self.xml\"/></target>");
    };
    EXPECT_FALSE(D.Parse("<target><xi:include href=\"self.xml\"/></target>", Self, Error));
}

TEST(RegisterMap, MapsIndicesByNameWhateverTheNumbers) {
    // A server with its own numbering, capital letters and single-precision registers.
    const std::map<std::string, std::string> Files = {{"target.xml", R"(<target><feature name="core">
            <reg name="r0" bitsize="32" regnum="7"/><reg name="r13" bitsize="32" regnum="20"/>
            <reg name="r15" bitsize="32"/><reg name="xPSR" bitsize="32"/>
            <reg name="MSP" bitsize="32" regnum="40"/><reg name="primask" bitsize="8"/>
            <reg name="s0" bitsize="32" regnum="60"/><reg name="s1" bitsize="32"/></feature></target>)"}};
    TargetDescription D = ParseFiles(Files);
    RegisterMap M;
    M.Build(D);
    EXPECT_EQ(M.Slot(TARVO_REG_R0).Info->Number, 7);
    EXPECT_EQ(M.Slot(TARVO_REG_SP).Info->Number, 20) << "sp goes by r13 too";
    EXPECT_EQ(M.Slot(TARVO_REG_PC).Info->Number, 21);
    EXPECT_EQ(M.Slot(TARVO_REG_XPSR).Info->Number, 22);
    EXPECT_EQ(M.Slot(TARVO_REG_MSP).Info->Number, 40);
    EXPECT_EQ(M.Slot(TARVO_REG_PRIMASK).Info->BitSize, 8);
    EXPECT_EQ(M.Slot(TARVO_REG_S0 + 1).Info->Number, 61);
    EXPECT_FALSE(M.Has(TARVO_REG_R0 + 1));
    EXPECT_FALSE(M.Has(TARVO_REG_PSP));
    EXPECT_FALSE(M.Has(TARVO_REG_COUNT)) << "indices past the end are missing, not out of bounds";
}

TEST(RegisterMap, FindsSinglesInsideDoubles) {
    TargetDescription D = ParseFiles(QemuFiles);
    RegisterMap M;
    M.Build(D);
    const RegisterSlot& S3 = M.Slot(TARVO_REG_S0 + 3);
    ASSERT_EQ(S3.How, RegisterSlot::Kind::HalfOfDouble);
    EXPECT_EQ(S3.Info->Name, "d1");
    EXPECT_EQ(S3.Half, 1);
    EXPECT_EQ(M.Slot(TARVO_REG_S0 + 2).Half, 0);
    EXPECT_FALSE(M.Has(TARVO_REG_S0 + 4)) << "d2 isn't there";
    EXPECT_FALSE(M.Has(TARVO_REG_MSP)) << "QEMU doesn't describe it";
    EXPECT_STREQ(RegisterMap::Name(TARVO_REG_FAULTMASK), "faultmask");
    EXPECT_STREQ(RegisterMap::Name(24), "");
}

TEST(StopReply, ParsesTheKindsOfStop) {
    auto R = ParseStopReply("T05thread:p01.01;watch:20000020;");
    ASSERT_TRUE(R);
    EXPECT_EQ(R->Signal, 5);
    EXPECT_TRUE(R->IsWatchpoint());
    EXPECT_EQ(R->DataAddress, 0x20000020u);
    R = ParseStopReply("T0b0f:00010000;0d:f0ff0020;hwbreak:;");
    ASSERT_TRUE(R);
    EXPECT_EQ(R->Signal, 11);
    EXPECT_EQ(R->Reason, "hwbreak");
    ASSERT_EQ(R->Registers.size(), 2u);
    EXPECT_EQ(R->Registers[0].first, 15);
    EXPECT_EQ(R->Registers[1].second, "f0ff0020");
    R = ParseStopReply("S02");
    ASSERT_TRUE(R);
    EXPECT_EQ(R->Signal, 2);
    EXPECT_FALSE(R->Exited());
    EXPECT_TRUE(ParseStopReply("W00")->Exited());
    EXPECT_TRUE(ParseStopReply("X09")->Exited());
    EXPECT_FALSE(ParseStopReply("OK"));
    EXPECT_FALSE(ParseStopReply("T"));
    EXPECT_FALSE(ParseStopReply("Tzz"));
}

TEST(QmpMemoryDump, ParsesWordsAndBytesUpToTheFirstFailure) {
    uint8_t Out[16] = {};
    const std::string Words = "0000000020000000: 0x11223344 0x55667788\r\n0000000020000008: 0xaabbccdd\r\n";
    ASSERT_EQ(ParseMemoryDump(Words, 4, Out, 12), 12u);
    EXPECT_EQ(Out[0], 0x44) << "words become little-endian bytes";
    EXPECT_EQ(Out[3], 0x11);
    EXPECT_EQ(Out[8], 0xdd);
    const std::string Bytes = "0000000020000001: 0x01 0x02 0x03\r\n";
    ASSERT_EQ(ParseMemoryDump(Bytes, 1, Out, 3), 3u);
    EXPECT_EQ(Out[2], 0x03);
    EXPECT_EQ(ParseMemoryDump("0000000030000000: Cannot access memory\r\n", 4, Out, 4), 0u);
    EXPECT_EQ(ParseMemoryDump(Words + "0000000020000010: Cannot access memory\r\n", 4, Out, 16), 12u);
    EXPECT_EQ(ParseMemoryDump("unexpected", 1, Out, 4), 0u);
}
