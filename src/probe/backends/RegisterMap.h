#pragma once

// Maps the register indices of the C interface (TARVO_ARM_REGS) to the registers of a target
// description, by name. Servers name registers differently ("xpsr", "xPSR"; "s0".."s31" or the
// doubles "d0".."d15"), so each index has a few accepted names.

#include "probe/Tarvo.h"
#include "probe/rsp/TargetDescription.h"

#include <array>

namespace tarvo {

struct RegisterSlot {
    enum class Kind {
        Missing,      // the description doesn't have it
        Whole,        // a register of the description
        HalfOfDouble, // a single-precision register inside a double: Half 0 is the low word
    };
    Kind How = Kind::Missing;
    const rsp::RegisterInfo* Info = nullptr;
    int Half = 0;
};

class RegisterMap {
public:
    /// The description must outlive the map.
    void Build(const rsp::TargetDescription& Description);
    const RegisterSlot& Slot(U32 Index) const;
    bool Has(U32 Index) const { return Slot(Index).How != RegisterSlot::Kind::Missing; }
    /// The usual name of an index ("r0", "msp", "s5"), empty for an unused one.
    static const char* Name(U32 Index);

private:
    std::array<RegisterSlot, TARVO_REG_COUNT> m_Slots{};
};

} // namespace tarvo
