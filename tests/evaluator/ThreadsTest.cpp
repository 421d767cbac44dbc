// Separate evaluators on separate threads share no writable state: eight threads, each with
// its own object, evaluate one list of texts and get exactly what one thread gets alone, to
// the last bit and the last character of every message. Under ThreadSanitizer this also
// shows that nothing shared (the catalogue, the locale of the number conversion) is written.
#include <atomic>
#include <thread>
#include <vector>

#include "BulkDifferential.h"
#include "TestSupport.h"

namespace {

// Every fifth text is expanded as a string expression and every fifth evaluated as a
// condition; the draws follow "randinit", so every object draws the same numbers.
std::vector<std::string> RunAll(const std::vector<std::string>& texts) {
    Kalvos k;
    reference::FillStore(k.GetVars());
    (void)k.ComputeExpr("randinit(42)");
    std::vector<std::string> outcomes;
    for (std::size_t i = 0; i < texts.size(); ++i) {
        try {
            outcomes.push_back(i % 5 == 0   ? k.ComputeExprStr(texts[i], " (threads)")
                               : i % 5 == 1 ? std::to_string(k.ComputeExprBool(texts[i]))
                                            : std::to_string(BitsOf(k.ComputeExpr(texts[i]))));
        } catch (const JException& e) {
            outcomes.push_back(e.GetMethod() + ": " + e.GetText());
        }
    }
    return outcomes;
}

}  // namespace

TEST(Threads, SeparateObjectsGiveTheResultsOfOneThread) {
    texts::Grammar grammar(7);
    std::vector<std::string> texts = {"$[w].dat", "rand() < 0.5", "1/0"};
    for (int i = 0; i < 500; ++i) texts.push_back(grammar.Text());
    const std::vector<std::string> expected = RunAll(texts);
    EXPECT_EQ(expected[0], "5.dat");
    EXPECT_EQ(expected[2], "ComputExpr: Evaluating [1/0]: Division by zero.");

    constexpr int kThreads = 8;
    std::vector<std::vector<std::string>> results(kThreads);
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            ++ready;  // start together, so that the evaluations overlap
            while (ready.load() < kThreads) std::this_thread::yield();
            results[static_cast<std::size_t>(t)] = RunAll(texts);
        });
    }
    for (std::thread& thread : threads) thread.join();
    for (int t = 0; t < kThreads; ++t)
        EXPECT_EQ(results[static_cast<std::size_t>(t)], expected) << "thread " << t;
}

// A bulk call on several threads is its loop too: the same results, the same first failure and
// the same store afterwards for every thread count. Under ThreadSanitizer this also shows that
// the threads share nothing they write but the output, each its own part of it.
TEST(Threads, BulkCallsAgreeWithTheirLoopOnEveryThreadCount) {
    texts::Grammar grammar(31);
    diff::BulkDifferential d(5);
    const char* const formulas[] = {"(a + x / a) * (x - a / x)", "sin(x) + sqrt(x) * b",
                                    "x < a @@ !(x == 1) || -x"};
    for (int i = 0; i < 24; ++i) {
        diff::BulkCase c;
        c.Text = i % 4 == 3 ? grammar.Text() : formulas[i % 3];
        c.Columns = {{"x", i % 2 == 0 ? 8u : 24u}};
        c.Count = 40000 + static_cast<std::size_t>(i);
        c.Threads = 2 + static_cast<unsigned int>(i % 3);
        c.InPlace = i % 5 == 0;
        c.Values = grammar.Next();
        // A division by zero, or a square root of a negative number, late in the call.
        if (i % 3 != 2)
            c.Placed = {{30000 + static_cast<std::size_t>(i) * 7, -static_cast<double>(i % 3)}};
        ASSERT_EQ(d.Run(c), "");
    }
}
