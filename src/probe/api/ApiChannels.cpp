// Exported functions of the channels that need probe hardware: SWO, the MCT memory terminal, high
// speed sampling, power trace and instruction trace. Neither a GDB server nor the emulated board
// offers them, so every call fails the way its caller expects, and the calls that start a channel
// say why through the error callback.

#include "probe/api/Exports.h"

#include "probe/api/Session.h"

using tarvo::api::Session;

namespace {

int Refuse(const char* What) {
    Session::Instance().Error(std::string(What) + " is not available with this probe");
    return -1;
}

} // namespace

extern "C" {

int TARVOARM_SWO_DisableTarget(U32 PortMask) {
    (void)PortMask;
    return -1;
}

int TARVOARM_SWO_Control(U32 Cmd, void* pData) {
    (void)Cmd;
    (void)pData;
    return -1;
}

int TARVOARM_SWO_EnableTarget(U32 CPUSpeed, U32 SWOSpeed, int Mode, U32 PortMask) {
    (void)CPUSpeed;
    (void)SWOSpeed;
    (void)Mode;
    (void)PortMask;
    return Refuse("SWO");
}

int TARVOARM_SWO_GetCompatibleSpeeds(U32 CPUSpeed, U32 MaxSWOSpeed, U32* paSpeed, U32 NumEntries) {
    (void)CPUSpeed;
    (void)MaxSWOSpeed;
    (void)paSpeed;
    (void)NumEntries;
    return 0;
}

int TARVOARM_SWO_ReadStimulus(U32 Port, U8* pData, U32 NumBytes) {
    (void)Port;
    (void)pData;
    (void)NumBytes;
    return 0;
}

int TARVO_MCTERMINAL_Control(U32 Cmd, void* p) {
    (void)p;
    return Cmd == 0 ? Refuse("The MCT terminal") : -1;
}

int TARVO_MCTERMINAL_Read(U32 Channel, U8* pData, U32 Size) {
    (void)Channel;
    (void)pData;
    (void)Size;
    return -1;
}

int TARVO_MCTERMINAL_Write(U32 Channel, const U8* pData, U32 Size) {
    (void)Channel;
    (void)pData;
    (void)Size;
    return -1;
}

int TARVO_HSS_Start(TARVO_HSS_MEM_BLOCK* paBlock, int NumBlocks, int Period, int Flags) {
    (void)paBlock;
    (void)NumBlocks;
    (void)Period;
    (void)Flags;
    Refuse("High speed sampling");
    return -4; // "Target hardware does not support high speed sampling"
}

int TARVO_HSS_Stop(void) {
    return -1;
}

int TARVO_HSS_Read(void* pBuffer, U32 BufferSize) {
    (void)pBuffer;
    (void)BufferSize;
    return -1;
}

int TARVO_POWERTRACE_Control(int Cmd, void* pIn, void* pOut) {
    (void)pIn;
    (void)pOut;
    return Cmd == 0 ? Refuse("Power trace") : -1;
}

int TARVO_POWERTRACE_Read(U64* paSample, U32 NumItems) {
    (void)paSample;
    (void)NumItems;
    return -1;
}

int TARVO_STRACE_Config(const char* sConfig) {
    (void)sConfig;
    return -1;
}

int TARVO_STRACE_Start(void) {
    return Refuse("Instruction trace");
}

int TARVO_STRACE_Stop(void) {
    return 0;
}

int TARVO_STRACE_Read(U32* paAddr, U32 NumItems) {
    (void)paAddr;
    (void)NumItems;
    return -1;
}

int TARVO_STRACE_ReadEx(U32* paAddr, U32 NumItems, TARVO_STRACE_TIMESTAMP_INFO* paStamp, int* pNumStamps,
                        int Flags) {
    (void)paAddr;
    (void)NumItems;
    (void)paStamp;
    (void)Flags;
    if (pNumStamps) {
        *pNumStamps = 0;
    }
    return -1;
}

int TARVO_STRACE_GetInstStats(void* paItem, U32 Addr, U32 NumItems, U32 ItemSize, U32 Type) {
    (void)paItem;
    (void)Addr;
    (void)NumItems;
    (void)ItemSize;
    (void)Type;
    return -1;
}

int TARVO_STRACE_Control(U32 Cmd, void* pData) {
    (void)Cmd;
    (void)pData;
    return -1;
}

} // extern "C"
