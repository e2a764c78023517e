// Target snapshots loaded into the fake target, against gdb-multiarch's answers on the same stop.
#include <gtest/gtest.h>

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
