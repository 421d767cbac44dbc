// What the tool writes under the library's message of a failing line, so that it points at
// the fault: the line as written with a caret under the place the message names, and hints.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tools/MessageFields.h"

class KalvosVars;

namespace cli {

/// The lines to write under the message of a failure of `line`, which is what the user wrote:
/// the line and a caret under the place the message names, its column counted in the line
/// with its blanks; then hints for what other languages write (2^3, x && 1, 1.5e3, pi) and
/// the defined names closest to an unknown one.
std::vector<std::string> Explain(std::string_view line, const MessageFields& fields,
                                 const KalvosVars& vars);

/// The variable that a "does not exist" message names, or "".
std::string_view MissingName(const MessageFields& fields);

/// The names within edit distance 2 of `name` that are closest to it, at most three, in
/// alphabetical order; a name needs fewer changes than it has characters, so that "x" is not
/// taken for "y".
std::vector<std::string> ClosestNames(std::string_view name,
                                      const std::vector<std::string>& candidates);

}  // namespace cli
