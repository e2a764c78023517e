#include "app/core/ScriptConstants.h"

#include <gtest/gtest.h>

namespace {

TEST(ScriptConstants, BuiltInRowsInOrder) {
    ScriptConstants::ResetToBuiltIn();
    ASSERT_EQ(ScriptConstants::Count(), 117);
    EXPECT_EQ(ScriptConstants::At(0)->Name, "RM_RESET_HALT");
    EXPECT_EQ(ScriptConstants::At(116)->Name, "TIMESTAMP_FORMAT_TIME");
    EXPECT_EQ(ScriptConstants::At(117), nullptr);
}

TEST(ScriptConstants, LookUpByNameOrDisplayTextWithoutCase) {
    EXPECT_EQ(ScriptConstants::Lookup("rm_reset_and_run")->Value, 2);
    EXPECT_EQ(ScriptConstants::Lookup("\"Reset & Run\"")->Name, "RM_RESET_AND_RUN");
    EXPECT_EQ(ScriptConstants::Lookup("4 MHz")->Value, 4000000);
    EXPECT_EQ(ScriptConstants::Lookup("DISABLE_SAVE_ANY")->Value, 4294967295LL);
    EXPECT_EQ(ScriptConstants::Lookup("cjtag")->Value, 7);
    EXPECT_EQ(ScriptConstants::Lookup("yes")->Value, 1);
    EXPECT_EQ(ScriptConstants::Lookup("On")->Value, 1);
    EXPECT_EQ(ScriptConstants::Lookup("false")->Value, 0);
    EXPECT_EQ(ScriptConstants::Lookup("0x1")->DisplayText, "yes");
    EXPECT_EQ(ScriptConstants::Lookup("NOTHING"), nullptr);
    EXPECT_EQ(ScriptConstants::Lookup(""), nullptr);
}

TEST(ScriptConstants, OldSpellings) {
    EXPECT_EQ(ScriptConstants::Lookup("RM_BREAK_AT_MAIN")->Name, "RM_BREAK_AT_SYMBOL");
    EXPECT_EQ(ScriptConstants::Lookup("aw_auto")->Name, "AW_ANY");
    EXPECT_EQ(ScriptConstants::OldSpelling("AW_ANY"), "AW_AUTO");
    EXPECT_TRUE(ScriptConstants::OldSpelling("AW_BYTE").isEmpty());
}

TEST(ScriptConstants, ConstantOrNumber) {
    EXPECT_EQ(ScriptConstants::ParseConstantOrNumber("CM_ATTACH_HALT"), 2);
    EXPECT_EQ(ScriptConstants::ParseConstantOrNumber("0x40"), 64);
    EXPECT_EQ(ScriptConstants::ParseConstantOrNumber("\"17\""), 17);
    EXPECT_EQ(ScriptConstants::ParseConstantOrNumber("garbage"), -1);
}

TEST(ScriptConstants, DefinedRowsCanBeAddedAndDropped) {
    ScriptConstants::ResetToBuiltIn();
    EXPECT_EQ(ScriptConstants::Add(0x20000000, "RAM_BASE", "RAM_BASE"), 117);
    EXPECT_EQ(ScriptConstants::Lookup("ram_base")->Value, 0x20000000);
    ScriptConstants::ResetToBuiltIn();
    EXPECT_EQ(ScriptConstants::Lookup("RAM_BASE"), nullptr);
}

} // namespace
