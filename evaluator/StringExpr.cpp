#include <cstdint>
#include <vector>

#include "evaluator/Kalvos.h"
#include "support/KalvosVars.h"

namespace {

// Characters copied or scanned in one expansion, markers' names included: with the two bounds
// of the header this keeps the time of an expansion bounded too.
constexpr std::size_t kMaxWork = std::size_t{16} * Kalvos::kMaxExpandedLength;

// A "[" of the text expanded so far, with whether a "]" came directly after it.
constexpr std::uint32_t kClosedFlag = 0x80000000u;

}  // namespace

std::string Kalvos::ComputeExprStr(std::string text, const std::string& errortext) {
    CheckNotInHost("ComputeExprStr");
    Active = nullptr;  // its texts and program are all replaced
    ExprText = text;
    Current = ProgramRef();
    ErrorText = errortext;
    if (!text.empty() && text[0] == '$') text.erase(0, 1);
    return ComputExprStr(std::move(text));
}

// The text is taken by value, as by every operation that may edit a text.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
std::string Kalvos::ComputExprStr(std::string text) { return Expand(text); }

// Replacing a marker and scanning the new text again from its start gives the same result as
// going on from where the marker stood, provided the state of the scan is restored to what it
// was just before the marker's "[": the text before it is unchanged. That state is "the last
// '[' so far, unless a ']' came after it", kept as a stack of the "[" positions in `out`.
// Replacement texts are scanned from where they stand in the store, pushed in front of what
// remains, so an expansion takes time in proportion to the characters it produces.
std::string Kalvos::Expand(std::string_view text) const {
    std::string out;
    out.reserve(text.size());
    std::vector<std::uint32_t> opens;
    std::vector<std::string_view> pending{text};
    unsigned int replacements = 0;
    std::size_t work = 0;
    while (!pending.empty()) {
        std::string_view& source = pending.back();
        std::size_t run = source.find_first_of("[]");
        if (run == std::string_view::npos) run = source.size();
        work += run + 1;
        if (out.size() + run > kMaxExpandedLength || work > kMaxWork) {
            Raise<MessageId::ExpandedTooLong>(__LINE__, ErrorText, ExprText);
        }
        out.append(source.data(), run);
        source.remove_prefix(run);
        if (source.empty()) {
            pending.pop_back();
            continue;
        }
        const char bracket = source[0];
        source.remove_prefix(1);
        const bool open = !opens.empty() && (opens.back() & kClosedFlag) == 0;
        if (bracket == '[') {
            opens.push_back(static_cast<std::uint32_t>(out.size()));
            out += '[';
        } else if (!open) {
            out += ']';
        } else if (opens.back() + 1 == out.size()) {
            opens.back() |= kClosedFlag;  // "[]" forms no marker
            out += ']';
        } else {
            const std::size_t start = opens.back();
            opens.pop_back();
            const std::string_view name = std::string_view(out).substr(start + 1);
            const unsigned int idx = Vars->FindVar(name);
            if (idx == KalvosVars::kNoVar) {
                Raise<MessageId::StrNoVariable>(__LINE__, ErrorText, ExprText, name);
            }
            if (++replacements > kMaxReplacements) {
                Raise<MessageId::TooManyReplacements>(__LINE__, ErrorText, ExprText);
            }
            work += name.size();
            out.resize(start);
            if (source.empty()) pending.pop_back();
            if (Vars->VarIsNum(idx)) {
                // A number holds no bracket, so it cannot change the state of the scan.
                out += fun::DoubleStr(Vars->GetVarNum(idx, std::string()), "%g");
            } else {
                pending.push_back(Vars->GetVarStrView(idx));
            }
        }
    }
    return out;
}
