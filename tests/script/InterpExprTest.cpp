// Expressions: the operator table, precedence climbing to the right, values and their widths.

#include "InterpFixture.h"

#include <limits>

namespace {

using Expr = InterpFixture;

TEST_F(Expr, EqualOperatorsGroupToTheRight) {
    EXPECT_EQ(Eval("10 - 2 - 3"), 11u);
    EXPECT_EQ(Eval("8 / 2 * 2"), 2u);
    EXPECT_EQ(Eval("2 * 8 / 2"), 8u);
    EXPECT_EQ(Eval("10 - 2 + 3"), 5u); // 10 - (2 + 3)
    EXPECT_EQ(Eval("10 + 2 - 3"), 9u);
    EXPECT_EQ(Eval("2 + 3 * 4"), 14u);
    EXPECT_EQ(Eval("2 * 3 + 4"), 10u);
    EXPECT_EQ(Eval("(10 - 2) - 3"), 5u);
}

TEST_F(Expr, EveryBinaryOperator) {
    EXPECT_EQ(Eval("6 * 7"), 42u);
    EXPECT_EQ(static_cast<I64>(Eval("(0 - 7) / 2")), -3);
    EXPECT_EQ(Eval("1 << 4"), 16u);
    EXPECT_EQ(Eval("1 << 65"), 2u); // the low 6 bits of the count
    EXPECT_EQ(static_cast<I64>(Eval("(0 - 8) >> 1")), -4);
    EXPECT_EQ(Eval("3 < 4"), 1u);
    EXPECT_EQ(Eval("4 <= 4"), 1u);
    EXPECT_EQ(Eval("3 > 4"), 0u);
    EXPECT_EQ(Eval("4 >= 5"), 0u);
    EXPECT_EQ(Eval("4 == 4"), 1u);
    EXPECT_EQ(Eval("4 != 4"), 0u);
    EXPECT_EQ(Eval("12 & 10"), 8u);
    EXPECT_EQ(Eval("12 ^ 10"), 6u);
    EXPECT_EQ(Eval("12 | 10"), 14u);
    EXPECT_EQ(Eval("2 && 3"), 1u);
    EXPECT_EQ(Eval("0 || 0"), 0u);
    EXPECT_EQ(Eval("0 || 5"), 1u);
    // Compares are signed.
    EXPECT_EQ(Eval("(0 - 1) < 0"), 1u);
    EXPECT_EQ(Eval("0xFFFFFFFFFFFFFFFF < 0"), 1u);
}

TEST_F(Expr, LongestOperatorMatchesFirst) {
    EXPECT_EQ(Eval("1<=1"), 1u);
    EXPECT_EQ(Eval("2<<1"), 4u);
    EXPECT_EQ(Eval("8>>1"), 4u);
    EXPECT_EQ(Eval("1&&1"), 1u);
    EXPECT_EQ(Eval("6&3"), 2u);
    // "<" binds less than "<<": 1 < (1 << 2).
    EXPECT_EQ(Eval("1 < 1 << 2"), 1u);
}

TEST_F(Expr, PrefixOperatorsApplyToThePrimary) {
    EXPECT_EQ(static_cast<I64>(Eval("-5")), -5);
    EXPECT_EQ(Eval("+5"), 5u);
    EXPECT_EQ(Eval("!0"), 1u);
    EXPECT_EQ(Eval("!7"), 0u);
    EXPECT_EQ(Eval("~0"), ~U64(0));
    EXPECT_EQ(Eval("++5"), 6u);
    EXPECT_EQ(Eval("--5"), 4u);
    EXPECT_EQ(static_cast<I64>(Eval("-2 * 3")), -6);
    EXPECT_EQ(Eval("1 - -1"), 2u);
}

TEST_F(Expr, OnlyOnePrefixOperator) {
    EXPECT_EQ(Eval("!!1"), ~U64(0));
    EXPECT_EQ(FirstError(), "expected a value or an identifier.");
}

TEST_F(Expr, IncrementChangesOnlyTheValue) {
    EXPECT_EQ(Value("int a; __int64 b; a = 5; b = ++a; return a * 100 + b;"), 506u);
}

TEST_F(Expr, NumbersAreDecimalOrLowerCaseHex) {
    EXPECT_EQ(Eval("0x1f"), 31u);
    EXPECT_EQ(Eval("0xAbC"), 0xABCu);
    EXPECT_EQ(Eval("007"), 7u);
    // Overflow is not checked.
    EXPECT_EQ(Eval("18446744073709551617"), 1u);
}

TEST_F(Expr, UpperCaseXIsNoNumber) {
    // "0X10": the 0 is read and X10 stands where the ";" belongs.
    EXPECT_EQ(Value("__int64 a; a = 0X10; return a;"), ~U64(0));
    EXPECT_EQ(FirstError(), "Expected a ';'");
}

TEST_F(Expr, VariablesReadZeroExtended) {
    EXPECT_EQ(Value("int a; a = 0 - 1; return a;"), 4294967295u);
    EXPECT_EQ(Value("char a; a = 0 - 1; return a;"), 255u);
    EXPECT_EQ(Value("__int64 a; a = 0 - 1; return a;"), ~U64(0));
}

TEST_F(Expr, ConstantsAreSignedValues) {
    EXPECT_EQ(Eval("SEVEN * 2"), 14u);
    EXPECT_EQ(Eval("MINUS_ONE"), ~U64(0));
    EXPECT_EQ(Eval("MINUS_ONE < 0"), 1u);
}

TEST_F(Expr, BothSidesOfLogicalOperatorsAreEvaluated) {
    ASSERT_EQ(Load("void F (void) { int a; a = 0; if (a && Count()) { Log(\"no\"); } if (1 || Count()) { "
                   "Log(\"yes\"); } }"),
              0);
    ASSERT_EQ(Run("F"), 0);
    EXPECT_EQ(Counter, 2);
    EXPECT_EQ(Logged, std::vector<std::string>{"yes"});
}

TEST_F(Expr, StringLiteralIsNoOperand) {
    EXPECT_EQ(Eval("\"abc\" + 1"), ~U64(0));
    EXPECT_EQ(FirstError(), "expected a base type.");
    Errors.clear();
    EXPECT_EQ(Eval("-\"abc\""), ~U64(0));
    EXPECT_EQ(FirstError(), "expected a base type.");
}

TEST_F(Expr, PrimaryErrors) {
    EXPECT_EQ(Eval("nothing"), ~U64(0));
    EXPECT_EQ(FirstError(), "unknown identifier.");
    Errors.clear();
    EXPECT_EQ(Eval("int"), ~U64(0));
    EXPECT_EQ(FirstError(), "syntax error. Unexpected type");
    Errors.clear();
    EXPECT_EQ(Value("return;"), ~U64(0));
    EXPECT_EQ(FirstError(), "expected a value or an identifier.");
    Errors.clear();
    EXPECT_EQ(Eval("(1 + 2"), ~U64(0));
    EXPECT_EQ(FirstError(), "Expected a ')'");
}

TEST_F(Expr, DivisionByZeroFailsTheCall) {
    EXPECT_EQ(Eval("1 / 0"), ~U64(0));
    EXPECT_EQ(FirstError(), "division by zero.");
    Errors.clear();
    EXPECT_EQ(Value("__int64 a; a = 5; a /= 0; return a;"), ~U64(0));
    EXPECT_EQ(FirstError(), "division by zero.");
    Errors.clear();
    EXPECT_EQ(Eval("(1 << 63) / (0 - 1)"), ~U64(0));
    EXPECT_EQ(FirstError(), "division overflow.");
}

TEST_F(Expr, WalkedDivisionByZeroIsNoError) {
    // The end of a loop walks its body with the values that ended it.
    EXPECT_EQ(Value("__int64 n; __int64 x; n = 3; while (n != 0) { x = 100 / n; n = n - 1; } "
                    "if (0) { x = 1 / 0; } return x;"),
              100u);
    EXPECT_TRUE(Errors.empty());
}

TEST_F(Expr, ComparisonsChain) {
    EXPECT_EQ(Eval("1 < 2 == 1"), 1u);    // (1 < 2) == 1
    EXPECT_EQ(Eval("3 == 3 < 4"), 0u);    // 3 == (3 < 4)
    EXPECT_EQ(Eval("1 | 2 ^ 3 & 4"), 3u); // 1 | (2 ^ (3 & 4))
}

} // namespace
