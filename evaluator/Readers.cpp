#include <locale.h>

#include <array>
#include <charconv>
#include <clocale>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

// macOS and the BSDs declare the conversions with an explicit locale in their own header.
#if defined(__APPLE__) || defined(__FreeBSD__) || defined(__OpenBSD__) || defined(__NetBSD__)
#include <xlocale.h>
#endif

#include "evaluator/Kalvos.h"
#include "support/KalvosVars.h"

namespace {

// Up to 15 significant digits make an exact double, and so do the powers of ten up to 1e22:
// one multiplication or division of two exact values is then correctly rounded, the value any
// correct conversion gives. Literals outside that range are left to the full conversion.
constexpr int kMaxExactDigits = 15;
constexpr int kMaxExactScale = 22;

double ScaleExactly(std::uint64_t mantissa, int scale) {
    static constexpr double kPowersOfTen[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                              1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                              1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    const auto m = static_cast<double>(mantissa);
    return scale >= 0 ? m * kPowersOfTen[scale] : m / kPowersOfTen[-scale];
}

// The characters MatchSpans looks at; most of a text is none of them.
constexpr std::array<bool, 256> kSpanChar = [] {
    std::array<bool, 256> span{};
    for (const char c : {'(', ')', '[', ']'}) span[static_cast<unsigned char>(c)] = true;
    return span;
}();

// strtod in the "C" locale, which is made once: the conversion must not follow a host that has
// set a locale with another decimal point. This is the library's only system-specific code:
// glibc, musl, macOS and the BSDs have strtod_l, the Windows C runtime _strtod_l.
#if defined(_WIN32)
double StrtodClassic(const char* text, char** stop) {
    static const _locale_t locale = _create_locale(LC_ALL, "C");
    return _strtod_l(text, stop, locale);
}
#else
double StrtodClassic(const char* text, char** stop) {
    static const locale_t locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
    return strtod_l(text, stop, locale);
}
#endif

}  // namespace

Kalvos::TpOper Kalvos::ReadOperator(std::string& text) {
    unsigned int length = 0;
    const TpOper oper = ScanOperatorToken(text, length);
    text.erase(0, length);
    return oper;
}

// Two-character operators first, so that "<=" is never read as "<" followed by "=". A single
// "=", "@" or "|" is no operator.
Kalvos::TpOper Kalvos::ScanOperatorToken(std::string_view text, unsigned int& length) {
    struct Token {
        char First;
        TpOper Alone;       // the first character on its own
        char Second;        // the character that makes it a two-character operator
        TpOper WithSecond;  // that operator
    };
    static constexpr Token kTokens[] = {{'=', OP_None, '=', OP_Eq},  {'!', OP_Not, '=', OP_Neq},
                                        {'<', OP_Lt, '=', OP_Le},    {'>', OP_Gt, '=', OP_Ge},
                                        {'@', OP_None, '@', OP_And}, {'|', OP_None, '|', OP_Or},
                                        {'*', OP_Mul, 0, OP_None},   {'/', OP_Div, 0, OP_None},
                                        {'+', OP_Add, 0, OP_None},   {'-', OP_Sub, 0, OP_None}};
    static constexpr auto kByFirst = [] {
        std::array<Token, 256> byFirst{};
        for (const Token& token : kTokens) byFirst[static_cast<unsigned char>(token.First)] = token;
        return byFirst;
    }();
    length = 0;
    if (text.empty()) return OP_None;
    const Token& token = kByFirst[static_cast<unsigned char>(text[0])];
    if (token.WithSecond != OP_None && text.size() > 1 && text[1] == token.Second) {
        length = 2;
        return token.WithSecond;
    }
    if (token.Alone != OP_None) length = 1;
    return token.Alone;
}

unsigned int Kalvos::LookforEndParentesis(const std::string& text) const {
    return SpanEnd(text, '(', MessageId::NoEndOfParentheses);
}

unsigned int Kalvos::LookforEndBrackets(const std::string& text) const {
    return SpanEnd(text, '[', MessageId::NoEndOfBrackets);
}

// The length of the span from the opening delimiter at text[0], which is taken to be one
// whatever it is, up to and including its matching closing one.
unsigned int Kalvos::SpanEnd(std::string_view text, char open, MessageId missing) const {
    std::string opened(text);
    if (!opened.empty()) opened[0] = open;
    std::vector<std::uint32_t> match, parens, brackets;
    MatchSpans(opened, match, parens, brackets);
    if (opened.empty() || match[0] == kNone) Throw(DescribeText(missing, __LINE__, text));
    return match[0] + 1;
}

// For each "(" and "[" of the text, the position of the ")" or "]" that closes it: the first
// at which the count of that pair alone comes back to the depth before it, kNone for none. To
// parentheses, brackets are ordinary characters, and the other way round. One pass, so that
// reading a deeply nested text stays linear. True when the parentheses pair up from left to
// right: none is left open, and no ")" comes while none is, so ")1+2(" is wrong too.
[[gnu::noinline]] bool Kalvos::MatchSpans(std::string_view text, std::vector<std::uint32_t>& match,
                                          std::vector<std::uint32_t>& parens,
                                          std::vector<std::uint32_t>& brackets) {
    for (std::vector<std::uint32_t>* grown : {&match, &parens, &brackets}) {
        if (grown->size() < text.size()) grown->resize(text.size());
    }
    std::uint32_t openParens = 0, openBrackets = 0;
    bool unopened = false;
    for (std::uint32_t pos = 0; pos < text.size(); ++pos) {
        if (!kSpanChar[static_cast<unsigned char>(text[pos])]) continue;
        switch (text[pos]) {
            case '(':
                parens[openParens++] = pos;
                break;
            case '[':
                brackets[openBrackets++] = pos;
                break;
            case ')':
                unopened = unopened || openParens == 0;
                if (openParens > 0) match[parens[--openParens]] = pos;
                break;
            default:  // "]"
                if (openBrackets > 0) match[brackets[--openBrackets]] = pos;
                break;
        }
    }
    const bool balanced = !unopened && openParens == 0;
    while (openParens > 0) match[parens[--openParens]] = kNone;
    while (openBrackets > 0) match[brackets[--openBrackets]] = kNone;
    return balanced;
}

std::string Kalvos::ReadName(const std::string& text, unsigned int& length, char& next) const {
    const std::size_t n = ScanName(text);
    length = static_cast<unsigned int>(n);
    next = n < text.size() ? text[n] : '\0';
    return text.substr(0, n);
}

// The first character was accepted by FirstCharValid before; the name runs on while
// CharValid accepts.
std::size_t Kalvos::ScanName(std::string_view text) {
    std::size_t n = 1;
    while (n < text.size() && KalvosVars::CharValid(text[n])) ++n;
    return n;
}

double Kalvos::ReadNumber(std::string& text, bool& invalid) const {
    if (invalid) return 0.0;
    double value = 0.0;
    const std::size_t length = ScanNumber(text, value);
    if (length == 0) {
        invalid = true;
        return 0.0;
    }
    text.erase(0, length);
    return value;
}

// number := digit+ ( "." digit* )? ( ("e" | "E") ("+" | "-") digit+ )?
// The exponent's sign is required, so that 2e+1 is one number and a bare "e" after digits is
// an error rather than the start of a name. Gives the length taken, 0 for no valid number.
// A short literal is converted as it is read (see ScaleExactly), any other by ConvertNumber.
std::size_t Kalvos::ScanNumber(std::string_view text, double& value) {
    std::uint64_t mantissa = 0;  // of the significant digits; wraps when there are too many
    std::size_t digits = 0;
    const auto take = [&](char c) {
        if (digits == 0 && c == '0') return;  // leading zeros are no digits
        ++digits;
        mantissa = mantissa * 10 + static_cast<std::uint64_t>(c - '0');
    };
    std::size_t end = 0;
    while (end < text.size() && KalvosVars::IsDigit(text[end])) take(text[end++]);
    if (end == 0) return 0;
    std::size_t fraction = 0;
    if (end < text.size() && text[end] == '.') {
        const std::size_t first = ++end;
        while (end < text.size() && KalvosVars::IsDigit(text[end])) take(text[end++]);
        fraction = end - first;
    }
    long exponent = 0;  // stops growing far beyond any exact scale, where it no longer matters
    if (end < text.size() && (text[end] == 'e' || text[end] == 'E')) {
        const bool signFollows =
            end + 1 < text.size() && (text[end + 1] == '+' || text[end + 1] == '-');
        if (!signFollows || end + 2 >= text.size() || !KalvosVars::IsDigit(text[end + 2])) {
            return 0;
        }
        const bool negative = text[end + 1] == '-';
        for (end += 2; end < text.size() && KalvosVars::IsDigit(text[end]); ++end) {
            if (exponent <= 1000) exponent = exponent * 10 + (text[end] - '0');
        }
        if (negative) exponent = -exponent;
    }
    if (digits == 0) {  // zero, whatever its scale
        value = 0.0;
        return end;
    }
    // The fraction's length is bounded first, so that the scale below cannot overflow.
    const bool exact = digits <= static_cast<std::size_t>(kMaxExactDigits) &&
                       fraction <= static_cast<std::size_t>(kMaxExactScale) &&
                       std::labs(exponent - static_cast<long>(fraction)) <= kMaxExactScale;
    if (exact) {
        value = ScaleExactly(mantissa, static_cast<int>(exponent - static_cast<long>(fraction)));
        return end;
    }
    return ConvertNumber(text.substr(0, end), value) ? end : 0;
}

// Gives exactly what extracting a double from a stream in the "C" locale gives: the correctly
// rounded value, 0 or a subnormal for an underflow, and failure for an overflow. from_chars
// first; whatever it does not convert cleanly goes through strtod in the "C" locale, which is
// what the stream extraction itself calls.
bool Kalvos::ConvertNumber(std::string_view literal, double& value) {
    const char* end = literal.data() + literal.size();
    const auto result = std::from_chars(literal.data(), end, value);
    if (result.ec == std::errc() && result.ptr == end) return true;
    const std::string copy(literal);
    char* stop = nullptr;
    value = StrtodClassic(copy.c_str(), &stop);
    return stop == copy.c_str() + copy.size() && value <= 1.7976931348623157e+308;
}
