#include "TestSupport.h"

constexpr unsigned int kNone = 0xFFFFFFFFu;

TEST(KalvosVars, StoreContract) {
    KalvosVars vars;
    vars.SetVarNum("x", 1.5);
    vars.SetVarStr("X", "text");  // names are case sensitive and taken whole
    vars.SetVarNum(" a ", 8);
    const unsigned int x = vars.GetVarIdx("x"), upper = vars.GetVarIdx("X");
    ASSERT_TRUE(x != kNone && upper != kNone && x != upper);
    EXPECT_EQ(vars.GetVarNum(x, "") + vars.GetVarNum(" a ", ""), 9.5);
    EXPECT_EQ(vars.GetVarStr(upper, ""), "text");
    EXPECT_EQ(vars.GetVarIdx("a"), kNone);
    vars.SetVarNum("X", 2);  // replacing changes value and kind in place
    vars.SetVarStr("x", "s");
    EXPECT_EQ(vars.GetVarIdx("X"), upper);
    EXPECT_TRUE(vars.VarIsNum(upper) && !vars.VarIsNum(x));
    EXPECT_EQ(vars.GetVarStr(upper, ""), "");  // the other kind reads as "" and 0
    EXPECT_EQ(vars.GetVarNum(x, ""), 0.0);
    EXPECT_EQ(vars.GetVarName(x), "x");
    for (int i = 0; i < 1000; ++i) vars.SetVarNum("v" + std::to_string(i), i);
    for (int i = 0; i < 1000; i += 2) EXPECT_TRUE(vars.DelVar("v" + std::to_string(i)));
    EXPECT_FALSE(vars.DelVar("v0"));
    EXPECT_EQ(vars.GetCount(), 503u);
    for (int i = 0; i < 1000; ++i) {
        const unsigned int idx = vars.GetVarIdx("v" + std::to_string(i));
        EXPECT_EQ(idx == kNone ? -1.0 : vars.GetVarNum(idx, ""), i % 2 ? i : -1.0);
    }
    vars.Reset();
    EXPECT_EQ(vars.GetCount(), 0u);
    EXPECT_EQ(vars.GetVarIdx("v1"), kNone);
}

TEST(KalvosVars, ReadersRaiseWithTheErrorTextAppended) {
    KalvosVars vars;
    vars.SetVarStr("t", "x");
    EXPECT_RAISES(vars.GetVarNum(7u, " ctx"), "GetVarNum", "Variable index 7 is out of range. ctx");
    EXPECT_RAISES(vars.GetVarStr(kNone, "!"), "GetVarStr",
                  "Variable index 4294967295 is out of range.!");
    EXPECT_RAISES(vars.GetVarNum("%s%d", "!"), "GetVarNum", "The variable '%s%d' does not exist.!");
    EXPECT_RAISES(vars.GetVarNum("t", ""), "GetVarNum",
                  "The variable 't' is not a numeric variable.");
    // Every operator, delimiter, digit and high byte must end a name or refuse to start one.
    for (const char ch : std::string("([!*/+-=<>@|)],.# 0\x80\xFF")) {
        EXPECT_FALSE(KalvosVars::FirstCharValid(ch)) << ch;
        EXPECT_EQ(KalvosVars::CharValid(ch), ch == '0') << ch;
    }
}

// A reference follows its variable while others come and go and the store grows; it goes
// stale, for good, when its variable is deleted, reset away or turned into a text.
TEST(KalvosVars, ReferencesFollowTheirVariableUntilItGoes) {
    KalvosVars vars;
    vars.SetVarNum("x", 1);
    vars.SetVarNum("y", 2);
    KalvosVars::NumRef x = vars.GetNumRef("x");
    KalvosVars::NumRef y = vars.GetNumRef("y");
    const KalvosVars::NumRef copy = y;
    EXPECT_EQ(x.GetName(), "x");
    x.Set(-0.0);
    EXPECT_EQ(BitsOf(vars.GetVarNum("x", "")), BitsOf(-0.0));
    vars.SetVarNum("y", 5);
    EXPECT_EQ(copy.Get(), 5);
    EXPECT_TRUE(vars.DelVar("x"));  // y moves down an index
    for (int i = 0; i < 100; ++i) vars.SetVarNum("v" + std::to_string(i), i);  // and in memory
    y.Set(7);
    EXPECT_EQ(vars.GetVarNum("y", ""), 7);
    EXPECT_EQ(copy.Get(), 7);
    const std::string stale =
        "The reference to the variable '%s' is stale: the variable was deleted or turned into a "
        "text.";
    vars.SetVarNum("x", 3);  // the same name, another variable
    EXPECT_RAISES(x.Set(1), "NumRef", fun::PrintStr(stale.c_str(), "x"));
    vars.SetVarStr("y", "now a text");
    vars.SetVarNum("y", 8);  // and a number again: still another life of y
    EXPECT_RAISES((void)y.Get(), "NumRef", fun::PrintStr(stale.c_str(), "y"));
    KalvosVars::NumRef v = vars.GetNumRef("v1");
    vars.Reset();
    vars.SetVarNum("v1", 1);
    EXPECT_RAISES(v.Set(2), "NumRef", fun::PrintStr(stale.c_str(), "v1"));
    KalvosVars::NumRef empty;
    EXPECT_RAISES(empty.Set(1), "NumRef", "The variable reference is empty.");
    vars.SetVarStr("t", "x");
    EXPECT_RAISES(vars.GetNumRef("t"), "GetNumRef", "The variable 't' is not a numeric variable.");
    EXPECT_RAISES(vars.GetNumRef("zz"), "GetNumRef", "The variable 'zz' does not exist.");
}
