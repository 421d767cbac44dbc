#include "tools/Session.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <istream>
#include <ostream>
#include <random>

#include "support/Functions.h"
#include "support/JObject.h"
#include "support/KalvosVars.h"
#include "tools/Diagnosis.h"
#include "tools/MessageFields.h"
#include "tools/Printing.h"

namespace cli {

namespace {

// A "$" line stores the expansion of its text, so a text that holds a marker cannot be
// written as one: the marker would be replaced. Markers are found as the expansion finds them.
bool HoldsMarker(std::string_view text) {
    std::size_t open = std::string_view::npos;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '[') {
            open = i;
        } else if (text[i] == ']' && open != std::string_view::npos) {
            if (i > open + 1) return true;
            open = std::string_view::npos;
        }
    }
    return false;
}

// What a dump writes for a value; the values that are no number have no literal, so an
// expression that gives them stands in for one.
std::string ReadableNumber(double value) {
    if (std::isnan(value)) return "0 * (1e+308 * 10)";
    if (std::isinf(value)) return value < 0 ? "-1e+308 * 10" : "1e+308 * 10";
    return FormatNumber(value);
}

// A name that an expression can spell, so that completing it gives something to type.
bool IsName(std::string_view text) {
    return !text.empty() && KalvosVars::FirstCharValid(text[0]) &&
           std::all_of(text.begin() + 1, text.end(), KalvosVars::CharValid);
}

// Thrown from a callback when the output fails, so that no more lines are read.
struct StopReading {};

// Where a line stands, from the error text of its messages: " (setup.kalvos line 13)" gives
// "setup.kalvos line 13".
std::string_view WhereOf(std::string_view errortext) {
    if (errortext.size() < 3 || errortext.substr(0, 2) != " (" || errortext.back() != ')') {
        return {};
    }
    return errortext.substr(2, errortext.size() - 3);
}

// "line 13" when both lines stand in the same source, else where the failed line stands.
std::string Relative(std::string_view failed, std::string_view here) {
    constexpr std::string_view kLine = "line ";
    const std::size_t mark = failed.rfind(kLine);
    const bool sameSource =
        mark != std::string_view::npos &&
        here.substr(0, mark + kLine.size()) == failed.substr(0, mark + kLine.size());
    return std::string(sameSource ? failed.substr(mark) : failed);
}

}  // namespace

Session::Session(std::ostream& out, std::ostream& err, bool asBool)
    : Out(out), Err(err), Values(&out), AsBool(asBool) {}

void Session::Report(const std::string& message) {
    Out.flush();
    Err << "kalvos: " << Printable(message) << '\n' << std::flush;
}

void Session::Fail(const std::string& message) {
    Report(message);
    Failed = true;
}

void Session::Print(std::ostream& stream, const std::string& text) {
    errno = 0;
    stream << text << '\n';
    NoteWriteError();
}

void Session::Flush() {
    errno = 0;
    Out.flush();
    NoteWriteError();
}

// The first failed write is kept, with what errno said of it.
void Session::NoteWriteError() {
    if (!Out && WriteError == 0) WriteError = errno != 0 ? errno : EIO;
}

std::string Session::Format(double value) const {
    return Decimals < 0 ? FormatNumber(value) : FormatFixed(value, Decimals);
}

// Every line goes on after a failure, which is reported as it comes.
Kalvos::SetupOptions Session::Options() {
    Kalvos::SetupOptions options;
    options.KeepGoing = true;
    options.Conditions = AsBool;
    options.OnResult = [this](const Kalvos::SetupResult& result) { TakeResult(result); };
    options.OnFailure = [this](const Kalvos::SetupFailure& failure) { TakeFailure(failure); };
    return options;
}

// Nothing more is read once the output has failed.
template <typename Read>
void Session::Guarded(Read read) {
    if (WriteError != 0) return;
    try {
        read(Options());
    } catch (const StopReading&) {
    }
}

void Session::TakeResult(const Kalvos::SetupResult& result) {
    using Kind = Kalvos::SetupLineKind;
    if (!result.Name.empty()) {
        Undefined.erase(result.Name);
        Claim(result.Name);
    }
    if (result.Kind == Kind::Text) Print(*Values, result.Str);
    if (result.Kind == Kind::Expression) {
        Print(*Values, AsBool ? (result.Num != 0 ? "true" : "false") : Format(result.Num));
        if (Answers) Eval.GetVars().SetVarNum("ans", result.Num);
    }
    if (WriteError != 0) throw StopReading();
}

// A failure that only follows from an earlier one names that one instead of its own message.
void Session::TakeFailure(const Kalvos::SetupFailure& failure) {
    MessageFields fields;
    const bool known = ReadMessage(failure.Method, failure.Message, failure.ErrorText, fields);
    const std::string_view here = WhereOf(failure.ErrorText);
    const auto undefined =
        known ? Undefined.find(std::string(MissingName(fields))) : Undefined.end();
    if (undefined != Undefined.end()) {
        Fail(undefined->first + " was not defined: " + Relative(undefined->second, here) +
             " failed" + failure.ErrorText);
    } else {
        Fail(failure.Message);
        if (known) {
            for (const std::string& line : cli::Explain(failure.Text, fields, Eval.GetVars())) {
                Err << "  " << line << '\n';
            }
            Err << std::flush;
        }
    }
    if (!failure.Target.empty() && !here.empty()) Undefined[failure.Target] = here;
}

void Session::RunLine(std::string_view text, const std::string& origin) {
    Guarded([&](const Kalvos::SetupOptions& options) { Eval.RunSetupLine(text, origin, options); });
}

void Session::RunSetup(const std::string& text, const std::string& source) {
    Guarded([&](const Kalvos::SetupOptions& options) { Eval.RunSetup(text, source, options); });
}

void Session::RunSetup(std::istream& in, const std::string& source) {
    Guarded([&](const Kalvos::SetupOptions& options) { Eval.RunSetup(in, source, options); });
}

void Session::DefineText(std::string_view target, const std::string& text,
                         const std::string& origin) {
    try {
        const std::string name = Eval.GetSetupTargetName(target, origin);
        Claim(name);
        Eval.GetVars().SetVarStr(name, text);
        Undefined.erase(name);
    } catch (const JException& e) {
        Fail(e.GetText());
    }
}

void Session::Claim(const std::string& name) {
    if (Answers && name == "ans") {
        Answers = false;
        Report("'ans' now holds your own value; results are no longer stored in it");
    }
}

void Session::SeedRandomly() {
    // Without a source of randomness the evaluator keeps its own seed, taken from the clock.
    try {
        std::random_device device;
        Eval.Seed(static_cast<int>(device() & 0x7FFFFFFFu));
    } catch (const std::exception&) {
    }
}

void Session::KeepAnswers() {
    if (HasVariable("ans")) {
        Report("a variable 'ans' exists; results are not stored in it");
    } else {
        Answers = true;
    }
}

bool Session::HasVariable(const std::string& name) const {
    return Eval.GetVars().GetVarIdx(name) != KalvosVars::kNoVar;
}

std::size_t Session::ListVars() {
    const KalvosVars& vars = Eval.GetVars();
    for (unsigned int idx = 0; idx < vars.GetCount(); ++idx) {
        const std::string& name = vars.GetVarName(idx);
        if (vars.VarIsNum(idx)) {
            Print(Out, name + " = " + ReadableNumber(vars.GetVarNum(idx, "")));
            continue;
        }
        const std::string text = vars.GetVarStr(idx, "");
        if (HoldsMarker(text) || text.find_first_of("\r\n") != std::string::npos) {
            Print(Out,
                  "// " + name + " holds a line break or a [marker], which a line cannot store");
        } else {
            Print(Out, name + " = $" + text);
        }
    }
    return vars.GetCount();
}

void Session::ListFunctions(std::ostream& out) {
    std::vector<std::pair<std::string, std::string>> rows;
    std::size_t width = 0;
    for (std::size_t i = 0; i < Kalvos::GetFunctionCount(); ++i) {
        const Kalvos::FunctionInfo info = Kalvos::GetFunction(i);
        const bool more = info.MaxParams > info.MinParams;
        std::string description(info.Description);
        if (more) {
            description += " (" + std::to_string(info.MinParams) + " to " +
                           std::to_string(info.MaxParams) + " parameters)";
        }
        rows.emplace_back(CallForm(info), description);
        width = std::max(width, rows.back().first.size());
    }
    for (const auto& [call, description] : rows) {
        out << call << std::string(width + 2 - call.size(), ' ') << description << '\n';
    }
}

std::vector<std::string> Session::Completions(std::string_view prefix) const {
    std::vector<std::string> names;
    for (std::size_t i = 0; i < Kalvos::GetFunctionCount(); ++i) {
        const std::string_view name = Kalvos::GetFunction(i).Name;
        if (name.substr(0, prefix.size()) == prefix) names.push_back(std::string(name) + "(");
    }
    const KalvosVars& vars = Eval.GetVars();
    for (unsigned int idx = 0; idx < vars.GetCount(); ++idx) {
        const std::string& name = vars.GetVarName(idx);
        if (IsName(name) && name.compare(0, prefix.size(), prefix) == 0) names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    return names;
}

}  // namespace cli
