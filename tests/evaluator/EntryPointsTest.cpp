#include <cmath>

#include "TestSupport.h"

TEST(EntryPoints, ComputeExprPreparesTheText) {
    Kalvos k;
    EXPECT_EQ(k.ComputeExpr("# 1 2 + 3"), 15);  // blanks and one leading "#" are removed
    const std::pair<const char*, const char*> cases[] = {
        {" # ", "ComputeExpr: Expression is empty."},
        {"##1", "ComputExpr: Evaluating [#1]: The expression at position 0 is invalid."},
        {"(1 + 2", "ComputeExpr: Parenthesis in expression [(1+2] are wrong."},
        {"#())(", "ComputeExpr: Parenthesis in expression [())(] are wrong."},
        {"1 +\t2", "ComputExpr: Evaluating [1+\t2]: The expression at position 2 is invalid."}};
    for (const auto& [text, failure] : cases) {
        const std::string expr = text;  // a lambda may not capture a structured binding
        const JException raised = CatchRaise([&] { k.ComputeExpr(expr, " at line 3"); });
        EXPECT_EQ(raised.GetMethod() + ": " + raised.GetText(),
                  failure + std::string(" at line 3"));
        EXPECT_EQ(k.GetExprText() + k.GetErrorText(), text + std::string(" at line 3"));
    }
}

TEST(EntryPoints, ComputeExprBoolAnswersLiteralsWithoutTouchingTheTexts) {
    Kalvos k;
    k.GetVars().SetVarNum("n", std::nan(""));
    EXPECT_EQ(k.ComputeExprStr("kept", "ctx"), "kept");
    const std::pair<const char*, bool> literals[] = {
        {"", false},       {"#", false}, {"0", false},   {"FALSE", false},
        {"#False", false}, {"1", true},  {"true", true}, {"#TRUE", true}};
    for (const auto& [text, value] : literals) {
        EXPECT_EQ(k.ComputeExprBool(text, "other"), value) << text;
        EXPECT_EQ(k.GetExprText() + k.GetErrorText(), "keptctx") << text;
    }
    const std::pair<const char*, bool> evaluated[] = {
        {"-1", true}, {"1-1", false}, {"0.0", false}, {" true", true}, {"# 0", false}, {"n", true}};
    for (const auto& [text, value] : evaluated) {
        EXPECT_EQ(k.ComputeExprBool(text, "e"), value) << text;
        EXPECT_EQ(k.GetExprText() + k.GetErrorText(), text + std::string("e"));
    }
    EXPECT_RAISES(k.ComputeExprBool(" ", "!"), "ComputeExpr", "Expression is empty.!");
}
