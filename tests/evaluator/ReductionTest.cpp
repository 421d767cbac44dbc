#include <random>

#include "TestSupport.h"

using Reduction = WithStore;

// Texts of digits and operators alone are held to the rule below; these add what it cannot
// write. Each message names the text of the call that found the failure, the innermost one.
TEST_F(Reduction, ValuesAndMessages) {
    const std::pair<const char*, double> values[] = {
        {"-(2+1)", -3},   {"3 4", 34},        {"-a*-a", 25}, {"!a==0", 1}, {"nan==nan", 0},
        {"nan!=nan", 1},  {"nan@@1", 1},      {"tRuE+1", 2}, {"False", 0}, {"x[1+1]", 20},
        {"x[-0.5]", 100}, {"x[x[0]/50]", 20}, {"1.5*2", 3},  {"True", 7}};
    for (const auto& [text, value] : values) EXPECT_EQ(k.ComputeExpr(text), value) << text;
    EXPECT_EQ(BitsOf(k.ComputeExpr("0*-1")), BitsOf(-0.0));
    const std::pair<const char*, const char*> failures[] = {
        {"()", "[]: Expression is invalid."},
        {"2*(1+*3)", "[1+*3]: Operator at position 3 is invalid."},
        {"2(3)", "[2(3)]: Expression is invalid."},
        {"(1+2e+400)", "[1+2e+400]: Number at position 2 is invalid."},
        {"1.5 .2", "[1.5.2]: The expression at position 3 is invalid."},
        {"%s%d", "[%s%d]: The expression at position 0 is invalid."},
        {"0@@(1/0)", "[1/0]: Division by zero."},
        {"1+(2*abc)", "[2*abc]: The variable 'abc' does not exist."},
        {"true[1]", "[true[1]]: The variable 'true1' does not exist."},
        {"1+x[-1]", "[1+x[-1]]: The result of brackets [-1] is less than zero."},
        {"x[nan]", "[x[nan]]: The result of brackets [nan] is less than zero."},
        {"x[2147483648]",
         "[x[2147483648]]: The result of brackets [2147483648] is less than zero."},
        {"txt", "[txt]: The variable 'txt' is not a numeric variable."}};
    for (const auto& [text, message] : failures)
        EXPECT_RAISES(k.ComputeExpr(text, "!"), "ComputExpr",
                      "Evaluating " + std::string(message) + "!");
    EXPECT_RAISES(k.ComputeExpr("x[1", "!"), "LookforEndBrackets",
                  "Evaluating [[1]: End of brackets is missing!");
    EXPECT_RAISES(k.ComputExpr("a(1"), "LookforEndParentesis",
                  "Evaluating [(1]: End of parentheses is missing!");
    k.GetVars().SetVarNum("true", 5);  // a variable hides a keyword of the same spelling
    EXPECT_EQ(k.ComputeExpr("true*TRUE"), 5);
}

// One level holds at most 100 elements; a parenthesised group is one element of its level.
// Groups, indices and parameters each open a level of nesting; the deepest allowed level must
// fit a 256 KiB thread stack, and one level more is refused before it costs any stack.
TEST_F(Reduction, ElementAndNestingLimits) {
    k.GetVars().SetVarNum("x0", 0);
    const std::string ones = Nest("", 49, "1", "+1");
    EXPECT_EQ(k.ComputeExpr("-" + ones), 48);
    EXPECT_EQ(k.ComputeExpr(Nest("", 49, "1", "+(-" + ones + ")")), 49 * 48 + 1);
    EXPECT_RAISES(k.ComputeExpr(ones + "+"), "ComputExpr",
                  "Evaluating [" + ones + "+]: Expression is invalid.");
    EXPECT_RAISES(k.ComputeExpr("2*(" + ones + "+1)"), "ComputExpr",
                  "Evaluating [" + ones + "+1]: This expression has too many parts.");
    const std::size_t deepest = Kalvos::kMaxNesting;
    RunWithStack(256 * 1024, [&] {
        for (const auto& [open, close] : {std::pair("(", ")"), {"x[", "]"}, {"abs(", ")"}}) {
            EXPECT_EQ(k.ComputeExpr(Nest(open, deepest, "0", close)), 0) << open;
            EXPECT_RAISES(k.ComputeExpr(Nest(open, deepest + 1, "7", close)), "ComputExpr",
                          "Evaluating [7]: Expression nesting is too deep.");
        }
        EXPECT_EQ(k.ComputeExpr(Nest("-(1+x[max(0,", deepest / 3, "0", ")])")), -1);
    });
}

// Each number of the text becomes a variable that holds it: "12" is read from "v12".
std::string NumbersAsVariables(const std::string& text, KalvosVars& vars) {
    std::string named;
    for (std::size_t pos = 0; pos < text.size();) {
        const std::size_t end = std::min(text.find_first_not_of("0123456789", pos), text.size());
        if (end == pos) {
            named += text[pos++];
            continue;
        }
        const std::string digits = text.substr(pos, end - pos);
        vars.SetVarNum("v" + digits, std::stod(digits));
        named += "v" + digits;
        pos = end;
    }
    return named;
}

TEST_F(Reduction, AgreesWithTheRule) {
    std::mt19937 gen(77);
    const std::string alphabet = "01234567890123!!*/+--=<>@|";
    int evaluated = 0;
    for (int round = 0; round < 20000; ++round) {
        std::string text(1 + gen() % 12, ' ');
        for (char& c : text) c = alphabet[gen() % alphabet.size()];
        double expected = 0;
        const std::string error = reference::Reduce(text, expected);
        // Numbers are folded while compiling; the same text over variables that hold them
        // is computed by the run, and must agree, failures included.
        const std::string named = NumbersAsVariables(text, k.GetVars());
        if (error.empty()) {
            ++evaluated;
            ASSERT_EQ(BitsOf(k.ComputExpr(text)), BitsOf(expected)) << text;
            ASSERT_EQ(BitsOf(k.ComputExpr(named)), BitsOf(expected)) << named;
        } else {
            EXPECT_RAISES(k.ComputExpr(text), "ComputExpr", "Evaluating [" + text + "]: " + error);
            // A message that names a position would name another one in the longer text.
            if (error.find("position") != std::string::npos) continue;
            EXPECT_RAISES(k.ComputExpr(named), "ComputExpr",
                          "Evaluating [" + named + "]: " + error);
        }
    }
    EXPECT_GT(evaluated, 1000);
}
