#include "InterpFixture.h"

#include <cstring>

std::vector<std::string> InterpFixture::Logged;
std::vector<U64> InterpFixture::Notes;
std::vector<std::string> InterpFixture::Errors;
std::vector<int> InterpFixture::ErrorLines;
int InterpFixture::Counter = 0;
std::vector<bool> InterpFixture::TailData;
CScriptHeap* InterpFixture::Current = nullptr;
std::vector<std::vector<U64>> InterpFixture::NativeCalls;

namespace {

I32 Log(const U64* Args, int) {
    InterpFixture::Logged.emplace_back(reinterpret_cast<const char*>(static_cast<uintptr_t>(Args[0])));
    return 0;
}

I32 Note(const U64* Args, int) {
    InterpFixture::Notes.push_back(Args[0]);
    return 0;
}

I32 Count(const U64*, int) {
    return ++InterpFixture::Counter;
}

I32 Tail(const U64*, int) {
    const CScriptNode* Last = InterpFixture::Current->LocalsTail;
    InterpFixture::TailData.push_back(Last && Last->Var.Data);
    return 0;
}

I32 Ret(const U64* Args, int) {
    return static_cast<I32>(Args[0]);
}

I32 Sum(const U64* Args, int N) {
    InterpFixture::NativeCalls.emplace_back(Args, Args + N);
    U64 S = 0;
    for (int i = 0; i < N; ++i) {
        S += Args[i];
    }
    return static_cast<I32>(S);
}

void OnError(CScriptHeap* Heap, const char* Message) {
    InterpFixture::Errors.emplace_back(Message);
    InterpFixture::ErrorLines.push_back(Heap->Line);
}

} // namespace

void InterpFixture::SetUp() {
    m_Block.reset(new U8[SCRIPT_HEAP_SIZE]);
    Logged.clear();
    Notes.clear();
    Errors.clear();
    ErrorLines.clear();
    NativeCalls.clear();
    TailData.clear();
    Counter = 0;
}

int InterpFixture::Load(const std::string& Text) {
    m_Text = Text;
    H = ScriptInterp::CreateInterpreter(m_Block.get(), m_Text.c_str());
    if (!H) {
        return -1;
    }
    H->ErrorCallback = OnError;
    Current = H;
    ScriptInterp::RegisterNative(H, "__api__ int TailData (void);", Tail);
    ScriptInterp::RegisterNative(H, "__api__ int Log (const char* s);", Log);
    ScriptInterp::RegisterNative(H, "__api__ int Note (__int64 v);", Note);
    ScriptInterp::RegisterNative(H, "__api__ int Count (void);", Count);
    ScriptInterp::RegisterNative(H, "__api__ int Ret (int v);", Ret);
    std::string Params;
    for (int n = 0; n <= 9; ++n) {
        const std::string Proto = "__api__ int Sum" + std::to_string(n) + " (" + (n ? Params : "void") + ");";
        ScriptInterp::RegisterNative(H, Proto.c_str(), Sum);
        Params += std::string(n ? ", " : "") + "__int64 p" + std::to_string(n);
    }
    ScriptInterp::RegisterConstant(H, "SEVEN", 7);
    ScriptInterp::RegisterConstant(H, "MINUS_ONE", -1);
    return ScriptInterp::ParseGlobals(H);
}

int InterpFixture::Run(const char* Name) {
    return ScriptInterp::CallFunction(H, Name);
}

int InterpFixture::RunEx(const char* Name, std::vector<U64> Args, U64* Result) {
    return ScriptInterp::CallFunctionEx(H, Name, static_cast<int>(Args.size()), Args.data(), Result);
}

U64 InterpFixture::Value(const std::string& Body) {
    if (Load("__int64 F (void) {\n" + Body + "\n}\n") != 0) {
        return ~U64(0);
    }
    U64 Result = 0;
    return RunEx("F", {}, &Result) == 0 ? Result : ~U64(0);
}
