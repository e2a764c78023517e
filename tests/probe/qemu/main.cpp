// The probe library on the emulated board (qemu-system-arm), and against gdb-multiarch as the oracle.
#include <gtest/gtest.h>

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
