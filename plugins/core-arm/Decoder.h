#pragma once

/// Pieces of the Thumb decoder that see capstone's records. Called with the decoder lock held.

#include "ArmCore.h"

#include <capstone/capstone.h>

namespace ArmCore {

/// Whether the core may execute a decoded instruction: encodings outside its variant are no instructions.
bool IsAllowed(const cs_insn& Insn, const ArchProfile& Profile);

/// Fills the analysis record and the literal width from capstone's detail. False if the encoding is
/// not one a Cortex-M core runs (BLX to ARM state).
bool AnalyzeInsn(const cs_insn& Insn, DecodedInst& Out);

/// Decodes the security extension's instructions (SG, TT, BXNS, BLXNS, VLLDM, VLSTM), which the
/// disassembler library misreads. Hw0 and Hw1 are the first two halfwords; Cond is the IT condition
/// (ARM_CC_AL outside a block). True if one was recognised.
bool DecodeSecurityExt(U16 Hw0, U16 Hw1, bool Have32, arm_cc Cond, DecodedInst& Out);

/// Suffix text of a condition ("eq"); empty for always.
const char* ConditionText(arm_cc Cond);

/// True if a halfword starts a 32-bit Thumb instruction.
inline bool Is32BitPrefix(U16 Hw) {
    return (Hw >> 11) >= 0x1D;
}

/// Address the PC reads as in Thumb literal addressing: the instruction address + 4, word aligned.
inline U64 LiteralBase(U64 Addr) {
    return (Addr + 4) & ~U64(3);
}

} // namespace ArmCore
