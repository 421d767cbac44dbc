#include "support/RandomMersenne.h"

#include <utility>

namespace {

constexpr int kShift = 397;
constexpr std::uint32_t kMatrixA = 0x9908B0DFu;
constexpr std::uint32_t kUpperMask = 0x80000000u;
constexpr std::uint32_t kLowerMask = 0x7FFFFFFFu;

}  // namespace

CRandomMersenne::CRandomMersenne(int seed) : State{}, Index(kStateSize) { RandomInit(seed); }

void CRandomMersenne::RandomInit(int seed) {
    State[0] = static_cast<std::uint32_t>(seed);
    for (int i = 1; i < kStateSize; ++i) {
        const std::uint32_t prev = State[i - 1];
        State[i] = 1812433253u * (prev ^ (prev >> 30)) + static_cast<std::uint32_t>(i);
    }
    Index = kStateSize;
}

void CRandomMersenne::Twist() {
    for (int i = 0; i < kStateSize; ++i) {
        const std::uint32_t y =
            (State[i] & kUpperMask) | (State[(i + 1) % kStateSize] & kLowerMask);
        State[i] = State[(i + kShift) % kStateSize] ^ (y >> 1) ^ ((y & 1u) != 0 ? kMatrixA : 0u);
    }
    Index = 0;
}

std::uint32_t CRandomMersenne::BRandom() {
    if (Index >= kStateSize) Twist();
    std::uint32_t y = State[Index++];
    y ^= y >> 11;
    y ^= (y << 7) & 0x9D2C5680u;
    y ^= (y << 15) & 0xEFC60000u;
    y ^= y >> 18;
    return y;
}

double CRandomMersenne::Random() {
    const std::uint32_t high = BRandom() >> 5;  // 27 bits
    const std::uint32_t low = BRandom() >> 6;   // 26 bits
    return (high * 67108864.0 + low) * (1.0 / 9007199254740992.0);
}

int CRandomMersenne::IRandomX(int min, int max) {
    if (max < min) std::swap(min, max);
    // Rejection sampling over the largest multiple of the range below 2^32 keeps every value
    // equally likely; a span of 2^32 values takes the raw output as it is.
    const std::uint64_t span = static_cast<std::uint64_t>(static_cast<std::int64_t>(max) - min) + 1;
    std::uint64_t draw = BRandom();
    if (span <= 0xFFFFFFFFu) {
        const std::uint64_t limit = (std::uint64_t{1} << 32) - ((std::uint64_t{1} << 32) % span);
        while (draw >= limit) draw = BRandom();
        draw %= span;
    }
    return static_cast<int>(static_cast<std::int64_t>(min) + static_cast<std::int64_t>(draw));
}
