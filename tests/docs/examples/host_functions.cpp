// The host function and dependency examples of README.md, which the documentation test keeps
// identical to it.
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "evaluator/Kalvos.h"
#include "support/KalvosVars.h"

void Print(const char* label, const std::vector<std::string>& names) {
    std::printf("%s:", label);
    for (const std::string& name : names) std::printf(" %s", name.c_str());
    std::printf("\n");
}

// [embedding]
// A material law of the host's, which formulas call as they call the built-in functions.
void DefineDrag(Kalvos& kalvos) {
    kalvos.DefineFunction(
        "drag", 1, 2,
        [](const double* p, unsigned int count) {
            const double cd = count == 2 ? p[1] : 0.47;  // a sphere's, unless given
            return 0.5 * 1.225 * cd * p[0] * p[0];
        },
        /*pure=*/true, /*threadSafe=*/true);
}

// What a formula reads, before it runs.
void Check(Kalvos& kalvos) {
    const auto formula = kalvos.CompileExpr("depht * g + x[i + 1] + drag(v)");
    Print("reads", formula.GetVariables());                  // depht g i v
    Print("builds names from", formula.GetComputedNames());  // x
    Print("calls", formula.GetFunctions());                  // drag
    Print("missing", kalvos.GetMissingVariables(formula));   // depht g i
}
// [embedding-end]

int main() {
    Kalvos kalvos;
    DefineDrag(kalvos);
    kalvos.GetVars().SetVarNum("v", 3);
    std::printf("%g\n", kalvos.ComputeExpr("drag(v) + drag(v, 1)"));
    Check(kalvos);
}
