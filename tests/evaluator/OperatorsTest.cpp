#include "TestSupport.h"

using Op = OpenKalvos::TpOper;

TEST(Operators, GetOperCodeAndReadOperator) {
    const char* const texts[] = {
        "???", "!", "*", "/", "+", "-", "==", "!=", "<", ">", "<=", ">=", "@@", "||", "???"};
    OpenKalvos k;
    for (std::uint32_t op = 0; op < 15; ++op) {
        const bool known = op % 14 != 0;  // 0 is no operator, 14 is outside the range
        std::string text = OpenKalvos::GetOperCode(static_cast<Op>(op));
        EXPECT_EQ(text, texts[op]);
        EXPECT_EQ(k.ReadOperator(text), static_cast<Op>(known ? op : 0));
        EXPECT_EQ(text, known ? "" : "???");
    }
    EXPECT_EQ(OpenKalvos::GetOperCode(static_cast<Op>(0xFFFFFFFFu)), "???");
    const struct {
        const char* Before;
        std::uint32_t Oper;  // the longest operator at the front
        const char* After;
    } cases[] = {{"<>1", 8, ">1"}, {"!!=", 1, "!="}, {">==", 11, "="},  {"@@@", 12, "@"},
                 {"--1", 5, "-1"}, {"=1", 0, "=1"},  {"&&1", 0, "&&1"}, {"|1", 0, "|1"}};
    for (const auto& c : cases) {
        std::string text = c.Before;
        EXPECT_EQ(k.ReadOperator(text), static_cast<Op>(c.Oper)) << c.Before;
        EXPECT_EQ(text, c.After) << c.Before;
    }
}
