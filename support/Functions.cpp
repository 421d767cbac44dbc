#include "support/Functions.h"

#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace fun {
namespace {

std::string VPrintStr(const char* format, va_list args) {
    va_list measure;
    va_copy(measure, args);
    const int length = std::vsnprintf(nullptr, 0, format, measure);
    va_end(measure);
    if (length <= 0) return std::string();
    std::string text(static_cast<std::size_t>(length), '\0');
    if (std::vsnprintf(text.data(), text.size() + 1, format, args) != length) return std::string();
    return text;
}

}  // namespace

// A printf-style helper is what the evaluator's messages are written for; the format attribute
// of the declaration lets the compiler check every call.
// NOLINTNEXTLINE(cert-dcl50-cpp)
std::string PrintStr(const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::string text = VPrintStr(format, args);
    va_end(args);
    return text;
}

std::string DoubleStr(double value, const char* format) {
    if (std::strcmp(format, "%g") == 0) {
        // to_chars with a precision of 6 is "%g" in the "C" locale: a file name built from a
        // number must not change with the host's decimal point.
        char buffer[64];
        const auto result =
            std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::general, 6);
        return std::string(buffer, result.ptr);
    }
    return PrintStr(format, value);
}

std::string IntStr(int value) {
    char buffer[16];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    return std::string(buffer, result.ptr);
}

std::string StrLower(const std::string& text) {
    std::string lower = text;
    for (char& c : lower) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return lower;
}

std::string StrWithoutChar(const std::string& text, char c) {
    std::string kept;
    kept.reserve(text.size());
    for (const char ch : text) {
        if (ch != c) kept += ch;
    }
    return kept;
}

}  // namespace fun
