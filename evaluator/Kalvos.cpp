#include "evaluator/Kalvos.h"

#include <atomic>
#include <ctime>
#include <memory>

#include "evaluator/Bulk.h"
#include "support/KalvosVars.h"
#include "support/RandomMersenne.h"

namespace {

// The low 32 bits of the calendar time in whole seconds: objects made in the same second
// draw the same numbers.
int ClockSeed() { return static_cast<int>(static_cast<std::uint32_t>(std::time(nullptr))); }

// Numbers each object and each of its lives between Resets, so that a compiled handle knows
// the one it belongs to; the only state objects share, and atomic.
std::uint64_t NextSerial() {
    static std::atomic<std::uint64_t> counter{0};
    return ++counter;
}

}  // namespace

Kalvos::Kalvos() : Vars(nullptr), RandGen(nullptr), BulkWork(std::make_unique<Bulk>()) {
    ClassName = "Kalvos";
    auto vars = std::make_unique<KalvosVars>();
    auto randGen = std::make_unique<CRandomMersenne>(ClockSeed());
    Vars = vars.release();
    RandGen = randGen.release();
    Reset();
}

Kalvos::~Kalvos() {
    Destroying = true;
    Clear();
    ClearCache();
    delete Vars;
    Vars = nullptr;
    delete RandGen;
    RandGen = nullptr;
}

void Kalvos::Reset() {
    CheckNotInHost("Reset");
    Clear();
}

// Reset, which the destructor runs too: a destructor raises nothing.
void Kalvos::Clear() {
    Vars->Reset();
    RandGen->RandomInit(ClockSeed());
    Unpin();
    ExprText.clear();
    Current = ProgramRef();
    ErrorText.clear();
    ClearCache();
    // The plans keep programs alive; the threads, as the cache limits, stay.
    BulkWork->Plans.clear();
    Serial = NextSerial();
}

int Kalvos::TruncToInt(double value) {
    // The comparisons are false for NaN; inside the open interval truncation fits an int.
    if (value > -2147483649.0 && value < 2147483648.0) return static_cast<int>(value);
    return -2147483647 - 1;
}

bool Kalvos::EqualsLower(std::string_view text, std::string_view lower) {
    if (text.size() != lower.size()) return false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        if (c != lower[i]) return false;
    }
    return true;
}
