#include <map>
#include <random>

#include "TestSupport.h"

// Markers that replacements produce are replaced too; failures name the text the host gave.
TEST(StringExpr, ReplacesEveryMarker) {
    OpenKalvos k;
    const std::pair<const char*, std::string> variables[] = {
        {"b", "x"}, {"s", "[a]"}, {"t", "b"}, {"e", ""}, {" a ", "_"}, {"u", "[%s%d]"}, {"z", "z"}};
    for (const auto& [name, value] : variables) k.GetVars().SetVarStr(name, value);
    k.GetVars().SetVarNum("a", 5);
    k.GetVars().SetVarNum("n", 1234567);
    const std::pair<const char*, const char*> cases[] = {
        {"$[a].dat", "5.dat"}, {"[a]:[n]", "5:1.23457e+06"},
        {"[s]", "5"},          {"[[t]]", "x"},
        {"[a[]b]", "[a[]b]"},  {"x]y[", "x]y["},
        {"$$[a]", "$5"},       {"$", ""},
        {"[ a ]", "_"},        {"[[a]", "[5"},
        {"[[e]]", "[]"},       {"[[e]a]", "5"},
        {"%[a]%s", "%5%s"}};
    for (const auto& [text, result] : cases) {
        EXPECT_EQ(k.ComputeExprStr(text, "ctx"), result) << text;
        EXPECT_EQ(k.GetExprText() + k.GetErrorText(), text + std::string("ctx"));
    }
    EXPECT_EQ(k.ComputExprStr("$[a]"), "$5");  // only the entry point drops the "$"
    EXPECT_EQ(k.ComputeExprStr(std::string(10000, '[') + "z" + std::string(10000, ']')), "z");
    EXPECT_RAISES(k.ComputeExprStr("$pre [q]", "!"), "ComputExprStr",
                  "Evaluating [$pre [q]]: The variable 'q' does not exist.!");
    EXPECT_RAISES(k.ComputeExprStr("[u]"), "ComputExprStr",
                  "Evaluating [[u]]: The variable '%s%d' does not exist.");
}

// Self-reference, mutual reference, growth and doubling end in the replacement bound; few
// replacements of long texts end in the length bound, reached exactly at 4 MiB.
TEST(StringExpr, GuardsEndEndlessAndRunawayExpansion) {
    Kalvos k;
    KalvosVars& vars = k.GetVars();
    const std::pair<const char*, std::string> variables[] = {
        {"self", "[self]"},  {"u", "[v]"}, {"v", "[u]"},
        {"grow", "x[grow]"}, {"d0", "x"},  {"w0", std::string(4096, 'x')}};
    for (const auto& [name, value] : variables) vars.SetVarStr(name, value);
    std::string w1, w2;
    for (int i = 0; i < 32; ++i) w1 += "[w0]", w2 += "[w1]";
    vars.SetVarStr("w1", w1);
    vars.SetVarStr("w2", w2);
    for (int i = 1; i <= 40; ++i) {  // each level doubles the text
        const std::string inner = "[d" + std::to_string(i - 1) + "]";
        vars.SetVarStr("d" + std::to_string(i), inner + inner);
    }
    for (const char* text : {"$[self]", "[u]", "[grow]", "[d40]"}) {
        EXPECT_RAISES(k.ComputeExprStr(text, "!"), "ComputExprStr",
                      "Evaluating [" + std::string(text) + "]: Too many variable replacements.!");
    }
    EXPECT_EQ(k.ComputeExprStr("[d10]"), std::string(1024, 'x'));
    EXPECT_EQ(k.ComputeExprStr("[w2]").size(), std::size_t{4} << 20);
    EXPECT_RAISES(k.ComputeExprStr("[w2]."), "ComputExprStr",
                  "Evaluating [[w2].]: The expanded text is too long.");
}

namespace {

// The expansion as its rule reads: find the first marker from the start, replace it, start
// again. The result, or "" and the missing name in `missing` ("?" when the text keeps growing).
std::string Expand(std::string text, const std::map<std::string, std::string>& values,
                   std::string& missing) {
    if (!text.empty() && text[0] == '$') text.erase(0, 1);
    for (int step = 0; step < 200 && text.size() < 2000; ++step) {
        std::size_t open = std::string::npos, close = std::string::npos;
        for (std::size_t i = 0; i < text.size() && close == std::string::npos; ++i) {
            if (text[i] == '[') open = i;
            if (text[i] == ']' && open != std::string::npos && i > open + 1) close = i;
            if (text[i] == ']' && close == std::string::npos) open = std::string::npos;  // "[]"
        }
        if (close == std::string::npos) return text;
        missing = text.substr(open + 1, close - open - 1);
        if (values.count(missing) == 0) return "";
        text = text.substr(0, open) + values.at(missing) + text.substr(close + 1);
        missing.clear();
    }
    missing = "?";
    return "";
}

}  // namespace

TEST(StringExpr, AgreesWithTheRescanningRule) {
    std::mt19937 gen(4242);
    const auto random = [&](const char* alphabet, std::size_t maxLength) {
        std::string text(gen() % (maxLength + 1), ' ');
        for (char& c : text) c = alphabet[gen() % 6];
        return text;
    };
    Kalvos k;
    k.GetVars().SetVarNum("x", 0.25);
    k.GetVars().SetVarNum("y", 1234567);
    int compared = 0;
    for (int round = 0; round < 4000; ++round) {
        std::map<std::string, std::string> values = {{"x", "0.25"}, {"y", "1.23457e+06"}};
        for (const char* name : {"a", "b"})
            k.GetVars().SetVarStr(name, values[name] = random("[]abxy", 6));
        const std::string text = random("[]ab$x", 14);
        std::string missing;
        const std::string expected = Expand(text, values, missing);
        if (missing == "?") continue;
        ++compared;
        if (missing.empty()) {
            ASSERT_EQ(k.ComputeExprStr(text, "."), expected)
                << text << " a=" << values["a"] << " b=" << values["b"];
        } else {
            EXPECT_RAISES(
                k.ComputeExprStr(text, "."), "ComputExprStr",
                "Evaluating [" + text + "]: The variable '" + missing + "' does not exist..");
        }
    }
    EXPECT_GT(compared, 3500);
}
