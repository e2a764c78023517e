#pragma once

/* Interface between the debugger and a target core plug-in (CorePluginARM.so, CorePluginRISCV.so): the
 * four exports, the configuration record handed to Init and Reconfigure, the plug-in's table of 40 entries
 * and the debugger's table of 7 entries. Every plug-in entry but Init may be null; callers test it.
 * 0 is success unless an entry says otherwise. */

#include "probe/Tarvo.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct {
    U32 Core;
    U32 InstEndian;
    U32 DataEndian;
    char sPath[2048];
} CORE_PLUGIN_CONFIG; /* 2060 */
typedef struct {
    U32 WordSize, NumRegs, RegSize, PCSize, SPSize;
    U32 Reserved0[9];
    U32 InstAlign, MinInstLen, MaxInstLen, MaxMnemonicLen, RegCacheSize, MaxUnwindReg;
    U32 SPIndex, LRIndex, PCIndex, RAIndex, CFAIndex;
    U32 Reserved1;
} CORE_INFO; /* 104 bytes */
typedef struct {
    U32 Mode;
    I32 Size;
    U64 Target;
    I32 SPDelta;
    U32 Flags;
} INST_INFO; /* 24 bytes */
#define INST_BRANCH (1u << 0)
#define INST_BRANCH_OTHER (1u << 1)
#define INST_DIRECT (1u << 2)
#define INST_CALL (1u << 3)
#define INST_RETURN (1u << 4)
#define INST_LITERAL (1u << 5)
#define INST_TARGET_KNOWN (1u << 6)
#define INST_NOT_STRAIGHT (1u << 8)
#define INST_PADDING (1u << 9)
#define INST_CONDITIONAL (1u << 10)
#define INST_SKIP_ON_RESUME (1u << 31)

/* GetBPType gives the low 4 bits of the SetBPEx type; the ARM plug-in's 1 stands for a Thumb BKPT.
 * The ARM plug-in's logical register indices for MapRegIndex are those of TARVO_ARM_REGS, and the
 * DWARF numbers 64 to 95 for S0 to S31. */
typedef struct {                            /* 320 bytes, 40 entries; any may be NULL but Init */
    int (*Init)(const CORE_PLUGIN_CONFIG*); /* 0 ok */
    void* Unused8;
    int (*Reconfigure)(const CORE_PLUGIN_CONFIG*);  /* 0 ok, 1 pass on, other reload */
    int (*ReadReg)(U32 Index, U32 Size, U64* pVal); /* 0 ok */
    int (*ReadRegs)(U32 Count, const U32* paIndex, U32 Size, U64* paVal, U8* paStatus); /* 0 ok */
    int (*WriteReg)(U32 Index, U32 Size, const U64* pVal);                              /* 0 ok */
    int (*ReadCPReg)(const char* sId, U32 Size, U64* pVal);                             /* 0 ok */
    int (*WriteCPReg)(const char* sId, U32 Size, const U64* pVal);                      /* 0 ok */
    void* Unused64;
    int (*GetCoreInfo)(CORE_INFO*, U32 Size);                        /* 0 ok */
    int (*GetCPUMode)(U32* pMode);                                   /* 0 ok */
    int (*GetExecMode)(U32* pMode);                                  /* 0 ok */
    U32 (*GetBPType)(U64 Addr);                                      /* OR'ed into SetBPEx type */
    int (*UnwindFrame)(void* pFrame, void* pRequest);                /* 0 = rules written */
    int (*AnalyzeInst)(U64 Addr, INST_INFO*, U32 InstAlign);         /* 0 decoded, >0 no inst, <0 fail */
    U32 (*MapRegIndex)(U32 LogicalIndex);                            /* 0xFFFFFFFF = none */
    int (*GetCPUModeName)(U32 Mode, char* s, U32 Size);              /* text (64) */
    int (*GetCoreName)(U32 Core, char* s, U32 Size);                 /* text (64) */
    int (*GetCoreRegFile)(U32 Core, char* s, U32 Size);              /* 0 ok (2048) */
    int (*GetFPURegFile)(U32 Core, char* s, U32 Size);               /* 0 ok (2048) */
    int (*GetFrameName)(void* pFrame, char* s, U32 Size);            /* 0 ok (64) */
    int (*PrintInstBytes)(U64 Addr, U32 Size, char* s, U32 BufSize); /* consumed (128) */
    int (*PrintInst)(U64 Addr, U32 Size, char* s, U32 BufSize);      /* bytes consumed, <1 fail */
    int (*PrintDataBytes)(U64 Addr, U32 Size, char* s, U32 BufSize); /* as PrintInstBytes */
    int (*PrintData)(U64 Addr, U32 Size, char* s, U32 BufSize);      /* as PrintInst */
    int (*GetMappingSymbolPrefix)(char* s, U32 Size);                /* non-zero = has mapping symbols (8) */
    int (*GetMappingSymbolInfo)(const char* sName, U32* pKind, char* sText,
                                U32 TextSize); /* 0 = mapping symbol */
    int (*GetProgramByteOrder)(U32 HdrSize, const U8* pHdr, U32* pInstOrder,
                               U32* pDataOrder); /* 0 ok, HdrSize 52 */
    void* Unused224;
    void (*AfterTargetConnect)(void);
    void* Unused240;
    void (*AfterTargetReset)(void);
    void (*AfterTargetHalt)(void); /* default action after a halt */
    void (*BeforeTargetResume)(void);
    int (*InitSemihosting)(const char* sConfig); /* 0 ok */
    void (*DeinitSemihosting)(void);
    int (*HandleSemihosting)(U64 HaltAddr, U32* pOp, U64* pParam); /* 0 no, 1 handle, 2 resume */
    void (*SetSemihostingResult)(U64 Result);
    int (*GetScriptHandlerText)(U32 Id, char* s, U32 Size); /* 0 = filled (10000) */
    int (*CheckProgramHeader)(U32 HdrSize, const U8* pHdr); /* non-zero = suits */
} CORE_PLUGIN_API;

typedef struct { /* 56 bytes, 7 entries, filled by the debugger */
    int (*GetMappingRegion)(U64 Addr, const char** psName, U64* pStart, U64* pEnd); /* 0, -1 none */
    int (*GetSymbolAt)(U64 Addr, const char** psName, U64* pStart, U64* pEnd);      /* index, -1 none */
    int (*ReadMem)(U64 Addr, U32 Size, void* pBuf);                                 /* 0 / -1 */
    int (*ReadProgramImage)(U64 Addr, U32 Size, void* pBuf); /* bytes, 0 for size 0, -1 outside */
    int (*GetProgramRange)(U64 aRange[3]);                   /* 0 */
    int (*GetFrameRegs)(void** ppFrameTable);                /* 0, -1 empty */
    int (*Log)(const char* sText, int Level);                /* 0, -1 bad level */
} CORE_DEBUGGER_API;

int CORE_PLUGIN_GetAPI(CORE_PLUGIN_API* pApi, U32 Size);         /* Size 320; 0 on success */
int CORE_PLUGIN_SetAPI(const CORE_DEBUGGER_API* pApi, U32 Size); /* Size 56; 0 on success */
U32 CORE_PLUGIN_GetVersion(void);                                /* resolved at loading, not called */
const char* CORE_PLUGIN_GetName(void);                           /* resolved at loading, not called */

#ifdef __cplusplus
}

static_assert(sizeof(CORE_PLUGIN_CONFIG) == 2060, "configuration record");
static_assert(sizeof(CORE_INFO) == 104, "static core information");
static_assert(sizeof(INST_INFO) == 24, "instruction information");
static_assert(sizeof(CORE_PLUGIN_API) == 320, "plug-in API record");
static_assert(sizeof(CORE_DEBUGGER_API) == 56, "debugger API record");
#endif
