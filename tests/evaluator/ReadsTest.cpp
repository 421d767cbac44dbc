// What a compiled formula says it reads, against what its run looks up.
#include <string>
#include <vector>

#include "TestSupport.h"

namespace {

using Names = std::vector<std::string>;

}  // namespace

TEST(Reads, NamesFunctionsAndDraws) {
    struct Case {
        const char* Text;
        Names Variables, Computed, Functions;
        bool Random;
    };
    const Case cases[] = {
        {"a * b + a", {"a", "b"}, {}, {}, false},
        {"x[1+1] + m[1][2] - TRUE", {"x2", "m12", "TRUE"}, {}, {}, false},
        {"x[a] + x[2] * y[b][c]", {"a", "x2", "b", "c"}, {"x", "y"}, {}, false},
        {"max(sin(u), f(v), pi()) + rand(1, 2)",
         {"u", "v"},
         {},
         {"max", "sin", "f", "pi", "rand"},
         true},
        {"roundposy(z) + Dp", {"Dp", "PosMin_y", "z"}, {}, {"roundposy"}, false},
        {"randinit(7)", {}, {}, {"randinit"}, true},
        {"rand(1)", {}, {}, {"rand"}, false},   // no such built-in: nothing drawn
        {"q + 1e5 + r", {"q"}, {}, {}, false},  // nothing after a fault of the text is read
    };
    Kalvos k;
    for (const Case& c : cases) {
        const Kalvos::CompiledExpr h = k.CompileExpr(c.Text);
        EXPECT_EQ(h.GetVariables(), c.Variables) << c.Text;
        EXPECT_EQ(h.GetComputedNames(), c.Computed) << c.Text;
        EXPECT_EQ(h.GetFunctions(), c.Functions) << c.Text;
        EXPECT_EQ(h.DrawsRandomNumbers(), c.Random) << c.Text;
    }
    k.GetVars().SetVarNum("a", 1);
    k.GetVars().SetVarStr("x2", "a text is there");
    EXPECT_EQ(k.GetMissingVariables(k.CompileExpr("x[2] + a + false + b + a")), (Names{"b"}));
    EXPECT_EQ(Kalvos::CompiledExpr().GetVariables(), Names{});
}

// Every variable a run looks up is among those the formula says it reads, unless it builds
// names as it runs: any other variable may change without changing the outcome.
TEST(Reads, ARunLooksUpNothingElse) {
    texts::Grammar grammar(2026);
    for (int i = 0; i < 3000; ++i) {
        const std::string text = grammar.Text();
        Kalvos k;
        reference::FillStore(k.GetVars());
        const Kalvos::CompiledExpr h = k.CompileExpr(text);
        if (!h.GetComputedNames().empty()) continue;
        const Names read = h.GetVariables();
        const char* other = grammar.Of(diff::kNames);
        if (std::find(read.begin(), read.end(), other) != read.end()) continue;
        (void)k.ComputeExpr("randinit(5)");
        const diff::Outcome before = diff::Capture(k, [&] { return k.ComputeCompiled(h); });
        if (grammar.Chance(50)) {
            k.GetVars().DelVar(other);
        } else {
            k.GetVars().SetVarStr(other, "changed");
        }
        (void)k.ComputeExpr("randinit(5)");
        const diff::Outcome after = diff::Capture(k, [&] { return k.ComputeCompiled(h); });
        ASSERT_EQ(diff::Describe(after), diff::Describe(before)) << text << " without " << other;
    }
}
