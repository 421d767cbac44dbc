#include "tools/Interactive.h"

#include <cstdlib>
#include <iostream>
#include <string>

#include "tools/LineRules.h"

#ifdef KALVOS_HAVE_LIBEDIT
#include <editline/readline.h>
#endif

namespace cli {

const char* const kLineHelp =
    "Lines and arguments:\n"
    "  EXPR         a numeric expression, such as 2 * max(a, 3) + 1\n"
    "  NAME = EXPR  store the value of EXPR in the numeric variable NAME; prints nothing\n"
    "  $TEXT        a string expression: TEXT with every [name] replaced by its value\n"
    "  // ...       a comment: a line whose first non-blank characters are //\n"
    "Blank lines are skipped.\n";

const char* const kCommandHelp =
    "Interactive commands: :vars lists the variables, :help, :quit (or end of input).\n";

namespace {

constexpr const char* kPrompt = "kalvos> ";

#ifdef KALVOS_HAVE_LIBEDIT
bool ReadLine(std::string& line) {
    char* text = readline(kPrompt);
    if (text == nullptr) return false;
    line = text;
    if (!TrimBlanks(line).empty()) add_history(text);
    std::free(text);
    return true;
}
#else
bool ReadLine(std::string& line) {
    std::cout << kPrompt << std::flush;
    return static_cast<bool>(std::getline(std::cin, line));
}
#endif

// The session's own commands begin with ":", which no expression can.
struct Command {
    const char* Name;
    bool (*Run)(Session& session);  // false ends the session
};

constexpr Command kCommands[] = {
    {":vars",
     [](Session& session) {
         session.ListVars();
         return true;
     }},
    {":help",
     [](Session&) {
         std::cout << kLineHelp << kCommandHelp;
         return true;
     }},
    {":quit", [](Session&) { return false; }},
};

bool RunCommand(Session& session, std::string_view name) {
    for (const Command& command : kCommands) {
        if (name == command.Name) return command.Run(session);
    }
    std::cerr << "kalvos: unknown command '" << name << "'; :help lists the commands\n";
    return true;
}

}  // namespace

void RunInteractive(Session& session) {
    std::string line;
    while (ReadLine(line)) {
        const std::string_view trimmed = TrimBlanks(line);
        if (trimmed.empty() || trimmed[0] != ':') {
            session.RunLine(line, "");
        } else if (!RunCommand(session, trimmed)) {
            return;
        }
        std::cout << std::flush;
    }
    // The end of input leaves the cursor after the prompt; the shell's prompt starts afresh.
    std::cout << '\n';
}

}  // namespace cli
