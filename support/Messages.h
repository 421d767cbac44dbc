#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>
#include <type_traits>

#include "kalvos_export.h"

/// Every message the library raises: its module, the raising method and the template. The
/// evaluator's come first, in the order of its message index; then the limits of its own,
/// the compiled handle's, the variable store's and the set-up reader's.
enum class MessageId : std::uint8_t {
    ExpressionEmpty,
    ParenthesesWrong,
    ExpressionInvalid,
    TooManyParts,
    NegativeIndex,
    NoToken,
    BadNumber,
    NotNumeric,
    BadOperator,
    NoVariable,
    DivisionByZero,
    TooManyParameters,
    FunctionNotFound,
    InvalidResult,
    NoEndOfParentheses,
    NoEndOfBrackets,
    StrNoVariable,
    NestingTooDeep,
    TooManyReplacements,
    ExpandedTooLong,
    ForeignCompiled,
    StoreNoVariable,
    StoreNotNumeric,
    StoreIndexOutOfRange,
    StrIndexOutOfRange,
    NameIndexOutOfRange,
    RefNoVariable,
    RefNotNumeric,
    RefEmpty,
    RefStale,
    BulkNoOutput,
    BulkOutputTooLong,
    BulkNoData,
    BulkSameName,
    BulkColumnTooLong,
    BulkOverlap,
    ThreadCount,
    ThreadsNotStarted,
    HostRaised,
    HostChangedStore,
    HostCalledBack,
    HostBadName,
    HostBuiltinName,
    HostBadCounts,
    HostNoComputation,
    BulkStoreChanged,
    SetupBadTarget,
    Count
};

struct MessageTemplate {
    const char* Module;
    const char* Method;
    const char* Format;  // %s a text, %d an int, %u an unsigned int, %g a double
};

inline constexpr MessageTemplate kMessages[] = {
    {"Kalvos", "ComputeExpr", "Expression is empty."},
    {"Kalvos", "ComputeExpr", "Parenthesis in expression [%s] are wrong."},
    {"Kalvos", "ComputExpr", "Evaluating [%s]: Expression is invalid."},
    {"Kalvos", "ComputExpr", "Evaluating [%s]: This expression has too many parts."},
    {"Kalvos", "ComputExpr", "Evaluating [%s]: The result of brackets [%s] is less than zero."},
    {"Kalvos", "ComputExpr", "Evaluating [%s]: The expression at position %d is invalid."},
    {"Kalvos", "ComputExpr", "Evaluating [%s]: Number at position %d is invalid."},
    {"Kalvos", "ComputExpr", "Evaluating [%s]: The variable '%s' is not a numeric variable."},
    {"Kalvos", "ComputExpr", "Evaluating [%s]: Operator at position %d is invalid."},
    {"Kalvos", "ComputExpr", "Evaluating [%s]: The variable '%s' does not exist."},
    {"Kalvos", "ComputExpr", "Evaluating [%s]: Division by zero."},
    {"Kalvos", "ComputFunc",
     "Evaluating function [%s(%s)]: This expression has too many parameters."},
    {"Kalvos", "ComputFunc",
     "Evaluating function [%s(%s)]: Function not found or invalid for %d parameters."},
    {"Kalvos", "ComputFunc",
     "Evaluating function [%s(%s)]: The result %g is an invalid value (%s)."},
    {"Kalvos", "LookforEndParentesis", "Evaluating [%s]: End of parentheses is missing"},
    {"Kalvos", "LookforEndBrackets", "Evaluating [%s]: End of brackets is missing"},
    {"Kalvos", "ComputExprStr", "Evaluating [%s]: The variable '%s' does not exist."},
    {"Kalvos", "ComputExpr", "Evaluating [%s]: Expression nesting is too deep."},
    {"Kalvos", "ComputExprStr", "Evaluating [%s]: Too many variable replacements."},
    {"Kalvos", "ComputExprStr", "Evaluating [%s]: The expanded text is too long."},
    {"Kalvos", "ComputeCompiled",
     "The compiled expression [%s] belongs to another evaluator or was made before Reset."},
    {"KalvosVars", "GetVarNum", "The variable '%s' does not exist."},
    {"KalvosVars", "GetVarNum", "The variable '%s' is not a numeric variable."},
    {"KalvosVars", "GetVarNum", "Variable index %u is out of range."},
    {"KalvosVars", "GetVarStr", "Variable index %u is out of range."},
    {"KalvosVars", "GetVarName", "Variable index %u is out of range."},
    {"KalvosVars", "GetNumRef", "The variable '%s' does not exist."},
    {"KalvosVars", "GetNumRef", "The variable '%s' is not a numeric variable."},
    {"KalvosVars", "NumRef", "The variable reference is empty."},
    {"KalvosVars", "NumRef",
     "The reference to the variable '%s' is stale: the variable was deleted or turned into a "
     "text."},
    {"Kalvos", "ComputeCompiled", "Bulk evaluation of [%s]: The output is a null pointer."},
    {"Kalvos", "ComputeCompiled",
     "Bulk evaluation of [%s]: The output reaches past the end of memory."},
    {"Kalvos", "ComputeCompiled", "Bulk evaluation of [%s]: Column '%s' has no data."},
    {"Kalvos", "ComputeCompiled", "Bulk evaluation of [%s]: Two columns are named '%s'."},
    {"Kalvos", "ComputeCompiled",
     "Bulk evaluation of [%s]: Column '%s' reaches past the end of memory."},
    {"Kalvos", "ComputeCompiled", "Bulk evaluation of [%s]: The output overlaps column '%s'."},
    {"Kalvos", "SetThreads", "The thread count %u is not within 1 to %u."},
    {"Kalvos", "SetThreads", "The threads could not be started: %s"},
    {"Kalvos", "ComputFunc", "Evaluating function [%s(%s)]: The host function raised: %s"},
    {"Kalvos", "ComputFunc",
     "Evaluating function [%s(%s)]: The host function added or removed variables."},
    {"Kalvos", "HostFunction", "The host function '%s' called %s of the evaluator that runs it."},
    {"Kalvos", "DefineFunction", "The name '%s' cannot be called in an expression."},
    {"Kalvos", "DefineFunction", "'%s' is the name of a built-in function."},
    {"Kalvos", "DefineFunction", "The parameter counts %u to %u of '%s' are not within 0 to %u."},
    {"Kalvos", "DefineFunction", "The function '%s' has no computation."},
    {"Kalvos", "ComputeCompiled",
     "Bulk evaluation of [%s]: A host function added or removed variables."},
    {"Kalvos", "RunSetup",
     "cannot assign to '%s': a variable is a letter or '_', then letters, digits or '_', then "
     "any number of [INDEX]"},
};
static_assert(std::size(kMessages) == static_cast<std::size_t>(MessageId::Count),
              "one template for each MessageId");

/// A failure ready to be raised: the template's module and method, the source line and the
/// message with the error text appended.
struct MessageReport {
    std::string Module;
    std::string Method;
    int Line = 0;
    std::string Text;
    std::string File;  // the sixth argument of a raise, always ""
};

/// One value for a placeholder of a message.
struct MessageArg {
    char Conversion;  // 's', 'd', 'u' or 'g'
    std::string_view Text;
    long long Integer;
    double Real;

    MessageArg(std::string_view text) : Conversion('s'), Text(text), Integer(0), Real(0) {}
    MessageArg(const std::string& text) : MessageArg(std::string_view(text)) {}
    MessageArg(const char* text) : MessageArg(std::string_view(text)) {}
    MessageArg(int value) : Conversion('d'), Integer(value), Real(0) {}
    MessageArg(unsigned int value) : Conversion('u'), Integer(value), Real(0) {}
    MessageArg(double value) : Conversion('g'), Integer(0), Real(value) {}
};

namespace message_detail {

template <typename T>
constexpr char ConversionOf() {
    if constexpr (std::is_same_v<T, int>) return 'd';
    if constexpr (std::is_same_v<T, unsigned int>) return 'u';
    if constexpr (std::is_same_v<T, double>) return 'g';
    if constexpr (std::is_convertible_v<T, std::string_view>) return 's';
    return '?';
}

// Whether the template's conversions are, in order, exactly `expected`.
constexpr bool Takes(const char* format, const char* expected) {
    for (; *format != '\0'; ++format) {
        if (*format != '%') continue;
        ++format;
        if (*expected == '\0' || *format != *expected) return false;
        ++expected;
    }
    return *expected == '\0';
}

}  // namespace message_detail

/// The values for a template, checked when the call is built: the values must fit the
/// template's placeholders in number and kind, so that a text can never be passed for a
/// number or the other way round.
template <MessageId id, typename... Args>
struct CheckedArgs {
    static constexpr char kExpected[] = {message_detail::ConversionOf<Args>()..., '\0'};
    static_assert(message_detail::Takes(kMessages[static_cast<std::size_t>(id)].Format, kExpected),
                  "the values do not fit the message's placeholders");
};
