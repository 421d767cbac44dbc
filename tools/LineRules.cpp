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

// NAME, blanks, "=" and something other than a second "=": "a == 1" compares, "a = 1" assigns.
bool ReadAssignment(std::string_view text, Line& line) {
    const std::size_t nameLength = NameLength(text);
    if (nameLength == 0) return false;
    const std::string_view rest = TrimBlanks(text.substr(nameLength));
    if (rest.empty() || rest[0] != '=' || (rest.size() > 1 && rest[1] == '=')) return false;
    line.Kind = LineKind::Assignment;
    line.Name = text.substr(0, nameLength);
    line.Body = TrimBlanks(rest.substr(1));
    return true;
}

}  // namespace

std::string_view TrimBlanks(std::string_view text) {
    while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
    return text;
}

bool IsName(std::string_view text) { return !text.empty() && NameLength(text) == text.size(); }

Line ClassifyLine(std::string_view text) {
    Line line;
    const std::string_view trimmed = TrimBlanks(text);
    if (trimmed.empty()) return line;
    if (trimmed.substr(0, 2) == "//") {
        line.Kind = LineKind::Comment;
    } else if (trimmed[0] == '$') {
        // Blanks after the "$" belong to the text; only the line's outer edges are trimmed
        // on the left, and the right keeps everything but the line ending.
        line.Kind = LineKind::Text;
        line.Body = text.substr(text.find('$'));
        while (!line.Body.empty() && line.Body.back() == '\r') line.Body.remove_suffix(1);
    } else if (!ReadAssignment(trimmed, line)) {
        line.Kind = LineKind::Expression;
        line.Body = trimmed;
    }
    return line;
}

}  // namespace cli
