#pragma once

#include <cmath>
#include <cstddef>
#include <string>
#include <vector>

// The formulas a host runs over its elements, each in Kalvos' syntax, in muparser's, and written
// by hand in C++ with the same operations in the same order (pow, sin and the others as real
// calls): the limit a formula from a text is measured against. x is the column; y is a variable
// of the store, the same for every element.
namespace bench {

struct BulkEntry {
    std::string Name;
    std::string KalvosText;
    std::string MuparserText;
    // The formula for one element, and the loop over many with the formula inlined into it.
    double (*Hand)(double x, double y);
    void (*HandLoop)(const double* xs, double y, double* out, std::size_t count);
};

// A formula of x and y written once, as a function and as a loop that inlines it.
#define KALVOS_HAND(EXPR)                                                \
    [](double x, double y) { return EXPR; },                             \
        [](const double* xs, double y, double* out, std::size_t count) { \
            for (std::size_t i = 0; i < count; ++i) {                    \
                const double x = xs[i];                                  \
                out[i] = EXPR;                                           \
            }                                                            \
        }

constexpr double kBulkY = 1.25;

inline std::vector<BulkEntry> BulkCorpus() {
    return {
        {"sum", "x + y", "x + y", KALVOS_HAND(x + y)},
        {"quotients", "(y + x / y) * (x - y / x)", "(y + x / y) * (x - y / x)",
         KALVOS_HAND((y + x / y) * (x - y / x))},
        {"arithmetic", "(5.5 + x) + (2 * x - 2 / 3 * y) * (x / 3 + y / 4) + (y + 7.7)",
         "(5.5 + x) + (2 * x - 2 / 3 * y) * (x / 3 + y / 4) + (y + 7.7)",
         KALVOS_HAND((5.5 + x) + (2 * x - 2.0 / 3 * y) * (x / 3 + y / 4) + (y + 7.7))},
        {"trigonometry", "sin(2 * x) + cos(pi() / y)", "sin(2 * x) + cos(_pi / y)",
         KALVOS_HAND(std::sin(2 * x) + std::cos(3.141592653589793 / y))},
        {"polynomial", "3 * x * x * x - 2 * x * y + 4 * y - 7",
         "3 * x * x * x - 2 * x * y + 4 * y - 7",
         KALVOS_HAND(3 * x * x * x - 2 * x * y + 4 * y - 7)},
        {"norm", "sqrt(x * x + y * y)", "sqrt(x * x + y * y)",
         KALVOS_HAND(std::sqrt(x * x + y * y))},
        {"logic", "(x < y) @@ (x >= 0.5) || !(x == y)", "(x < y) && (x >= 0.5) || !(x == y)",
         KALVOS_HAND(((x < y ? 1.0 : 0.0) != 0.0 && (x >= 0.5 ? 1.0 : 0.0) != 0.0 ? 1.0 : 0.0) ==
                                 0.0 &&
                             ((x == y ? 1.0 : 0.0) == 0.0 ? 1.0 : 0.0) == 0.0
                         ? 0.0
                         : 1.0)},
        {"power", "pow(x, 2.5) + exp(-x) * y", "x ^ 2.5 + exp(-x) * y",
         KALVOS_HAND(std::pow(x, 2.5) + std::exp(-x) * y)},
    };
}

// The column: values of one magnitude, none that makes a formula fail.
inline std::vector<double> BulkColumn(std::size_t count) {
    std::vector<double> xs(count);
    unsigned int state = 12345;
    for (double& x : xs) {
        state = state * 1664525u + 1013904223u;
        x = 0.5 + (state >> 8) % 100000 / 50000.0;
    }
    return xs;
}

#undef KALVOS_HAND

}  // namespace bench
