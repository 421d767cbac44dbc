#include <algorithm>
#include <cmath>
#include <map>
#include <random>
#include <vector>

#include "TestSupport.h"

// Each message names the text of the call that found the failure, the innermost one.
TEST(Reduction, ValuesAndMessages) {
    OpenKalvos k;
    KalvosVars& vars = k.GetVars();
    for (const auto& [name, value] : {std::pair("a", 5.0), {"x0", 100}, {"x2", 20}, {"n", NAN}})
        vars.SetVarNum(name, value);
    vars.SetVarStr("t", "text");
    const std::pair<const char*, double> values[] = {
        {"8-2-1", 5},  {"16/4/2", 2}, {"2*-3", -6},   {"-!0", -1},      {"!-1", 0},
        {"2--3", 5},   {"3>2>1", 0},  {"0||1@@0", 0}, {"-(2+1)", -3},   {"3 4", 34},
        {"-a*-a", 25}, {"!a==0", 1},  {"n==n", 0},    {"n!=n", 1},      {"n@@1", 1},
        {"tRuE+1", 2}, {"False", 0},  {"x[1+1]", 20}, {"x[-0.5]", 100}, {"x[x[0]/50]", 20}};
    for (const auto& [text, value] : values) EXPECT_EQ(k.ComputeExpr(text), value) << text;
    EXPECT_EQ(Bits(k.ComputeExpr("0*-1")), Bits(-0.0));
    const std::pair<const char*, const char*> failures[] = {
        {"()", "[]: Expression is invalid."},
        {"2*(1+*3)", "[1+*3]: Operator at position 3 is invalid."},
        {"2(3)", "[2(3)]: Expression is invalid."},
        {"(1+2e+400)", "[1+2e+400]: Number at position 2 is invalid."},
        {"1.5 .2", "[1.5.2]: The expression at position 3 is invalid."},
        {"%s%d", "[%s%d]: The expression at position 0 is invalid."},
        {"0@@(1/0)", "[1/0]: Division by zero."},
        {"1+(2*abc)", "[2*abc]: The variable 'abc' does not exist."},
        {"true[1]", "[true[1]]: The variable 'true1' does not exist."},
        {"1+x[-1]", "[1+x[-1]]: The result of brackets [-1] is less than zero."},
        {"x[n]", "[x[n]]: The result of brackets [n] is less than zero."},
        {"x[2147483648]",
         "[x[2147483648]]: The result of brackets [2147483648] is less than zero."},
        {"t", "[t]: The variable 't' is not a numeric variable."}};
    for (const auto& [text, message] : failures)
        EXPECT_RAISES(k.ComputeExpr(text, "!"), "ComputExpr",
                      "Evaluating " + std::string(message) + "!");
    EXPECT_RAISES(k.ComputeExpr("x[1", "!"), "LookforEndBrackets",
                  "Evaluating [[1]: End of brackets is missing!");
    EXPECT_RAISES(k.ComputExpr("a(1"), "LookforEndParentesis",
                  "Evaluating [(1]: End of parentheses is missing!");
    vars.SetVarNum("true", 5);  // a variable hides a keyword of the same spelling
    EXPECT_EQ(k.ComputeExpr("true*TRUE"), 5);
}

// One level holds at most 100 elements; a parenthesised group is one element of its level.
// Groups, indices and parameters each open a level of nesting; the deepest allowed level must
// fit a 256 KiB thread stack, and one level more is refused before it costs any stack.
TEST(Reduction, ElementAndNestingLimits) {
    Kalvos k;
    const std::string ones = Nest("", 49, "1", "+1");
    EXPECT_EQ(k.ComputeExpr("-" + ones), 48);
    EXPECT_EQ(k.ComputeExpr(Nest("", 49, "1", "+(-" + ones + ")")), 49 * 48 + 1);
    EXPECT_RAISES(k.ComputeExpr(ones + "+"), "ComputExpr",
                  "Evaluating [" + ones + "+]: Expression is invalid.");
    EXPECT_RAISES(k.ComputeExpr("2*(" + ones + "+1)"), "ComputExpr",
                  "Evaluating [" + ones + "+1]: This expression has too many parts.");
    const std::size_t deepest = Kalvos::kMaxNesting;
    k.GetVars().SetVarNum("x0", 0);
    RunWithStack(256 * 1024, [&] {
        for (const auto& [open, close] : {std::pair("(", ")"), {"x[", "]"}, {"abs(", ")"}}) {
            EXPECT_EQ(k.ComputeExpr(Nest(open, deepest, "0", close)), 0) << open;
            EXPECT_RAISES(k.ComputeExpr(Nest(open, deepest + 1, "7", close)), "ComputExpr",
                          "Evaluating [7]: Expression nesting is too deep.");
        }
        EXPECT_EQ(k.ComputeExpr(Nest("-(1+x[max(0,", deepest / 3, "0", ")])")), -1);
    });
}

namespace {

// The reduction as its rule reads: in each of the seven passes reduce the leftmost applicable
// operator, then search again from the first element. "" and the value, or the message.
std::string Reference(const std::string& text, double& value) {
    static const char* const kOps[] = {"==", "!=", "<=", ">=", "@@", "||", "*",
                                       "/",  "+",  "-",  "<",  ">",  "!"};
    static const std::string kPasses[] = {
        "", " * / ", " + - ", " < > <= >= ", " == != ", " @@ ", " || "};
    std::vector<std::pair<std::string, double>> list;  // an operator, or "" and a number
    for (std::size_t pos = 0; pos < text.size();) {
        const std::size_t digits = std::min(text.find_first_not_of("0123456789", pos), text.size());
        const auto op = std::find_if(std::begin(kOps), std::end(kOps), [&](const char* o) {
            return text.compare(pos, std::strlen(o), o) == 0;
        });
        if (digits > pos) {
            list.emplace_back("", std::stod(text.substr(pos, digits - pos)));
            pos = digits;
        } else if (op == std::end(kOps)) {
            return "The expression at position " + std::to_string(pos) + " is invalid.";
        } else {
            pos += std::strlen(*op);
            if (list.size() > 1 && !list.back().first.empty() && std::strcmp(*op, "!") != 0 &&
                std::strcmp(*op, "-") != 0)
                return "Operator at position " + std::to_string(pos) + " is invalid.";
            list.emplace_back(*op, 0);
        }
    }
    for (int pass = 0; pass < 7; ++pass) {
        for (std::size_t i = 0; i + 1 < list.size(); ++i) {
            const std::string o = list[i].first;
            const double a = i > 0 ? list[i - 1].second : 0, b = list[i + 1].second;
            const bool infix = i > 0 && list[i - 1].first.empty();
            if (o.empty() || !list[i + 1].first.empty()) continue;
            if (pass == 0 && (o == "!" || (o == "-" && !infix))) {
                list[i] = {"", o == "!" ? double(b == 0) : -b};
                list.erase(list.begin() + long(i) + 1);
            } else if (infix && kPasses[pass].find(" " + o + " ") != std::string::npos) {
                if (o == "/" && b == 0) return "Division by zero.";
                const bool p = a != 0, q = b != 0;  // the truth of the operands, NaN true
                const std::map<std::string, double> results = {
                    {"*", a * b},   {"/", a / b},   {"+", a + b},   {"-", a - b},
                    {"<", a < b},   {">", a > b},   {"<=", a <= b}, {">=", a >= b},
                    {"==", a == b}, {"!=", a != b}, {"@@", p && q}, {"||", p || q}};
                list[i - 1].second = results.at(o);
                list.erase(list.begin() + long(i), list.begin() + long(i) + 2);
            } else {
                continue;
            }
            i = std::size_t(-1);  // restart from the first element
        }
    }
    if (list.size() != 1 || !list[0].first.empty()) return "Expression is invalid.";
    value = list[0].second;
    return "";
}

}  // namespace

TEST(Reduction, AgreesWithTheRestartingRule) {
    std::mt19937 gen(77);
    const std::string alphabet = "012301230123!!*/+--=<>@|";
    OpenKalvos k;
    int evaluated = 0;
    for (int round = 0; round < 20000; ++round) {
        std::string text(1 + gen() % 12, ' ');
        for (char& c : text) c = alphabet[gen() % alphabet.size()];
        double expected = 0;
        const std::string error = Reference(text, expected);
        if (error.empty()) {
            ++evaluated;
            ASSERT_EQ(Bits(k.ComputExpr(text)), Bits(expected)) << text;
        } else {
            EXPECT_RAISES(k.ComputExpr(text), "ComputExpr", "Evaluating [" + text + "]: " + error);
        }
    }
    EXPECT_GT(evaluated, 1000);
}
