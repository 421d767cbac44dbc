#include <cfloat>
#include <climits>
#include <cstdio>
#include <random>

#include "TestSupport.h"

TEST(Functions, TextHelpers) {
    EXPECT_EQ(fun::StrWithoutChar(" 1 +\t2 ", ' '), "1+\t2");
    EXPECT_EQ(fun::StrLower("TrUE x_9[Y]\xC4"), "true x_9[y]\xC4");
    EXPECT_EQ(fun::PrintStr("[%s] %d %g", "%d%s", 12, 0.5), "[%d%s] 12 0.5");
    const std::string longText(100000, 'x');
    EXPECT_EQ(fun::PrintStr("<%s>", longText.c_str()), "<" + longText + ">");
    EXPECT_EQ(fun::IntStr(INT_MIN), "-2147483648");
    EXPECT_EQ(fun::DoubleStr(2.5, "%.3f"), "2.500");
}

// File names are built from "%g" texts, so they must be exactly what printf writes.
TEST(Functions, DoubleStrWritesWhatPrintfWrites) {
    std::vector<double> values = {-0.0, 999999.5, 9999995, 5e-324, DBL_MAX, -DBL_MIN};
    std::mt19937_64 gen(7);
    for (int i = 0; i < 40000; ++i) {  // short mantissas near rounding edges, and any exponent
        const int exponent = i % 2 ? -int(gen() % 40) : int(gen() % 2000) - 1000;
        values.push_back(std::ldexp(double(gen() % 2000000) - 1e6, exponent));
    }
    for (const double value : values) {
        char expected[64];
        std::snprintf(expected, sizeof expected, "%g", value);
        ASSERT_EQ(fun::DoubleStr(value, "%g"), expected) << value;
    }
}
