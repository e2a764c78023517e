#pragma once

// Shared by the interpreter's source files only.

#include "script/Interp.h"

#include <cstring>

namespace ScriptInterp::Detail {

/// A value of an expression and, only for a string literal or a variable not yet read, what it refers to.
struct OPERAND {
    U64 Value;
    CScriptNode* Ref;
};

/// A place in the text; loops and calls go back to one.
struct TEXT_POS {
    const char* Cursor;
    const char* LineStart;
    I32 Line;
};

inline TEXT_POS SavePos(const CScriptHeap* H) {
    return {H->Cursor, H->LineStart, H->Line};
}
inline void RestorePos(CScriptHeap* H, const TEXT_POS& P) {
    H->Cursor = P.Cursor;
    H->LineStart = P.LineStart;
    H->Line = P.Line;
}

inline bool IsNameStart(char C) {
    return (C >= 'a' && C <= 'z') || (C >= 'A' && C <= 'Z') || C == '_';
}
inline bool IsDigit(char C) {
    return C >= '0' && C <= '9';
}
/// The dot continues a name, which makes "Debug.Start" one identifier.
inline bool IsNameChar(char C) {
    return IsNameStart(C) || IsDigit(C) || C == '.';
}

/// Sets ErrorFlag and ErrorText and calls the callback; an error while the flag is set is not repeated.
void Error(CScriptHeap* H, const char* Message);
void ErrorF(CScriptHeap* H, const char* Format, ...) __attribute__((format(printf, 2, 3)));

/// An error kept aside to be reported again: its text and where it arose.
struct ERROR_CAUSE {
    char Text[SCRIPT_ERROR_MAX + 1];
    SCRIPT_ERROR_PLACE Place;
};
/// The error now set, kept aside.
ERROR_CAUSE TakeCause(const CScriptHeap* H);
/// Reports Cause once more, at its own place, in place of an error that only followed from it.
void RaiseAgain(CScriptHeap* H, const ERROR_CAUSE& Cause);

/// Skips white space and comments, counting lines. False after an unclosed comment.
bool SkipSpace(CScriptHeap* H);
/// Skips, then takes C if it comes next.
bool MatchChar(CScriptHeap* H, char C);
/// Skips, then takes C or reports "Expected a 'C'".
bool ExpectChar(CScriptHeap* H, char C);
/// Skips, then takes the keyword if it stands there and no name character follows it.
bool MatchKeyword(CScriptHeap* H, const char* Keyword, size_t Length);
/// Skips, then reads a name. False, with the cursor behind the skipped space, if none stands there.
bool ReadName(CScriptHeap* H, const char** Start, U32* Length);
/// Skips, then reads a decimal number or a hexadecimal one behind "0x". False if no digit stands there.
bool ReadNumber(CScriptHeap* H, U64* Value);

/// Room at the low end (lives until close) or the high end (lives for one call); null when full.
void* AllocLow(CScriptHeap* H, size_t Size, size_t Align = 8);
void* AllocHigh(CScriptHeap* H, size_t Size, size_t Align = 8);
/// A zeroed node of the kind; null when full.
CScriptNode* NewNodeLow(CScriptHeap* H, I32 Kind);
CScriptNode* NewNodeHigh(CScriptHeap* H, I32 Kind);
/// A zero-terminated copy of a name; "out of memory." when full.
const char* CopyNameLow(CScriptHeap* H, const char* Name, size_t Length);
const char* CopyNameHigh(CScriptHeap* H, const char* Name, size_t Length);
/// Adds a link to Node on Owner's attribute list; "Out of memory." when full.
bool AddAttribute(CScriptHeap* H, CScriptNode* Owner, CScriptNode* Node, bool High);
void AppendGlobal(CScriptHeap* H, CScriptNode* Node);
/// A constant at the low end, appended to the globals; null when full.
CScriptNode* AddConstant(CScriptHeap* H, const char* Name, size_t Length, I32 Value);
void AppendLocal(CScriptHeap* H, CScriptNode* Node);

inline bool IsBaseKind(I32 Kind) {
    return Kind == NK_BASE_TYPE || Kind == 2 || Kind == 3;
}
/// The element type of an array: pointer and return type holders are looked through.
CScriptNode* ElementType(CScriptNode* Type);
/// Bytes of a value of the type; a pointer takes 8.
I64 TypeSize(const CScriptNode* Type);

/// Reads Size bytes, least significant first, into a zeroed value.
inline U64 LoadValue(const U8* Data, int Size) {
    U64 V = 0;
    for (int i = Size - 1; i >= 0; --i) {
        V = (V << 8) | Data[i];
    }
    return V;
}
inline void StoreValue(U8* Data, U64 Value, int Size) {
    for (int i = 0; i < Size; ++i) {
        Data[i] = static_cast<U8>(Value >> (8 * i));
    }
}

/// Counts one level of nesting for as long as it lives; past SCRIPT_MAX_NESTING it reports an error.
class NestGuard {
public:
    explicit NestGuard(CScriptHeap* H);
    ~NestGuard() { --m_Heap->Nesting; }
    bool Ok() const { return m_Ok; }
    NestGuard(const NestGuard&) = delete;
    NestGuard& operator=(const NestGuard&) = delete;

private:
    CScriptHeap* m_Heap;
    bool m_Ok;
};

/// Counts one step of the run against StepLimit; reaching the limit sets StopFlag.
inline void CountStep(CScriptHeap* H) {
    if (H->StepLimit != 0 && --H->StepLimit == 0) {
        H->StopFlag = 1;
    }
}

// Expressions (InterpExpr.cpp).
int EvalExpression(CScriptHeap* H, int ExecFlag, int MinPrecedence, OPERAND* Out);
/// The value of an operand; a reference is read (a string literal gives "expected a base type.").
bool ReadOperand(CScriptHeap* H, const OPERAND& Op, U64* Value);
/// The binary operators; the compound assignments use them too.
enum SCRIPT_OPS : U8 {
    OP_MUL,
    OP_DIV,
    OP_ADD,
    OP_SUB,
    OP_SHL,
    OP_SHR,
    OP_LT,
    OP_LE,
    OP_GT,
    OP_GE,
    OP_EQ,
    OP_NE,
    OP_AND,
    OP_XOR,
    OP_OR,
    OP_LAND,
    OP_LOR,
};
/// Applies a binary operator. A division by zero, or of the smallest value by -1, is an error under
/// ExecFlag; a walked one gives 0 or the wrapped value, since a walk may meet values that no run would.
bool ApplyOperator(CScriptHeap* H, U8 Op, U64 Left, U64 Right, int ExecFlag, U64* Result);
/// Parses "(" arguments ")" of a call of Fn and makes the call under ExecFlag.
int ParseCall(CScriptHeap* H, CScriptNode* Fn, int ExecFlag, U64* Result);

// Statements and calls (InterpStmt.cpp).
int ExecStatement(CScriptHeap* H, U64* ReturnValue, int ExecFlag);
/// Runs a script function with the argument record; 0 or -1.
int RunFunction(CScriptHeap* H, CScriptNode* Fn, U64* Args, U64* Result);

// Declarations (InterpDecl.cpp).
/// Parses a function head at the cursor; null on failure.
CScriptNode* ParseFunctionHead(CScriptHeap* H);
inline bool IsNative(const CScriptNode* Fn) {
    return Fn->Attributes != nullptr;
}

} // namespace ScriptInterp::Detail
