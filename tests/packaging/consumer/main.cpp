// A host program built against Kalvos by the packaging tests: installed (find_package and
// pkg-config), add_subdirectory and FetchContent. The part between the markers is the
// embedding example of README.md, which the documentation test keeps identical to it.
// [embedding]
#include <iostream>

#include "evaluator/Kalvos.h"
#include "support/KalvosVars.h"

int main() {
    Kalvos kalvos;
    kalvos.GetVars().SetVarNum("a", 5);
    try {
        std::cout << kalvos.ComputeExpr("2 * max(a, 3) + 1") << '\n';  // 11
        std::cout << kalvos.ComputeExprBool("a >= 5 @@ !0") << '\n';   // 1
        std::cout << kalvos.ComputeExprStr("$run_[a].dat") << '\n';    // run_5.dat
        std::cout << kalvos.ComputeExpr("1 / (a - 5)", " in line 4") << '\n';
    } catch (const JException& e) {
        std::cerr << e.GetText() << '\n';  // Evaluating [1/(a-5)]: Division by zero. in line 4
        return 1;
    }
}
// [embedding-end]
