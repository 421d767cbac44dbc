#include "TestSupport.h"

TEST(Smoke, Evaluates) {
    OpenKalvos k;
    k.GetVars().SetVarNum("a", 5);
    EXPECT_EQ(k.ComputeExpr("2 * max(a, 3) + 1"), 11);
    EXPECT_EQ(k.GetOperCode(OpenKalvos::OP_And), "@@");
}
