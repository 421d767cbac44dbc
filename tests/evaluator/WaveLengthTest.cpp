#include <cmath>

#include "TestSupport.h"

// Deep water gives g t^2 / 2 pi; in between, the length solves the dispersion relation.
TEST(WaveLength, LengthsAndRoundPos) {
    OpenKalvos k;
    const double twoPi = 6.283185307179586, deep = (10 * (9.81 * 10)) / twoPi;
    EXPECT_NEAR(k.ComputeExpr("wavelength(9.81,1000,10)"), deep, deep * 1e-12);
    EXPECT_NEAR(k.CalcWaveLengthSimple(9.81, 1000, 10), deep, deep * 1e-11);
    EXPECT_NEAR(k.CalcWaveLengthSimple(9.81, 10, 8), 71.733, 0.001);
    const double length = k.ComputeExpr("wavelength(9.81,10,8)");
    EXPECT_NEAR(length, 70.898, 0.001);
    EXPECT_NEAR(length, (8 * (9.81 * 8)) / twoPi * std::tanh(twoPi * 10 / length), 1e-13);
    const std::pair<const char*, double> cases[] = {{"wavelength(9.81,10,0)", 0},
                                                    {"roundpos(-0.25,0,0.1)", -0.30000000000000004},
                                                    {"roundpos(-2.5,-2.5,-4)", -2.5},
                                                    {"roundpos(5,1.5,0)", 1.5},  // n = -2147483648
                                                    {"roundpos(1e+300,0,1)", -2147483648.0}};
    for (const auto& [text, value] : cases) EXPECT_EQ(k.ComputeExpr(text), value) << text;
    EXPECT_RAISES(k.ComputeExpr("wavelength(9.81,0,0)"), "ComputFunc",
                  "Evaluating function [wavelength(9.81,0,0)]: The result " + InvalidNan() +
                      " is an invalid value (NaN).");
}
