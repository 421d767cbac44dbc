#include <ctime>

#include "TestSupport.h"

TEST(Kalvos, LifecycleAndRaiseArguments) {
    Kalvos k;
    EXPECT_EQ(k.GetClassName(), "Kalvos");
    EXPECT_FALSE(k.GetDestroying());
    EXPECT_EQ(k.GetExprText() + k.GetErrorText(), "");
    EXPECT_EQ(k.GetVars().GetCount(), 0u);
    k.GetVars().SetVarNum("a", 1);
    for (const char* text : {"(1", "1/0", "a[1", "sqrt(-1)", "$[q]"}) {
        const JException raised = CatchRaise([&] {
            text[0] == '$' ? (void)k.ComputeExprStr(text, " in line 7")
                           : (void)k.ComputeExpr(text, " in line 7");
        });
        EXPECT_EQ(raised.GetSrcFile() + raised.GetClassName() + raised.GetFile(), "KalvosKalvos");
        EXPECT_EQ(raised.GetText().substr(raised.GetText().size() - 10), " in line 7") << text;
        EXPECT_EQ(k.GetExprText() + k.GetErrorText(), text + std::string(" in line 7"));
    }
    EXPECT_EQ(k.ComputeExpr("a"), 1);  // still usable after a failure
    k.Reset();
    EXPECT_EQ(k.GetExprText() + k.GetErrorText(), "");
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
            ASSERT_EQ(Bits(first.ComputeExpr("rand()")), Bits(second.ComputeExpr("rand()")));
        }
        return;
    }
}
