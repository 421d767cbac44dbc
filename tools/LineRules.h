// How the tool reads one line of input, one argument or one -D value: blank, comment,
// expression, string expression or assignment. Only the shape of the line is decided here;
// everything it means is left to the evaluator.
#pragma once

#include <string_view>
#include <vector>

namespace cli {

enum class LineKind {
    Blank,
    Comment,
    Expression,      // 2 * a
    Text,            // $run_[a]
    Assignment,      // NAME = EXPR
    TextAssignment,  // NAME = $TEXT
    BadTarget,       // something = ..., where something is no NAME or NAME[INDEX]...
};

struct Line {
    LineKind Kind = LineKind::Blank;
    /// What stands left of "=" in an assignment, without its outer blanks; empty otherwise.
    std::string_view Target;
    /// What goes to the evaluator: the expression without its comment and outer blanks, or
    /// the text from its "$" to the end of the line.
    std::string_view Body;
};

/// The left side of an assignment taken apart: x[i + 1][2] is x with "i + 1" and "2".
struct Target {
    std::string_view Name;
    std::vector<std::string_view> Indices;
};

/// Blanks are spaces and tabs; a carriage return at the end of a line is dropped too, so that
/// files written with CR LF endings read the same.
std::string_view TrimBlanks(std::string_view text);

/// The position of the "=" that assigns (not part of "==", "!=", "<=" or ">="), or npos.
std::size_t AssignmentSign(std::string_view text);

/// A name the expression reader accepts: a letter or '_', then letters, digits or '_'.
bool IsName(std::string_view text);

/// A NAME followed by any number of [INDEX] parts, nothing else; false for anything else.
bool ReadTarget(std::string_view text, Target& target);

/// The text without a UTF-8 byte-order mark at its start.
std::string_view SkipByteOrderMark(std::string_view text);

/// Rules, in order: nothing but blanks is Blank; "//" first is Comment; "$" first is Text;
/// a single "=" (not part of "==", "!=", "<=" or ">=") before any "//" makes an assignment,
/// of text when "$" begins its right side; the rest is an Expression. On every line but a
/// text ("$") line, "//" starts a comment, since it cannot occur in an expression.
Line ClassifyLine(std::string_view text);

}  // namespace cli
