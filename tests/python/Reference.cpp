// The C++ side of the Python comparison: evaluates each line of standard input, whose first
// character chooses the entry point (n, b or s), in the store test_kalvos.py sets up, and
// prints what it gives: "= BITS" (the double's bits in hex), "= 0/1", "= TEXT", or
// "! METHOD | MESSAGE".
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>

#include "evaluator/Kalvos.h"
#include "support/KalvosVars.h"

int main() {
    Kalvos k;
    k.GetVars().SetVarNum("a", 5);
    k.GetVars().SetVarNum("b", -2.5);
    k.GetVars().SetVarNum("x1", 3);
    k.GetVars().SetVarStr("s", "run");
    std::string line;
    while (std::getline(std::cin, line)) {
        if (line.empty()) continue;
        const std::string text = line.substr(1);
        try {
            if (line[0] == 'n') {
                const double value = k.ComputeExpr(text, " (py)");
                std::uint64_t bits = 0;
                std::memcpy(&bits, &value, sizeof bits);
                std::printf("= %016" PRIx64 "\n", bits);
            } else if (line[0] == 'b') {
                std::printf("= %d\n", k.ComputeExprBool(text, " (py)") ? 1 : 0);
            } else {
                std::printf("= %s\n", k.ComputeExprStr(text, " (py)").c_str());
            }
        } catch (const JException& e) {
            std::printf("! %s | %s\n", e.GetMethod().c_str(), e.GetText().c_str());
        }
    }
}
