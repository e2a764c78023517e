#include "semihost.h"

int32_t SemihostCall(int32_t Op, void* Arg) {
    register int32_t R0 __asm__("r0") = Op;
    register void* R1 __asm__("r1") = Arg;
    __asm__ volatile("bkpt 0xAB" : "+r"(R0) : "r"(R1) : "memory");
    return R0;
}

void SemihostWrite0(const char* Text) {
    SemihostCall(0x04, (void*)Text);
}
