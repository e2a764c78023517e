// Calls: natives with 0 to 8 arguments, script functions with parameters, recursion and nesting.

#include "InterpFixture.h"

namespace {

using Call = InterpFixture;

TEST_F(Call, NativesTakeZeroToEightArguments) {
    ASSERT_EQ(Load("__int64 F (void) { return Sum0() + Sum1(1) + Sum2(1, 2) + Sum3(1, 2, 3) + "
                   "Sum4(1, 2, 3, 4) + Sum5(1, 2, 3, 4, 5) + Sum6(1, 2, 3, 4, 5, 6) + "
                   "Sum7(1, 2, 3, 4, 5, 6, 7) + Sum8(1, 2, 3, 4, 5, 6, 7, 8); }"),
              0);
    U64 R = 0;
    ASSERT_EQ(RunEx("F", {}, &R), 0);
    EXPECT_EQ(R, 120u);
    ASSERT_EQ(NativeCalls.size(), 9u);
    for (size_t n = 0; n < NativeCalls.size(); ++n) {
        EXPECT_EQ(NativeCalls[n].size(), n) << "Sum" << n << " gets exactly its arguments";
    }
    EXPECT_EQ(NativeCalls[8], (std::vector<U64>{1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST_F(Call, NativeWithMoreThanEightIsNotCalled) {
    EXPECT_EQ(Value("return Sum9(1, 2, 3, 4, 5, 6, 7, 8, 9) + 5;"), 5u);
    EXPECT_TRUE(NativeCalls.empty());
}

TEST_F(Call, NativeResultIsASigned32BitNumber) {
    EXPECT_EQ(Eval("Ret(0 - 1)"), ~U64(0));
    EXPECT_EQ(Eval("Ret(0x1FFFFFFFF)"), ~U64(0));
    EXPECT_EQ(Eval("Ret(0x7FFFFFFF)"), 0x7FFFFFFFu);
}

TEST_F(Call, StringLiteralPassesItsCharacters) {
    ASSERT_EQ(Load("void F (void) { Log(\"tab\\there\"); Log(\"a\\\\b\\n\"); Log(\"\"); Log(\"x\\0y\"); }"),
              0);
    ASSERT_EQ(Run("F"), 0);
    EXPECT_EQ(Logged, (std::vector<std::string>{"tab\there", "a\\b\n", "", "x"}));
}

TEST_F(Call, ArgumentCountFollowsTheDeclaration) {
    // Too many: the extra text stands where ")" belongs.
    EXPECT_EQ(Value("Sum1(1, 2); return 0;"), ~U64(0));
    EXPECT_EQ(FirstError(), "Expected a ')'");
}

TEST_F(Call, FailedArgumentIsReportedAndTheCallSkipped) {
    ASSERT_EQ(Load("__int64 F (void) { Note(nothing); Sum2(5); Note(3); return 4; }"), 0);
    U64 R = 0;
    ASSERT_EQ(RunEx("F", {}, &R), 0);
    EXPECT_EQ(R, 4u);
    EXPECT_EQ(Notes, std::vector<U64>{3});
    EXPECT_TRUE(NativeCalls.empty());
    EXPECT_EQ(Errors,
              (std::vector<std::string>{"unknown identifier.", "expected a value or an identifier."}));
}

TEST_F(Call, AnArgumentsErrorIsReportedAsTheFirstCauseAtItsLine) {
    // Parsing goes on from inside the broken literal, where ")" can't stand: the last report, the one the
    // host keeps, names the literal and not the missing ")".
    const struct {
        const char* Body;
        const char* Cause;
        int Line;
    } Cases[] = {
        {"Log(\"a\\qb\");", "unexpected escape character.", 2},
        {"Log(\"two\nlines\");", "illegal character in string", 2},
        {"Note(1);\n  Sum2(1, Sum1(\"x\\q\"));", "unexpected escape character.", 3},
    };
    for (const auto& C : Cases) {
        Errors.clear();
        ErrorLines.clear();
        ASSERT_EQ(Load(std::string("void F (void) {\n  ") + C.Body + "\n}\n"), 0);
        EXPECT_EQ(Run("F"), -1) << C.Body;
        ASSERT_FALSE(Errors.empty()) << C.Body;
        EXPECT_EQ(Errors.back(), C.Cause) << C.Body;
        EXPECT_EQ(ErrorLines.back(), C.Line) << C.Body;
        EXPECT_STREQ(H->ErrorText, C.Cause) << C.Body;
    }
    // A failed argument in a call that closes properly leaves the first error and parsing goes on.
    Errors.clear();
    ASSERT_EQ(Load("__int64 F (void) { Sum2(nothing, alsonothing); return 4; }"), 0);
    U64 R = 0;
    EXPECT_EQ(RunEx("F", {}, &R), 0);
    EXPECT_EQ(R, 4u);
    EXPECT_EQ(Errors.back(), "unknown identifier.");
    EXPECT_TRUE(NativeCalls.empty());
}

TEST_F(Call, ScriptFunctionsWithParametersAndResults) {
    ASSERT_EQ(Load("__int64 Add (__int64 a, __int64 b) { return a + b; }\n"
                   "int Twice (int x) { return Add(x, x); }\n"
                   "__int64 F (void) { return Twice(Add(1, 2)) + Add(SEVEN, 0); }"),
              0);
    U64 R = 0;
    ASSERT_EQ(RunEx("F", {}, &R), 0);
    EXPECT_EQ(R, 13u);
    ASSERT_EQ(RunEx("Add", {40, 2}, &R), 0);
    EXPECT_EQ(R, 42u);
}

TEST_F(Call, ParameterCanBeAssignedAndTheCallerDoesNotSeeIt) {
    ASSERT_EQ(Load("__int64 G (char c, __int64 v) { c = 300; v += 1; Note(c); return v; }\n"
                   "__int64 F (void) { __int64 v; v = 10; G(1, v); return v; }"),
              0);
    U64 R = 0;
    ASSERT_EQ(RunEx("F", {}, &R), 0);
    EXPECT_EQ(R, 10u);
    EXPECT_EQ(Notes, std::vector<U64>{44});
}

TEST_F(Call, ParametersReadAsTheirType) {
    ASSERT_EQ(Load("__int64 F (int a) { return a; }"), 0);
    U64 R = 0;
    ASSERT_EQ(RunEx("F", {~U64(0)}, &R), 0);
    EXPECT_EQ(R, 4294967295u);
}

TEST_F(Call, CallsInsideAWalkAreNotMade) {
    ASSERT_EQ(Load("void F (void) { if (0) { Count(); Log(\"no\"); } while (Count() < 3) { } }"), 0);
    ASSERT_EQ(Run("F"), 0);
    EXPECT_EQ(Counter, 3);
    EXPECT_TRUE(Logged.empty());
}

TEST_F(Call, RecursionWorks) {
    ASSERT_EQ(Load("__int64 Fact (__int64 n) { if (n <= 1) return 1; return n * Fact(n - 1); }"), 0);
    U64 R = 0;
    ASSERT_EQ(RunEx("Fact", {20}, &R), 0);
    EXPECT_EQ(R, 2432902008176640000u);
}

TEST_F(Call, EndlessRecursionEndsAsAnError) {
    // Without locals a call takes no room in the block: the nesting limit ends it.
    ASSERT_EQ(Load("void F (void) { F(); }"), 0);
    EXPECT_EQ(Run("F"), -1);
    EXPECT_EQ(FirstError(), "maximum nesting level reached.");
    EXPECT_EQ(H->Nesting, 0);
    EXPECT_EQ(H->High, H->BlockEnd) << "every local of the failed calls is freed";
}

TEST_F(Call, RecursionWithLocalsEndsWhenTheHighEndIsUsedUp) {
    ASSERT_EQ(Load("void F (void) { int big[20000]; big[0] = 1; F(); }"), 0);
    EXPECT_EQ(Run("F"), -1);
    EXPECT_EQ(FirstError(), "out of memory.");
    EXPECT_EQ(H->High, H->BlockEnd);
}

TEST_F(Call, DeepExpressionsAndBlocksHitTheNestingLimit) {
    EXPECT_EQ(Eval(std::string(5000, '(') + "1" + std::string(5000, ')')), ~U64(0));
    EXPECT_EQ(FirstError(), "maximum nesting level reached.");
    Errors.clear();
    EXPECT_EQ(Value(std::string(5000, '{') + std::string(5000, '}') + " return 1;"), ~U64(0));
    EXPECT_EQ(FirstError(), "maximum nesting level reached.");
    Errors.clear();
    // Well inside the limit everything works.
    EXPECT_EQ(Eval(std::string(300, '(') + "1" + std::string(300, ')')), 1u);
}

TEST_F(Call, CallFunctionResults) {
    ASSERT_EQ(Load("void F (void) { nothing = 1; }"), 0);
    EXPECT_EQ(Run("Missing"), -2);
    EXPECT_EQ(Run("Log"), -2) << "natives are not run by name";
    EXPECT_EQ(ScriptInterp::CallFunctionEx(H, "F", 1, nullptr, nullptr), -1);
    EXPECT_EQ(Run("F"), -1);
    EXPECT_TRUE(H->ErrorFlag) << "CallFunction leaves the error for the host";
    EXPECT_EQ(Run("F"), -1);
    EXPECT_EQ(Errors.size(), 1u) << "nothing runs while the error stands";
    ScriptInterp::ClearError(H);
    U64 R = 0;
    EXPECT_EQ(RunEx("F", {}, &R), -1);
    EXPECT_FALSE(H->ErrorFlag) << "CallFunctionEx clears it, so the script survives";
    EXPECT_EQ(Errors.size(), 2u);
}

TEST_F(Call, EvaluateTextForTheHost) {
    ASSERT_EQ(Load("__int64 Base (void) { return 0x100; }"), 0);
    U64 R = 0;
    EXPECT_EQ(ScriptInterp::EvaluateText(H, "Base() + SEVEN * 2", &R), 0);
    EXPECT_EQ(R, 0x10Eu);
    EXPECT_EQ(ScriptInterp::EvaluateText(H, "1 2", &R), -1);
    EXPECT_STREQ(H->ErrorText, "syntax error.");
    EXPECT_EQ(ScriptInterp::EvaluateText(H, "nothing", &R), -1);
    EXPECT_STREQ(H->ErrorText, "unknown identifier.");
    EXPECT_TRUE(Errors.empty()) << "the host's callback is not called";
    EXPECT_FALSE(H->ErrorFlag);
}

} // namespace
