/* An interrupt handler (SysTick), a busy counter and semihosting output. Before the counting starts,
 * the program sets BASEPRI and the process stack pointer to known values, so that the debugger's view
 * of the special registers can be checked. */
#include "semihost.h"

#include <stdint.h>

#define SYST_CSR (*(volatile uint32_t*)0xE000E010u)
#define SYST_RVR (*(volatile uint32_t*)0xE000E014u)
#define SYST_CVR (*(volatile uint32_t*)0xE000E018u)

volatile uint32_t g_Ticks;
volatile uint32_t g_Busy;
uint32_t g_ProcessStack[64];

void SysTick_Handler(void) {
    g_Ticks++;
}

__attribute__((noinline)) void Report(const char* Text) {
    SemihostWrite0(Text);
}

__attribute__((noinline)) void SetupSpecialRegisters(void) {
    uint32_t Value = 0x40;
    __asm__ volatile("msr basepri, %0" ::"r"(Value));
    uint32_t* Top = &g_ProcessStack[64];
    __asm__ volatile("msr psp, %0" ::"r"(Top));
}

__attribute__((noinline)) void StartTicks(void) {
    SYST_RVR = 10000 - 1;
    SYST_CVR = 0;
    SYST_CSR = 7; /* processor clock, interrupt, enable */
}

int main(void) {
    SetupSpecialRegisters();
    Report("irq: started\n");
    StartTicks();
    for (;;) {
        /* Keeps the stores above: without it they count as dead, since main never returns. */
        __asm__ volatile("" ::: "memory");
        g_Busy++;
    }
}
