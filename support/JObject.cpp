#include "support/JObject.h"

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
