// Fuzz target for the three entry points. The first byte chooses what is exercised, the rest
// is the text:
//   byte % 4 == 0: ComputeExpr;
//   byte % 4 == 1: ComputeExprBool, checked against ComputeExpr;
//   byte % 4 == 2: ComputeExprStr, checked against a direct rescanning expansion;
//   byte % 4 == 3: compiled evaluation, checked against the plain one (Differential.h). The
//                  second byte steers it: bit 0 evaluates as a condition, bits 1-2 give the
//                  evaluations beyond two, and the whole byte seeds the store changes.
// Anything other than a value or a JException is a finding, and so is a broken invariant:
// the target aborts with a description on stderr, which libFuzzer reports as a crash.
//
// The same function is linked with ReplayMain.cpp into kalvos_fuzz_replay, which CTest runs
// over fuzz/corpus and fuzz/regressions in every build.

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>
#include <utility>

#include "Differential.h"
#include "evaluator/Kalvos.h"
#include "support/Functions.h"
#include "support/JObject.h"
#include "support/KalvosVars.h"

namespace {

// Appended to every failure message; checked at the end of each one.
const std::string& ErrorText() {
    static const std::string text = " [fuzz]";
    return text;
}

[[noreturn]] void Fail(const char* what, const std::string& text, const std::string& detail) {
    (void)std::fprintf(stderr, "kalvos_fuzz: %s\n  text (%zu bytes): %s\n  %s\n", what, text.size(),
                       text.c_str(), detail.c_str());
    std::abort();
}

// A store with every kind of variable an expression or a marker can reach: plain and indexed
// numbers, the lattice variables of roundposx/y/z, non-finite values, texts, and texts that
// refer to themselves directly (s) or through each other (u, v). Each of these costs a full
// run to the replacement bound, so exponential growth is left to the unit tests.
void FillStore(KalvosVars& vars) {
    constexpr double kInf = std::numeric_limits<double>::infinity();
    const std::pair<const char*, double> numbers[] = {
        {"a", 5},           {"b", -2.5},      {"r", 0.1},
        {"n", 1234567},     {"zero", 0},      {"big", 1e308},
        {"tiny", 4.9e-324}, {"inf", kInf},    {"nan", std::nan("")},
        {"x", 10},          {"x0", 0.5},      {"x1", 1.5},
        {"x2", 2.5},        {"x10", -10},     {"m12", 12},
        {"m21", 21},        {"m1", 100},      {"Dp", 0.25},
        {"PosMin_x", 1},    {"PosMin_y", -2}, {"PosMin_z", 0.125},
        {"True", 7}};
    const std::pair<const char*, const char*> texts[] = {
        {"txt", "hello"}, {"name", "a"}, {"w", "[a]"}, {"open", "["}, {"close", "]"},
        {"empty", ""},    {"s", "[s]"},  {"u", "[v]"}, {"v", "[u]"},  {" a ", "spaced"}};
    for (const auto& [name, value] : numbers) vars.SetVarNum(name, value);
    for (const auto& [name, value] : texts) vars.SetVarStr(name, value);
}

std::string Describe(const JException& e) { return e.GetMethod() + ": " + e.GetText(); }

void CheckRaise(const JException& e, const std::string& text) {
    const std::string& message = e.GetText();
    if (message.size() < ErrorText().size() ||
        message.compare(message.size() - ErrorText().size(), ErrorText().size(), ErrorText()) !=
            0) {
        Fail("failure message does not end with the error text", text, Describe(e));
    }
    if (e.GetClassName() != "Kalvos") Fail("failure raised by another class", text, Describe(e));
}

void CheckExprText(const Kalvos& k, const std::string& text) {
    if (k.GetExprText() != text) Fail("GetExprText() is not the text given", text, k.GetExprText());
}

void FuzzExpr(Kalvos& k, const std::string& text) {
    try {
        (void)k.ComputeExpr(text, ErrorText());
    } catch (const JException& e) {
        CheckRaise(e, text);
    }
    CheckExprText(k, text);
}

// The four literals, after one optional "#", that ComputeExprBool answers without evaluating.
bool IsBoolLiteral(std::string_view text, bool& value) {
    if (!text.empty() && text[0] == '#') text.remove_prefix(1);
    std::string lower(text);
    for (char& c : lower) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    if (lower.empty() || lower == "0" || lower == "false") {
        value = false;
        return true;
    }
    if (lower == "1" || lower == "true") {
        value = true;
        return true;
    }
    return false;
}

// ComputeExprBool(t) is ComputeExpr(t) != 0, raising the same failure, for every t that is no
// literal. Both evaluations start from the same seed, so that draws agree.
void FuzzBool(Kalvos& k, const std::string& text) {
    const std::string before = "previous text";
    bool literal = false;
    if (IsBoolLiteral(text, literal)) {
        (void)k.ComputeExprStr(before);
        bool value = !literal;
        try {
            value = k.ComputeExprBool(text, ErrorText());
        } catch (const JException& e) {
            Fail("a literal raised in ComputeExprBool", text, Describe(e));
        }
        if (value != literal) Fail("wrong value of a literal", text, literal ? "true" : "false");
        CheckExprText(k, before);
        return;
    }

    std::string numeric;
    std::string boolean;
    (void)k.ComputeExpr("randinit(1)");
    try {
        numeric = k.ComputeExpr(text, ErrorText()) != 0.0 ? "true" : "false";
    } catch (const JException& e) {
        CheckRaise(e, text);
        numeric = Describe(e);
    }
    CheckExprText(k, text);
    (void)k.ComputeExpr("randinit(1)");
    try {
        boolean = k.ComputeExprBool(text, ErrorText()) ? "true" : "false";
    } catch (const JException& e) {
        CheckRaise(e, text);
        boolean = Describe(e);
    }
    CheckExprText(k, text);
    if (numeric != boolean) {
        Fail("ComputeExprBool disagrees with ComputeExpr != 0", text,
             "ComputeExprBool: " + boolean + "; ComputeExpr: " + numeric);
    }
}

// The expansion as the rules state it: find the first marker ("[" and the first "]" after it,
// with at least one character and no "[" between), replace it and scan the new text again
// from its start. Gives up (returns false) beyond a small budget; otherwise the expansion
// either is complete in `result` or stopped at the unknown name in `missing`.
bool ReferenceExpand(const KalvosVars& vars, std::string text, std::string& result,
                     std::string& missing) {
    constexpr int kBudgetReplacements = 200;
    constexpr std::size_t kBudgetLength = 65536;
    for (int replacements = 0; replacements <= kBudgetReplacements; ++replacements) {
        std::size_t open = std::string::npos;
        std::size_t close = std::string::npos;
        for (std::size_t pos = 0; pos < text.size(); ++pos) {
            if (text[pos] == '[') {
                open = pos;
            } else if (text[pos] == ']' && open != std::string::npos) {
                if (pos == open + 1) {
                    open = std::string::npos;
                } else {
                    close = pos;
                    break;
                }
            }
        }
        if (close == std::string::npos) {
            result = text;
            return true;
        }
        const std::string name = text.substr(open + 1, close - open - 1);
        const unsigned int idx = vars.GetVarIdx(name);
        if (idx == KalvosVars::kNoVar) {
            missing = name;
            return true;
        }
        const std::string value = vars.VarIsNum(idx)
                                      ? fun::DoubleStr(vars.GetVarNum(idx, std::string()), "%g")
                                      : vars.GetVarStr(idx, std::string());
        text.replace(open, close - open + 1, value);
        if (text.size() > kBudgetLength) return false;
    }
    return false;
}

void FuzzStr(Kalvos& k, const std::string& text) {
    std::string expanded;
    bool raised = false;
    std::string message;
    try {
        expanded = k.ComputeExprStr(text, ErrorText());
    } catch (const JException& e) {
        CheckRaise(e, text);
        raised = true;
        message = e.GetText();
    }
    CheckExprText(k, text);

    std::string body = text;
    if (!body.empty() && body[0] == '$') body.erase(0, 1);
    std::string result;
    std::string missing;
    if (!ReferenceExpand(k.GetVars(), body, result, missing)) return;
    if (missing.empty()) {
        if (raised) Fail("expansion raised, rescanning does not", text, message);
        if (expanded != result)
            Fail("expansion differs from rescanning", text, expanded + " / " + result);
        return;
    }
    const std::string expected = fun::PrintStr("Evaluating [%s]: The variable '%s' does not exist.",
                                               text.c_str(), missing.c_str());
    // Texts holding NUL are cut short by the formatting; compare whole texts only.
    if (text.find('\0') == std::string::npos && message != expected + ErrorText()) {
        Fail("unknown variable not reported as rescanning finds it", text,
             (raised ? message : "no failure") + " / " + expected);
    }
}

// The text evaluated without a cache, from a warm cache and through a handle, repeatedly and
// with the store changing in between; any difference is a finding.
void FuzzCompiled(std::uint8_t control, const std::string& text) {
    diff::Differential d(control);
    const std::string difference =
        d.Run(text, " [fuzz %s%%]", (control & 1) != 0, 2 + ((control >> 1) & 3), control);
    if (!difference.empty()) Fail("compiled evaluation differs", text, difference);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const unsigned int mode = data[0] % 4;
    if (mode == 3) {
        if (size >= 2) {
            FuzzCompiled(data[1], std::string(reinterpret_cast<const char*>(data) + 2, size - 2));
        }
        return 0;
    }
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    Kalvos k;
    FillStore(k.GetVars());
    try {
        switch (mode) {
            case 0:
                FuzzExpr(k, text);
                break;
            case 1:
                FuzzBool(k, text);
                break;
            default:
                FuzzStr(k, text);
                break;
        }
    } catch (const JException& e) {
        Fail("JException escaped the checks", text, Describe(e));
    }
    // Any other exception leaves through here and terminates: a finding too.
    return 0;
}
