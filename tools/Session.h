// One run of the tool: an evaluator, the way results are printed and whether anything failed.
#pragma once

#include <iosfwd>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "evaluator/Kalvos.h"

namespace cli {

/// The evaluator with what the tool needs beyond the public entry points: seeding without an
/// expression.
class Evaluator : public Kalvos {
public:
    void Seed(int seed) const { RandomInit(seed); }
};

class Session {
public:
    /// With `asBool`, every expression is evaluated as a condition and printed as true/false.
    Session(std::ostream& out, std::ostream& err, bool asBool);

    /// Evaluates one line or argument. `origin` is appended to every error message, so that
    /// it says where the expression came from, e.g. " (argument 3)".
    void RunLine(std::string_view text, const std::string& origin);
    /// Runs every line of a set-up, read by the library; `source` names it in messages ("" for
    /// standard input). Stops when output fails.
    void RunSetup(const std::string& text, const std::string& source);
    void RunSetup(std::istream& in, const std::string& source);
    /// Stores the text as it is, without expanding markers; the target may have indices.
    void DefineText(std::string_view target, const std::string& text, const std::string& origin);
    void Seed(int seed) { Eval.Seed(seed); }
    /// A seed from the system's source of randomness, so that runs in the same second differ.
    void SeedRandomly();
    /// Numbers with that many digits after the point instead of the shortest form.
    void SetDecimals(int decimals) { Decimals = decimals; }
    /// From now on each result is also stored in "ans", as long as no one else uses the name.
    void KeepAnswers();
    /// The values of expressions go to the error stream, so that the output holds nothing
    /// but what ListVars prints.
    void PrintValuesToErrors() { Values = &Err; }

    /// Every variable as a line that the tool reads back: "x = 1.5", "unit = $m/s". Returns
    /// how many there are.
    std::size_t ListVars();
    /// Every built-in function with its parameters and what it gives, one a line.
    static void ListFunctions(std::ostream& out);
    /// The names of functions and variables that begin with `prefix`; functions end in "(".
    std::vector<std::string> Completions(std::string_view prefix) const;
    bool HasVariable(const std::string& name) const;

    /// Sends what is buffered, noting a failure as any output does.
    void Flush();
    /// Writes "kalvos: MESSAGE" to the error stream, made safe for a terminal.
    void Report(const std::string& message);
    /// Counts as a failed line.
    void Fail(const std::string& message);

    bool AnyFailed() const { return Failed; }
    /// The system's error number of the first output that failed; 0 while all went out.
    int OutputError() const { return WriteError; }

private:
    Kalvos::SetupOptions Options();
    template <typename Read>
    void Guarded(Read read);
    void TakeResult(const Kalvos::SetupResult& result);
    void TakeFailure(const Kalvos::SetupFailure& failure);
    void Print(std::ostream& stream, const std::string& text);
    void NoteWriteError();
    void Claim(const std::string& name);
    std::string Format(double value) const;

    Evaluator Eval;
    std::ostream& Out;
    std::ostream& Err;
    std::ostream* Values;  // where the values of expressions go
    bool AsBool;
    int Decimals = -1;  // below 0: the shortest form
    bool Failed = false;
    int WriteError = 0;
    bool Answers = false;
    // The variables whose lines failed, with where each line stands ("line 13"), so that a
    // line failing only for want of one says so instead of raising a fresh error.
    std::map<std::string, std::string> Undefined;
};

}  // namespace cli
