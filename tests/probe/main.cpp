// The probe library's unit tests: no display, no QEMU; the GDB server is a mock on a thread.
#include <gtest/gtest.h>

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
