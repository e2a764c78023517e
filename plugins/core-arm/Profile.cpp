// Which Thumb variant a core identifier stands for, and the core's name.
#include "ArmCore.h"

#include "probe/TarvoCores.h"

#include <cstdio>
#include <cstring>

namespace ArmCore {
namespace {

struct KnownCore {
    U32 Core;
    const char* Name;
    ArchProfile Profile;
};

// Variant, FPv5, double precision, security extension, BASEPRI/FAULTMASK, FP registers.
const KnownCore s_KnownCores[] = {
    {TARVO_CORE_CORTEX_M0, "Cortex-M0", {ArchVariant::V6M, false, false, false, false, false}},
    {TARVO_CORE_CORTEX_M0P, "Cortex-M0+", {ArchVariant::V6M, false, false, false, false, false}},
    {TARVO_CORE_CORTEX_M23, "Cortex-M23", {ArchVariant::V8MBase, false, false, true, false, false}},
    {TARVO_CORE_CORTEX_M3, "Cortex-M3", {ArchVariant::V7M, false, false, false, true, false}},
    {TARVO_CORE_CORTEX_M4, "Cortex-M4", {ArchVariant::V7EM, false, false, false, true, true}},
    {TARVO_CORE_CORTEX_M7, "Cortex-M7", {ArchVariant::V7EM, true, true, false, true, true}},
    {TARVO_CORE_CORTEX_M33, "Cortex-M33", {ArchVariant::V8MMain, true, false, true, true, true}},
};

const KnownCore* FindCore(U32 Core) {
    for (const KnownCore& K : s_KnownCores) {
        if (K.Core == Core) {
            return &K;
        }
    }
    return nullptr;
}

} // namespace

bool IsArmCore(U32 Core) {
    const U32 Family = TARVO_CORE_FAMILY(Core);
    return Family == 3 || (Family >= 6 && Family <= 12) || Family == 14 || Family == 15;
}

ArchProfile GetProfile(U32 Core) {
    if (const KnownCore* K = FindCore(Core)) {
        return K->Profile;
    }
    // Other members of a known family behave like its first member; anything else may use every encoding.
    switch (TARVO_CORE_FAMILY(Core)) {
    case TARVO_CORE_FAMILY(TARVO_CORE_CORTEX_M0):
        return FindCore(TARVO_CORE_CORTEX_M0)->Profile;
    case TARVO_CORE_FAMILY(TARVO_CORE_CORTEX_M3):
        return FindCore(TARVO_CORE_CORTEX_M3)->Profile;
    case TARVO_CORE_FAMILY(TARVO_CORE_CORTEX_M4):
        return FindCore(TARVO_CORE_CORTEX_M4)->Profile;
    default:
        return {ArchVariant::Any, true, true, true, true, true};
    }
}

void GetCoreName(U32 Core, char* sBuf, U32 BufSize) {
    if (sBuf == nullptr || BufSize == 0) {
        return;
    }
    if (const KnownCore* K = FindCore(Core)) {
        snprintf(sBuf, BufSize, "%s", K->Name);
    } else {
        snprintf(sBuf, BufSize, "ARM core 0x%08X", Core);
    }
}

} // namespace ArmCore
