#include "app/core/CmdLineArgs.h"
#include "app/core/Paths.h"

#include <gtest/gtest.h>

namespace {

CCmdLineArgs Parse(const QStringList& Args) {
    CCmdLineArgs A;
    A.Parse(Args);
    return A;
}

TEST(CmdLineArgs, SelectTakesUsbOrIpWithOptionalIdent) {
    CCmdLineArgs A = Parse({"-select", "usb"});
    EXPECT_EQ(A.HostIF, "USB");
    EXPECT_TRUE(A.HostIdent.isEmpty());

    A = Parse({"-select", "USB=123"});
    EXPECT_EQ(A.HostIF, "USB");
    EXPECT_EQ(A.HostIdent, "123");

    A = Parse({"-select", "ip=10.0.0.7:2331"});
    EXPECT_EQ(A.HostIF, "IP");
    EXPECT_EQ(A.HostIdent, "10.0.0.7:2331");

    A = Parse({"-select", "serial"});
    EXPECT_TRUE(A.HostIF.isEmpty());
}

TEST(CmdLineArgs, ValueOptionNeedsANonOptionArgument) {
    CCmdLineArgs A = Parse({"-device", "STM32F407VG", "-device"});
    EXPECT_EQ(A.Device, "STM32F407VG") << "a trailing -device without value keeps what was set";

    A = Parse({"-device", "-if", "SWD"});
    EXPECT_TRUE(A.Device.isEmpty());
    EXPECT_EQ(A.TargetIF, "SWD");
}

TEST(CmdLineArgs, HyphensCaseQuotesAndBlanks) {
    CCmdLineArgs A = Parse({"---DEVICE", "\"STM32\" "});
    EXPECT_EQ(A.Device, "STM32");
    A = Parse({"--Speed", "  4000 "});
    EXPECT_EQ(A.Speed, "4000");
    A = Parse({"-jtagconfig", "\"-1,-1\""});
    EXPECT_EQ(A.JTAGConfig, "-1,-1") << "in quotes a value may begin with a hyphen";
}

TEST(CmdLineArgs, HostInterfaceWithoutIdent) {
    CCmdLineArgs A = Parse({"-usb"});
    EXPECT_EQ(A.HostIF, "USB");
    EXPECT_TRUE(A.HostIdent.isEmpty());

    A = Parse({"-ip", "1.2.3.4", "-usb"});
    EXPECT_EQ(A.HostIF, "USB");
    EXPECT_EQ(A.HostIdent, "1.2.3.4");
}

TEST(CmdLineArgs, PresetAndOrderDecideTheSpeed) {
    CCmdLineArgs A = Parse({"-vanta", "-speed", "4000"});
    EXPECT_EQ(A.Device, "MK66FN2M0XXX18");
    EXPECT_EQ(A.TargetIF, "SWD");
    EXPECT_EQ(A.Speed, "4000");

    A = Parse({"-speed", "4000", "-vanta"});
    EXPECT_EQ(A.Speed, "2000");
}

TEST(CmdLineArgs, UnknownOptionsAndPlainArgumentsAreSkipped) {
    CCmdLineArgs A = Parse({"demo.tvproj", "-frobnicate", "-debug", "x", "-device", "LPC1768"});
    EXPECT_TRUE(A.Debug);
    EXPECT_EQ(A.Device, "LPC1768");
    EXPECT_FALSE(A.IsAutomated());
}

TEST(CmdLineArgs, PathsAreExpandedAndCleaned) {
    Paths::SetInstallDirOverride("/opt/arnex");
    CCmdLineArgs A = Parse({"-project", "$(ConfigDir)../p/./x.tvproj", "-logfile", "/tmp//a/../arnex.log"});
    EXPECT_EQ(A.ProjectFile, "/opt/arnex/p/x.tvproj");
    EXPECT_EQ(A.LogFile, "/tmp/arnex.log");
    EXPECT_EQ(A.LogFileBytes, QByteArray("/tmp/arnex.log"));
    A = Parse({"-tarvoscriptfile", "$(ConfigDir)a.txt"});
    EXPECT_EQ(A.TarvoScriptFile, "$(ConfigDir)a.txt") << "the probe script path is taken as given";
    Paths::SetInstallDirOverride(QString());
}

TEST(CmdLineArgs, LogPathCopyIsCutAt511Bytes) {
    const QString Long = "/tmp/" + QString(600, 'x');
    CCmdLineArgs A = Parse({"-logfile", Long});
    EXPECT_EQ(A.LogFileBytes.size(), 511);
}

TEST(CmdLineArgs, ExecLinesKeepTheirQuotesAndOrder) {
    CCmdLineArgs A = Parse({"-exec", "Util.Log (\"a,b\")", "-EXEC", "File.Open \"x.elf\"", "-quit"});
    ASSERT_EQ(A.ExecLines.size(), 2);
    EXPECT_EQ(A.ExecLines[0], "Util.Log (\"a,b\")");
    EXPECT_EQ(A.ExecLines[1], "File.Open \"x.elf\"");
    EXPECT_TRUE(A.Quit);
    EXPECT_TRUE(A.IsAutomated());
}

TEST(CmdLineArgs, AbsurdCommandLinesDoNotHurt) {
    QStringList Args;
    for (int i = 0; i < 20000; ++i) {
        Args << "-"
             << "--"
             << "-device" << QString(1000, 'd') << "\""
             << "-select"
             << "=";
    }
    CCmdLineArgs A = Parse(Args);
    EXPECT_EQ(A.Device.size(), 1000);
}

} // namespace
