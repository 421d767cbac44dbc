#include "evaluator/Kalvos.h"

namespace {

struct OperatorInfo {
    std::string_view Text;
    // The reduction pass that applies the operator between two numbers; prefix "!" and "-"
    // are applied in pass 0 besides.
    unsigned int InfixPass;
};

constexpr unsigned int kNoPass = 99;
constexpr const char* kDivisionByZero = "Evaluating [%s]: Division by zero.";

// Indexed by TpOper. "==" and "!=" are numbered before the relational operators but bind
// less tightly, hence their later pass.
constexpr OperatorInfo kOperators[] = {
    {"???", kNoPass},  // OP_None
    {"!", kNoPass},    // OP_Not: prefix only
    {"*", 1},         {"/", 1}, {"+", 2},  {"-", 2},  {"==", 4}, {"!=", 4},
    {"<", 3},         {">", 3}, {"<=", 3}, {">=", 3}, {"@@", 5}, {"||", 6},
};
static_assert(sizeof kOperators / sizeof kOperators[0] == 14, "one entry for each TpOper");

}  // namespace

std::string Kalvos::GetOperCode(TpOper oper) {
    // Compared as unsigned, so that every value outside the enumeration is "???".
    if (static_cast<std::uint32_t>(oper) > OP_Or) return "???";
    return std::string(kOperators[oper].Text);
}

unsigned int Kalvos::OperatorPass(TpOper oper) { return kOperators[oper].InfixPass; }

Kalvos::TpOper Kalvos::ScanOperator(std::string_view text, unsigned int& length) {
    // Two-character operators first, so that "<=" is never read as "<" followed by "=".
    for (unsigned int want = 2; want >= 1; --want) {
        if (text.size() < want) continue;
        for (std::uint32_t op = OP_Not; op <= OP_Or; ++op) {
            const std::string_view candidate = kOperators[op].Text;
            if (candidate.size() == want && candidate[0] == text[0] &&
                (want == 1 || candidate[1] == text[1])) {
                length = want;
                return static_cast<TpOper>(op);
            }
        }
    }
    length = 0;
    return OP_None;
}

Kalvos::TpOper Kalvos::ReadOperator(std::string& text) {
    unsigned int length = 0;
    const TpOper oper = ScanOperator(text, length);
    text.erase(0, length);
    return oper;
}

// Reducing the leftmost applicable prefix operator again and again applies every chain from
// the operator nearest to its number outwards, and chains do not affect one another: an
// operator in front of a prefix operator stays an operator until that one is applied. So one
// sweep from the right gives the same list, moving each element once.
void Kalvos::ApplyPrefixOperators(StElement* list, unsigned int& count) const {
    unsigned int out = count;  // list[out, count) is the reduced tail
    for (unsigned int in = count; in-- > 0;) {
        const StElement element = list[in];
        const bool numberFollows = out < count && list[out].IsNum;
        const bool isPrefix =
            element.Oper == OP_Not || (element.Oper == OP_Sub && (in == 0 || !list[in - 1].IsNum));
        if (!element.IsNum && numberFollows && isPrefix) {
            const double b = list[out].Num;
            list[out] = {true, element.Oper == OP_Not ? (b == 0.0 ? 1.0 : 0.0) : -b, OP_None};
        } else {
            list[--out] = element;
        }
    }
    for (unsigned int i = out; i < count; ++i) list[i - out] = list[i];
    count -= out;
}

// Reducing the leftmost applicable operator of the pass again and again groups from the left,
// and within an infix pass no operator ever becomes a number, so an operator passed over stays
// inapplicable. One sweep that folds each operator into the number before it therefore gives
// the same results, in the same order, and the same first failure.
void Kalvos::ApplyInfixOperators(unsigned int pass, std::string_view text, StElement* list,
                                 unsigned int& count) const {
    unsigned int out = 0;  // list[0, out) is the reduced head
    for (unsigned int in = 0; in < count; ++in) {
        const StElement element = list[in];
        const bool applies = !element.IsNum && OperatorPass(element.Oper) == pass && out > 0 &&
                             list[out - 1].IsNum && in + 1 < count && list[in + 1].IsNum;
        if (applies) {
            list[out - 1].Num = ApplyInfix(element.Oper, list[out - 1].Num, list[in + 1].Num, text);
            ++in;
        } else {
            list[out++] = element;
        }
    }
    count = out;
}

double Kalvos::ApplyInfix(TpOper oper, double a, double b, std::string_view text) const {
    switch (oper) {
        case OP_Mul:
            return a * b;
        case OP_Div:
            if (b == 0.0) Raise(__LINE__, "ComputExpr", kDivisionByZero, text);
            return a / b;
        case OP_Add:
            return a + b;
        case OP_Sub:
            return a - b;
        case OP_Lt:
            return a < b ? 1.0 : 0.0;
        case OP_Gt:
            return a > b ? 1.0 : 0.0;
        case OP_Le:
            return a <= b ? 1.0 : 0.0;
        case OP_Ge:
            return a >= b ? 1.0 : 0.0;
        case OP_Eq:
            return a == b ? 1.0 : 0.0;
        case OP_Neq:
            return a == b ? 0.0 : 1.0;
        case OP_And:
            return a != 0.0 && b != 0.0 ? 1.0 : 0.0;
        case OP_Or:
            return a == 0.0 && b == 0.0 ? 0.0 : 1.0;
        default:
            return 0.0;  // no other operator has an infix pass
    }
}
