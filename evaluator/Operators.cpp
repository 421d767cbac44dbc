#include "evaluator/Kalvos.h"

std::string Kalvos::GetOperCode(TpOper oper) {
    // Compared as unsigned, so that every value outside the enumeration is "???".
    if (static_cast<std::uint32_t>(oper) > OP_Or) return "???";
    return std::string(kOperators[oper].Text);
}
