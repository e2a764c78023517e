// The Thumb decoder: reads the bytes through the debugger, finds an enclosing IT block and decodes with
// capstone. One capstone handle, guarded by a lock: the GUI thread and the device thread both decode.
#include "Decoder.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace ArmCore {
namespace {

// An IT block holds up to four instructions, so the IT stands at most three 32-bit instructions and
// its own halfword before the last one.
constexpr U32 IT_LOOK_BEHIND = 14;
constexpr U32 MAX_WINDOW = IT_LOOK_BEHIND + 4;

std::mutex s_Mutex;
csh s_Handle = 0;
bool s_Open = false;
bool s_OpenBigEndian = false;

bool OpenHandle(bool BigEndian) {
    if (s_Open && s_OpenBigEndian == BigEndian) {
        return true;
    }
    if (s_Open) {
        cs_close(&s_Handle);
        s_Open = false;
    }
    // MCLASS for the system registers, V8 for load-acquire and store-release; what a variant lacks is
    // filtered afterwards.
    int Mode = CS_MODE_THUMB | CS_MODE_MCLASS | CS_MODE_V8 | (BigEndian ? CS_MODE_BIG_ENDIAN : 0);
    if (cs_open(CS_ARCH_ARM, static_cast<cs_mode>(Mode), &s_Handle) != CS_ERR_OK) {
        return false;
    }
    cs_option(s_Handle, CS_OPT_DETAIL, CS_OPT_ON);
    s_Open = true;
    s_OpenBigEndian = BigEndian;
    return true;
}

/// The bytes around the instruction: up to IT_LOOK_BEHIND before it and up to 4 from it.
struct CodeWindow {
    U8 Bytes[MAX_WINDOW];
    U64 Start = 0;
    U32 Size = 0;
    bool BigEndian = false;

    bool Has(U64 Addr, U32 N) const { return Addr >= Start && Addr + N <= Start + Size; }
    U16 Half(U64 Addr) const {
        const U8* p = Bytes + (Addr - Start);
        return BigEndian ? U16(p[0] << 8 | p[1]) : U16(p[1] << 8 | p[0]);
    }
};

int ReadWindow(U64 Addr, CodeWindow& W) {
    for (U32 N : {4u, 2u}) {
        if (Addr >= IT_LOOK_BEHIND && ReadMem(Addr - IT_LOOK_BEHIND, IT_LOOK_BEHIND + N, W.Bytes) == 0) {
            W.Start = Addr - IT_LOOK_BEHIND;
            W.Size = IT_LOOK_BEHIND + N;
            return 0;
        }
        U8 Inst[4];
        if (ReadMem(Addr, N, Inst) != 0) {
            continue;
        }
        // Near the start of a memory region: take as much of what lies before as can be read.
        U32 Back = IT_LOOK_BEHIND - 2;
        for (; Back > 0; Back -= 2) {
            if (Addr >= Back && ReadMem(Addr - Back, Back, W.Bytes) == 0) {
                break;
            }
        }
        memcpy(W.Bytes + Back, Inst, N);
        W.Start = Addr - Back;
        W.Size = Back + N;
        return 0;
    }
    return -1;
}

struct ItContext {
    bool Found = false;
    U64 Start = 0; ///< address of the IT instruction
    U32 Index = 0; ///< position of the instruction in the block, 1 for the first
    arm_cc Cond = ARM_CC_AL;
};

/// True for a halfword that encodes an IT instruction a compiler would write: "IT AL" blocks are
/// left out, as they change nothing and the pattern is common in literal pool words.
bool IsItOpcode(U16 Hw) {
    const U32 FirstCond = (Hw >> 4) & 0xF;
    return (Hw & 0xFF00) == 0xBF00 && (Hw & 0xF) != 0 && FirstCond < 0xE;
}

/// Looks back for an IT instruction whose block covers Addr. Thumb code can't be read backwards for
/// sure, so the window is parsed forward from its first halfword, or from its second if that parse
/// doesn't land on Addr. In a parse the nearest IT before Addr decides: a block can't hold another IT.
/// An IT inside a data region (by the program's mapping symbols) is a literal.
ItContext FindItBlock(const CodeWindow& W, U64 Addr) {
    ItContext It;
    for (U64 From = W.Start; From < Addr && From <= W.Start + 2; From += 2) {
        U64 P = From;
        U64 LastIt = 0;
        bool HaveIt = false;
        U32 After = 0; // instructions between the last IT and P
        while (P < Addr) {
            const U16 Hw = W.Half(P);
            if (IsItOpcode(Hw)) {
                HaveIt = true;
                LastIt = P;
                After = 0;
            } else {
                ++After;
            }
            P += Is32BitPrefix(Hw) ? 4 : 2;
        }
        if (P != Addr) {
            continue;
        }
        if (!HaveIt) {
            return It;
        }
        const U16 Hw = W.Half(LastIt);
        const U32 Mask = Hw & 0xF;
        const U32 FirstCond = (Hw >> 4) & 0xF;
        const U32 Count = 4 - __builtin_ctz(Mask);
        if (After >= Count || IsDataRegion(LastIt)) {
            return It;
        }
        // Instruction K (from 0) of the block takes firstcond, the later ones firstcond with its low
        // bit replaced by their mask bit.
        const U32 K = After;
        const U32 Cond = K == 0 ? FirstCond : (FirstCond & 0xE) | ((Mask >> (4 - K)) & 1);
        It.Found = true;
        It.Start = LastIt;
        It.Index = K + 1;
        It.Cond = static_cast<arm_cc>(Cond + 1); // capstone numbers conditions from 1 (EQ)
        return It;
    }
    return It;
}

bool IsWordChar(char C) {
    return isalnum(static_cast<unsigned char>(C)) || C == '_';
}

/// Operand text as shown: R9 by its number, as binutils does (its role depends on the platform), hex
/// digits in upper case, and, unless the instruction addresses memory, negative immediates as the
/// 32-bit pattern they stand for ("#0xFFFFFFFF", not "#-1").
void PolishOperands(const char* Src, bool Unsigned, char* Dst, size_t DstSize) {
    size_t o = 0;
    bool InHex = false;
    for (size_t i = 0; Src[i] != '\0' && o + 1 < DstSize; ++i) {
        const char C = Src[i];
        if (C == 's' && Src[i + 1] == 'b' && (i == 0 || !IsWordChar(Src[i - 1])) && !IsWordChar(Src[i + 2])) {
            o += snprintf(Dst + o, DstSize - o, "r9");
            ++i;
            continue;
        }
        if (Unsigned && C == '#' && Src[i + 1] == '-' && isdigit(static_cast<unsigned char>(Src[i + 2]))) {
            char* End = nullptr;
            const long long V = strtoll(Src + i + 1, &End, 0);
            if (*End != '.' && *End != 'e') {
                o += snprintf(Dst + o, DstSize - o, "#0x%X", static_cast<U32>(V));
                i = End - Src - 1;
                continue;
            }
        }
        if (InHex && !isxdigit(static_cast<unsigned char>(C))) {
            InHex = false;
        }
        Dst[o++] = InHex ? static_cast<char>(toupper(static_cast<unsigned char>(C))) : C;
        if (C == 'x' && i > 0 && Src[i - 1] == '0') {
            InHex = true;
        }
    }
    Dst[o < DstSize ? o : DstSize - 1] = '\0';
}

bool HasMemoryOperand(const cs_insn& Insn) {
    const cs_arm& A = Insn.detail->arm;
    for (int i = 0; i < A.op_count; ++i) {
        if (A.operands[i].type == ARM_OP_MEM) {
            return true;
        }
    }
    return false;
}

/// Mnemonic and operands as shown: absolute branch targets, and ADR with the address it forms.
void SetText(const cs_insn& Insn, DecodedInst& Out) {
    const INST_INFO& I = Out.Info;
    snprintf(Out.Mnemonic, sizeof Out.Mnemonic, "%s", Insn.mnemonic);
    char Ops[sizeof Out.Operands];
    snprintf(Ops, sizeof Ops, "%s", Insn.op_str);
    if (I.Flags & INST_DIRECT) {
        // The target is the last operand: capstone prints it as an immediate.
        if (char* Hash = strrchr(Ops, '#')) {
            snprintf(Hash, sizeof Ops - (Hash - Ops), "0x%08llX", static_cast<unsigned long long>(I.Target));
        }
    } else if (Insn.id == ARM_INS_ADR ||
               ((Insn.id == ARM_INS_ADDW || Insn.id == ARM_INS_SUBW) && (I.Flags & INST_LITERAL))) {
        snprintf(Out.Mnemonic, sizeof Out.Mnemonic, "%s", Insn.size == 2 ? "adr" : "adr.w");
        const char* Comma = strchr(Insn.op_str, ',');
        const int RegLen = Comma ? static_cast<int>(Comma - Insn.op_str) : 0;
        snprintf(Ops, sizeof Ops, "%.*s, 0x%08llX", RegLen, Insn.op_str,
                 static_cast<unsigned long long>(I.Target));
    }
    PolishOperands(Ops, !HasMemoryOperand(Insn), Out.Operands, sizeof Out.Operands);
}

} // namespace

int Decode(U64 Addr, DecodedInst& Out, bool WantText) {
    Out = DecodedInst{};
    if (Addr & 1) {
        return DECODE_NO_INST;
    }
    const PluginConfig Cfg = GetConfig();
    CodeWindow W;
    W.BigEndian = Cfg.InstBigEndian;
    if (ReadWindow(Addr, W) != 0) {
        return DECODE_READ_FAILED;
    }
    const U16 Hw0 = W.Half(Addr);
    const bool Have32 = W.Has(Addr, 4);
    if (Is32BitPrefix(Hw0) && !Have32) {
        return DECODE_READ_FAILED;
    }
    const U16 Hw1 = Have32 ? W.Half(Addr + 2) : 0;
    const ArchVariant V = Cfg.Profile.Variant;
    const bool HasIt = V != ArchVariant::V6M && V != ArchVariant::V8MBase;
    const ItContext It = HasIt ? FindItBlock(W, Addr) : ItContext();
    if (Cfg.Profile.HasSecurity && DecodeSecurityExt(Hw0, Hw1, Have32, It.Cond, Out)) {
        return DECODE_OK;
    }

    std::lock_guard<std::mutex> Lock(s_Mutex);
    if (!OpenHandle(Cfg.InstBigEndian)) {
        return DECODE_READ_FAILED;
    }
    // Inside an IT block the decoder needs the IT instruction first to know the condition; capstone
    // clears its IT state at the start of each cs_disasm call.
    cs_insn* Insns = nullptr;
    size_t Count = 0;
    const cs_insn* Found = nullptr;
    if (It.Found) {
        const U64 Off = It.Start - W.Start;
        Count = cs_disasm(s_Handle, W.Bytes + Off, W.Size - Off, It.Start, It.Index + 1, &Insns);
        if (Count == It.Index + 1 && Insns[It.Index].address == Addr) {
            Found = &Insns[It.Index];
        } else {
            cs_free(Insns, Count);
            Count = 0;
        }
    }
    if (Found == nullptr) {
        const U64 Off = Addr - W.Start;
        Count = cs_disasm(s_Handle, W.Bytes + Off, W.Size - Off, Addr, 1, &Insns);
        Found = Count == 1 ? &Insns[0] : nullptr;
    }
    int Result = DECODE_NO_INST;
    if (Found != nullptr && IsAllowed(*Found, Cfg.Profile) && AnalyzeInsn(*Found, Out)) {
        if (WantText) {
            SetText(*Found, Out);
        }
        Result = DECODE_OK;
    } else {
        Out = DecodedInst{};
    }
    cs_free(Insns, Count);
    return Result;
}

void ShutdownDecoder() {
    std::lock_guard<std::mutex> Lock(s_Mutex);
    if (s_Open) {
        cs_close(&s_Handle);
        s_Open = false;
    }
}

} // namespace ArmCore
