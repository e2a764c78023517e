// Exported functions of run control and core registers.

#include "probe/api/Exports.h"

#include "probe/api/Session.h"

#include <vector>

using tarvo::api::Session;

namespace {

using Guard = std::lock_guard<std::recursive_mutex>;

Session& S() {
    return Session::Instance();
}

} // namespace

extern "C" {

int TARVOARM_IsHalted(void) {
    Guard Lock(S().Mutex);
    if (!S().Target) {
        return -1;
    }
    return S().Target->HaltState();
}

int TARVOARM_Halt(void) {
    Guard Lock(S().Mutex);
    tarvo::Backend* B = S().Connected();
    return B && B->Halt() ? 0 : -1;
}

void TARVOARM_GoEx(U32 MaxEmulInsts, U32 Flags) {
    (void)MaxEmulInsts; // 0: no limit; instructions are never emulated here
    Guard Lock(S().Mutex);
    if (tarvo::Backend* B = S().Connected()) {
        B->Go((Flags & TARVO_GO_OVERSTEP_BP) != 0);
    }
}

int TARVOARM_Step(void) {
    Guard Lock(S().Mutex);
    tarvo::Backend* B = S().Connected();
    return B && B->Step() ? 0 : -1;
}

void TARVOARM_SetResetType(int Type) {
    (void)Type; // one kind of reset: the whole system, halted at the reset vector
}

void TARVOARM_SetResetDelay(int Delay) {
    (void)Delay;
}

int TARVOARM_Reset(void) {
    Guard Lock(S().Mutex);
    tarvo::Backend* B = S().Connected();
    return B && B->Reset() ? 0 : -1;
}

int TARVOARM_ReadReg(U32 RegIndex, U64* pValue) {
    if (!pValue) {
        return -1;
    }
    *pValue = 0;
    Guard Lock(S().Mutex);
    tarvo::Backend* B = S().Connected();
    U8 Status = 1;
    if (!B || !B->ReadRegisters(&RegIndex, pValue, &Status, 1) || Status != 0) {
        return -1;
    }
    return 0;
}

int TARVOARM_WriteReg(U32 RegIndex, U64 Value) {
    Guard Lock(S().Mutex);
    tarvo::Backend* B = S().Connected();
    return B && B->WriteRegister(RegIndex, Value) ? 0 : -1;
}

int TARVOARM_ReadRegs(const U32* paRegIndex, U64* paValue, U8* paStatus, U32 NumRegs) {
    if (!paRegIndex || !paValue || !paStatus) {
        return -1;
    }
    for (U32 i = 0; i < NumRegs; ++i) {
        paValue[i] = 0;
        paStatus[i] = 1;
    }
    Guard Lock(S().Mutex);
    tarvo::Backend* B = S().Connected();
    return B && B->ReadRegisters(paRegIndex, paValue, paStatus, NumRegs) ? 0 : -1;
}

} // extern "C"
