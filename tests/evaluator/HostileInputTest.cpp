// Texts written to hurt: huge, deeply nested, endlessly expanding or full of bytes no
// expression holds. Each ends in a value or a JException, and the tests say which; the
// benchmarks measure their time and memory.
#include <string>

#include "TestSupport.h"

using namespace std::string_literals;

namespace {

constexpr std::size_t kMiB = std::size_t{1} << 20;

// The method of the failure and whether its message begins and ends as given.
void ExpectFailure(const std::function<void()>& action, const std::string& method,
                   const std::string& begin, const std::string& end) {
    const JException e = CatchRaise(action);
    EXPECT_EQ(e.GetMethod(), method);
    EXPECT_EQ(e.GetText().compare(0, begin.size(), begin), 0) << e.GetText().substr(0, 80);
    EXPECT_TRUE(e.GetText().size() >= end.size() &&
                e.GetText().compare(e.GetText().size() - end.size(), end.size(), end) == 0);
}

}  // namespace

TEST(HostileInput, HugeAndDeepTexts) {
    Kalvos k;
    ExpectFailure([&] { k.ComputeExpr(std::string(kMiB, '('), "!"); }, "ComputeExpr",
                  "Parenthesis in expression [(((", "(] are wrong.!");
    ExpectFailure([&] { k.ComputeExpr(Repeat("1+", kMiB / 2), "!"); }, "ComputExpr",
                  "Evaluating [1+1+", "]: This expression has too many parts.!");
    ExpectFailure([&] { k.ComputeExpr(Nest("(", 1000000, "1", ")"), "!"); }, "ComputExpr",
                  "Evaluating [(((", ")))]: Expression nesting is too deep.!");
    ExpectFailure([&] { k.ComputeExpr("x" + std::string(1000000, '[')); }, "LookforEndBrackets",
                  "Evaluating [[[[", "[[[]: End of brackets is missing");
    const std::string digits = "1" + std::string(99999, '0');  // beyond every double
    EXPECT_RAISES(k.ComputeExpr("2*" + digits), "ComputExpr",
                  "Evaluating [2*" + digits + "]: Number at position 2 is invalid.");
    EXPECT_EQ(k.ComputeExpr(std::string(99999, '0') + "1"), 1);
    EXPECT_EQ(k.ComputeExpr("1." + std::string(99998, '9')), 2);
}

TEST(HostileInput, EndlessAndHugeExpansions) {
    Kalvos k;
    KalvosVars& vars = k.GetVars();
    vars.SetVarStr("t", "x");
    vars.SetVarStr("u", "[v]");
    vars.SetVarStr("v", "$[u]");
    vars.SetVarStr("h0", "xxxxxxxxxx");  // h(i+1) doubles h(i): h30 would be 10 GiB
    for (int i = 1; i <= 30; ++i) {
        const std::string previous = "[h" + std::to_string(i - 1) + "]";
        vars.SetVarStr("h" + std::to_string(i), previous + previous);
    }
    EXPECT_EQ(k.ComputeExprStr(Repeat("[t]", 100000)), std::string(100000, 'x'));
    EXPECT_EQ(k.ComputeExprStr(std::string(100000, '[') + "t]"), std::string(99999, '[') + "x");
    EXPECT_RAISES(k.ComputeExprStr("$ab[u]cd", "!"), "ComputExprStr",
                  "Evaluating [$ab[u]cd]: Too many variable replacements.!");
    EXPECT_EQ(k.ComputeExprStr("[h18]").size(), std::size_t{10} << 18);
    EXPECT_RAISES(k.ComputeExprStr("[h30]"), "ComputExprStr",
                  "Evaluating [[h30]]: The expanded text is too long.");
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
