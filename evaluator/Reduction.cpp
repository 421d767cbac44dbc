#include <charconv>

#include "evaluator/Kalvos.h"
#include "support/KalvosVars.h"

namespace {

constexpr const char* kMethod = "ComputExpr";
constexpr const char* kInvalid = "Evaluating [%s]: Expression is invalid.";
constexpr const char* kTooManyParts = "Evaluating [%s]: This expression has too many parts.";
constexpr const char* kNestingTooDeep = "Evaluating [%s]: Expression nesting is too deep.";
constexpr const char* kNegativeIndex =
    "Evaluating [%s]: The result of brackets [%s] is less than zero.";
constexpr const char* kNoToken = "Evaluating [%s]: The expression at position %d is invalid.";
constexpr const char* kBadNumber = "Evaluating [%s]: Number at position %d is invalid.";
constexpr const char* kNotNumeric = "Evaluating [%s]: The variable '%s' is not a numeric variable.";
constexpr const char* kBadOperator = "Evaluating [%s]: Operator at position %d is invalid.";
constexpr const char* kNoVariable = "Evaluating [%s]: The variable '%s' does not exist.";

constexpr unsigned int kPasses = 7;

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// The 0-based offset into the call's text of the first character not yet consumed.
int Position(std::string_view text, std::string_view rest) {
    return static_cast<int>(text.size() - rest.size());
}

}  // namespace

// The text is taken by value, as by every operation that may edit a text.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
double Kalvos::ComputExpr(std::string text) {
    NameBuf.clear();
    return Evaluate(text, 0);
}

// Scans the text into an element list, evaluating every operand on the way, then reduces the
// list. Each parenthesised group, index and function parameter is evaluated one level deeper.
double Kalvos::Evaluate(std::string_view text, unsigned int depth) {
    if (depth > kMaxNesting) Raise(__LINE__, kMethod, kNestingTooDeep, text);
    StElement list[kMaxElements];
    unsigned int count = 0;
    unsigned int passes = 0;  // the reduction passes that the operators read will need
    std::string_view rest = text;
    while (!rest.empty()) {
        if (count >= kMaxElements) Raise(__LINE__, kMethod, kTooManyParts, text);
        const char first = rest[0];
        if (first == '(') {
            list[count++] = {true, ReadGroup(rest, depth), OP_None};
        } else if (KalvosVars::FirstCharValid(first)) {
            list[count++] = {true, ReadOperand(text, rest, depth), OP_None};
        } else if (IsDigit(first)) {
            list[count++] = {true, ReadLiteral(text, rest), OP_None};
        } else {
            const TpOper oper = ReadOperatorToken(text, rest, list, count);
            list[count++] = {false, 0.0, oper};
            const unsigned int pass = OperatorPass(oper);
            if (pass < kPasses) passes |= 1u << pass;
            if (oper == OP_Not || oper == OP_Sub) passes |= 1u;  // prefix pass
        }
    }
    return Reduce(text, list, count, passes);
}

double Kalvos::ReadGroup(std::string_view& rest, unsigned int depth) {
    const unsigned int end = ParenthesesEnd(rest);
    const double value = Evaluate(rest.substr(1, end - 2), depth + 1);
    rest.remove_prefix(end);
    return value;
}

// A name: a function call when "(" follows it, otherwise a variable, or a keyword.
double Kalvos::ReadOperand(std::string_view text, std::string_view& rest, unsigned int depth) {
    const std::size_t nameLength = ScanName(rest);
    if (nameLength == rest.size() || rest[nameLength] != '(') {
        return ReadVariable(text, rest, nameLength, depth);
    }
    const std::string_view call = rest.substr(nameLength);
    const unsigned int end = ParenthesesEnd(call);
    const double value = CallFunction(rest.substr(0, nameLength), call.substr(1, end - 2), depth);
    rest.remove_prefix(nameLength + end);
    return value;
}

// A variable with any number of indices: each index is evaluated, truncated and appended in
// decimal to the name, so x[1+1] reads the variable x2 and m[1][2] reads m12.
double Kalvos::ReadVariable(std::string_view text, std::string_view& rest, std::size_t nameLength,
                            unsigned int depth) {
    const std::string_view name = rest.substr(0, nameLength);
    rest.remove_prefix(nameLength);
    if (rest.empty() || rest[0] != '[') return VariableValue(text, name);

    const std::size_t start = NameBuf.size();
    NameBuf.append(name);
    while (!rest.empty() && rest[0] == '[') {
        const unsigned int end = BracketsEnd(rest);
        const std::string_view indexText = rest.substr(1, end - 2);
        const int index = TruncToInt(Evaluate(indexText, depth + 1));
        if (index < 0) Raise(__LINE__, kMethod, kNegativeIndex, text, indexText);
        char digits[16];
        const auto converted = std::to_chars(digits, digits + sizeof digits, index);
        NameBuf.append(digits, converted.ptr);
        rest.remove_prefix(end);
    }
    const double value = VariableValue(text, std::string_view(NameBuf).substr(start));
    NameBuf.resize(start);
    return value;
}

// A variable of the name hides the keywords "true" and "false", which match in any case.
double Kalvos::VariableValue(std::string_view text, std::string_view name) const {
    const unsigned int idx = Vars->FindVar(name);
    if (idx == KalvosVars::kNoVar) {
        if (EqualsLower(name, "true")) return 1.0;
        if (EqualsLower(name, "false")) return 0.0;
        Raise(__LINE__, kMethod, kNoVariable, text, name);
    }
    if (!Vars->VarIsNum(idx)) Raise(__LINE__, kMethod, kNotNumeric, text, name);
    return Vars->GetVarNum(idx, std::string());
}

double Kalvos::ReadLiteral(std::string_view text, std::string_view& rest) const {
    double value = 0.0;
    const std::size_t length = ScanNumber(rest, value);
    if (length == 0) Raise(__LINE__, kMethod, kBadNumber, text, Position(text, rest));
    rest.remove_prefix(length);
    return value;
}

// Only "!" and "-" may follow another operator; the test needs two elements read, so an
// operator after a single leading operator fails in the reduction instead.
Kalvos::TpOper Kalvos::ReadOperatorToken(std::string_view text, std::string_view& rest,
                                         const StElement* list, unsigned int count) const {
    unsigned int length = 0;
    const TpOper oper = ScanOperator(rest, length);
    if (oper == OP_None) Raise(__LINE__, kMethod, kNoToken, text, Position(text, rest));
    rest.remove_prefix(length);
    if (count >= 2 && !list[count - 1].IsNum && oper != OP_Not && oper != OP_Sub) {
        Raise(__LINE__, kMethod, kBadOperator, text, Position(text, rest));
    }
    return oper;
}

// Seven passes, tightest binding first: 0 prefix "!" and "-"; 1 "*" "/"; 2 "+" "-";
// 3 "<" ">" "<=" ">="; 4 "==" "!="; 5 "@@"; 6 "||". Passes whose operators the list lacks
// are skipped, since they would find nothing to reduce.
double Kalvos::Reduce(std::string_view text, StElement* list, unsigned int& count,
                      unsigned int passes) const {
    if ((passes & 1u) != 0) ApplyPrefixOperators(list, count);
    for (unsigned int pass = 1; pass < kPasses; ++pass) {
        if ((passes & (1u << pass)) != 0) ApplyInfixOperators(pass, text, list, count);
    }
    if (count != 1 || !list[0].IsNum) Raise(__LINE__, kMethod, kInvalid, text);
    return list[0].Num;
}
