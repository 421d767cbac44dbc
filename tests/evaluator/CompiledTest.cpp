// Compiled evaluation against the plain one: random texts from the grammar of expressions,
// valid and broken, are evaluated without a cache, from a warm cache and through a handle,
// and the three must agree in every bit (Differential.h says what is compared).
#include <string>

#include "TestSupport.h"

TEST(Compiled, AgreesWithUncachedEvaluation) {
    constexpr int kRounds = 21;
    constexpr int kTextsPerRound = 1000;  // about 2.4 evaluations each
    texts::Grammar grammar(20261123);
    for (int round = 0; round < kRounds; ++round) {
        diff::Differential d(round * 7919 - 1);
        for (int i = 0; i < kTextsPerRound; ++i) {
            const std::string text = grammar.Text();
            const bool asBool = grammar.Chance(20);
            const unsigned times = grammar.Chance(80) ? 2 : 3 + grammar.Pick(3);
            ASSERT_EQ(d.Run(text, grammar.Of(texts::kErrorTexts), asBool, times, grammar.Next()),
                      "");
        }
    }
}

TEST(Compiled, ForeignOrStaleHandleRaises) {
    Kalvos k;
    Kalvos other;
    const Kalvos::CompiledExpr handle = k.CompileExpr("1+2", " [h]");
    const Kalvos::CompiledExpr copy = handle;
    EXPECT_EQ(k.ComputeCompiled(handle), 3);
    EXPECT_EQ(k.ComputeCompiled(copy), 3);
    const std::string message =
        "The compiled expression [1+2] belongs to another evaluator or was made before Reset. [h]";
    EXPECT_RAISES(other.ComputeCompiled(handle), "ComputeCompiled", message);
    k.Reset();
    EXPECT_RAISES(k.ComputeCompiled(copy), "ComputeCompiled", message);
    EXPECT_EQ(k.ComputeCompiled(k.CompileExpr("1+2")), 3);

    Kalvos::CompiledExpr orphan;
    {
        Kalvos gone;
        orphan = gone.CompileExpr("2*3");
    }
    EXPECT_RAISES(k.ComputeCompiled(orphan), "ComputeCompiled",
                  "The compiled expression [2*3] belongs to another evaluator or was made before "
                  "Reset.");
    EXPECT_RAISES(k.ComputeCompiled(Kalvos::CompiledExpr()), "ComputeCompiled",
                  "The compiled expression [] belongs to another evaluator or was made before "
                  "Reset.");
}

// What the cache keeps: a text from its second sight on, within both limits, the oldest leaving
// first, never a text beyond the longest kept; Reset and SetCacheLimits empty it, and a zero
// entry limit keeps nothing.
TEST(Compiled, CacheKeepsWithinItsLimits) {
    Kalvos k;
    k.SetCacheLimits(3, Kalvos::kDefaultCacheBytes);
    for (const char* text : {"1+1", "2+2", "1+1+1+1+1+1+1+1", "1+1+1+1+2+1+1+1"})
        k.ComputeExpr(text);
    EXPECT_EQ(k.GetCacheCount(), 0u);  // texts that differ anywhere are different texts
    k.Reset();
    k.ComputeExpr("1+1");
    EXPECT_EQ(k.GetCacheCount(), 0u);  // Reset forgets what was seen
    for (const char* text : {"1+1", "1+1", "2+2", "2+2", "3+3", "3+3", "4+4", "4+4"})
        k.ComputeExpr(text);
    EXPECT_EQ(k.GetCacheCount(), 3u);
    const auto keep = [&k](const std::string& text) {
        for (int i = 0; i < 2; ++i) k.ComputeExpr(text);
        return k.GetCacheBytes();
    };
    k.SetCacheLimits(2, Kalvos::kDefaultCacheBytes);
    const std::size_t small = keep("2+2");
    k.SetCacheLimits(2, Kalvos::kDefaultCacheBytes);
    keep("1+1+1+1+1+1+1+1");
    keep("2+2");
    EXPECT_EQ(keep("3+3"), 2 * small);  // the large program, the oldest, has left
    k.SetCacheLimits(0, Kalvos::kDefaultCacheBytes);
    EXPECT_EQ(keep("2+2") + k.GetCacheCount(), 0u);
    k.SetCacheLimits(100, Kalvos::kDefaultCacheBytes);
    const std::string longest = "1" + std::string(Kalvos::kMaxCachedTextLength - 1, ' ');
    keep(longest);
    EXPECT_EQ(k.GetCacheCount(), 1u);
    keep(longest + " ");
    EXPECT_EQ(k.GetCacheCount(), 1u);
    k.SetCacheLimits(100, 1);  // no program fits in one byte
    for (int i = 0; i < 2; ++i) k.ComputeExpr("5+5");
    EXPECT_EQ(k.GetCacheCount() + k.GetCacheBytes(), 0u);
    k.SetCacheLimits(100, Kalvos::kDefaultCacheBytes);
    for (int i = 0; i < 2; ++i) k.ComputeExpr("5+5");
    EXPECT_EQ(k.GetCacheCount(), 1u);
    EXPECT_GT(k.GetCacheBytes(), 0u);
    k.SetCacheLimits(4096, Kalvos::kDefaultCacheBytes);
    for (int pass = 0; pass < 2; ++pass) {
        for (int i = 0; i < 1000; ++i) {
            const std::string text = std::to_string(i) + "+1";
            for (const std::string& t : {text, std::string("0"), text}) k.ComputeExpr(t);
        }
    }
    EXPECT_EQ(k.GetCacheCount(), 1001u);  // each text once, also when its first slot is taken
    k.Reset();
    EXPECT_EQ(k.GetCacheCount() + k.GetCacheBytes(), 0u);
}

// A host evaluating its formulas in turn, time step after time step, finds them all kept
// from the second step on, also those whose hashes share a slot of the table of texts seen.
TEST(Compiled, TextsEvaluatedInTurnAreAllKept) {
    Kalvos k;
    for (int step = 0; step < 2; ++step) {
        for (int i = 0; i < 500; ++i) k.ComputeExpr(std::to_string(i) + "*2");
    }
    EXPECT_EQ(k.GetCacheCount(), 500u);
}

// A program is as large as its text makes it, whatever the object compiled before.
TEST(Compiled, ProgramSizeDependsOnItsTextAlone) {
    Kalvos fresh, used;
    for (int i = 0; i < 100; ++i) (void)used.CompileExpr("v[" + std::to_string(i) + "]+w[i]");
    std::size_t grew[2] = {};
    for (Kalvos* k : {&fresh, &used}) {
        const std::size_t before = k->GetCacheBytes();
        k->GetVars().SetVarNum("x2", 1);
        for (int i = 0; i < 2; ++i) k->ComputeExpr("x[2]+1");
        grew[k == &used] = k->GetCacheBytes() - before;
    }
    EXPECT_EQ(grew[1], grew[0]);
}

// Handles computed in turn, more of them than the object holds, each with its own error text:
// every call gives its handle's value or failure and leaves its handle's texts, also once the
// copies the host made the handles from are gone.
TEST(Compiled, HandlesInTurnKeepTheirOwnTexts) {
    Kalvos k;
    k.GetVars().SetVarNum("x", 4);
    std::vector<std::pair<int, Kalvos::CompiledExpr>> handles;
    for (int i = 0; i < 12; ++i) {
        const std::string n = std::to_string(i);
        handles.emplace_back(
            i, k.CompileExpr(i % 3 == 2 ? "x / (x - 4) + " + n : "x * " + n, " [h" + n + "]"));
    }
    for (int round = 0; round < 3; ++round) {
        if (round == 2) handles.erase(handles.begin(), handles.begin() + 6);
        for (const auto& [i, h] : handles) {
            const std::string n = std::to_string(i);
            if (i % 3 == 2) {
                EXPECT_RAISES(k.ComputeCompiled(h), "ComputExpr",
                              "Evaluating [x/(x-4)+" + n + "]: Division by zero. [h" + n + "]");
            } else {
                EXPECT_EQ(k.ComputeCompiled(Kalvos::CompiledExpr(h)), 4.0 * i);
            }
            EXPECT_EQ(TextPair(k.GetExprText(), k.GetErrorText()),
                      TextPair(h.GetExprText(), h.GetErrorText()));
        }
    }
    EXPECT_EQ(k.ComputeExpr("x * 10", " [e]"), 40);  // a text after a handle
    EXPECT_EQ(TextPair(k.GetExprText(), k.GetErrorText()), TextPair("x * 10", " [e]"));
}
