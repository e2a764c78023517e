// The text: the global scan, comments, names, string literals and what the block holds.

#include "InterpFixture.h"

#include <cstring>

namespace {

using Text = InterpFixture;

TEST_F(Text, BodiesAreNotParsedAtLoad) {
    ASSERT_EQ(Load("void Good (void) { Log(\"ok\"); }\nvoid Bad (void) { this is not ) C }\n"), 0);
    EXPECT_EQ(Run("Good"), 0);
    EXPECT_EQ(Run("Bad"), -1);
    EXPECT_EQ(FirstError(), "syntax error.");
    EXPECT_EQ(ErrorLines.front(), 2);
}

TEST_F(Text, GlobalScanErrors) {
    const struct {
        const char* Text;
        const char* Error;
        int Line;
    } Cases[] = {
        {"int x;", "Expected a '('", 1},
        {"void F (void);", "expected '{'", 1},
        {"void F (void) { if (1) {", "unexpected end of file looking for '}'", 1},
        {"\n\nfoo F (void) {}", "syntax error.", 3},
        {"void (void) {}", "expected an identifier.", 1},
        {"void F (int) {}", "expected an identifier.", 1},
        {"void F (SEVEN a) {}", "syntax error.", 1},
        {"SEVEN F (void) {}", "syntax error.", 1},
        {"void F (void) {} /* open", "C-comment has not been closed properly", 1},
        {"void F (void) { /* } */ ", "unexpected end of file looking for '}'", 1},
        {"void F (void) { /* } ", "C-comment has not been closed properly", 1},
        {"\"text\"", "syntax error.", 1},
    };
    for (const auto& C : Cases) {
        Errors.clear();
        ErrorLines.clear();
        EXPECT_EQ(Load(C.Text), -1) << C.Text;
        EXPECT_EQ(FirstError(), C.Error) << C.Text;
        if (!ErrorLines.empty()) {
            EXPECT_EQ(ErrorLines.front(), C.Line) << C.Text;
        }
    }
}

TEST_F(Text, HeadsWithQualifiersAndAttributes) {
    ASSERT_EQ(Load("unsigned int A (void) { return 1; }\n"
                   "__api__ int B (void) { Log(\"ran\"); return 2; }\n"
                   "__int64 F (void) { return A() + B() + 5; }\n"),
              0);
    U64 R = 0;
    ASSERT_EQ(RunEx("F", {}, &R), 0);
    // A function with the API attribute counts as native; without an entry point it is never run.
    EXPECT_EQ(R, 6u);
    EXPECT_TRUE(Logged.empty());
    EXPECT_EQ(Run("B"), -2);
}

TEST_F(Text, ParameterListsOfEveryForm) {
    ASSERT_EQ(Load("void C () { }\n"
                   "int D (const unsigned char* s, volatile int n,) { return n; }\n"
                   "int E (int a int b) { return a - b; }\n"),
              0);
    U64 R = 0;
    EXPECT_EQ(Run("C"), 0);
    ASSERT_EQ(RunEx("D", {0, 9}, &R), 0);
    EXPECT_EQ(R, 9u);
    ASSERT_EQ(RunEx("E", {9, 2}, &R), 0);
    EXPECT_EQ(R, 7u);
}

TEST_F(Text, AtMost32Parameters) {
    std::string Params;
    for (int i = 0; i < 33; ++i) {
        Params += (i ? ", int p" : "int p") + std::to_string(i);
    }
    EXPECT_EQ(Load("void F (" + Params + ") { }"), -1);
    EXPECT_EQ(FirstError(), "more than 32 parameters.");
}

TEST_F(Text, BraceInAStringConfusesTheScan) {
    // The scan counts braces without looking at quotes: here the body ends inside the string.
    EXPECT_EQ(Load("void F (void) { Log(\"}\"); }"), -1);
    EXPECT_EQ(FirstError(), "syntax error.");
    Errors.clear();
    // Here it swallows the next function, which then is missing.
    ASSERT_EQ(Load("void F (void) { Log(\"{\"); }\nvoid G (void) { Log(\"g\"); }\n}\n"), 0);
    EXPECT_EQ(Run("F"), 0);
    EXPECT_EQ(Logged, std::vector<std::string>{"{"});
    EXPECT_EQ(Run("G"), -2);
}

TEST_F(Text, StringLiteralErrors) {
    EXPECT_EQ(Value("Log(\"a\\\"b\"); return 1;"), ~U64(0));
    EXPECT_EQ(FirstError(), "unexpected escape character.");
    Errors.clear();
    EXPECT_EQ(Value("Log(\"a\\qb\"); return 1;"), ~U64(0));
    EXPECT_EQ(FirstError(), "unexpected escape character.");
    Errors.clear();
    EXPECT_EQ(Value("Log(\"two\nlines\"); return 1;"), ~U64(0));
    EXPECT_EQ(FirstError(), "illegal character in string");
}

TEST_F(Text, CommentsOfBothKinds) {
    ASSERT_EQ(Load("// head\r\nvoid /* a */ F /**/ (void) // x\n{ Log(\"a\"); // c\n /* { */ Log(\"b\"); }"),
              0);
    ASSERT_EQ(Run("F"), 0);
    EXPECT_EQ(Logged, (std::vector<std::string>{"a", "b"}));
}

TEST_F(Text, NamesContainDotsAndAreCaseSensitive) {
    EXPECT_EQ(Value("int a.b.c; a.b.c = 3; return a.b.c;"), 3u);
    EXPECT_EQ(Eval("seven"), ~U64(0));
    EXPECT_EQ(FirstError(), "unknown identifier.");
}

TEST_F(Text, BuiltInSymbols) {
    ASSERT_EQ(Load(""), 0);
    const struct {
        const char* Name;
        I32 Kind;
        I32 Value;
    } BuiltIns[] = {{"volatile", NK_QUALIFIER, 1}, {"const", NK_QUALIFIER, 2},
                    {"signed", NK_QUALIFIER, 3},   {"unsigned", NK_QUALIFIER, 4},
                    {"__api__", NK_ATTRIBUTE, 0},  {"char", NK_BASE_TYPE, 1},
                    {"int", NK_BASE_TYPE, 4},      {"__int64", NK_BASE_TYPE, 8},
                    {"void", NK_BASE_TYPE, 0},     {"__const_char", NK_BASE_TYPE, 1}};
    CScriptNode* N = H->GlobalsHead;
    for (const auto& B : BuiltIns) {
        ASSERT_NE(N, nullptr);
        EXPECT_STREQ(N->Name, B.Name);
        EXPECT_EQ(N->Kind, B.Kind);
        EXPECT_EQ(B.Kind == NK_BASE_TYPE ? N->Base.Size : N->Qual.Id, B.Value) << B.Name;
        N = N->Next;
    }
    ASSERT_NE(H->ConstCharType, nullptr);
    ASSERT_NE(H->ConstCharType->Attributes, nullptr);
    EXPECT_STREQ(H->ConstCharType->Attributes->Node->Name, "const");
    EXPECT_EQ(ScriptInterp::FindSymbol(H, "int", 3), ScriptInterp::FindSymbol(H, "intx", 3));
    EXPECT_EQ(ScriptInterp::FindSymbol(H, "in", 2), nullptr);
    EXPECT_EQ(ScriptInterp::CreateInterpreter(m_Block.get(), nullptr), nullptr);
}

TEST_F(Text, StringLiteralsUseUpTheBlock) {
    ASSERT_EQ(Load("void F (void) { while (1) { Log(\"a literal that takes room\"); } }"), 0);
    EXPECT_EQ(Run("F"), -1);
    EXPECT_EQ(FirstError(), "out of memory.");
    EXPECT_GT(Logged.size(), 1000u);
}

namespace {

/// Defines a constant while a script runs, as Script.DefineConst does.
I32 DefineK(const U64* Args, int) {
    return ScriptInterp::RegisterConstant(InterpFixture::Current, "K", static_cast<I32>(Args[0]));
}

} // namespace

TEST_F(Text, TheLiteralsOfACallFromTheHostAreGivenBack) {
    // A handler runs on every halt: ten literals a run, far more runs than the block holds literals.
    ASSERT_EQ(Load("void F (void) { __int64 i; i = 0; while (i < 10) { Log(\"a literal that takes room\"); "
                   "i += 1; } }\n"
                   "__int64 G (__int64 v) { Def(v); Log(\"more room\"); return K; }"),
              0);
    ASSERT_EQ(ScriptInterp::RegisterNative(H, "__api__ int Def (int v);", DefineK), 0);
    const U8* const Low = H->Low;
    for (int Run_ = 0; Run_ < 20000; ++Run_) {
        ASSERT_EQ(Run("F"), 0) << "run " << Run_ << ": " << FirstError();
    }
    EXPECT_EQ(Logged.size(), 200000u);
    EXPECT_EQ(H->Low, Low);
    U64 V = 0;
    EXPECT_EQ(ScriptInterp::EvaluateText(H, "Log(\"from the host\") + 1", &V), 0);
    EXPECT_EQ(H->Low, Low);
    // A constant defined during a call stands among its literals, and outlives them.
    U64 R = 0;
    ASSERT_EQ(RunEx("G", {41}, &R), 0);
    EXPECT_EQ(R, 41u);
    ASSERT_EQ(ScriptInterp::EvaluateText(H, "K + 1", &R), 0);
    EXPECT_EQ(R, 42u);
    EXPECT_EQ(H->Low - Low, static_cast<long>(sizeof(CScriptNode) + 8)) << "the constant's node and name";
}

TEST_F(Text, LocalInALongLoopEndsWithoutData) {
    // Every round declares anew; the name finds the first declaration, so the newest, once it found no
    // room for its data, is never used. The round after finds no room for its node and the run ends
    // without a message.
    ASSERT_EQ(
        Load("void F (void) { __int64 i; i = 0; while (i < 100000) { int x[50]; TailData(); i += 1; } }"), 0);
    EXPECT_EQ(Run("F"), -1);
    EXPECT_TRUE(Errors.empty());
    ASSERT_GT(TailData.size(), 1000u);
    EXPECT_LT(TailData.size(), 100000u);
    EXPECT_FALSE(TailData.back()) << "the last declaration has no data";
    EXPECT_TRUE(TailData.front());
    EXPECT_EQ(H->High, H->BlockEnd) << "the function's return frees its locals";
}

TEST_F(Text, VariableWithoutDataIsOutOfMemory) {
    // A name declared only once the block is full has no data: using it is an error of the statement.
    ASSERT_EQ(Load("void G (__int64 n) { int big[30000]; big[0] = 1; if (n > 0) G(n - 1); }\n"
                   "void F (void) { G(100); }"),
              0);
    EXPECT_EQ(Run("F"), -1);
    EXPECT_EQ(FirstError(), "out of memory.");
    // A first declaration that leaves the block all but full.
    ASSERT_EQ(Load("__int64 F (void) { int fill[100000]; int x; x = 1; return x; }"), 0);
    const long Count = (H->High - H->Low - 480) / 4;
    ASSERT_EQ(Load("__int64 F (void) { int fill[" + std::to_string(Count) + "]; int x; x = 1; return x; }"),
              0);
    U64 R = 0;
    EXPECT_EQ(RunEx("F", {}, &R), -1);
    EXPECT_EQ(FirstError(), "out of memory.");
}

TEST_F(Text, AttributeLinkWithoutRoomIsOutOfMemory) {
    ASSERT_EQ(Load("void F (void) { const int x; }"), 0);
    // Fill the block until it holds the variable's node but not the link to its qualifier.
    const auto Free = [this]() { return static_cast<long>(H->High - H->Low); };
    for (int i = 0; Free() > 400; ++i) {
        ASSERT_EQ(ScriptInterp::RegisterConstant(H, ("k" + std::to_string(i)).c_str(), i), 0);
    }
    const long Pad = (8 - reinterpret_cast<uintptr_t>(H->Low) % 8) % 8;
    const long Length = Free() - Pad - static_cast<long>(sizeof(CScriptNode)) - 1 - 88;
    ASSERT_GT(Length, 0);
    ASSERT_EQ(ScriptInterp::RegisterConstant(H, std::string(static_cast<size_t>(Length), 'n').c_str(), 0), 0);
    ASSERT_EQ(Free(), 88);
    EXPECT_EQ(Run("F"), -1);
    EXPECT_EQ(FirstError(), "Out of memory.");
}

TEST_F(Text, RegisterNativeKeepsTheTextPosition) {
    ASSERT_EQ(Load("void F (void) { }"), 0);
    const char* Cursor = H->Cursor;
    EXPECT_EQ(ScriptInterp::RegisterNative(H, "__api__ int X.Y (int a, const char* s);", nullptr), 0);
    EXPECT_EQ(H->Cursor, Cursor);
    EXPECT_EQ(ScriptInterp::RegisterNative(H, "__api__ int X.Z (int a)", nullptr), -1);
    EXPECT_EQ(FirstError(), "Expected a ';'");
    EXPECT_EQ(H->Cursor, Cursor);
}

} // namespace
