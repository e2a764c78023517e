// The ARMv8-M security extension. capstone 4 predates it and reads these encodings as other
// instructions (SG as LDRD, TT as STREX, BXNS as BX), so they are decoded here first.
#include "Decoder.h"

#include <cstdio>

namespace ArmCore {
namespace {

const char* const s_RegNames[16] = {"r0", "r1", "r2", "r3", "r4", "r5", "r6", "r7",
                                    "r8", "r9", "sl", "fp", "ip", "sp", "lr", "pc"};

void Set(DecodedInst& Out, U32 Size, const char* sMnemonic, arm_cc Cond, U32 Flags) {
    Out.Info.Mode = 2;
    Out.Info.Size = static_cast<I32>(Size);
    Out.Info.Flags = Flags | (Cond != ARM_CC_AL ? INST_CONDITIONAL : 0);
    snprintf(Out.Mnemonic, sizeof Out.Mnemonic, "%s%s", sMnemonic, ConditionText(Cond));
}

} // namespace

const char* ConditionText(arm_cc Cond) {
    static const char* const Names[] = {"",   "eq", "ne", "hs", "lo", "mi", "pl", "vs",
                                        "vc", "hi", "ls", "ge", "lt", "gt", "le", ""};
    const unsigned Index = static_cast<unsigned>(Cond);
    return Index < sizeof Names / sizeof Names[0] ? Names[Index] : "";
}

bool DecodeSecurityExt(U16 Hw0, U16 Hw1, bool Have32, arm_cc Cond, DecodedInst& Out) {
    if ((Hw0 & 0xFF87) == 0x4704 || (Hw0 & 0xFF87) == 0x4784) {
        const U32 Rm = (Hw0 >> 3) & 0xF;
        const bool Link = Hw0 & 0x80;
        U32 Flags = INST_BRANCH | INST_BRANCH_OTHER;
        Flags |= Link ? INST_CALL : (Rm == 14 ? INST_RETURN : 0);
        Set(Out, 2, Link ? "blxns" : "bxns", Cond, Flags);
        snprintf(Out.Operands, sizeof Out.Operands, "%s", s_RegNames[Rm]);
        return true;
    }
    if (!Have32) {
        return false;
    }
    if (Hw0 == 0xE97F && Hw1 == 0xE97F) {
        Set(Out, 4, "sg", Cond, 0);
        return true;
    }
    if ((Hw0 & 0xFFF0) == 0xE840 && (Hw1 & 0xF03F) == 0xF000) {
        static const char* const Names[] = {"tt", "ttt", "tta", "ttat"};
        Set(Out, 4, Names[(Hw1 >> 6) & 3], Cond, 0);
        snprintf(Out.Operands, sizeof Out.Operands, "%s, %s", s_RegNames[(Hw1 >> 8) & 0xF],
                 s_RegNames[Hw0 & 0xF]);
        return true;
    }
    if ((Hw0 & 0xFFE0) == 0xEC20 && Hw1 == 0x0A00) {
        Set(Out, 4, (Hw0 & 0x10) ? "vlldm" : "vlstm", Cond, 0);
        snprintf(Out.Operands, sizeof Out.Operands, "%s", s_RegNames[Hw0 & 0xF]);
        return true;
    }
    return false;
}

} // namespace ArmCore
