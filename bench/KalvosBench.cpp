// Time of the calls a host makes: ComputeExpr on a corpus of typical expressions,
// ComputeExprBool on conditions, ComputeExprStr on texts with a growing number of markers and
// a failing call caught as a host validating its files does. When muparser is available the
// same corpus is timed on it in the same run, and the geometric mean of the ratios is printed.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Corpus.h"
#include "evaluator/Kalvos.h"
#include "support/KalvosVars.h"

#ifdef KALVOS_BENCH_MUPARSER
#include <muParser.h>
#endif

namespace {

std::unique_ptr<Kalvos> MakeKalvos() {
    auto kalvos = std::make_unique<Kalvos>();
    for (const bench::Variable& var : bench::StoreVariables()) {
        kalvos->GetVars().SetVarNum(var.Name, var.Value);
    }
    return kalvos;
}

// The host's call as it is usually written: the text is an lvalue, so the by-value parameter
// is a copy made on every call.
void KalvosExpr(benchmark::State& state, const std::string& text) {
    auto kalvos = MakeKalvos();
    for (auto _ : state) benchmark::DoNotOptimize(kalvos->ComputeExpr(text));
}

void KalvosBool(benchmark::State& state, const std::string& text) {
    auto kalvos = MakeKalvos();
    for (auto _ : state) benchmark::DoNotOptimize(kalvos->ComputeExprBool(text));
}

// Markers alternate between a number (written with "%g") and a text variable.
std::string MarkerText(int markers) {
    std::string text = "$";
    for (int i = 0; i < markers; ++i) text += i % 2 == 0 ? "v=[a]; " : "[name]/";
    return text;
}

void KalvosStr(benchmark::State& state) {
    auto kalvos = MakeKalvos();
    kalvos->GetVars().SetVarStr("name", "file_");
    const std::string text = MarkerText(static_cast<int>(state.range(0)));
    std::size_t produced = 0;
    for (auto _ : state) {
        std::string out = kalvos->ComputeExprStr(text);
        produced = out.size();
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.counters["out_bytes"] = static_cast<double>(produced);
}

void KalvosError(benchmark::State& state, const std::string& text) {
    auto kalvos = MakeKalvos();
    const std::string errortext = " (line 12 of model.cfg)";
    std::size_t messageLength = 0;
    for (auto _ : state) {
        try {
            benchmark::DoNotOptimize(kalvos->ComputeExpr(text, errortext));
            state.SkipWithError("the text was expected to raise");
            break;
        } catch (const JException& e) {
            messageLength = e.GetText().size();
        }
    }
    state.counters["msg_bytes"] = static_cast<double>(messageLength);
}

#ifdef KALVOS_BENCH_MUPARSER

// One long-lived parser with the store's variables defined, as a muparser host keeps it; the
// functions and the "!" operator that muparser lacks are defined the way a host would.
class MuparserHost {
public:
    MuparserHost() : vars_(bench::StoreVariables()) {
        for (bench::Variable& var : vars_) parser_.DefineVar(var.Name, &var.Value);
        parser_.DefineFun("floor", [](double v) { return std::floor(v); });
        parser_.DefineFun("ceil", [](double v) { return std::ceil(v); });
        parser_.DefineInfixOprt("!", [](double v) { return v == 0.0 ? 1.0 : 0.0; });
    }
    // A new text: SetExpr, then Eval, which parses it.
    double Evaluate(const std::string& text) {
        parser_.SetExpr(text);
        return parser_.Eval();
    }
    double Reevaluate() { return parser_.Eval(); }

private:
    std::vector<bench::Variable> vars_;
    mu::Parser parser_;
};

void MuparserExpr(benchmark::State& state, const std::string& text) {
    MuparserHost host;
    for (auto _ : state) benchmark::DoNotOptimize(host.Evaluate(text));
}

// For reference only, outside the comparison: muparser evaluating a text it has already
// parsed, which is the use it is built for and not what a Kalvos host does.
void MuparserReeval(benchmark::State& state, const std::string& text) {
    MuparserHost host;
    host.Evaluate(text);
    for (auto _ : state) benchmark::DoNotOptimize(host.Reevaluate());
}

#endif

// Both evaluators must agree on every text of the corpus, or the comparison means nothing.
bool CheckCorpus() {
    bool ok = true;
    auto kalvos = MakeKalvos();
#ifdef KALVOS_BENCH_MUPARSER
    MuparserHost host;
#endif
    for (const bench::CorpusEntry& entry : bench::Corpus()) {
        try {
            const double value = kalvos->ComputeExpr(entry.KalvosText);
#ifdef KALVOS_BENCH_MUPARSER
            const double other = host.Evaluate(entry.MuparserText);
            if (std::fabs(value - other) > 1e-12 * std::max(1.0, std::fabs(value))) {
                std::fprintf(stderr, "%s: Kalvos gives %.17g, muparser %.17g\n", entry.Name.c_str(),
                             value, other);
                ok = false;
            }
#else
            (void)value;
#endif
        } catch (const std::exception& e) {
            std::fprintf(stderr, "%s: %s\n", entry.Name.c_str(), e.what());
            ok = false;
#ifdef KALVOS_BENCH_MUPARSER
        } catch (const mu::Parser::exception_type& e) {
            std::fprintf(stderr, "%s: muparser: %s\n", entry.Name.c_str(), e.GetMsg().c_str());
            ok = false;
#endif
        }
    }
    return ok;
}

// Shows the runs as the console reporter does and keeps the CPU time of each, by name, for the
// summary printed after the run: the median when repetitions were asked for, otherwise the
// fastest run. CPU time, since the calls are single-threaded and it is what other processes
// on the machine disturb least.
class CollectingReporter : public benchmark::ConsoleReporter {
public:
    // Colours only on a terminal, as the library's own reporter does by default.
    CollectingReporter() : ConsoleReporter(isatty(STDOUT_FILENO) ? OO_Defaults : OO_Tabular) {}
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.error_occurred) continue;
            const std::string name = run.run_name.str();
            const double time = run.GetAdjustedCPUTime();
            if (run.run_type == Run::RT_Aggregate) {
                if (run.aggregate_name == "median") Medians[name] = time;
            } else if (Fastest.count(name) == 0 || time < Fastest[name]) {
                Fastest[name] = time;
            }
        }
    }
    std::map<std::string, double> Times() const {
        std::map<std::string, double> times = Fastest;
        for (const auto& [name, time] : Medians) times[name] = time;
        return times;
    }

private:
    std::map<std::string, double> Fastest;
    std::map<std::string, double> Medians;
};

void RegisterAll() {
    for (const bench::CorpusEntry& entry : bench::Corpus()) {
        benchmark::RegisterBenchmark(("Corpus/Kalvos/" + entry.Name).c_str(), KalvosExpr,
                                     entry.KalvosText);
#ifdef KALVOS_BENCH_MUPARSER
        benchmark::RegisterBenchmark(("Corpus/muparser/" + entry.Name).c_str(), MuparserExpr,
                                     entry.MuparserText);
        benchmark::RegisterBenchmark(("Reeval/muparser/" + entry.Name).c_str(), MuparserReeval,
                                     entry.MuparserText);
#endif
    }
    const std::pair<const char*, const char*> conditions[] = {
        {"literal_true", "true"},
        {"comparison", "a<b"},
        {"logic", "(a<b)@@(c>=d)||!(e==f)"},
        {"indexed", "x[1]==x[2]||k[0]!=0"},
    };
    for (const auto& [name, text] : conditions) {
        benchmark::RegisterBenchmark((std::string("Bool/") + name).c_str(), KalvosBool,
                                     std::string(text));
    }
    benchmark::RegisterBenchmark("Str/markers", KalvosStr)->Arg(1)->Arg(10)->Arg(100)->Arg(1000);
    const std::pair<const char*, const char*> failures[] = {
        {"syntax", "a+*b"},
        {"unknown_variable", "a+b*undefined_name"},
        {"unknown_function", "2*nosuchfn(a,b)"},
        {"division_by_zero", "a/(b-b)"},
    };
    for (const auto& [name, text] : failures) {
        benchmark::RegisterBenchmark((std::string("Error/") + name).c_str(), KalvosError,
                                     std::string(text));
    }
}

void PrintSummary(const std::map<std::string, double>& times) {
    auto find = [&](const std::string& name, double& value) {
        const auto it = times.find(name);
        if (it == times.end()) return false;
        value = it->second;
        return true;
    };
#ifdef KALVOS_BENCH_MUPARSER
    double logSum = 0.0;
    int count = 0;
    std::printf("\n%-18s %12s %12s %8s\n", "expression", "Kalvos ns", "muparser ns", "mu/K");
    for (const bench::CorpusEntry& entry : bench::Corpus()) {
        double kalvos = 0.0;
        double other = 0.0;
        if (!find("Corpus/Kalvos/" + entry.Name, kalvos) ||
            !find("Corpus/muparser/" + entry.Name, other) || kalvos <= 0.0) {
            continue;
        }
        std::printf("%-18s %12.1f %12.1f %8.2f\n", entry.Name.c_str(), kalvos, other,
                    other / kalvos);
        logSum += std::log(other / kalvos);
        ++count;
    }
    if (count > 0) {
        std::printf("Geometric mean of muparser time / Kalvos time over %d expressions: %.3f\n",
                    count, std::exp(logSum / count));
    }
#endif
    double hundred = 0.0;
    double thousand = 0.0;
    if (find("Str/markers/100", hundred) && find("Str/markers/1000", thousand) && hundred > 0) {
        std::printf("ComputeExprStr, 1000 markers / 100 markers: %.2f\n", thousand / hundred);
    }
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    if (!CheckCorpus()) return 1;
    RegisterAll();
    CollectingReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    PrintSummary(reporter.Times());
    return 0;
}
