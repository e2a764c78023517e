#pragma once

#include "app/core/Types.h"

#include <cstddef>

/// The project script interpreter: a hand-written one that builds no syntax tree. The text is scanned once
/// at load for the function heads; every later run executes statements straight from the text. All data of
/// a script (symbols, constants, strings, locals) lives in one block of SCRIPT_HEAP_SIZE bytes whose start
/// holds the CScriptHeap. One interpreter at a time, GUI thread only; natives may call back in.

/// Size of the one block that holds a script's data.
constexpr U32 SCRIPT_HEAP_SIZE = 1000000;
/// Arguments of one call record; the limit for the parameters of a script function.
constexpr int SCRIPT_MAX_ARGS = 32;
/// Natives are called with at most this many arguments.
constexpr int SCRIPT_MAX_NATIVE_ARGS = 8;
/// A formatted error is cut at this many characters.
constexpr int SCRIPT_ERROR_MAX = 199;
/// Nested statements, expressions and calls allowed before the run ends with an error, so that a deep
/// recursion ends as a script error and not on the end of the native stack.
constexpr I32 SCRIPT_MAX_NESTING = 1500;
/// Statements between two calls of the yield callback: often enough that the host's window stays alive
/// during a long run, seldom enough to cost nothing in a short one.
constexpr U64 SCRIPT_YIELD_INTERVAL = 4096;
/// The error that ends a run on the host's AbortFlag.
constexpr const char* SCRIPT_STOPPED_TEXT = "script stopped by the user.";

enum SCRIPT_NODE_KINDS : I32 {
    NK_BASE_TYPE = 0,
    NK_CONSTANT = 4,
    NK_POINTER = 6,
    NK_FUNCTION = 7,
    NK_QUALIFIER = 8,
    NK_ATTRIBUTE = 9,
    NK_RETURN_TYPE = 10,
    NK_VARIABLE = 11,
    NK_ARRAY = 12,
};

/// Ids of the qualifier nodes.
enum SCRIPT_QUALIFIERS : I32 {
    QUAL_VOLATILE = 1,
    QUAL_CONST = 2,
    QUAL_SIGNED = 3,
    QUAL_UNSIGNED = 4,
};

/// Entry of a native function: the script passes its arguments as integers, at most eight.
typedef I32 (*SCRIPT_NATIVE)(const U64* Args, int ArgCount);

struct CScriptHeap;
/// Called at once for every error, with the message; the heap still points at the failing text.
typedef void (*SCRIPT_ERROR_CALLBACK)(CScriptHeap* Heap, const char* Message);
/// Called every SCRIPT_YIELD_INTERVAL statements of a run; the host processes its events here.
typedef void (*SCRIPT_YIELD_CALLBACK)(CScriptHeap* Heap);

struct CScriptNode;

/// One entry of an attribute list: a link to a qualifier or function attribute node.
struct CScriptLink {
    CScriptLink* Next;
    CScriptNode* Node;
};

/// A symbol or a type. Which of the kind-specific parts is valid depends on Kind.
struct CScriptNode {
    CScriptNode* Next;
    CScriptLink* Attributes;
    const char* Name; ///< zero-terminated, in the block; null for type nodes
    U32 NameLen;
    I32 Kind;
    union {
        struct {
            I32 Size;
        } Base; ///< NK_BASE_TYPE
        struct {
            I32 Value;
        } Const; ///< NK_CONSTANT
        struct {
            CScriptNode* Target;
        } Ref; ///< NK_POINTER, NK_RETURN_TYPE
        struct {
            CScriptNode* ReturnType;
            CScriptNode* Parameters; ///< variable nodes, linked by Next
            const char* Body;        ///< text position of the "{"; null for a native
            SCRIPT_NATIVE Entry;     ///< entry point of a native
            const char* LineStart;
            I32 Line;
            I32 ParamCount;
        } Func; ///< NK_FUNCTION
        struct {
            I32 Id;
        } Qual; ///< NK_QUALIFIER, NK_ATTRIBUTE
        struct {
            CScriptNode* Type;
            U8* Data; ///< null when the declaration found no room
        } Var;        ///< NK_VARIABLE
        struct {
            CScriptNode* Element;
            I32 Count;
        } Array; ///< NK_ARRAY
    };
};

/// Where an error arose: the text position and the script function that ran.
struct SCRIPT_ERROR_PLACE {
    const char* Cursor;
    const char* LineStart;
    I32 Line;
    const CScriptNode* Function;
};

/// The interpreter, at the start of its block. The low end grows upwards and keeps what lives until the
/// script is closed; the high end grows downwards and keeps what lives for one call.
struct CScriptHeap {
    U8* Low;
    U8* High;
    U8* BlockEnd;
    const char* TextStart;
    const char* Cursor;
    const char* LineStart; ///< position of the latest line feed seen (TextStart before the first)
    I32 Line;
    U8 ErrorFlag;
    U8 StopFlag; ///< set by the host to end all loops and calls
    /// Set by the host to end the running call at its next statement with an error (the user's stop);
    /// cleared when the outermost call returns.
    U8 AbortFlag;
    char ErrorText[SCRIPT_ERROR_MAX + 1];
    SCRIPT_ERROR_CALLBACK ErrorCallback;
    void* UserData; ///< for the host's callback
    CScriptNode* GlobalsHead;
    CScriptNode* GlobalsTail;
    CScriptNode* LocalsHead;
    CScriptNode* LocalsTail;
    CScriptNode* ConstCharType;
    I32 Nesting;    ///< statements, expressions and calls now nested
    U64 StepLimit;  ///< statements and expressions left before the run stops itself; 0: no limit
    U64 Statements; ///< statements executed or walked since creation
    SCRIPT_YIELD_CALLBACK YieldCallback;
    const CScriptNode* Function;   ///< the script function now running; null outside a call
    SCRIPT_ERROR_PLACE ErrorPlace; ///< where the last error arose
    U32 ErrorCount;                ///< errors reported since creation
};

/// Operations of the interpreter. Each returns at once while ErrorFlag is set.
namespace ScriptInterp {

/// Zeroes Block (SCRIPT_HEAP_SIZE bytes, 8-aligned), lays out the header and creates the built-in
/// symbols. Text must stay valid and zero-terminated while the heap lives. Null for a null block or text.
CScriptHeap* CreateInterpreter(void* Block, const char* Text);
/// Scans the text for function definitions. 0 or -1.
int ParseGlobals(CScriptHeap* Heap);
/// Parses a prototype that ends with ";" and stores Entry. 0 or -1; the text position is preserved.
int RegisterNative(CScriptHeap* Heap, const char* Prototype, SCRIPT_NATIVE Entry);
/// 0, or -1 when the block is full.
int RegisterConstant(CScriptHeap* Heap, const char* Name, I32 Value);
/// Locals first, then globals, in list order, exact compare; null if absent.
CScriptNode* FindSymbol(const CScriptHeap* Heap, const char* Name, size_t Length);
/// The script function (not a native) of that name, or null.
CScriptNode* FindScriptFunction(const CScriptHeap* Heap, const char* Name);

// The three calls from the host give back the room of their string literals when they return, so that a
// function run on every halt doesn't use up the block; one call that evaluates literals without end still
// runs out of room.

/// Runs a script function without arguments; the return value is dropped. 0, -1 on an error, -2 for an
/// unknown name.
int CallFunction(CScriptHeap* Heap, const char* Name);
/// With arguments and a result. As CallFunction; -1 if Count is not 0 and Args is null. ErrorFlag is
/// cleared before an error returns, so that the script survives a failed call.
int CallFunctionEx(CScriptHeap* Heap, const char* Name, int Count, const U64* Args, U64* Result);
/// Evaluates Text, zero-terminated, as one expression of the script with calls made. 0, or -1 with the
/// message in ErrorText; the error callback is not called and ErrorFlag is cleared afterwards.
int EvaluateText(CScriptHeap* Heap, const char* Text, U64* Result);
/// Clears ErrorFlag and ErrorText.
void ClearError(CScriptHeap* Heap);

} // namespace ScriptInterp
