// The cost a binding adds to a call: the same three corpus expressions computed from C++ and
// through the C interface, by text (a known text, found in the cache) and by handle. The
// Fortran module adds the copy of its texts to the C call; bindings_bench.py times Python
// against the C++ figures of this program.
#include <benchmark/benchmark.h>

#include <string>

#include "Corpus.h"
#include "capi/kalvos_c.h"
#include "evaluator/Kalvos.h"
#include "support/KalvosVars.h"

namespace {

const char* const kNames[] = {"variables", "fn_nested", "host_formula"};

std::string Text(int which) {
    for (const bench::CorpusEntry& entry : bench::Corpus()) {
        if (entry.Name == kNames[which]) return entry.KalvosText;
    }
    return "";
}

void CppText(benchmark::State& state) {
    Kalvos k;
    for (const bench::Variable& v : bench::StoreVariables()) k.GetVars().SetVarNum(v.Name, v.Value);
    const std::string text = Text(static_cast<int>(state.range(0)));
    for (auto _ : state) benchmark::DoNotOptimize(k.ComputeExpr(text));
    state.SetLabel(kNames[state.range(0)]);
}

void CppHandle(benchmark::State& state) {
    Kalvos k;
    for (const bench::Variable& v : bench::StoreVariables()) k.GetVars().SetVarNum(v.Name, v.Value);
    const Kalvos::CompiledExpr handle = k.CompileExpr(Text(static_cast<int>(state.range(0))));
    for (auto _ : state) benchmark::DoNotOptimize(k.ComputeCompiled(handle));
    state.SetLabel(kNames[state.range(0)]);
}

kalvos* CStore() {
    kalvos* k = kalvos_create();
    for (const bench::Variable& v : bench::StoreVariables()) {
        kalvos_set_num(k, v.Name.c_str(), v.Value);
    }
    return k;
}

void CText(benchmark::State& state) {
    kalvos* k = CStore();
    const std::string text = Text(static_cast<int>(state.range(0)));
    double value = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(kalvos_compute(k, text.c_str(), nullptr, &value));
        benchmark::DoNotOptimize(value);
    }
    kalvos_destroy(k);
    state.SetLabel(kNames[state.range(0)]);
}

void CHandle(benchmark::State& state) {
    kalvos* k = CStore();
    kalvos_compiled* handle = nullptr;
    kalvos_compile(k, Text(static_cast<int>(state.range(0))).c_str(), nullptr, &handle);
    double value = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(kalvos_compute_compiled(k, handle, &value));
        benchmark::DoNotOptimize(value);
    }
    kalvos_compiled_destroy(handle);
    kalvos_destroy(k);
    state.SetLabel(kNames[state.range(0)]);
}

}  // namespace

BENCHMARK(CppText)->DenseRange(0, 2);
BENCHMARK(CText)->DenseRange(0, 2);
BENCHMARK(CppHandle)->DenseRange(0, 2);
BENCHMARK(CHandle)->DenseRange(0, 2);
BENCHMARK_MAIN();
