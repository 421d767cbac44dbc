#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/KalvosVars.h"
#include "tools/Diagnosis.h"

namespace {

// What the tool writes under a message, its lines joined by "\n".
std::string Explained(const char* line, const char* method, const std::string& message,
                      const KalvosVars& vars) {
    cli::MessageFields fields;
    if (!cli::ReadMessage(method, message, "", fields)) return "unread";
    std::string text;
    for (const std::string& shown : cli::Explain(line, fields, vars)) text += shown + "\n";
    return text;
}

}  // namespace

// The caret stands under the place in the line as written: blanks counted, a tab and other
// escaped bytes as wide as they are shown, the first place where the named text stands whole.
TEST(Explain, PointsAtTheFaultInTheLineAsWritten) {
    KalvosVars vars;
    for (const char* name : {"depth", "width", "r"}) vars.SetVarNum(name, 1);
    const struct {
        const char* Line;
        const char* Method;
        const char* Message;
        const char* Shown;
    } cases[] = {
        {"order = 2 ^ 3", "ComputExpr",
         "Evaluating [2^3]: The expression at position 1 is invalid.",
         "order = 2 ^ 3\n          ^\nhint: a power is written pow(a, b)\n"},
        {"ok = x && 1", "ComputExpr", "Evaluating [x&&1]: The expression at position 1 is invalid.",
         "ok = x && 1\n       ^\nhint: the logical and is written @@\n"},
        {"P = 1.5e3 // W", "ComputExpr", "Evaluating [1.5e3]: Number at position 0 is invalid.",
         "P = 1.5e3 // W\n    ^~~~~\nhint: an exponent needs its sign: 1.5e+3\n"},
        {"\tv = 1 *  / 2", "ComputExpr", "Evaluating [1*/2]: Operator at position 3 is invalid.",
         "\\x09v = 1 *  / 2\n             ^\n"},
        {"p = 2 ** 3", "ComputExpr", "Evaluating [2**3]: Operator at position 3 is invalid.",
         "p = 2 ** 3\n      ^~\nhint: a power is written pow(a, b)\n"},
        {"a = 11?2 + (1 ? 2)", "ComputExpr",
         "Evaluating [1?2]: The expression at position 1 is invalid.",
         "a = 11?2 + (1 ? 2)\n              ^\n"},
        {"k = sqrt(2 * r))  // 1/s", "ComputeExpr",
         "Parenthesis in expression [sqrt(2*r))] are wrong.",
         "k = sqrt(2 * r))  // 1/s\n               ^\n"},
        {"# (1 + (2)", "ComputeExpr", "Parenthesis in expression [(1+(2)] are wrong.",
         "# (1 + (2)\n  ^\n"},
        {"x[1 ? 2] = 3", "ComputExpr", "Evaluating [1?2]: The expression at position 1 is invalid.",
         "x[1 ? 2] = 3\n    ^\n"},
        {"y = .5", "ComputExpr", "Evaluating [.5]: The expression at position 0 is invalid.",
         "y = .5\n    ^\nhint: a number begins with a digit: 0.5, not .5\n"},
        {"y = é + 1", "ComputExpr", "Evaluating [é+1]: The expression at position 0 is invalid.",
         "y = é + 1\n    ^\n"},
        {"m = max(1, 2", "LookforEndParentesis", "Evaluating [(1,2]: End of parentheses is missing",
         "m = max(1, 2\n       ^\n"},
        {"area = pi * r * r", "ComputExpr",
         "Evaluating [pi*r*r]: The variable 'pi' does not exist.",
         "hint: pi is a function: pi()\n"},
        {"h = dpeth / 2", "ComputExpr",
         "Evaluating [dpeth/2]: The variable 'dpeth' does not exist.", "did you mean 'depth'?\n"},
        {"$[widht]", "ComputExprStr", "Evaluating [$[widht]]: The variable 'widht' does not exist.",
         "did you mean 'width'?\n"},
        {"Sin(1)", "ComputFunc",
         "Evaluating function [Sin(1)]: Function not found or invalid for 1 parameters.",
         "did you mean 'sin'?\n"},
        {"rand(1)", "ComputFunc",
         "Evaluating function [rand(1)]: Function not found or invalid for 1 parameters.",
         "hint: it is called as rand() or rand(a, b)\n"},
        {"1 / 0", "ComputExpr", "Evaluating [1/0]: Division by zero.", ""}};
    for (const auto& c : cases)
        EXPECT_EQ(Explained(c.Line, c.Method, c.Message, vars), c.Shown) << c.Line;
}

// A line too long to echo whole gets no caret, but its hints.
TEST(Explain, LeavesOutTheCaretOfALongLine) {
    const std::string line = "a = " + std::string(400, '1') + "e3";
    const std::string message =
        "Evaluating [" + line.substr(4) + "]: Number at position 0 is invalid.";
    const KalvosVars vars;
    const std::string shown = Explained(line.c_str(), "ComputExpr", message, vars);
    EXPECT_EQ(shown.substr(0, 40), "hint: an exponent needs its sign: 111111");
}

TEST(ClosestNames, KeepsTheClosestWithinTwoSteps) {
    const std::vector<std::string> names = {"depth", "Depth", "dept", "width", "x", "y", "ab"};
    const std::pair<const char*, const char*> cases[] = {
        {"dpeth", "depth"},        // two neighbours swapped is one step
        {"DEPTH", "Depth|depth"},  // a difference of case only comes first
        {"depht", "dept|depth"},
        {"deptt", "dept|depth"},
        {"widthxx", "width"},
        {"wdthxyz", ""},  // three steps
        {"z", ""},        // a name needs fewer steps than it has characters
        {"aa", "ab"},
        {"", ""}};
    for (const auto& [name, expected] : cases) {
        std::string joined;
        for (const std::string& found : cli::ClosestNames(name, names)) {
            joined += (joined.empty() ? "" : "|") + found;
        }
        EXPECT_EQ(joined, expected) << name;
    }
}
