#include <cmath>
#include <set>

#include "TestSupport.h"
#include "support/RandomMersenne.h"

TEST(Catalogue, EveryEntry) {
    Kalvos k;
    KalvosVars& vars = k.GetVars();
    vars.SetVarNum("n", std::nan(""));
    const struct {
        const char *Text, *Method, *Message;
    } failures[] = {
        {"roundposx(1)", "GetVarNum", "The variable 'Dp' does not exist."},  // Dp is read first
        {"float(1e+39)", "ComputFunc",
         "Evaluating function [float(1e+39)]: The result inf is an invalid value (Infinity)."},
        {"pow(-10,309)", "ComputFunc",
         "Evaluating function [pow(-10,309)]: The result -inf is an invalid value (Infinity)."},
        {"min(n,1)", "ComputFunc",
         "Evaluating function [min(n,1)]: The result nan is an invalid value (NaN)."}};
    for (const auto& c : failures)
        EXPECT_RAISES(k.ComputeExpr(c.Text, " (a)"), c.Method, c.Message + std::string(" (a)"));
    for (const char* domain : {"log(-1)", "asin(2)", "acos(-2)", "fmodr(1,0)"})
        EXPECT_EQ(CatchRaise([&] { k.ComputeExpr(domain); }).GetMethod(), "ComputFunc") << domain;
    for (const auto& [name, value] :
         {std::pair("Dp", 0.5), {"PosMin_x", -1}, {"PosMin_y", 0}, {"PosMin_z", 10}})
        vars.SetVarNum(name, value);
    const std::pair<const char*, double> values[] = {{"pi()", 3.141592653589793},
                                                     {"e()", 2.718281828459045},
                                                     {"float(16777217)", 16777216},
                                                     {"int(3e+10)", -2147483648.0},
                                                     {"sqrt(2)", 1.4142135623730951},
                                                     {"exp(2)", 7.38905609893065},
                                                     {"log(10)", 2.302585092994046},
                                                     {"sin(1)", 0.8414709848078965},
                                                     {"cos(1)", 0.5403023058681398},
                                                     {"tan(1)", 1.5574077246549023},
                                                     {"sindg(30)", 0.49999999999999994},
                                                     {"cosdg(60)", 0.5000000000000001},
                                                     {"tandg(45)", 0.9999999999999999},
                                                     {"sinh(1)", 1.1752011936438014},
                                                     {"cosh(1)", 1.5430806348152437},
                                                     {"tanh(1)", 0.7615941559557649},
                                                     {"asin(1)", 1.5707963267948966},
                                                     {"acos(0.5)", 1.0471975511965979},
                                                     {"atan(1)", 0.7853981633974483},
                                                     {"atan2(0,-1)", 3.141592653589793},
                                                     {"roundpos(1,0,0.3)", 0.8999999999999999},
                                                     {"abs(-2.5)", 2.5},
                                                     {"int(-2.9)", -2},
                                                     {"floor(-1.5)", -2},
                                                     {"ceil(-1.5)", -1},
                                                     {"round(-2.5)", -3},
                                                     {"log10(1e+3)", 3},
                                                     {"fmod(-7,3)", -1},
                                                     {"fmodr(7.5,2)", 2},
                                                     {"pow(2,10)", 1024},
                                                     {"min(1,n)", 1},
                                                     {"max(1,n,3)", 3},
                                                     {"eval(0,1,2)", 2},
                                                     {"eval(n,1,2)", 1},
                                                     {"roundposx(1.04)", 1},
                                                     {"roundposy(0.8)", 1},
                                                     {"roundposz(9.7)", 9.5},
                                                     {"randinit(7)", 0},
                                                     {"rand(2.5,2.5)", 2.5},
                                                     {"randint(3,3)", 3},
                                                     {"wavelength(9,0,5)", 0}};
    for (const auto& [text, value] : values) EXPECT_EQ(k.ComputeExpr(text), value) << text;
    EXPECT_EQ(Bits(k.ComputeExpr("max(-0,0)")), Bits(-0.0));  // the earlier of equals
    vars.SetVarStr("Dp", "0.5");
    const JException raised = CatchRaise([&] { k.ComputeExpr("roundposx(1)"); });
    EXPECT_EQ(raised.GetClassName() + ": " + raised.GetText(),
              "KalvosVars: The variable 'Dp' is not a numeric variable.");
}

// After randinit(s) the draws depend only on s, as a generator freshly seeded with s gives them.
TEST(Catalogue, RandomFunctions) {
    Kalvos k;
    k.ComputeExpr("randinit(7.9)");
    CRandomMersenne reference(7);
    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(Bits(k.ComputeExpr("rand()")), Bits(reference.Random()));
    std::vector<double> dice;
    k.ComputeExpr("randinit(3)");
    for (int i = 0; i < 50; ++i) dice.push_back(k.ComputeExpr("randint(1.9,6.9)"));
    k.ComputeExpr("randinit(3)");
    for (std::size_t i = 0; i < 50; ++i) EXPECT_EQ(k.ComputeExpr("randint(1,6)"), dice[i]);
    EXPECT_EQ(std::set<double>(dice.begin(), dice.end()), (std::set<double>{1, 2, 3, 4, 5, 6}));
    for (int i = 0; i < 1000; ++i) {
        const double up = k.ComputeExpr("rand(0,10)"), down = k.ComputeExpr("rand(10,0)");
        ASSERT_TRUE(up >= 0 && up < 10 && down > 0 && down <= 10) << up << " " << down;
    }
}
