// The analysis tests run without a display: the core plug-in binding needs only Qt Core.
#include "app/core/Paths.h"

#include <QCoreApplication>

#include <gtest/gtest.h>

int main(int argc, char** argv) {
    QCoreApplication App(argc, argv);
    // The plug-ins live in Plugins/Core under the build's install directory.
    Paths::SetInstallDirOverride(qEnvironmentVariable("ARNEX_BIN_DIR"));
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
