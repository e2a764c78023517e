// What an instruction does to the flow of control and the stack, from capstone's detail.
#include "Decoder.h"

namespace ArmCore {
namespace {

bool IsReg(const cs_arm_op& Op, int Reg) {
    return Op.type == ARM_OP_REG && Op.reg == Reg;
}

bool ListHasPC(const cs_arm& A, int From) {
    for (int i = From; i < A.op_count; ++i) {
        if (IsReg(A.operands[i], ARM_REG_PC)) {
            return true;
        }
    }
    return false;
}

/// Bytes a register list moves: 8 for a D register, 4 for any other.
I32 ListBytes(const cs_arm& A, int From) {
    I32 Bytes = 0;
    for (int i = From; i < A.op_count; ++i) {
        const int R = A.operands[i].reg;
        Bytes += (R >= ARM_REG_D0 && R <= ARM_REG_D31) ? 8 : 4;
    }
    return Bytes;
}

/// Width of the value a load from a literal pool reads.
U32 LiteralWidth(const cs_insn& Insn) {
    const cs_arm& A = Insn.detail->arm;
    switch (Insn.id) {
    case ARM_INS_LDRB:
    case ARM_INS_LDRSB:
        return 1;
    case ARM_INS_LDRH:
    case ARM_INS_LDRSH:
        return 2;
    case ARM_INS_LDR:
        return 4;
    case ARM_INS_LDRD:
        return 8;
    case ARM_INS_VLDR:
        return (A.operands[0].reg >= ARM_REG_D0 && A.operands[0].reg <= ARM_REG_D31) ? 8 : 4;
    default:
        return 0; // PLD, PLI: no value
    }
}

void SetBranch(INST_INFO& I, U32 Flags) {
    I.Flags |= INST_BRANCH | Flags;
}

void SetDirect(INST_INFO& I, U64 Target, U32 Flags) {
    I.Flags |= INST_BRANCH | INST_DIRECT | INST_TARGET_KNOWN | Flags;
    I.Target = Target;
}

/// A memory operand: literal loads, SP write-back, and loads into the PC.
void AnalyzeMemory(const cs_insn& Insn, int MemIndex, DecodedInst& Out) {
    const cs_arm& A = Insn.detail->arm;
    INST_INFO& I = Out.Info;
    const cs_arm_op& Mem = A.operands[MemIndex];
    const bool PostIndex = MemIndex + 1 < A.op_count && A.operands[MemIndex + 1].type == ARM_OP_IMM;
    if (Mem.mem.base == ARM_REG_PC && Mem.mem.index == ARM_REG_INVALID) {
        I.Flags |= INST_LITERAL;
        I.Target = LiteralBase(Insn.address) + static_cast<I64>(Mem.mem.disp);
        Out.LiteralBytes = LiteralWidth(Insn);
    }
    if (Mem.mem.base == ARM_REG_SP && (A.writeback || PostIndex)) {
        if (PostIndex) {
            const cs_arm_op& Imm = A.operands[MemIndex + 1];
            I.SPDelta = Imm.subtracted ? -Imm.imm : Imm.imm;
        } else {
            I.SPDelta = Mem.mem.disp;
        }
    }
    if (MemIndex > 0 && IsReg(A.operands[0], ARM_REG_PC) && Insn.id == ARM_INS_LDR) {
        // ldr pc, [sp], #4 pops the return address; other loads into the PC jump through a table or
        // a literal word.
        if (Mem.mem.base == ARM_REG_SP && PostIndex) {
            SetBranch(I, INST_RETURN | INST_BRANCH_OTHER);
        } else {
            SetBranch(I, INST_BRANCH_OTHER);
        }
    }
}

/// Add and subtract: stack adjustment, ADR forms and computed jumps.
void AnalyzeAddSub(const cs_insn& Insn, DecodedInst& Out) {
    const cs_arm& A = Insn.detail->arm;
    INST_INFO& I = Out.Info;
    if (A.op_count < 2) {
        return;
    }
    const bool Sub = Insn.id == ARM_INS_SUB || Insn.id == ARM_INS_SUBW;
    const cs_arm_op& Last = A.operands[A.op_count - 1];
    if (IsReg(A.operands[0], ARM_REG_PC)) {
        SetBranch(I, INST_BRANCH_OTHER);
        return;
    }
    const bool TwoOps = A.op_count == 2;
    const cs_arm_op& Src = TwoOps ? A.operands[0] : A.operands[1];
    if (Last.type != ARM_OP_IMM) {
        return;
    }
    if (IsReg(A.operands[0], ARM_REG_SP) && IsReg(Src, ARM_REG_SP)) {
        I.SPDelta = Sub ? -Last.imm : Last.imm;
    } else if (!TwoOps && IsReg(Src, ARM_REG_PC)) {
        I.Flags |= INST_LITERAL;
        I.Target = LiteralBase(Insn.address) + (Sub ? -static_cast<I64>(Last.imm) : Last.imm);
    }
}

} // namespace

bool AnalyzeInsn(const cs_insn& Insn, DecodedInst& Out) {
    const cs_arm& A = Insn.detail->arm;
    INST_INFO& I = Out.Info;
    I.Mode = 2;
    I.Size = static_cast<I32>(Insn.size);
    // IT carries the condition of its block, but runs unconditionally itself.
    if (A.cc != ARM_CC_AL && A.cc != ARM_CC_INVALID && Insn.id != ARM_INS_IT) {
        I.Flags |= INST_CONDITIONAL;
    }
    const cs_arm_op* Op = A.operands;
    switch (Insn.id) {
    case ARM_INS_B:
        SetDirect(I, static_cast<U32>(Op[0].imm), 0);
        return true;
    case ARM_INS_BL:
        SetDirect(I, static_cast<U32>(Op[0].imm), INST_CALL);
        return true;
    case ARM_INS_CBZ:
    case ARM_INS_CBNZ:
        SetDirect(I, static_cast<U32>(Op[1].imm), INST_CONDITIONAL);
        return true;
    case ARM_INS_BLX:
        // BLX with an immediate switches to ARM state, which an M-profile core doesn't have.
        if (A.op_count != 1 || Op[0].type != ARM_OP_REG) {
            return false;
        }
        SetBranch(I, INST_CALL | INST_BRANCH_OTHER);
        return true;
    case ARM_INS_BX:
        SetBranch(I, (IsReg(Op[0], ARM_REG_LR) ? INST_RETURN : 0) | INST_BRANCH_OTHER);
        return true;
    case ARM_INS_TBB:
    case ARM_INS_TBH:
        SetBranch(I, INST_BRANCH_OTHER);
        return true;
    case ARM_INS_POP:
        I.SPDelta = ListBytes(A, 0);
        if (ListHasPC(A, 0)) {
            SetBranch(I, INST_RETURN | INST_BRANCH_OTHER);
        }
        return true;
    case ARM_INS_PUSH:
        I.SPDelta = -ListBytes(A, 0);
        return true;
    case ARM_INS_VPUSH:
        I.SPDelta = -ListBytes(A, 0);
        return true;
    case ARM_INS_VPOP:
        I.SPDelta = ListBytes(A, 0);
        return true;
    case ARM_INS_LDM:
    case ARM_INS_LDMDB:
    case ARM_INS_STM:
    case ARM_INS_STMDB:
    case ARM_INS_VLDMIA:
    case ARM_INS_VLDMDB:
    case ARM_INS_VSTMIA:
    case ARM_INS_VSTMDB: {
        const bool Down = Insn.id == ARM_INS_LDMDB || Insn.id == ARM_INS_STMDB || Insn.id == ARM_INS_VLDMDB ||
                          Insn.id == ARM_INS_VSTMDB;
        const bool BaseSP = IsReg(Op[0], ARM_REG_SP);
        if (BaseSP && A.writeback) {
            I.SPDelta = Down ? -ListBytes(A, 1) : ListBytes(A, 1);
        }
        if ((Insn.id == ARM_INS_LDM || Insn.id == ARM_INS_LDMDB) && ListHasPC(A, 1)) {
            SetBranch(I, (BaseSP ? INST_RETURN : 0) | INST_BRANCH_OTHER);
        }
        return true;
    }
    case ARM_INS_MOV:
        if (A.op_count == 2 && IsReg(Op[0], ARM_REG_PC)) {
            SetBranch(I, (IsReg(Op[1], ARM_REG_LR) ? INST_RETURN : 0) | INST_BRANCH_OTHER);
        } else if (A.op_count == 2 && IsReg(Op[0], ARM_REG_R8) && IsReg(Op[1], ARM_REG_R8)) {
            I.Flags |= INST_PADDING; // the ARMv6-M filler
        }
        return true;
    case ARM_INS_ADD:
    case ARM_INS_ADDW:
    case ARM_INS_SUB:
    case ARM_INS_SUBW:
        AnalyzeAddSub(Insn, Out);
        return true;
    case ARM_INS_ADR:
        I.Flags |= INST_LITERAL;
        I.Target = LiteralBase(Insn.address) + static_cast<I64>(Op[1].imm);
        return true;
    case ARM_INS_NOP:
        I.Flags |= INST_PADDING;
        return true;
    case ARM_INS_SVC:
        // Returns to the next instruction like a call: stepping over it runs the handler.
        SetBranch(I, INST_CALL | INST_BRANCH_OTHER);
        return true;
    case ARM_INS_BKPT:
        I.Flags |= INST_SKIP_ON_RESUME | INST_NOT_STRAIGHT;
        return true;
    case ARM_INS_UDF:
        I.Flags |= INST_NOT_STRAIGHT;
        return true;
    default:
        break;
    }
    for (int i = 0; i < A.op_count; ++i) {
        if (Op[i].type == ARM_OP_MEM) {
            AnalyzeMemory(Insn, i, Out);
            break;
        }
    }
    return true;
}

} // namespace ArmCore
