#pragma once

#include "script/Interp.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

/// An interpreter on a block of its own, with a few natives that record what the script does:
/// Log (text), Note (value), Count (), Sum0 ... Sum9 (their arguments added up), Ret (its argument) and
/// TailData () (whether the newest local has data; recorded in TailData).
class InterpFixture : public ::testing::Test {
protected:
    void SetUp() override;

    /// Creates the interpreter over Text, registers the natives and scans the functions. 0 or -1.
    int Load(const std::string& Text);
    /// Runs a function without arguments: CallFunction's result.
    int Run(const char* Name);
    /// Runs a function with arguments; the function's return value in Result.
    int RunEx(const char* Name, std::vector<U64> Args, U64* Result);
    /// Loads "__int64 F (void) { Body }" and runs it; the return value, or ~0 after an error.
    U64 Value(const std::string& Body);
    /// Loads a function returning Expression.
    U64 Eval(const std::string& Expression) { return Value("return " + Expression + ";"); }

    /// The first error and its line, and all errors reported.
    std::string FirstError() const { return Errors.empty() ? std::string() : Errors.front(); }

public:
    std::unique_ptr<U8[]> m_Block;
    std::string m_Text;
    CScriptHeap* H = nullptr;

    static std::vector<std::string> Logged;
    static std::vector<U64> Notes;
    static std::vector<std::string> Errors;
    static std::vector<int> ErrorLines;
    static int Counter;
    static std::vector<bool> TailData;
    static CScriptHeap* Current;
    static std::vector<std::vector<U64>> NativeCalls;
};
