// Deterministic mutation fuzzing of the script interpreter. Scripts are generated from the language's own
// grammar and tokens, or mutated from the seed corpus and from generated ones, and run with natives that
// call back into the interpreter. Built with the sanitizers it must show no report; every case must end
// within a second, and the interpreter must be back at rest after each call.
//
// fuzz_script [cases] [seed] [corpus directory]

#include "script/Interp.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#ifndef ARNEX_FUZZ_CORPUS
#define ARNEX_FUZZ_CORPUS "."
#endif

namespace {

constexpr U64 STEPS_PER_CALL = 300;
constexpr double HANG_SECONDS = 1.0;
constexpr int MAX_NATIVE_DEPTH = 11;

struct Rng {
    U64 State;
    U64 Next() {
        U64 Z = (State += 0x9E3779B97F4A7C15ull);
        Z = (Z ^ (Z >> 30)) * 0xBF58476D1CE4E5B9ull;
        Z = (Z ^ (Z >> 27)) * 0x94D049BB133111EBull;
        return Z ^ (Z >> 31);
    }
    U32 Below(U32 N) { return N ? static_cast<U32>(Next() % N) : 0; }
    bool Chance(U32 Percent) { return Below(100) < Percent; }
    template <typename T, size_t N>
    const T& Pick(const T (&Items)[N]) {
        return Items[Below(N)];
    }
};

const char* const s_Tokens[] = {
    "if",
    "else",
    "while",
    "do",
    "return",
    "for",
    "break",
    "int",
    "char",
    "__int64",
    "void",
    "unsigned",
    "signed",
    "const",
    "volatile",
    "__api__",
    "a",
    "b",
    "i",
    "x",
    "arr",
    "F",
    "G",
    "H",
    "Native0",
    "Native1",
    "Native8",
    "NativeS",
    "Fz.Call",
    "Fz.Stop",
    "Fz.Abort",
    "Fz.Const",
    "Kc",
    "SEVEN",
    "MINUS_ONE",
    "Undefined",
    "0",
    "1",
    "7",
    "255",
    "0x10",
    "0XFF",
    "0xFFFFFFFFFFFFFFFF",
    "18446744073709551617",
    "-1",
    "\"\"",
    "\"s\"",
    "\"a\\n\"",
    "\"\\q\"",
    "\"a\\\"",
    "\"open",
    "+",
    "-",
    "*",
    "/",
    "<<",
    ">>",
    "<",
    "<=",
    ">",
    ">=",
    "==",
    "!=",
    "&",
    "^",
    "|",
    "&&",
    "||",
    "!",
    "~",
    "++",
    "--",
    "=",
    "+=",
    "-=",
    "*=",
    "/=",
    "&=",
    "|=",
    "^=",
    "<<=",
    ">>=",
    "(",
    ")",
    "{",
    "}",
    "[",
    "]",
    ";",
    ",",
    "\n",
    "// c\n",
    "/* c */",
    "/*",
    "\t",
    "\r\n",
    "\\",
    "@",
    "'",
    "#",
};

const char* const s_BinaryOps[] = {"*",  "/",  "+",  "-", "<<", ">>", "<",  "<=", ">",
                                   ">=", "==", "!=", "&", "^",  "|",  "&&", "||"};
const char* const s_PrefixOps[] = {"-", "+", "!", "~", "++", "--"};
const char* const s_AssignOps[] = {"=", "+=", "-=", "*=", "/=", "&=", "|=", "^=", "<<=", ">>="};
const char* const s_Types[] = {"int",         "char",          "__int64", "unsigned int",
                               "signed char", "const __int64", "void"};
// The smallest value goes for the one division that overflows.
const char* const s_Values[] = {"0x10",      "0xFFFF",    "SEVEN",
                                "MINUS_ONE", "(1 << 63)", "((1 << 63) / MINUS_ONE)"};
const char* const s_Strings[] = {"\"\"", "\"text\"", "\"a\\tb\\n\"", "\"\\\\\"", "\"x\\0y\""};

/// Programs from the grammar: mostly valid, so that they run, with a little noise.
class Generator {
public:
    explicit Generator(Rng& R) : m_R(R) {}

    std::string Program() {
        m_Out.clear();
        const int Functions = 1 + static_cast<int>(m_R.Below(4));
        for (int f = 0; f < Functions; ++f) {
            Function(f);
        }
        return m_Out;
    }

    std::string Expression() {
        m_Out.clear();
        m_Vars = {"SEVEN"};
        Expr(3);
        return m_Out;
    }

private:
    void Emit(const std::string& S) { m_Out += S; }

    void Function(int Index) {
        static const char* const Names[] = {"F", "G", "H", "OnProjectLoad"};
        m_Vars.clear();
        m_Arrays.clear();
        Emit(m_R.Chance(50) ? "__int64 " : "void ");
        Emit(Names[Index]);
        Emit(" (");
        const int Params = static_cast<int>(m_R.Below(4));
        if (Params == 0) {
            Emit(m_R.Chance(50) ? "void" : "");
        }
        for (int p = 0; p < Params; ++p) {
            const std::string Name = "p" + std::to_string(p);
            Emit(std::string(p ? ", " : "") + m_R.Pick(s_Types) + " " + Name);
            m_Vars.push_back(Name);
        }
        Emit(") {\n");
        const int Statements = 1 + static_cast<int>(m_R.Below(8));
        for (int s = 0; s < Statements; ++s) {
            Stmt(3);
        }
        Emit("}\n");
    }

    std::string Var() {
        if (m_Vars.empty()) {
            return "SEVEN";
        }
        return m_Vars[m_R.Below(static_cast<U32>(m_Vars.size()))];
    }

    void Expr(int Depth) {
        if (m_R.Chance(3)) {
            Emit(m_R.Pick(s_Tokens));
            return;
        }
        switch (Depth <= 0 ? m_R.Below(3) : m_R.Below(9)) {
        case 0:
            Emit(std::to_string(m_R.Below(20)));
            break;
        case 1:
            Emit(Var());
            break;
        case 2:
            Emit(m_R.Pick(s_Values));
            break;
        case 3:
            Emit(m_R.Pick(s_PrefixOps));
            Expr(Depth - 1);
            break;
        case 4:
        case 5:
            Expr(Depth - 1);
            Emit(std::string(" ") + m_R.Pick(s_BinaryOps) + " ");
            Expr(Depth - 1);
            break;
        case 6:
            Emit("(");
            Expr(Depth - 1);
            Emit(")");
            break;
        case 7:
            Call(Depth - 1);
            break;
        default:
            if (!m_Arrays.empty()) {
                Emit(m_Arrays[m_R.Below(static_cast<U32>(m_Arrays.size()))] + "[");
                Expr(Depth - 1);
                Emit("]");
            } else {
                Emit(m_R.Pick(s_Strings));
            }
            break;
        }
    }

    void Call(int Depth) {
        static const char* const Functions[] = {"F",       "G",       "H",        "Native0",
                                                "Native1", "Native2", "Native8",  "NativeS",
                                                "Fz.Call", "Fz.Stop", "Fz.Abort", "Fz.Const"};
        const char* Name = m_R.Pick(Functions);
        Emit(std::string(Name) + "(");
        int Args = 0;
        if (!std::strcmp(Name, "Native1")) {
            Args = 1;
        } else if (!std::strcmp(Name, "Native2")) {
            Args = 2;
        } else if (!std::strcmp(Name, "Native8")) {
            Args = 8;
        } else if (!std::strcmp(Name, "Fz.Const")) {
            Args = 1;
        } else if (Name[0] == 'F' && Name[1] != 'z') {
            Args = static_cast<int>(m_R.Below(4));
        }
        if (!std::strcmp(Name, "NativeS") || !std::strcmp(Name, "Fz.Call")) {
            static const char* const Targets[] = {"\"F\"", "\"G\"", "\"H\"", "\"none\"", "7"};
            Emit(m_R.Pick(Targets));
        }
        for (int a = 0; a < Args; ++a) {
            if (a) {
                Emit(", ");
            }
            Expr(Depth);
        }
        Emit(")");
    }

    void Stmt(int Depth) {
        if (m_R.Chance(2)) {
            Emit(m_R.Pick(s_Tokens));
            Emit(" ");
            return;
        }
        switch (Depth <= 0 ? m_R.Below(3) : m_R.Below(10)) {
        case 0: {
            const std::string Name = "v" + std::to_string(m_Vars.size());
            Emit(std::string(m_R.Pick(s_Types)) + (m_R.Chance(10) ? "* " : " ") + Name);
            if (m_R.Chance(25)) {
                Emit("[" + std::to_string(static_cast<int>(m_R.Below(12)) - 1) + "]");
                m_Arrays.push_back(Name);
            } else {
                m_Vars.push_back(Name);
            }
            Emit(";\n");
            break;
        }
        case 1:
        case 2:
            if (!m_Arrays.empty() && m_R.Chance(30)) {
                Emit(m_Arrays[m_R.Below(static_cast<U32>(m_Arrays.size()))] + "[");
                Expr(1);
                Emit("]");
            } else {
                Emit(Var());
            }
            Emit(std::string(" ") + m_R.Pick(s_AssignOps) + " ");
            Expr(Depth);
            Emit(";\n");
            break;
        case 3:
            Call(Depth - 1);
            Emit(";\n");
            break;
        case 4:
            Emit("if (");
            Expr(Depth - 1);
            Emit(") ");
            Stmt(Depth - 1);
            if (m_R.Chance(50)) {
                Emit(" else ");
                Stmt(Depth - 1);
            }
            break;
        case 5:
            Emit("while (");
            Expr(Depth - 1);
            Emit(") ");
            Stmt(Depth - 1);
            break;
        case 6:
            Emit("do ");
            Stmt(Depth - 1);
            Emit(" while (");
            Expr(Depth - 1);
            Emit(");\n");
            break;
        case 7:
            Emit("return ");
            Expr(Depth - 1);
            Emit(";\n");
            break;
        default: {
            Emit("{\n");
            const int N = static_cast<int>(m_R.Below(4));
            for (int i = 0; i < N; ++i) {
                Stmt(Depth - 1);
            }
            Emit("}\n");
            break;
        }
        }
    }

    Rng& m_R;
    std::string m_Out;
    std::vector<std::string> m_Vars;
    std::vector<std::string> m_Arrays;
};

/// Splits a text into rough tokens: names, numbers, single punctuation characters and white space runs.
std::vector<std::string> Tokens(const std::string& Text) {
    std::vector<std::string> Out;
    size_t i = 0;
    while (i < Text.size()) {
        size_t j = i + 1;
        const auto Word = [](char C) {
            return std::isalnum(static_cast<unsigned char>(C)) || C == '_' || C == '.';
        };
        if (Word(Text[i])) {
            while (j < Text.size() && Word(Text[j])) {
                ++j;
            }
        } else if (std::isspace(static_cast<unsigned char>(Text[i]))) {
            while (j < Text.size() && std::isspace(static_cast<unsigned char>(Text[j]))) {
                ++j;
            }
        }
        Out.push_back(Text.substr(i, j - i));
        i = j;
    }
    return Out;
}

std::string Mutate(const std::string& Base, const std::string& Other, Rng& R) {
    std::vector<std::string> T = Tokens(Base);
    const int Steps = 1 + static_cast<int>(R.Below(5));
    for (int s = 0; s < Steps; ++s) {
        const U32 Size = static_cast<U32>(T.size());
        const U32 At = R.Below(Size + 1);
        switch (R.Below(8)) {
        case 0:
            if (At < Size) {
                T.erase(T.begin() + At);
            }
            break;
        case 1:
            T.insert(T.begin() + At, R.Pick(s_Tokens));
            break;
        case 2:
            if (At < Size) {
                T[At] = R.Pick(s_Tokens);
            }
            break;
        case 3:
            if (At < Size) {
                T.insert(T.begin() + At, T[At]);
            }
            break;
        case 4:
            if (Size > 1) {
                std::swap(T[R.Below(Size)], T[R.Below(Size)]);
            }
            break;
        case 5: {
            // Splice a run of the other script in.
            const std::vector<std::string> O = Tokens(Other);
            if (!O.empty()) {
                const U32 From = R.Below(static_cast<U32>(O.size()));
                const U32 Count = std::min<U32>(R.Below(20) + 1, static_cast<U32>(O.size()) - From);
                T.insert(T.begin() + At, O.begin() + From, O.begin() + From + Count);
            }
            break;
        }
        case 6:
            if (At < Size && !T[At].empty()) {
                T[At][R.Below(static_cast<U32>(T[At].size()))] = static_cast<char>(R.Below(256));
            }
            break;
        default:
            T.resize(At);
            break;
        }
    }
    std::string Out;
    for (const std::string& S : T) {
        Out += S;
    }
    return Out;
}

/// Texts that go for the limits: deep nesting, long chains, long literals.
std::string Extreme(Rng& R) {
    const int N = 100 + static_cast<int>(R.Below(6000));
    switch (R.Below(7)) {
    case 0:
        return "__int64 F (void) { return " + std::string(N, '(') + "1" + std::string(N, ')') + "; }";
    case 1:
        return "void F (void) { " + std::string(N, '{') + std::string(N, '}') + " }";
    case 2: {
        std::string S = "__int64 F (void) { return 1";
        for (int i = 0; i < N; ++i) {
            S += R.Chance(50) ? " - 1" : " * 1";
        }
        return S + "; }";
    }
    case 3: {
        std::string S = "void F (void) { ";
        for (int i = 0; i < N; ++i) {
            S += "if (1) ";
        }
        return S + "Native0(); }";
    }
    case 4:
        return "void F (void) { NativeS(\"" + std::string(static_cast<size_t>(N) * 50, 'z') + "\"); F(); }";
    case 5: {
        std::string S = "void F (int p0";
        const int Params = 30 + static_cast<int>(R.Below(6));
        for (int i = 1; i < Params; ++i) {
            S += ", int p" + std::to_string(i);
        }
        return S + ") { p0 = 1; } void G (void) { F(" + std::string(40, '1').insert(1, ", ") + "); }";
    }
    default:
        return "__int64 F (__int64 n) { int pad[" + std::to_string(R.Below(5000)) +
               "]; if (n > 0) return F(n - 1) + 1; return 0; } void G (void) { F(" + std::to_string(N) +
               "); }";
    }
}

// The natives. Each thread runs its own interpreter.
thread_local CScriptHeap* t_Heap = nullptr;
thread_local int t_Depth = 0;
thread_local U64 t_NativeCalls = 0;

/// The characters at a string argument, or null if it doesn't point into the block.
const char* StringArg(U64 Pointer) {
    const auto P = static_cast<uintptr_t>(Pointer);
    const auto Start = reinterpret_cast<uintptr_t>(t_Heap);
    if (P < Start || P >= Start + SCRIPT_HEAP_SIZE) {
        return nullptr;
    }
    const char* S = reinterpret_cast<const char*>(P);
    return strnlen(S, Start + SCRIPT_HEAP_SIZE - P) < Start + SCRIPT_HEAP_SIZE - P ? S : nullptr;
}

I32 NativeSum(const U64* Args, int Count) {
    ++t_NativeCalls;
    U64 S = 0;
    // Addresses of literals count as 0, so that a run does not depend on where the block lies.
    for (int i = 0; i < Count; ++i) {
        S += Args[i] - reinterpret_cast<uintptr_t>(t_Heap) < SCRIPT_HEAP_SIZE ? 0 : Args[i];
    }
    return static_cast<I32>(S);
}

I32 NativeString(const U64* Args, int) {
    ++t_NativeCalls;
    const char* S = StringArg(Args[0]);
    return S ? static_cast<I32>(std::strlen(S)) : -1;
}

/// Calls back into the interpreter by name, as Script.Exec does, with the host's nesting limit.
I32 NativeCall(const U64* Args, int) {
    ++t_NativeCalls;
    const char* Name = StringArg(Args[0]);
    if (!Name || t_Depth >= MAX_NATIVE_DEPTH) {
        return -5;
    }
    ++t_Depth;
    U64 Arg = 3;
    U64 Result = 0;
    const int R = (t_Depth & 1) ? ScriptInterp::CallFunctionEx(t_Heap, Name, 1, &Arg, &Result)
                                : ScriptInterp::CallFunction(t_Heap, Name);
    --t_Depth;
    return R;
}

I32 NativeStop(const U64*, int) {
    t_Heap->StopFlag = 1;
    return 0;
}

/// The host's stop request of the user, which ends the run with an error.
I32 NativeAbort(const U64*, int) {
    t_Heap->AbortFlag = 1;
    return 0;
}

thread_local U64 t_ConstsDefined = 0;

/// Defines a constant during a run, as Script.DefineConst does.
I32 NativeConst(const U64* Args, int) {
    ++t_ConstsDefined;
    return ScriptInterp::RegisterConstant(t_Heap, "Kc", static_cast<I32>(Args[0]));
}

/// Every global, its name included, below the low end: the room of a call's literals went back, and
/// nothing that lives on with it.
bool GlobalsBelowLow(const CScriptHeap* H) {
    for (const CScriptNode* N = H->GlobalsHead; N; N = N->Next) {
        const auto* Node = reinterpret_cast<const U8*>(N);
        const auto* Name = reinterpret_cast<const U8*>(N->Name);
        if (Node + sizeof(CScriptNode) > H->Low || (Name && Name + N->NameLen >= H->Low)) {
            return false;
        }
    }
    return true;
}

thread_local U64 t_Errors = 0;
thread_local bool t_BadError = false;
/// How often each error text came up: which of the interpreter's failures the run reached.
thread_local std::map<std::string, U64>* t_Texts = nullptr;

void OnError(CScriptHeap*, const char* Message) {
    ++t_Errors;
    // Formatted texts carry a line number; they count as one.
    std::string Text(Message);
    const size_t Digit = Text.find_first_of("0123456789");
    ++(*t_Texts)[Digit == std::string::npos ? Text : Text.substr(0, Digit) + "N"];
    const size_t Length = strnlen(Message, SCRIPT_ERROR_MAX + 2);
    if (Length == 0 || Length > SCRIPT_ERROR_MAX) {
        t_BadError = true;
    }
}

struct STATS {
    U64 Cases = 0;
    U64 Parsed = 0;
    U64 Calls = 0;
    U64 CallsOk = 0;
    U64 Errors = 0;
    U64 Natives = 0;
    double Slowest = 0;
};

std::mutex s_ReportLock;

bool Fail(const std::string& Why, const std::string& Text) {
    std::lock_guard<std::mutex> Guard(s_ReportLock);
    std::fprintf(stderr, "fuzz_script: %s\n", Why.c_str());
    std::ofstream("fuzz_script_failure.txt", std::ios::binary) << Text;
    std::fprintf(stderr, "fuzz_script: the script is in fuzz_script_failure.txt\n");
    return false;
}

/// Loads and runs one text; false on a broken invariant or a case over the time limit.
bool RunCase(U8* Block, const std::string& Text, Rng& R, STATS& Stats) {
    const auto Start = std::chrono::steady_clock::now();
    CScriptHeap* H = ScriptInterp::CreateInterpreter(Block, Text.c_str());
    if (!H) {
        return Fail("no interpreter", Text);
    }
    t_Heap = H;
    t_BadError = false;
    H->ErrorCallback = OnError;
    static const char* const Prototypes[] = {
        "__api__ int Native0 (void);",
        "__api__ int Native1 (int a);",
        "__api__ int Native2 (__int64 a, char b);",
        "__api__ int Native8 (int a, int b, int c, int d, int e, int f, int g, int h);",
    };
    for (const char* P : Prototypes) {
        ScriptInterp::RegisterNative(H, P, NativeSum);
    }
    ScriptInterp::RegisterNative(H, "__api__ int NativeS (const char* s);", NativeString);
    ScriptInterp::RegisterNative(H, "__api__ int Fz.Call (const char* s);", NativeCall);
    ScriptInterp::RegisterNative(H, "__api__ int Fz.Stop (void);", NativeStop);
    ScriptInterp::RegisterNative(H, "__api__ int Fz.Abort (void);", NativeAbort);
    ScriptInterp::RegisterNative(H, "__api__ int Fz.Const (int v);", NativeConst);
    ScriptInterp::RegisterConstant(H, "SEVEN", 7);
    ScriptInterp::RegisterConstant(H, "MINUS_ONE", -1);
    ++Stats.Cases;
    if (ScriptInterp::ParseGlobals(H) == 0) {
        ++Stats.Parsed;
        int Runs = 0;
        for (CScriptNode* N = H->GlobalsHead; N && Runs < 4; N = N->Next) {
            if (N->Kind != NK_FUNCTION || N->Attributes) {
                continue;
            }
            ++Runs;
            ScriptInterp::ClearError(H);
            H->StopFlag = 0;
            H->StepLimit = STEPS_PER_CALL;
            U64 Args[4] = {R.Next() % 10, R.Next(), 0, ~U64(0)};
            U64 Result = 0;
            const U8* const LowBefore = H->Low;
            const U64 ConstsBefore = t_ConstsDefined;
            const int Rc =
                R.Chance(50)
                    ? ScriptInterp::CallFunction(H, N->Name)
                    : ScriptInterp::CallFunctionEx(H, N->Name, static_cast<int>(R.Below(5)), Args, &Result);
            ++Stats.Calls;
            Stats.CallsOk += Rc == 0;
            if (H->Nesting != 0 || H->High != H->BlockEnd || H->LocalsHead || H->Low > H->High ||
                H->Function || H->AbortFlag) {
                return Fail("the interpreter is not at rest after a call", Text);
            }
            if ((t_ConstsDefined == ConstsBefore && H->Low != LowBefore) || !GlobalsBelowLow(H)) {
                return Fail("a call did not give back the room of its literals", Text);
            }
        }
        ScriptInterp::ClearError(H);
        H->StopFlag = 0;
        H->StepLimit = STEPS_PER_CALL;
        Generator G(R);
        const std::string Expr = G.Expression();
        U64 Value = 0;
        ScriptInterp::EvaluateText(H, Expr.c_str(), &Value);
        if (H->ErrorFlag || H->Nesting != 0) {
            return Fail("the interpreter is not at rest after an evaluation", Text + "\n// " + Expr);
        }
    }
    if (t_BadError) {
        return Fail("an error text is empty or too long", Text);
    }
    const double Seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - Start).count();
    Stats.Slowest = std::max(Stats.Slowest, Seconds);
    if (Seconds > HANG_SECONDS) {
        return Fail("a case ran for " + std::to_string(Seconds) + " s", Text);
    }
    return true;
}

std::vector<std::string> ReadCorpus(const std::string& Dir) {
    std::vector<std::string> Seeds;
    if (DIR* D = opendir(Dir.c_str())) {
        std::vector<std::string> Names;
        while (dirent* E = readdir(D)) {
            if (E->d_name[0] != '.') {
                Names.emplace_back(E->d_name);
            }
        }
        closedir(D);
        std::sort(Names.begin(), Names.end());
        for (const std::string& N : Names) {
            std::ifstream In(Dir + "/" + N, std::ios::binary);
            std::stringstream S;
            S << In.rdbuf();
            Seeds.push_back(S.str());
        }
    }
    return Seeds;
}

} // namespace

int main(int argc, char** argv) {
    const U64 Cases = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 200000;
    const U64 Seed = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 1;
    const std::vector<std::string> Corpus = ReadCorpus(argc > 3 ? argv[3] : ARNEX_FUZZ_CORPUS);
    if (Corpus.empty()) {
        std::fprintf(stderr, "fuzz_script: no seed scripts in the corpus\n");
        return 1;
    }
    const auto Start = std::chrono::steady_clock::now();
    constexpr int THREADS = 2;
    STATS Stats[THREADS];
    std::map<std::string, U64> Texts[THREADS];
    std::atomic<bool> Ok{true};
    std::vector<std::thread> Workers;
    for (int t = 0; t < THREADS; ++t) {
        Workers.emplace_back([&, t]() {
            std::unique_ptr<U8[]> Block(new U8[SCRIPT_HEAP_SIZE]);
            t_Texts = &Texts[t];
            Rng R{Seed * 1000003 + static_cast<U64>(t)};
            Generator G(R);
            std::string Last = Corpus[0];
            for (U64 c = static_cast<U64>(t); c < Cases && Ok; c += THREADS) {
                std::string Text;
                const U32 Kind = R.Below(100);
                if (Kind < 35) {
                    Text = G.Program();
                } else if (Kind < 70) {
                    Text = Mutate(Corpus[R.Below(static_cast<U32>(Corpus.size()))], Last, R);
                } else if (Kind < 97) {
                    Text = Mutate(G.Program(), Corpus[R.Below(static_cast<U32>(Corpus.size()))], R);
                } else {
                    Text = Extreme(R);
                }
                t_Errors = 0;
                t_NativeCalls = 0;
                if (!RunCase(Block.get(), Text, R, Stats[t])) {
                    Ok = false;
                }
                Stats[t].Errors += t_Errors;
                Stats[t].Natives += t_NativeCalls;
                if (Text.size() < 4000) {
                    Last = std::move(Text);
                }
            }
        });
    }
    for (std::thread& W : Workers) {
        W.join();
    }
    STATS Sum;
    for (const STATS& S : Stats) {
        Sum.Cases += S.Cases;
        Sum.Parsed += S.Parsed;
        Sum.Calls += S.Calls;
        Sum.CallsOk += S.CallsOk;
        Sum.Errors += S.Errors;
        Sum.Natives += S.Natives;
        Sum.Slowest = std::max(Sum.Slowest, S.Slowest);
    }
    const double Seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - Start).count();
    std::printf("fuzz_script: %llu scripts, %llu loaded, %llu calls (%llu without error), %llu errors, "
                "%llu native calls, slowest %.3f s, %.1f s in all\n",
                static_cast<unsigned long long>(Sum.Cases), static_cast<unsigned long long>(Sum.Parsed),
                static_cast<unsigned long long>(Sum.Calls), static_cast<unsigned long long>(Sum.CallsOk),
                static_cast<unsigned long long>(Sum.Errors), static_cast<unsigned long long>(Sum.Natives),
                Sum.Slowest, Seconds);
    std::map<std::string, U64> AllTexts;
    for (const auto& T : Texts) {
        for (const auto& [Text, Count] : T) {
            AllTexts[Text] += Count;
        }
    }
    for (const auto& [Text, Count] : AllTexts) {
        std::printf("%10llu  %s\n", static_cast<unsigned long long>(Count), Text.c_str());
    }
    if (!Ok || Sum.Cases != Cases) {
        return 1;
    }
    return 0;
}
