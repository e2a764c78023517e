#include "app/core/Version.h"

#include <gtest/gtest.h>

TEST(Version, PatchLetters) {
    EXPECT_EQ(Version::FormatVersion(2, 60, 8), "V2.60h");
    EXPECT_EQ(Version::GetVersionText(), "V2.60h");
    EXPECT_EQ(Version::FormatVersion(2, 5, 0), "V2.05");
    EXPECT_EQ(Version::FormatVersion(2, 5, -3), "V2.05");
    EXPECT_EQ(Version::FormatVersion(3, 0, 1), "V3.00a");
    EXPECT_EQ(Version::FormatVersion(3, 0, 26), "V3.00z");
    EXPECT_EQ(Version::FormatVersion(3, 0, 27), "V3.00z01");
    EXPECT_EQ(Version::FormatVersion(3, 0, 40), "V3.00z14");
}

TEST(Version, Names) {
    EXPECT_EQ(Version::GetAppName(), "Arnex");
    EXPECT_EQ(Version::GetAppName(true), "Arnex V2.60h");
    EXPECT_EQ(Version::GetAppName(false, true), "Arnex - The Tarvo Debugger");
    EXPECT_EQ(Version::GetBuildDate().size(), 10);
}
