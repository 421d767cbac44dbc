#include <cmath>

#include "evaluator/Kalvos.h"

namespace {

constexpr double kTwoPi = 6.283185307179586;
constexpr double kTwoThirds = 0.6666666666666666;
constexpr double kDamping = 0.2;
constexpr int kMaxUpdates = 1000;

// The deep-water wave length g T^2 / 2 pi, multiplied in this order so that results agree to
// the last bit wherever it is computed.
double DeepWaterLength(double g, double t) { return (t * (g * t)) / kTwoPi; }

}  // namespace

// An explicit approximation of L = g T^2 / 2 pi * tanh(2 pi d / L).
double Kalvos::CalcWaveLengthSimple(double g, double d, double t) const {
    const double l0 = DeepWaterLength(g, t);
    const double x = (kTwoPi * d) / l0;
    return std::pow(std::tanh(std::pow(x, 0.75)), kTwoThirds) * l0;
}

// Damped fixed-point steps towards L0 tanh(2 pi d / L), starting from the approximation. There
// is no tolerance: only an exactly zero (or NaN) difference stops early, and the step that
// finds it still adds 0.2 * 0.
double Kalvos::CalcWaveLength(double g, double d, double t) const {
    double length = CalcWaveLengthSimple(g, d, t);
    const double l0 = DeepWaterLength(g, t);
    const double k = d * kTwoPi;
    if (!(std::fabs(length) > 0.0)) return length;
    for (int update = 0; update < kMaxUpdates; ++update) {
        const double diff = std::tanh(k / length) * l0 - length;
        length = length + kDamping * diff;
        if (!(std::fabs(diff) > 0.0)) break;
    }
    return length;
}

// The lattice point nearest to p; halves go away from pmin, as round() does.
double Kalvos::CalcRoundPos(double p, double pmin, double dp) const {
    const double q = (p - pmin) / dp;
    const int n = TruncToInt(std::round(q));
    return static_cast<double>(n) * dp + pmin;
}
