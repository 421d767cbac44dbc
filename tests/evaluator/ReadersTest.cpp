#include <clocale>
#include <cstring>
#include <locale>
#include <random>
#include <sstream>

#include "TestSupport.h"

namespace {

// The number read from the front of `text` (NaN when invalid; then nothing is taken).
double Read(const std::string& literal, std::string& rest, const OpenKalvos& k = OpenKalvos()) {
    rest = literal;
    bool invalid = false;
    const double value = k.ReadNumber(rest, invalid);
    return invalid ? std::nan("") : value;
}

struct CommaPoint : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

}  // namespace

// A blank marks the end of the literal in each text; invalid texts (NaN) are left whole.
TEST(Readers, ReadNumberTakesOneLiteralFromTheFront) {
    const std::pair<std::string, double> cases[] = {
        {"007 ", 7},           {"5. )", 5},      {"1.5 .2", 1.5},
        {"2E-2 /4", .02},      {"1.e+2 x", 100}, {"4e-400 ", 0},
        {"5e-324 ", 5e-324},   {"1e5", NAN},     {"1e+x", NAN},
        {"1e+400", NAN},       {"", NAN},        {".5", NAN},
        {"-1", NAN},           {"2.5e", NAN},    {"1.8e+308", NAN},
        {"1e+4294967297", NAN}};  // an exponent beyond every int is no small one
    for (const auto& [text, value] : cases) {
        const std::size_t end = text.find(' ');
        std::string rest;
        EXPECT_EQ(BitsOf(Read(fun::StrWithoutChar(text, ' '), rest)), BitsOf(value)) << text;
        EXPECT_EQ(rest, end == std::string::npos ? text : text.substr(end + 1)) << text;
    }
    std::string text = "12";
    bool invalid = true;  // a flag set on entry stays set and takes nothing
    EXPECT_EQ(OpenKalvos().ReadNumber(text, invalid), 0.0);
    EXPECT_TRUE(invalid && text == "12");
}

// Exactly the classic stream's value, to the last bit, and a failure exactly where it fails.
// Values cluster near the overflow threshold, the subnormals and the underflow to zero.
TEST(Readers, ReadNumberConvertsAsTheClassicStreamDoes) {
    std::mt19937_64 gen(20240601);
    const auto digits = [&](std::size_t count) {
        std::string text(count, '0');
        for (char& c : text) c = static_cast<char>('0' + gen() % 10);
        return text;
    };
    const OpenKalvos k;
    std::istringstream stream;
    stream.imbue(std::locale::classic());
    int failures = 0;
    for (int i = 0; i < 1000000; ++i) {
        const std::size_t intDigits = gen() % 32 == 0 ? 1 + gen() % 400 : 1 + gen() % 20;
        std::string literal = digits(intDigits), rest;
        if (gen() % 2) literal += "." + digits(gen() % 32 == 0 ? gen() % 800 : gen() % 20);
        if (gen() % 4) {
            static const long kTargets[][2] = {{-20, 41}, {290, 41}, {-345, 46}, {-420, 841}};
            const auto& range = kTargets[gen() % 4];
            const long exponent =
                range[0] + long(gen() % static_cast<unsigned>(range[1])) - long(intDigits) + 1;
            literal += (gen() % 2 ? "e" : "E") + std::string(exponent < 0 ? "-" : "+") +
                       std::string(gen() % 3, '0') + std::to_string(std::labs(exponent));
        }
        stream.clear();
        stream.str(literal);
        double expected = 0.0;
        stream >> expected;
        const double value = Read(literal + "*x", rest, k);
        failures += stream.fail();
        ASSERT_EQ(BitsOf(value), BitsOf(stream.fail() ? std::nan("") : expected)) << literal;
        ASSERT_EQ(rest, stream.fail() ? literal + "*x" : "*x") << literal;
    }
    EXPECT_GT(failures, 10000);  // the overflows were reached
}

TEST(Readers, NumbersIgnoreTheHostLocale) {
    const std::locale saved =
        std::locale::global(std::locale(std::locale::classic(), new CommaPoint));
    const std::string savedC = std::setlocale(LC_ALL, nullptr);
    const bool german = std::setlocale(LC_ALL, "de_DE.UTF-8") != nullptr;
    std::string rest;
    const double value = Read("2.5", rest);
    const std::string written = fun::DoubleStr(0.5, "%g");
    std::setlocale(LC_ALL, savedC.c_str());
    std::locale::global(saved);
    EXPECT_EQ(value, 2.5);
    EXPECT_EQ(written, "0.5");
    if (!german) GTEST_SKIP() << "de_DE.UTF-8 is not installed: only the C++ locale was changed";
}

TEST(Readers, ReadNameAndLookforEnd) {
    OpenKalvos k;
    for (const auto& [text, name] : {std::pair("x1_y(2", "x1_y"), {"m[1]", "m"}, {"+ab", "+ab"}}) {
        unsigned int length = 99;
        char next = 'Z';
        EXPECT_EQ(k.ReadName(text, length, next), name);
        EXPECT_EQ(length, std::strlen(name)) << text;
        EXPECT_EQ(next, text[length]) << text;
    }
    const std::pair<const char*, unsigned int> ends[] = {
        {"(a[1)]", 5}, {"(()())x", 6}, {"x)", 2}, {"[i][j]", 3}, {"[i+(1]", 6}, {"[[1]2]", 6}};
    for (const auto& [text, end] : ends) {
        EXPECT_EQ(text[0] == '[' ? k.LookforEndBrackets(text) : k.LookforEndParentesis(text), end)
            << text;
    }
    k.ErrorText = " (row 4)";
    for (const char* text : {"", "(1+(2)", "(a]"}) {
        EXPECT_RAISES(
            k.LookforEndParentesis(text), "LookforEndParentesis",
            "Evaluating [" + std::string(text) + "]: End of parentheses is missing (row 4)");
    }
    EXPECT_RAISES(k.LookforEndBrackets("[a)"), "LookforEndBrackets",
                  "Evaluating [[a)]: End of brackets is missing (row 4)");
    // Long spans are matched over the whole text, keeping nothing of an earlier text.
    const std::string ones = Repeat("1+", 40) + "1";
    k.GetVars().SetVarNum("x0", 100);
    EXPECT_RAISES(k.ComputeExpr("x[" + ones + "-(" + ones + ")"), "LookforEndBrackets",
                  "Evaluating [[" + ones + "-(" + ones + ")]: End of brackets is missing");
    EXPECT_EQ(k.ComputeExpr("x[0*(" + ones + ")]"), 100);
}
