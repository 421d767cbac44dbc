// One formula over many elements, the users' main workload: the formulas of BulkCorpus.h over
// 16, 1,000 and 1,000,000 elements, x a column and y a variable of the store. Rows:
//   hand      the formula written in C++, inlined into the loop: the limit;
//   bulk1     the bulk call with one thread, and bulk2 with two;
//   refloop   the loop of single calls, x written through a variable reference;
//   setloop   the same loop with SetVarNum;
//   mu_bulk   muparser's bulk Eval(results, n) on one thread (OMP_NUM_THREADS=1);
//   mu_loop   muparser's Eval() in a loop, x written through the pointer given to DefineVar.
// Every row is timed in wall-clock time per element. The summary after the run prints each row's
// geometric mean and the ratios the project holds the bulk call to. Host/... rows time a host
// function against the built-in of the same body, single calls and bulk.

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "BulkCorpus.h"
#include "Reporting.h"
#include "evaluator/Kalvos.h"
#include "support/KalvosVars.h"

#ifdef KALVOS_BENCH_MUPARSER
#include <muParser.h>
#endif

namespace {

const std::size_t kSizes[] = {16, 1000, 1000000};

const std::vector<double>& Column(std::size_t count) {
    static std::map<std::size_t, std::vector<double>> columns;
    std::vector<double>& column = columns[count];
    if (column.empty()) column = bench::BulkColumn(count);
    return column;
}

// Counts the elements, so that the console shows the rate, and keeps the output alive.
void Finish(benchmark::State& state, std::size_t count, std::vector<double>& out) {
    benchmark::DoNotOptimize(out.data());
    state.SetItemsProcessed(state.iterations() * static_cast<benchmark::IterationCount>(count));
}

void Hand(benchmark::State& state, const bench::BulkEntry& entry, std::size_t count) {
    const std::vector<double>& xs = Column(count);
    std::vector<double> out(count);
    volatile double opaque = bench::kBulkY;  // a value the compiler does not know
    for (auto _ : state) {
        entry.HandLoop(xs.data(), opaque, out.data(), count);
        benchmark::ClobberMemory();
    }
    Finish(state, count, out);
}

std::unique_ptr<Kalvos> MakeKalvos() {
    auto kalvos = std::make_unique<Kalvos>();
    kalvos->GetVars().SetVarNum("y", bench::kBulkY);
    kalvos->GetVars().SetVarNum("x", 0.0);
    return kalvos;
}

void Bulk(benchmark::State& state, const bench::BulkEntry& entry, std::size_t count,
          unsigned int threads) {
    const std::vector<double>& xs = Column(count);
    std::vector<double> out(count);
    auto kalvos = MakeKalvos();
    kalvos->SetThreads(threads);
    const Kalvos::CompiledExpr formula = kalvos->CompileExpr(entry.KalvosText);
    const std::vector<Kalvos::Column> columns = {{"x", xs.data()}};
    for (auto _ : state) kalvos->ComputeCompiled(formula, count, columns, out.data());
    Finish(state, count, out);
}

void Bulk1(benchmark::State& state, const bench::BulkEntry& entry, std::size_t count) {
    Bulk(state, entry, count, 1);
}

void Bulk2(benchmark::State& state, const bench::BulkEntry& entry, std::size_t count) {
    Bulk(state, entry, count, 2);
}

void ReferenceLoop(benchmark::State& state, const bench::BulkEntry& entry, std::size_t count) {
    const std::vector<double>& xs = Column(count);
    std::vector<double> out(count);
    auto kalvos = MakeKalvos();
    const Kalvos::CompiledExpr formula = kalvos->CompileExpr(entry.KalvosText);
    KalvosVars::NumRef x = kalvos->GetVars().GetNumRef("x");
    for (auto _ : state) {
        for (std::size_t i = 0; i < count; ++i) {
            x.Set(xs[i]);
            out[i] = kalvos->ComputeCompiled(formula);
        }
    }
    Finish(state, count, out);
}

void SetLoop(benchmark::State& state, const bench::BulkEntry& entry, std::size_t count) {
    const std::vector<double>& xs = Column(count);
    std::vector<double> out(count);
    auto kalvos = MakeKalvos();
    const Kalvos::CompiledExpr formula = kalvos->CompileExpr(entry.KalvosText);
    const std::string name = "x";
    for (auto _ : state) {
        for (std::size_t i = 0; i < count; ++i) {
            kalvos->GetVars().SetVarNum(name, xs[i]);
            out[i] = kalvos->ComputeCompiled(formula);
        }
    }
    Finish(state, count, out);
}

// A host function against the built-in of the same body, called as a single call through a
// reference's loop and as a bulk call, over 1,000 elements: what calling the host's code costs.
struct HostPair {
    const char* Name;
    const char* Builtin;
    const char* Host;
};
const HostPair kHostPairs[] = {{"sqrt", "sqrt(x)", "hsqrt(x)"}, {"sin", "sin(x)", "hsin(x)"}};
constexpr std::size_t kHostCount = 1000;

std::unique_ptr<Kalvos> MakeHostKalvos() {
    auto kalvos = MakeKalvos();
    kalvos->DefineFunction(
        "hsqrt", 1, 1, [](const double* p, unsigned int) { return std::sqrt(p[0]); }, true, true);
    kalvos->DefineFunction(
        "hsin", 1, 1, [](const double* p, unsigned int) { return std::sin(p[0]); }, true, true);
    return kalvos;
}

void HostSingle(benchmark::State& state, const std::string& text) {
    const std::vector<double>& xs = Column(kHostCount);
    std::vector<double> out(kHostCount);
    auto kalvos = MakeHostKalvos();
    const Kalvos::CompiledExpr formula = kalvos->CompileExpr(text);
    KalvosVars::NumRef x = kalvos->GetVars().GetNumRef("x");
    for (auto _ : state) {
        for (std::size_t i = 0; i < kHostCount; ++i) {
            x.Set(xs[i]);
            out[i] = kalvos->ComputeCompiled(formula);
        }
    }
    Finish(state, kHostCount, out);
}

void HostBulk(benchmark::State& state, const std::string& text) {
    const std::vector<double>& xs = Column(kHostCount);
    std::vector<double> out(kHostCount);
    auto kalvos = MakeHostKalvos();
    const Kalvos::CompiledExpr formula = kalvos->CompileExpr(text);
    const std::vector<Kalvos::Column> columns = {{"x", xs.data()}};
    for (auto _ : state) kalvos->ComputeCompiled(formula, kHostCount, columns, out.data());
    Finish(state, kHostCount, out);
}

std::string HostRowName(const char* row, const char* pair) {
    return std::string("Host/") + row + "/" + pair;
}

#ifdef KALVOS_BENCH_MUPARSER

// A parser set up as a muparser host does, with the "!" operator it lacks.
void Define(mu::Parser& parser, const std::string& text) {
    parser.DefineInfixOprt("!", [](double v) { return v == 0.0 ? 1.0 : 0.0; });
    parser.SetExpr(text);
}

// In bulk mode muparser reads every variable as an array, y included.
void MuBulk(benchmark::State& state, const bench::BulkEntry& entry, std::size_t count) {
    std::vector<double> xs = Column(count);
    std::vector<double> ys(count, bench::kBulkY);
    std::vector<double> out(count);
    mu::Parser parser;
    parser.DefineVar("x", xs.data());
    parser.DefineVar("y", ys.data());
    Define(parser, entry.MuparserText);
    for (auto _ : state) parser.Eval(out.data(), static_cast<int>(count));
    Finish(state, count, out);
}

void MuLoop(benchmark::State& state, const bench::BulkEntry& entry, std::size_t count) {
    const std::vector<double>& xs = Column(count);
    std::vector<double> out(count);
    double x = 0.0;
    double y = bench::kBulkY;
    mu::Parser parser;
    parser.DefineVar("x", &x);
    parser.DefineVar("y", &y);
    Define(parser, entry.MuparserText);
    for (auto _ : state) {
        for (std::size_t i = 0; i < count; ++i) {
            x = xs[i];
            out[i] = parser.Eval();
        }
    }
    Finish(state, count, out);
}

#endif

struct Row {
    const char* Name;
    void (*Run)(benchmark::State&, const bench::BulkEntry&, std::size_t);
};

const Row kRows[] = {
    {"hand", Hand},       {"bulk1", Bulk1},    {"bulk2", Bulk2}, {"refloop", ReferenceLoop},
    {"setloop", SetLoop},
#ifdef KALVOS_BENCH_MUPARSER
    {"mu_bulk", MuBulk},  {"mu_loop", MuLoop},
#endif
};

std::string RowName(const std::string& row, const std::string& entry, std::size_t count) {
    return "Bulk/" + row + "/" + entry + "/" + std::to_string(count);
}

// Every path must give the hand-written value, bit for bit; muparser within rounding.
bool CheckCorpus() {
    bool ok = true;
    const std::size_t count = 1000;
    const std::vector<double>& xs = Column(count);
    for (const bench::BulkEntry& entry : bench::BulkCorpus()) {
        auto kalvos = MakeKalvos();
        const Kalvos::CompiledExpr formula = kalvos->CompileExpr(entry.KalvosText);
        std::vector<double> out(count);
        kalvos->ComputeCompiled(formula, count, {{"x", xs.data()}}, out.data());
        for (std::size_t i = 0; i < count; ++i) {
            const double hand = entry.Hand(xs[i], bench::kBulkY);
            kalvos->GetVars().SetVarNum("x", xs[i]);
            const double single = kalvos->ComputeCompiled(formula);
            if (hand != out[i] || single != out[i]) {
                std::fprintf(stderr, "%s, x = %.17g: by hand %.17g, bulk %.17g, single %.17g\n",
                             entry.Name.c_str(), xs[i], hand, out[i], single);
                ok = false;
                break;
            }
        }
#ifdef KALVOS_BENCH_MUPARSER
        double x = xs[7];
        double y = bench::kBulkY;
        mu::Parser parser;
        parser.DefineVar("x", &x);
        parser.DefineVar("y", &y);
        Define(parser, entry.MuparserText);
        const double mu = parser.Eval();
        if (std::fabs(mu - out[7]) > 1e-12 * std::max(1.0, std::fabs(mu))) {
            std::fprintf(stderr, "%s: muparser gives %.17g, Kalvos %.17g\n", entry.Name.c_str(), mu,
                         out[7]);
            ok = false;
        }
#endif
    }
    return ok;
}

void RegisterAll() {
    for (const HostPair& pair : kHostPairs) {
        const std::pair<const char*, const char*> rows[] = {{"builtin", pair.Builtin},
                                                            {"host", pair.Host}};
        for (const auto& [row, text] : rows) {
            benchmark::RegisterBenchmark(
                HostRowName((std::string(row) + "_single").c_str(), pair.Name).c_str(), HostSingle,
                std::string(text))
                ->UseRealTime();
            benchmark::RegisterBenchmark(
                HostRowName((std::string(row) + "_bulk").c_str(), pair.Name).c_str(), HostBulk,
                std::string(text))
                ->UseRealTime();
        }
    }
    for (const Row& row : kRows) {
        for (const std::size_t count : kSizes) {
            for (const bench::BulkEntry& entry : bench::BulkCorpus()) {
                benchmark::RegisterBenchmark(RowName(row.Name, entry.Name, count).c_str(), row.Run,
                                             entry, count)
                    ->UseRealTime();
            }
        }
    }
}

class Summary {
public:
    explicit Summary(std::map<std::string, double> times) : Times(std::move(times)) {}

    void Print() const {
        for (const std::size_t count : kSizes) PrintTable(count);
        std::printf("\n%-52s %8s %9s\n", "ratio of geometric means", "ratio", "target");
        Verdict("bulk, 1 thread / hand-written (1,000,000)", "bulk1", "hand", 1000000, false, 1.5);
        Verdict("muparser bulk / bulk, 1 thread (1,000,000)", "mu_bulk", "bulk1", 1000000, true,
                5.0);
        Verdict("bulk, 1 thread / 2 threads (1,000,000)", "bulk1", "bulk2", 1000000, true, 1.8);
        Verdict("reference loop / muparser Eval() loop (1,000,000)", "refloop", "mu_loop", 1000000,
                false, 0.7);
        Verdict("bulk, 1 thread / reference loop (16)", "bulk1", "refloop", 16, false, 1.0);
        for (const char* way : {"single", "bulk"}) {
            HostVerdict(way);
        }
    }

private:
    std::map<std::string, double> Times;

    // Nanoseconds per element.
    bool PerElement(const std::string& row, const std::string& entry, std::size_t count,
                    double& ns) const {
        const auto it = Times.find(RowName(row, entry, count));
        if (it == Times.end() || !(it->second > 0.0)) return false;
        ns = it->second / static_cast<double>(count);
        return true;
    }

    bool GeoMean(const std::string& row, std::size_t count, double& mean) const {
        double logSum = 0.0;
        int n = 0;
        for (const bench::BulkEntry& entry : bench::BulkCorpus()) {
            double ns = 0.0;
            if (!PerElement(row, entry.Name, count, ns)) return false;
            logSum += std::log(ns);
            ++n;
        }
        mean = std::exp(logSum / n);
        return n > 0;
    }

    void PrintTable(std::size_t count) const {
        std::printf("\nns per element, %zu elements\n%-14s", count, "formula");
        for (const Row& row : kRows) std::printf(" %9s", row.Name);
        std::printf("\n");
        for (const bench::BulkEntry& entry : bench::BulkCorpus()) {
            std::printf("%-14s", entry.Name.c_str());
            for (const Row& row : kRows) {
                double ns = 0.0;
                if (PerElement(row.Name, entry.Name, count, ns)) {
                    std::printf(" %9.3f", ns);
                } else {
                    std::printf(" %9s", "-");
                }
            }
            std::printf("\n");
        }
        std::printf("%-14s", "geomean");
        for (const Row& row : kRows) {
            double mean = 0.0;
            if (GeoMean(row.Name, count, mean)) {
                std::printf(" %9.3f", mean);
            } else {
                std::printf(" %9s", "-");
            }
        }
        std::printf("\n");
    }

    // A host function's call over the built-in's, by the geometric mean over the bodies.
    void HostVerdict(const std::string& way) const {
        double logSum = 0.0;
        for (const HostPair& pair : kHostPairs) {
            const auto host = Times.find(HostRowName(("host_" + way).c_str(), pair.Name));
            const auto builtin = Times.find(HostRowName(("builtin_" + way).c_str(), pair.Name));
            if (host == Times.end() || builtin == Times.end()) {
                std::printf("%-52s %8s\n", ("host function / built-in, " + way).c_str(), "not run");
                return;
            }
            logSum += std::log(host->second / builtin->second);
        }
        const double ratio = std::exp(logSum / static_cast<double>(std::size(kHostPairs)));
        std::printf("%-52s %8.2f %3s %5.1f  %s\n", ("host function / built-in, " + way).c_str(),
                    ratio, "<=", 1.5, ratio <= 1.5 ? "PASS" : "MISS");
    }

    void Verdict(const char* label, const char* numerator, const char* denominator,
                 std::size_t count, bool atLeast, double bound) const {
        double top = 0.0;
        double bottom = 0.0;
        if (!GeoMean(numerator, count, top) || !GeoMean(denominator, count, bottom)) {
            std::printf("%-52s %8s\n", label, "not run");
            return;
        }
        const double ratio = top / bottom;
        const bool pass = atLeast ? ratio >= bound : ratio <= bound;
        std::printf("%-52s %8.2f %3s %5.1f  %s\n", label, ratio, atLeast ? ">=" : "<=", bound,
                    pass ? "PASS" : "MISS");
    }
};

}  // namespace

int main(int argc, char** argv) {
    // muparser's bulk call is timed on one thread, as the bulk call is in its first row.
    setenv("OMP_NUM_THREADS", "1", 1);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    if (!CheckCorpus()) return 1;
    RegisterAll();
    bench::CollectingReporter reporter(true);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    Summary(reporter.Times()).Print();
    return 0;
}
