/* Semihosting calls through bkpt 0xAB: the debugger serves them. */
#pragma once

#include <stdint.h>

int32_t SemihostCall(int32_t Op, void* Arg);
/* SYS_WRITE0: a zero-terminated text on the debugger's terminal. */
void SemihostWrite0(const char* Text);
