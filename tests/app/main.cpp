// The application's tests run the main window offscreen with a settings folder of their own.
#include <QApplication>
#include <QTemporaryDir>

#include <gtest/gtest.h>

int main(int argc, char** argv) {
    QTemporaryDir Config;
    qputenv("XDG_CONFIG_HOME", Config.path().toUtf8());
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication App(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
