#include "evaluator/Kalvos.h"

// Splits at the commas of parenthesis depth 0 (square brackets are not counted). A piece
// closed by such a comma counts even when empty; an empty piece after the last one does not.
// Gives the number of pieces, kMaxParameters + 1 as soon as there would be more than
// kMaxParameters: that call fails before any parameter is read.
unsigned int Kalvos::SplitParameters(std::string_view args, std::uint32_t* begins,
                                     std::uint32_t* ends) {
    unsigned int count = 0;
    std::uint32_t start = 0;
    long depth = 0;
    const auto store = [&](std::uint32_t end) {
        if (count == kMaxParameters) return false;
        begins[count] = start;
        ends[count++] = end;
        start = end + 1;
        return true;
    };
    for (std::uint32_t pos = 0; pos < args.size(); ++pos) {
        if (args[pos] == '(') {
            ++depth;
        } else if (args[pos] == ')') {
            --depth;
        } else if (args[pos] == ',' && depth == 0 && !store(pos)) {
            return kMaxParameters + 1;
        }
    }
    if (start < args.size() && !store(static_cast<std::uint32_t>(args.size()))) {
        return kMaxParameters + 1;
    }
    return count;
}

int Kalvos::CheckNumberValue(double value) const {
    if (value > 1.7976931348623157e+308 || value < -1.7976931348623157e+308) return 2;
    if (value != value) return 1;  // NOLINT(misc-redundant-expression): true only for NaN
    return 0;
}
