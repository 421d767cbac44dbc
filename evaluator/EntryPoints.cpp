#include <algorithm>

#include "evaluator/Kalvos.h"

namespace {

// "(" and ")" must pair up from left to right; once the counter has gone below zero it stays
// there, so ")1+2(" is wrong too. Square brackets are checked later, by the reader.
bool ParenthesesBalance(std::string_view text) {
    long depth = 0;
    for (const char c : text) {
        if (depth < 0) return false;
        if (c == '(') ++depth;
        if (c == ')') --depth;
    }
    return depth == 0;
}

}  // namespace

double Kalvos::ComputeExpr(std::string expr, const std::string& errortext) {
    ExprText = expr;
    ErrorText = errortext;
    // Blanks go wherever they stand, other white space stays; removed in place, so that the
    // working text costs no copy.
    expr.erase(std::remove(expr.begin(), expr.end(), ' '), expr.end());
    std::string_view work = expr;
    if (!work.empty() && work[0] == '#') work.remove_prefix(1);
    if (work.empty()) RaiseMessage(__LINE__, "ComputeExpr", "Expression is empty.");
    if (!ParenthesesBalance(work)) {
        Raise(__LINE__, "ComputeExpr", "Parenthesis in expression [%s] are wrong.", work);
    }
    NameBuf.clear();
    return Evaluate(work, 0);
}

// The four literals are answered without evaluating, and without touching ExprText and
// ErrorText; they are tested before blanks are removed, so " true" is evaluated instead.
bool Kalvos::ComputeExprBool(std::string expr, const std::string& errortext) {
    std::string_view literal = expr;
    if (!literal.empty() && literal[0] == '#') literal.remove_prefix(1);
    if (literal.empty()) return false;
    if (EqualsLower(literal, "true") || literal == "1") return true;
    if (EqualsLower(literal, "false") || literal == "0") return false;
    return ComputeExpr(std::move(expr), errortext) != 0.0;
}

Kalvos::CompiledExpr Kalvos::CompileExpr(std::string expr, const std::string& errortext) {
    CompiledExpr compiled;
    compiled.ExprText = std::move(expr);
    compiled.ErrorText = errortext;
    compiled.Owner = Serial;
    return compiled;
}

double Kalvos::ComputeCompiled(const CompiledExpr& compiled) {
    if (compiled.Owner != Serial) {
        RunExceptioon("Kalvos", __LINE__, ClassName, "ComputeCompiled",
                      fun::PrintStr("The compiled expression [%s] belongs to another evaluator or "
                                    "was made before Reset.",
                                    compiled.ExprText.c_str()) +
                          compiled.ErrorText,
                      "");
    }
    return ComputeExpr(compiled.ExprText, compiled.ErrorText);
}

void Kalvos::SetCacheLimits(std::size_t entries, std::size_t bytes) {
    (void)entries;
    (void)bytes;
}
std::size_t Kalvos::GetCacheCount() const { return 0; }
std::size_t Kalvos::GetCacheBytes() const { return 0; }
