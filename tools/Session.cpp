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

std::string Evaluator::TargetName(const Target& target, std::string_view text,
                                  const std::string& origin) {
    // A failing index names the origin, as the error text of the calls that fail.
    ErrorText = origin;
    std::string name(target.Name);
    for (const std::string_view index : target.Indices) {
        const std::string indexText = fun::StrWithoutChar(std::string(index), ' ');
        const int number = TruncToInt(ComputExpr(indexText));
        if (number < 0) {
            Raise<MessageId::NegativeIndex>(__LINE__, origin,
                                            fun::StrWithoutChar(std::string(text), ' '), indexText);
        }
        name += std::to_string(number);
    }
    return name;
}

Session::Session(std::ostream& out, std::ostream& err, bool asBool)
    : Out(out), Err(err), AsBool(asBool) {}

// A failure is reported and counted; the run goes on with the next line.
template <typename Compute>
void Session::Guard(Compute compute) {
    try {
        compute();
    } catch (const JException& e) {
        Fail(e.GetText());
    }
}

void Session::Report(const std::string& message) {
    Out.flush();
    Err << "kalvos: " << Printable(message) << '\n' << std::flush;
}

void Session::Fail(const std::string& message) {
    Report(message);
    Failed = true;
}

void Session::Print(const std::string& text) {
    errno = 0;
    Out << text << '\n';
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

std::string Session::Resolve(std::string_view targetText, const std::string& origin) {
    Target target;
    ReadTarget(targetText, target);
    if (target.Indices.empty()) return std::string(target.Name);
    return Eval.TargetName(target, targetText, origin);
}

void Session::RunLine(std::string_view text, const std::string& origin) {
    const Line line = ClassifyLine(text);
    switch (line.Kind) {
        case LineKind::Blank:
        case LineKind::Comment:
            return;
        case LineKind::BadTarget:
            Fail("cannot assign to '" + std::string(line.Target) +
                 "': a variable is a letter or '_', then letters, digits or '_', then any "
                 "number of [INDEX]" +
                 origin);
            return;
        case LineKind::Assignment:
            Guard([&] {
                const std::string name = Resolve(line.Target, origin);
                StoreNumber(name, Eval.ComputeExpr(std::string(line.Body), origin));
            });
            return;
        case LineKind::TextAssignment:
            Guard([&] {
                const std::string name = Resolve(line.Target, origin);
                StoreText(name, Eval.ComputeExprStr(std::string(line.Body), origin));
            });
            return;
        case LineKind::Text:
            Guard([&] { Print(Eval.ComputeExprStr(std::string(line.Body), origin)); });
            return;
        case LineKind::Expression:
            Guard([&] {
                const std::string expr(line.Body);
                double value = 0;
                if (AsBool) {
                    value = Eval.ComputeExprBool(expr, origin) ? 1 : 0;
                    Print(value != 0 ? "true" : "false");
                } else {
                    value = Eval.ComputeExpr(expr, origin);
                    Print(Format(value));
                }
                if (Answers) Eval.GetVars().SetVarNum("ans", value);
            });
            return;
    }
}

void Session::RunStream(std::istream& in, const std::string& where) {
    std::string text;
    for (unsigned long number = 1; WriteError == 0 && std::getline(in, text); ++number) {
        const std::string_view line =
            number == 1 ? SkipByteOrderMark(text) : std::string_view(text);
        RunLine(line, " (" + where + "line " + std::to_string(number) + ")");
    }
}

void Session::DefineText(std::string_view target, const std::string& text,
                         const std::string& origin) {
    Guard([&] { StoreText(Resolve(target, origin), text); });
}

void Session::Claim(const std::string& name) {
    if (Answers && name == "ans") {
        Answers = false;
        Report("'ans' now holds your own value; results are no longer stored in it");
    }
}

void Session::StoreNumber(const std::string& name, double value) {
    Claim(name);
    Eval.GetVars().SetVarNum(name, value);
}

void Session::StoreText(const std::string& name, const std::string& text) {
    Claim(name);
    Eval.GetVars().SetVarStr(name, text);
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
            Print(name + " = " + ReadableNumber(vars.GetVarNum(idx, "")));
            continue;
        }
        const std::string text = vars.GetVarStr(idx, "");
        if (HoldsMarker(text) || text.find_first_of("\r\n") != std::string::npos) {
            Print("// " + name + " holds a line break or a [marker], which a line cannot store");
        } else {
            Print(name + " = $" + text);
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
        rows.emplace_back(std::string(info.Name) + "(" + Parameters(info.MinParams, more) + ")",
                          description);
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
