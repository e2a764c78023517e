#pragma once

/* Core identifiers of the device table. The top byte is the core family, which chooses the core plug-in:
 * families 3, 6 to 12, 14 and 15 are ARM, 19 is RISC-V. The lower bytes tell the cores of a family apart. */

#define TARVO_CORE_FAMILY(Core) (((Core) >> 24) & 0xFFu)

#define TARVO_CORE_CORTEX_M3 0x03000000u  /* ARMv7-M */
#define TARVO_CORE_CORTEX_M0 0x06000000u  /* ARMv6-M */
#define TARVO_CORE_CORTEX_M0P 0x06000100u /* ARMv6-M */
#define TARVO_CORE_CORTEX_M23 0x06000200u /* ARMv8-M baseline */
#define TARVO_CORE_CORTEX_M4 0x0E000000u  /* ARMv7E-M */
#define TARVO_CORE_CORTEX_M7 0x0E000100u  /* ARMv7E-M */
#define TARVO_CORE_CORTEX_M33 0x0E000200u /* ARMv8-M mainline */
#define TARVO_CORE_RISCV32 0x13000000u
