// Inputs an attacker or a broken file could hand to a host: each must end, in a value or in a
// JException, within bounded time and memory. Every case is timed, and run once more on a
// thread of its own whose stack is painted beforehand, to report as counters the peak heap
// (a counting operator new), the allocations, the stack used and whether the call raised.

#include <benchmark/benchmark.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include "evaluator/Kalvos.h"
#include "support/KalvosVars.h"

// Heap accounting: every block carries its size in a header in front of it, so that delete
// can subtract it again. The peak is the most bytes alive at once since the last reset.
namespace {

std::atomic<std::size_t> gLive{0};
std::atomic<std::size_t> gPeak{0};
std::atomic<std::size_t> gCount{0};
constexpr std::size_t kHeader = alignof(std::max_align_t);

void* Allocate(std::size_t size) {
    void* block = std::malloc(size + kHeader);
    if (block == nullptr) throw std::bad_alloc();
    *static_cast<std::size_t*>(block) = size;
    const std::size_t live = gLive.fetch_add(size, std::memory_order_relaxed) + size;
    std::size_t peak = gPeak.load(std::memory_order_relaxed);
    while (live > peak && !gPeak.compare_exchange_weak(peak, live, std::memory_order_relaxed)) {
    }
    gCount.fetch_add(1, std::memory_order_relaxed);
    return static_cast<char*>(block) + kHeader;
}

void Release(void* pointer) noexcept {
    if (pointer == nullptr) return;
    void* block = static_cast<char*>(pointer) - kHeader;
    gLive.fetch_sub(*static_cast<std::size_t*>(block), std::memory_order_relaxed);
    std::free(block);
}

}  // namespace

void* operator new(std::size_t size) { return Allocate(size); }
void* operator new[](std::size_t size) { return Allocate(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return Allocate(size);
    } catch (...) {
        return nullptr;
    }
}
void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept {
    return operator new(size, tag);
}
void operator delete(void* pointer) noexcept { Release(pointer); }
void operator delete[](void* pointer) noexcept { Release(pointer); }
void operator delete(void* pointer, std::size_t) noexcept { Release(pointer); }
void operator delete[](void* pointer, std::size_t) noexcept { Release(pointer); }
void operator delete(void* pointer, const std::nothrow_t&) noexcept { Release(pointer); }
void operator delete[](void* pointer, const std::nothrow_t&) noexcept { Release(pointer); }

namespace {

enum class Entry { Expr, Str };
enum class Ends { InValue, InException };

struct Case {
    const char* Name;
    Entry Kind;
    Ends Expected;
    std::string Text;
    std::vector<std::pair<std::string, std::string>> TextVars;
};

// A case that ends otherwise than expected fails the run, so that the smoke test notices.
std::atomic<int> gUnexpected{0};

struct Outcome {
    bool Threw = false;
    std::size_t Bytes = 0;  // of the result, or of the exception's message
};

Outcome Run(Kalvos& kalvos, Entry kind, std::string text) {
    Outcome outcome;
    try {
        if (kind == Entry::Expr) {
            benchmark::DoNotOptimize(kalvos.ComputeExpr(std::move(text)));
            outcome.Bytes = sizeof(double);
        } else {
            outcome.Bytes = kalvos.ComputeExprStr(std::move(text)).size();
        }
    } catch (const JException& e) {
        outcome.Threw = true;
        outcome.Bytes = e.GetText().size();
    }
    return outcome;
}

void Prepare(Kalvos& kalvos, const Case& hostile) {
    kalvos.GetVars().SetVarNum("a", 1.5);
    for (const auto& [name, value] : hostile.TextVars) kalvos.GetVars().SetVarStr(name, value);
}

// A host thread's usual stack; the probe fails loudly rather than overflow it unnoticed.
constexpr std::size_t kProbeStack = std::size_t{8} << 20;
constexpr unsigned char kPaint = 0xA5;

struct Probe {
    Kalvos* Target;
    const Case* Hostile;
    Outcome Result;
    std::size_t HeapPeak = 0;
    std::size_t Allocations = 0;
};

void* ProbeThread(void* argument) {
    Probe& probe = *static_cast<Probe*>(argument);
    std::string text = probe.Hostile->Text;  // the caller's copy, made before the count starts
    const std::size_t liveBefore = gLive.load();
    gPeak.store(liveBefore);
    const std::size_t countBefore = gCount.load();
    probe.Result = Run(*probe.Target, probe.Hostile->Kind, std::move(text));
    probe.HeapPeak = gPeak.load() - liveBefore;
    probe.Allocations = gCount.load() - countBefore;
    return nullptr;
}

// Runs the case once on a painted stack; the deepest byte no longer painted is how far the
// stack grew.
void Measure(benchmark::State& state, Kalvos& kalvos, const Case& hostile) {
    std::vector<unsigned char> stack(kProbeStack, kPaint);
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setstack(&attr, stack.data(), stack.size());
    Probe probe{&kalvos, &hostile, {}, 0, 0};
    pthread_t thread;
    if (pthread_create(&thread, &attr, ProbeThread, &probe) != 0) {
        state.SkipWithError("pthread_create failed");
        return;
    }
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attr);
    if (probe.Result.Threw != (hostile.Expected == Ends::InException)) {
        ++gUnexpected;
        state.SkipWithError(probe.Result.Threw ? "raised, a value was expected"
                                               : "gave a value, a JException was expected");
    }
    std::size_t untouched = 0;
    while (untouched < stack.size() && stack[untouched] == kPaint) ++untouched;
    state.counters["threw"] = probe.Result.Threw ? 1 : 0;
    state.counters["out_B"] = static_cast<double>(probe.Result.Bytes);
    state.counters["heap_peak_B"] = static_cast<double>(probe.HeapPeak);
    state.counters["allocs"] = static_cast<double>(probe.Allocations);
    state.counters["stack_B"] = static_cast<double>(stack.size() - untouched);
}

void Hostile(benchmark::State& state, const Case& hostile) {
    Kalvos kalvos;
    Prepare(kalvos, hostile);
    for (auto _ : state) {
        std::string text = hostile.Text;  // copying a MiB is the caller's cost: not timed
        const auto start = std::chrono::steady_clock::now();
        benchmark::DoNotOptimize(Run(kalvos, hostile.Kind, std::move(text)));
        const auto stop = std::chrono::steady_clock::now();
        state.SetIterationTime(std::chrono::duration<double>(stop - start).count());
    }
    Measure(state, kalvos, hostile);
}

std::string Repeat(const std::string& piece, std::size_t times) {
    std::string text;
    text.reserve(piece.size() * times);
    for (std::size_t i = 0; i < times; ++i) text += piece;
    return text;
}

std::string NestedCalls(const std::string& open, unsigned int levels) {
    return Repeat(open, levels) + "1" + std::string(levels, ')');
}

std::vector<Case> Cases() {
    constexpr std::size_t kMiB = std::size_t{1} << 20;
    std::string highBytes = "1+";
    for (int c = 0x80; c <= 0xFF; ++c) highBytes += static_cast<char>(c);
    std::vector<std::pair<std::string, std::string>> doubling;
    constexpr int kLevels = 40;  // 2^40 characters if nothing stopped it
    for (int i = 0; i < kLevels; ++i) {
        doubling.emplace_back("a" + std::to_string(i), i + 1 == kLevels
                                                           ? std::string("xy")
                                                           : "[a" + std::to_string(i + 1) + "][a" +
                                                                 std::to_string(i + 1) + "]");
    }
    return {
        {"open_parens_1MiB", Entry::Expr, Ends::InException, std::string(kMiB, '('), {}},
        {"one_plus_1MiB", Entry::Expr, Ends::InException, Repeat("1+", kMiB / 2), {}},
        {"nested_parens_1M", Entry::Expr, Ends::InException, NestedCalls("(", 1000000), {}},
        {"nested_sin_at_bound",
         Entry::Expr,
         Ends::InValue,
         NestedCalls("sin(", Kalvos::kMaxNesting),
         {}},
        {"nested_sin_beyond_bound",
         Entry::Expr,
         Ends::InException,
         NestedCalls("sin(", Kalvos::kMaxNesting + 1),
         {}},
        {"nested_max10_at_bound",
         Entry::Expr,
         Ends::InValue,
         NestedCalls("max(1,2,3,4,5,6,7,8,9,", Kalvos::kMaxNesting),
         {}},
        {"literal_100k_digits", Entry::Expr, Ends::InException, std::string(100000, '7'), {}},
        {"literal_100k_zeros", Entry::Expr, Ends::InValue, std::string(99999, '0') + "1", {}},
        {"markers_100k", Entry::Str, Ends::InValue, Repeat("[a]", 100000), {}},
        {"self_reference", Entry::Str, Ends::InException, "[s]", {{"s", "[s]"}}},
        {"doubling_40", Entry::Str, Ends::InException, "[a0]", doubling},
        {"high_bytes_expr", Entry::Expr, Ends::InException, highBytes, {}},
        {"high_bytes_marker", Entry::Str, Ends::InException, "[" + highBytes + "]", {}},
        {"nul_expr", Entry::Expr, Ends::InException, std::string("1+2\0+3", 6), {}},
        {"nul_marker", Entry::Str, Ends::InException, std::string("x[a\0]y", 6), {}},
    };
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    static const std::vector<Case> cases = Cases();
    for (const Case& hostile : cases) {
        benchmark::RegisterBenchmark((std::string("Hostile/") + hostile.Name).c_str(), Hostile,
                                     std::cref(hostile))
            ->UseManualTime()
            ->Unit(benchmark::kMicrosecond);
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return gUnexpected.load() == 0 ? 0 : 1;
}
