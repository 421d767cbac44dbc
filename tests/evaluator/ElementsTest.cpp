#include "TestSupport.h"

// The list is 15 * 3 + 1; `Left` shows all five slots after the removal, also those past
// the count: when position + count reaches beyond the list nothing moves.
TEST(Elements, RemoveElementClosesTheGap) {
    const struct {
        unsigned int Pos, Removed, Count;
        const char* Left;
        unsigned int CountAfter;
    } cases[] = {{1, 2, 5, "15+1+1", 3}, {0, 1, 5, "*3+11", 4},  {4, 1, 5, "15*3+1", 4},
                 {1, 1, 2, "15*3+1", 1}, {5, 1, 5, "15*3+1", 5}, {3, 4, 5, "15*3+1", 1},
                 {0, 5, 5, "15*3+1", 0}, {2, 0, 5, "15*3+1", 5}, {0, 1, 0, "15*3+1", 0}};
    const OpenKalvos k;
    for (const auto& c : cases) {
        OpenKalvos::StElement list[] = {{true, 15, {}},
                                        {false, 0, OpenKalvos::TpOper(2)},
                                        {true, 3, {}},
                                        {false, 0, OpenKalvos::TpOper(4)},
                                        {true, 1, {}}};
        unsigned int count = c.Count;
        k.RemoveElement(c.Pos, c.Removed, list, count);
        std::string left;
        for (const auto& e : list)
            left += e.IsNum ? fun::DoubleStr(e.Num, "%g") : OpenKalvos::GetOperCode(e.Oper);
        EXPECT_EQ(left, c.Left) << c.Pos << "," << c.Removed;
        EXPECT_EQ(count, c.CountAfter) << c.Pos << "," << c.Removed;
    }
}
