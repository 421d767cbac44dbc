#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

// The expressions a host typically writes, each in Kalvos' syntax and in muparser's, and the
// store of about 50 numeric variables they read. Shared by the benchmarks and the profiling
// driver, so that the profile looks at exactly what is timed.
namespace bench {

struct Variable {
    std::string Name;
    double Value;
};

struct CorpusEntry {
    std::string Name;
    std::string KalvosText;
    std::string MuparserText;
};

// a..h, r, t, u, w, then x0..x19 and k0..k17: 50 variables. The indexed ones are what x[2]
// and k[3] read; muparser reaches the same storage under the resolved names.
inline std::vector<Variable> StoreVariables() {
    std::vector<Variable> vars = {{"a", 1.5},  {"b", 2.25},  {"c", 3.5}, {"d", 0.75},
                                  {"e", 1.25}, {"f", 0.5},   {"g", 4.0}, {"h", -2.0},
                                  {"r", 2.0},  {"t", 0.125}, {"u", 3.0}, {"w", 5.0}};
    for (int i = 0; i < 20; ++i) vars.push_back({"x" + std::to_string(i), 1.0 + 0.5 * i});
    for (int i = 0; i < 18; ++i) vars.push_back({"k" + std::to_string(i), 0.25 + i});
    return vars;
}

// 50 terms, variables and literals alternating: 99 elements, just inside one level's limit.
inline std::string LongSum() {
    std::string text;
    for (int i = 0; i < 50; ++i) {
        if (i > 0) text += '+';
        text += i % 2 == 0 ? "k" + std::to_string((i / 2) % 18) : std::to_string(i) + ".5";
    }
    return text;
}

inline std::vector<CorpusEntry> Corpus() {
    return {
        {"literals", "1+2*3-4/5", "1+2*3-4/5"},
        {"decimals_parens", "2.5*(3.75-1.25)/0.5+7", "2.5*(3.75-1.25)/0.5+7"},
        {"variables", "a*b+c-d/e", "a*b+c-d/e"},
        {"polynomial", "3*a*a*a-2*b*b+c*4-7", "3*a*a*a-2*b*b+c*4-7"},
        {"indexed", "x[1]+x[2]*x[3]-x[10]", "x1+x2*x3-x10"},
        {"indexed_computed", "x[1+1]*k[3]", "x2*k3"},
        {"nested_parens", "((a+b)*(c-(d+e)))/((f+1)*(g+2))", "((a+b)*(c-(d+e)))/((f+1)*(g+2))"},
        {"deep_parens", "((((((a+1)*2)+3)*4)+5)*6)", "((((((a+1)*2)+3)*4)+5)*6)"},
        {"comparison", "a+1>=b*2", "a+1>=b*2"},
        {"logic", "(a<b)@@(c>=d)||!(e==f)", "(a<b)&&(c>=d)||!(e==f)"},
        {"fn1", "sin(a)", "sin(a)"},
        {"fn1_expr", "sqrt(a*a+b*b)", "sqrt(a*a+b*b)"},
        {"fn2", "pow(a,2)+atan2(b,c)", "a^2+atan2(b,c)"},
        {"fn_many", "max(a,b,c,d,e,f,g,h)", "max(a,b,c,d,e,f,g,h)"},
        {"fn_nested", "min(max(a,b),max(c,d))+abs(e-f)", "min(max(a,b),max(c,d))+abs(e-f)"},
        {"eval", "eval(a>b,c+1,d*2)", "a>b?c+1:d*2"},
        {"constant", "pi()*r*r", "_pi*r*r"},
        {"mixed_math", "exp(-a)*cos(2*pi()*f*t)", "exp(-a)*cos(2*_pi*f*t)"},
        {"floor_ceil", "floor(a/b)*ceil(c/d)", "floor(a/b)*ceil(c/d)"},
        {"host_formula", "k[1]*w+k[2]*t-(r/2)+x[0]", "k1*w+k2*t-(r/2)+x0"},
        {"sum50", LongSum(), LongSum()},
    };
}

// The cache-miss path: an object limited to kMissEntries programs is handed kMissVariants
// distinct texts in turn, 8 times as many. With least-recently-used or first-in-first-out
// eviction each has been evicted by the time it comes round again, so every call misses;
// under any eviction at most kMissEntries of each round of kMissVariants calls could hit,
// since a text appears once a round and only what was kept before the round can be found.
// A small limit rather than a set larger than the default keeps the blanks below few.
constexpr std::size_t kMissEntries = 16;
constexpr std::size_t kMissVariants = 128;

// Texts that differ from `text` only by blanks: variant i has 1 + i / (n + 1) blanks at
// position i % (n + 1) of the n-character text. Blanks are removed before compiling, so each
// is a distinct cache key with the text's own work; spreading them over the positions rather
// than appending more and more keeps their removal cheap: about 4 blanks on average for a
// text of 20 characters, 10 for the shortest of the corpus (6 characters), 1 for sum50.
inline std::vector<std::string> BlankVariants(const std::string& text, std::size_t count) {
    const std::size_t positions = text.size() + 1;
    std::vector<std::string> variants;
    variants.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        std::string variant = text;
        variant.insert(i % positions, 1 + i / positions, ' ');
        variants.push_back(std::move(variant));
    }
    return variants;
}

}  // namespace bench
