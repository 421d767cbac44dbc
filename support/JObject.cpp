#include "support/JObject.h"

#include <cstdio>
#include <utility>

namespace {

std::string DescribeRaise(const std::string& srcFile, int srcLine, const std::string& className,
                          const std::string& method, const std::string& text,
                          const std::string& file) {
    std::string line = className + "::" + method + ": " + text + " [" + srcFile + ":" +
                       std::to_string(srcLine) + "]";
    if (!file.empty()) line += " (" + file + ")";
    return line;
}

}  // namespace

JException::JException(std::string srcFile, int srcLine, std::string className, std::string method,
                       std::string text, std::string file)
    : std::runtime_error(DescribeRaise(srcFile, srcLine, className, method, text, file)),
      SrcFile(std::move(srcFile)),
      SrcLine(srcLine),
      ClassName(std::move(className)),
      Method(std::move(method)),
      Text(std::move(text)),
      File(std::move(file)) {}

void JObject::RunExceptioon(const std::string& srcFile, int srcLine, const std::string& className,
                            const std::string& method, const std::string& text,
                            const std::string& file) const {
    throw JException(srcFile, srcLine, className, method, text, file);
}

namespace {

void AppendArg(std::string& text, const MessageArg& arg) {
    switch (arg.Conversion) {
        case 's':  // as printf reads a C string: up to the first NUL
            text.append(arg.Text.substr(0, arg.Text.find('\0')));
            break;
        case 'g': {
            char buffer[32];
            const int length = std::snprintf(buffer, sizeof buffer, "%g", arg.Real);
            if (length > 0) text.append(buffer, static_cast<std::size_t>(length));
            break;
        }
        default:
            text.append(std::to_string(arg.Integer));
            break;
    }
}

}  // namespace

void JObject::RaiseMessage(MessageId id, int line, const MessageArg* args, std::size_t count,
                           std::string_view errortext) const {
    const MessageTemplate& message = kMessages[static_cast<std::size_t>(id)];
    std::string text;
    std::size_t next = 0;
    for (const char* c = message.Format; *c != '\0'; ++c) {
        if (*c != '%' || next == count) {
            text += *c;
            continue;
        }
        AppendArg(text, args[next++]);
        ++c;
    }
    text.append(errortext);
    RunExceptioon(message.Module, line, ClassName, message.Method, text, "");
}
