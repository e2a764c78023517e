// Statements, run straight from the text every time, and the calls of script functions.

#include "script/InterpInternal.h"

#include <string>
#include <utility>
#include <vector>

namespace ScriptInterp {

using namespace Detail;

namespace {

constexpr U64 LOCAL_DATA_RESERVE = 256;

struct ASSIGN_OP {
    const char* Text;
    U8 Length;
    I32 Op; ///< SCRIPT_OPS, or -1 for a plain "="
};

// In matching order.
const ASSIGN_OP s_AssignOps[] = {
    {"+=", 2, OP_ADD}, {"-=", 2, OP_SUB}, {"*=", 2, OP_MUL},  {"/=", 2, OP_DIV},  {"&=", 2, OP_AND},
    {"|=", 2, OP_OR},  {"^=", 2, OP_XOR}, {"<<=", 3, OP_SHL}, {">>=", 3, OP_SHR}, {"=", 1, -1},
};

/// Reads a condition "(" expression ")" and gives its value.
bool ReadCondition(CScriptHeap* H, int ExecFlag, U64* Value) {
    OPERAND Op;
    return ExpectChar(H, '(') && EvalExpression(H, ExecFlag, 0, &Op) == 0 && ReadOperand(H, Op, Value) &&
           ExpectChar(H, ')');
}

int ExecAssignment(CScriptHeap* H, CScriptNode* Var, int ExecFlag) {
    CScriptNode* Type = Var->Var.Type;
    const bool IsArray = Type && Type->Kind == NK_ARRAY;
    U64 Index = 0;
    if (IsArray) {
        OPERAND IndexOp;
        if (!ExpectChar(H, '[') || EvalExpression(H, ExecFlag, 0, &IndexOp) < 0 ||
            !ReadOperand(H, IndexOp, &Index) || !ExpectChar(H, ']')) {
            return -1;
        }
        if (ExecFlag && (Type->Array.Count <= 0 || Index >= static_cast<U64>(Type->Array.Count))) {
            Error(H, "array index out of range.");
            return -1;
        }
    }
    if (!SkipSpace(H)) {
        return -1;
    }
    const ASSIGN_OP* Assign = nullptr;
    for (const ASSIGN_OP& A : s_AssignOps) {
        if (std::strncmp(H->Cursor, A.Text, A.Length) == 0) {
            Assign = &A;
            break;
        }
    }
    // Without an operator the statement ends here, and what follows is the next statement.
    if (!Assign) {
        return 0;
    }
    H->Cursor += Assign->Length;
    OPERAND Op;
    U64 Value = 0;
    if (EvalExpression(H, ExecFlag, 0, &Op) < 0 || !ReadOperand(H, Op, &Value) || !ExpectChar(H, ';')) {
        return -1;
    }
    if (!ExecFlag) {
        return 0;
    }
    CScriptNode* Element = IsArray ? ElementType(Type) : Type;
    if (!Element || !IsBaseKind(Element->Kind)) {
        Error(H, "assignments are allowed for base types only");
        return -1;
    }
    const I32 Size = Element->Base.Size;
    if (Size > 8) {
        Error(H, "base type size exceeds 8 bytes");
        return -1;
    }
    if (Size < 1) {
        Error(H, "base type size must be at least 1 byte");
        return -1;
    }
    if (!Var->Var.Data) {
        Error(H, "out of memory.");
        return -1;
    }
    U8* Data = Var->Var.Data + Index * static_cast<U64>(Size);
    if (Assign->Op >= 0 &&
        !ApplyOperator(H, static_cast<U8>(Assign->Op), LoadValue(Data, Size), Value, ExecFlag, &Value)) {
        return -1;
    }
    StoreValue(Data, Value, Size);
    return 0;
}

/// A local lives at the high end until its function returns; it is declared also when only walked over.
int ExecDeclaration(CScriptHeap* H) {
    CScriptNode* Var = NewNodeHigh(H, NK_VARIABLE);
    if (!Var) {
        return -1;
    }
    const char* Name = nullptr;
    U32 Length = 0;
    CScriptNode* Sym = ReadName(H, &Name, &Length) ? FindSymbol(H, Name, Length) : nullptr;
    while (Sym && Sym->Kind == NK_QUALIFIER) {
        if (!AddAttribute(H, Var, Sym, true)) {
            return -1;
        }
        Sym = ReadName(H, &Name, &Length) ? FindSymbol(H, Name, Length) : nullptr;
    }
    if (H->ErrorFlag) {
        return -1;
    }
    if (!Sym || !IsBaseKind(Sym->Kind)) {
        Error(H, "currently only basic data types for local variables are allowed.");
        return -1;
    }
    CScriptNode* Type = Sym;
    if (MatchChar(H, '*')) {
        Type = NewNodeHigh(H, NK_POINTER);
        if (!Type) {
            return -1;
        }
        Type->Ref.Target = Sym;
    }
    if (!ReadName(H, &Name, &Length)) {
        Error(H, "expected an identifier.");
        return -1;
    }
    Var->Name = CopyNameHigh(H, Name, Length);
    Var->NameLen = Length;
    if (!Var->Name) {
        return -1;
    }
    if (MatchChar(H, '[')) {
        const bool Negative = MatchChar(H, '-');
        U64 Count = 0;
        if (!ReadNumber(H, &Count)) {
            Error(H, "expected an integer value");
            return -1;
        }
        if (!ExpectChar(H, ']')) {
            return -1;
        }
        CScriptNode* Array = NewNodeHigh(H, NK_ARRAY);
        if (!Array) {
            return -1;
        }
        Array->Array.Element = Type;
        Array->Array.Count = static_cast<I32>(Negative ? 0 - Count : Count);
        Type = Array;
    }
    Var->Var.Type = Type;
    const I64 Size = TypeSize(Type);
    // Data leaves room for the nodes of a declaration or two, so that a function that declares until the
    // block is full ends in a variable without data, which its next use reports, and not in a node that
    // finds no room, which ends the run without a message.
    const U64 Free = static_cast<U64>(H->High - H->Low);
    if (Size >= 0 && static_cast<U64>(Size) + LOCAL_DATA_RESERVE <= Free) {
        Var->Var.Data = static_cast<U8*>(AllocHigh(H, static_cast<size_t>(Size), 1));
        if (Var->Var.Data) {
            std::memset(Var->Var.Data, 0, static_cast<size_t>(Size));
        }
    }
    if (!ExpectChar(H, ';')) {
        return -1;
    }
    AppendLocal(H, Var);
    return 0;
}

int ExecBlock(CScriptHeap* H, U64* ReturnValue, int ExecFlag) {
    for (;;) {
        if (MatchChar(H, '}')) {
            return 0;
        }
        const int R = ExecStatement(H, ReturnValue, ExecFlag);
        if (R != 0) {
            return R;
        }
    }
}

int ExecIf(CScriptHeap* H, U64* ReturnValue, int ExecFlag) {
    U64 Cond = 0;
    if (!ReadCondition(H, ExecFlag, &Cond)) {
        return -1;
    }
    const int R = ExecStatement(H, ReturnValue, ExecFlag && Cond != 0);
    if (R != 0) {
        return R;
    }
    if (MatchKeyword(H, "else", 4)) {
        return ExecStatement(H, ReturnValue, ExecFlag && Cond == 0);
    }
    return H->ErrorFlag ? -1 : 0;
}

int ExecWhile(CScriptHeap* H, U64* ReturnValue, int ExecFlag) {
    const TEXT_POS Top = SavePos(H);
    for (;;) {
        RestorePos(H, Top);
        U64 Cond = 0;
        if (!ReadCondition(H, ExecFlag, &Cond)) {
            return -1;
        }
        const int Run = ExecFlag && Cond != 0 && !H->StopFlag;
        const int R = ExecStatement(H, ReturnValue, Run);
        if (R != 0) {
            return R;
        }
        // The last round walks the statement, which leaves the text behind it.
        if (!Run) {
            return 0;
        }
    }
}

int ExecDo(CScriptHeap* H, U64* ReturnValue, int ExecFlag) {
    const TEXT_POS Top = SavePos(H);
    for (;;) {
        const int R = ExecStatement(H, ReturnValue, ExecFlag);
        if (R != 0) {
            return R;
        }
        if (!MatchKeyword(H, "while", 5)) {
            ErrorF(H, "syntax error. Missing \"while\" at line %d", H->Line);
            return -1;
        }
        U64 Cond = 0;
        if (!ReadCondition(H, ExecFlag, &Cond) || !ExpectChar(H, ';')) {
            return -1;
        }
        if (!(Cond != 0 && ExecFlag && !H->StopFlag)) {
            return 0;
        }
        RestorePos(H, Top);
    }
}

int ExecStatementBody(CScriptHeap* H, U64* ReturnValue, int ExecFlag) {
    if (*H->Cursor == '{') {
        ++H->Cursor;
        return ExecBlock(H, ReturnValue, ExecFlag);
    }
    if (MatchKeyword(H, "return", 6)) {
        OPERAND Op;
        U64 Value = 0;
        if (EvalExpression(H, ExecFlag, 0, &Op) < 0 || !ReadOperand(H, Op, &Value) || !ExpectChar(H, ';')) {
            return -1;
        }
        // A walked return ends nothing: the walk goes on to the end of its branch.
        if (!ExecFlag) {
            return 0;
        }
        *ReturnValue = Value;
        return 1;
    }
    if (MatchKeyword(H, "if", 2)) {
        return ExecIf(H, ReturnValue, ExecFlag);
    }
    if (MatchKeyword(H, "else", 4)) {
        Error(H, "keyword \"else\" is not allowed without \"if\"");
        return -1;
    }
    if (MatchKeyword(H, "for", 3)) {
        Error(H, "keyword \"for\" is not yet supported");
        return -1;
    }
    if (MatchKeyword(H, "while", 5)) {
        return ExecWhile(H, ReturnValue, ExecFlag);
    }
    if (MatchKeyword(H, "do", 2)) {
        return ExecDo(H, ReturnValue, ExecFlag);
    }
    const TEXT_POS Start = SavePos(H);
    const char* Name = nullptr;
    U32 Length = 0;
    CScriptNode* Sym = ReadName(H, &Name, &Length) ? FindSymbol(H, Name, Length) : nullptr;
    if (!Sym) {
        Error(H, "syntax error.");
        return -1;
    }
    switch (Sym->Kind) {
    case NK_VARIABLE:
        return ExecAssignment(H, Sym, ExecFlag);
    case NK_FUNCTION: {
        U64 Ignored = 0;
        return ParseCall(H, Sym, ExecFlag, &Ignored) == 0 && ExpectChar(H, ';') ? 0 : -1;
    }
    case NK_QUALIFIER:
    case NK_BASE_TYPE:
    case 2:
    case 3:
        RestorePos(H, Start);
        return ExecDeclaration(H);
    default:
        Error(H, "syntax error.");
        return -1;
    }
}

} // namespace

namespace Detail {

int ExecStatement(CScriptHeap* H, U64* ReturnValue, int ExecFlag) {
    if (H->ErrorFlag) {
        return -1;
    }
    NestGuard Guard(H);
    if (!Guard.Ok() || !SkipSpace(H)) {
        return -1;
    }
    CountStep(H);
    if (++H->Statements % SCRIPT_YIELD_INTERVAL == 0 && H->YieldCallback) {
        H->YieldCallback(H);
        if (H->ErrorFlag) {
            return -1;
        }
    }
    if (H->AbortFlag) {
        Error(H, SCRIPT_STOPPED_TEXT);
        return -1;
    }
    // Once the host asks to stop, the rest is only walked: nothing is written or called any more.
    if (H->StopFlag) {
        ExecFlag = 0;
    }
    const int R = ExecStatementBody(H, ReturnValue, ExecFlag);
    return H->ErrorFlag ? -1 : R;
}

int RunFunction(CScriptHeap* H, CScriptNode* Fn, U64* Args, U64* Result) {
    NestGuard Guard(H);
    if (!Guard.Ok() || !Fn->Func.Body) {
        return -1;
    }
    const TEXT_POS Saved = SavePos(H);
    const CScriptNode* const SavedFunction = H->Function;
    U8* const SavedHigh = H->High;
    CScriptNode* const SavedHead = H->LocalsHead;
    CScriptNode* const SavedTail = H->LocalsTail;
    H->LocalsHead = nullptr;
    H->LocalsTail = nullptr;

    int R = 0;
    int Index = 0;
    for (CScriptNode* P = Fn->Func.Parameters; P && Index < SCRIPT_MAX_ARGS; P = P->Next, ++Index) {
        if (!P->Name) {
            continue;
        }
        CScriptNode* Copy = NewNodeHigh(H, NK_VARIABLE);
        if (!Copy) {
            R = -1;
            break;
        }
        *Copy = *P;
        // The parameter is the argument's slot: it can be assigned to, and 8 bytes stand behind it.
        Copy->Var.Data = reinterpret_cast<U8*>(&Args[Index]);
        AppendLocal(H, Copy);
    }
    U64 ReturnValue = 0;
    if (R == 0) {
        H->Function = Fn;
        H->Cursor = Fn->Func.Body;
        H->Line = Fn->Func.Line;
        H->LineStart = Fn->Func.LineStart;
        R = ExpectChar(H, '{') ? 0 : -1;
    }
    while (R == 0 && !H->StopFlag && !MatchChar(H, '}')) {
        if (H->ErrorFlag) {
            R = -1;
            break;
        }
        R = ExecStatement(H, &ReturnValue, 1);
    }
    if (H->ErrorFlag) {
        R = -1;
    }

    RestorePos(H, Saved);
    H->Function = SavedFunction;
    H->High = SavedHigh;
    H->LocalsHead = SavedHead;
    H->LocalsTail = SavedTail;
    if (R < 0) {
        return -1;
    }
    *Result = ReturnValue;
    return 0;
}

} // namespace Detail

namespace {

/// One call from the host, for as long as it lives. The low end goes back to where it stood, which gives
/// back the string literals of the call; the outermost call also ends the user's stop request.
class HostCall {
public:
    explicit HostCall(CScriptHeap* H)
        : m_Heap(H), m_Low(H->Low), m_Tail(H->GlobalsTail), m_Outermost(H->Nesting == 0) {}
    ~HostCall() {
        Release();
        if (m_Outermost) {
            m_Heap->AbortFlag = 0;
        }
    }
    HostCall(const HostCall&) = delete;
    HostCall& operator=(const HostCall&) = delete;

private:
    void Release() {
        CScriptHeap* H = m_Heap;
        if (H->Low == m_Low || !m_Tail) {
            return;
        }
        // Constants that Script.DefineConst made during the call stand among the literals: they are made
        // again behind the mark. Nothing else reaches the low end during a call; should anything, the
        // room stays taken.
        std::vector<std::pair<std::string, I32>> Defined;
        for (const CScriptNode* N = m_Tail->Next; N; N = N->Next) {
            if (N->Kind != NK_CONSTANT) {
                return;
            }
            Defined.emplace_back(std::string(N->Name, N->NameLen), N->Const.Value);
        }
        H->Low = m_Low;
        m_Tail->Next = nullptr;
        H->GlobalsTail = m_Tail;
        for (const auto& [Name, Value] : Defined) {
            AddConstant(H, Name.data(), Name.size(), Value);
        }
    }

    CScriptHeap* m_Heap;
    U8* m_Low;
    CScriptNode* m_Tail;
    bool m_Outermost;
};

} // namespace

int CallFunction(CScriptHeap* H, const char* Name) {
    U64 Ignored = 0;
    if (!H || !Name) {
        return -1;
    }
    CScriptNode* Fn = FindScriptFunction(H, Name);
    if (!Fn) {
        return -2;
    }
    if (H->ErrorFlag) {
        return -1;
    }
    U64 Args[SCRIPT_MAX_ARGS] = {};
    const HostCall Call(H);
    return RunFunction(H, Fn, Args, &Ignored);
}

int CallFunctionEx(CScriptHeap* H, const char* Name, int Count, const U64* Args, U64* Result) {
    if (!H || !Name || (Count != 0 && !Args) || Count < 0) {
        return -1;
    }
    CScriptNode* Fn = FindScriptFunction(H, Name);
    if (!Fn) {
        return -2;
    }
    if (H->ErrorFlag) {
        return -1;
    }
    U64 Record[SCRIPT_MAX_ARGS] = {};
    for (int i = 0; i < Count && i < SCRIPT_MAX_ARGS; ++i) {
        Record[i] = Args[i];
    }
    U64 Value = 0;
    int R = 0;
    {
        const HostCall Call(H);
        R = RunFunction(H, Fn, Record, &Value);
    }
    if (R < 0) {
        H->ErrorFlag = 0;
        return -1;
    }
    if (Result) {
        *Result = Value;
    }
    return 0;
}

int EvaluateText(CScriptHeap* H, const char* Text, U64* Result) {
    if (!H || !Text || H->ErrorFlag) {
        return -1;
    }
    const TEXT_POS Saved = SavePos(H);
    const SCRIPT_ERROR_CALLBACK Callback = H->ErrorCallback;
    H->ErrorCallback = nullptr;
    H->Cursor = Text;
    H->LineStart = Text;
    H->Line = 1;
    OPERAND Op;
    U64 Value = 0;
    {
        const HostCall Call(H);
        if (EvalExpression(H, 1, 0, &Op) == 0 && ReadOperand(H, Op, &Value) && SkipSpace(H) &&
            *H->Cursor != '\0') {
            Error(H, "syntax error.");
        }
    }
    const bool Ok = !H->ErrorFlag;
    H->ErrorFlag = 0;
    H->ErrorCallback = Callback;
    RestorePos(H, Saved);
    if (Ok && Result) {
        *Result = Value;
    }
    return Ok ? 0 : -1;
}

} // namespace ScriptInterp
