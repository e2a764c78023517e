#include "app/core/Preferences.h"
#include "app/core/Colors.h"
#include "app/core/Fonts.h"
#include "app/core/Settings.h"
#include "app/core/SysVars.h"

#include <QGuiApplication>
#include <QPalette>

#include <gtest/gtest.h>

namespace {

class PreferencesTest : public ::testing::Test {
protected:
    void SetUp() override {
        Settings::Map().clear();
        SysVars::ResetAll();
        Fonts::ResetAll();
        for (int Id = 0; Id < COLOR_COUNT; ++Id) {
            SetColorValue(Id, g_ColorInfo[Id].Value);
        }
    }
    void TearDown() override { SetUp(); }
};

TEST_F(PreferencesTest, StoredCopiesRoundTripThroughTheSettings) {
    SysVars::SetVarValue(SysVars::GetVarRow(PREF_MAX_SYMBOL_MEMBERS), 77, true);
    SysVars::SetVarValue(SysVars::GetVarRow(PREF_SHOW_TOOLTIPS), 0, false);
    SysVars::SetVarValue(SysVars::GetVarRow(PREF_MAX_POWER_SAMPLES), static_cast<I64>(0xFFFFFFFFFFFFFFF0ull),
                         true);
    Preferences::SavePreferences();
    EXPECT_EQ(Settings::Value("AppData/Preferences/Preferences/PREF_MAX_SYMBOL_MEMBERS").toString(), "77");
    EXPECT_EQ(Settings::Value("AppData/Preferences/Preferences/PREF_SHOW_TOOLTIPS").toString(), "1")
        << "a value set for the session only is not kept";
    EXPECT_FALSE(Settings::Map().contains("AppData/Preferences/Preferences/VAR_RESET_MODE"));

    SysVars::ResetAll();
    Preferences::LoadPreferences();
    EXPECT_EQ(SysVars::GetVarValue(PREF_MAX_SYMBOL_MEMBERS), 77);
    EXPECT_EQ(static_cast<U64>(SysVars::GetVarValue(PREF_MAX_POWER_SAMPLES)), 0xFFFFFFFFFFFFFFF0ull);
    EXPECT_TRUE(SysVars::IsVarSet(SysVars::GetVarRow(PREF_MAX_SYMBOL_MEMBERS)));
}

TEST_F(PreferencesTest, WrongTypesReadAsZeroAndAbsentKeysKeepDefaults) {
    Settings::SetValue("AppData/Preferences/Preferences/PREF_CALLSTACK_DEPTH_LIMIT", "lots");
    Preferences::LoadPreferences();
    EXPECT_EQ(SysVars::GetVarValue(PREF_CALLSTACK_DEPTH_LIMIT), 0);
    EXPECT_EQ(SysVars::GetVarValue(PREF_SHOW_TOOLTIPS), 1);
    EXPECT_FALSE(SysVars::IsVarSet(SysVars::GetVarRow(PREF_SHOW_TOOLTIPS)));
}

TEST_F(PreferencesTest, OnlyChosenColoursAndFontsAreKept) {
    SetColorValue(COLOR_LOGGING_ERROR, 0xFF00FF00);
    QFont Font = Fonts::GetFont(FONT_CONSOLE);
    Font.setPointSize(17);
    Fonts::SetFont(FONT_CONSOLE, Font);
    Settings::SetValue("AppData/Preferences/Colors/COLOR_PC_ACTIVE", "#123456");
    SetColorValue(COLOR_PC_ACTIVE, g_ColorInfo[COLOR_PC_ACTIVE].Value);
    Preferences::SaveColorsAndFonts();
    EXPECT_EQ(Settings::Value("AppData/Preferences/Colors/COLOR_LOGGING_ERROR").toString(), "#00ff00");
    EXPECT_FALSE(Settings::Map().contains("AppData/Preferences/Colors/COLOR_PC_ACTIVE"))
        << "a colour back at its default follows the default again";
    EXPECT_FALSE(Settings::Map().contains("AppData/Preferences/Colors/COLOR_LOGGING_USER"));
    EXPECT_TRUE(Settings::Map().contains("AppData/Preferences/Fonts/FONT_CONSOLE"));
    EXPECT_FALSE(Settings::Map().contains("AppData/Preferences/Fonts/FONT_APP"));

    SetUp();
    Settings::SetValue("AppData/Preferences/Colors/COLOR_LOGGING_ERROR", "#00ff00");
    Settings::SetValue("AppData/Preferences/Colors/COLOR_LOGGING_TARVO", "not a colour");
    Settings::SetValue("AppData/Preferences/Fonts/FONT_CONSOLE", Font.toString());
    Preferences::LoadColorsAndFonts();
    EXPECT_EQ(GetColor(COLOR_LOGGING_ERROR), QColor(0, 255, 0));
    EXPECT_EQ(GetColorValue(COLOR_LOGGING_TARVO), g_ColorInfo[COLOR_LOGGING_TARVO].Value);
    EXPECT_EQ(Fonts::GetFont(FONT_CONSOLE).pointSize(), 17);
}

TEST_F(PreferencesTest, SymbolicColoursFollowThePalette) {
    const QPalette Old = QGuiApplication::palette();
    QPalette Dark = Old;
    Dark.setColor(QPalette::Text, QColor(1, 2, 3));
    Dark.setColor(QPalette::Base, QColor(200, 100, 50));
    QGuiApplication::setPalette(Dark);
    EXPECT_EQ(GetColor(COLOR_LOGGING_USER), QColor(1, 2, 3));
    EXPECT_EQ(GetColor(COLOR_CHANGE_LEVEL_1_BG), QColor(200, 100, 50));
    EXPECT_EQ(GetColor(COLOR_TABLE_GRID_LINES), QColor(200, 100, 50).darker(140));
    EXPECT_EQ(GetColor(COLOR_LOGGING_ERROR), QColor(0xB2, 0x22, 0x22)) << "real colours stay";
    EXPECT_EQ(GetColor(99), QColor(Qt::black));
    QGuiApplication::setPalette(Old);
}

TEST_F(PreferencesTest, FontTable) {
    EXPECT_EQ(FONT_COUNT, 11);
    EXPECT_EQ(Fonts::FindFont("FONT_CONSOLE")->Id, FONT_CONSOLE);
    EXPECT_EQ(Fonts::FindFont("font_console"), nullptr);
    EXPECT_EQ(Fonts::GetFont(FONT_APP).pointSize(), 8);
    EXPECT_FALSE(Fonts::IsFontChosen(FONT_APP));
    EXPECT_FALSE(Fonts::SetFont(11, QFont()));
}

} // namespace
