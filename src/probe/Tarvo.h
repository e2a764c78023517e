#pragma once

/* The C interface of the probe library (libtarvo.so). The debugger calls it only from the device thread,
 * apart from the few calls that may cross threads; the library itself takes calls from any thread without
 * outside locking, and its text callbacks may fire on any thread at any time. Return conventions are
 * given beside each function. */

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint8_t U8;
typedef uint16_t U16;
typedef uint32_t U32;
typedef uint64_t U64;
typedef int8_t I8;
typedef int16_t I16;
typedef int32_t I32;
typedef int64_t I64;

/* ---------- records ---------- */
typedef void (*TARVO_LOG_FUNC)(const char* sText); /* info / error / warning text callbacks */

typedef struct {
    U32 Size;
    U32 Handle;
    U32 Reserved0;
    U32 Reserved1;
    U32 ImplFlags;
    U32 Reserved2[2];
} TARVO_BP_INFO; /* 28 bytes; ImplFlags b4 flash b1 RAM b0 hard b2 pending */
typedef struct {
    U32 Size /*28*/;
    U32 Type /*1*/;
    U32 Addr;
    U32 AddrMask;
    U32 Data;
    U32 DataMask;
    U8 Access;
    U8 AccessMask;
    U8 Reserved[2];
} TARVO_DATA_EVENT; /* 28 bytes */
typedef struct {
    U32 Size /*40*/;
    U32 Handle;
    U32 Addr;
    U32 AddrMask;
    U32 Data;
    U32 DataMask;
    U32 Access;
    U32 AccessMask;
    U32 Reserved[2];
} TARVO_DATA_EVENT_INFO; /* 40 bytes */
typedef struct {
    U32 Size /*40*/;
    U8 Type /*0*/;
    U8 Op /*0 start,1 stop*/;
    U8 Reserved[2];
    U64 Addr;
    U8 Zero[24];
} TARVO_TRACE_EVENT; /* 40 bytes */
typedef struct {
    U64 Cycle;
    U32 Index;
    U32 Pad;
} TARVO_STRACE_TIMESTAMP_INFO;      /* 16 bytes */
typedef U64 TARVO_STRACE_INST_STAT; /* 8 bytes: one counter */
typedef struct {
    U32 Addr;
    U32 Size;
    U32 Zero0;
    U32 Zero1;
} TARVO_HSS_MEM_BLOCK; /* 16 bytes, max 511 */
typedef struct {
    U32 Size /*24*/;
    U32 ChannelMask;
    U32 SampleFreq;
    U32 Arg3 /*2*/;
    U32 Arg4 /*1*/;
    U32 Flags /*2 = time stamps*/;
} TARVO_POWERTRACE_SETUP; /* 24 bytes */
typedef struct {
    U32 Size /*12*/;
    U32 ChannelMask;
    U32 Flags;
} TARVO_POWERTRACE_CAPS; /* 12 bytes */
typedef struct {
    const char* sName;
    U8 Rest[32];
} TARVO_MEM_ZONE; /* 40 bytes (x64) */
typedef struct {  /* 2392 bytes (x64) */
    U32 SizeOfStruct;
    U32 Pad0;
    const char* sName;
    U32 Pad1;
    U32 FlashAddr;
    U32 RAMAddr;
    U32 Pad2;
    U32 FlashSize;
    U32 RAMSize;
    const char* sManu;
    U8 Pad3[512];
    U32 Core;
    U8 Rest[1828];
} TARVO_DEVICE_INFO; /* offsets 0,8,20,24,32,36,40,560 */

/* The emulated probe on the USB interface answers to this serial number (TARVOARM_EMU_SelectByUSBSN). */
#define TARVO_EMU_SERIAL_NO 62200001u

/* ---------- session / connection ---------- */
U32 TARVOARM_GetDLLVersion(void);                   /* version number: 62200 */
int TARVOARM_SelectIP(const char* sHost, int Port); /* "host" or "host:port" (3333 when none); a Port
                                                       above 0 overrides; 1 = failure */
int TARVOARM_SelectUSB(int Port);                   /* <0 = failure */
int TARVOARM_EMU_SelectByUSBSN(U32 SerialNo);       /* <0 = not found */
void TARVOARM_EnableLog(TARVO_LOG_FUNC f);          /* result unused */
void TARVOARM_SetErrorOutHandler(TARVO_LOG_FUNC f); /* result unused */
void TARVOARM_SetWarnOutHandler(TARVO_LOG_FUNC f);  /* result unused */
const char* TARVOARM_Open(void);                    /* NULL on success, else error text */
char TARVOARM_IsOpen(void);                         /* 0 = not open */
void TARVOARM_Close(void);                          /* no result */
U32 TARVOARM_GetSN(void);                           /* probe serial number */
int TARVOARM_GetFirmwareString(char* s, int Size);  /* text in s (cut to Size); the text's length */
int TARVOARM_ExecCommand(const char* sCmd, char* sAnswer,
                         int AnswerSize);      /* "name=value" or "name value"; empty answer and 0 = ok, else
                                                  the error text and -1. Beside the commands the debugger
                                                  sends: "QemuPath=<path>", "QemuArgs=<arguments>" (extra
                                                  arguments of the emulated board), "Timeout=<ms>" (reply
                                                  time-out of a GDB server), "InvalidateCache" (registers
                                                  changed behind the library's back), "monitor <command>"
                                                  (the GDB server's monitor; its output goes to the log) */
int TARVOARM_SetEndian(int BigEndian);         /* result unused */
int TARVOARM_SetCoreIndex(U32 Index);          /* result unused */
int TARVOARM_TIF_Select(int Interface);        /* 0 JTAG,1 SWD,3 FINE,7 cJTAG; result unused */
int TARVOARM_ConfigJTAG(int IRPre, int DRPre); /* result unused */
void TARVOARM_SetSpeed(U32 kHz);               /* 0 = max, 65535 = adaptive */
U32 TARVOARM_GetSpeed(void);                   /* low 16 bits kHz; 0 max, 65535 adaptive */
int TARVOARM_Connect(void);                    /* 0 on success */
char TARVOARM_IsConnected(void);               /* non-zero while connected */
int TARVOARM_EnableSoftBPs(char Enable);       /* result unused; called with 1 */
void TARVOARM_SetLogFile(const char* sPath);   /* no result */
int TARVOARM_EMU_HasCapEx(int Cap);            /* 0 = capability missing (23 = SWO) */
int TARVO_GetMemZones(TARVO_MEM_ZONE* Zones, int MaxZones); /* number of zones filled: one, "Default",
                                                               the target's memory; zoned calls take
                                                               it or a null zone, others fail */
void* TARVO_GetpFunc(U32 Index);                            /* NULL = not available */
/* GetpFunc(12): int (*)(void)            -> <0 unknown, else b1 data endian, b0 instr endian (signature)
   GetpFunc(10): int (*)(void)            -> 0 no BMA, 1 yes, 2 stop-mode emulation      (signature)
   GetpFunc(33): int (*)(void* p,int sz)  -> fills {U32 size 8, U32 port}: port 0, no web server;
                                             0 ok, -1 when sz < 8
   GetpFunc(40): void (*)(void)           -> any thread, no lock: a TARVOARM_Connect under way on
                                             another thread fails without an error text, at once or
                                             when its TCP connection attempt times out */
#define TARVO_PFUNC_CANCEL_CONNECT 40u

/* ---------- run control ---------- */
int TARVOARM_IsHalted(void);                     /* >=1 halted, 0 running, <0 connection lost; a halted
                                                    target isn't asked, but a GDB server that closed the
                                                    connection shows at once */
int TARVOARM_Halt(void);                         /* 0 on success */
void TARVOARM_GoEx(U32 MaxEmulInsts, U32 Flags); /* called (0,1): MaxEmulInsts 0 = no limit (ignored);
                                                   Flags TARVO_GO_OVERSTEP_BP: a breakpoint at the PC
                                                   doesn't stop the target at once */
#define TARVO_GO_OVERSTEP_BP 1u
int TARVOARM_Step(void);                /* 0 on success */
void TARVOARM_SetResetType(int Type);   /* called with 0 */
void TARVOARM_SetResetDelay(int Delay); /* called with 0 */
int TARVOARM_Reset(void);               /* 0 on success; a GDB server resets through its monitor
                                           ("reset halt", QEMU's "system_reset"), or by SYSRESETREQ */

/* ---------- memory ---------- */
int TARVOARM_ReadMemU8(U32 Addr, U32 NumItems, U8* pData, U8* pStatus);   /* items read */
int TARVOARM_ReadMemU16(U32 Addr, U32 NumItems, U16* pData, U8* pStatus); /* items read */
int TARVOARM_ReadMemU32(U32 Addr, U32 NumItems, U32* pData,
                        U8* pStatus); /* items read (must equal NumItems) */
int TARVOARM_ReadMemU64(U32 Addr, U32 NumItems, U64* pData, U8* pStatus); /* items read */
int TARVOARM_ReadMemEx(U32 Addr, U32 NumBytes, void* pData, U32 Width);   /* bytes read, <0 error (=0) */
int TARVOARM_WriteU8(U32 Addr, U8 Data);                                  /* 0 on success */
int TARVOARM_WriteU16(U32 Addr, U16 Data);                                /* 0 on success */
int TARVOARM_WriteU32(U32 Addr, U32 Data);                                /* 0 on success */
int TARVOARM_WriteU64(U32 Addr, U64 Data);                                /* 0 on success */
int TARVOARM_WriteMemEx(U32 Addr, U32 NumBytes, const void* pData,
                        U32 Width);                               /* bytes written, <0 error (=0) */
int TARVOARM_WriteMem(U32 Addr, U32 NumBytes, const void* pData); /* bytes written, <0 not connected */
int TARVO_ReadMemZonedEx(U32 Addr, U32 NumBytes, void* pData, U32 Width, const char* sZone); /* bytes read */
/* Zoned typed reads count in bytes, rounded up to whole items, and return bytes: (2 bytes) gives 2,
   (count 1 of U32) reads one word and gives 4. pStatus gets one byte per item. */
int TARVO_ReadMemZonedU16(U32 Addr, U32 NumItems, U16* pData, U8* pStatus, const char* sZone);
int TARVO_ReadMemZonedU32(U32 Addr, U32 NumItems, U32* pData, U8* pStatus, const char* sZone);
int TARVO_WriteMemZonedEx(U32 Addr, U32 NumBytes, const void* pData, U32 Width,
                          const char* sZone);                   /* bytes written */
int TARVO_WriteZonedU16(U32 Addr, U16 Data, const char* sZone); /* 0 on success */
int TARVO_WriteZonedU32(U32 Addr, U32 Data, const char* sZone); /* 0 on success */

/* ---------- core registers ----------
 * By the index below, the core plug-in's way to the registers: the library maps each index to the target's
 * own register numbers (a GDB server's target description, or the registers of the emulated board). */
enum TARVO_ARM_REGS {
    TARVO_REG_R0 = 0, /* R0 to R12 are 0 to 12 */
    TARVO_REG_SP = 13,
    TARVO_REG_LR = 14,
    TARVO_REG_PC = 15,
    TARVO_REG_XPSR = 16,
    TARVO_REG_MSP = 17,
    TARVO_REG_PSP = 18,
    TARVO_REG_PRIMASK = 19,
    TARVO_REG_BASEPRI = 20,
    TARVO_REG_FAULTMASK = 21,
    TARVO_REG_CONTROL = 22,
    TARVO_REG_FPSCR = 23,
    TARVO_REG_S0 = 32, /* S0 to S31 are 32 to 63 */
    TARVO_REG_COUNT = 64
};
int TARVOARM_ReadReg(U32 RegIndex, U64* pValue); /* 0 ok, <0 failure */
int TARVOARM_WriteReg(U32 RegIndex, U64 Value);  /* 0 ok, <0 failure */
int TARVOARM_ReadRegs(const U32* paRegIndex, U64* paValue, U8* paStatus,
                      U32 NumRegs); /* 0 when read at all (halted, connected), <0 otherwise;
                                       status 0 = read, 1 = this register isn't available */

/* ---------- breakpoints ---------- */
int TARVOARM_FindBP(U32 Addr);            /* handle, 0 = none */
int TARVOARM_SetBPEx(U32 Addr, U32 Type); /* handle, 0 = failure; the same handle for an address
                                             that has one. Type bits 0-3: the instruction's size in
                                             bytes (2 or 4; 0 = 2), the core plug-in's mode; bits 4-7
                                             allow a software, bits 8-31 a hardware breakpoint (a
                                             hardware one is tried first) */
int TARVOARM_ClrBPEx(int Handle);         /* 0 on success; -1 = all */
int TARVOARM_GetBPInfoEx(int Handle, TARVO_BP_INFO* pInfo); /* 0 ok, <0 unknown handle; Handle -1 gives
                                                              the count. Reserved0 = address,
                                                              Reserved1 = type as set */

/* ---------- data events ---------- */
int TARVOARM_SetDataEvent(TARVO_DATA_EVENT* pEvent, U32* pHandle); /* 0 ok, handle in *pHandle; <0 =
      0x80000000 | bits. Access bit 0 write, bits 1-2 width 2 or 4; AccessMask bit 0 either direction,
      bits 1-2 any width, bit 4 any privilege. AddrMask (set bits don't care) must cover 2^n bytes once
      widened to the width (bit 5 otherwise); DataMask must be all ones: no value condition (bit 6) */
int TARVOARM_ClrDataEvent(int Handle);                             /* 0 on success; -1 = all */
int TARVOARM_GetWPInfoEx(int Index, TARVO_DATA_EVENT_INFO* pInfo); /* Index -1: number of events;
                                                                     0..n-1: 0 and the event, with
                                                                     the widened mask; else -1 */

/* ---------- download ---------- */
int TARVOARM_BeginDownload(U32 Flags); /* called with 0; result unused */
int TARVOARM_EndDownload(void);        /* >=0 ok; -1 unspecified, -2 compare, -3 program/erase, -4 verify */

/* ---------- SWO, MCT, HSS, power trace, instruction trace ----------
   Channels of probe hardware that neither a GDB server nor the emulated board offers: every call fails
   the way its caller expects (HSS_Start -4, the others <0 or 0 bytes), and the calls that start a
   channel say why through the error callback. */
/* ---------- SWO ---------- */
int TARVOARM_SWO_DisableTarget(U32 PortMask);   /* <0 failure; all ones = all ports */
int TARVOARM_SWO_Control(U32 Cmd, void* pData); /* cmd 2 = discard (NULL all / &count); <0 failure */
int TARVOARM_SWO_EnableTarget(U32 CPUSpeed, U32 SWOSpeed, int Mode, U32 PortMask); /* <0 failure; Mode 0 */
int TARVOARM_SWO_GetCompatibleSpeeds(U32 CPUSpeed, U32 MaxSWOSpeed, U32* paSpeed,
                                     U32 NumEntries);             /* >0 entries */
int TARVOARM_SWO_ReadStimulus(U32 Port, U8* pData, U32 NumBytes); /* bytes read */

/* ---------- MCT terminal ---------- */
int TARVO_MCTERMINAL_Control(U32 Cmd, void* p);                     /* 0 start,1 stop; 0 on success */
int TARVO_MCTERMINAL_Read(U32 Channel, U8* pData, U32 Size);        /* bytes read, <0 failure */
int TARVO_MCTERMINAL_Write(U32 Channel, const U8* pData, U32 Size); /* bytes written, <0 failure */

/* ---------- HSS ---------- */
int TARVO_HSS_Start(TARVO_HSS_MEM_BLOCK* paBlock, int NumBlocks, int Period, int Flags); /* 0 ok; -1..-4 */
int TARVO_HSS_Stop(void);                                                                /* <0 failure */
int TARVO_HSS_Read(void* pBuffer, U32 BufferSize); /* bytes read, <0 failure */

/* ---------- power trace ---------- */
int TARVO_POWERTRACE_Control(
    int Cmd, void* pIn,
    void* pOut); /* 0 setup -> freq taken (<0 err); 1 start,2 stop,3 flush: <0 err; 4 caps */
int TARVO_POWERTRACE_Read(U64* paSample, U32 NumItems); /* samples read, <0 failure */

/* ---------- STRACE ---------- */
int TARVO_STRACE_Config(const char* sConfig);     /* "PortWidth=%d"; result unused */
int TARVO_STRACE_Start(void);                     /* <0 failure */
int TARVO_STRACE_Stop(void);                      /* result unused */
int TARVO_STRACE_Read(U32* paAddr, U32 NumItems); /* items read, <0 failure */
int TARVO_STRACE_ReadEx(U32* paAddr, U32 NumItems, TARVO_STRACE_TIMESTAMP_INFO* paStamp, int* pNumStamps,
                        int Flags); /* items read, <0 failure; Flags 0 */
int TARVO_STRACE_GetInstStats(void* paItem, U32 Addr, U32 NumItems, U32 ItemSize, U32 Type);
/* (buf, start, count, 8, 9): counters filled, <0 failure */
int TARVO_STRACE_Control(U32 Cmd, void* pData); /* 0 add TARVO_TRACE_EVENT, 2 clear all; 0 ok */

/* ---------- device table ---------- */
int TARVOARM_DEVICE_GetInfo(
    int Index, TARVO_DEVICE_INFO* pInfo);        /* (-1, NULL): number of devices; else 0 ok, <0 bad index;
                                                    fills no more than SizeOfStruct bytes (0: all) */
int TARVOARM_DEVICE_GetIndex(const char* sName); /* index, <0 unknown (0 treated as none) */
const char* TARVOARM_Core2CoreName(U32 Core);    /* the core's name, e.g. "Cortex-M4" */

#ifdef __cplusplus
}
#endif

#ifdef __cplusplus
static_assert(sizeof(TARVO_BP_INFO) == 28, "breakpoint information");
static_assert(sizeof(TARVO_DATA_EVENT) == 28, "data event");
static_assert(sizeof(TARVO_DATA_EVENT_INFO) == 40, "data event information");
static_assert(sizeof(TARVO_TRACE_EVENT) == 40, "trace event");
static_assert(sizeof(TARVO_STRACE_TIMESTAMP_INFO) == 16, "trace time stamp");
static_assert(sizeof(TARVO_HSS_MEM_BLOCK) == 16, "sampled memory block");
static_assert(sizeof(TARVO_POWERTRACE_SETUP) == 24, "power trace set-up");
static_assert(sizeof(TARVO_MEM_ZONE) == 40, "memory zone");
static_assert(sizeof(TARVO_DEVICE_INFO) == 2392, "device information");
static_assert(offsetof(TARVO_DEVICE_INFO, Core) == 560, "core identifier of a device");
#endif
