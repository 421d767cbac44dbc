// Separate evaluators on separate threads share no writable state: eight threads, each with
// its own object, evaluate one list of texts and get exactly what one thread gets alone, to
// the last bit and the last character of every message. Under ThreadSanitizer this also
// shows that nothing shared (the catalogue, the locale of the number conversion) is written.
#include <atomic>
#include <thread>
#include <vector>

#include "TestSupport.h"

namespace {

// A text beginning with "$" is a string expression, one beginning with "?" a condition. The
// draws follow "randinit", so every object draws the same numbers.
const char* const kTexts[] = {
    "2 * max(a, 3) + 1",
    "x[1] + m[1][2] * 0.1",
    "-a / b + !0 @@ a >= b || a == 1",
    "sin(pi()/3) + sindg(30) + exp(1.5) + log10(3) + pow(2, 0.5) + float(0.1)",
    "wavelength(9.81, 10, 5) + roundposx(3.3) + roundpos(2.6, 0, 0.5) + eval(a, 1, 2)",
    "1 / 0",
    "sqrt(-1)",
    "nothing + 1",
    "(1 + 2",
    "1 +* 2",
    "max(1)",
    "x[-1]",
    "1e5",
    "randinit(42)",
    "rand() + rand(-5, 5) * randint(1, 6)",
    "?rand() < 0.5",
    "?#0",
    "?a > 4",
    "$[a].dat",
    "$Level [a] of [r], [txt] and [w]",
    "$[missing]",
};

std::string Outcome(Kalvos& k, const std::string& text) {
    try {
        if (text[0] == '$') return k.ComputeExprStr(text, " (threads)");
        if (text[0] == '?') return k.ComputeExprBool(text.substr(1), " (threads)") ? "T" : "F";
        return std::to_string(Bits(k.ComputeExpr(text, " (threads)")));
    } catch (const JException& e) {
        return e.GetMethod() + ": " + e.GetText();
    }
}

std::vector<std::string> RunAll() {
    Kalvos k;
    const std::pair<const char*, double> numbers[] = {
        {"a", 5}, {"b", -2.5}, {"r", 0.1}, {"x1", 1.5}, {"m12", 12}, {"Dp", 0.25}, {"PosMin_x", 1}};
    for (const auto& [name, value] : numbers) k.GetVars().SetVarNum(name, value);
    k.GetVars().SetVarStr("txt", "hello");
    k.GetVars().SetVarStr("w", "[a]");
    std::vector<std::string> outcomes;
    for (int round = 0; round < 10; ++round) {
        for (const char* text : kTexts) outcomes.push_back(Outcome(k, text));
    }
    return outcomes;
}

}  // namespace

TEST(Threads, SeparateObjectsGiveTheResultsOfOneThread) {
    const std::vector<std::string> expected = RunAll();
    EXPECT_EQ(expected[5], "ComputExpr: Evaluating [1/0]: Division by zero. (threads)");
    EXPECT_EQ(expected[18], "5.dat");

    constexpr int kThreads = 8;
    std::vector<std::vector<std::string>> results(kThreads);
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            ++ready;  // start together, so that the evaluations overlap
            while (ready.load() < kThreads) std::this_thread::yield();
            results[static_cast<std::size_t>(t)] = RunAll();
        });
    }
    for (std::thread& thread : threads) thread.join();
    for (int t = 0; t < kThreads; ++t)
        EXPECT_EQ(results[static_cast<std::size_t>(t)], expected) << "thread " << t;
}
