// Evaluates the benchmark corpus in a loop, without the benchmark library around it, so that a
// profiler (valgrind --tool=callgrind, perf) sees only the evaluator. The first argument is the
// number of rounds; with "errors" as the second argument it profiles failing calls instead.

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "Corpus.h"
#include "evaluator/Kalvos.h"
#include "support/KalvosVars.h"

int main(int argc, char** argv) {
    const long rounds = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 1000;
    Kalvos kalvos;
    for (const bench::Variable& var : bench::StoreVariables()) {
        kalvos.GetVars().SetVarNum(var.Name, var.Value);
    }
    const auto corpus = bench::Corpus();
    double sum = 0.0;
    if (argc > 2 && std::string(argv[2]) == "errors") {
        const std::vector<std::string> failing = {"a+*b", "a+b*undefined_name", "2*nosuchfn(a,b)",
                                                  "a/(b-b)"};
        std::size_t length = 0;
        for (long round = 0; round < rounds; ++round) {
            for (const std::string& text : failing) {
                try {
                    sum += kalvos.ComputeExpr(text, " (line 12 of model.cfg)");
                } catch (const JException& e) {
                    length += e.GetText().size();
                }
            }
        }
        std::printf("%zu\n", length);
        return 0;
    }
    for (long round = 0; round < rounds; ++round) {
        for (const bench::CorpusEntry& entry : corpus) sum += kalvos.ComputeExpr(entry.KalvosText);
    }
    std::printf("%.17g\n", sum);
    return 0;
}
