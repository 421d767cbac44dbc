// One run of the tool: an evaluator, the way results are printed and whether anything failed.
#pragma once

#include <iosfwd>
#include <string>
#include <string_view>

#include "evaluator/Kalvos.h"

namespace cli {

/// The shortest text that reads back to the same double: 11, 0.30000000000000004, 1e+300, -0.
std::string FormatNumber(double value);

class Session {
public:
    /// With `asBool`, every expression is evaluated as a condition and printed as true/false.
    Session(std::ostream& out, std::ostream& err, bool asBool);

    /// Evaluates one line or argument. `origin` is appended to every error message, so that
    /// it says where the expression came from, e.g. " (line 3)".
    void RunLine(std::string_view text, const std::string& origin);
    /// Runs every line of a stream; `where` prefixes the line number in messages ("FILE ").
    void RunStream(std::istream& in, const std::string& where);
    void DefineNumber(const std::string& name, std::string_view expr, const std::string& origin);
    void DefineText(const std::string& name, const std::string& text);
    /// Seeds the generator through the expression language, as any host would.
    void Seed(int seed);
    /// Every variable as "name = value", texts in double quotes, in the order of definition.
    void ListVars() const;

    bool AnyFailed() const { return Failed; }

private:
    template <typename Compute>
    void Guard(Compute compute);

    Kalvos Eval;
    std::ostream& Out;
    std::ostream& Err;
    bool AsBool;
    bool Failed = false;
};

}  // namespace cli
