// kalvos: evaluates expressions given as arguments, read from files, from standard input or
// typed at a prompt, one result a line. Everything it computes goes through the Kalvos
// evaluator.
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/Interactive.h"
#include "tools/Printing.h"
#include "tools/Session.h"

namespace {

const char* const kUsage =
    "Usage: kalvos [OPTIONS] [EXPR...]\n"
    "Evaluate each EXPR and print one result a line. Without EXPR, read the lines of\n"
    "standard input; on a terminal, start an interactive session (with --vars, only print\n"
    "the variables).\n\n";

const char* const kOptionHelp =
    "\nOptions:\n"
    "  -b, --bool        evaluate expressions as conditions; print true or false\n"
    "  -D NAME=EXPR      define a numeric variable (NAME may have indices: x[2]=5)\n"
    "  -S NAME=TEXT      define a text variable, TEXT taken as it is\n"
    "  -f FILE           run the lines of FILE; - is standard input\n"
    "  --seed N          seed the random generator, so that rand() repeats\n"
    "  --precision N     print numbers with N digits after the point\n"
    "  --vars            at the end, print every variable as a line kalvos reads back;\n"
    "                    the values of expressions then go to standard error\n"
    "  --functions       list the built-in functions and exit\n"
    "  -h, --help        print this help and exit\n"
    "  -V, --version     print the version and exit\n"
    "  --                end the options (before an EXPR such as -x + 1)\n"
    "Options may stand before or after the EXPRs; -D, -S and -f may repeat and take effect\n"
    "in the order given, before any EXPR or input line. Numbers are printed in the shortest\n"
    "form that reads back: 100000, 0.0001, 1e+16, 1.5e-07, inf, nan.\n"
    "An error is printed as \"kalvos: MESSAGE\" and the next line goes on.\n\n";

const char* const kExitHelp =
    "\nExit status: 0 when everything evaluated, 1 when an expression failed or the output\n"
    "could not be written, 2 for a wrong command line or a file that cannot be read. An\n"
    "interactive session exits with 0 unless its input or output failed.\n";

// A wrong command line: reported with a hint to --help, exit status 2.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A file that cannot be read: exit status 2 as well, but no hint, since the line was right.
class FileError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// What -D, -S and -f ask for, kept in their order: a -D may use the variables before it.
struct Setup {
    enum Kind { Line, Text, File } What;
    std::string Name;    // the target of -S, the file's name
    std::string Value;   // the -D line, the text, or the file's contents
    std::string Origin;  // appended to the messages of what it evaluates
};

// Two digits, as printf's precision field is usually given; far past a double's 17.
constexpr int kMaxDecimals = 99;

struct Options {
    bool AsBool = false;
    bool Help = false;
    bool Version = false;
    bool Functions = false;
    bool Vars = false;
    bool HasSeed = false;
    bool StdinTaken = false;  // by -f -, so no session reads it again
    int Seed = 0;
    int Decimals = -1;
    std::vector<Setup> Setups;
    std::vector<std::string> Exprs;
};

std::string ReadAll(std::FILE* file, const std::string& name) {
    std::string text;
    char buffer[65536];
    std::size_t count = 0;
    while ((count = std::fread(buffer, 1, sizeof buffer, file)) > 0) text.append(buffer, count);
    if (std::ferror(file)) throw FileError("cannot read '" + name + "': " + std::strerror(errno));
    return text;
}

std::string ReadFile(const std::string& path, Options& options) {
    if (path == "-") {
        options.StdinTaken = true;
        return ReadAll(stdin, "standard input");
    }
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) throw FileError("cannot read '" + path + "': " + std::strerror(errno));
    try {
        // Closing a file that was only read cannot lose anything: its result tells nothing.
        std::string text = ReadAll(file, path);
        (void)std::fclose(file);
        return text;
    } catch (...) {
        (void)std::fclose(file);
        throw;
    }
}

bool IsAssignment(const Kalvos::SetupLine& line) {
    return line.Kind == Kalvos::SetupLineKind::Assignment ||
           line.Kind == Kalvos::SetupLineKind::TextAssignment;
}

Setup LineSetup(const std::string& flag, const std::string& value) {
    if (!IsAssignment(Kalvos::ReadSetupLine(value))) {
        throw UsageError(flag + " expects NAME=EXPR, not '" + value + "'");
    }
    return {Setup::Line, "", value, " (option " + flag + " " + value + ")"};
}

// The target is read as a line's: x[a==1]=t is x[a==1] and t. TEXT is all that follows its
// "=", a comment mark included.
Setup TextSetup(const std::string& flag, const std::string& value) {
    const Kalvos::SetupLine line = Kalvos::ReadSetupLine(value);
    if (!IsAssignment(line)) throw UsageError(flag + " expects NAME=TEXT, not '" + value + "'");
    const auto targetEnd =
        static_cast<std::size_t>(line.Target.data() - value.data()) + line.Target.size();
    return {Setup::Text, std::string(line.Target), value.substr(value.find('=', targetEnd) + 1),
            " (option " + flag + " " + value + ")"};
}

int ParseInt(const std::string& flag, const std::string& value, int low, int high) {
    int number = 0;
    const char* end = value.data() + value.size();
    const auto result = std::from_chars(value.data(), end, number);
    if (value.empty() || result.ec != std::errc() || result.ptr != end || number < low ||
        number > high) {
        throw UsageError(flag + " expects a whole number from " + std::to_string(low) + " to " +
                         std::to_string(high) + ", not '" + value + "'");
    }
    return number;
}

struct OptionSpec {
    const char* Short;
    const char* Long;
    bool TakesValue;
    void (*Apply)(Options& options, const std::string& flag, const std::string& value);
};

using S = const std::string&;
constexpr int kIntMin = -2147483647 - 1;
constexpr int kIntMax = 2147483647;
constexpr OptionSpec kOptionSpecs[] = {
    {"-b", "--bool", false, [](Options& o, S, S) { o.AsBool = true; }},
    {"-h", "--help", false, [](Options& o, S, S) { o.Help = true; }},
    {"-V", "--version", false, [](Options& o, S, S) { o.Version = true; }},
    {nullptr, "--functions", false, [](Options& o, S, S) { o.Functions = true; }},
    {nullptr, "--vars", false, [](Options& o, S, S) { o.Vars = true; }},
    {"-D", nullptr, true, [](Options& o, S f, S v) { o.Setups.push_back(LineSetup(f, v)); }},
    {"-S", nullptr, true, [](Options& o, S f, S v) { o.Setups.push_back(TextSetup(f, v)); }},
    {"-f", nullptr, true,
     [](Options& o, S, S v) {
         o.Setups.push_back({Setup::File, v, ReadFile(v, o), ""});
     }},
    {nullptr, "--seed", true,
     [](Options& o, S f, S v) {
         o.Seed = ParseInt(f, v, kIntMin, kIntMax);
         o.HasSeed = true;
     }},
    {nullptr, "--precision", true,
     [](Options& o, S f, S v) { o.Decimals = ParseInt(f, v, 0, kMaxDecimals); }},
};

// Finds the option an argument names; `value` receives what is attached to it ("-Dx=1",
// "--seed=5"), `attached` whether there was anything.
const OptionSpec& FindOption(const std::string& arg, std::string& flag, std::string& value,
                             bool& attached) {
    const bool isLong = arg.compare(0, 2, "--") == 0;
    const std::size_t split = isLong ? arg.find('=') : 2;
    flag = arg.substr(0, split);
    attached = split < arg.size();
    value = attached ? arg.substr(split + (isLong ? 1 : 0)) : "";
    for (const OptionSpec& option : kOptionSpecs) {
        const char* name = isLong ? option.Long : option.Short;
        if (name != nullptr && flag == name && (option.TakesValue || !attached)) return option;
    }
    // An expression such as -x + 1 looks like an option; say where it goes.
    const std::string hint = isLong ? "" : " (an EXPR that begins with '-' goes after '--')";
    throw UsageError("unknown option '" + arg + "'" + hint);
}

// "-" with something other than a letter after it ("-1", "-(a)") is an expression, not an
// option; an expression that begins with "-" and a letter comes after "--".
bool IsOption(const std::string& arg) {
    if (arg.size() < 2 || arg[0] != '-') return false;
    return arg[1] == '-' || std::isalpha(static_cast<unsigned char>(arg[1]));
}

// As GNU tools do, an option is an option wherever it stands until "--": "kalvos 'a+1' -D
// a=2" defines a before anything is evaluated, and an unknown one stops the run.
Options ParseOptions(int argc, char** argv) {
    Options options;
    bool optionsEnded = false;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (optionsEnded || !IsOption(arg)) {
            options.Exprs.push_back(arg);
            continue;
        }
        if (arg == "--") {
            optionsEnded = true;
            continue;
        }
        std::string flag;
        std::string value;
        bool attached = false;
        const OptionSpec& option = FindOption(arg, flag, value, attached);
        if (option.TakesValue && !attached) {
            if (++i == argc) throw UsageError("option '" + flag + "' needs a value");
            value = argv[i];
        }
        option.Apply(options, flag, value);
    }
    return options;
}

void RunSetup(cli::Session& session, const Setup& setup) {
    switch (setup.What) {
        case Setup::Line:
            session.RunLine(setup.Value, setup.Origin);
            break;
        case Setup::Text:
            session.DefineText(setup.Name, setup.Value, setup.Origin);
            break;
        case Setup::File:
            session.RunSetup(setup.Value, setup.Name == "-" ? "" : setup.Name);
            break;
    }
}

// Evaluates what the command line and the input give; the exit status.
int Run(const Options& options) {
    cli::Session session(std::cout, std::cerr, options.AsBool);
    if (options.HasSeed) {
        session.Seed(options.Seed);
    } else {
        session.SeedRandomly();
    }
    session.SetDecimals(options.Decimals);
    // The output is then a set-up that reads back to the same variables, and nothing else.
    if (options.Vars) session.PrintValuesToErrors();
    for (const Setup& setup : options.Setups) {
        RunSetup(session, setup);
    }
    for (std::size_t i = 0; i < options.Exprs.size(); ++i) {
        session.RunLine(options.Exprs[i], " (argument " + std::to_string(i + 1) + ")");
    }
    int readError = 0;
    // --vars on a terminal prints the variables at once rather than wait at a prompt.
    const bool readsInput = options.Exprs.empty() && !options.StdinTaken;
    const bool terminal = readsInput && isatty(STDIN_FILENO);
    const bool interactive = terminal && !options.Vars;
    if (interactive) {
        readError = cli::RunInteractive(session);
    } else if (readsInput && !terminal) {
        session.RunSetup(std::cin, "");
        if (std::cin.bad()) readError = errno != 0 ? errno : EIO;
    }
    if (options.Vars) session.ListVars();
    session.Flush();
    if (session.OutputError() != 0) {
        session.Report(std::string("cannot write the output: ") +
                       std::strerror(session.OutputError()));
        return 1;
    }
    if (readError != 0) {
        session.Report(std::string("cannot read standard input: ") + std::strerror(readError));
        return 1;
    }
    return session.AnyFailed() && !interactive ? 1 : 0;
}

int Usage(const std::string& message, bool hint) {
    std::cerr << "kalvos: " << cli::Printable(message) << '\n';
    if (hint) std::cerr << "Try 'kalvos --help' for more information.\n";
    return 2;
}

// Help, version and the function list: what prints without evaluating anything.
int PrintInformation(const Options& options) {
    if (options.Help) {
        std::cout << kUsage << cli::kLineHelp << kOptionHelp << cli::kCommandHelp << kExitHelp;
    } else if (options.Version) {
        std::cout << "kalvos " KALVOS_VERSION "\n";
    } else {
        cli::Session::ListFunctions(std::cout);
    }
    errno = 0;
    std::cout.flush();
    if (std::cout) return 0;
    std::cerr << "kalvos: cannot write the output: " << std::strerror(errno != 0 ? errno : EIO)
              << '\n';
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    try {
        options = ParseOptions(argc, argv);
    } catch (const UsageError& e) {
        return Usage(e.what(), true);
    } catch (const FileError& e) {
        return Usage(e.what(), false);
    }
    if (options.Help || options.Version || options.Functions) return PrintInformation(options);
    return Run(options);
}
