#include <ctime>

#include "Differential.h"
#include "TestSupport.h"

// A failure names the class that raised it in two of its fields and ends with the error text
// of the call; the object keeps the texts of the failed call and stays usable; Reset forgets.
TEST(Kalvos, RaiseArgumentsAndReset) {
    Kalvos k;
    reference::FillStore(k.GetVars());
    const std::pair<const char*, const char*> cases[] = {{"(1", "Kalvos"},
                                                         {"1/0", "Kalvos"},
                                                         {"a[1", "Kalvos"},
                                                         {"sqrt(-1)", "Kalvos"},
                                                         {"$[q]", "Kalvos"},
                                                         {"txt", "Kalvos"},
                                                         {"roundposx(1)", "KalvosVars"}};
    k.GetVars().SetVarStr("PosMin_x", "");
    for (const auto& [text, raiser] : cases) {
        const std::string expr = text;  // a lambda may not capture a structured binding
        const diff::Outcome o = diff::Capture(k, [&] {
            return expr[0] == '$' ? double(k.ComputeExprStr(expr, " in line 7").size())
                                  : k.ComputeExpr(expr, " in line 7");
        });
        ASSERT_TRUE(o.Raised) << text;
        EXPECT_EQ(o.SrcFile, raiser) << text;
        EXPECT_EQ(o.ClassName, raiser) << text;
        EXPECT_EQ(o.File, "") << text;
        EXPECT_EQ(o.Text.substr(o.Text.size() - 10), " in line 7") << text;
        EXPECT_EQ(TextPair(o.ExprText, o.ErrorText), TextPair(expr, " in line 7"));
    }
    EXPECT_EQ(k.ComputeExpr("a"), 5);
    k.Reset();
    EXPECT_EQ(TextPair(k.GetExprText(), k.GetErrorText()), TextPair());
    EXPECT_EQ(k.GetVars().GetCount(), 0u);
}

// Both seeds come from the clock in whole seconds, so objects made within one second draw
// alike (retried when the second turns between the two constructions).
TEST(Kalvos, ObjectsMadeInOneSecondDrawAlike) {
    for (;;) {
        const std::time_t before = std::time(nullptr);
        Kalvos first, second;
        if (std::time(nullptr) != before) continue;
        for (int i = 0; i < 10; ++i) {
            ASSERT_EQ(BitsOf(first.ComputeExpr("rand()")), BitsOf(second.ComputeExpr("rand()")));
        }
        return;
    }
}
