// Texts written to hurt: huge, deeply nested, endlessly expanding or full of bytes no
// expression holds. Each ends in a value or a JException, and the tests say which; the
// benchmarks measure their time and memory.
#include <string>

#include "TestSupport.h"

using namespace std::string_literals;

constexpr std::size_t kMiB = std::size_t{1} << 20;

// The messages hold the whole text, a mebibyte of it in the first.
TEST(HostileInput, HugeAndDeepTexts) {
    Kalvos k;
    const std::string open(kMiB, '('), ones = Repeat("1+", kMiB / 2);
    EXPECT_RAISES(k.ComputeExpr(open, "!"), "ComputeExpr",
                  "Parenthesis in expression [" + open + "] are wrong.!");
    EXPECT_RAISES(k.ComputeExpr(ones, "!"), "ComputExpr",
                  "Evaluating [" + ones + "]: This expression has too many parts.!");
    EXPECT_RAISES(k.ComputeExpr(Nest("(", 1000000, "1", ")"), "!"), "ComputExpr",
                  "Evaluating [" + Nest("(", 1000000 - Kalvos::kMaxNesting - 1, "1", ")") +
                      "]: Expression nesting is too deep.!");
    EXPECT_RAISES(k.ComputeExpr("x" + std::string(1000000, '[')), "LookforEndBrackets",
                  "Evaluating [" + std::string(1000000, '[') + "]: End of brackets is missing");
    const std::string digits = "1" + std::string(99999, '0');  // beyond every double
    EXPECT_RAISES(k.ComputeExpr("2*" + digits), "ComputExpr",
                  "Evaluating [2*" + digits + "]: Number at position 2 is invalid.");
    EXPECT_EQ(k.ComputeExpr(std::string(99999, '0') + "1"), 1);
    EXPECT_EQ(k.ComputeExpr("1." + std::string(99998, '9')), 2);
}

// Endless and runaway expansions are the string expression's own tests; these are wide.
TEST(HostileInput, WideExpansions) {
    Kalvos k;
    k.GetVars().SetVarStr("t", "x");
    EXPECT_EQ(k.ComputeExprStr(Repeat("[t]", 100000)), std::string(100000, 'x'));
    EXPECT_EQ(k.ComputeExprStr(std::string(100000, '[') + "t]"), std::string(99999, '[') + "x");
}

TEST(HostileInput, BytesNoExpressionHolds) {
    Kalvos k;
    for (int byte = 0x80; byte <= 0xFF; ++byte) {
        const std::string text = "1+"s + static_cast<char>(byte) + "b";
        EXPECT_RAISES(k.ComputeExpr(text), "ComputExpr",
                      "Evaluating [" + text + "]: The expression at position 2 is invalid.");
    }
    // A message is formatted as a C string, so it shows the text up to a NUL.
    EXPECT_RAISES(k.ComputeExprBool("1+\0"s), "ComputExpr",
                  "Evaluating [1+]: The expression at position 2 is invalid.");
    EXPECT_EQ(k.GetExprText(), "1+\0"s);
    // In a string expression every byte is an ordinary character, in a marker's name too.
    k.GetVars().SetVarStr("\xC3\xA9t\xC3\xA9\0"s, "summer");
    EXPECT_EQ(k.ComputeExprStr("<\0\x80>[\xC3\xA9t\xC3\xA9\0]"s), "<\0\x80>summer"s);
}
