// Which decoded encodings a core of each variant executes. capstone decodes the union of all Thumb
// variants, so the smaller variants are cut out here.
#include "Decoder.h"

#include <initializer_list>

namespace ArmCore {
namespace {

bool HasGroup(const cs_insn& Insn, int Group) {
    const cs_detail* D = Insn.detail;
    for (int i = 0; i < D->groups_count; ++i) {
        if (D->groups[i] == Group) {
            return true;
        }
    }
    return false;
}

bool IsOneOf(unsigned Id, std::initializer_list<arm_insn> Ids) {
    for (arm_insn I : Ids) {
        if (Id == static_cast<unsigned>(I)) {
            return true;
        }
    }
    return false;
}

/// The 32-bit encodings of ARMv6-M.
bool IsV6M32(const cs_insn& Insn) {
    return IsOneOf(
        Insn.id, {ARM_INS_BL, ARM_INS_MRS, ARM_INS_MSR, ARM_INS_DMB, ARM_INS_DSB, ARM_INS_ISB, ARM_INS_UDF});
}

/// Load-acquire and store-release: ARMv8-M only.
bool IsAcquireRelease(const cs_insn& Insn) {
    return IsOneOf(Insn.id,
                   {ARM_INS_LDA, ARM_INS_LDAB, ARM_INS_LDAH, ARM_INS_LDAEX, ARM_INS_LDAEXB, ARM_INS_LDAEXH,
                    ARM_INS_STL, ARM_INS_STLB, ARM_INS_STLH, ARM_INS_STLEX, ARM_INS_STLEXB, ARM_INS_STLEXH});
}

/// The 32-bit encodings that ARMv8-M Baseline adds to ARMv6-M.
bool IsV8MBase32(const cs_insn& Insn) {
    if (IsV6M32(Insn) || IsAcquireRelease(Insn)) {
        return true;
    }
    if (Insn.id == ARM_INS_B) {
        return Insn.detail->arm.cc == ARM_CC_AL; // only the unconditional wide branch
    }
    return IsOneOf(Insn.id, {ARM_INS_MOVW, ARM_INS_MOVT, ARM_INS_SDIV, ARM_INS_UDIV, ARM_INS_LDREX,
                             ARM_INS_LDREXB, ARM_INS_LDREXH, ARM_INS_STREX, ARM_INS_STREXB, ARM_INS_STREXH});
}

bool IsFloatingPoint(const cs_insn& Insn) {
    return HasGroup(Insn, ARM_GRP_VFP2) || HasGroup(Insn, ARM_GRP_VFP3) || HasGroup(Insn, ARM_GRP_VFP4) ||
           HasGroup(Insn, ARM_GRP_FPARMV8) || HasGroup(Insn, ARM_GRP_DPVFP);
}

bool FloatingPointAllowed(const cs_insn& Insn, const ArchProfile& P) {
    if (HasGroup(Insn, ARM_GRP_FPARMV8) && !P.HasFpv5) {
        return false;
    }
    return !HasGroup(Insn, ARM_GRP_DPVFP) || P.HasDoubleFp;
}

} // namespace

bool IsAllowed(const cs_insn& Insn, const ArchProfile& P) {
    // Never on an M-profile core: Advanced SIMD, crypto, CRC, ARM state and the A-profile's system and
    // debug instructions.
    if (HasGroup(Insn, ARM_GRP_NEON) || HasGroup(Insn, ARM_GRP_CRYPTO) || HasGroup(Insn, ARM_GRP_CRC) ||
        HasGroup(Insn, ARM_GRP_ARM) || HasGroup(Insn, ARM_GRP_NOTMCLASS) ||
        HasGroup(Insn, ARM_GRP_TRUSTZONE) || HasGroup(Insn, ARM_GRP_VIRTUALIZATION) ||
        IsOneOf(Insn.id, {ARM_INS_HLT, ARM_INS_SEVL, ARM_INS_DCPS1, ARM_INS_DCPS2, ARM_INS_DCPS3})) {
        return false;
    }
    const bool Wide = Insn.size == 4;
    switch (P.Variant) {
    case ArchVariant::V6M:
        return Wide ? IsV6M32(Insn) : !IsOneOf(Insn.id, {ARM_INS_CBZ, ARM_INS_CBNZ, ARM_INS_IT});
    case ArchVariant::V8MBase:
        return Wide ? IsV8MBase32(Insn) : Insn.id != ARM_INS_IT;
    case ArchVariant::V7M:
        return !IsFloatingPoint(Insn) && !HasGroup(Insn, ARM_GRP_THUMB2DSP) && !IsAcquireRelease(Insn);
    case ArchVariant::V7EM:
        return (!IsFloatingPoint(Insn) || FloatingPointAllowed(Insn, P)) && !IsAcquireRelease(Insn);
    case ArchVariant::V8MMain:
        return !IsFloatingPoint(Insn) || FloatingPointAllowed(Insn, P);
    case ArchVariant::Any:
        return true;
    }
    return true;
}

} // namespace ArmCore
