// How the tool writes numbers and echoes text that came from its input.
#pragma once

#include <string>
#include <string_view>

#include "evaluator/Kalvos.h"

namespace cli {

/// The shortest digits that read back to the same double, laid out as Python's repr does:
/// fixed notation for 1e-4 <= |x| < 1e16 (100000, 0.0001, 0.30000000000000004), exponent
/// form otherwise (1e+16, 1.5e-07); inf, -inf and nan for the values that are no number.
std::string FormatNumber(double value);

/// Exactly `decimals` digits after the point, as printf's "%.*f"; inf, -inf and nan as above.
std::string FormatFixed(double value, int decimals);

/// Text from the input made safe to show on a terminal: control characters and bytes that
/// are not UTF-8 become \xHH, and a text longer than kMaxEchoLength keeps its start and its
/// end around a marker that says how much was left out.
std::string Printable(std::string_view text);

/// A built-in function as it is called: pi(), sqrt(x), atan2(a, b), max(a, b, ...).
std::string CallForm(const Kalvos::FunctionInfo& info);

/// Far more than a message about one line needs, small enough to read on a screen.
constexpr std::size_t kMaxEchoLength = 300;

}  // namespace cli
