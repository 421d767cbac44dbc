// A small host program: fill the store, evaluate a formula, a condition and a file name.
#include <iostream>

#include "evaluator/Kalvos.h"
#include "support/KalvosVars.h"

int main(int argc, char** argv) {
    Kalvos kalvos;
    kalvos.GetVars().SetVarNum("a", 5);
    kalvos.GetVars().SetVarStr("case", "run");
    const std::string expr = argc > 1 ? argv[1] : "2 * max(a, 3) + 1";
    try {
        std::cout << expr << " = " << kalvos.ComputeExpr(expr, " (example)") << '\n';
        std::cout << "a > 3: " << (kalvos.ComputeExprBool("a > 3") ? "true" : "false") << '\n';
        std::cout << kalvos.ComputeExprStr("$[case]_[a].dat") << '\n';
    } catch (const JException& e) {
        std::cerr << "error: " << e.GetText() << '\n';
        return 1;
    }
    return 0;
}
