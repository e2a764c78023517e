// Creating an interpreter, its symbols and the scan of a text for its function heads.

#include "script/InterpInternal.h"

#include <initializer_list>
#include <new>

namespace ScriptInterp {

using namespace Detail;

namespace {

CScriptNode* AddBuiltIn(CScriptHeap* H, const char* Name, I32 Kind) {
    CScriptNode* N = NewNodeLow(H, Kind);
    if (!N) {
        return nullptr;
    }
    N->NameLen = static_cast<U32>(std::strlen(Name));
    N->Name = CopyNameLow(H, Name, N->NameLen);
    if (!N->Name) {
        return nullptr;
    }
    AppendGlobal(H, N);
    return N;
}

bool CreateBuiltIns(CScriptHeap* H) {
    static const char* const Qualifiers[] = {"volatile", "const", "signed", "unsigned"};
    CScriptNode* Const = nullptr;
    for (I32 i = 0; i < 4; ++i) {
        CScriptNode* Q = AddBuiltIn(H, Qualifiers[i], NK_QUALIFIER);
        if (!Q) {
            return false;
        }
        Q->Qual.Id = i + 1;
        if (Q->Qual.Id == QUAL_CONST) {
            Const = Q;
        }
    }
    CScriptNode* Api = AddBuiltIn(H, "__api__", NK_ATTRIBUTE);
    if (!Api) {
        return false;
    }
    Api->Qual.Id = 0;
    static const struct {
        const char* Name;
        I32 Size;
    } BaseTypes[] = {{"char", 1}, {"int", 4}, {"__int64", 8}, {"void", 0}, {"__const_char", 1}};
    for (const auto& B : BaseTypes) {
        CScriptNode* T = AddBuiltIn(H, B.Name, NK_BASE_TYPE);
        if (!T) {
            return false;
        }
        T->Base.Size = B.Size;
        if (std::strcmp(B.Name, "__const_char") == 0) {
            H->ConstCharType = T;
        }
    }
    return AddAttribute(H, H->ConstCharType, Const, false);
}

/// Reads a name and looks it up; a missing or unknown one gives "syntax error.".
CScriptNode* ReadSymbol(CScriptHeap* H) {
    const char* Name = nullptr;
    U32 Length = 0;
    CScriptNode* Sym = ReadName(H, &Name, &Length) ? FindSymbol(H, Name, Length) : nullptr;
    if (!Sym) {
        Error(H, "syntax error.");
    }
    return Sym;
}

/// The qualifiers from Sym on go to Owner; the symbol after them must be a base type. Null after an error.
CScriptNode* ReadBaseType(CScriptHeap* H, CScriptNode* Owner, CScriptNode* Sym) {
    while (Sym && Sym->Kind == NK_QUALIFIER) {
        if (!AddAttribute(H, Owner, Sym, false)) {
            return nullptr;
        }
        Sym = ReadSymbol(H);
    }
    if (Sym && !IsBaseKind(Sym->Kind)) {
        Error(H, "syntax error.");
        return nullptr;
    }
    return Sym;
}

/// Qualifiers, a base type, an optional "*" and the name.
CScriptNode* ParseParameter(CScriptHeap* H) {
    CScriptNode* Param = NewNodeLow(H, NK_VARIABLE);
    if (!Param) {
        return nullptr;
    }
    CScriptNode* Sym = ReadBaseType(H, Param, ReadSymbol(H));
    if (!Sym) {
        return nullptr;
    }
    CScriptNode* Type = Sym;
    if (MatchChar(H, '*')) {
        Type = NewNodeLow(H, NK_POINTER);
        if (!Type) {
            return nullptr;
        }
        Type->Ref.Target = Sym;
    }
    const char* Name = nullptr;
    U32 Length = 0;
    if (!ReadName(H, &Name, &Length)) {
        Error(H, "expected an identifier.");
        return nullptr;
    }
    Param->Name = CopyNameLow(H, Name, Length);
    Param->NameLen = Length;
    Param->Var.Type = Type;
    return Param->Name ? Param : nullptr;
}

/// Skips a function body by counting braces; quotes are not looked at.
bool SkipBody(CScriptHeap* H) {
    if (!SkipSpace(H)) {
        return false;
    }
    if (*H->Cursor != '{') {
        Error(H, "expected '{'");
        return false;
    }
    int Level = 0;
    for (;;) {
        const char C = *H->Cursor;
        if (C == '\0') {
            Error(H, "unexpected end of file looking for '}'");
            return false;
        }
        if (C == '/' && (H->Cursor[1] == '/' || H->Cursor[1] == '*')) {
            if (!SkipSpace(H)) {
                return false;
            }
            continue;
        }
        if (C == '\n') {
            ++H->Line;
            H->LineStart = H->Cursor;
        } else if (C == '{') {
            ++Level;
        } else if (C == '}' && --Level == 0) {
            ++H->Cursor;
            return true;
        }
        ++H->Cursor;
    }
}

} // namespace

namespace Detail {

CScriptNode* AddConstant(CScriptHeap* H, const char* Name, size_t Length, I32 Value) {
    CScriptNode* N = NewNodeLow(H, NK_CONSTANT);
    if (!N) {
        return nullptr;
    }
    N->NameLen = static_cast<U32>(Length);
    N->Name = CopyNameLow(H, Name, Length);
    if (!N->Name) {
        return nullptr;
    }
    N->Const.Value = Value;
    AppendGlobal(H, N);
    return N;
}

CScriptNode* ParseFunctionHead(CScriptHeap* H) {
    CScriptNode* Fn = NewNodeLow(H, NK_FUNCTION);
    CScriptNode* Holder = NewNodeLow(H, NK_RETURN_TYPE);
    if (!Fn || !Holder) {
        return nullptr;
    }
    Fn->Func.ReturnType = Holder;

    CScriptNode* Sym = ReadSymbol(H);
    while (Sym && Sym->Kind == NK_ATTRIBUTE) {
        if (Sym->Qual.Id != 0) {
            Error(H, "invalid function attribute.");
            return nullptr;
        }
        if (!AddAttribute(H, Fn, Sym, false)) {
            return nullptr;
        }
        Sym = ReadSymbol(H);
    }
    Sym = ReadBaseType(H, Holder, Sym);
    if (!Sym) {
        return nullptr;
    }
    Holder->Ref.Target = Sym;

    const char* Name = nullptr;
    U32 Length = 0;
    if (!ReadName(H, &Name, &Length)) {
        Error(H, "expected an identifier.");
        return nullptr;
    }
    Fn->Name = CopyNameLow(H, Name, Length);
    Fn->NameLen = Length;
    if (!Fn->Name || !ExpectChar(H, '(')) {
        return nullptr;
    }
    if (MatchChar(H, ')')) {
        return Fn;
    }
    const TEXT_POS BeforeVoid = SavePos(H);
    if (MatchKeyword(H, "void", 4) && MatchChar(H, ')')) {
        return Fn;
    }
    RestorePos(H, BeforeVoid);

    CScriptNode** Tail = &Fn->Func.Parameters;
    while (!MatchChar(H, ')')) {
        if (H->ErrorFlag) {
            return nullptr;
        }
        if (Fn->Func.ParamCount == SCRIPT_MAX_ARGS) {
            ErrorF(H, "more than %d parameters.", SCRIPT_MAX_ARGS);
            return nullptr;
        }
        CScriptNode* Param = ParseParameter(H);
        if (!Param) {
            return nullptr;
        }
        *Tail = Param;
        Tail = &Param->Next;
        ++Fn->Func.ParamCount;
        MatchChar(H, ',');
    }
    return H->ErrorFlag ? nullptr : Fn;
}

} // namespace Detail

CScriptHeap* CreateInterpreter(void* Block, const char* Text) {
    if (!Block || !Text) {
        return nullptr;
    }
    std::memset(Block, 0, SCRIPT_HEAP_SIZE);
    auto* H = new (Block) CScriptHeap();
    H->Low = static_cast<U8*>(Block) + ((sizeof(CScriptHeap) + 7) & ~size_t(7));
    H->BlockEnd = static_cast<U8*>(Block) + SCRIPT_HEAP_SIZE;
    H->High = H->BlockEnd;
    H->TextStart = Text;
    H->Cursor = Text;
    H->LineStart = Text;
    H->Line = 1;
    if (!CreateBuiltIns(H)) {
        return nullptr;
    }
    return H;
}

CScriptNode* FindSymbol(const CScriptHeap* H, const char* Name, size_t Length) {
    for (CScriptNode* List : {H->LocalsHead, H->GlobalsHead}) {
        for (CScriptNode* N = List; N; N = N->Next) {
            if (N->NameLen == Length && N->Name && std::memcmp(N->Name, Name, Length) == 0) {
                return N;
            }
        }
    }
    return nullptr;
}

CScriptNode* FindScriptFunction(const CScriptHeap* H, const char* Name) {
    if (!H || !Name) {
        return nullptr;
    }
    CScriptNode* Fn = FindSymbol(H, Name, std::strlen(Name));
    return Fn && Fn->Kind == NK_FUNCTION && !IsNative(Fn) ? Fn : nullptr;
}

int ParseGlobals(CScriptHeap* H) {
    if (!H || H->ErrorFlag) {
        return -1;
    }
    H->Cursor = H->TextStart;
    H->LineStart = H->TextStart;
    H->Line = 1;
    for (;;) {
        if (!SkipSpace(H)) {
            return -1;
        }
        if (*H->Cursor == '\0') {
            return 0;
        }
        const TEXT_POS Start = SavePos(H);
        if (!ReadSymbol(H)) {
            return -1;
        }
        RestorePos(H, Start);
        CScriptNode* Fn = ParseFunctionHead(H);
        if (!Fn || !SkipSpace(H)) {
            return -1;
        }
        Fn->Func.Body = H->Cursor;
        Fn->Func.LineStart = H->LineStart;
        Fn->Func.Line = H->Line;
        if (!SkipBody(H)) {
            return -1;
        }
        AppendGlobal(H, Fn);
    }
}

int RegisterNative(CScriptHeap* H, const char* Prototype, SCRIPT_NATIVE Entry) {
    if (!H || !Prototype || H->ErrorFlag) {
        return -1;
    }
    const TEXT_POS Saved = SavePos(H);
    H->Cursor = Prototype;
    H->LineStart = Prototype;
    H->Line = 0;
    CScriptNode* Fn = ParseFunctionHead(H);
    const bool Ok = Fn && ExpectChar(H, ';');
    RestorePos(H, Saved);
    if (!Ok) {
        return -1;
    }
    Fn->Func.Entry = Entry;
    AppendGlobal(H, Fn);
    return 0;
}

int RegisterConstant(CScriptHeap* H, const char* Name, I32 Value) {
    if (!H || !Name || H->ErrorFlag) {
        return -1;
    }
    return AddConstant(H, Name, std::strlen(Name), Value) ? 0 : -1;
}

void ClearError(CScriptHeap* H) {
    if (H) {
        H->ErrorFlag = 0;
        H->ErrorText[0] = '\0';
    }
}

} // namespace ScriptInterp
