#include "app/core/Settings.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

class SettingsTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(m_Dir.isValid());
        m_Old = qgetenv("XDG_CONFIG_HOME");
        qputenv("XDG_CONFIG_HOME", m_Dir.path().toUtf8());
        Settings::Map().clear();
    }
    void TearDown() override {
        qputenv("XDG_CONFIG_HOME", m_Old);
        Settings::Map().clear();
    }
    QTemporaryDir m_Dir;
    QByteArray m_Old;
};

TEST_F(SettingsTest, TheStoreHoldsExactlyTheMap) {
    EXPECT_TRUE(Settings::StorePath().startsWith(m_Dir.path()));
    Settings::SetValue("AppData/MainWindow/Old", 1);
    Settings::SetValue("AppData/RemovedFeature/Key", 2);
    Settings::SetValue("AppData/MainWindow/RecentProjects", QStringList({"/a.tvproj", "/b.tvproj"}));
    ASSERT_TRUE(Settings::Save());

    Settings::Load();
    EXPECT_EQ(Settings::Value("AppData/MainWindow/Old").toInt(), 1);
    EXPECT_EQ(Settings::Value("AppData/MainWindow/RecentProjects").toStringList().size(), 2);
    EXPECT_FALSE(Settings::Map().contains("AppData/RemovedFeature/Key"))
        << "another version's key is not taken";

    Settings::Remove("AppData/MainWindow/Old");
    ASSERT_TRUE(Settings::Save());
    Settings::Load();
    EXPECT_FALSE(Settings::Map().contains("AppData/MainWindow/Old")) << "stale keys vanish at the next write";
    EXPECT_TRUE(Settings::Map().contains("AppData/MainWindow/RecentProjects"));
}

TEST_F(SettingsTest, JunkInTheStoreIsKeptAsideAndIgnored) {
    const QString Path = Settings::StorePath();
    QDir().mkpath(QFileInfo(Path).absolutePath());
    QFile F(Path);
    ASSERT_TRUE(F.open(QIODevice::WriteOnly));
    QByteArray Junk;
    for (int i = 0; i < 4096; ++i) {
        Junk.append(static_cast<char>((i * 7919) & 0xFF));
    }
    F.write("[AppData\n=\\x\n" + Junk);
    F.close();
    Settings::Load();
    Settings::SetValue("AppData/MainWindow/Version", "V2.60h");
    EXPECT_TRUE(Settings::Save());
    EXPECT_TRUE(QFile::exists(Path + ".bad") || Settings::Map().size() == 1)
        << "an unreadable store is kept aside, never silently lost";
    Settings::Load();
    EXPECT_EQ(Settings::Value("AppData/MainWindow/Version").toString(), "V2.60h");
}

} // namespace
