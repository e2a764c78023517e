// Statements: branches and their walk, loops, returns, assignments, locals and arrays.

#include "InterpFixture.h"

namespace {

using Stmt = InterpFixture;

TEST_F(Stmt, IntReadsAsUnsignedAndTakesTheElseBranch) {
    ASSERT_EQ(Load("void F (void) { int a; a = 0 - 1; if (a < 0) Log(\"if\"); else Log(\"else\"); }"), 0);
    ASSERT_EQ(Run("F"), 0);
    EXPECT_EQ(Logged, std::vector<std::string>{"else"});
}

TEST_F(Stmt, Int64KeepsItsSignAndTakesTheIfBranch) {
    ASSERT_EQ(Load("void F (void) { __int64 a; a = 0 - 1; if (a < 0) Log(\"if\"); else Log(\"else\"); }"), 0);
    ASSERT_EQ(Run("F"), 0);
    EXPECT_EQ(Logged, std::vector<std::string>{"if"});
}

TEST_F(Stmt, CharKeepsTheLowByte) {
    EXPECT_EQ(Value("char a; a = 300; return a;"), 44u);
}

TEST_F(Stmt, WalkedReturnEndsNothing) {
    ASSERT_EQ(Load("__int64 F (void) { if (0) { return 1; Log(\"x\"); } Log(\"after\"); return 2; }"), 0);
    U64 R = 0;
    ASSERT_EQ(RunEx("F", {}, &R), 0);
    EXPECT_EQ(R, 2u);
    EXPECT_EQ(Logged, std::vector<std::string>{"after"});
}

TEST_F(Stmt, ReturnLeavesNestedBlocksAndLoops) {
    EXPECT_EQ(Value("__int64 i; i = 0; while (1) { { if (i == 5) { return i * 10; } } i += 1; } return 0;"),
              50u);
    EXPECT_EQ(Value("__int64 i; i = 0; do { i += 1; if (i == 3) return 33; } while (1); return 0;"), 33u);
}

TEST_F(Stmt, ElseIfChains) {
    const char* Body = "if (V == 1) return 10; else if (V == 2) return 20; else return 30;";
    for (const auto& [V, Expected] : std::vector<std::pair<int, U64>>{{1, 10}, {2, 20}, {3, 30}}) {
        std::string B = Body;
        B.replace(B.find("V =="), 1, std::to_string(V));
        B.replace(B.find("V =="), 1, std::to_string(V));
        EXPECT_EQ(Value(B), Expected) << V;
    }
}

TEST_F(Stmt, WhileAndDoLoops) {
    EXPECT_EQ(Value("__int64 i; __int64 s; i = 0; s = 0; while (i < 10) { s += i; i += 1; } return s;"), 45u);
    EXPECT_EQ(Value("__int64 i; i = 0; while (0) i = 5; return i;"), 0u);
    // A do body runs once even when the condition is false.
    EXPECT_EQ(Value("__int64 i; i = 0; do i += 1; while (0); return i;"), 1u);
    EXPECT_EQ(Value("__int64 i; i = 0; do { i += 2; } while (i < 9); return i;"), 10u);
}

TEST_F(Stmt, EveryAssignmentOperator) {
    EXPECT_EQ(Value("__int64 a; a = 10; a += 5; a -= 3; a *= 4; a /= 6; return a;"), 8u);
    EXPECT_EQ(Value("__int64 a; a = 12; a &= 10; a |= 1; a ^= 3; return a;"), 10u);
    EXPECT_EQ(Value("__int64 a; a = 1; a <<= 4; a >>= 2; return a;"), 4u);
}

TEST_F(Stmt, PostfixIncrementIsASyntaxError) {
    EXPECT_EQ(Value("int a; a = 1; a++; return a;"), ~U64(0));
    EXPECT_EQ(FirstError(), "syntax error.");
    Errors.clear();
    // "++a" as a statement is no statement either, and as a value it leaves a alone.
    EXPECT_EQ(Value("int a; a = 1; ++a; return a;"), ~U64(0));
    EXPECT_EQ(FirstError(), "syntax error.");
}

TEST_F(Stmt, VariableWithoutOperatorEndsTheStatement) {
    EXPECT_EQ(Value("int a; a; return 1;"), ~U64(0));
    EXPECT_EQ(FirstError(), "syntax error.");
    Errors.clear();
    // What follows the bare name is read as the next statement.
    EXPECT_EQ(Value("int a; int b; a b = 3; return b;"), 3u);
}

TEST_F(Stmt, KeywordsThatAreNoStatements) {
    EXPECT_EQ(Value("else return 1;"), ~U64(0));
    EXPECT_EQ(FirstError(), "keyword \"else\" is not allowed without \"if\"");
    Errors.clear();
    EXPECT_EQ(Value("for (;;) return 1;"), ~U64(0));
    EXPECT_EQ(FirstError(), "keyword \"for\" is not yet supported");
    Errors.clear();
    EXPECT_EQ(Value("int i; i = 0; do i += 1; until (i < 3); return i;"), ~U64(0));
    EXPECT_EQ(FirstError(), "syntax error. Missing \"while\" at line 2");
    for (const char* Word : {"break;", "switch (1) {}", ";", "SEVEN = 1;"}) {
        Errors.clear();
        EXPECT_EQ(Value(std::string(Word) + " return 1;"), ~U64(0)) << Word;
        EXPECT_EQ(FirstError(), "syntax error.") << Word;
    }
}

TEST_F(Stmt, KeywordsNeedAWordBoundary) {
    // "iffy" and "do.x" are names, not keywords.
    EXPECT_EQ(Value("int iffy; int do.x; iffy = 2; do.x = 3; return iffy * do.x;"), 6u);
}

TEST_F(Stmt, NoInitialisers) {
    EXPECT_EQ(Value("int a = 1; return a;"), ~U64(0));
    EXPECT_EQ(FirstError(), "Expected a ';'");
}

TEST_F(Stmt, DeclarationErrors) {
    EXPECT_EQ(Value("unsigned SEVEN; return 1;"), ~U64(0));
    EXPECT_EQ(FirstError(), "currently only basic data types for local variables are allowed.");
    Errors.clear();
    EXPECT_EQ(Value("int; return 1;"), ~U64(0));
    EXPECT_EQ(FirstError(), "expected an identifier.");
    Errors.clear();
    EXPECT_EQ(Value("int a[]; return 1;"), ~U64(0));
    EXPECT_EQ(FirstError(), "expected an integer value");
}

TEST_F(Stmt, QualifiersAreRecordedWithoutEffect) {
    EXPECT_EQ(Value("volatile const signed int a; a = 0 - 1; return a;"), 4294967295u);
    EXPECT_EQ(Value("unsigned char c; c = 0x1FF; return c;"), 255u);
}

TEST_F(Stmt, ArraysAreCheckedUnderExecution) {
    EXPECT_EQ(Value("int a[3]; a[0] = 1; a[2] = 0x100000005; return a[0] + a[2];"), 6u);
    EXPECT_EQ(Value("int a[3]; a[3] = 1; return 0;"), ~U64(0));
    EXPECT_EQ(FirstError(), "array index out of range.");
    Errors.clear();
    EXPECT_EQ(Value("int a[3]; return a[0 - 1];"), ~U64(0));
    EXPECT_EQ(FirstError(), "array index out of range.");
    Errors.clear();
    EXPECT_EQ(Value("int a[2]; return a;"), ~U64(0));
    EXPECT_EQ(FirstError(), "Expected a '['");
    Errors.clear();
    // A walk reads nothing out of range and reports nothing.
    EXPECT_EQ(Value("int a[2]; __int64 x; if (0) { x = a[1000000]; a[99] = 1; } return 7;"), 7u);
    EXPECT_TRUE(Errors.empty());
}

TEST_F(Stmt, NegativeArraySizeHasNoData) {
    EXPECT_EQ(Value("int a[-2]; a[0] = 1; return 0;"), ~U64(0));
    EXPECT_EQ(FirstError(), "array index out of range.");
}

TEST_F(Stmt, PointerCanBeDeclaredButNotUsed) {
    EXPECT_EQ(Value("int* p; return 1;"), 1u);
    EXPECT_EQ(Value("int* p; return p;"), ~U64(0));
    EXPECT_EQ(FirstError(), "expected a base type.");
    Errors.clear();
    EXPECT_EQ(Value("int* p; p = 1; return 1;"), ~U64(0));
    EXPECT_EQ(FirstError(), "assignments are allowed for base types only");
    Errors.clear();
    // An array of pointers has pointer sized elements, read and written through their base type.
    EXPECT_EQ(Value("int* p[2]; p[1] = 0x100000007; return p[1];"), 7u);
}

TEST_F(Stmt, VoidHasNoSize) {
    EXPECT_EQ(Value("void v; v = 1; return 0;"), ~U64(0));
    EXPECT_EQ(FirstError(), "base type size must be at least 1 byte");
    Errors.clear();
    EXPECT_EQ(Value("void v; return v;"), ~U64(0));
    EXPECT_EQ(FirstError(), "unsupported base type size.");
    Errors.clear();
    EXPECT_EQ(Value("void v[2]; return v[0];"), ~U64(0));
    EXPECT_EQ(FirstError(), "unsupported base type size.");
}

TEST_F(Stmt, LocalsBelongToTheFunctionAndTheFirstOfANameWins) {
    // Declared in a walked branch still declares; a second declaration of a name is not found.
    EXPECT_EQ(Value("if (0) { int a; } a = 4; { int a; a = 9; } return a;"), 9u);
    EXPECT_EQ(Value("__int64 i; i = 0; while (i < 3) { int k; k = k + 1; i += 1; } return k;"), 3u);
}

TEST_F(Stmt, LocalsStartAtZero) {
    EXPECT_EQ(Value("__int64 a; int b[4]; return a + b[3];"), 0u);
}

TEST_F(Stmt, StopFlagEndsLoopsAndCalls) {
    ASSERT_EQ(Load("void F (void) { while (1) { Count(); } } void G (void) { F(); Log(\"after\"); }"), 0);
    H->StepLimit = 1000;
    EXPECT_EQ(Run("G"), 0);
    EXPECT_TRUE(H->StopFlag);
    EXPECT_GT(Counter, 10);
    EXPECT_TRUE(Logged.empty());
    // A stopped interpreter runs nothing more.
    const int Before = Counter;
    EXPECT_EQ(Run("F"), 0);
    EXPECT_EQ(Counter, Before);
}

namespace {

int s_Yields = 0;

/// The host's turn during a long run; the third asks to stop, as the user's menu entry would.
void YieldAndStop(CScriptHeap* Heap) {
    if (++s_Yields == 3) {
        Heap->AbortFlag = 1;
    }
}

/// Runs Spin as a nested call from the host, as Script.Exec does.
I32 Nested(const U64*, int) {
    U64 R = 0;
    return ScriptInterp::CallFunctionEx(InterpFixture::Current, "Spin", 0, nullptr, &R);
}

} // namespace

TEST_F(Stmt, ALongRunYieldsAndTheUsersStopEndsItWithAnError) {
    ASSERT_EQ(Load("void Spin (void) {\n  while (1) {\n    Count();\n  }\n}\n"
                   "void Outer (void) {\n  Nested();\n  Log(\"after\");\n}\n"
                   "__int64 Five (void) { return 5; }"),
              0);
    s_Yields = 0;
    H->YieldCallback = YieldAndStop;
    // Without the stop the run would end here, silently.
    H->StepLimit = 100 * SCRIPT_YIELD_INTERVAL;
    EXPECT_EQ(Run("Spin"), -1);
    EXPECT_EQ(s_Yields, 3);
    EXPECT_EQ(FirstError(), SCRIPT_STOPPED_TEXT);
    EXPECT_GE(ErrorLines.front(), 2);
    EXPECT_LE(ErrorLines.front(), 3);
    EXPECT_FALSE(H->StopFlag);
    EXPECT_GT(Counter, 3 * static_cast<int>(SCRIPT_YIELD_INTERVAL) / 4);
    EXPECT_FALSE(H->AbortFlag) << "the stop ends with the call";
    // The next call runs as before.
    ScriptInterp::ClearError(H);
    U64 R = 0;
    EXPECT_EQ(RunEx("Five", {}, &R), 0);
    EXPECT_EQ(R, 5u);
    // A stop in a nested call ends the outer one too.
    ASSERT_EQ(ScriptInterp::RegisterNative(H, "__api__ int Nested (void);", Nested), 0);
    s_Yields = 0;
    Errors.clear();
    H->StepLimit = 100 * SCRIPT_YIELD_INTERVAL;
    EXPECT_EQ(Run("Outer"), -1);
    EXPECT_EQ(Errors, std::vector<std::string>(2, SCRIPT_STOPPED_TEXT));
    EXPECT_TRUE(Logged.empty());
    EXPECT_FALSE(H->AbortFlag);
}

TEST_F(Stmt, LinesAreCountedAlsoInComments) {
    ASSERT_EQ(Load("void F (void) {\n/* one\ntwo */\n// three\n  int a;\n  a = ;\n}\n"), 0);
    EXPECT_EQ(Run("F"), -1);
    EXPECT_EQ(FirstError(), "expected a value or an identifier.");
    EXPECT_EQ(ErrorLines.front(), 6);
}

} // namespace
