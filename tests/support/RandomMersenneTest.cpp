#include <climits>
#include <cmath>
#include <random>
#include <set>

#include "TestSupport.h"
#include "support/RandomMersenne.h"

TEST(RandomMersenne, RawOutputIsMt19937OfTheSeedAsUnsigned) {
    CRandomMersenne generator(1234);
    for (const int seed : {0, 5489, -1, INT_MIN, INT_MAX}) {
        for (int pass = 0; pass < 2; ++pass) {  // reseeding starts the sequence again
            generator.RandomInit(seed);
            std::mt19937 reference(static_cast<std::uint32_t>(seed));
            for (int i = 0; i < 2000; ++i) ASSERT_EQ(generator.BRandom(), reference()) << seed;
        }
    }
}

TEST(RandomMersenne, DrawsStayInTheirBounds) {
    CRandomMersenne generator(3);
    std::set<int> dice, signs;
    for (int i = 0; i < 20000; ++i) {
        const double r = generator.Random();
        ASSERT_TRUE(r >= 0 && r < 1) << r;
        dice.insert(generator.IRandomX(6, 1));  // the bounds are swapped
        signs.insert(generator.IRandomX(INT_MIN, INT_MAX) > 0);
        ASSERT_GE(generator.IRandomX(INT_MAX - 1, INT_MAX), INT_MAX - 1);
        ASSERT_LE(generator.IRandomX(INT_MIN, INT_MIN + 1), INT_MIN + 1);
    }
    EXPECT_EQ(dice, (std::set<int>{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(signs.size(), 2u);
}

// Random() joins the high 27 and 26 bits of two raw outputs into the 53 bits of a double.
// IRandomX draws again while a raw output lies in the incomplete tail above the largest
// multiple of the span (about every other time for a span of 2^31 + 1).
TEST(RandomMersenne, DerivedDrawsFollowTheRawOutput) {
    CRandomMersenne generator(99);
    std::mt19937 reference(99);
    for (int i = 0; i < 1000; ++i) {
        // 27 and 26 bits: exact as doubles.
        const auto high = static_cast<double>(reference() >> 5);
        const auto low = static_cast<double>(reference() >> 6);
        ASSERT_EQ(BitsOf(generator.Random()), BitsOf(std::ldexp(high * 67108864.0 + low, -53)));
    }
    const std::uint64_t span = (std::uint64_t{1} << 31) + 1;
    const std::uint64_t limit = (std::uint64_t{1} << 32) - (std::uint64_t{1} << 32) % span;
    for (int i = 0; i < 1000; ++i) {
        std::uint64_t draw = reference();
        while (draw >= limit) draw = reference();
        ASSERT_EQ(generator.IRandomX(INT_MIN, 0), INT_MIN + static_cast<std::int64_t>(draw % span));
    }
}
