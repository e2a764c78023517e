// The interpreter's lexical layer, its error reporting and the two ends of its block.

#include "script/InterpInternal.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>

namespace ScriptInterp::Detail {

void Error(CScriptHeap* H, const char* Message) {
    if (H->ErrorFlag) {
        return;
    }
    H->ErrorFlag = 1;
    H->ErrorPlace = {H->Cursor, H->LineStart, H->Line, H->Function};
    ++H->ErrorCount;
    std::snprintf(H->ErrorText, sizeof(H->ErrorText), "%s", Message);
    if (H->ErrorCallback) {
        H->ErrorCallback(H, H->ErrorText);
    }
}

void ErrorF(CScriptHeap* H, const char* Format, ...) {
    char Text[SCRIPT_ERROR_MAX + 1];
    va_list Args;
    va_start(Args, Format);
    std::vsnprintf(Text, sizeof(Text), Format, Args);
    va_end(Args);
    Error(H, Text);
}

ERROR_CAUSE TakeCause(const CScriptHeap* H) {
    ERROR_CAUSE Cause;
    std::memcpy(Cause.Text, H->ErrorText, sizeof(Cause.Text));
    Cause.Place = H->ErrorPlace;
    return Cause;
}

void RaiseAgain(CScriptHeap* H, const ERROR_CAUSE& Cause) {
    // The callback reads the place from the heap: the cause's for the report, then parsing goes on here.
    const SCRIPT_ERROR_PLACE Now = {H->Cursor, H->LineStart, H->Line, H->Function};
    H->ErrorFlag = 0;
    H->Cursor = Cause.Place.Cursor;
    H->LineStart = Cause.Place.LineStart;
    H->Line = Cause.Place.Line;
    H->Function = Cause.Place.Function;
    Error(H, Cause.Text);
    H->Cursor = Now.Cursor;
    H->LineStart = Now.LineStart;
    H->Line = Now.Line;
    H->Function = Now.Function;
}

bool SkipSpace(CScriptHeap* H) {
    const char* P = H->Cursor;
    for (;;) {
        const char C = *P;
        if (C == ' ' || C == '\t' || C == '\r') {
            ++P;
        } else if (C == '\n') {
            ++H->Line;
            H->LineStart = P++;
        } else if (C == '/' && P[1] == '/') {
            P += 2;
            while (*P && *P != '\r' && *P != '\n') {
                ++P;
            }
        } else if (C == '/' && P[1] == '*') {
            P += 2;
            while (!(P[0] == '*' && P[1] == '/')) {
                if (!*P) {
                    H->Cursor = P;
                    Error(H, "C-comment has not been closed properly");
                    return false;
                }
                if (*P == '\n') {
                    ++H->Line;
                    H->LineStart = P;
                }
                ++P;
            }
            P += 2;
        } else {
            break;
        }
    }
    H->Cursor = P;
    return !H->ErrorFlag;
}

bool MatchChar(CScriptHeap* H, char C) {
    if (!SkipSpace(H) || *H->Cursor != C) {
        return false;
    }
    ++H->Cursor;
    return true;
}

bool ExpectChar(CScriptHeap* H, char C) {
    if (MatchChar(H, C)) {
        return true;
    }
    ErrorF(H, "Expected a '%c'", C);
    return false;
}

bool MatchKeyword(CScriptHeap* H, const char* Keyword, size_t Length) {
    if (!SkipSpace(H)) {
        return false;
    }
    const char* P = H->Cursor;
    if (std::strncmp(P, Keyword, Length) != 0 || IsNameChar(P[Length])) {
        return false;
    }
    H->Cursor = P + Length;
    return true;
}

bool ReadName(CScriptHeap* H, const char** Start, U32* Length) {
    if (!SkipSpace(H) || !IsNameStart(*H->Cursor)) {
        return false;
    }
    const char* P = H->Cursor;
    const char* End = P + 1;
    while (IsNameChar(*End)) {
        ++End;
    }
    *Start = P;
    *Length = static_cast<U32>(End - P);
    H->Cursor = End;
    return true;
}

bool ReadNumber(CScriptHeap* H, U64* Value) {
    if (!SkipSpace(H) || !IsDigit(*H->Cursor)) {
        return false;
    }
    const char* P = H->Cursor;
    U64 V = 0;
    // Overflow is not checked: the value wraps.
    if (P[0] == '0' && P[1] == 'x') {
        P += 2;
        for (;; ++P) {
            const char C = *P;
            if (IsDigit(C)) {
                V = V * 16 + static_cast<U64>(C - '0');
            } else if (C >= 'a' && C <= 'f') {
                V = V * 16 + static_cast<U64>(C - 'a' + 10);
            } else if (C >= 'A' && C <= 'F') {
                V = V * 16 + static_cast<U64>(C - 'A' + 10);
            } else {
                break;
            }
        }
    } else {
        while (IsDigit(*P)) {
            V = V * 10 + static_cast<U64>(*P++ - '0');
        }
    }
    H->Cursor = P;
    *Value = V;
    return true;
}

void* AllocLow(CScriptHeap* H, size_t Size, size_t Align) {
    const uintptr_t High = reinterpret_cast<uintptr_t>(H->High);
    const uintptr_t P = (reinterpret_cast<uintptr_t>(H->Low) + Align - 1) & ~(uintptr_t(Align) - 1);
    if (P > High || Size > High - P) {
        return nullptr;
    }
    H->Low = reinterpret_cast<U8*>(P + Size);
    return reinterpret_cast<void*>(P);
}

void* AllocHigh(CScriptHeap* H, size_t Size, size_t Align) {
    const uintptr_t High = reinterpret_cast<uintptr_t>(H->High);
    const uintptr_t Low = reinterpret_cast<uintptr_t>(H->Low);
    if (Size > High - Low) {
        return nullptr;
    }
    const uintptr_t P = (High - Size) & ~(uintptr_t(Align) - 1);
    if (P < Low) {
        return nullptr;
    }
    H->High = reinterpret_cast<U8*>(P);
    return reinterpret_cast<void*>(P);
}

namespace {

CScriptNode* InitNode(void* Room, I32 Kind) {
    if (!Room) {
        return nullptr;
    }
    auto* N = static_cast<CScriptNode*>(std::memset(Room, 0, sizeof(CScriptNode)));
    N->Kind = Kind;
    return N;
}

const char* InitName(CScriptHeap* H, char* Room, const char* Name, size_t Length) {
    if (!Room) {
        Error(H, "out of memory.");
        return nullptr;
    }
    std::memcpy(Room, Name, Length);
    Room[Length] = '\0';
    return Room;
}

} // namespace

CScriptNode* NewNodeLow(CScriptHeap* H, I32 Kind) {
    return InitNode(AllocLow(H, sizeof(CScriptNode), alignof(CScriptNode)), Kind);
}

CScriptNode* NewNodeHigh(CScriptHeap* H, I32 Kind) {
    return InitNode(AllocHigh(H, sizeof(CScriptNode), alignof(CScriptNode)), Kind);
}

const char* CopyNameLow(CScriptHeap* H, const char* Name, size_t Length) {
    return InitName(H, static_cast<char*>(AllocLow(H, Length + 1, 1)), Name, Length);
}

const char* CopyNameHigh(CScriptHeap* H, const char* Name, size_t Length) {
    return InitName(H, static_cast<char*>(AllocHigh(H, Length + 1, 1)), Name, Length);
}

bool AddAttribute(CScriptHeap* H, CScriptNode* Owner, CScriptNode* Node, bool High) {
    void* Room = High ? AllocHigh(H, sizeof(CScriptLink), alignof(CScriptLink))
                      : AllocLow(H, sizeof(CScriptLink), alignof(CScriptLink));
    if (!Room) {
        Error(H, "Out of memory.");
        return false;
    }
    auto* Link = static_cast<CScriptLink*>(Room);
    Link->Node = Node;
    Link->Next = nullptr;
    CScriptLink** Tail = &Owner->Attributes;
    while (*Tail) {
        Tail = &(*Tail)->Next;
    }
    *Tail = Link;
    return true;
}

void AppendGlobal(CScriptHeap* H, CScriptNode* Node) {
    Node->Next = nullptr;
    if (H->GlobalsTail) {
        H->GlobalsTail->Next = Node;
    } else {
        H->GlobalsHead = Node;
    }
    H->GlobalsTail = Node;
}

void AppendLocal(CScriptHeap* H, CScriptNode* Node) {
    Node->Next = nullptr;
    if (H->LocalsTail) {
        H->LocalsTail->Next = Node;
    } else {
        H->LocalsHead = Node;
    }
    H->LocalsTail = Node;
}

CScriptNode* ElementType(CScriptNode* Type) {
    CScriptNode* E = Type->Array.Element;
    while (E && (E->Kind == 5 || E->Kind == NK_POINTER || E->Kind == NK_RETURN_TYPE)) {
        E = E->Ref.Target;
    }
    return E;
}

I64 TypeSize(const CScriptNode* Type) {
    if (!Type) {
        return 0;
    }
    switch (Type->Kind) {
    case NK_BASE_TYPE:
    case 2:
    case 3:
        return Type->Base.Size;
    case NK_POINTER:
        return 8;
    case NK_RETURN_TYPE:
        return TypeSize(Type->Ref.Target);
    case NK_ARRAY:
        return Type->Array.Count < 0 ? -1 : TypeSize(Type->Array.Element) * Type->Array.Count;
    default:
        return 0;
    }
}

NestGuard::NestGuard(CScriptHeap* H) : m_Heap(H), m_Ok(true) {
    if (++H->Nesting > SCRIPT_MAX_NESTING) {
        Error(H, "maximum nesting level reached.");
        m_Ok = false;
    }
}

} // namespace ScriptInterp::Detail
