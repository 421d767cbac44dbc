#pragma once

// Random texts from the grammar of expressions, valid and broken: numbers good and bad, every
// operator, variables of the standard store that come and go, keywords, indices constant and
// computed, calls of every built-in with good and bad counts, deep nesting, long texts. The
// compiled-evaluation and thread tests draw them from a seed; the fuzz target from its input.

#include <cstdint>
#include <random>
#include <string>

#include "Differential.h"
#include "evaluator/Kalvos.h"

namespace texts {

inline std::string Repeat(const std::string& piece, std::size_t times) {
    std::string text;
    text.reserve(piece.size() * times);
    for (std::size_t i = 0; i < times; ++i) text += piece;
    return text;
}

// `levels` times `open`, then `inner`, then `levels` times `close`.
inline std::string Nest(const std::string& open, std::size_t levels, const std::string& inner,
                        const std::string& close) {
    return Repeat(open, levels) + inner + Repeat(close, levels);
}

inline const char* const kNumbers[] = {"0",   "1",    "2",    "3",      "10",  "2.5",
                                       "5.",  "007",  "1e+3", "2E-2",   "0.5", "1e+308",
                                       "710", "1000", "-1",   "123456", "1.25"};
inline const char* const kBadNumbers[] = {"1e5", "1e+400", "1.5.2", "1e", "1e+", "1E+x", "2e-"};
inline const char* const kOperators[] = {
    "!", "*", "/", "+", "-", "==", "!=", "<", ">", "<=", ">=", "@@", "||"};
// Characters that begin no token or stand where no operator may, '%' among them since
// messages are formatted.
inline const char* const kMisplaced[] = {"=", "@", "|", "&&", "%",  "%s%n", "$", "?",
                                         ".", ",", "]", "*/", "+*", "<>",   "\t"};
// Indices that name existing variables (x0, x1, x2 and m1, m12), and ones that do not.
inline const char* const kIndices[] = {"0", "1", "2", "1+1", "2.9", "-0.5", "x1-0.5", "1.9"};
inline const char* const kFirstIndices[] = {"1", "1.9", "x1-0.5", "0.5+0.5"};
inline const char* const kBadIndices[] = {"-1", "nan", "inf", "2147483648", "10", "1/0", "3"};
inline const char* const kKeywords[] = {"true", "TRUE", "True", "false", "FALSE", "fAlSe"};
inline const char* const kUnknownFunctions[] = {"foo", "Sin", "MAX", "pi_"};
inline const char* const kBoolLiterals[] = {"", "#", "1", "0", "true", "#False", " true", "TRUE "};
inline const char* const kErrorTexts[] = {"", " [test]", " at %s line %d%%", "\n100%"};

class Grammar {
public:
    explicit Grammar(std::uint32_t seed) : Rng(seed) {}
    // The choices read from the fuzzer's bytes, two a choice and zero once they run out (which
    // ends every text soon), so that a changed byte changes one choice.
    Grammar(const std::uint8_t* choices, std::size_t size) : Choices(choices), Left(size) {}

    std::uint32_t Next() {
        if (Choices == nullptr) return static_cast<std::uint32_t>(Rng());
        std::uint32_t value = 0;
        for (int i = 0; i < 2 && Left > 0; ++i, --Left) value = value << 8 | *Choices++;
        return value;
    }
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

    // A function of the catalogue with an accepted count, mostly; else a host function (see
    // diff::DefineHostFunctions), a wrong count, an eleventh parameter, empty parameters or an
    // unknown name.
    std::string Call(int depth) {
        const Kalvos::FunctionInfo f = Kalvos::GetFunction(Pick(Kalvos::GetFunctionCount()));
        std::string name(f.Name);
        unsigned count = f.MinParams + Pick(f.MaxParams - f.MinParams + 1);
        if (Chance(8)) {
            name = Of(diff::kHostFunctions);
            count = Pick(3);
        }
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
    const std::uint8_t* Choices = nullptr;
    std::size_t Left = 0;
};

}  // namespace texts
