#pragma once

#include <gtest/gtest.h>
#include <pthread.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <string>

#include "evaluator/Kalvos.h"
#include "support/KalvosVars.h"

// Expects `statement` to throw a JException raised by `method` with exactly `message`.
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

inline JException CatchRaise(const std::function<void()>& action) {
    try {
        action();
    } catch (const JException& raised) {
        return raised;
    }
    ADD_FAILURE() << "no JException";
    return JException("", 0, "", "", "", "");
}

inline std::string Repeat(const std::string& piece, std::size_t times) {
    std::string text;
    text.reserve(piece.size() * times);
    for (std::size_t i = 0; i < times; ++i) text += piece;
    return text;
}

// `levels` times `open`, then `inner`, then `levels` times `close`.
inline std::string Nest(const std::string& open, std::size_t levels, const std::string& inner,
                        const std::string& close) {
    return Repeat(open, levels) + inner + Repeat(close, levels);
}

// The bit pattern of a double, so that -0.0 and the last bit count.
inline std::uint64_t Bits(double value) {
    std::uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
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
