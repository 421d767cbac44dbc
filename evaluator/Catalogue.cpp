#include <algorithm>
#include <cmath>

#include "evaluator/Kalvos.h"
#include "support/KalvosVars.h"

struct Kalvos::CatalogueEntry {
    std::string_view Name;
    unsigned int MinParams;
    unsigned int MaxParams;
    // A pure entry depends on its parameters alone: it draws no random number and reads no
    // variable, so a call with constant parameters may be computed once, when compiling.
    bool Pure;
    std::string_view Description;
    Builtin Compute;
};

namespace {

using Entry = Kalvos::CatalogueEntry;

constexpr double kDegree = 0.017453292519943295;  // pi / 180 as a double

// Single precision, rounded to nearest, and back. Doubles from half a unit below 2^128 on
// round to an infinite float; the cast itself would be undefined there.
double ToFloat(double x) {
    constexpr double kFloatOverflow = 3.4028235677973366e+38;  // 2^128 - 2^103
    if (std::fabs(x) >= kFloatOverflow) return std::copysign(HUGE_VAL, x);
    return static_cast<double>(static_cast<float>(x));
}

// "min" and "max": a later parameter replaces the running value only when strictly smaller
// (larger), so a NaN after the first never wins and equal values keep the earlier one.
template <bool kSmaller>
double Extreme(const double* p, unsigned int count) {
    double best = p[0];
    for (unsigned int i = 1; i < count; ++i) {
        if (kSmaller ? p[i] < best : p[i] > best) best = p[i];
    }
    return best;
}

template <std::size_t N>
constexpr bool IsSortedByName(const Entry (&entries)[N]) {
    for (std::size_t i = 1; i < N; ++i) {
        if (entries[i].Name < entries[i - 1].Name) return false;
    }
    return true;
}

}  // namespace

// The built-in functions, sorted by name for a binary search. Their computations are defined
// here, inside a member, because some use the evaluator's generator, store and routines.
const Kalvos::CatalogueEntry* Kalvos::Catalogue(std::size_t& size) {
    using P = const double*;
    using K = const Kalvos&;
    static constexpr Entry kCatalogue[] = {
        {"abs", 1, 1, true, "absolute value", [](K, P p, unsigned) { return std::fabs(p[0]); }},
        {"acos", 1, 1, true, "arc cosine, in radians",
         [](K, P p, unsigned) { return std::acos(p[0]); }},
        {"asin", 1, 1, true, "arc sine, in radians",
         [](K, P p, unsigned) { return std::asin(p[0]); }},
        {"atan", 1, 1, true, "arc tangent, in radians",
         [](K, P p, unsigned) { return std::atan(p[0]); }},
        {"atan2", 2, 2, true, "angle of the point (b, a), in radians",
         [](K, P p, unsigned) { return std::atan2(p[0], p[1]); }},
        {"ceil", 1, 1, true, "smallest integer not below x",
         [](K, P p, unsigned) { return std::ceil(p[0]); }},
        {"cos", 1, 1, true, "cosine of x radians", [](K, P p, unsigned) { return std::cos(p[0]); }},
        {"cosdg", 1, 1, true, "cosine of x degrees",
         [](K, P p, unsigned) { return std::cos(p[0] * kDegree); }},
        {"cosh", 1, 1, true, "hyperbolic cosine", [](K, P p, unsigned) { return std::cosh(p[0]); }},
        {"e", 0, 0, true, "Euler's number, 2.718281828459045",
         [](K, P, unsigned) { return 2.718281828459045; }},
        {"eval", 3, 3, true, "b when a is not zero, else c",
         [](K, P p, unsigned) { return p[0] != 0.0 ? p[1] : p[2]; }},
        {"exp", 1, 1, true, "e to the power x", [](K, P p, unsigned) { return std::exp(p[0]); }},
        {"float", 1, 1, true, "x rounded to single precision",
         [](K, P p, unsigned) { return ToFloat(p[0]); }},
        {"floor", 1, 1, true, "largest integer not above x",
         [](K, P p, unsigned) { return std::floor(p[0]); }},
        {"fmod", 2, 2, true, "remainder of a / b, with the sign of a",
         [](K, P p, unsigned) { return std::fmod(p[0], p[1]); }},
        {"fmodr", 2, 2, true, "fmod(a, b) rounded to an integer",
         [](K, P p, unsigned) { return std::round(std::fmod(p[0], p[1])); }},
        {"int", 1, 1, true, "x truncated toward zero to a 32-bit integer",
         [](K, P p, unsigned) { return static_cast<double>(TruncToInt(p[0])); }},
        {"log", 1, 1, true, "natural logarithm", [](K, P p, unsigned) { return std::log(p[0]); }},
        {"log10", 1, 1, true, "base-10 logarithm",
         [](K, P p, unsigned) { return std::log10(p[0]); }},
        {"max", 2, kMaxParameters, true, "largest of the parameters",
         [](K, P p, unsigned n) { return Extreme<false>(p, n); }},
        {"min", 2, kMaxParameters, true, "smallest of the parameters",
         [](K, P p, unsigned n) { return Extreme<true>(p, n); }},
        {"pi", 0, 0, true, "pi, 3.141592653589793",
         [](K, P, unsigned) { return 3.141592653589793; }},
        {"pow", 2, 2, true, "a to the power b",
         [](K, P p, unsigned) { return std::pow(p[0], p[1]); }},
        {"rand", 0, 0, false, "uniform random number in [0, 1)",
         [](K k, P, unsigned) { return k.Random(); }},
        {"rand", 2, 2, false, "uniform random number from a to b",
         [](K k, P p, unsigned) { return k.Random(p[0], p[1]); }},
        {"randinit", 1, 1, false, "reseeds the random generator with x; gives 0",
         [](K k, P p, unsigned) {
             k.RandomInit(TruncToInt(p[0]));
             return 0.0;
         }},
        {"randint", 2, 2, false, "uniform random integer from a to b",
         [](K k, P p, unsigned) {
             return static_cast<double>(k.RandomInt(TruncToInt(p[0]), TruncToInt(p[1])));
         }},
        {"round", 1, 1, true, "nearest integer, halves away from zero",
         [](K, P p, unsigned) { return std::round(p[0]); }},
        {"roundpos", 3, 3, true, "lattice point nearest to a, with origin b and spacing c",
         [](K k, P p, unsigned) { return k.CalcRoundPos(p[0], p[1], p[2]); }},
        {"roundposx", 1, 1, false, "lattice point nearest to x, origin PosMin_x, spacing Dp",
         [](K k, P p, unsigned) { return k.RoundPosOnAxis(p[0], "PosMin_x"); }},
        {"roundposy", 1, 1, false, "lattice point nearest to x, origin PosMin_y, spacing Dp",
         [](K k, P p, unsigned) { return k.RoundPosOnAxis(p[0], "PosMin_y"); }},
        {"roundposz", 1, 1, false, "lattice point nearest to x, origin PosMin_z, spacing Dp",
         [](K k, P p, unsigned) { return k.RoundPosOnAxis(p[0], "PosMin_z"); }},
        {"sin", 1, 1, true, "sine of x radians", [](K, P p, unsigned) { return std::sin(p[0]); }},
        {"sindg", 1, 1, true, "sine of x degrees",
         [](K, P p, unsigned) { return std::sin(p[0] * kDegree); }},
        {"sinh", 1, 1, true, "hyperbolic sine", [](K, P p, unsigned) { return std::sinh(p[0]); }},
        {"sqrt", 1, 1, true, "square root", [](K, P p, unsigned) { return std::sqrt(p[0]); }},
        {"tan", 1, 1, true, "tangent of x radians",
         [](K, P p, unsigned) { return std::tan(p[0]); }},
        {"tandg", 1, 1, true, "tangent of x degrees",
         [](K, P p, unsigned) { return std::tan(p[0] * kDegree); }},
        {"tanh", 1, 1, true, "hyperbolic tangent",
         [](K, P p, unsigned) { return std::tanh(p[0]); }},
        {"wavelength", 3, 3, true, "length of a water wave: gravity a, depth b, period c",
         [](K k, P p, unsigned) { return k.CalcWaveLength(p[0], p[1], p[2]); }},
    };
    static_assert(sizeof kCatalogue / sizeof kCatalogue[0] == 40, "the 40 built-in functions");
    static_assert(IsSortedByName(kCatalogue), "the binary search needs the names in order");
    size = std::size(kCatalogue);
    return kCatalogue;
}

const Kalvos::CatalogueEntry* Kalvos::FindBuiltin(std::string_view name, unsigned int count) {
    std::size_t size = 0;
    const Entry* const begin = Catalogue(size);
    const Entry* const end = begin + size;
    // The first characters decide most comparisons without a call of the library's compare.
    const auto before = [](const Entry& entry, std::string_view key) {
        if (!key.empty() && entry.Name[0] != key[0]) return entry.Name[0] < key[0];
        return entry.Name < key;
    };
    const auto* first = std::lower_bound(begin, end, name, before);
    for (const auto* entry = first; entry != end && entry->Name == name; ++entry) {
        if (count >= entry->MinParams && count <= entry->MaxParams) return entry;
    }
    return nullptr;
}

std::size_t Kalvos::GetFunctionCount() {
    std::size_t size = 0;
    Catalogue(size);
    return size;
}

Kalvos::FunctionInfo Kalvos::GetFunction(std::size_t index) {
    std::size_t size = 0;
    const Entry* const catalogue = Catalogue(size);
    if (index >= size) return FunctionInfo{};
    const Entry& entry = catalogue[index];
    return FunctionInfo{entry.Name, entry.MinParams, entry.MaxParams, entry.Description};
}

bool Kalvos::IsPure(const CatalogueEntry& entry) { return entry.Pure; }

std::uint32_t Kalvos::CatalogueIndex(const CatalogueEntry& entry) {
    std::size_t size = 0;
    return static_cast<std::uint32_t>(&entry - Catalogue(size));
}

Kalvos::Builtin Kalvos::BuiltinAt(std::uint32_t index) {
    std::size_t size = 0;
    return Catalogue(size)[index].Compute;
}

double Kalvos::CallBuiltin(const CatalogueEntry& entry, const double* values,
                           unsigned int count) const {
    return entry.Compute(*this, values, count);
}

// "Dp" is read before the axis variable, so its failure comes first when both are missing.
double Kalvos::RoundPosOnAxis(double p, const char* axisVariable) const {
    const double dp = Vars->GetVarNum("Dp", ErrorText);
    const double pmin = Vars->GetVarNum(axisVariable, ErrorText);
    return CalcRoundPos(p, pmin, dp);
}
