#pragma once

// The rules as they read, written the slow and obvious way: the standard store, the reduction
// of an operator list and the expansion of markers. The unit tests and the fuzz target both
// hold the evaluator to them.

#include <algorithm>
#include <cstring>
#include <iterator>
#include <limits>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "support/Functions.h"
#include "support/KalvosVars.h"

namespace reference {

// Every kind of variable a text can reach: plain and indexed numbers (x1, m12), the lattice
// variables, non-finite values, texts, texts that refer to themselves (s) or to each other
// (u, v), and a variable that hides a keyword (True). "x3", "true", "false" and "zz" are unknown.
inline void FillStore(KalvosVars& vars) {
    constexpr double kInf = std::numeric_limits<double>::infinity();
    constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
    const std::pair<const char*, double> numbers[] = {
        {"a", 5},           {"b", -2.5},      {"r", 0.1},
        {"n", 1234567},     {"zero", 0},      {"big", 1e308},
        {"tiny", 4.9e-324}, {"inf", kInf},    {"nan", kNaN},
        {"x", 10},          {"x0", 100},      {"x1", 1.5},
        {"x2", 20},         {"x10", -10},     {"m12", 12},
        {"m21", 21},        {"m1", -0.0},     {"Dp", 0.25},
        {"PosMin_x", 1},    {"PosMin_y", -2}, {"PosMin_z", 0.125},
        {"True", 7}};
    const std::pair<const char*, const char*> texts[] = {
        {"txt", "hello"}, {"name", "a"}, {"w", "[a]"}, {"open", "["}, {"close", "]"},
        {"empty", ""},    {"s", "[s]"},  {"u", "[v]"}, {"v", "[u]"},  {" a ", "spaced"}};
    for (const auto& [name, value] : numbers) vars.SetVarNum(name, value);
    for (const auto& [name, value] : texts) vars.SetVarStr(name, value);
}

// Texts of digits and operators only: in each of the seven passes reduce the leftmost
// applicable operator, then search again from the first element. Gives "" and the value, or
// the message after "Evaluating [text]: ".
inline std::string Reduce(const std::string& text, double& value) {
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

// The expansion of a string expression: drop one leading "$", find the first marker ("[" and
// the first "]" after it, with at least one character and no "[" between), replace it and scan
// the new text again from its start. False when it gives up, beyond a small budget; else the
// expansion is complete in `result`, or stopped at the unknown name in `missing`.
inline bool Expand(const KalvosVars& vars, std::string text, std::string& result,
                   std::string& missing) {
    if (!text.empty() && text[0] == '$') text.erase(0, 1);
    for (int replacements = 0; replacements <= 200 && text.size() <= 65536; ++replacements) {
        std::size_t open = std::string::npos, close = std::string::npos;
        for (std::size_t pos = 0; pos < text.size() && close == std::string::npos; ++pos) {
            if (text[pos] == '[') open = pos;
            if (text[pos] == ']' && open != std::string::npos && pos > open + 1) close = pos;
            if (text[pos] == ']' && close == std::string::npos) open = std::string::npos;  // "[]"
        }
        if (close == std::string::npos) {
            result = text;
            return true;
        }
        const std::string name = text.substr(open + 1, close - open - 1);
        const unsigned int idx = vars.GetVarIdx(name);
        if (idx == KalvosVars::kNoVar) {
            missing = name;
            return true;
        }
        text.replace(open, close - open + 1,
                     vars.VarIsNum(idx) ? fun::DoubleStr(vars.GetVarNum(idx, ""), "%g")
                                        : vars.GetVarStr(idx, ""));
    }
    return false;
}

}  // namespace reference
