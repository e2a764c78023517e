#include "app/core/Numbers.h"

#include <gtest/gtest.h>

TEST(Numbers, IntegersInTheUsualBases) {
    I64 V = 0;
    EXPECT_TRUE(Numbers::ParseInteger("42", V));
    EXPECT_EQ(V, 42);
    EXPECT_TRUE(Numbers::ParseInteger(" 0x2A ", V));
    EXPECT_EQ(V, 42);
    EXPECT_TRUE(Numbers::ParseInteger("0b101010", V));
    EXPECT_EQ(V, 42);
    EXPECT_TRUE(Numbers::ParseInteger("-0x10", V));
    EXPECT_EQ(V, -16);
    EXPECT_TRUE(Numbers::ParseInteger("010", V));
    EXPECT_EQ(V, 10) << "leading zeros are not octal";
    EXPECT_TRUE(Numbers::ParseInteger("0xFFFFFFFFFFFFFFFF", V));
    EXPECT_EQ(V, -1);
    EXPECT_FALSE(Numbers::ParseInteger("", V));
    EXPECT_FALSE(Numbers::ParseInteger("0x", V));
    EXPECT_FALSE(Numbers::ParseInteger("--1", V));
    EXPECT_FALSE(Numbers::ParseInteger("12abc", V));
    EXPECT_FALSE(Numbers::ParseInteger("0x1FFFFFFFFFFFFFFFF", V));
}

TEST(Numbers, HexAddresses) {
    U64 V = 0;
    EXPECT_TRUE(Numbers::ParseHex("20000000", V));
    EXPECT_EQ(V, 0x20000000u);
    EXPECT_TRUE(Numbers::ParseHex("0x8000", V));
    EXPECT_EQ(V, 0x8000u);
    EXPECT_FALSE(Numbers::ParseHex("0xZZ", V));
}

TEST(Numbers, Frequencies) {
    EXPECT_EQ(Numbers::ParseFrequency("4 MHz"), 4000000);
    EXPECT_EQ(Numbers::ParseFrequency("4mhz"), 4000000);
    EXPECT_EQ(Numbers::ParseFrequency("12.5 kHz"), 12500);
    EXPECT_EQ(Numbers::ParseFrequency("100 Hz"), 100);
    EXPECT_EQ(Numbers::ParseFrequency("1000"), 1000);
    EXPECT_EQ(Numbers::ParseFrequency("1 GHz"), 1000000000);
    EXPECT_EQ(Numbers::ParseFrequency("fast"), -1);
    EXPECT_EQ(Numbers::ParseFrequency("-5 kHz"), -1);
    EXPECT_EQ(Numbers::ParseFrequency(""), -1);

    EXPECT_EQ(Numbers::FormatFrequency(4000000), "4 MHz");
    EXPECT_EQ(Numbers::FormatFrequency(2000), "2 kHz");
    EXPECT_EQ(Numbers::FormatFrequency(2500), "2500 Hz");
    EXPECT_EQ(Numbers::FormatFrequency(0), "0 Hz");
}
