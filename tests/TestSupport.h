#pragma once

#include <gtest/gtest.h>
#include <pthread.h>

#include <cstdint>
#include <functional>
#include <string>
#include <utility>

#include "Grammar.h"
#include "Reference.h"
#include "evaluator/Kalvos.h"
#include "support/Functions.h"
#include "support/KalvosVars.h"

// The one check of a failure: `statement` throws a JException raised by `method` with exactly
// `message`.
#define EXPECT_RAISES(statement, method, message)                        \
    do {                                                                 \
        try {                                                            \
            statement;                                                   \
            ADD_FAILURE() << "no JException from " #statement;           \
        } catch (const JException& raised) {                             \
            EXPECT_EQ(raised.GetMethod(), method) << "from " #statement; \
            EXPECT_EQ(raised.GetText(), message) << "from " #statement;  \
        }                                                                \
    } while (false)

using texts::Nest;
using texts::Repeat;

// The bit pattern of a double, so that -0.0 and the last bit count.
using diff::BitsOf;

// How printf writes the NaN an invalid operation gives on this machine ("-nan" on x86-64):
// the library's functions give that one too.
inline std::string InvalidNan() {
    volatile double zero = 0.0;
    return fun::DoubleStr(zero / zero, "%g");
}

// Runs `action` on a thread of its own with the given stack size, as a host thread might.
inline void RunWithStack(std::size_t stackBytes, const std::function<void()>& action) {
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    ASSERT_EQ(pthread_attr_setstacksize(&attr, stackBytes), 0);
    pthread_t thread;
    const auto body = [](void* arg) -> void* {
        (*static_cast<const std::function<void()>*>(arg))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attr, body, const_cast<std::function<void()>*>(&action)), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attr);
}

// Opens the evaluator's protected operations to the tests.
class OpenKalvos : public Kalvos {
public:
    using Kalvos::CalcWaveLengthSimple;
    using Kalvos::ComputExpr;
    using Kalvos::ComputExprStr;
    using Kalvos::ErrorText;
    using Kalvos::GetOperCode;
    using Kalvos::LookforEndBrackets;
    using Kalvos::LookforEndParentesis;
    using Kalvos::ReadName;
    using Kalvos::ReadNumber;
    using Kalvos::ReadOperator;
    using Kalvos::RemoveElement;
    using Kalvos::StElement;
    using Kalvos::TpOper;
};

// An object's ExprText and ErrorText, compared as a pair so that a failure shows which differs.
using TextPair = std::pair<std::string, std::string>;

// A fresh evaluator over the standard store; each test file names it for its suite.
class WithStore : public ::testing::Test {
protected:
    WithStore() { reference::FillStore(k.GetVars()); }

    TextPair Texts() const { return {k.GetExprText(), k.GetErrorText()}; }

    OpenKalvos k;
};
