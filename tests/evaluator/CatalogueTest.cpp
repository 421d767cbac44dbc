#include <cmath>
#include <set>
#include <sstream>

#include "TestSupport.h"
#include "support/RandomMersenne.h"

using Catalogue = WithStore;

TEST_F(Catalogue, EveryEntry) {
    KalvosVars& vars = k.GetVars();
    vars.DelVar("Dp");
    vars.DelVar("PosMin_x");
    const struct {
        const char *Text, *Method, *Message;
    } failures[] = {
        {"roundposx(1)", "GetVarNum", "The variable 'Dp' does not exist."},  // Dp is read first
        {"float(1e+39)", "ComputFunc",
         "Evaluating function [float(1e+39)]: The result inf is an invalid value (Infinity)."},
        {"pow(-10,309)", "ComputFunc",
         "Evaluating function [pow(-10,309)]: The result -inf is an invalid value (Infinity)."},
        {"min(nan,1)", "ComputFunc",
         "Evaluating function [min(nan,1)]: The result nan is an invalid value (NaN)."}};
    for (const auto& c : failures)
        EXPECT_RAISES(k.ComputeExpr(c.Text, " (a)"), c.Method, c.Message + std::string(" (a)"));
    vars.SetVarNum("Dp", 0.5);
    vars.SetVarStr("PosMin_x", "text");
    EXPECT_RAISES(k.ComputeExpr("roundposx(1)", " (a)"), "GetVarNum",
                  "The variable 'PosMin_x' is not a numeric variable. (a)");
    const volatile double two = 2;  // the machine's NaN of each function, not the compiler's
    const std::pair<const char*, double> domains[] = {{"log(-1)", std::log(-two)},
                                                      {"asin(2)", std::asin(two)},
                                                      {"acos(-2)", std::acos(-two)},
                                                      {"fmodr(1,0)", std::fmod(two, two - two)}};
    for (const auto& [text, nan] : domains)
        EXPECT_RAISES(k.ComputeExpr(text), "ComputFunc",
                      fun::PrintStr("Evaluating function [%s]: The result %g is an invalid value "
                                    "(NaN).",
                                    text, nan));
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
                                                     {"min(1,nan)", 1},
                                                     {"max(1,nan,3)", 3},
                                                     {"eval(0,1,2)", 2},
                                                     {"eval(nan,1,2)", 1},
                                                     {"roundposx(1.04)", 1},
                                                     {"roundposy(0.8)", 1},
                                                     {"roundposz(9.7)", 9.5},
                                                     {"randinit(7)", 0},
                                                     {"rand(2.5,2.5)", 2.5},
                                                     {"randint(3,3)", 3},
                                                     {"wavelength(9,0,5)", 0}};
    for (const auto& [text, value] : values) EXPECT_EQ(k.ComputeExpr(text), value) << text;
    EXPECT_EQ(BitsOf(k.ComputeExpr("max(-0,0)")), BitsOf(-0.0));  // the earlier of equals
    vars.SetVarStr("Dp", "0.5");
    EXPECT_RAISES(k.ComputeExpr("roundposx(1)"), "GetVarNum",
                  "The variable 'Dp' is not a numeric variable.");
}

// Each built-in refuses one parameter fewer and one more than the language gives it.
TEST_F(Catalogue, RefusesOtherCounts) {
    std::istringstream arities(
        "abs 1 1 acos 1 1 asin 1 1 atan 1 1 atan2 2 2 ceil 1 1 cos 1 1 cosdg 1 1 cosh 1 1 e 0 0 "
        "eval 3 3 "
        "exp 1 1 float 1 1 floor 1 1 fmod 2 2 fmodr 2 2 int 1 1 log 1 1 log10 1 1 max 2 10 "
        "min 2 10 pi 0 0 pow 2 2 rand 0 0 rand 2 2 randinit 1 1 randint 2 2 round 1 1 "
        "roundpos 3 3 roundposx 1 1 roundposy 1 1 roundposz 1 1 sin 1 1 sindg 1 1 sinh 1 1 "
        "sqrt 1 1 tan 1 1 tandg 1 1 tanh 1 1 wavelength 3 3");
    std::string name;
    int fewest = 0, most = 0, functions = 0;
    while (arities >> name >> fewest >> most) {
        const Kalvos::FunctionInfo info = Kalvos::GetFunction(static_cast<std::size_t>(functions));
        EXPECT_EQ(std::string(info.Name) + " " + std::to_string(info.MinParams) + " " +
                      std::to_string(info.MaxParams),
                  name + " " + std::to_string(fewest) + " " + std::to_string(most));
        ++functions;
        for (const int count : {fewest - 1, most + 1}) {
            if (count < 0) continue;
            std::string call = name + "(";
            for (int i = 0; i < count; ++i) call += i == 0 ? "1" : ",1";
            call += ")";
            EXPECT_RAISES(k.ComputeExpr(call), "ComputFunc",
                          "Evaluating function [" + call + "]: " +
                              (count > 10 ? "This expression has too many parameters."
                                          : "Function not found or invalid for " +
                                                std::to_string(count) + " parameters."));
        }
    }
    EXPECT_EQ(functions, 40);
    EXPECT_EQ(Kalvos::GetFunctionCount(), 40u);
}

// After randinit(s) the draws depend only on s, as a generator freshly seeded with s gives them.
TEST_F(Catalogue, RandomFunctions) {
    k.ComputeExpr("randinit(7.9)");
    CRandomMersenne reference(7);
    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(BitsOf(k.ComputeExpr("rand()")), BitsOf(reference.Random()));
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
