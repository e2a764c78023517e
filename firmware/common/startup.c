/* Vector table and reset handler shared by the target programs: copies .data, clears .bss, runs main. */
#include <stdint.h>

extern uint32_t _stack_top, _data_load, _data_start, _data_end, _bss_start, _bss_end;
extern int main(void);

void Reset_Handler(void);
void Default_Handler(void);
void SysTick_Handler(void) __attribute__((weak, alias("Default_Handler")));
void HardFault_Handler(void) __attribute__((weak, alias("Default_Handler")));

__attribute__((section(".vectors"), used)) const void* const g_Vectors[16] = {
    &_stack_top,
    Reset_Handler,
    Default_Handler,
    HardFault_Handler,
    Default_Handler,
    Default_Handler,
    Default_Handler,
    0,
    0,
    0,
    0,
    Default_Handler,
    Default_Handler,
    0,
    Default_Handler,
    SysTick_Handler,
};

void Reset_Handler(void) {
    const uint32_t* Src = &_data_load;
    for (uint32_t* Dst = &_data_start; Dst < &_data_end;) {
        *Dst++ = *Src++;
    }
    for (uint32_t* Dst = &_bss_start; Dst < &_bss_end;) {
        *Dst++ = 0;
    }
    main();
    for (;;) {
    }
}

void Default_Handler(void) {
    for (;;) {
    }
}
