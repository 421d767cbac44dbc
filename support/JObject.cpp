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

std::string JObject::FormatMessage(MessageId id, const MessageArg* args, std::size_t count,
                                   std::string_view errortext) {
    std::string text;
    std::string_view format = kMessages[static_cast<std::size_t>(id)].Format;
    // Every template has exactly `count` placeholders, each "%" and one letter: the callers'
    // values are checked against it when they are built.
    for (std::size_t next = 0; next < count; ++next) {
        const std::size_t mark = format.find('%');
        text.append(format.substr(0, mark));
        AppendArg(text, args[next]);
        format.remove_prefix(mark + 2);
    }
    text.append(format);
    text.append(errortext);
    return text;
}
