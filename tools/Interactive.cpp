#include "tools/Interactive.h"

#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#ifdef KALVOS_HAVE_LIBEDIT
#include <editline/readline.h>
#endif

namespace cli {

const char* const kLineHelp =
    "Lines and arguments:\n"
    "  EXPR           a numeric expression, such as 2 * max(a, 3) + 1\n"
    "  NAME = EXPR    store the value of EXPR in the numeric variable NAME\n"
    "  NAME = $TEXT   store the string expression's text in the text variable NAME\n"
    "  $TEXT          a string expression: TEXT with every [name] replaced by its value\n"
    "  // ...         a comment, on a line of its own or after EXPR (not after $TEXT)\n"
    "NAME may carry indices: x[i + 1] = 5 stores x3 when i is 2. Blank lines are skipped.\n";

const char* const kCommandHelp =
    "Interactive commands: :vars lists the variables, :functions the built-in functions,\n"
    ":help (or help), :quit (or quit, exit, end of input). Ctrl-C abandons the line; the\n"
    "last result is ans.\n";

namespace {

constexpr const char* kPrompt = "kalvos> ";

// A command stands alone on its line, blanks around it allowed.
std::string_view Trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t\r");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t\r") + 1 - first);
}

enum class Read { Line, End, Interrupted, Failed };

volatile std::sig_atomic_t gInterrupted = 0;

extern "C" void NoteInterrupt(int) { gInterrupted = 1; }

// Ctrl-C abandons the line being typed and keeps the session. The handler only takes note;
// without SA_RESTART the read it interrupts returns at once, and the reader starts afresh.
class InterruptHandler {
public:
    InterruptHandler() {
        struct sigaction action {};
        action.sa_handler = NoteInterrupt;
        sigemptyset(&action.sa_mask);
        sigaction(SIGINT, &action, &Previous);
    }
    ~InterruptHandler() { sigaction(SIGINT, &Previous, nullptr); }
    InterruptHandler(const InterruptHandler&) = delete;
    InterruptHandler& operator=(const InterruptHandler&) = delete;

private:
    struct sigaction Previous {};
};

#ifdef KALVOS_HAVE_LIBEDIT

// Enough to go back a long way, small enough to load at once.
constexpr int kHistoryLines = 1000;
// Completion takes the name before the cursor; these end one.
const char kWordBreaks[] = " \t\n$[]()*/+-<>=!,@|#";

// The library's callbacks take no context, so the session they serve is kept here.
Session* gSession = nullptr;
int gReadError = 0;

// The reader gives the line editor one character at a time: a UTF-8 sequence as the code
// point it encodes, so that any text can be typed. It reads with read() itself, so that
// Ctrl-C ends the read (the handler is installed without SA_RESTART) and the line with it.
extern "C" int ReadCharacter(std::FILE*) {
    unsigned char bytes[4];
    std::size_t count = 0;
    std::size_t length = 1;
    while (count < length) {
        const ssize_t got = read(STDIN_FILENO, &bytes[count], 1);
        if (got == 1) {
            if (count == 0)
                length = bytes[0] >= 0xF0 ? 4 : bytes[0] >= 0xE0 ? 3 : bytes[0] >= 0xC0 ? 2 : 1;
            ++count;
            continue;
        }
        if (got < 0 && errno == EINTR && !gInterrupted) continue;
        if (got < 0 && errno != EINTR) gReadError = errno;
        return EOF;
    }
    if (length == 1) return bytes[0];
    int code = bytes[0] & (0x7F >> length);
    for (std::size_t i = 1; i < length; ++i) code = (code << 6) | (bytes[i] & 0x3F);
    return code;
}

extern "C" char* NextCompletion(const char* text, int state) {
    static std::vector<std::string> matches;
    static std::size_t next = 0;
    if (state == 0) {
        matches = gSession->Completions(text);
        next = 0;
    }
    if (next == matches.size()) return nullptr;
    return strdup(matches[next++].c_str());
}

extern "C" char** Complete(const char* text, int, int) {
    rl_attempted_completion_over = 1;  // names only, never file names
    return rl_completion_matches(text, NextCompletion);
}

// $XDG_STATE_HOME/kalvos/history, else ~/.local/state/kalvos/history; none without a home.
std::string HistoryPath() {
    const char* state = std::getenv("XDG_STATE_HOME");
    if (state != nullptr && state[0] == '/') return std::string(state) + "/kalvos/history";
    const char* home = std::getenv("HOME");
    if (home != nullptr && home[0] != '\0')
        return std::string(home) + "/.local/state/kalvos/history";
    return "";
}

class LineReader {
public:
    explicit LineReader(Session& session) : Owner(session), History(HistoryPath()) {
        gSession = &session;
        // Characters beyond ASCII are shown in the terminal's encoding. Only the character
        // type is taken from the environment; numbers keep the C locale's decimal point. A
        // locale the system lacks leaves the "C" one in place, which is no failure.
        (void)std::setlocale(LC_CTYPE, "");
        rl_readline_name = "kalvos";
        rl_catch_signals = 0;
        rl_getc_function = ReadCharacter;
        rl_attempted_completion_function = Complete;
        rl_basic_word_break_characters = kWordBreaks;
        rl_completion_append_character = '\0';
        stifle_history(kHistoryLines);
        if (!History.empty()) read_history(History.c_str());
    }
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;

    Read Next(std::string& line) {
        gReadError = 0;
        char* text = readline(kPrompt);
        if (text == nullptr) {
            if (gInterrupted) return Read::Interrupted;
            errno = gReadError;
            return gReadError != 0 ? Read::Failed : Read::End;
        }
        line = text;
        std::free(text);
        Remember(line);
        return Read::Line;
    }

private:
    // The whole history is written after each line, so that a session that is killed keeps
    // it; the file never holds more than kHistoryLines.
    void Remember(const std::string& line) {
        if (Trimmed(line).empty()) return;
        add_history(line.c_str());
        if (History.empty() || !Saving) return;
        std::error_code error;
        const std::filesystem::path folder = std::filesystem::path(History).parent_path();
        if (std::filesystem::create_directories(folder, error)) {
            std::filesystem::permissions(folder, std::filesystem::perms::owner_all, error);
        }
        if (write_history(History.c_str()) != 0) {
            Saving = false;
            Owner.Report("cannot keep the history in '" + History + "': " + std::strerror(errno));
        }
    }

    Session& Owner;
    std::string History;
    bool Saving = true;
};

#else

class LineReader {
public:
    explicit LineReader(Session&) {}

    Read Next(std::string& line) {
        std::cout << kPrompt << std::flush;
        if (std::getline(std::cin, line)) return Read::Line;
        const bool failed = std::ferror(stdin) != 0;
        std::cin.clear();
        std::clearerr(stdin);
        if (gInterrupted) return Read::Interrupted;
        return failed ? Read::Failed : Read::End;
    }
};

#endif

// The session's own commands begin with ":", which no expression can; help, quit and exit
// mean them too, as long as no variable has that name.
struct Command {
    const char* Name;
    const char* Word;
    bool (*Run)(Session& session);  // false ends the session
};

constexpr Command kCommands[] = {
    {":vars", nullptr,
     [](Session& session) {
         if (session.ListVars() == 0) std::cout << "no variables yet: NAME = EXPR makes one\n";
         return true;
     }},
    {":functions", nullptr,
     [](Session&) {
         Session::ListFunctions(std::cout);
         return true;
     }},
    {":help", "help",
     [](Session&) {
         std::cout << kLineHelp << kCommandHelp;
         return true;
     }},
    {":quit", "quit", [](Session&) { return false; }},
    {":exit", "exit", [](Session&) { return false; }},
};

const Command* FindCommand(const Session& session, std::string_view text) {
    for (const Command& command : kCommands) {
        if (text == command.Name) return &command;
        if (command.Word != nullptr && text == command.Word && !session.HasVariable(command.Word)) {
            return &command;
        }
    }
    return nullptr;
}

// Runs one line typed at the prompt; false when it ends the session.
bool RunEntry(Session& session, const std::string& line) {
    const std::string_view trimmed = Trimmed(line);
    if (const Command* command = FindCommand(session, trimmed)) return command->Run(session);
    if (!trimmed.empty() && trimmed[0] == ':') {
        session.Report("unknown command '" + std::string(trimmed) + "'; :help lists the commands");
        return true;
    }
    session.RunLine(line, "");
    return true;
}

}  // namespace

int RunInteractive(Session& session) {
    const InterruptHandler interrupts;
    session.KeepAnswers();
    LineReader reader(session);
    std::string line;
    for (;;) {
        gInterrupted = 0;
        switch (reader.Next(line)) {
            case Read::Interrupted:
                std::cout << '\n';
                continue;
            case Read::End:
                // The cursor is still after the prompt; the shell's prompt starts afresh.
                std::cout << '\n';
                return 0;
            case Read::Failed:
                return errno != 0 ? errno : EIO;
            case Read::Line:
                break;
        }
        if (!RunEntry(session, line)) return 0;
        session.Flush();
        if (session.OutputError() != 0) return 0;
    }
}

}  // namespace cli
