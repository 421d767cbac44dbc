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
    {"*", 1},  {"/", 1},  {"+", 2},  {"-", 2},  {"==", 4}, {"!=", 4},
    {"<", 3},  {">", 3},  {"<=", 3}, {">=", 3}, {"@@", 5}, {"||", 6},
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
            if (kOperators[op].Text == text.substr(0, want)) {
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
