// Window tests run offscreen: widgets without a display.
#include <QApplication>

#include <gtest/gtest.h>

int main(int argc, char** argv) {
    // Offscreen unless a platform was chosen, say a virtual display for screenshots.
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    QApplication App(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
