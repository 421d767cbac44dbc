#include "tools/Printing.h"

#include <charconv>
#include <cmath>
#include <cstdio>

namespace cli {

namespace {

// Python's repr switches to the exponent form outside [1e-4, 1e16): below, leading zeros
// would outnumber the digits; from 1e16 on, a double no longer holds every integer.
constexpr int kLowestFixedExponent = -4;
constexpr int kFirstExponentForm = 16;

// The text of what is no number; NaN has no sign worth showing, whatever made it.
const char* Special(double value) {
    if (std::isnan(value)) return "nan";
    if (std::isinf(value)) return value < 0 ? "-inf" : "inf";
    return nullptr;
}

std::string LayOut(bool negative, const std::string& digits, int exponent) {
    std::string text = negative ? "-" : "";
    const int count = static_cast<int>(digits.size());
    if (exponent < kLowestFixedExponent || exponent >= kFirstExponentForm) {
        text += digits[0];
        if (count > 1) text += "." + digits.substr(1);
        const int magnitude = exponent < 0 ? -exponent : exponent;
        text += exponent < 0 ? "e-" : "e+";
        if (magnitude < 10) text += '0';  // at least two digits, as printf writes them
        return text + std::to_string(magnitude);
    }
    // Fixed form from here on: exponent is within [-4, 16), so every count below is small.
    if (exponent < 0) {
        return text + "0." + std::string(static_cast<std::size_t>(-exponent - 1), '0') + digits;
    }
    const std::size_t point = static_cast<std::size_t>(exponent) + 1;  // digits before the point
    if (digits.size() <= point) return text + digits + std::string(point - digits.size(), '0');
    return text + digits.substr(0, point) + "." + digits.substr(point);
}

// Bytes of a well-formed UTF-8 sequence that starts at `text[0]`, or 0 for a byte that
// starts none (overlong forms, surrogates and code points above U+10FFFF included).
std::size_t SequenceLength(std::string_view text) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(0);
    std::size_t length = lead < 0x80   ? 1
                         : lead < 0xC2 ? 0
                         : lead < 0xE0 ? 2
                         : lead < 0xF0 ? 3
                         : lead < 0xF5 ? 4
                                       : 0;
    if (length == 0 || length > text.size()) return 0;
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) return 0;
    }
    if (length == 3 && lead == 0xE0 && byte(1) < 0xA0) return 0;   // overlong
    if (length == 3 && lead == 0xED && byte(1) >= 0xA0) return 0;  // surrogate
    if (length == 4 && lead == 0xF0 && byte(1) < 0x90) return 0;   // overlong
    if (length == 4 && lead == 0xF4 && byte(1) >= 0x90) return 0;  // above U+10FFFF
    return length;
}

// A terminal acts on C0 and C1 control characters (ESC starts a sequence that can move the
// cursor, retitle the window or worse), so none of them reaches it from the input.
bool IsControl(std::string_view sequence) {
    const auto lead = static_cast<unsigned char>(sequence[0]);
    if (sequence.size() == 1) return lead < 0x20 || lead == 0x7F;
    return lead == 0xC2 && static_cast<unsigned char>(sequence[1]) < 0xA0;
}

void AppendEscaped(std::string& out, std::string_view text) {
    static const char kHex[] = "0123456789abcdef";
    while (!text.empty()) {
        std::size_t length = SequenceLength(text);
        const bool escape = length == 0 || IsControl(text.substr(0, length));
        if (length == 0) length = 1;
        if (escape) {
            for (std::size_t i = 0; i < length; ++i) {
                const auto byte = static_cast<unsigned char>(text[i]);
                out += "\\x";
                out += kHex[byte >> 4];
                out += kHex[byte & 0xF];
            }
        } else {
            out.append(text.substr(0, length));
        }
        text.remove_prefix(length);
    }
}

// Moves a cut forward off the continuation bytes of a UTF-8 sequence, so that no character
// is split by it.
std::size_t CharacterStart(std::string_view text, std::size_t at) {
    while (at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80) ++at;
    return at;
}

// The parameters as the descriptions name them: x alone, a, b, c for several.
std::string Parameters(unsigned int count, bool more) {
    if (count == 1 && !more) return "x";
    std::string text;
    for (unsigned int i = 0; i < count; ++i) {
        if (i > 0) text += ", ";
        text += static_cast<char>('a' + i);
    }
    return more ? text + ", ..." : text;
}

}  // namespace

std::string FormatNumber(double value) {
    if (const char* special = Special(value)) return special;
    // The shortest round-trip digits, in the form d.ddde±x whatever the magnitude; 32
    // characters hold the longest, such as -2.2250738585072014e-308.
    char buffer[32];
    const auto result =
        std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::scientific);
    const std::string_view text(buffer, static_cast<std::size_t>(result.ptr - buffer));
    const bool negative = text[0] == '-';
    const std::size_t first = negative ? 1 : 0;
    const std::size_t mark = text.find('e');
    std::string digits(1, text[first]);
    if (mark > first + 1) digits.append(text.substr(first + 2, mark - first - 2));
    const std::size_t exponentStart = mark + (text[mark + 1] == '+' ? 2 : 1);
    int exponent = 0;
    std::from_chars(text.data() + exponentStart, text.data() + text.size(), exponent);
    return LayOut(negative, digits, exponent);
}

std::string FormatFixed(double value, int decimals) {
    if (const char* special = Special(value)) return special;
    const int length = std::snprintf(nullptr, 0, "%.*f", decimals, value);
    std::string text(static_cast<std::size_t>(length) + 1, '\0');
    (void)std::snprintf(&text[0], text.size(), "%.*f", decimals, value);  // measured above
    text.pop_back();
    return text;
}

std::string Printable(std::string_view text) {
    std::string out;
    if (text.size() <= kMaxEchoLength) {
        AppendEscaped(out, text);
        return out;
    }
    // The end of a message says what went wrong and where, so it is kept as well as the start.
    const std::size_t keep = (kMaxEchoLength - 60) / 2;
    const std::size_t headEnd = CharacterStart(text, keep);
    const std::size_t tailStart = CharacterStart(text, text.size() - keep);
    AppendEscaped(out, text.substr(0, headEnd));
    out += " [... " + std::to_string(tailStart - headEnd) + " of " + std::to_string(text.size()) +
           " bytes left out ...] ";
    AppendEscaped(out, text.substr(tailStart));
    return out;
}

std::string CallForm(const Kalvos::FunctionInfo& info) {
    const bool more = info.MaxParams > info.MinParams;
    return std::string(info.Name) + "(" + Parameters(info.MinParams, more) + ")";
}

}  // namespace cli
