#include "TestSupport.h"

using EntryPoints = WithStore;

TEST_F(EntryPoints, ComputeExprPreparesTheText) {
    EXPECT_EQ(k.ComputeExpr("# 1 2 + 3"), 15);  // blanks and one leading "#" are removed
    const struct {
        const char *Text, *Method, *Message;
    } cases[] = {
        {" # ", "ComputeExpr", "Expression is empty."},
        {"##1", "ComputExpr", "Evaluating [#1]: The expression at position 0 is invalid."},
        {"(1 + 2", "ComputeExpr", "Parenthesis in expression [(1+2] are wrong."},
        {"#())(", "ComputeExpr", "Parenthesis in expression [())(] are wrong."},
        {"1 +\t2", "ComputExpr", "Evaluating [1+\t2]: The expression at position 2 is invalid."}};
    for (const auto& c : cases) {
        EXPECT_RAISES(k.ComputeExpr(c.Text, " at line 3"), c.Method,
                      c.Message + std::string(" at line 3"));
        EXPECT_EQ(Texts(), TextPair(c.Text, " at line 3"));
    }
}

TEST_F(EntryPoints, ComputeExprBoolAnswersLiteralsWithoutTouchingTheTexts) {
    EXPECT_EQ(k.ComputeExprStr("kept", "ctx"), "kept");
    const std::pair<const char*, bool> literals[] = {
        {"", false},       {"#", false}, {"0", false},   {"FALSE", false},
        {"#False", false}, {"1", true},  {"true", true}, {"#TRUE", true}};
    for (const auto& [text, value] : literals) {
        EXPECT_EQ(k.ComputeExprBool(text, "other"), value) << text;
        EXPECT_EQ(Texts(), TextPair("kept", "ctx")) << text;
    }
    const std::pair<const char*, bool> evaluated[] = {{"-1", true},   {"1-1", false},
                                                      {"0.0", false}, {" true", true},
                                                      {"# 0", false}, {"nan", true}};
    for (const auto& [text, value] : evaluated) {
        EXPECT_EQ(k.ComputeExprBool(text, "e"), value) << text;
        EXPECT_EQ(Texts(), TextPair(text, "e"));
    }
    EXPECT_RAISES(k.ComputeExprBool(" ", "!"), "ComputeExpr", "Expression is empty.!");
}

// A derived class may write the texts it inherits; the program of the last text is found again
// only by the text it was compiled from.
TEST_F(EntryPoints, KnownTextIsTheProgramsOwnNotExprText) {
    struct Host : Kalvos {
        void SetExprText(const std::string& text) { ExprText = text; }
    } host;
    host.GetVars().SetVarNum("y", 2);
    host.GetVars().SetVarNum("x1", 7);
    for (const char* text : {"y", "y"}) EXPECT_EQ(host.ComputeExpr(text), 2);
    host.SetExprText("x1");
    EXPECT_EQ(host.ComputeExpr("x1"), 7);
    EXPECT_EQ(host.GetExprText(), "x1");
}
