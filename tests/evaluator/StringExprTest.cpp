#include <random>

#include "TestSupport.h"

using StringExpr = WithStore;

// Markers that replacements produce are replaced too; failures name the text the host gave.
TEST_F(StringExpr, ReplacesEveryMarker) {
    const std::pair<const char*, const char*> cases[] = {
        {"$[a].dat", "5.dat"}, {"[a]:[n]", "5:1.23457e+06"},
        {"[w]", "5"},          {"[[name]]", "5"},
        {"[a[]b]", "[a[]b]"},  {"x]y[", "x]y["},
        {"$$[a]", "$5"},       {"$", ""},
        {"[ a ]", "spaced"},   {"[[a]", "[5"},
        {"[[empty]]", "[]"},   {"[[empty]a]", "5"},
        {"%[a]%s", "%5%s"},    {"[open]a[close]", "5"}};
    for (const auto& [text, result] : cases) {
        EXPECT_EQ(k.ComputeExprStr(text, "ctx"), result) << text;
        EXPECT_EQ(Texts(), TextPair(text, "ctx"));
    }
    EXPECT_EQ(k.ComputExprStr("$[a]"), "$5");  // only the entry point drops the "$"
    k.GetVars().SetVarStr("z", "z");
    EXPECT_EQ(k.ComputeExprStr(std::string(10000, '[') + "z" + std::string(10000, ']')), "z");
    EXPECT_RAISES(k.ComputeExprStr("$pre [q]", "!"), "ComputExprStr",
                  "Evaluating [$pre [q]]: The variable 'q' does not exist.!");
    EXPECT_RAISES(k.ComputeExprStr("[%s%d]"), "ComputExprStr",
                  "Evaluating [[%s%d]]: The variable '%s%d' does not exist.");
}

// Self-reference, mutual reference, growth and doubling end in the replacement bound; few
// replacements of long texts end in the length bound, reached exactly at 4 MiB.
TEST_F(StringExpr, GuardsEndEndlessAndRunawayExpansion) {
    KalvosVars& vars = k.GetVars();
    vars.SetVarStr("grow", "x[grow]");
    vars.SetVarStr("d0", "x");
    vars.SetVarStr("w0", std::string(4096, 'x'));
    std::string w1, w2;
    for (int i = 0; i < 32; ++i) w1 += "[w0]", w2 += "[w1]";
    vars.SetVarStr("w1", w1);
    vars.SetVarStr("w2", w2);
    for (int i = 1; i <= 40; ++i) {  // each level doubles the text
        const std::string inner = "[d" + std::to_string(i - 1) + "]";
        vars.SetVarStr("d" + std::to_string(i), inner + inner);
    }
    for (const char* text : {"$[s]", "[u]", "[grow]", "[d40]"}) {
        EXPECT_RAISES(k.ComputeExprStr(text, "!"), "ComputExprStr",
                      "Evaluating [" + std::string(text) + "]: Too many variable replacements.!");
    }
    EXPECT_EQ(k.ComputeExprStr("[d10]"), std::string(1024, 'x'));
    EXPECT_EQ(k.ComputeExprStr("[w2]").size(), std::size_t{4} << 20);
    EXPECT_RAISES(k.ComputeExprStr("[w2]."), "ComputExprStr",
                  "Evaluating [[w2].]: The expanded text is too long.");
}

TEST_F(StringExpr, AgreesWithTheRescanningRule) {
    std::mt19937 gen(4242);
    const auto random = [&](const char* alphabet, std::size_t maxLength) {
        std::string text(gen() % (maxLength + 1), ' ');
        for (char& c : text) c = alphabet[gen() % 6];
        return text;
    };
    int compared = 0;
    for (int round = 0; round < 4000; ++round) {
        for (const char* name : {"a", "b"}) k.GetVars().SetVarStr(name, random("[]abxn", 6));
        const std::string text = random("[]ab$x", 14);
        std::string expected, missing;
        if (!reference::Expand(k.GetVars(), text, expected, missing)) continue;
        ++compared;
        if (missing.empty()) {
            ASSERT_EQ(k.ComputeExprStr(text, "."), expected) << text;
        } else {
            EXPECT_RAISES(
                k.ComputeExprStr(text, "."), "ComputExprStr",
                "Evaluating [" + text + "]: The variable '" + missing + "' does not exist..");
        }
    }
    EXPECT_GT(compared, 3500);
}
