// The session's controller without a display and without widgets: a plain application object.
#include "app/core/Check.h"

#include <QCoreApplication>

#include <gtest/gtest.h>

int main(int argc, char** argv) {
    QCoreApplication App(argc, argv);
    // A wrong transition or a call from the wrong thread ends the run, unless a test watches for it.
    Checks::SetAbortOnFailure(true);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
