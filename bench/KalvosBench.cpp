// Time of the calls a host makes. Every text of the corpus is timed on each path it can take:
// compiled anew with the cache off, compiled anew into the cache (a miss), found in the cache
// when passed as the host's lvalue and when moved in, and run from a kept handle. When muparser
// is available the same corpus is timed on it in the same run, parsed anew and re-evaluated.
// Then ComputeExprBool on conditions, ComputeExprStr on texts with a growing number of markers,
// failing calls caught as a host validating its files does, and a bare throw and catch of a
// JException as long as the failing call's, which is the floor a failure's cost is held to.
// The summary after the run compares the paths by geometric means over the corpus.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Corpus.h"
#include "Reporting.h"
#include "evaluator/Kalvos.h"
#include "support/KalvosVars.h"

#ifdef KALVOS_BENCH_MUPARSER
#include <muParser.h>
#endif

namespace {

// The moved-in row makes the host's copies with the timing paused, once for this many calls:
// pausing and resuming read the clocks, a few hundred nanoseconds, which spread over a batch
// are well under a nanosecond a call, while a pause for every call would cost more than the
// call itself. The batch's strings are small enough to stay in the cache between refills.
constexpr std::size_t kMovedBatch = 1000;

// The failing call of the failure-cost measurement, with the error text a host adds.
const char* const kFailingText = "a+b*undefined_name";
const char* const kFailingErrorText = " (line 12 of model.cfg)";

std::unique_ptr<Kalvos> MakeKalvos() {
    auto kalvos = std::make_unique<Kalvos>();
    for (const bench::Variable& var : bench::StoreVariables()) {
        kalvos->GetVars().SetVarNum(var.Name, var.Value);
    }
    return kalvos;
}

std::unique_ptr<Kalvos> MakeUncached() {
    auto kalvos = MakeKalvos();
    kalvos->SetCacheLimits(0, 0);
    return kalvos;
}

std::unique_ptr<Kalvos> MakeMissing() {
    auto kalvos = MakeKalvos();
    kalvos->SetCacheLimits(bench::kMissEntries, Kalvos::kDefaultCacheBytes);
    return kalvos;
}

// One-shot, cache off: the text is compiled and run on every call. Passed as an lvalue, the
// host's usual call, as the previous release's one-shot figure was taken.
void OnceCacheOff(benchmark::State& state, const bench::CorpusEntry& entry) {
    auto kalvos = MakeUncached();
    for (auto _ : state) benchmark::DoNotOptimize(kalvos->ComputeExpr(entry.KalvosText));
}

// The blank variants of the text in turn (see BlankVariants), one a call.
void CycleVariants(benchmark::State& state, Kalvos& kalvos, const bench::CorpusEntry& entry) {
    const std::vector<std::string> variants =
        bench::BlankVariants(entry.KalvosText, bench::kMissVariants);
    std::size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(kalvos.ComputeExpr(variants[next]));
        if (++next == variants.size()) next = 0;
    }
}

// One-shot, cache on: every call a text the cache does not hold, so the lookup, the compile,
// the insertion and the eviction it makes room with are all timed.
void OnceCacheMiss(benchmark::State& state, const bench::CorpusEntry& entry) {
    auto kalvos = MakeMissing();
    CycleVariants(state, *kalvos, entry);
    state.counters["cached"] = static_cast<double>(kalvos->GetCacheCount());
}

// One-shot, cache off, on the miss row's texts: what a new text costs without the cache's
// work, on texts that differ from call to call as the miss row's do. The same text again and
// again, as the cache-off row reads it, lets the machine predict every branch of compiling it.
void OnceOffVariants(benchmark::State& state, const bench::CorpusEntry& entry) {
    auto kalvos = MakeUncached();
    CycleVariants(state, *kalvos, entry);
}

// A text the cache holds, as a host usually writes the call: the by-value parameter copies
// the host's string on every call, and that copy is part of what the host pays.
void KnownLvalue(benchmark::State& state, const bench::CorpusEntry& entry) {
    auto kalvos = MakeKalvos();
    kalvos->ComputeExpr(entry.KalvosText);
    for (auto _ : state) benchmark::DoNotOptimize(kalvos->ComputeExpr(entry.KalvosText));
    state.counters["cached"] = static_cast<double>(kalvos->GetCacheCount());
}

// A text the cache holds, moved in: the host's copies are made in batches with the timing
// paused (see kMovedBatch), so only the call and the release of the string it was given count.
void KnownMoved(benchmark::State& state, const bench::CorpusEntry& entry) {
    auto kalvos = MakeKalvos();
    kalvos->ComputeExpr(entry.KalvosText);
    std::vector<std::string> batch(kMovedBatch);
    std::size_t next = batch.size();
    for (auto _ : state) {
        if (next == batch.size()) {
            state.PauseTiming();
            for (std::string& text : batch) text = entry.KalvosText;
            next = 0;
            state.ResumeTiming();
        }
        benchmark::DoNotOptimize(kalvos->ComputeExpr(std::move(batch[next++])));
    }
}

// The handle a host keeps for the texts it evaluates most.
void Handle(benchmark::State& state, const bench::CorpusEntry& entry) {
    auto kalvos = MakeKalvos();
    const Kalvos::CompiledExpr compiled = kalvos->CompileExpr(entry.KalvosText);
    for (auto _ : state) benchmark::DoNotOptimize(kalvos->ComputeCompiled(compiled));
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
    std::size_t messageLength = 0;
    for (auto _ : state) {
        try {
            benchmark::DoNotOptimize(kalvos->ComputeExpr(text, kFailingErrorText));
            state.SkipWithError("the text was expected to raise");
            break;
        } catch (const JException& e) {
            messageLength = e.GetText().size();
        }
    }
    state.counters["msg_bytes"] = static_cast<double>(messageLength);
}

// The exception the failing call raises, taken once so that the bare throw below carries the
// same six arguments: the same allocations, the same what() to build.
std::optional<JException> FailingCallException() {
    auto kalvos = MakeKalvos();
    try {
        kalvos->ComputeExpr(kFailingText, kFailingErrorText);
    } catch (const JException& e) {
        return e;
    }
    return std::nullopt;
}

// The least a failure can cost: construct a JException from arguments built beforehand, throw
// it and catch it. The failing call is held to a small multiple of this.
void BareThrow(benchmark::State& state) {
    const std::optional<JException> model = FailingCallException();
    if (!model) {
        state.SkipWithError("the failing text did not raise");
        return;
    }
    const std::string srcFile = model->GetSrcFile();
    const std::string className = model->GetClassName();
    const std::string method = model->GetMethod();
    const std::string message = model->GetText();
    const std::string file = model->GetFile();
    std::size_t messageLength = 0;
    for (auto _ : state) {
        try {
            throw JException(srcFile, model->GetSrcLine(), className, method, message, file);
        } catch (const JException& e) {
            messageLength = e.GetText().size();
            benchmark::DoNotOptimize(messageLength);
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

void MuparserExpr(benchmark::State& state, const bench::CorpusEntry& entry) {
    MuparserHost host;
    for (auto _ : state) benchmark::DoNotOptimize(host.Evaluate(entry.MuparserText));
}

// muparser evaluating a text it has already parsed, the use it is built for: what the handle
// and the known-text paths are measured against.
void MuparserReeval(benchmark::State& state, const bench::CorpusEntry& entry) {
    MuparserHost host;
    host.Evaluate(entry.MuparserText);
    for (auto _ : state) benchmark::DoNotOptimize(host.Reevaluate());
}

#endif

// The rows timed for every corpus entry, named "Corpus/<row>/<entry>", in the order of the
// summary's columns.
struct Row {
    const char* Name;
    const char* Column;
    void (*Run)(benchmark::State&, const bench::CorpusEntry&);
};

const Row kRows[] = {
    {"once_cache_off", "off", OnceCacheOff},
    {"once_cache_miss", "miss", OnceCacheMiss},
    {"once_off_variants", "off var", OnceOffVariants},
    {"known_lvalue", "known", KnownLvalue},
    {"known_moved", "moved", KnownMoved},
    {"handle", "handle", Handle},
#ifdef KALVOS_BENCH_MUPARSER
    {"mu_setexpr_eval", "mu set", MuparserExpr},
    {"mu_eval", "mu eval", MuparserReeval},
#endif
};

std::string RowName(const char* row, const std::string& entry) {
    return std::string("Corpus/") + row + "/" + entry;
}

// The same value, bit for bit: every path runs the same program.
bool Agrees(const char* entry, const char* path, double value, double oneShot) {
    if (value == oneShot || (std::isnan(value) && std::isnan(oneShot))) return true;
    std::fprintf(stderr, "%s: %s gives %.17g, the one-shot path %.17g\n", entry, path, value,
                 oneShot);
    return false;
}

// Checks one entry's paths against the one-shot value; a raise is left to the caller.
bool CheckEntry(const bench::CorpusEntry& entry, Kalvos& uncached, Kalvos& cached,
                Kalvos& missing) {
    const char* name = entry.Name.c_str();
    const double oneShot = uncached.ComputeExpr(entry.KalvosText);
    bool ok = Agrees(name, "the first cached call", cached.ComputeExpr(entry.KalvosText), oneShot);
    ok &= Agrees(name, "the known text", cached.ComputeExpr(entry.KalvosText), oneShot);
    ok &= Agrees(name, "the known text moved in", cached.ComputeExpr(std::string(entry.KalvosText)),
                 oneShot);
    ok &= Agrees(name, "the handle", cached.ComputeCompiled(cached.CompileExpr(entry.KalvosText)),
                 oneShot);
    for (const std::string& variant :
         bench::BlankVariants(entry.KalvosText, bench::kMissVariants)) {
        ok &= Agrees(name, "a variant with blanks", missing.ComputeExpr(variant), oneShot);
    }
    return ok;
}

// Every path must give the one-shot value, and both evaluators must agree on every text of
// the corpus, or the comparison means nothing.
bool CheckCorpus() {
    bool ok = true;
    auto uncached = MakeUncached();
    auto cached = MakeKalvos();
    auto missing = MakeMissing();
#ifdef KALVOS_BENCH_MUPARSER
    MuparserHost host;
#endif
    for (const bench::CorpusEntry& entry : bench::Corpus()) {
        try {
            ok &= CheckEntry(entry, *uncached, *cached, *missing);
#ifdef KALVOS_BENCH_MUPARSER
            const double value = uncached->ComputeExpr(entry.KalvosText);
            const double other = host.Evaluate(entry.MuparserText);
            if (std::fabs(value - other) > 1e-12 * std::max(1.0, std::fabs(value))) {
                std::fprintf(stderr, "%s: Kalvos gives %.17g, muparser %.17g\n", entry.Name.c_str(),
                             value, other);
                ok = false;
            }
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

void RegisterAll() {
    // Row by row, so that the console shows each row's counters under one heading.
    for (const Row& row : kRows) {
        for (const bench::CorpusEntry& entry : bench::Corpus()) {
            benchmark::RegisterBenchmark(RowName(row.Name, entry.Name).c_str(), row.Run, entry);
        }
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
        {"unknown_variable", kFailingText},
        {"unknown_function", "2*nosuchfn(a,b)"},
        {"division_by_zero", "a/(b-b)"},
    };
    for (const auto& [name, text] : failures) {
        benchmark::RegisterBenchmark((std::string("Error/") + name).c_str(), KalvosError,
                                     std::string(text));
    }
    benchmark::RegisterBenchmark("Error/bare_throw_catch", BareThrow);
}

// The summary: reads the collected times, missing ones (a filtered run) left out.
class Summary {
public:
    explicit Summary(std::map<std::string, double> times) : Times(std::move(times)) {}

    void Print() const {
        PrintTable();
        PrintRatios();
        double hundred = 0.0;
        double thousand = 0.0;
        if (Find("Str/markers/100", hundred) && Find("Str/markers/1000", thousand) && hundred > 0) {
            std::printf("ComputeExprStr, 1000 markers / 100 markers: %.2f\n", thousand / hundred);
        }
    }

private:
    std::map<std::string, double> Times;

    bool Find(const std::string& name, double& value) const {
        const auto it = Times.find(name);
        if (it == Times.end() || !(it->second > 0.0)) return false;
        value = it->second;
        return true;
    }

    // The geometric mean of a row over the entries that have it and, when given, the other row
    // too, so that the two means of a ratio cover the same texts.
    bool GeoMean(const char* row, const char* other, double& mean, int& count) const {
        double logSum = 0.0;
        count = 0;
        for (const bench::CorpusEntry& entry : bench::Corpus()) {
            double time = 0.0;
            double unused = 0.0;
            if (!Find(RowName(row, entry.Name), time)) continue;
            if (other != nullptr && !Find(RowName(other, entry.Name), unused)) continue;
            logSum += std::log(time);
            ++count;
        }
        if (count == 0) return false;
        mean = std::exp(logSum / count);
        return true;
    }

    // The ratio of two rows' geometric means, over the expressions both rows have.
    bool Ratio(const char* numerator, const char* denominator, double& ratio) const {
        double top = 0.0;
        double bottom = 0.0;
        int count = 0;
        if (!GeoMean(numerator, denominator, top, count) ||
            !GeoMean(denominator, numerator, bottom, count)) {
            return false;
        }
        ratio = top / bottom;
        return true;
    }

    void PrintTable() const {
        std::printf("\nCPU time of one call, ns\n%-18s", "expression");
        for (const Row& row : kRows) std::printf(" %9s", row.Column);
        std::printf("\n");
        for (const bench::CorpusEntry& entry : bench::Corpus()) {
            std::printf("%-18s", entry.Name.c_str());
            for (const Row& row : kRows) PrintCell(RowName(row.Name, entry.Name));
            std::printf("\n");
        }
        std::printf("%-18s", "geometric mean");
        for (const Row& row : kRows) {
            double mean = 0.0;
            int count = 0;
            if (GeoMean(row.Name, nullptr, mean, count)) {
                std::printf(" %9.1f", mean);
            } else {
                std::printf(" %9s", "-");
            }
        }
        std::printf("\n");
        for (const Row& row : kRows) std::printf("  %-8s Corpus/%s\n", row.Column, row.Name);
    }

    void PrintCell(const std::string& name) const {
        double time = 0.0;
        if (Find(name, time)) {
            std::printf(" %9.1f", time);
        } else {
            std::printf(" %9s", "-");
        }
    }

    // Each target is a ratio of two rows' geometric means, with the bound it is held to.
    struct Target {
        const char* Label;
        const char* Numerator;
        const char* Denominator;
        bool AtLeast;
        double Bound;
    };

    void PrintRatios() const {
        static const Target kTargets[] = {
            {"handle: mu eval / handle", "mu_eval", "handle", true, 2.5},
            {"known text, lvalue: known / mu eval", "known_lvalue", "mu_eval", false, 2.0},
            {"known text, moved in: moved / mu eval", "known_moved", "mu_eval", false, 1.0},
            {"one-shot, cache off: mu set / off", "mu_setexpr_eval", "once_cache_off", true, 40.0},
            {"one-shot, cache miss: mu set / miss", "mu_setexpr_eval", "once_cache_miss", true,
             40.0},
        };
#ifdef KALVOS_BENCH_MUPARSER
        const char* const kNotRun = "not run";
#else
        const char* const kNotRun = "no muparser";
#endif
        std::printf("\n%-48s %8s %9s\n", "ratio of geometric means over the corpus", "ratio",
                    "target");
        for (const Target& target : kTargets) {
            double ratio = 0.0;
            if (Ratio(target.Numerator, target.Denominator, ratio)) {
                PrintVerdict(target.Label, ratio, target.AtLeast, target.Bound);
            } else {
                std::printf("%-48s %8s\n", target.Label, kNotRun);
            }
        }
        // Not a target: how much the cache adds to a new text, on the same texts.
        double share = 0.0;
        if (Ratio("once_cache_miss", "once_off_variants", share)) {
            std::printf("%-48s %8.2f\n", "cache's share of a new text: miss / off var", share);
        }
        double failing = 0.0;
        double bare = 0.0;
        const char* label = "failing call / bare throw+catch";
        if (Find("Error/unknown_variable", failing) && Find("Error/bare_throw_catch", bare)) {
            PrintVerdict(label, failing / bare, false, 2.0);
        } else {
            std::printf("%-48s %8s\n", label, "not run");
        }
    }

    static void PrintVerdict(const char* label, double ratio, bool atLeast, double bound) {
        const bool pass = atLeast ? ratio >= bound : ratio <= bound;
        std::printf("%-48s %8.2f %3s %5.1f  %s\n", label, ratio, atLeast ? ">=" : "<=", bound,
                    pass ? "PASS" : "MISS");
    }
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    if (!CheckCorpus()) return 1;
    RegisterAll();
    bench::CollectingReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    Summary(reporter.Times()).Print();
    return 0;
}
