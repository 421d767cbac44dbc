#include "tools/Session.h"

#include <charconv>
#include <istream>
#include <ostream>

#include "support/JObject.h"
#include "support/KalvosVars.h"
#include "tools/LineRules.h"

namespace cli {

std::string FormatNumber(double value) {
    // 24 characters hold the longest shortest form, such as -2.2250738585072014e-308.
    char buffer[32];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    return std::string(buffer, result.ptr);
}

Session::Session(std::ostream& out, std::ostream& err, bool asBool)
    : Out(out), Err(err), AsBool(asBool) {}

// A failure is reported and counted; the run goes on with the next line.
template <typename Compute>
void Session::Guard(Compute compute) {
    try {
        compute();
    } catch (const JException& e) {
        Out.flush();
        Err << "kalvos: " << e.GetText() << '\n';
        Failed = true;
    }
}

void Session::RunLine(std::string_view text, const std::string& origin) {
    const Line line = ClassifyLine(text);
    switch (line.Kind) {
        case LineKind::Blank:
        case LineKind::Comment:
            return;
        case LineKind::Assignment:
            DefineNumber(std::string(line.Name), line.Body, origin);
            return;
        case LineKind::Text:
            Guard([&] { Out << Eval.ComputeExprStr(std::string(line.Body), origin) << '\n'; });
            return;
        case LineKind::Expression:
            Guard([&] {
                const std::string expr(line.Body);
                if (AsBool) {
                    Out << (Eval.ComputeExprBool(expr, origin) ? "true" : "false") << '\n';
                } else {
                    Out << FormatNumber(Eval.ComputeExpr(expr, origin)) << '\n';
                }
            });
            return;
    }
}

void Session::RunStream(std::istream& in, const std::string& where) {
    std::string text;
    for (unsigned long number = 1; std::getline(in, text); ++number) {
        RunLine(text, " (" + where + "line " + std::to_string(number) + ")");
    }
}

void Session::DefineNumber(const std::string& name, std::string_view expr,
                           const std::string& origin) {
    Guard([&] { Eval.GetVars().SetVarNum(name, Eval.ComputeExpr(std::string(expr), origin)); });
}

void Session::DefineText(const std::string& name, const std::string& text) {
    Eval.GetVars().SetVarStr(name, text);
}

void Session::Seed(int seed) {
    Guard([&] { Eval.ComputeExpr("randinit(" + std::to_string(seed) + ")", " (option --seed)"); });
}

void Session::ListVars() const {
    const KalvosVars& vars = Eval.GetVars();
    for (unsigned int idx = 0; idx < vars.GetCount(); ++idx) {
        Out << vars.GetVarName(idx) << " = ";
        if (vars.VarIsNum(idx)) {
            Out << FormatNumber(vars.GetVarNum(idx, "")) << '\n';
        } else {
            Out << '"' << vars.GetVarStr(idx, "") << "\"\n";
        }
    }
}

}  // namespace cli
