#include "evaluator/Kalvos.h"

namespace {

struct OperatorInfo {
    std::string_view Text;
    // The reduction pass that applies the operator between two numbers; prefix "!" and "-"
    // are applied in pass 0 besides.
    unsigned int InfixPass;
};

constexpr unsigned int kNoPass = 99;

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

std::string_view Kalvos::OperatorText(TpOper oper) { return kOperators[oper].Text; }

// The value of an infix operator between two numbers; a division by zero is the caller's.
double Kalvos::ApplyOperator(TpOper oper, double a, double b) {
    switch (oper) {
        case OP_Mul:
            return a * b;
        case OP_Div:
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
