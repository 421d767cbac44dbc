#include "tools/Diagnosis.h"

#include <algorithm>
#include <cctype>
#include <charconv>

#include "evaluator/Kalvos.h"
#include "support/KalvosVars.h"
#include "tools/Printing.h"

namespace cli {

namespace {

constexpr std::size_t kNowhere = std::string_view::npos;

bool IsDigit(char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; }

// ---- The place a message names -----------------------------------------------------------

// Where the fault begins in the text a message names, and how many characters it takes.
struct Place {
    std::string_view Named;
    std::size_t At = 0;
    std::size_t Length = 1;
};

// Two characters that read as one operator, here or in the languages people come from.
constexpr std::string_view kPairedOperators[] = {"==", "!=", "<=", ">=", "@@", "||", "**"};

// A position or a count, as a message writes it.
bool ReadPosition(std::string_view text, std::size_t& position) {
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, position);
    return result.ec == std::errc() && result.ptr == end;
}

// The characters of a number, a sign-less exponent included, so that 1.5e3 is underlined whole.
std::size_t NumberLength(std::string_view text) {
    std::size_t n = 0;
    const auto digits = [&] {
        while (n < text.size() && IsDigit(text[n])) ++n;
    };
    digits();
    if (n < text.size() && text[n] == '.') ++n, digits();
    if (n < text.size() && (text[n] == 'e' || text[n] == 'E')) {
        ++n;
        if (n < text.size() && (text[n] == '+' || text[n] == '-')) ++n;
        digits();
    }
    return std::max<std::size_t>(n, 1);
}

// A misplaced operator's position is just past it.
Place OperatorEndingAt(std::string_view named, std::size_t end) {
    for (const std::string_view pair : kPairedOperators) {
        if (end >= 2 && named.substr(end - 2, 2) == pair) return {named, end - 2, 2};
    }
    return {named, end - 1, 1};
}

// The parenthesis that pairs with none: the first ")" too many, else the last "(" left open.
std::size_t UnpairedParenthesis(std::string_view text) {
    std::vector<std::size_t> open;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '(') open.push_back(i);
        if (text[i] != ')') continue;
        if (open.empty()) return i;
        open.pop_back();
    }
    return open.empty() ? kNowhere : open.back();
}

bool PlaceOf(const MessageFields& fields, Place& place) {
    const std::vector<std::string_view>& args = fields.Args;
    std::size_t at = 0;
    switch (fields.Id) {
        case MessageId::NoToken:
        case MessageId::BadNumber:
            if (!ReadPosition(args[1], at) || at >= args[0].size()) return false;
            place = {args[0], at,
                     fields.Id == MessageId::NoToken ? 1 : NumberLength(args[0].substr(at))};
            return true;
        case MessageId::BadOperator:
            if (!ReadPosition(args[1], at) || at == 0 || at > args[0].size()) return false;
            place = OperatorEndingAt(args[0], at);
            return true;
        case MessageId::ParenthesesWrong:
            at = UnpairedParenthesis(args[0]);
            place = {args[0], at, 1};
            return at != kNowhere;
        case MessageId::NoEndOfParentheses:
        case MessageId::NoEndOfBrackets:
            place = {args[0], 0, 1};
            return !args[0].empty();
        default:
            return false;
    }
}

// ---- The place in the line as written -------------------------------------------------------

// A part of the line as the evaluator reads it, without its blanks, with the column in the
// line of each character that is left.
struct Squeezed {
    std::string Text;
    std::vector<std::size_t> Columns;
};

Squeezed Squeeze(std::string_view line, std::string_view part) {
    Squeezed squeezed;
    const auto begin = static_cast<std::size_t>(part.data() - line.data());
    for (std::size_t i = 0; i < part.size(); ++i) {
        if (part[i] == ' ') continue;
        squeezed.Text += part[i];
        squeezed.Columns.push_back(begin + i);
    }
    return squeezed;
}

bool GluesOn(char c) { return KalvosVars::CharValid(c) || c == '.'; }

// A message names the innermost text that failed, which may stand in the line more than once
// or inside a longer token (1/0 ends 11/0): the first place where it stands whole is taken,
// else the first place at all.
std::size_t FindWhole(std::string_view text, std::string_view named) {
    const std::size_t first = text.find(named);
    for (std::size_t at = first; at != kNowhere; at = text.find(named, at + 1)) {
        const std::size_t end = at + named.size();
        const bool whole =
            (at == 0 || !GluesOn(text[at - 1])) && (end == text.size() || !GluesOn(text[end]));
        if (whole) return at;
    }
    return first;
}

// The columns of the place's first and last characters in the line; the expression is
// searched first, then the target, whose indices are evaluated too.
bool Locate(std::string_view line, const Place& place, std::size_t& first, std::size_t& last) {
    const Kalvos::SetupLine parts = Kalvos::ReadSetupLine(line);
    for (const std::string_view part : {parts.Body, parts.Target}) {
        if (part.empty()) continue;
        const Squeezed squeezed = Squeeze(line, part);
        const std::size_t at = FindWhole(squeezed.Text, place.Named);
        if (at == kNowhere) continue;
        first = squeezed.Columns[at + place.At];
        last = squeezed.Columns[at + place.At + place.Length - 1];
        return true;
    }
    return false;
}

// The columns a text takes once made printable: one a character, an escape as its four.
std::size_t Width(std::string_view text) {
    const std::string shown = Printable(text);
    return static_cast<std::size_t>(std::count_if(shown.begin(), shown.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    }));
}

void AddCaret(std::string_view line, const Place& place, std::vector<std::string>& lines) {
    std::size_t first = 0;
    std::size_t last = 0;
    if (line.size() > kMaxEchoLength || !Locate(line, place, first, last)) return;
    // The place ends with the whole of its last character, which may take several bytes.
    std::size_t end = last + 1;
    while (end < line.size() && (static_cast<unsigned char>(line[end]) & 0xC0) == 0x80) ++end;
    const std::size_t span = Width(line.substr(first, end - first));
    lines.push_back(Printable(line));
    lines.push_back(std::string(Width(line.substr(0, first)), ' ') + "^" +
                    std::string(span - 1, '~'));
}

// ---- What other languages write -----------------------------------------------------------

struct LanguageHint {
    MessageId Id;
    std::string_view Written;  // what begins at the place the message names
    std::string_view Hint;
};

constexpr LanguageHint kLanguageHints[] = {
    {MessageId::NoToken, "^", "a power is written pow(a, b)"},
    {MessageId::BadOperator, "**", "a power is written pow(a, b)"},
    {MessageId::NoToken, "&", "the logical and is written @@"},
    {MessageId::NoToken, "|", "the logical or is written ||"},
    {MessageId::NoToken, "%", "the remainder is written fmod(a, b)"},
    {MessageId::NoToken, ".", "a number begins with a digit: 0.5, not .5"},
};

void AddLanguageHint(MessageId id, const Place& place, std::vector<std::string>& lines) {
    const std::string_view written = place.Named.substr(place.At);
    for (const LanguageHint& hint : kLanguageHints) {
        if (hint.Id == id && written.substr(0, hint.Written.size()) == hint.Written) {
            lines.push_back("hint: " + std::string(hint.Hint));
            return;
        }
    }
    // 1.5e3: the number reader takes an exponent only with its sign.
    const std::string_view number = written.substr(0, place.Length);
    const std::size_t mark = number.find_first_of("eE");
    if (id != MessageId::BadNumber || mark == kNowhere || mark + 1 == number.size() ||
        !IsDigit(number[mark + 1])) {
        return;
    }
    lines.push_back("hint: an exponent needs its sign: " + std::string(number.substr(0, mark + 1)) +
                    "+" + std::string(number.substr(mark + 1)));
}

// ---- Names -------------------------------------------------------------------------------

std::string Quoted(const std::vector<std::string>& names, std::string_view quote) {
    std::string text;
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (i > 0) text += i + 1 == names.size() ? " or " : ", ";
        text += std::string(quote) + names[i] + std::string(quote);
    }
    return text;
}

// Every way to call the built-in function of that name: rand() or rand(a, b).
std::vector<std::string> CallForms(std::string_view name) {
    std::vector<std::string> forms;
    for (std::size_t i = 0; i < Kalvos::GetFunctionCount(); ++i) {
        const Kalvos::FunctionInfo info = Kalvos::GetFunction(i);
        if (info.Name == name) forms.push_back(CallForm(info));
    }
    return forms;
}

// The functions that take that many parameters.
std::vector<std::string> FunctionNames(std::string_view count) {
    std::size_t params = 0;
    std::vector<std::string> names;
    if (!ReadPosition(count, params)) return names;
    for (std::size_t i = 0; i < Kalvos::GetFunctionCount(); ++i) {
        const Kalvos::FunctionInfo info = Kalvos::GetFunction(i);
        if (info.MinParams <= params && params <= info.MaxParams) names.emplace_back(info.Name);
    }
    return names;
}

std::vector<std::string> VariableNames(const KalvosVars& vars) {
    std::vector<std::string> names;
    for (unsigned int idx = 0; idx < vars.GetCount(); ++idx) names.push_back(vars.GetVarName(idx));
    return names;
}

void AddSuggestion(std::string_view name, const std::vector<std::string>& candidates,
                   std::vector<std::string>& lines) {
    const std::vector<std::string> closest = ClosestNames(name, candidates);
    if (!closest.empty()) lines.push_back("did you mean " + Quoted(closest, "'") + "?");
}

void AddNameHints(const MessageFields& fields, const KalvosVars& vars,
                  std::vector<std::string>& lines) {
    const std::string_view missing = MissingName(fields);
    // A function written without its parentheses reads as a variable: pi for pi().
    const std::vector<std::string> forms =
        fields.Id == MessageId::NoVariable ? CallForms(missing) : std::vector<std::string>();
    if (!forms.empty()) {
        lines.push_back("hint: " + std::string(missing) + " is a function: " + Quoted(forms, ""));
    } else if (!missing.empty()) {
        AddSuggestion(missing, VariableNames(vars), lines);
    } else if (fields.Id == MessageId::FunctionNotFound) {
        const std::vector<std::string> known = CallForms(fields.Args[0]);
        if (!known.empty()) lines.push_back("hint: it is called as " + Quoted(known, ""));
        if (known.empty()) AddSuggestion(fields.Args[0], FunctionNames(fields.Args[2]), lines);
    } else if (fields.Id == MessageId::NotNumeric) {
        const std::string name(fields.Args[1]);
        lines.push_back("hint: " + name + " holds a text, which a $ text shows as [" + name + "]");
    }
}

// The optimal string alignment distance: insertions, deletions, substitutions and swaps of
// two neighbours each count 1, so that "dpeth" is one step from "depth".
std::size_t Distance(std::string_view a, std::string_view b) {
    const std::size_t width = b.size() + 1;
    std::vector<std::size_t> d((a.size() + 1) * width);
    for (std::size_t i = 0; i <= a.size(); ++i) d[i * width] = i;
    for (std::size_t j = 0; j <= b.size(); ++j) d[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t cost = a[i - 1] == b[j - 1] ? 0 : 1;
            std::size_t best = std::min({d[(i - 1) * width + j] + 1, d[i * width + j - 1] + 1,
                                         d[(i - 1) * width + j - 1] + cost});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
                best = std::min(best, d[(i - 2) * width + j - 2] + 1);
            }
            d[i * width + j] = best;
        }
    }
    return d[a.size() * width + b.size()];
}

bool EqualIgnoringCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) ==
                      std::tolower(static_cast<unsigned char>(y));
           });
}

constexpr std::size_t kMaxDistance = 2;
constexpr std::size_t kMaxSuggestions = 3;

}  // namespace

std::vector<std::string> Explain(std::string_view line, const MessageFields& fields,
                                 const KalvosVars& vars) {
    std::vector<std::string> lines;
    Place place;
    if (PlaceOf(fields, place)) {
        AddCaret(line, place, lines);
        AddLanguageHint(fields.Id, place, lines);
    }
    AddNameHints(fields, vars, lines);
    return lines;
}

std::string_view MissingName(const MessageFields& fields) {
    switch (fields.Id) {
        case MessageId::NoVariable:
        case MessageId::StrNoVariable:
            return fields.Args[1];
        case MessageId::StoreNoVariable:
            return fields.Args[0];
        default:
            return {};
    }
}

std::vector<std::string> ClosestNames(std::string_view name,
                                      const std::vector<std::string>& candidates) {
    std::vector<std::string> closest;
    if (name.empty()) return closest;
    std::size_t best = std::min(kMaxDistance, name.size() - 1);
    for (const std::string& candidate : candidates) {
        // The lengths alone rule most names out, before any table is made.
        const std::size_t gap =
            std::max(name.size(), candidate.size()) - std::min(name.size(), candidate.size());
        if (candidate == name || gap > best) continue;
        // A name that differs in case only is what was meant, before any other as close.
        const std::size_t distance =
            EqualIgnoringCase(name, candidate) ? 0 : Distance(name, candidate);
        if (distance > best) continue;
        if (distance < best) closest.clear();
        best = distance;
        closest.push_back(candidate);
    }
    std::sort(closest.begin(), closest.end());
    closest.erase(std::unique(closest.begin(), closest.end()), closest.end());
    if (closest.size() > kMaxSuggestions) closest.resize(kMaxSuggestions);
    return closest;
}

}  // namespace cli
