#include "TestSupport.h"

// %s in a message stands for the call as evaluated (blanks removed).
TEST(FunctionCall, SplitsAtTheCommasOutsideParentheses) {
    Kalvos k;
    EXPECT_EQ(k.ComputeExpr("max(1,2,)"), 2);  // one trailing comma is dropped
    EXPECT_EQ(k.ComputeExpr("min(1,2,3,4,5,6,7,8,9,10,)"), 1);
    EXPECT_EQ(k.ComputeExpr("max( min(1,2) , (3) )"), 3);
    const std::string tooMany =
        "Evaluating function [%s]: This expression has too many parameters.";
    const auto notFound = [](int count) {
        return "Evaluating function [%s]: Function not found or invalid for " +
               std::to_string(count) + " parameters.";
    };
    const struct {
        const char *Text, *Method;
        std::string Message;
    } cases[] = {
        {"max(,1)", "ComputExpr", "Evaluating []: Expression is invalid."},
        {"eval(1,(2,3),4)", "ComputExpr",
         "Evaluating [2,3]: The expression at position 1 is invalid."},
        {"max(x[1,2])", "LookforEndBrackets", "Evaluating [[1]: End of brackets is missing"},
        {"max(1,2,3,4,5,6,7,8,9,10,11)", "ComputFunc", tooMany},
        {"foo(1/0,2,3,4,5,6,7,8,9,10,,)", "ComputFunc", tooMany},
        {"Sin(0)", "ComputFunc", notFound(1)},
        {"pi(1)", "ComputFunc", notFound(1)},
        {"foo()", "ComputFunc", notFound(0)},
        {"foo( 1 ,2,)", "ComputFunc", notFound(2)},
        {"foo(abc)", "ComputExpr", "Evaluating [abc]: The variable 'abc' does not exist."},
        {"max(log(0)+1,2)", "ComputFunc",  // the innermost call fails first
         "Evaluating function [log(0)]: The result -inf is an invalid value (Infinity)."}};
    for (const auto& c : cases) {
        const std::string call = fun::StrWithoutChar(c.Text, ' ');
        EXPECT_RAISES(k.ComputeExpr(c.Text, "#"), c.Method,
                      fun::PrintStr(c.Message.c_str(), call.c_str()) + "#");
    }
    EXPECT_RAISES(k.ComputeExpr("sqrt(-1)"), "ComputFunc",
                  "Evaluating function [sqrt(-1)]: The result " + InvalidNan() +
                      " is an invalid value (NaN).");
}
