// The four exports of the ARM core plug-in and the entries that configure it and describe the core.
#include "Entries.h"

#include <cstdio>
#include <cstring>

#define CORE_PLUGIN_EXPORT extern "C" __attribute__((visibility("default")))

namespace ArmCore {
namespace {

constexpr U32 PLUGIN_VERSION = 10000; // 1.00.00
constexpr U32 MAX_MNEMONIC_LEN = 15;  // "vcvtbge.f32.f16" in an IT block
constexpr U32 BP_MODE_THUMB = 1;      // breakpoints are 16-bit Thumb BKPT instructions

/// Takes over a configuration; negative for a record the plug-in can't serve.
int Configure(const CORE_PLUGIN_CONFIG* pConfig) {
    if (pConfig == nullptr) {
        return -1;
    }
    if (!IsArmCore(pConfig->Core)) {
        return -2;
    }
    PluginConfig C;
    C.Core = pConfig->Core;
    C.InstBigEndian = pConfig->InstEndian == 1;
    C.DataBigEndian = pConfig->DataEndian == 1;
    C.Profile = GetProfile(pConfig->Core);
    SetConfig(C);
    return 0;
}

int Init(const CORE_PLUGIN_CONFIG* pConfig) {
    Entry::ResetRegisterAccess();
    return Configure(pConfig);
}

int Reconfigure(const CORE_PLUGIN_CONFIG* pConfig) {
    return Configure(pConfig);
}

int GetCoreInfo(CORE_INFO* pInfo, U32 Size) {
    if (pInfo == nullptr || Size < sizeof(CORE_INFO)) {
        return -1;
    }
    memset(pInfo, 0, sizeof(CORE_INFO));
    pInfo->WordSize = 4;
    pInfo->NumRegs = TARVO_REG_COUNT;
    pInfo->RegSize = 4;
    pInfo->PCSize = 4;
    pInfo->SPSize = 4;
    pInfo->InstAlign = 2;
    pInfo->MinInstLen = 2;
    pInfo->MaxInstLen = 4;
    pInfo->MaxMnemonicLen = MAX_MNEMONIC_LEN;
    pInfo->RegCacheSize = TARVO_REG_COUNT;
    // Unwinding restores R0 to PC; the caller's SP is the canonical frame address and LR carries the
    // return address, as the DWARF frame information of ARM code has it.
    pInfo->MaxUnwindReg = TARVO_REG_PC;
    pInfo->SPIndex = TARVO_REG_SP;
    pInfo->LRIndex = TARVO_REG_LR;
    pInfo->PCIndex = TARVO_REG_PC;
    pInfo->RAIndex = TARVO_REG_LR;
    pInfo->CFAIndex = TARVO_REG_SP;
    return 0;
}

int AnalyzeInst(U64 Addr, INST_INFO* pInfo, U32 InstAlign) {
    if (pInfo == nullptr) {
        return -1;
    }
    memset(pInfo, 0, sizeof(INST_INFO));
    if (InstAlign > 1 && Addr % InstAlign != 0) {
        return 1;
    }
    DecodedInst Inst;
    const int Result = Decode(Addr, Inst, false);
    if (Result == DECODE_OK) {
        *pInfo = Inst.Info;
    }
    return Result;
}

int GetCoreName(U32 Core, char* s, U32 Size) {
    if (s == nullptr || Size == 0) {
        return -1;
    }
    ArmCore::GetCoreName(Core, s, Size);
    return static_cast<int>(strlen(s));
}

U32 GetBPType(U64 Addr) {
    (void)Addr;
    return BP_MODE_THUMB;
}

} // namespace
} // namespace ArmCore

using namespace ArmCore;

CORE_PLUGIN_EXPORT int CORE_PLUGIN_GetAPI(CORE_PLUGIN_API* pApi, U32 Size) {
    if (pApi == nullptr || Size < sizeof(CORE_PLUGIN_API)) {
        return -1;
    }
    CORE_PLUGIN_API Api{};
    Api.Init = Init;
    Api.Reconfigure = Reconfigure;
    Api.ReadReg = Entry::ReadReg;
    Api.ReadRegs = Entry::ReadRegs;
    Api.WriteReg = Entry::WriteReg;
    Api.GetCoreInfo = GetCoreInfo;
    Api.GetCPUMode = Entry::GetCPUMode;
    Api.GetBPType = GetBPType;
    Api.AnalyzeInst = AnalyzeInst;
    Api.MapRegIndex = Entry::MapRegIndex;
    Api.GetCPUModeName = Entry::GetCPUModeName;
    Api.GetCoreName = GetCoreName;
    Api.PrintInstBytes = Entry::PrintInstBytes;
    Api.PrintInst = Entry::PrintInst;
    Api.PrintDataBytes = Entry::PrintDataBytes;
    Api.PrintData = Entry::PrintData;
    Api.GetMappingSymbolPrefix = Entry::GetMappingSymbolPrefix;
    Api.GetMappingSymbolInfo = Entry::GetMappingSymbolInfo;
    Api.GetProgramByteOrder = Entry::GetProgramByteOrder;
    Api.CheckProgramHeader = Entry::CheckProgramHeader;
    memcpy(pApi, &Api, sizeof Api);
    return 0;
}

CORE_PLUGIN_EXPORT int CORE_PLUGIN_SetAPI(const CORE_DEBUGGER_API* pApi, U32 Size) {
    if (pApi == nullptr || Size < sizeof(CORE_DEBUGGER_API)) {
        return -1;
    }
    SetDebuggerApi(*pApi);
    return 0;
}

CORE_PLUGIN_EXPORT U32 CORE_PLUGIN_GetVersion(void) {
    return PLUGIN_VERSION;
}

CORE_PLUGIN_EXPORT const char* CORE_PLUGIN_GetName(void) {
    return "CorePluginARM";
}

/// The disassembler goes with the library.
__attribute__((destructor)) static void UnloadPlugin() {
    ShutdownDecoder();
}
