// Fuzz target for the three entry points. The first byte chooses what is exercised, the rest
// is the text:
//   byte % 4 == 0: ComputeExpr, checked against the reduction rule when the text is short and
//                  holds digits and operators only;
//   byte % 4 == 1: ComputeExprBool, checked against ComputeExpr;
//   byte % 4 == 2: ComputeExprStr, checked against a direct rescanning expansion;
//   byte % 4 == 3: compiled evaluation, checked against the plain one (Differential.h). The
//                  second byte steers it: bit 0 evaluates as a condition, bits 1-2 give the
//                  evaluations beyond two, the whole byte seeds the store changes, and with
//                  bit 7 set the rest are the choices of the grammar (Grammar.h), not a text.
//                  With bit 6 of the first byte set, a bulk call instead, checked against its
//                  loop (BulkDifferential.h): the second byte seeds the store change before it,
//                  and the rest are the grammar's choices of the text, the columns, their
//                  strides and values, the count, the threads and whether it runs in place.
// Anything other than a value or a JException is a finding, and so is a broken invariant:
// the target aborts with a description on stderr, which libFuzzer reports as a crash.
//
// The same function is linked with ReplayMain.cpp into kalvos_fuzz_replay, which CTest runs
// over fuzz/corpus and fuzz/regressions in every build.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "BulkDifferential.h"
#include "Differential.h"
#include "Grammar.h"
#include "Reference.h"
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

// A short text of digits and operators only is also reduced by the rule as it reads.
void FuzzExpr(Kalvos& k, const std::string& text) {
    std::string outcome;
    try {
        outcome = fun::PrintStr("%a", k.ComputeExpr(text, ErrorText()));
    } catch (const JException& e) {
        CheckRaise(e, text);
        outcome = Describe(e);
    }
    CheckExprText(k, text);
    if (text.empty() || text.size() > 16 ||
        text.find_first_not_of("0123456789!*/+-=<>@|") != std::string::npos) {
        return;
    }
    double value = 0;
    const std::string error = reference::Reduce(text, value);
    const std::string expected =
        error.empty() ? fun::PrintStr("%a", value)
                      : "ComputExpr: Evaluating [" + text + "]: " + error + ErrorText();
    if (outcome != expected)
        Fail("reduction differs from the rule", text, outcome + " / " + expected);
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

    std::string result;
    std::string missing;
    if (!reference::Expand(k.GetVars(), text, result, missing)) return;
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

// A bulk call and its loop, on a case the grammar draws from the input.
void FuzzBulk(std::uint8_t control, const std::uint8_t* choices, std::size_t size) {
    texts::Grammar grammar(choices, size);
    const diff::BulkCase c = diff::DrawBulkCase(grammar);
    diff::BulkDifferential d(control);
    d.Change(static_cast<std::uint32_t>(control) * 2654435761u);
    const std::string difference = d.Run(c);
    if (!difference.empty()) Fail("bulk call differs from its loop", c.Text, difference);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const unsigned int mode = data[0] % 4;
    if (mode == 3 && (data[0] & 0x40) != 0) {
        if (size >= 2) FuzzBulk(data[1], data + 2, size - 2);
        return 0;
    }
    if (mode == 3) {
        if (size >= 2) {
            FuzzCompiled(data[1],
                         (data[1] & 0x80) != 0
                             ? texts::Grammar(data + 2, size - 2).Text()
                             : std::string(reinterpret_cast<const char*>(data) + 2, size - 2));
        }
        return 0;
    }
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    Kalvos k;
    reference::FillStore(k.GetVars());
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
