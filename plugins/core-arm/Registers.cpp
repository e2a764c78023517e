// Core registers through the probe library, by the index of TARVO_ARM_REGS. The library is looked up
// at run time among the symbols the process has already loaded, so the plug-in needs no link to it
// and fails cleanly when it is absent.
#include "Entries.h"

#include <atomic>
#include <cstdio>
#include <dlfcn.h>

namespace ArmCore::Entry {
namespace {

typedef int (*READ_REG_FUNC)(U32 RegIndex, U64* pValue);
typedef int (*WRITE_REG_FUNC)(U32 RegIndex, U64 Value);
typedef int (*READ_REGS_FUNC)(const U32* paRegIndex, U64* paValue, U8* paStatus, U32 NumRegs);

struct ProbeFunc {
    const char* Name;
    std::atomic<void*> Address{nullptr};
    std::atomic<bool> Reported{false};
};

ProbeFunc s_ReadReg{"TARVOARM_ReadReg"};
ProbeFunc s_WriteReg{"TARVOARM_WriteReg"};
ProbeFunc s_ReadRegs{"TARVOARM_ReadRegs"};

/// The function, or nullptr; a missing function is logged once per initialisation.
void* Resolve(ProbeFunc& F, bool Report = true) {
    void* p = F.Address.load(std::memory_order_acquire);
    if (p == nullptr) {
        p = dlsym(RTLD_DEFAULT, F.Name);
        if (p != nullptr) {
            F.Address.store(p, std::memory_order_release);
        } else if (Report && !F.Reported.exchange(true)) {
            char Text[160];
            snprintf(Text, sizeof Text, "Core plug-in: the probe library function %s is not available",
                     F.Name);
            Log(Text, 0);
        }
    }
    return p;
}

constexpr U32 NO_REGISTER = 0xFFFFFFFFu;
constexpr U32 DWARF_S0 = 64; // DWARF numbers S0 to S31 from 64

bool IsValidIndex(U32 Index) {
    return Index < TARVO_REG_COUNT && MapRegIndex(Index) == Index;
}

} // namespace

void ResetRegisterAccess() {
    for (ProbeFunc* F : {&s_ReadReg, &s_WriteReg, &s_ReadRegs}) {
        F->Reported = false;
    }
}

int ReadReg(U32 Index, U32 Size, U64* pVal) {
    if (pVal == nullptr || Size < sizeof(U64) || !IsValidIndex(Index)) {
        return -1;
    }
    auto Fn = reinterpret_cast<READ_REG_FUNC>(Resolve(s_ReadReg));
    if (Fn == nullptr) {
        return -1;
    }
    U64 Value = 0;
    if (Fn(Index, &Value) < 0) {
        return -1;
    }
    *pVal = Value;
    return 0;
}

int ReadRegs(U32 Count, const U32* paIndex, U32 Size, U64* paVal, U8* paStatus) {
    if (Count == 0 || paIndex == nullptr || paVal == nullptr || paStatus == nullptr ||
        Size < Count * sizeof(U64)) {
        return -1;
    }
    // The batch call when the library has it, else one register at a time.
    auto Batch = reinterpret_cast<READ_REGS_FUNC>(Resolve(s_ReadRegs, false));
    bool AllValid = true;
    for (U32 i = 0; i < Count; ++i) {
        AllValid = AllValid && IsValidIndex(paIndex[i]);
    }
    if (Batch != nullptr && AllValid) {
        if (Batch(paIndex, paVal, paStatus, Count) < 0) {
            for (U32 i = 0; i < Count; ++i) {
                paStatus[i] = 1;
            }
            return -1;
        }
        return 0;
    }
    if (Resolve(s_ReadReg) == nullptr) {
        for (U32 i = 0; i < Count; ++i) {
            paStatus[i] = 1;
        }
        return -1;
    }
    for (U32 i = 0; i < Count; ++i) {
        paStatus[i] = ReadReg(paIndex[i], sizeof(U64), &paVal[i]) == 0 ? 0 : 1;
    }
    return 0;
}

int WriteReg(U32 Index, U32 Size, const U64* pVal) {
    if (pVal == nullptr || Size < sizeof(U64) || !IsValidIndex(Index)) {
        return -1;
    }
    auto Fn = reinterpret_cast<WRITE_REG_FUNC>(Resolve(s_WriteReg));
    if (Fn == nullptr) {
        return -1;
    }
    return Fn(Index, *pVal) < 0 ? -1 : 0;
}

/// Logical indices are the probe library's (TARVO_ARM_REGS), plus the DWARF numbers 64 to 95 of S0 to
/// S31. Registers the core lacks have none.
U32 MapRegIndex(U32 Logical) {
    const ArchProfile P = GetConfig().Profile;
    if (Logical >= DWARF_S0 && Logical < DWARF_S0 + 32) {
        return P.HasFpRegs ? Logical - DWARF_S0 + TARVO_REG_S0 : NO_REGISTER;
    }
    if (Logical <= TARVO_REG_PRIMASK || Logical == TARVO_REG_CONTROL) {
        return Logical;
    }
    if (Logical == TARVO_REG_BASEPRI || Logical == TARVO_REG_FAULTMASK) {
        return P.HasFaultMask ? Logical : NO_REGISTER;
    }
    if (Logical == TARVO_REG_FPSCR || (Logical >= TARVO_REG_S0 && Logical < TARVO_REG_COUNT)) {
        return P.HasFpRegs ? Logical : NO_REGISTER;
    }
    return NO_REGISTER;
}

/// 0 in Thread mode, 1 in Handler mode (an exception number in IPSR).
int GetCPUMode(U32* pMode) {
    U64 Psr = 0;
    if (pMode == nullptr || ReadReg(TARVO_REG_XPSR, sizeof Psr, &Psr) != 0) {
        return -1;
    }
    *pMode = (Psr & 0x1FF) != 0 ? 1 : 0;
    return 0;
}

int GetCPUModeName(U32 Mode, char* s, U32 Size) {
    if (s == nullptr || Size == 0) {
        return -1;
    }
    return snprintf(s, Size, "%s", Mode == 0 ? "Thread" : Mode == 1 ? "Handler" : "Unknown");
}

} // namespace ArmCore::Entry
