#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

#include "kalvos_export.h"
#include "support/Messages.h"

/// The failure every Kalvos object raises. It keeps the six arguments of the raise so that a
/// host can read where the failure came from; `what()` joins them into one readable line that
/// contains the message unchanged.
class KALVOS_EXPORT JException : public std::runtime_error {
public:
    JException(std::string srcFile, int srcLine, std::string className, std::string method,
               std::string text, std::string file);

    const std::string& GetSrcFile() const { return SrcFile; }
    int GetSrcLine() const { return SrcLine; }
    const std::string& GetClassName() const { return ClassName; }
    const std::string& GetMethod() const { return Method; }
    /// The message, with the caller's error text already appended.
    const std::string& GetText() const { return Text; }
    /// The extra text of the raise; the evaluator always passes "".
    const std::string& GetFile() const { return File; }

private:
    std::string SrcFile;
    int SrcLine;
    std::string ClassName;
    std::string Method;
    std::string Text;
    std::string File;
};

/// Base of the Kalvos classes: a class name for reports and the single way to raise.
class KALVOS_EXPORT JObject {
public:
    JObject() = default;

    const std::string& GetClassName() const { return ClassName; }
    bool GetDestroying() const { return Destroying; }

    /// Throws a JException carrying the six arguments; never returns. Always inlined, so that
    /// the throw happens in the frame that raises: a failure unwinds as few frames as it can.
    [[noreturn]]
#if defined(__GNUC__)
    __attribute__((always_inline))
#endif
    void
    RunExceptioon(const std::string& srcFile, int srcLine, const std::string& className,
                  const std::string& method, const std::string& text,
                  const std::string& file) const {
        throw JException(srcFile, srcLine, className, method, text, file);
    }

protected:
    /// The one way the library raises: the template of `id` filled with `args`, the error
    /// text appended, through RunExceptioon with the template's module and method, the line,
    /// ClassName and "".
    template <MessageId id, typename... Args>
    [[noreturn]] void Raise(int line, std::string_view errortext, const Args&... args) const {
        Throw(Describe<id>(line, errortext, args...));
    }
    [[noreturn]] void Throw(const MessageReport& report) const {
        RunExceptioon(report.Module, report.Line, ClassName, report.Method, report.Text, "");
    }
    /// The failure Raise would raise, for a caller that raises it in a frame of its own.
    template <MessageId id, typename... Args>
    static MessageReport Describe(int line, std::string_view errortext, const Args&... args) {
        static_cast<void>(CheckedArgs<id, Args...>{});
        const MessageArg values[] = {MessageArg(args)..., MessageArg(0)};
        const MessageTemplate& message = kMessages[static_cast<std::size_t>(id)];
        return {message.Module, message.Method, line,
                FormatMessage(id, values, sizeof...(Args), errortext), std::string()};
    }
    /// The template filled in as printf would (a text stops at its first NUL character, %g is
    /// printf's), the error text appended.
    static std::string FormatMessage(MessageId id, const MessageArg* args, std::size_t count,
                                     std::string_view errortext);

    std::string ClassName = "JObject";
    bool Destroying = false;
};
