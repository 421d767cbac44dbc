#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>

#include "evaluator/Kalvos.h"
#include "tools/Printing.h"

namespace {

// Reads a printed number back with the evaluator's own number reader.
class Reader : public Kalvos {
public:
    bool ReadsBack(const std::string& printed, double value) const {
        std::string text = printed;
        if (!text.empty() && text[0] == '-') text.erase(0, 1);
        bool invalid = false;
        const double read = ReadNumber(text, invalid);
        return !invalid && text.empty() && read == std::fabs(value);
    }
};

TEST(FormatNumber, LaysOutTheShortestDigitsAsReprDoes) {
    const double inf = std::numeric_limits<double>::infinity();
    const struct {
        double Value;
        const char* Text;
    } cases[] = {{100000, "100000"},
                 {0.0001, "0.0001"},
                 {0.00001, "1e-05"},
                 {1.5e-7, "1.5e-07"},
                 {1e16, "1e+16"},
                 {9999999999999998, "9999999999999998"},
                 {0.1 + 0.2, "0.30000000000000004"},
                 {-2.5, "-2.5"},
                 {-0.0, "-0"},
                 {1e300, "1e+300"},
                 {123.456, "123.456"},
                 {5e-324, "5e-324"},
                 {1.7976931348623157e308, "1.7976931348623157e+308"},
                 {inf, "inf"},
                 {-inf, "-inf"},
                 {std::nan(""), "nan"},
                 {-std::nan(""), "nan"}};
    for (const auto& c : cases) EXPECT_EQ(cli::FormatNumber(c.Value), c.Text) << c.Text;
}

TEST(FormatNumber, ReadsBackThroughTheNumberReader) {
    const Reader reader;
    std::mt19937_64 bits(2024);
    for (int i = 0; i < 20000; ++i) {
        // Every pattern of bits, so every magnitude from subnormal up; then decimal-looking ones.
        double value = 0;
        const std::uint64_t pattern = bits();
        std::memcpy(&value, &pattern, sizeof value);
        if (i % 2 == 1) value = std::round(std::ldexp(static_cast<double>(pattern % 100000), -5));
        if (!std::isfinite(value)) continue;
        const std::string printed = cli::FormatNumber(value);
        ASSERT_TRUE(reader.ReadsBack(printed, value)) << printed;
    }
}

TEST(Printable, EscapesControlsAndBrokenUtf8) {
    const struct {
        std::string Text;
        const char* Shown;
    } cases[] = {{"plain caf\xC3\xA9", "plain caf\xC3\xA9"},
                 {"\x1b[2J", "\\x1b[2J"},
                 {std::string("a\0b", 3), "a\\x00b"},
                 {"tab\there\x7f", "tab\\x09here\\x7f"},
                 {"\xC2\x9B"
                  "31m",
                  "\\xc2\\x9b31m"},  // C1 control written in UTF-8
                 {"\xFF\xC3(\xE0\x80\x80", "\\xff\\xc3(\\xe0\\x80\\x80"},  // invalid, overlong
                 {"\xED\xA0\x80", "\\xed\\xa0\\x80"},                      // surrogate
                 {"\xF0\x9F\x98\x80", "\xF0\x9F\x98\x80"}};
    for (const auto& c : cases) EXPECT_EQ(cli::Printable(c.Text), c.Shown);
}

TEST(Printable, ShortensALongTextKeepingBothEnds) {
    const std::string text = "head" + std::string(1000000, 'x') + "\xC3\xA9 tail";
    const std::string shown = cli::Printable(text);
    EXPECT_LE(shown.size(), cli::kMaxEchoLength);
    EXPECT_EQ(shown.substr(0, 4), "head");
    EXPECT_EQ(shown.substr(shown.size() - 7), "\xC3\xA9 tail");
    EXPECT_NE(shown.find(" [... 999771 of 1000011 bytes left out ...] "), std::string::npos);
}

}  // namespace
