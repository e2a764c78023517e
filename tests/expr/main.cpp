// The expression tests run without a display.
#include "app/core/Paths.h"

#include <QCoreApplication>

#include <gtest/gtest.h>

int main(int argc, char** argv) {
    QCoreApplication App(argc, argv);
    // Config/ and Plugins/Core live under the build's install directory.
    Paths::SetInstallDirOverride(qEnvironmentVariable("ARNEX_BIN_DIR"));
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
