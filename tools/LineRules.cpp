#include "tools/LineRules.h"

#include "support/KalvosVars.h"

namespace cli {

namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

std::size_t NameLength(std::string_view text) {
    if (text.empty() || !KalvosVars::FirstCharValid(text[0])) return 0;
    std::size_t length = 1;
    while (length < text.size() && KalvosVars::CharValid(text[length])) ++length;
    return length;
}

// A "$" text runs to the end of the line: its blanks are part of it; only a line ending's
// carriage return is not.
std::string_view TextFrom(std::string_view text, std::size_t dollar) {
    std::string_view body = text.substr(dollar);
    while (!body.empty() && body.back() == '\r') body.remove_suffix(1);
    return body;
}

}  // namespace

std::string_view TrimBlanks(std::string_view text) {
    while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
    return text;
}

// The comparison operators that contain "=" are stepped over whole, so "a <= 1" and "a == 1"
// compare.
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

bool IsName(std::string_view text) { return !text.empty() && NameLength(text) == text.size(); }

// Brackets pair up as the expression reader pairs them: only "[" and "]" are counted.
bool ReadTarget(std::string_view text, Target& target) {
    const std::size_t nameLength = NameLength(text);
    if (nameLength == 0) return false;
    target.Name = text.substr(0, nameLength);
    target.Indices.clear();
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
        target.Indices.push_back(text.substr(at + 1, end - at - 2));
        at = end;
    }
    return true;
}

std::string_view SkipByteOrderMark(std::string_view text) {
    constexpr std::string_view kMark = "\xEF\xBB\xBF";
    if (text.substr(0, kMark.size()) == kMark) text.remove_prefix(kMark.size());
    return text;
}

Line ClassifyLine(std::string_view text) {
    Line line;
    const std::string_view trimmed = TrimBlanks(text);
    if (trimmed.empty()) return line;
    if (trimmed.substr(0, 2) == "//") {
        line.Kind = LineKind::Comment;
        return line;
    }
    if (trimmed[0] == '$') {
        line.Kind = LineKind::Text;
        line.Body = TextFrom(text, text.find('$'));
        return line;
    }
    const std::size_t comment = trimmed.find("//");
    const std::size_t sign = AssignmentSign(trimmed.substr(0, comment));
    if (sign == std::string_view::npos) {
        line.Kind = LineKind::Expression;
        line.Body = TrimBlanks(trimmed.substr(0, comment));
        return line;
    }
    line.Target = TrimBlanks(trimmed.substr(0, sign));
    Target target;
    if (!ReadTarget(line.Target, target)) {
        line.Kind = LineKind::BadTarget;
        return line;
    }
    // The text of a text assignment keeps its blanks to the end of the line, so it is taken
    // from the untrimmed line.
    const std::size_t start = static_cast<std::size_t>(trimmed.data() - text.data()) + sign + 1;
    const std::string_view right = text.substr(start);
    const std::size_t dollar = right.find_first_not_of(" \t");
    if (dollar != std::string_view::npos && right[dollar] == '$') {
        line.Kind = LineKind::TextAssignment;
        line.Body = TextFrom(right, dollar);
    } else {
        line.Kind = LineKind::Assignment;
        const std::size_t end = comment == std::string_view::npos ? comment : comment - sign - 1;
        line.Body = TrimBlanks(trimmed.substr(sign + 1, end));
    }
    return line;
}

}  // namespace cli
