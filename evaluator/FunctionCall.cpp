#include "evaluator/Kalvos.h"

namespace {

constexpr const char* kMethod = "ComputFunc";
constexpr const char* kTooManyParameters =
    "Evaluating function [%s(%s)]: This expression has too many parameters.";
constexpr const char* kNotFound =
    "Evaluating function [%s(%s)]: Function not found or invalid for %d parameters.";
constexpr const char* kInvalidResult =
    "Evaluating function [%s(%s)]: The result %g is an invalid value (%s).";

const char* ResultLabel(int code) {
    switch (code) {
        case 1:
            return "NaN";
        case 2:
            return "Infinity";
        default:
            return "Unknown";
    }
}

}  // namespace

double Kalvos::ComputFunc(const std::string& name, const std::string& args) {
    return CallFunction(name, args, 0);
}

// Every parameter is evaluated, in order, before the function is chosen: there is no
// short-circuit, so draws and failures happen whatever the function.
double Kalvos::CallFunction(std::string_view name, std::string_view args, unsigned int depth) {
    std::string_view params[kMaxParameters];
    const unsigned int count = SplitParameters(name, args, params);
    double values[kMaxParameters];
    for (unsigned int i = 0; i < count; ++i) values[i] = Evaluate(params[i], depth + 1);

    const CatalogueEntry* entry = FindBuiltin(name, count);
    if (entry == nullptr) Raise(__LINE__, kMethod, kNotFound, name, args, static_cast<int>(count));
    const double value = CallBuiltin(*entry, values, count);
    const int code = CheckNumberValue(value);
    if (code != 0) Raise(__LINE__, kMethod, kInvalidResult, name, args, value, ResultLabel(code));
    return value;
}

// Splits at the commas of parenthesis depth 0 (square brackets are not counted). A piece
// closed by such a comma counts even when empty; an empty piece after the last one does not.
unsigned int Kalvos::SplitParameters(std::string_view name, std::string_view args,
                                     std::string_view* params) const {
    unsigned int count = 0;
    std::size_t start = 0;
    long depth = 0;
    const auto store = [&](std::size_t end) {
        if (count == kMaxParameters) Raise(__LINE__, kMethod, kTooManyParameters, name, args);
        params[count++] = args.substr(start, end - start);
        start = end + 1;
    };
    for (std::size_t pos = 0; pos < args.size(); ++pos) {
        if (args[pos] == '(') {
            ++depth;
        } else if (args[pos] == ')') {
            --depth;
        } else if (args[pos] == ',' && depth == 0) {
            store(pos);
        }
    }
    if (start < args.size()) store(args.size());
    return count;
}

int Kalvos::CheckNumberValue(double value) const {
    if (value > 1.7976931348623157e+308 || value < -1.7976931348623157e+308) return 2;
    if (value != value) return 1;  // NOLINT(misc-redundant-expression): true only for NaN
    return 0;
}
