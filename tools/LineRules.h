// How the tool reads one line of input or one argument: blank, comment, assignment, string
// expression or numeric expression. Only the shape of the line is decided here; everything
// it means is left to the evaluator.
#pragma once

#include <string_view>

namespace cli {

enum class LineKind { Blank, Comment, Assignment, Text, Expression };

struct Line {
    LineKind Kind = LineKind::Blank;
    /// The variable of an assignment; empty otherwise.
    std::string_view Name;
    /// What goes to the evaluator: the expression after "=", the text from its "$" on, or
    /// the expression without its outer blanks.
    std::string_view Body;
};

/// Blanks are spaces and tabs; a carriage return at the end of a line is dropped too, so that
/// files written with CR LF endings read the same.
std::string_view TrimBlanks(std::string_view text);

/// A name the expression reader accepts: a letter or '_', then letters, digits or '_'.
bool IsName(std::string_view text);

/// Rules, in order: nothing but blanks is Blank; "//" first is Comment; "$" first is Text;
/// NAME = EXPR (one "=" not followed by another) is Assignment; the rest is Expression.
Line ClassifyLine(std::string_view text);

}  // namespace cli
