#include "probe/backends/RegisterMap.h"

#include <string>

namespace tarvo {

const char* RegisterMap::Name(U32 Index) {
    static const char* const Core[] = {
        "r0",  "r1", "r2", "r3", "r4",   "r5",  "r6",  "r7",      "r8",      "r9",        "r10",     "r11",
        "r12", "sp", "lr", "pc", "xpsr", "msp", "psp", "primask", "basepri", "faultmask", "control", "fpscr"};
    static const char* const Singles[] = {"s0",  "s1",  "s2",  "s3",  "s4",  "s5",  "s6",  "s7",
                                          "s8",  "s9",  "s10", "s11", "s12", "s13", "s14", "s15",
                                          "s16", "s17", "s18", "s19", "s20", "s21", "s22", "s23",
                                          "s24", "s25", "s26", "s27", "s28", "s29", "s30", "s31"};
    if (Index <= TARVO_REG_FPSCR) {
        return Core[Index];
    }
    if (Index >= TARVO_REG_S0 && Index < TARVO_REG_S0 + 32) {
        return Singles[Index - TARVO_REG_S0];
    }
    return "";
}

void RegisterMap::Build(const rsp::TargetDescription& Description) {
    for (U32 Index = 0; Index < TARVO_REG_COUNT; ++Index) {
        RegisterSlot& S = m_Slots[Index];
        S = RegisterSlot();
        const std::string Name = RegisterMap::Name(Index);
        if (Name.empty()) {
            continue;
        }
        const rsp::RegisterInfo* Info = Description.Find(Name);
        if (!Info) {
            // Other names the same register goes by.
            if (Index == TARVO_REG_SP) {
                Info = Description.Find("r13");
            } else if (Index == TARVO_REG_LR) {
                Info = Description.Find("r14");
            } else if (Index == TARVO_REG_PC) {
                Info = Description.Find("r15");
            } else if (Index == TARVO_REG_XPSR) {
                Info = Description.Find("psr");
                if (!Info) {
                    Info = Description.Find("cpsr");
                }
            }
        }
        if (Info) {
            S.How = RegisterSlot::Kind::Whole;
            S.Info = Info;
            continue;
        }
        if (Index >= TARVO_REG_S0) {
            const U32 N = Index - TARVO_REG_S0;
            const rsp::RegisterInfo* Double = Description.Find("d" + std::to_string(N / 2));
            if (Double && Double->BitSize == 64) {
                S.How = RegisterSlot::Kind::HalfOfDouble;
                S.Info = Double;
                S.Half = static_cast<int>(N % 2);
            }
        }
    }
}

const RegisterSlot& RegisterMap::Slot(U32 Index) const {
    static const RegisterSlot None;
    return Index < TARVO_REG_COUNT ? m_Slots[Index] : None;
}

} // namespace tarvo
