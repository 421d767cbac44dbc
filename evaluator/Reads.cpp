#include <algorithm>
#include <iterator>
#include <utility>

#include "evaluator/Kalvos.h"
#include "support/KalvosVars.h"

namespace {

void AddOnce(std::vector<std::string>& names, std::string_view name) {
    if (std::find(names.begin(), names.end(), name) == names.end()) names.emplace_back(name);
}

}  // namespace

// The variables the text names, and those that "roundposx", "roundposy" and "roundposz" read by
// their names when they are called: "Dp", then the axis's origin.
std::vector<std::string> Kalvos::CompiledExpr::GetVariables() const {
    std::vector<std::string> names;
    if (Shared == nullptr) return names;
    const Code& code = Shared->Prog.Get()->Body;
    std::vector<std::pair<std::uint32_t, std::string_view>> reads;
    for (std::uint32_t i = 0; i < code.LinkCount; ++i) {
        reads.emplace_back(code.Links[i].At, LinkName(code, code.Links[i]));
    }
    for (std::uint32_t i = 0; i < code.CalledCount; ++i) {
        const std::uint32_t* called = code.Called + 3 * std::size_t{i};
        const std::string_view name(code.Text + called[0], called[1]);
        const std::string_view axes[] = {"roundposx", "roundposy", "roundposz"};
        const auto axis = std::find(std::begin(axes), std::end(axes), name) - std::begin(axes);
        if (axis == 3 || called[2] != 1) continue;
        static const std::string_view kOrigins[] = {"PosMin_x", "PosMin_y", "PosMin_z"};
        reads.emplace_back(called[0], "Dp");
        reads.emplace_back(called[0], kOrigins[axis]);
    }
    std::stable_sort(reads.begin(), reads.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    for (const auto& read : reads) AddOnce(names, read.second);
    return names;
}

std::vector<std::string> Kalvos::CompiledExpr::GetComputedNames() const {
    std::vector<std::string> names;
    if (Shared == nullptr) return names;
    const Code& code = Shared->Prog.Get()->Body;
    for (std::uint32_t pc = 0; pc < code.InstrCount; ++pc) {
        if (code.Instrs[pc].Code != Op::LoadIndexed) continue;
        const std::uint32_t* aux = code.Aux + code.Instrs[pc].Extra;
        AddOnce(names, std::string_view(code.Text + aux[0], aux[1]));
    }
    return names;
}

std::vector<std::string> Kalvos::CompiledExpr::GetFunctions() const {
    std::vector<std::string> names;
    if (Shared == nullptr) return names;
    const Code& code = Shared->Prog.Get()->Body;
    for (std::uint32_t i = 0; i < code.CalledCount; ++i) {
        const std::uint32_t* called = code.Called + 3 * std::size_t{i};
        AddOnce(names, std::string_view(code.Text + called[0], called[1]));
    }
    return names;
}

// A call of "rand", "randint" or "randinit" with a count the catalogue has.
bool Kalvos::CompiledExpr::DrawsRandomNumbers() const {
    if (Shared == nullptr) return false;
    const Code& code = Shared->Prog.Get()->Body;
    for (std::uint32_t i = 0; i < code.CalledCount; ++i) {
        const std::uint32_t* called = code.Called + 3 * std::size_t{i};
        const std::string_view name(code.Text + called[0], called[1]);
        const bool random = name == "rand" || name == "randint" || name == "randinit";
        if (random && FindBuiltin(name, called[2]) != nullptr) return true;
    }
    return false;
}

std::vector<std::string> Kalvos::GetMissingVariables(const CompiledExpr& compiled) const {
    std::vector<std::string> missing;
    for (const std::string& name : compiled.GetVariables()) {
        const bool keyword = EqualsLower(name, "true") || EqualsLower(name, "false");
        if (Vars->FindVar(name) == KalvosVars::kNoVar && !keyword) missing.push_back(name);
    }
    return missing;
}
