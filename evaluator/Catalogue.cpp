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
    Unary Plain = nullptr;  // for a pure function of one parameter: the same, called directly
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

std::string_view NameOf(const Entry& entry) { return entry.Name; }
std::string_view NameOf(std::string_view name) { return name; }

template <std::size_t N>
constexpr bool IsSortedByName(const Entry (&entries)[N]) {
    for (std::size_t i = 1; i < N; ++i) {
        if (entries[i].Name < entries[i - 1].Name) return false;
    }
    return true;
}

}  // namespace

// A pure function of one parameter, x: its formula is written once, for the form every call
// can take and for the plain function a run calls directly.
#define KALVOS_UNARY(NAME, DESCRIPTION, FORMULA) \
    {                                            \
        NAME, 1, 1, true, DESCRIPTION,           \
            [](K, P p, unsigned) {               \
                const double x = p[0];           \
                return FORMULA;                  \
            },                                   \
            [](double x) { return FORMULA; }     \
    }

// The built-in functions, sorted by name for a binary search. Their computations are defined
// here, inside a member, because some use the evaluator's generator, store and routines.
const Kalvos::CatalogueEntry* Kalvos::Catalogue(std::size_t& size) {
    using P = const double*;
    using K = const Kalvos&;
    static constexpr Entry kCatalogue[] = {
        KALVOS_UNARY("abs", "absolute value", std::fabs(x)),
        KALVOS_UNARY("acos", "arc cosine, in radians", std::acos(x)),
        KALVOS_UNARY("asin", "arc sine, in radians", std::asin(x)),
        KALVOS_UNARY("atan", "arc tangent, in radians", std::atan(x)),
        {"atan2", 2, 2, true, "angle of the point (b, a), in radians",
         [](K, P p, unsigned) { return std::atan2(p[0], p[1]); }},
        KALVOS_UNARY("ceil", "smallest integer not below x", std::ceil(x)),
        KALVOS_UNARY("cos", "cosine of x radians", std::cos(x)),
        KALVOS_UNARY("cosdg", "cosine of x degrees", std::cos(x * kDegree)),
        KALVOS_UNARY("cosh", "hyperbolic cosine", std::cosh(x)),
        {"e", 0, 0, true, "Euler's number, 2.718281828459045",
         [](K, P, unsigned) { return 2.718281828459045; }},
        {"eval", 3, 3, true, "b when a is not zero, else c",
         [](K, P p, unsigned) { return p[0] != 0.0 ? p[1] : p[2]; }},
        KALVOS_UNARY("exp", "e to the power x", std::exp(x)),
        KALVOS_UNARY("float", "x rounded to single precision", ToFloat(x)),
        KALVOS_UNARY("floor", "largest integer not above x", std::floor(x)),
        {"fmod", 2, 2, true, "remainder of a / b, with the sign of a",
         [](K, P p, unsigned) { return std::fmod(p[0], p[1]); }},
        {"fmodr", 2, 2, true, "fmod(a, b) rounded to an integer",
         [](K, P p, unsigned) { return std::round(std::fmod(p[0], p[1])); }},
        KALVOS_UNARY("int", "x truncated toward zero to a 32-bit integer",
                     static_cast<double>(TruncToInt(x))),
        KALVOS_UNARY("log", "natural logarithm", std::log(x)),
        KALVOS_UNARY("log10", "base-10 logarithm", std::log10(x)),
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
        KALVOS_UNARY("round", "nearest integer, halves away from zero", std::round(x)),
        {"roundpos", 3, 3, true, "lattice point nearest to a, with origin b and spacing c",
         [](K k, P p, unsigned) { return k.CalcRoundPos(p[0], p[1], p[2]); }},
        {"roundposx", 1, 1, false, "lattice point nearest to x, origin PosMin_x, spacing Dp",
         [](K k, P p, unsigned) { return k.RoundPosOnAxis(p[0], "PosMin_x"); }},
        {"roundposy", 1, 1, false, "lattice point nearest to x, origin PosMin_y, spacing Dp",
         [](K k, P p, unsigned) { return k.RoundPosOnAxis(p[0], "PosMin_y"); }},
        {"roundposz", 1, 1, false, "lattice point nearest to x, origin PosMin_z, spacing Dp",
         [](K k, P p, unsigned) { return k.RoundPosOnAxis(p[0], "PosMin_z"); }},
        KALVOS_UNARY("sin", "sine of x radians", std::sin(x)),
        KALVOS_UNARY("sindg", "sine of x degrees", std::sin(x * kDegree)),
        KALVOS_UNARY("sinh", "hyperbolic sine", std::sinh(x)),
        KALVOS_UNARY("sqrt", "square root", std::sqrt(x)),
        KALVOS_UNARY("tan", "tangent of x radians", std::tan(x)),
        KALVOS_UNARY("tandg", "tangent of x degrees", std::tan(x * kDegree)),
        KALVOS_UNARY("tanh", "hyperbolic tangent", std::tanh(x)),
        {"wavelength", 3, 3, true, "length of a water wave: gravity a, depth b, period c",
         [](K k, P p, unsigned) { return k.CalcWaveLength(p[0], p[1], p[2]); }},
    };
#undef KALVOS_UNARY
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

bool Kalvos::HasBuiltin(std::string_view name) {
    std::size_t size = 0;
    const Entry* const begin = Catalogue(size);
    return std::binary_search(begin, begin + size, name,
                              [](const auto& a, const auto& b) { return NameOf(a) < NameOf(b); });
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

bool Kalvos::IsPureBuiltin(Builtin function) {
    std::size_t size = 0;
    const Entry* const catalogue = Catalogue(size);
    const Entry* const entry = std::find_if(catalogue, catalogue + size,
                                            [&](const Entry& e) { return e.Compute == function; });
    return entry != catalogue + size && entry->Pure;
}

std::uint32_t Kalvos::CatalogueIndex(const CatalogueEntry& entry) {
    std::size_t size = 0;
    return static_cast<std::uint32_t>(&entry - Catalogue(size));
}

Kalvos::Builtin Kalvos::BuiltinAt(std::uint32_t index) {
    std::size_t size = 0;
    return Catalogue(size)[index].Compute;
}

Kalvos::Unary Kalvos::UnaryAt(std::uint32_t index) {
    std::size_t size = 0;
    return Catalogue(size)[index].Plain;
}

double Kalvos::CallBuiltin(const CatalogueEntry& entry, const double* values,
                           unsigned int count) const {
    return entry.Compute(*this, values, count);
}

// "Dp" is read before the axis variable, so its failure comes first when both are missing.
double Kalvos::RoundPosOnAxis(double p, const char* axisVariable) const {
    const double dp = Vars->GetVarNum("Dp", GetErrorText());
    const double pmin = Vars->GetVarNum(axisVariable, GetErrorText());
    return CalcRoundPos(p, pmin, dp);
}
