#include <gtest/gtest.h>

#include <string>

#include "tools/MessageFields.h"

namespace {

// The values joined by "|", or "-" when the message is not read.
std::string Read(const char* method, const char* message, const char* errortext, MessageId& id) {
    cli::MessageFields fields;
    if (!cli::ReadMessage(method, message, errortext, fields)) return "-";
    id = fields.Id;
    std::string joined;
    for (const std::string_view arg : fields.Args)
        joined += (joined.empty() ? "" : "|") + std::string(arg);
    return joined;
}

}  // namespace

TEST(ReadMessage, FindsTheTemplateAndItsValues) {
    const struct {
        const char* Method;
        const char* Message;
        const char* ErrorText;
        MessageId Id;
        const char* Args;
    } cases[] = {
        {"ComputExpr", "Evaluating [2^3]: The expression at position 1 is invalid. (line 4)",
         " (line 4)", MessageId::NoToken, "2^3|1"},
        {"ComputExpr", "Evaluating [a]: The variable 'a' does not exist.", "",
         MessageId::NoVariable, "a|a"},
        // A value may hold the text that follows it in the template.
        {"ComputFunc",
         "Evaluating function [f(g(1),2)]: Function not found or invalid for 2 parameters.!", "!",
         MessageId::FunctionNotFound, "f|g(1),2|2"},
        {"ComputExprStr", "Evaluating [$[it's]]: The variable 'it's' does not exist.", "",
         MessageId::StrNoVariable, "$[it's]|it's"},
        {"GetVarNum", "The variable 'Dp' does not exist. (argument 1)", " (argument 1)",
         MessageId::StoreNoVariable, "Dp"},
        {"ComputeExpr", "Expression is empty. (line 2)", " (line 2)", MessageId::ExpressionEmpty,
         ""},
        // A position must be a number; the error text must end the message; the method must
        // be the template's.
        {"ComputExpr", "Evaluating [1]: Number at position x is invalid.", "", MessageId::Count,
         "-"},
        {"ComputExpr", "Evaluating [1/0]: Division by zero. (line 1)", " (line 2)",
         MessageId::Count, "-"},
        {"ComputExprStr", "Evaluating [1/0]: Division by zero.", "", MessageId::Count, "-"}};
    for (const auto& c : cases) {
        MessageId id = MessageId::Count;
        EXPECT_EQ(Read(c.Method, c.Message, c.ErrorText, id), c.Args) << c.Message;
        EXPECT_EQ(id, c.Id) << c.Message;
    }
}
