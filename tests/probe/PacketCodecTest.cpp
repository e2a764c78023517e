#include "probe/rsp/PacketCodec.h"
#include "probe/rsp/Hex.h"

#include <gtest/gtest.h>

using namespace tarvo::rsp;

namespace {

std::vector<PacketDecoder::Event> Decode(PacketDecoder& D, const std::string& Bytes) {
    D.Feed(Bytes.data(), Bytes.size());
    std::vector<PacketDecoder::Event> Out;
    PacketDecoder::Event E;
    while (D.Next(E)) {
        Out.push_back(E);
    }
    return Out;
}

std::string Framed(const std::string& Body) {
    std::string Out;
    AppendFrame(Out, Body);
    return Out;
}

} // namespace

TEST(PacketCodec, FramesWithModulo256Checksum) {
    EXPECT_EQ(Framed("OK"), "$OK#9a");
    EXPECT_EQ(Framed(""), "$#00");
    EXPECT_EQ(Framed("m20000000,4"), "$m20000000,4#4f");
    // The sum wraps: 0xff + 0x02 = 0x101.
    EXPECT_EQ(Checksum(std::string("\xff\x02", 2)), 0x01);
}

TEST(PacketCodec, EscapesAndUnescapesEveryReservedByte) {
    const std::vector<uint8_t> Bytes = {'$', '#', '}', '*', 0x00, 0x7d ^ 0x20, 'a'};
    std::string Escaped;
    AppendEscaped(Escaped, Bytes.data(), Bytes.size());
    EXPECT_EQ(Escaped.find_first_of("$#*"), std::string::npos);
    std::string Back;
    ASSERT_TRUE(Unescape(Escaped, Back));
    EXPECT_EQ(std::vector<uint8_t>(Back.begin(), Back.end()), Bytes);
    EXPECT_FALSE(Unescape("abc}", Back)) << "an escape at the very end has no byte to change";
}

TEST(PacketCodec, ExpandsRunLengthEncoding) {
    std::string Out;
    // '0' then '*' and ' ' (32 - 29 = 3 more copies).
    ASSERT_TRUE(ExpandRunLength("0* ", Out));
    EXPECT_EQ(Out, "0000");
    ASSERT_TRUE(ExpandRunLength("ab*\"c", Out)); // '"' is 34: five more b
    EXPECT_EQ(Out, "abbbbbbc");
    ASSERT_TRUE(ExpandRunLength("x*}y", Out)); // '}' is 125: 96 more
    EXPECT_EQ(Out, "x" + std::string(96, 'x') + "y");
    EXPECT_FALSE(ExpandRunLength("*3", Out)) << "nothing to repeat";
    EXPECT_FALSE(ExpandRunLength("a*", Out)) << "no count";
    EXPECT_FALSE(ExpandRunLength(std::string("a*\x01", 3), Out)) << "count not printable";
}

TEST(PacketDecoder, SeparatesAcksPacketsAndInterrupts) {
    PacketDecoder D;
    const auto Events = Decode(D, "+$OK#9a-\x03+");
    ASSERT_EQ(Events.size(), 5u);
    EXPECT_EQ(Events[0].Kind, PacketDecoder::EventKind::Ack);
    EXPECT_EQ(Events[1].Kind, PacketDecoder::EventKind::Packet);
    EXPECT_EQ(Events[1].Body, "OK");
    EXPECT_EQ(Events[2].Kind, PacketDecoder::EventKind::Nak);
    EXPECT_EQ(Events[3].Kind, PacketDecoder::EventKind::Interrupt);
    EXPECT_EQ(Events[4].Kind, PacketDecoder::EventKind::Ack);
}

TEST(PacketDecoder, AssemblesPacketsSplitAcrossReads) {
    PacketDecoder D;
    const std::string Whole = Framed("T05thread:p01.01;");
    std::vector<PacketDecoder::Event> Events;
    for (char C : Whole) {
        auto More = Decode(D, std::string(1, C));
        Events.insert(Events.end(), More.begin(), More.end());
    }
    ASSERT_EQ(Events.size(), 1u);
    EXPECT_EQ(Events[0].Body, "T05thread:p01.01;");
}

TEST(PacketDecoder, ExpandsRunLengthOnlyAfterTheChecksumMatches) {
    PacketDecoder D;
    const std::string Raw = "0*'"; // '\'' is 39: ten more
    const auto Events = Decode(D, Framed(Raw));
    ASSERT_EQ(Events.size(), 1u);
    EXPECT_EQ(Events[0].Kind, PacketDecoder::EventKind::Packet);
    EXPECT_EQ(Events[0].Body, std::string(11, '0'));
}

TEST(PacketDecoder, ReportsMalformedPacketsAndRecovers) {
    PacketDecoder D;
    auto Events = Decode(D, "$OK#00");
    ASSERT_EQ(Events.size(), 1u);
    EXPECT_EQ(Events[0].Kind, PacketDecoder::EventKind::BadPacket);
    EXPECT_NE(Events[0].Error.find("checksum"), std::string::npos);

    Events = Decode(D, "$OK#zz" + Framed("E01"));
    ASSERT_EQ(Events.size(), 2u);
    EXPECT_EQ(Events[0].Kind, PacketDecoder::EventKind::BadPacket);
    EXPECT_EQ(Events[1].Body, "E01");

    // A packet cut off by the start of the next one.
    Events = Decode(D, "$trunc" + Framed("OK"));
    ASSERT_EQ(Events.size(), 2u);
    EXPECT_EQ(Events[0].Kind, PacketDecoder::EventKind::BadPacket);
    EXPECT_EQ(Events[1].Body, "OK");

    Events = Decode(D, Framed("*5"));
    ASSERT_EQ(Events.size(), 1u);
    EXPECT_EQ(Events[0].Kind, PacketDecoder::EventKind::BadPacket)
        << "run-length code with nothing before it";

    // Bytes between packets are line noise.
    Events = Decode(D, "garbage\r\n" + Framed("OK"));
    ASSERT_EQ(Events.size(), 1u);
    EXPECT_EQ(Events[0].Body, "OK");
}

TEST(PacketDecoder, DropsOversizedPacketsWithoutGrowing) {
    PacketDecoder D(16);
    auto Events = Decode(D, "$" + std::string(100, 'a'));
    ASSERT_EQ(Events.size(), 1u);
    EXPECT_EQ(Events[0].Kind, PacketDecoder::EventKind::BadPacket);
    // The rest of the oversized packet, its checksum and a good packet after it.
    Events = Decode(D, std::string(50, 'b') + "#12" + Framed("OK"));
    ASSERT_EQ(Events.size(), 1u);
    EXPECT_EQ(Events[0].Body, "OK");
}

TEST(Hex, EncodesAndDecodes) {
    std::string Out;
    const uint8_t Bytes[] = {0x00, 0xab, 0xff};
    AppendHexBytes(Out, Bytes, 3);
    EXPECT_EQ(Out, "00abff");
    uint8_t Back[3];
    EXPECT_TRUE(DecodeHexBytes("00ABff", Back, 3));
    EXPECT_EQ(Back[1], 0xab);
    EXPECT_FALSE(DecodeHexBytes("0g", Back, 3));
    EXPECT_FALSE(DecodeHexBytes("abc", Back, 3));
    EXPECT_FALSE(DecodeHexBytes("00112233", Back, 3)) << "more bytes than room";
    EXPECT_EQ(ParseHexNumber("20000000"), 0x20000000u);
    EXPECT_FALSE(ParseHexNumber(""));
    EXPECT_FALSE(ParseHexNumber("12345678901234567"));
    Out.clear();
    AppendHexNumber(Out, 0);
    EXPECT_EQ(Out, "0");
}
