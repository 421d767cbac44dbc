// Evaluates the benchmark corpus in a loop, without the benchmark library around it, so that a
// profiler (valgrind --tool=callgrind, perf) sees only the evaluator. The first argument is the
// number of rounds, the second the path to look at, each as the benchmark times it:
//   once    every text compiled and run, the cache off (the default)
//   miss    every text new to a cache of bench::kMissEntries programs (variants with blanks)
//   known   texts the cache already holds, passed as the host's lvalues
//   handle  ComputeCompiled on handles compiled before the loop
//   errors  failing calls caught as JException

#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "Corpus.h"
#include "evaluator/Kalvos.h"
#include "support/KalvosVars.h"

namespace {

double Once(Kalvos& kalvos, long rounds) {
    kalvos.SetCacheLimits(0, 0);
    double sum = 0.0;
    const auto corpus = bench::Corpus();
    for (long round = 0; round < rounds; ++round) {
        for (const bench::CorpusEntry& entry : corpus) sum += kalvos.ComputeExpr(entry.KalvosText);
    }
    return sum;
}

// Rounds go through the variants in turn, one variant of every text a round, so that each text
// comes back only after the cache has been refilled many times over.
double Miss(Kalvos& kalvos, long rounds) {
    kalvos.SetCacheLimits(bench::kMissEntries, Kalvos::kDefaultCacheBytes);
    std::vector<std::vector<std::string>> variants;
    for (const bench::CorpusEntry& entry : bench::Corpus()) {
        variants.push_back(bench::BlankVariants(entry.KalvosText, bench::kMissVariants));
    }
    double sum = 0.0;
    for (long round = 0; round < rounds; ++round) {
        const auto index = static_cast<std::size_t>(round) % bench::kMissVariants;
        for (const std::vector<std::string>& texts : variants) {
            sum += kalvos.ComputeExpr(texts[index]);
        }
    }
    return sum;
}

double Known(Kalvos& kalvos, long rounds) {
    const auto corpus = bench::Corpus();
    double sum = 0.0;
    for (const bench::CorpusEntry& entry : corpus) kalvos.ComputeExpr(entry.KalvosText);
    for (long round = 0; round < rounds; ++round) {
        for (const bench::CorpusEntry& entry : corpus) sum += kalvos.ComputeExpr(entry.KalvosText);
    }
    return sum;
}

double Handle(Kalvos& kalvos, long rounds) {
    std::vector<Kalvos::CompiledExpr> handles;
    for (const bench::CorpusEntry& entry : bench::Corpus()) {
        handles.push_back(kalvos.CompileExpr(entry.KalvosText));
    }
    double sum = 0.0;
    for (long round = 0; round < rounds; ++round) {
        for (const Kalvos::CompiledExpr& handle : handles) sum += kalvos.ComputeCompiled(handle);
    }
    return sum;
}

std::size_t Errors(Kalvos& kalvos, long rounds) {
    const std::vector<std::string> failing = {"a+*b", "a+b*undefined_name", "2*nosuchfn(a,b)",
                                              "a/(b-b)"};
    std::size_t length = 0;
    for (long round = 0; round < rounds; ++round) {
        for (const std::string& text : failing) {
            try {
                kalvos.ComputeExpr(text, " (line 12 of model.cfg)");
            } catch (const JException& e) {
                length += e.GetText().size();
            }
        }
    }
    return length;
}

}  // namespace

int main(int argc, char** argv) {
    const long rounds = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 1000;
    const std::string mode = argc > 2 ? argv[2] : "once";
    Kalvos kalvos;
    for (const bench::Variable& var : bench::StoreVariables()) {
        kalvos.GetVars().SetVarNum(var.Name, var.Value);
    }
    if (mode == "errors") {
        std::printf("%zu\n", Errors(kalvos, rounds));
        return 0;
    }
    const std::pair<const char*, double (*)(Kalvos&, long)> paths[] = {
        {"once", Once}, {"miss", Miss}, {"known", Known}, {"handle", Handle}};
    for (const auto& [name, path] : paths) {
        if (mode == name) {
            std::printf("%.17g\n", path(kalvos, rounds));
            return 0;
        }
    }
    std::fprintf(stderr, "usage: %s [rounds] [once|miss|known|handle|errors]\n", argv[0]);
    return 2;
}
