#include "app/core/Paths.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

class PathsTest : public ::testing::Test {
protected:
    void SetUp() override { Paths::SetInstallDirOverride("/opt/arnex"); }
    void TearDown() override {
        Paths::SetInstallDirOverride(QString());
        Paths::SetProjectFile(QString());
        Paths::SetProgramFile(QString());
    }
};

TEST_F(PathsTest, MacrosExpandWithTheirCase) {
    Paths::SetProjectFile("/home/u/proj/demo.tvproj");
    Paths::SetProgramFile("/home/u/build/app.elf");
    EXPECT_EQ(Paths::ExpandMacros("$(InstallDir)"), "/opt/arnex");
    EXPECT_EQ(Paths::ExpandMacros("$(ExecutableDir)/x"), "/opt/arnex/x");
    EXPECT_EQ(Paths::ExpandMacros("$(AppBundleDir)"), "/opt/arnex");
    EXPECT_EQ(Paths::ExpandMacros("$(ConfigDir)a.svd"), "/opt/arnex/Config/a.svd");
    EXPECT_EQ(Paths::ExpandMacros("$(LibraryDir)"), "/opt/arnex/Lib/");
    EXPECT_EQ(Paths::ExpandMacros("$(PluginDir)"), "/opt/arnex/Plugins/");
    EXPECT_EQ(Paths::ExpandMacros("$(DocDir)"), "/opt/arnex/Doc/");
    EXPECT_EQ(Paths::ExpandMacros("$(ProjectDir)/src"), "/home/u/proj/src");
    EXPECT_EQ(Paths::ExpandMacros("$(AppDir)"), "/home/u/build");
    EXPECT_EQ(Paths::ExpandMacros("$(projectdir)"), "$(projectdir)") << "names are compared with their case";
    EXPECT_EQ(Paths::ExpandPath("$(ConfigDir)/../Doc//x.pdf"), "/opt/arnex/Doc/x.pdf");
}

TEST_F(PathsTest, DefaultDirectoryBySuffix) {
    EXPECT_EQ(Paths::GetDefaultDir("STM32F4.svd"), "/opt/arnex/Config/Peripherals/");
    EXPECT_EQ(Paths::GetDefaultDir("map.XML"), "/opt/arnex/Config/Peripherals/");
    EXPECT_EQ(Paths::GetDefaultDir("manual.pdf"), "/opt/arnex/Doc/");
    EXPECT_EQ(Paths::GetDefaultDir("readme.txt"), "/opt/arnex/Doc/");
    EXPECT_EQ(Paths::GetDefaultDir("guide.html"), "/opt/arnex/Doc/");
    EXPECT_EQ(Paths::GetDefaultDir("plugin.so"), "/opt/arnex/Plugins/");
    EXPECT_EQ(Paths::GetDefaultDir("plugin.dll"), "/opt/arnex/Plugins/");
    EXPECT_EQ(Paths::GetDefaultDir("app.elf"), "/opt/arnex");

    QTemporaryDir Dir;
    ASSERT_TRUE(Dir.isValid());
    const QString File = Dir.filePath("real.svd");
    QFile F(File);
    ASSERT_TRUE(F.open(QIODevice::WriteOnly));
    F.close();
    EXPECT_EQ(Paths::GetDefaultDir(File), QDir(Dir.path()).canonicalPath())
        << "an existing file is its own place";
}

TEST(PathsInstall, InstallDirIsTheExecutablesCanonicalDirectory) {
    Paths::SetInstallDirOverride(QString());
    const QString Dir = Paths::GetInstallDir();
    EXPECT_FALSE(Dir.isEmpty());
    EXPECT_EQ(Dir, QDir(Dir).canonicalPath());
    EXPECT_EQ(Paths::GetCorePluginDir(), Dir + "/Plugins/Core/");
}

} // namespace

TEST(PathsPatterns, FileNamesMatchAnyPatternInAnyCase) {
    EXPECT_TRUE(Paths::MatchesAny("demo.ELF", "*.bin *.elf"));
    EXPECT_TRUE(Paths::MatchesAny("a.hex", "*.bin  *.hex")) << "a doubled blank is no empty pattern";
    EXPECT_FALSE(Paths::MatchesAny("", "*.bin  *.hex"));
    EXPECT_FALSE(Paths::MatchesAny("demo.elf.bak", "*.elf")) << "the whole name must match";
    EXPECT_FALSE(Paths::MatchesAny("demo.elf", ""));
}
