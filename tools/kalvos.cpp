// kalvos: evaluates expressions given as arguments, read from standard input or typed at a
// prompt, one result a line. Everything it computes goes through the Kalvos evaluator.
#include <unistd.h>

#include <cctype>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/Interactive.h"
#include "tools/LineRules.h"
#include "tools/Session.h"

namespace {

const char* const kUsage =
    "Usage: kalvos [OPTIONS] [EXPR...]\n"
    "Evaluate each EXPR and print one result a line. Without EXPR, read the lines of\n"
    "standard input; on a terminal, start an interactive session.\n\n";

const char* const kOptionHelp =
    "\nOptions:\n"
    "  -b, --bool     evaluate expressions as conditions; print true or false\n"
    "  -D NAME=EXPR   define a numeric variable\n"
    "  -S NAME=TEXT   define a text variable\n"
    "  -f FILE        run the lines of FILE\n"
    "  --seed N       seed the random generator, so that rand() repeats\n"
    "  -h, --help     print this help and exit\n"
    "  -V, --version  print the version and exit\n"
    "  --             end the options (before an EXPR such as -x + 1)\n"
    "Options come before the first EXPR. -D, -S and -f may repeat; they take effect in\n"
    "the order given, before any EXPR or input line.\n"
    "An error is printed as \"kalvos: MESSAGE\" and the next line goes on.\n\n";

const char* const kExitHelp =
    "\nExit status: 0 when everything evaluated, 1 when an expression failed,\n"
    "2 for a wrong command line or a file that cannot be read.\n";

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
    enum Kind { Number, Text, File } What;
    std::string Name;
    std::string Value;   // the expression, the text, or the file's contents
    std::string Origin;  // appended to the messages of what it evaluates
};

struct Options {
    bool AsBool = false;
    bool Help = false;
    bool Version = false;
    bool HasSeed = false;
    int Seed = 0;
    std::vector<Setup> Setups;
    std::vector<std::string> Exprs;
};

std::string ReadFile(const std::string& path) {
    // A folder opens like a file on some systems and then reads as empty.
    std::error_code ignored;
    std::ifstream in(path, std::ios::binary);
    if (!in || std::filesystem::is_directory(path, ignored)) {
        throw FileError("cannot read '" + path + "'");
    }
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

Setup NumberSetup(const std::string& flag, const std::string& value) {
    const cli::Line line = cli::ClassifyLine(value);
    if (line.Kind != cli::LineKind::Assignment) {
        throw UsageError(flag + " expects NAME=EXPR, not '" + value + "'");
    }
    return {Setup::Number, std::string(line.Name), std::string(line.Body),
            " (option " + flag + " " + value + ")"};
}

Setup TextSetup(const std::string& flag, const std::string& value) {
    const std::size_t equals = value.find('=');
    const std::string_view name = cli::TrimBlanks(std::string_view(value).substr(0, equals));
    if (equals == std::string::npos || !cli::IsName(name)) {
        throw UsageError(flag + " expects NAME=TEXT, not '" + value + "'");
    }
    return {Setup::Text, std::string(name), value.substr(equals + 1), ""};
}

int ParseSeed(const std::string& flag, const std::string& value) {
    int seed = 0;
    const char* end = value.data() + value.size();
    const auto result = std::from_chars(value.data(), end, seed);
    if (value.empty() || result.ec != std::errc() || result.ptr != end) {
        throw UsageError(flag + " expects a whole number from -2147483648 to 2147483647, not '" +
                         value + "'");
    }
    return seed;
}

struct OptionSpec {
    const char* Short;
    const char* Long;
    bool TakesValue;
    void (*Apply)(Options& options, const std::string& flag, const std::string& value);
};

using S = const std::string&;
constexpr OptionSpec kOptionSpecs[] = {
    {"-b", "--bool", false, [](Options& o, S, S) { o.AsBool = true; }},
    {"-h", "--help", false, [](Options& o, S, S) { o.Help = true; }},
    {"-V", "--version", false, [](Options& o, S, S) { o.Version = true; }},
    {"-D", nullptr, true, [](Options& o, S f, S v) { o.Setups.push_back(NumberSetup(f, v)); }},
    {"-S", nullptr, true, [](Options& o, S f, S v) { o.Setups.push_back(TextSetup(f, v)); }},
    {"-f", nullptr, true,
     [](Options& o, S, S v) {
         o.Setups.push_back({Setup::File, v, ReadFile(v), ""});
     }},
    {nullptr, "--seed", true,
     [](Options& o, S f, S v) {
         o.Seed = ParseSeed(f, v);
         o.HasSeed = true;
     }},
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
    throw UsageError("unknown option '" + arg + "'");
}

// Options come first; the first argument that is not one begins the expressions. "-" with
// something other than a letter after it ("-1", "-(a)") is an expression, not an option.
bool IsOption(const std::string& arg) {
    if (arg.size() < 2 || arg[0] != '-') return false;
    return arg[1] == '-' || std::isalpha(static_cast<unsigned char>(arg[1]));
}

Options ParseOptions(int argc, char** argv) {
    Options options;
    int i = 1;
    for (; i < argc && IsOption(argv[i]); ++i) {
        const std::string arg = argv[i];
        if (arg == "--") {
            ++i;
            break;
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
    options.Exprs.assign(argv + i, argv + argc);
    return options;
}

void RunSetup(cli::Session& session, const Setup& setup) {
    switch (setup.What) {
        case Setup::Number:
            session.DefineNumber(setup.Name, setup.Value, setup.Origin);
            break;
        case Setup::Text:
            session.DefineText(setup.Name, setup.Value);
            break;
        case Setup::File: {
            std::istringstream in(setup.Value);
            session.RunStream(in, setup.Name + " ");
            break;
        }
    }
}

int Run(const Options& options) {
    cli::Session session(std::cout, std::cerr, options.AsBool);
    if (options.HasSeed) session.Seed(options.Seed);
    for (const Setup& setup : options.Setups) {
        RunSetup(session, setup);
    }
    for (std::size_t i = 0; i < options.Exprs.size(); ++i) {
        session.RunLine(options.Exprs[i], " (argument " + std::to_string(i + 1) + ")");
    }
    if (options.Exprs.empty()) {
        if (isatty(STDIN_FILENO)) {
            cli::RunInteractive(session);
        } else {
            session.RunStream(std::cin, "");
        }
    }
    return session.AnyFailed() ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    try {
        options = ParseOptions(argc, argv);
    } catch (const UsageError& e) {
        std::cerr << "kalvos: " << e.what() << "\nTry 'kalvos --help' for more information.\n";
        return 2;
    } catch (const FileError& e) {
        std::cerr << "kalvos: " << e.what() << '\n';
        return 2;
    }
    if (options.Help) {
        std::cout << kUsage << cli::kLineHelp << kOptionHelp << cli::kCommandHelp << kExitHelp;
    } else if (options.Version) {
        std::cout << "kalvos " KALVOS_VERSION "\n";
    } else {
        return Run(options);
    }
    return 0;
}
