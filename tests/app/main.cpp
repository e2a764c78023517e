// The application's tests run the main window offscreen with a settings folder of their own.
#include "app/core/Check.h"
#include "app/core/Paths.h"

#include <QApplication>
#include <QTemporaryDir>

#include <gtest/gtest.h>

int main(int argc, char** argv) {
    QTemporaryDir Config;
    qputenv("XDG_CONFIG_HOME", Config.path().toUtf8());
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication App(argc, argv);
    // The program's own directory holds the probe library and the core plug-ins; the tests find them there.
    if (qEnvironmentVariableIsSet("ARNEX_BIN_DIR")) {
        Paths::SetInstallDirOverride(qEnvironmentVariable("ARNEX_BIN_DIR"));
    }
    // A wrong step of the session or a call from the wrong thread ends the run.
    Checks::SetAbortOnFailure(true);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
