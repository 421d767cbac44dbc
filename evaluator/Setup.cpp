// Set-up files: the lines NAME = EXPR, NAME = $TEXT, EXPR, $TEXT and // comments that a host
// hands over as a file, applied to the store one at a time. Only the shape of a line is
// decided here; everything it means is left to the public entry points.
#include <algorithm>
#include <istream>
#include <utility>

#include "evaluator/Kalvos.h"
#include "support/KalvosVars.h"

namespace {

using Kind = Kalvos::SetupLineKind;

// Blanks are spaces and tabs; a carriage return at the end of a line is one too, so that
// files written with CR LF endings read the same.
bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

std::string_view TrimBlanks(std::string_view text) {
    while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
    return text;
}

std::string_view WithoutLineEnd(std::string_view text) {
    while (!text.empty() && text.back() == '\r') text.remove_suffix(1);
    return text;
}

std::string_view SkipByteOrderMark(std::string_view text) {
    constexpr std::string_view kMark = "\xEF\xBB\xBF";
    if (text.substr(0, kMark.size()) == kMark) text.remove_prefix(kMark.size());
    return text;
}

std::size_t NameLength(std::string_view text) {
    if (text.empty() || !KalvosVars::FirstCharValid(text[0])) return 0;
    std::size_t length = 1;
    while (length < text.size() && KalvosVars::CharValid(text[length])) ++length;
    return length;
}

// The "=" that assigns. The comparison operators that contain "=" are stepped over whole, so
// "a <= 1" and "a == 1" compare.
std::size_t AssignmentSign(std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        const bool pairs = i + 1 < text.size() && text[i + 1] == '=';
        if ((c == '=' || c == '!' || c == '<' || c == '>') && pairs) {
            ++i;
        } else if (c == '=') {
            return i;
        }
    }
    return std::string_view::npos;
}

// The left side of an assignment taken apart: x[i + 1][2] is x with "i + 1" and "2". Brackets
// pair up as the expression reader pairs them: only "[" and "]" are counted. False for
// anything but a NAME followed by any number of [INDEX].
bool ReadTarget(std::string_view text, std::string_view& name,
                std::vector<std::string_view>& indices) {
    const std::size_t nameLength = NameLength(text);
    if (nameLength == 0) return false;
    name = text.substr(0, nameLength);
    indices.clear();
    std::size_t at = nameLength;
    while (at < text.size()) {
        if (text[at] != '[') return false;
        std::size_t depth = 1;
        std::size_t end = at + 1;
        for (; end < text.size() && depth > 0; ++end) {
            if (text[end] == '[') ++depth;
            if (text[end] == ']') --depth;
        }
        if (depth > 0) return false;
        indices.push_back(text.substr(at + 1, end - at - 2));
        at = end;
    }
    return true;
}

bool IsTarget(std::string_view text) {
    std::string_view name;
    std::vector<std::string_view> indices;
    return ReadTarget(text, name, indices);
}

// The right side of an assignment: a text when "$" begins it, which keeps its blanks to the
// end of the line, else an expression, which ends at a comment.
void ReadRightSide(Kalvos::SetupLine& line, std::string_view right, std::size_t comment) {
    const std::size_t dollar = right.find_first_not_of(" \t");
    if (dollar != std::string_view::npos && right[dollar] == '$') {
        line.Kind = Kind::TextAssignment;
        line.Body = WithoutLineEnd(right.substr(dollar));
    } else {
        line.Kind = Kind::Assignment;
        line.Body = TrimBlanks(right.substr(0, comment));
    }
}

std::string ErrorTextOf(const std::string& source, unsigned long number) {
    const std::string where = source.empty() ? "" : source + " ";
    return " (" + where + "line " + std::to_string(number) + ")";
}

}  // namespace

// Rules, in order: nothing but blanks is Blank; "//" first is Comment; "$" first is Text; a
// single "=" before any "//" makes an assignment; the rest is an Expression. On every line but
// a text line "//" starts a comment, since it cannot occur in an expression, while a text may
// hold it (a URL does).
Kalvos::SetupLine Kalvos::ReadSetupLine(std::string_view text) {
    SetupLine line;
    const std::string_view trimmed = TrimBlanks(text);
    if (trimmed.empty()) return line;
    if (trimmed.substr(0, 2) == "//") {
        line.Kind = Kind::Comment;
        return line;
    }
    if (trimmed[0] == '$') {
        line.Kind = Kind::Text;
        line.Body = WithoutLineEnd(text.substr(text.find('$')));
        return line;
    }
    const std::size_t comment = trimmed.find("//");
    const std::size_t sign = AssignmentSign(trimmed.substr(0, comment));
    if (sign == std::string_view::npos) {
        line.Kind = Kind::Expression;
        line.Body = TrimBlanks(trimmed.substr(0, comment));
        return line;
    }
    line.Target = TrimBlanks(trimmed.substr(0, sign));
    if (!IsTarget(line.Target)) {
        line.Kind = Kind::BadTarget;
        return line;
    }
    // The right side is taken from the untrimmed line, so that a text keeps its blanks.
    const std::size_t start = static_cast<std::size_t>(trimmed.data() - text.data()) + sign + 1;
    const std::size_t commentEnd = comment == std::string_view::npos ? comment : comment - sign - 1;
    ReadRightSide(line, text.substr(start), commentEnd);
    return line;
}

// Applies lines to the store of its evaluator, which it reaches as a member does: an index of
// a target is evaluated as the expression reader evaluates the index of x[i + 1], so that the
// target stores exactly the variable the same text reads.
class Kalvos::SetupReader {
public:
    SetupReader(Kalvos& owner, const SetupOptions& options) : Owner(owner), Options(options) {}

    void Read(unsigned long number, std::string_view text, const std::string& errortext) {
        const std::string_view line = WithoutLineEnd(number == 1 ? SkipByteOrderMark(text) : text);
        std::string target;
        if (!Options.KeepGoing) {
            Apply(number, line, errortext, target);
            return;
        }
        try {
            Apply(number, line, errortext, target);
        } catch (const JException& e) {
            Failures.push_back(
                {number, std::string(line), target, errortext, e.GetMethod(), e.GetText()});
            if (Options.OnFailure) Options.OnFailure(Failures.back());
        }
    }

    static std::string TargetName(Kalvos& owner, std::string_view target,
                                  const std::string& errortext) {
        std::string_view name;
        std::vector<std::string_view> indices;
        if (!ReadTarget(target, name, indices)) {
            owner.Raise<MessageId::SetupBadTarget>(__LINE__, errortext, target);
        }
        // A failing index names the origin, as the calls that fail do.
        owner.ErrorText = errortext;
        std::string result(name);
        for (const std::string_view index : indices) {
            const std::string indexText = fun::StrWithoutChar(std::string(index), ' ');
            const int number = TruncToInt(owner.ComputExpr(indexText));
            if (number < 0) {
                owner.Raise<MessageId::NegativeIndex>(
                    __LINE__, errortext, fun::StrWithoutChar(std::string(target), ' '), indexText);
            }
            result += std::to_string(number);
        }
        return result;
    }

    std::vector<SetupFailure> Failures;

private:
    // `target` receives the variable the line stores as soon as its name is known, so that a
    // failure can say what was left undefined.
    void Apply(unsigned long number, std::string_view text, const std::string& errortext,
               std::string& target) {
        const SetupLine line = ReadSetupLine(text);
        if (line.Kind == Kind::Blank || line.Kind == Kind::Comment) return;
        SetupResult result;
        result.Line = number;
        result.Kind = line.Kind;
        const std::string body(line.Body);
        switch (line.Kind) {
            case Kind::BadTarget:
                Owner.Raise<MessageId::SetupBadTarget>(__LINE__, errortext, line.Target);
            case Kind::Assignment:
                target = result.Name = TargetName(Owner, line.Target, errortext);
                result.Num = Owner.ComputeExpr(body, errortext);
                Owner.GetVars().SetVarNum(result.Name, result.Num);
                break;
            case Kind::TextAssignment:
                target = result.Name = TargetName(Owner, line.Target, errortext);
                result.Str = Owner.ComputeExprStr(body, errortext);
                Owner.GetVars().SetVarStr(result.Name, result.Str);
                break;
            case Kind::Text:
                result.Str = Owner.ComputeExprStr(body, errortext);
                break;
            default:
                result.Num = Options.Conditions ? (Owner.ComputeExprBool(body, errortext) ? 1 : 0)
                                                : Owner.ComputeExpr(body, errortext);
                break;
        }
        if (Options.OnResult) Options.OnResult(result);
    }

    Kalvos& Owner;
    const SetupOptions& Options;
};

void Kalvos::RunSetup(const std::string& text, const std::string& source) {
    RunSetup(text, source, SetupOptions());
}

void Kalvos::RunSetup(std::istream& in, const std::string& source) {
    RunSetup(in, source, SetupOptions());
}

// Lines end at "\n", as std::getline ends them: a last line without one is a line, and an
// empty text has none.
std::vector<Kalvos::SetupFailure> Kalvos::RunSetup(const std::string& text,
                                                   const std::string& source,
                                                   const SetupOptions& options) {
    SetupReader reader(*this, options);
    const std::string_view all = text;
    unsigned long number = 1;
    for (std::size_t start = 0; start < all.size(); ++number) {
        const std::size_t end = std::min(all.find('\n', start), all.size());
        reader.Read(number, all.substr(start, end - start), ErrorTextOf(source, number));
        start = end + 1;
    }
    return std::move(reader.Failures);
}

std::vector<Kalvos::SetupFailure> Kalvos::RunSetup(std::istream& in, const std::string& source,
                                                   const SetupOptions& options) {
    SetupReader reader(*this, options);
    std::string line;
    for (unsigned long number = 1; std::getline(in, line); ++number) {
        reader.Read(number, line, ErrorTextOf(source, number));
    }
    return std::move(reader.Failures);
}

std::vector<Kalvos::SetupFailure> Kalvos::RunSetupLine(std::string_view line,
                                                       const std::string& errortext,
                                                       const SetupOptions& options) {
    SetupReader reader(*this, options);
    reader.Read(0, line, errortext);
    return std::move(reader.Failures);
}

std::string Kalvos::GetSetupTargetName(std::string_view target, const std::string& errortext) {
    return SetupReader::TargetName(*this, TrimBlanks(target), errortext);
}
