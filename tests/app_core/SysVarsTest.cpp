#include "app/core/SysVars.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

class SysVarsTest : public ::testing::Test {
protected:
    void SetUp() override { SysVars::ResetAll(); }
    void TearDown() override { SysVars::ResetAll(); }
    static const SYSVAR_INFO* Row(I32 Id) { return SysVars::GetVarRow(Id); }
    static QString Text(I32 Id) {
        char Buffer[200];
        Row(Id)->Type->ToText(Row(Id), 0, Buffer, sizeof(Buffer));
        return QString::fromUtf8(Buffer);
    }
};

TEST_F(SysVarsTest, TableShape) {
    EXPECT_EQ(SYSVAR_COUNT, 84);
    EXPECT_EQ(Row(-1), nullptr);
    EXPECT_EQ(Row(84), nullptr);
    EXPECT_STREQ(Row(0)->Name, "VAR_RESET_MODE");
    EXPECT_STREQ(Row(32)->Name, "VAR_TRACE_CORE_CLOCK");
    EXPECT_STREQ(Row(33)->Name, "PREF_SHOW_EXPANSION_BAR");
    EXPECT_STREQ(Row(83)->Name, "PREF_BIN_BLOCK_SEPARATOR");
    QList<int> InEditor;
    for (I32 Id = 0; Id < SYSVAR_COUNT; ++Id) {
        EXPECT_EQ(SysVars::GetVarId(Row(Id)), Id);
        EXPECT_EQ(SysVars::FindVarByName(QLatin1String(Row(Id)->Name)), Row(Id));
        EXPECT_EQ(Row(Id)->HasStored, Id >= FIRST_PREFERENCE) << Id;
        if (Row(Id)->InEditor) {
            InEditor << Id;
        }
    }
    EXPECT_EQ(InEditor, QList<int>({9, 10, 11, 12, 15, 16, 17}));
    EXPECT_EQ(SysVars::FindVarByName("var_reset_mode"), nullptr) << "names are exact";
    EXPECT_STREQ(Row(VAR_RESET_MODE)->Type->TypeName(), "string selection");
    EXPECT_STREQ(Row(VAR_TIF_SCAN_CHAIN_LEN)->Type->TypeName(), "unsigned int");
    EXPECT_STREQ(Row(VAR_TRACE_PORT_DELAY_0)->Type->TypeName(), "signed int");
    EXPECT_STREQ(Row(VAR_SWO_SPEED)->Type->TypeName(), "unsigned int");
    EXPECT_STREQ(Row(VAR_BREAK_AT_THIS_SYMBOL)->Type->TypeName(), "string");
    EXPECT_STREQ(Row(VAR_TRACE_MAX_INST_CNT)->Type->TypeName(), "unsigned long long");
    EXPECT_EQ(Row(VAR_TRACE_MAX_INST_CNT)->Type->Width(Row(VAR_TRACE_MAX_INST_CNT)), 8);
    EXPECT_EQ(Row(VAR_RESET_MODE)->Type->Width(Row(VAR_RESET_MODE)), 4);
}

TEST_F(SysVarsTest, DefaultsAndTheirTexts) {
    EXPECT_EQ(SysVars::GetVarValue(VAR_RESET_MODE), 1);
    EXPECT_EQ(Text(VAR_RESET_MODE), "Reset & Break At Symbol");
    EXPECT_EQ(SysVars::GetVarString(Row(VAR_BREAK_AT_THIS_SYMBOL)), "main");
    EXPECT_EQ(SysVars::GetVarString(Row(VAR_MEM_ZONE_RUNNING)), "Default");
    EXPECT_EQ(Text(VAR_TRACE_PORT_DELAY_2), "2000");
    EXPECT_EQ(Text(VAR_TRACE_FILE_MAX_SIZE), "4000000000");
    EXPECT_EQ(Text(VAR_SWO_SPEED), "0 Hz");
    EXPECT_EQ(Text(VAR_TIF_SPEED), "Auto Speed");
    EXPECT_EQ(Text(VAR_HSS_SPEED), "1 kHz");
    EXPECT_EQ(Text(VAR_POWER_SAMPLING_SPEED), "10 kHz");
    EXPECT_EQ(Text(PREF_MAX_SYMBOL_MEMBERS), "512");
    EXPECT_EQ(Text(PREF_TERMINAL_EOL_FORMAT), "Unix format (LF)");
}

TEST_F(SysVarsTest, NumbersOutsideTheRangeAreKeptAndReported) {
    SysVars::SetVarValue(Row(VAR_TIF_SCAN_CHAIN_LEN), 2000000000, false);
    EXPECT_EQ(Text(VAR_TIF_SCAN_CHAIN_LEN), "Value 2000000000 is out of range (Min: 0, Max: 1000000000)");
    SysVars::SetVarValue(Row(VAR_TRACE_PORT_DELAY_0), -200000, false);
    EXPECT_EQ(SysVars::GetVarValue(VAR_TRACE_PORT_DELAY_0), -200000);
    EXPECT_EQ(Text(VAR_TRACE_PORT_DELAY_0), "Value -200000 is out of range (Min: -100000, Max: 100000)");
    SysVars::SetVarValue(Row(VAR_RESET_MODE), 7, false);
    EXPECT_EQ(Text(VAR_RESET_MODE), "7") << "a value that is no choice shows as the number";

    const SYSVAR_INFO Broken = {"X", "x", &SYSVAR_TYPE_UNSIGNED,   5, nullptr, true, false,
                                0,   "X", "SysVarMin=a,SysVarMax", 0};
    EXPECT_EQ(SysVars::GetVarText(&Broken, 5), QString()) << "a row outside the table has no text";
    char Buffer[64];
    Broken.Type->ToText(&Broken, 0, Buffer, sizeof(Buffer));
    EXPECT_STREQ(Buffer, "0 (Could not check range).");
    EXPECT_EQ(Broken.Type->ToValue(&Broken, 0, "1"), SYSVAR_ERR_UNREADABLE);
}

TEST_F(SysVarsTest, ToValueOfTheNumberTypes) {
    const SYSVAR_INFO* Len = Row(VAR_TIF_SCAN_CHAIN_LEN);
    EXPECT_EQ(Len->Type->ToValue(Len, 0, "-5"), SYSVAR_ERR_NEGATIVE);
    EXPECT_EQ(Len->Type->ToValue(Len, 0, "abc"), SYSVAR_ERR_UNREADABLE);
    EXPECT_EQ(Len->Type->ToValue(Len, 0, ""), SYSVAR_ERR_UNREADABLE);
    EXPECT_EQ(Len->Type->ToValue(Len, 0, "1000000001"), SYSVAR_ERR_OUT_OF_RANGE);
    EXPECT_EQ(SysVars::GetVarValue(Len), 0) << "a refused text leaves the value";
    EXPECT_FALSE(SysVars::IsVarSet(Len));
    EXPECT_EQ(Len->Type->ToValue(Len, 0, "   0x10"), 0);
    EXPECT_EQ(SysVars::GetVarValue(Len), 16);
    EXPECT_TRUE(SysVars::IsVarSet(Len));

    const SYSVAR_INFO* Delay = Row(VAR_TRACE_PORT_DELAY_1);
    EXPECT_EQ(Delay->Type->ToValue(Delay, 0, "-350"), 0);
    EXPECT_EQ(SysVars::GetVarValue(Delay), -350);
    EXPECT_EQ(Delay->Type->ToValue(Delay, 0, "-100001"), SYSVAR_ERR_OUT_OF_RANGE);

    const SYSVAR_INFO* Swo = Row(VAR_SWO_SPEED);
    EXPECT_EQ(Swo->Type->ToValue(Swo, 0, "6 MHz"), 0);
    EXPECT_EQ(SysVars::GetVarValue(Swo), 6000000);
    EXPECT_EQ(Swo->Type->ToValue(Swo, 0, "3 GHz"), SYSVAR_ERR_OUT_OF_RANGE);

    const SYSVAR_INFO* Width = Row(VAR_ACCESS_WIDTH);
    EXPECT_EQ(Width->Type->ToValue(Width, 0, "HalfWord"), 0);
    EXPECT_EQ(SysVars::GetVarValue(Width), 2);
    EXPECT_EQ(Width->Type->ToValue(Width, 0, "halfword"), SYSVAR_ERR_UNREADABLE) << "choices in exact case";
    EXPECT_EQ(Width->Type->ToValue(Width, 0, "3"), SYSVAR_ERR_UNREADABLE);

    const SYSVAR_INFO* Count = Row(VAR_TRACE_MAX_INST_CNT);
    EXPECT_EQ(Count->Type->ToValue(Count, 0, "0xFFFFFFFFFF"), 0);
    EXPECT_EQ(SysVars::GetVarValue(Count), 0xFFFFFFFFFFLL);

    const SYSVAR_INFO* Pref = Row(PREF_MAX_SYMBOL_MEMBERS);
    EXPECT_EQ(Pref->Type->ToValue(Pref, 1, "100"), 0);
    EXPECT_EQ(SysVars::GetVarStored(Pref), 100) << "flags of 1 keep the stored copy too";
    EXPECT_EQ(Pref->Type->ToValue(Pref, 0, "200"), 0);
    EXPECT_EQ(SysVars::GetVarStored(Pref), 100);
}

TEST_F(SysVarsTest, TextRows) {
    const SYSVAR_INFO* Symbol = Row(VAR_BREAK_AT_THIS_SYMBOL);
    EXPECT_EQ(SysVars::SetVarValue(Symbol, 1, false), -1) << "a number cannot go into a text row";
    EXPECT_EQ(SysVars::SetVarText(Symbol, "Reset_Handler", 0), 0);
    EXPECT_EQ(SysVars::GetVarText(Symbol), "Reset_Handler");
    EXPECT_TRUE(SysVars::IsVarChanged(Symbol));
    EXPECT_EQ(SysVars::SetVarText(Symbol, std::string(300, 'x').c_str(), 0), 0);
    EXPECT_EQ(SysVars::GetVarString(Symbol).size(), 99) << "the buffer holds 100 bytes with its terminator";
    EXPECT_EQ(SysVars::SetVarText(nullptr, "x", 0), -1);
    EXPECT_EQ(SysVars::SetVarText(Symbol, nullptr, 0), -1);
}

TEST_F(SysVarsTest, SetChangedAndShownValues) {
    const SYSVAR_INFO* Mode = Row(VAR_RESET_MODE);
    EXPECT_FALSE(SysVars::IsVarSet(Mode)) << "no setter touched it since the start";
    EXPECT_FALSE(SysVars::IsVarChanged(Mode));
    SysVars::SetVarValue(Mode, 1, false);
    EXPECT_TRUE(SysVars::IsVarSet(Mode)) << "set, even to the same value";
    EXPECT_FALSE(SysVars::IsVarChanged(Mode));
    EXPECT_EQ(SysVars::GetVarText(Mode, 2), "Reset & Run");
    EXPECT_EQ(SysVars::GetVarValue(Mode), 1) << "a shown value is not kept";
    EXPECT_EQ(SysVars::SetVarValue(nullptr, 1, false), -1);
    EXPECT_EQ(SysVars::GetVarValue(static_cast<const SYSVAR_INFO*>(nullptr), 42), 42);
    SysVars::ResetAll();
    EXPECT_FALSE(SysVars::IsVarSet(Mode));
}

TEST_F(SysVarsTest, RowsWithoutStorageAskTheDevice) {
    const SYSVAR_INFO* Speed = Row(VAR_TIF_SPEED);
    EXPECT_FALSE(SysVars::IsVarChanged(Speed));
    static I64 s_Device = 4000000;
    SysVars::SetDeviceConfigAccess([](I32) { return s_Device; }, [](I32, I64 V) { s_Device = V; });
    EXPECT_EQ(SysVars::GetVarText(Speed), "4 MHz");
    EXPECT_TRUE(SysVars::IsVarChanged(Speed)) << "without a default: any value but 0 is a change";
    SysVars::SetVarValue(Speed, 1000000, false);
    EXPECT_EQ(s_Device, 1000000);
    SysVars::SetDeviceConfigAccess(nullptr, nullptr);
}

TEST_F(SysVarsTest, ParsingTexts) {
    bool Ok = false;
    EXPECT_EQ(SysVars::ParseVarValue(Row(VAR_RESET_MODE), "Reset & Run", Ok), 2);
    EXPECT_TRUE(Ok);
    EXPECT_EQ(SysVars::ParseVarValue(Row(VAR_RESET_MODE), "RM_RESET_AND_RUN", Ok), 2);
    EXPECT_TRUE(Ok);
    EXPECT_EQ(SysVars::ParseVarValue(Row(VAR_RESET_MODE), "0x2", Ok), 2);
    EXPECT_EQ(SysVars::ParseVarValue(Row(VAR_VERIFY_DOWNLOAD), "OFF", Ok), 0);
    EXPECT_TRUE(Ok);
    EXPECT_EQ(SysVars::ParseVarValue(Row(VAR_SWO_SPEED), "2.5 MHz", Ok), 2500000);
    EXPECT_TRUE(Ok);
    SysVars::ParseVarValue(Row(VAR_SWO_SPEED), "quick", Ok);
    EXPECT_FALSE(Ok);
    I64 Min = 0;
    I64 Max = 0;
    EXPECT_TRUE(SysVars::GetVarRange(Row(VAR_TRACE_PORT_DELAY_0), Min, Max));
    EXPECT_EQ(Min, -100000);
    EXPECT_EQ(Max, 100000);
    EXPECT_FALSE(SysVars::GetVarRange(Row(VAR_RESET_MODE), Min, Max));
    QStringList Texts;
    QList<I64> Values;
    EXPECT_TRUE(SysVars::GetVarChoices(Row(VAR_TIF_SPEED), Texts, Values));
    EXPECT_EQ(Texts.size(), 21);
    EXPECT_EQ(Values[1], 0xFFFF);
    EXPECT_EQ(Texts.last(), "20 MHz");
    EXPECT_TRUE(SysVars::GetVarChoices(Row(VAR_POWER_SAMPLING_SPEED), Texts, Values));
    EXPECT_EQ(Values[Texts.indexOf("33.3 kHz")], 33333);
}

} // namespace
