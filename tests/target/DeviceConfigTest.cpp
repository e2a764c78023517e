#include "target/DeviceConfig.h"

#include <QList>
#include <QPair>

#include <gtest/gtest.h>

namespace {

QList<QPair<int, I32>> s_Changes;

int LookupDevice(const char* Name) {
    return QByteArray(Name) == "STM32F407VG" ? 42 : -1;
}

class DeviceConfigTest : public ::testing::Test {
protected:
    void SetUp() override {
        s_Changes.clear();
        m_Config.SetDeviceIndexLookup(LookupDevice);
        m_Config.SetChangeListener([](int Param, I32 Value) { s_Changes.append({Param, Value}); });
    }
    CDeviceConfig m_Config;
};

TEST_F(DeviceConfigTest, Defaults) {
    EXPECT_EQ(m_Config.GetParam(DEVICE_INDEX), -1);
    EXPECT_EQ(m_Config.GetParam(HOST_IF), HOST_IF_USB);
    EXPECT_EQ(m_Config.GetParam(USE_MAX_SPEED), 1);
    EXPECT_EQ(m_Config.GetParam(CONFIG_UNUSED_13), 6);
    EXPECT_EQ(m_Config.GetParam(BREAK_SYMBOL_ADDR), -1);
    EXPECT_EQ(m_Config.GetText(HOST_NAME), CDeviceConfig::DEFAULT_HOST_NAME);
    EXPECT_TRUE(m_Config.GetText(DEVICE_NAME).isEmpty());
}

TEST_F(DeviceConfigTest, SpeedAndItsSwitchesAgree) {
    m_Config.SetParam(TIF_SPEED, 0);
    EXPECT_EQ(m_Config.GetParam(USE_MAX_SPEED), 1);
    EXPECT_EQ(m_Config.GetParam(USE_ADAPTIVE), 0);
    m_Config.SetParam(TIF_SPEED, 65535);
    EXPECT_EQ(m_Config.GetParam(USE_MAX_SPEED), 0);
    EXPECT_EQ(m_Config.GetParam(USE_ADAPTIVE), 1);
    m_Config.SetParam(TIF_SPEED, 4000000);
    EXPECT_EQ(m_Config.GetParam(USE_MAX_SPEED), 0);
    EXPECT_EQ(m_Config.GetParam(USE_ADAPTIVE), 0);
    m_Config.SetParam(USE_MAX_SPEED, 1);
    EXPECT_EQ(m_Config.GetParam(TIF_SPEED), 0);
    m_Config.SetParam(USE_ADAPTIVE, 1);
    EXPECT_EQ(m_Config.GetParam(TIF_SPEED), 65535);
}

TEST_F(DeviceConfigTest, UnknownParametersAreRefused) {
    EXPECT_EQ(m_Config.SetParam(17, 1), -1);
    EXPECT_EQ(m_Config.SetParam(-1, 1), -1);
    EXPECT_EQ(m_Config.SetText(17, "x"), -1);
    EXPECT_EQ(m_Config.SetText(HOST_IF, "x"), -1);
    EXPECT_EQ(m_Config.SetText(HOST_NAME, nullptr), -1);
    EXPECT_TRUE(s_Changes.isEmpty());
}

TEST_F(DeviceConfigTest, DeviceNamesMapToTheLibrarysIndex) {
    EXPECT_EQ(m_Config.SetText(DEVICE_NAME, "STM32F407VG"), 0);
    EXPECT_EQ(m_Config.GetParam(DEVICE_INDEX), 42);
    EXPECT_EQ(s_Changes, (QList<QPair<int, I32>>{{DEVICE_INDEX, 42}, {DEVICE_NAME, 0}}));
    m_Config.SetText(DEVICE_NAME, "Unknown Part");
    EXPECT_EQ(m_Config.GetParam(DEVICE_INDEX), -1) << "a device the library does not know leaves -1";
    EXPECT_EQ(m_Config.GetText(DEVICE_NAME), "Unknown Part");
    m_Config.SetText(DEVICE_NAME, "");
    EXPECT_EQ(m_Config.GetParam(DEVICE_INDEX), -1);
    const QByteArray Long(400, 'n');
    m_Config.SetText(DEVICE_NAME, Long.constData());
    EXPECT_EQ(m_Config.GetText(DEVICE_NAME).size(), 255) << "texts are cut to the field's size minus one";
}

TEST_F(DeviceConfigTest, SettingsTextRoundTrips) {
    m_Config.SetParam(HOST_IF, HOST_IF_IP);
    m_Config.SetText(HOST_NAME, "localhost:3333");
    m_Config.SetParam(TARGET_IF, TIF_SWD);
    m_Config.SetParam(TIF_SPEED, 4000000);
    m_Config.SetParam(CORE_INDEX, 26);
    m_Config.SetText(DEVICE_NAME, "My Board");
    const QString Text = m_Config.GetSettingsText();
    EXPECT_LE(Text.size(), 2047);
    EXPECT_TRUE(Text.contains("ConnectMode=\"0x2\"")) << Text.toStdString();
    EXPECT_TRUE(Text.contains("CoreIndex=\"0x1A\""));
    EXPECT_TRUE(Text.contains("Speed=\"4000\""));
    EXPECT_TRUE(Text.contains("<DeviceName>&quot;My Board&quot;</DeviceName>"))
        << "a name with a blank stands quoted";

    CDeviceConfig Other;
    EXPECT_GT(Other.Configure(Text), 0);
    EXPECT_EQ(Other.GetText(DEVICE_NAME), "My Board") << "and reads back unquoted";
    EXPECT_EQ(Other.GetParam(HOST_IF), HOST_IF_IP);
    EXPECT_EQ(Other.GetText(HOST_NAME), "localhost:3333");
    EXPECT_EQ(Other.GetParam(TIF_SPEED), 4000000);
    EXPECT_EQ(Other.GetParam(CORE_INDEX), 26);
    EXPECT_EQ(Other.GetSettingsText(), Text);
}

TEST_F(DeviceConfigTest, ConfigureReadsRootAttributesFirstAndRefusesJunk) {
    EXPECT_EQ(m_Config.Configure("<Other/>"), -1);
    EXPECT_EQ(m_Config.Configure("not xml at all <"), -1);
    EXPECT_EQ(m_Config.Configure(""), -1);
    EXPECT_EQ(m_Config.Configure("<TarvoSettings TargetIF=\"1\"><TargetInterface TargetIF=\"0\" Speed=\"0\"/>"
                                 "</TarvoSettings>"),
              2);
    EXPECT_EQ(m_Config.GetParam(TARGET_IF), 1);
    EXPECT_EQ(m_Config.GetParam(USE_MAX_SPEED), 1);
}

TEST_F(DeviceConfigTest, McTSearchRangesFillUp) {
    for (int i = 0; i < CDeviceConfig::MCT_RANGES_MAX; ++i) {
        ASSERT_TRUE(m_Config.AddMctSearchRange(0x20000000u + i * 0x100, 0x100));
    }
    EXPECT_FALSE(m_Config.AddMctSearchRange(0, 1));
    U32 Pairs[2 * CDeviceConfig::MCT_RANGES_MAX];
    EXPECT_EQ(m_Config.GetMctSearchRanges(Pairs, CDeviceConfig::MCT_RANGES_MAX),
              CDeviceConfig::MCT_RANGES_MAX);
    EXPECT_EQ(Pairs[2], 0x20000100u);
    m_Config.ClearMctSearchRanges();
    EXPECT_EQ(m_Config.GetMctSearchRanges(Pairs, CDeviceConfig::MCT_RANGES_MAX), 0);
}

} // namespace
