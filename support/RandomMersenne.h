#pragma once

#include <cstdint>

#include "kalvos_export.h"

/// The MT19937 Mersenne Twister. Seeding is the published initialisation of the seed taken
/// as an unsigned 32-bit value, so BRandom() yields exactly the sequence of std::mt19937
/// constructed with the same value.
class KALVOS_EXPORT CRandomMersenne {
public:
    explicit CRandomMersenne(int seed);

    void RandomInit(int seed);
    /// The raw 32-bit output.
    std::uint32_t BRandom();
    /// Uniform in [0, 1) with 53 bits of resolution, from two raw outputs; never 1.0.
    double Random();
    /// Uniform on [min, max], every value equally likely, also for the full int range;
    /// the bounds are swapped when max < min.
    int IRandomX(int min, int max);

private:
    static constexpr int kStateSize = 624;

    void Twist();

    std::uint32_t State[kStateSize];
    int Index;
};
