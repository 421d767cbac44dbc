#pragma once

#include <string>

#include "kalvos_export.h"

/// Small text helpers shared by the evaluator and its store.
namespace fun {

/// printf-style formatting into a text of whatever length the result needs. Values given for
/// %s are copied as they are, '%' characters included.
KALVOS_EXPORT std::string PrintStr(const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 1, 2)))
#endif
    ;

/// One number formatted with a printf format holding one floating-point conversion. "%g"
/// is written as in the "C" locale, whatever locale the host has set.
KALVOS_EXPORT std::string DoubleStr(double value, const char* format = "%g");

KALVOS_EXPORT std::string IntStr(int value);

/// The text with its ASCII letters lowered; every other byte is kept.
KALVOS_EXPORT std::string StrLower(const std::string& text);

KALVOS_EXPORT std::string StrWithoutChar(const std::string& text, char c);

}  // namespace fun
