// Compiled evaluation against the plain one: random texts from the grammar of expressions,
// valid and broken, are evaluated without a cache, from a warm cache and through a handle,
// and the three must agree in every bit (Differential.h says what is compared).
#include <random>
#include <string>

#include "Differential.h"
#include "TestSupport.h"

namespace {

const char* const kNumbers[] = {"0",   "1",    "2",    "3",      "10",  "2.5",
                                "5.",  "007",  "1e+3", "2E-2",   "0.5", "1e+308",
                                "710", "1000", "-1",   "123456", "1.25"};
const char* const kBadNumbers[] = {"1e5", "1e+400", "1.5.2", "1e", "1e+", "1E+x", "2e-"};
const char* const kOperators[] = {
    "!", "*", "/", "+", "-", "==", "!=", "<", ">", "<=", ">=", "@@", "||"};
// Characters that begin no token or stand where no operator may, '%' among them since
// messages are formatted.
const char* const kMisplaced[] = {"=", "@", "|", "&&", "%",  "%s%n", "$", "?",
                                  ".", ",", "]", "*/", "+*", "<>",   "\t"};
// Indices that name existing variables (x0, x1, x2 and m1, m12), and ones that do not.
const char* const kIndices[] = {"0", "1", "2", "1+1", "2.9", "-0.5", "x0*2", "1.9"};
const char* const kFirstIndices[] = {"1", "1.9", "x0*2", "0.5+0.5"};
const char* const kBadIndices[] = {"-1", "nan", "inf", "2147483648", "10", "1/0", "3"};
const char* const kKeywords[] = {"true", "TRUE", "True", "false", "FALSE", "fAlSe"};
const char* const kUnknownFunctions[] = {"foo", "Sin", "MAX", "pi_"};
const char* const kBoolLiterals[] = {"", "#", "1", "0", "true", "#False", " true", "TRUE "};
const char* const kErrorTexts[] = {"", " [test]", " at %s line %d%%", "\n100%"};

class Grammar {
public:
    explicit Grammar(std::uint32_t seed) : Rng(seed) {}

    std::uint32_t Next() { return static_cast<std::uint32_t>(Rng()); }
    unsigned Pick(std::size_t n) { return static_cast<unsigned>(Next() % n); }
    bool Chance(unsigned percent) { return Pick(100) < percent; }
    template <typename T, std::size_t N>
    const T& Of(const T (&pool)[N]) {
        return pool[Pick(N)];
    }

    std::string Text() {
        const unsigned kind = Pick(1000);
        if (kind < 10) return Of(kBoolLiterals);
        if (kind < 20) return "1" + Repeat("+1", 45 + Pick(10));  // around 100 elements
        if (kind < 23) return Deep();
        if (kind < 25) return Long();
        std::string text = Expr(3);
        if (Chance(8)) Mutate(text);
        if (Chance(30)) text.insert(Pick(text.size() + 1), Chance(80) ? " " : "  ");
        if (Chance(5)) text.insert(0, Chance(70) ? "#" : " #");
        return text;
    }

private:
    // operand { operator operand }, with a misplaced token now and then.
    std::string Expr(int depth) {
        std::string text = Operand(depth);
        for (unsigned n = Pick(3); n > 0; --n) {
            text += Chance(98) ? Of(kOperators) : Of(kMisplaced);
            text += Operand(depth);
        }
        return text;
    }

    std::string Operand(int depth) {
        switch (Pick(depth > 0 ? 9 : 5)) {
            case 0:
            case 1:
                return Chance(95) ? Of(kNumbers) : Of(kBadNumbers);
            case 2:
                return Of(diff::kNames);
            case 3:
                return Of(kKeywords);
            case 4:
                if (Chance(50)) return "x[" + Index(depth, kIndices) + "]";
                return "m[" + Index(depth, kFirstIndices) + "]" +
                       (Chance(60) ? "[" + Index(depth, kIndices) + "]" : "");
            case 5:
                return std::string(1 + Pick(3), Chance(50) ? '-' : '!') + Operand(depth - 1);
            case 6:
                return "(" + Expr(depth - 1) + (Chance(99) ? ")" : "");
            default:
                return Call(depth - 1);
        }
    }

    template <std::size_t N>
    std::string Index(int depth, const char* const (&good)[N]) {
        const unsigned kind = Pick(100);
        return kind < 85 ? Of(good) : kind < 93 ? Of(kBadIndices) : Expr(depth - 1);
    }

    // A function of the catalogue with an accepted count, mostly; else a wrong count, an
    // eleventh parameter, empty parameters or an unknown name.
    std::string Call(int depth) {
        const Kalvos::FunctionInfo f = Kalvos::GetFunction(Pick(Kalvos::GetFunctionCount()));
        std::string name(f.Name);
        unsigned count = f.MinParams + Pick(f.MaxParams - f.MinParams + 1);
        if (Chance(5)) name = Of(kUnknownFunctions);
        if (Chance(5)) count = Chance(50) ? count + 1 : Kalvos::kMaxParameters + 1;
        std::string text = name + "(";
        for (unsigned i = 0; i < count; ++i) {
            if (i > 0) text += ",";
            if (!Chance(2)) text += Expr(depth);
        }
        return text + (Chance(3) ? ",)" : ")");
    }

    // One bracket, parenthesis or parameter level on either side of the nesting bound.
    std::string Deep() {
        const std::size_t levels = Kalvos::kMaxNesting - 1 + Pick(3);
        if (Chance(33)) return Nest("(", levels, "1", ")");
        if (Chance(50)) return Nest("abs(-", levels, "rand()", ")");
        return Nest("x[", levels, "0", "]");
    }

    // Beyond the longest text a cache keeps, still valid: 100-element groups added up.
    std::string Long() {
        std::string text = "0";
        while (text.size() <= Kalvos::kMaxCachedTextLength + 100) {
            text += "+(" + Repeat("1+", 40 + Pick(9)) + "rand())";
        }
        return text;
    }

    void Mutate(std::string& text) {
        const std::size_t at = Pick(text.size() + 1);
        if (Chance(50) && at < text.size()) {
            text.erase(at, 1);
        } else {
            text.insert(at, 1, "()[],+-!#%e."[Pick(12)]);
        }
    }

    std::mt19937 Rng;
};

}  // namespace

TEST(Compiled, AgreesWithUncachedEvaluation) {
    constexpr int kRounds = 21;
    constexpr int kTextsPerRound = 1000;  // about 2.4 evaluations each
    Grammar grammar(20261123);
    for (int round = 0; round < kRounds; ++round) {
        diff::Differential d(round * 7919 - 1);
        for (int i = 0; i < kTextsPerRound; ++i) {
            const std::string text = grammar.Text();
            const bool asBool = grammar.Chance(20);
            const unsigned times = grammar.Chance(80) ? 2 : 3 + grammar.Pick(3);
            ASSERT_EQ(d.Run(text, grammar.Of(kErrorTexts), asBool, times, grammar.Next()), "");
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
    EXPECT_EQ(CatchRaise([&] { k.ComputeCompiled(orphan); }).GetMethod(), "ComputeCompiled");
    EXPECT_EQ(CatchRaise([&] { k.ComputeCompiled(Kalvos::CompiledExpr()); }).GetMethod(),
              "ComputeCompiled");
}

// What the cache keeps: a text from its second sight on, within both limits, never a text
// beyond the longest kept; Reset and a zero limit empty it.
TEST(Compiled, CacheKeepsWithinItsLimits) {
    Kalvos k;
    k.SetCacheLimits(3, Kalvos::kDefaultCacheBytes);
    k.ComputeExpr("1+1");
    EXPECT_EQ(k.GetCacheCount(), 0u);
    for (const char* text : {"1+1", "1+1", "2+2", "2+2", "3+3", "3+3", "4+4", "4+4"})
        k.ComputeExpr(text);
    EXPECT_EQ(k.GetCacheCount(), 3u);
    k.SetCacheLimits(100, Kalvos::kDefaultCacheBytes);
    const std::string longText = "1" + std::string(Kalvos::kMaxCachedTextLength, ' ');
    for (int i = 0; i < 2; ++i) EXPECT_EQ(k.ComputeExpr(longText), 1);
    EXPECT_EQ(k.GetCacheCount(), 0u);
    k.SetCacheLimits(100, 1);  // no program fits in one byte
    for (int i = 0; i < 2; ++i) k.ComputeExpr("5+5");
    EXPECT_EQ(k.GetCacheCount() + k.GetCacheBytes(), 0u);
    k.SetCacheLimits(100, Kalvos::kDefaultCacheBytes);
    for (int i = 0; i < 2; ++i) k.ComputeExpr("5+5");
    EXPECT_EQ(k.GetCacheCount(), 1u);
    EXPECT_GT(k.GetCacheBytes(), 0u);
    k.Reset();
    EXPECT_EQ(k.GetCacheCount() + k.GetCacheBytes(), 0u);
}
