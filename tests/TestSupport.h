#pragma once

#include <gtest/gtest.h>

#include <string>

#include "evaluator/Kalvos.h"
#include "support/JObject.h"
#include "support/KalvosVars.h"

// Expects `statement` to throw a JException raised by `method` with exactly `message`.
#define EXPECT_RAISES(statement, method, message)                                    \
    do {                                                                             \
        try {                                                                        \
            statement;                                                               \
            ADD_FAILURE() << "no JException from " #statement;                       \
        } catch (const JException& raised) {                                         \
            EXPECT_EQ(raised.GetMethod(), method) << "from " #statement;             \
            EXPECT_EQ(raised.GetText(), message) << "from " #statement;              \
        }                                                                            \
    } while (false)

// Opens the evaluator's protected operations to the tests.
class OpenKalvos : public Kalvos {
public:
    using Kalvos::CalcRoundPos;
    using Kalvos::CalcWaveLength;
    using Kalvos::CalcWaveLengthSimple;
    using Kalvos::CheckNumberValue;
    using Kalvos::ComputExpr;
    using Kalvos::ComputExprStr;
    using Kalvos::ComputFunc;
    using Kalvos::ErrorText;
    using Kalvos::ExprText;
    using Kalvos::GetOperCode;
    using Kalvos::LookforEndBrackets;
    using Kalvos::LookforEndParentesis;
    using Kalvos::Random;
    using Kalvos::RandomInit;
    using Kalvos::RandomInt;
    using Kalvos::RandGen;
    using Kalvos::ReadName;
    using Kalvos::ReadNumber;
    using Kalvos::ReadOperator;
    using Kalvos::RemoveElement;
    using Kalvos::StElement;
    using Kalvos::TpOper;
    using Kalvos::OP_None;
    using Kalvos::OP_Not;
    using Kalvos::OP_Mul;
    using Kalvos::OP_Div;
    using Kalvos::OP_Add;
    using Kalvos::OP_Sub;
    using Kalvos::OP_Eq;
    using Kalvos::OP_Neq;
    using Kalvos::OP_Lt;
    using Kalvos::OP_Gt;
    using Kalvos::OP_Le;
    using Kalvos::OP_Ge;
    using Kalvos::OP_And;
    using Kalvos::OP_Or;
    using Kalvos::Vars;
    using JObject::ClassName;
    using JObject::Destroying;
};
