#include "evaluator/Kalvos.h"

std::string Kalvos::GetOperCode(TpOper oper) {
    // Compared as unsigned, so that every value outside the enumeration is "???".
    if (static_cast<std::uint32_t>(oper) > OP_Or) return "???";
    return std::string(kOperators[oper].Text);
}

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
