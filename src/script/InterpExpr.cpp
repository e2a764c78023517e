// Expressions: precedence climbing straight over the text, with values of 64 bits.

#include "script/InterpInternal.h"

#include <limits>

namespace ScriptInterp::Detail {
namespace {

struct BINARY_OP {
    char Text[3];
    U8 Length;
    U8 Op;
    U8 Precedence;
};

// In matching order: the two-character operators first, so that the longest match wins. Each operator
// has a precedence of its own, and the right side is read with it: equal operators group to the right.
const BINARY_OP s_BinaryOps[] = {
    {">=", 2, OP_GE, 11}, {"<=", 2, OP_LE, 13}, {"&&", 2, OP_LAND, 5}, {"||", 2, OP_LOR, 4},
    {"==", 2, OP_EQ, 10}, {"!=", 2, OP_NE, 9},  {"<<", 2, OP_SHL, 16}, {">>", 2, OP_SHR, 15},
    {"*", 1, OP_MUL, 21}, {"/", 1, OP_DIV, 20}, {"+", 1, OP_ADD, 18},  {"-", 1, OP_SUB, 17},
    {">", 1, OP_GT, 12},  {"<", 1, OP_LT, 14},  {"&", 1, OP_AND, 8},   {"|", 1, OP_OR, 6},
    {"^", 1, OP_XOR, 7},
};

const BINARY_OP* MatchBinary(const char* P) {
    for (const BINARY_OP& B : s_BinaryOps) {
        if (P[0] == B.Text[0] && (B.Length == 1 || P[1] == B.Text[1])) {
            return &B;
        }
    }
    return nullptr;
}

enum PREFIX_OPS { PRE_NONE, PRE_INC, PRE_DEC, PRE_NOT, PRE_INV, PRE_NEG, PRE_PLUS };

PREFIX_OPS MatchPrefix(CScriptHeap* H) {
    const char* P = H->Cursor;
    PREFIX_OPS Op = PRE_NONE;
    int Length = 1;
    if (P[0] == '+' && P[1] == '+') {
        Op = PRE_INC;
        Length = 2;
    } else if (P[0] == '-' && P[1] == '-') {
        Op = PRE_DEC;
        Length = 2;
    } else if (P[0] == '!') {
        Op = PRE_NOT;
    } else if (P[0] == '~') {
        Op = PRE_INV;
    } else if (P[0] == '-') {
        Op = PRE_NEG;
    } else if (P[0] == '+') {
        Op = PRE_PLUS;
    }
    if (Op != PRE_NONE) {
        H->Cursor += Length;
    }
    return Op;
}

/// "++" and "--" change only the value, never a variable.
U64 ApplyPrefix(PREFIX_OPS Op, U64 V) {
    switch (Op) {
    case PRE_INC:
        return V + 1;
    case PRE_DEC:
        return V - 1;
    case PRE_NOT:
        return V == 0;
    case PRE_INV:
        return ~V;
    case PRE_NEG:
        return 0 - V;
    default:
        return V;
    }
}

/// A string literal becomes a character array variable at the low end; it lives until the next load.
int ParseString(CScriptHeap* H, OPERAND* Out) {
    const char* Start = H->Cursor + 1;
    const char* End = Start;
    // The literal ends at the next quote: a backslash does not protect it.
    while (*End != '"') {
        if (*End == '\n' || *End == '\0') {
            H->Cursor = End;
            Error(H, "illegal character in string");
            return -1;
        }
        ++End;
    }
    size_t Length = 0;
    for (const char* P = Start; P < End; ++P, ++Length) {
        if (*P != '\\') {
            continue;
        }
        const char E = P + 1 < End ? P[1] : '"';
        if (E != '0' && E != '\\' && E != 'b' && E != 'n' && E != 'r' && E != 't') {
            H->Cursor = P;
            Error(H, "unexpected escape character.");
            return -1;
        }
        ++P;
    }
    CScriptNode* Var = NewNodeLow(H, NK_VARIABLE);
    CScriptNode* Type = NewNodeLow(H, NK_ARRAY);
    U8* Data = static_cast<U8*>(AllocLow(H, Length + 1, 1));
    if (!Var || !Type || !Data) {
        Error(H, "out of memory.");
        return -1;
    }
    Type->Array.Element = H->ConstCharType;
    Type->Array.Count = static_cast<I32>(Length + 1);
    Var->Var.Type = Type;
    Var->Var.Data = Data;
    U8* W = Data;
    for (const char* P = Start; P < End; ++P) {
        if (*P != '\\') {
            *W++ = static_cast<U8>(*P);
            continue;
        }
        switch (*++P) {
        case '0':
            *W++ = '\0';
            break;
        case 'b':
            *W++ = '\b';
            break;
        case 'n':
            *W++ = '\n';
            break;
        case 'r':
            *W++ = '\r';
            break;
        case 't':
            *W++ = '\t';
            break;
        default:
            *W++ = '\\';
            break;
        }
    }
    *W = '\0';
    H->Cursor = End + 1;
    Out->Value = reinterpret_cast<uintptr_t>(Data);
    Out->Ref = Var;
    return 0;
}

/// An array element: "[" index "]", bounds checked under ExecFlag only.
int ReadElement(CScriptHeap* H, CScriptNode* Var, int ExecFlag, OPERAND* Out) {
    CScriptNode* Type = Var->Var.Type;
    OPERAND IndexOp;
    U64 Index = 0;
    if (!ExpectChar(H, '[') || EvalExpression(H, ExecFlag, 0, &IndexOp) < 0 ||
        !ReadOperand(H, IndexOp, &Index) || !ExpectChar(H, ']')) {
        return -1;
    }
    const U64 Count = Type->Array.Count > 0 ? static_cast<U64>(Type->Array.Count) : 0;
    if (ExecFlag && Index >= Count) {
        Error(H, "array index out of range.");
        return -1;
    }
    CScriptNode* Element = ElementType(Type);
    if (!Element || !IsBaseKind(Element->Kind)) {
        Error(H, "currently, only arrays of base type variables are allowed.");
        return -1;
    }
    const I32 Size = Element->Base.Size;
    if (Size <= 0 || Size > 8) {
        Error(H, "unsupported base type size.");
        return -1;
    }
    Out->Ref = nullptr;
    Out->Value = 0;
    // A walk is not bounds checked; it reads nothing outside the array.
    if (Index >= Count) {
        return 0;
    }
    if (!Var->Var.Data) {
        Error(H, "out of memory.");
        return -1;
    }
    Out->Value = LoadValue(Var->Var.Data + Index * static_cast<U64>(Size), Size);
    return 0;
}

int Primary(CScriptHeap* H, int ExecFlag, OPERAND* Out) {
    if (!SkipSpace(H)) {
        return -1;
    }
    Out->Ref = nullptr;
    Out->Value = 0;
    const char C = *H->Cursor;
    if (C == '(') {
        ++H->Cursor;
        if (EvalExpression(H, ExecFlag, 0, Out) < 0 || !ExpectChar(H, ')')) {
            return -1;
        }
        return 0;
    }
    if (C == '"') {
        return ParseString(H, Out);
    }
    if (ReadNumber(H, &Out->Value)) {
        return 0;
    }
    const char* Name = nullptr;
    U32 Length = 0;
    if (!ReadName(H, &Name, &Length)) {
        Error(H, "expected a value or an identifier.");
        return -1;
    }
    CScriptNode* Sym = FindSymbol(H, Name, Length);
    if (!Sym) {
        Error(H, "unknown identifier.");
        return -1;
    }
    switch (Sym->Kind) {
    case NK_CONSTANT:
        Out->Value = static_cast<U64>(static_cast<I64>(Sym->Const.Value));
        return 0;
    case NK_VARIABLE:
        if (Sym->Var.Type && Sym->Var.Type->Kind == NK_ARRAY) {
            return ReadElement(H, Sym, ExecFlag, Out);
        }
        Out->Ref = Sym;
        return 0;
    case NK_FUNCTION:
        return ParseCall(H, Sym, ExecFlag, &Out->Value);
    default:
        Error(H, "syntax error. Unexpected type");
        return -1;
    }
}

} // namespace

bool ReadOperand(CScriptHeap* H, const OPERAND& Op, U64* Value) {
    if (!Op.Ref) {
        *Value = Op.Value;
        return true;
    }
    const CScriptNode* Type = Op.Ref->Var.Type;
    if (!Type || !IsBaseKind(Type->Kind)) {
        Error(H, "expected a base type.");
        return false;
    }
    const I32 Size = Type->Base.Size;
    if (Size < 1 || Size > 8) {
        Error(H, "unsupported base type size.");
        return false;
    }
    if (!Op.Ref->Var.Data) {
        Error(H, "out of memory.");
        return false;
    }
    *Value = LoadValue(Op.Ref->Var.Data, Size);
    return true;
}

bool ApplyOperator(CScriptHeap* H, U8 Op, U64 L, U64 R, int ExecFlag, U64* Result) {
    const I64 SL = static_cast<I64>(L);
    const I64 SR = static_cast<I64>(R);
    switch (Op) {
    case OP_MUL:
        *Result = L * R;
        return true;
    case OP_DIV:
        if (R == 0 || (SL == std::numeric_limits<I64>::min() && SR == -1)) {
            if (ExecFlag) {
                Error(H, R == 0 ? "division by zero." : "division overflow.");
                return false;
            }
            *Result = R == 0 ? 0 : L;
            return true;
        }
        *Result = static_cast<U64>(SL / SR);
        return true;
    case OP_ADD:
        *Result = L + R;
        return true;
    case OP_SUB:
        *Result = L - R;
        return true;
    case OP_SHL:
        *Result = L << (R & 63);
        return true;
    case OP_SHR:
        *Result = static_cast<U64>(SL >> (R & 63));
        return true;
    case OP_LT:
        *Result = SL < SR;
        return true;
    case OP_LE:
        *Result = SL <= SR;
        return true;
    case OP_GT:
        *Result = SL > SR;
        return true;
    case OP_GE:
        *Result = SL >= SR;
        return true;
    case OP_EQ:
        *Result = L == R;
        return true;
    case OP_NE:
        *Result = L != R;
        return true;
    case OP_AND:
        *Result = L & R;
        return true;
    case OP_XOR:
        *Result = L ^ R;
        return true;
    case OP_OR:
        *Result = L | R;
        return true;
    case OP_LAND:
        *Result = L != 0 && R != 0;
        return true;
    case OP_LOR:
        *Result = L != 0 || R != 0;
        return true;
    default:
        Error(H, "syntax error.");
        return false;
    }
}

int EvalExpression(CScriptHeap* H, int ExecFlag, int MinPrecedence, OPERAND* Out) {
    if (H->ErrorFlag) {
        return -1;
    }
    NestGuard Guard(H);
    if (!Guard.Ok() || !SkipSpace(H)) {
        return -1;
    }
    CountStep(H);
    const PREFIX_OPS Prefix = MatchPrefix(H);
    OPERAND Op;
    if (Primary(H, ExecFlag, &Op) < 0) {
        return -1;
    }
    if (Prefix != PRE_NONE) {
        U64 V = 0;
        if (!ReadOperand(H, Op, &V)) {
            return -1;
        }
        Op = {ApplyPrefix(Prefix, V), nullptr};
    }
    for (;;) {
        if (!SkipSpace(H)) {
            return -1;
        }
        const BINARY_OP* B = MatchBinary(H->Cursor);
        // An operator that binds less than the caller's is left in front of the cursor for the caller.
        if (!B || B->Precedence < MinPrecedence) {
            break;
        }
        H->Cursor += B->Length;
        U64 Left = 0;
        U64 Right = 0;
        OPERAND RightOp;
        if (!ReadOperand(H, Op, &Left) || EvalExpression(H, ExecFlag, B->Precedence, &RightOp) < 0 ||
            !ReadOperand(H, RightOp, &Right) || !ApplyOperator(H, B->Op, Left, Right, ExecFlag, &Op.Value)) {
            return -1;
        }
        Op.Ref = nullptr;
    }
    *Out = Op;
    return 0;
}

int ParseCall(CScriptHeap* H, CScriptNode* Fn, int ExecFlag, U64* Result) {
    *Result = 0;
    if (!ExpectChar(H, '(')) {
        return -1;
    }
    U64 Args[SCRIPT_MAX_ARGS] = {};
    int Count = 0;
    bool Failed = false;
    ERROR_CAUSE Cause{};
    U32 CauseCount = 0;
    // The declared parameters drive the loop; the text's argument count is not checked against them.
    for (CScriptNode* P = Fn->Func.Parameters; P && Count < SCRIPT_MAX_ARGS; P = P->Next) {
        OPERAND Op;
        U64 V = 0;
        bool ArgFailed = false;
        if (EvalExpression(H, ExecFlag, 0, &Op) < 0) {
            ArgFailed = true;
        } else if (Op.Ref && Op.Ref->Var.Type && Op.Ref->Var.Type->Kind == NK_ARRAY) {
            V = Op.Value; // a string literal passes the address of its characters
        } else if (!ReadOperand(H, Op, &V)) {
            ArgFailed = true;
        }
        if (ArgFailed) {
            if (!Failed) {
                Cause = TakeCause(H);
                CauseCount = H->ErrorCount;
            }
            Failed = true;
            // The argument's error has been reported; it is forgotten and the call is not made.
            H->ErrorFlag = 0;
        }
        Args[Count++] = V;
        MatchChar(H, ',');
    }
    const bool Closed = ExpectChar(H, ')');
    // Parsing goes on behind a failed argument from where its error stopped, inside a string literal for
    // one: what fails next in this call ("Expected a ')'") only follows from it. The first cause stands.
    if (Failed && H->ErrorCount != CauseCount) {
        RaiseAgain(H, Cause);
        if (Closed) {
            H->ErrorFlag = 0;
        }
    }
    if (!Closed) {
        return -1;
    }
    if (!ExecFlag || Failed || H->StopFlag) {
        return 0;
    }
    if (IsNative(Fn)) {
        if (Count <= SCRIPT_MAX_NATIVE_ARGS && Fn->Func.Entry) {
            *Result = static_cast<U64>(static_cast<I64>(Fn->Func.Entry(Args, Count)));
        }
        return H->ErrorFlag ? -1 : 0;
    }
    return RunFunction(H, Fn, Args, Result);
}

} // namespace ScriptInterp::Detail
