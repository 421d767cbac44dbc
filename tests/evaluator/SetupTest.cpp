#include <sstream>
#include <stdexcept>
#include <vector>

#include "TestSupport.h"

namespace {

using Kind = Kalvos::SetupLineKind;

// What a set-up left in the store, one "name=value" a variable, in the store's order.
std::string Dump(const Kalvos& k) {
    const KalvosVars& vars = k.GetVars();
    std::string text;
    for (unsigned int idx = 0; idx < vars.GetCount(); ++idx) {
        text += vars.GetVarName(idx) + "=";
        text += vars.VarIsNum(idx) ? fun::DoubleStr(vars.GetVarNum(idx, ""), "%.17g")
                                   : "$" + vars.GetVarStr(idx, "");
        text += ";";
    }
    return text;
}

// Every failure of a keep-going run as "line|target|method|message".
std::vector<std::string> Collected(const std::vector<Kalvos::SetupFailure>& failures) {
    std::vector<std::string> lines;
    for (const Kalvos::SetupFailure& f : failures) {
        lines.push_back(std::to_string(f.Line) + "|" + f.Target + "|" + f.Method + "|" + f.Message);
    }
    return lines;
}

Kalvos::SetupOptions KeepGoing() {
    Kalvos::SetupOptions options;
    options.KeepGoing = true;
    return options;
}

}  // namespace

TEST(Setup, ReadsTheShapeOfALine) {
    const struct {
        const char* Text;
        Kind LineKind;
        const char* Target;
        const char* Body;
    } cases[] = {{"", Kind::Blank, "", ""},
                 {" \t\r", Kind::Blank, "", ""},
                 {"  // note", Kind::Comment, "", ""},
                 {"2 * a  // metres", Kind::Expression, "", "2 * a"},
                 {"a == 1", Kind::Expression, "", "a == 1"},
                 {"a <= 1 @@ b >= 2 @@ c != 3", Kind::Expression, "", "a <= 1 @@ b >= 2 @@ c != 3"},
                 {"a // b = 3", Kind::Expression, "", "a"},
                 {"a = 2 // metres", Kind::Assignment, "a", "2"},
                 {"a=b==c", Kind::Assignment, "a", "b==c"},
                 {"a = ", Kind::Assignment, "a", ""},
                 {"x[i + 1][j==2] = 5\r", Kind::Assignment, "x[i + 1][j==2]", "5"},
                 {"case = $run_[a] // kept \r", Kind::TextAssignment, "case", "$run_[a] // kept "},
                 {"empty =\t$", Kind::TextAssignment, "empty", "$"},
                 {"  $ text = [a] // kept\r", Kind::Text, "", "$ text = [a] // kept"},
                 {"a b = 3", Kind::BadTarget, "a b", ""},
                 {"2x = 1", Kind::BadTarget, "2x", ""},
                 {"x [2] = 1", Kind::BadTarget, "x [2]", ""},
                 {"x[2 = 1", Kind::BadTarget, "x[2", ""},
                 {"m[1]] = 1", Kind::BadTarget, "m[1]]", ""},
                 {"m[1]x = 1", Kind::BadTarget, "m[1]x", ""},
                 {"= 1", Kind::BadTarget, "", ""}};
    for (const auto& c : cases) {
        const Kalvos::SetupLine line = Kalvos::ReadSetupLine(c.Text);
        EXPECT_EQ(line.Kind, c.LineKind) << c.Text;
        EXPECT_EQ(line.Target, c.Target) << c.Text;
        EXPECT_EQ(line.Body, c.Body) << c.Text;
    }
}

// Each set-up is applied to a fresh evaluator; the store afterwards, in the order of definition.
TEST(Setup, AppliesTheLinesInOrder) {
    const std::pair<const char*, const char*> cases[] = {
        {"a = 2\nb = a * 3 // six\n\n// note\nb", "a=2;b=6;"},
        {"\xEF\xBB\xBFw = 3\r\nw2 = w * 2\r\n", "w=3;w2=6;"},
        {"i = 1\nx[i + 1] = 5\nm[1][1 + 1] = 7\nx[2.9] = x[2] + 1", "i=1;x2=6;m12=7;"},
        {"x[ 2 * 2 ] = 1\nx[0.5] = 2", "x4=1;x0=2;"},
        {"a = 2\ncase = $run_[a] // kept\na = 3", "a=3;case=$run_2 // kept;"},
        {"spaced = $  two  \nempty = $", "spaced=$  two  ;empty=$;"},
        {"url = $http://x.org/[u] // kept", ""},  // fails: no variable u
        {"t = 1\nt = $now a text", "t=$now a text;"},
        {"no_newline_at_the_end = 1", "no_newline_at_the_end=1;"}};
    for (const auto& [text, store] : cases) {
        Kalvos k;
        try {
            k.RunSetup(text, "cfg");
        } catch (const JException&) {
        }
        EXPECT_EQ(Dump(k), store) << text;
    }
}

// The first failing line raises; its error text names the source and the line, and the lines
// before it stay applied.
TEST(Setup, RaisesTheFirstFailureNamingSourceAndLine) {
    const struct {
        const char* Text;
        const char* Source;
        const char* Method;
        const char* Message;
    } cases[] = {
        {"a = 1\n\nb = 1/0\nc = 1", "run.cfg", "ComputExpr",
         "Evaluating [1/0]: Division by zero. (run.cfg line 3)"},
        {"x = 1 +// nothing after", "", "ComputExpr",
         "Evaluating [1+]: Expression is invalid. (line 1)"},
        {"a b = 3", "s", "RunSetup",
         "cannot assign to 'a b': a variable is a letter or '_', then letters, digits or '_', then "
         "any number of [INDEX] (s line 1)"},
        {"y[1 - 2] = 1", "s", "ComputExpr",
         "Evaluating [y[1-2]]: The result of brackets [1-2] is less than zero. (s line 1)"},
        {"y[1e+10] = 1", "s", "ComputExpr",
         "Evaluating [y[1e+10]]: The result of brackets [1e+10] is less than zero. (s line 1)"},
        {"y[1/0] = 1", "s", "ComputExpr", "Evaluating [1/0]: Division by zero. (s line 1)"},
        {"z[1] = z[1]", "s", "ComputExpr",
         "Evaluating [z[1]]: The variable 'z1' does not exist. (s line 1)"},
        {"$[q]", "s", "ComputExprStr",
         "Evaluating [$[q]]: The variable 'q' does not exist. (s line 1)"},
        {"2 ^ 3", "s", "ComputExpr",
         "Evaluating [2^3]: The expression at position 1 is invalid. (s line 1)"},
        {"a = ", "s", "ComputeExpr", "Expression is empty. (s line 1)"},
        {"\xEF\xBB\xBF\xEF\xBB\xBF", "s", "ComputExpr",  // only one mark is skipped
         "Evaluating [\xEF\xBB\xBF]: The expression at position 0 is invalid. (s line 1)"}};
    for (const auto& c : cases) {
        Kalvos k;
        EXPECT_RAISES(k.RunSetup(c.Text, c.Source), c.Method, c.Message);
        std::istringstream in(c.Text);
        EXPECT_RAISES(k.RunSetup(in, c.Source), c.Method, c.Message);
    }
    Kalvos k;
    EXPECT_RAISES(k.RunSetup("a = 1\nb = 1/0\nc = 1"), "ComputExpr",
                  "Evaluating [1/0]: Division by zero. (line 2)");
    EXPECT_EQ(Dump(k), "a=1;");
}

// Keep-going mode reads every line and collects each failure with the variable it was to
// store; the failures also go to the callback as they come.
TEST(Setup, KeepsGoingAndCollectsEveryFailure) {
    Kalvos k;
    Kalvos::SetupOptions options = KeepGoing();
    std::vector<std::string> seen;
    options.OnFailure = [&](const Kalvos::SetupFailure& f) { seen.push_back(f.Text); };
    const auto failures = k.RunSetup(
        "a = 1/0\nb = 2\nx[b] = a\ny[a] = 1\nbad target = 1\n$[b]\r\nc = b", "f", options);
    const std::vector<std::string> expected = {
        "1|a|ComputExpr|Evaluating [1/0]: Division by zero. (f line 1)",
        "3|x2|ComputExpr|Evaluating [a]: The variable 'a' does not exist. (f line 3)",
        "4||ComputExpr|Evaluating [a]: The variable 'a' does not exist. (f line 4)",
        "5||RunSetup|cannot assign to 'bad target': a variable is a letter or '_', then letters, "
        "digits or '_', then any number of [INDEX] (f line 5)"};
    EXPECT_EQ(Collected(failures), expected);
    EXPECT_EQ(seen,
              (std::vector<std::string>{"a = 1/0", "x[b] = a", "y[a] = 1", "bad target = 1"}));
    EXPECT_EQ(failures[0].ErrorText, " (f line 1)");
    EXPECT_EQ(Dump(k), "b=2;c=2;");
}

// Expression and "$" lines are checks: their values go to the callback, nothing is stored.
// Assignments report the variable they stored.
TEST(Setup, HandsEveryResultToTheCallback) {
    const struct {
        bool Conditions;
        const char* Text;
        const char* Results;
    } cases[] = {
        {false, "a = 2\na * 3\n$a is [a]\nt = $[a]x", "1:a=2;2:6;3:$a is 2;4:t=$2x;"},
        {false, "x[1 + 1] = 1\n# 1 + 2", "1:x2=1;2:3;"},
        {true, "a = 2\na > 1\n#\ntrue\n1 - 1", "1:a=2;2:1;3:0;4:1;5:0;"},
        // A variable named true hides the keyword from an expression, not from a condition.
        {true, "true = 0\ntrue", "1:true=0;2:1;"},
        {false, "true = 0\ntrue", "1:true=0;2:0;"}};
    for (const auto& c : cases) {
        Kalvos k;
        Kalvos::SetupOptions options;
        options.Conditions = c.Conditions;
        std::string results;
        options.OnResult = [&](const Kalvos::SetupResult& r) {
            results += std::to_string(r.Line) + ":";
            if (!r.Name.empty()) results += r.Name + "=";
            const bool text = r.Kind == Kind::Text || r.Kind == Kind::TextAssignment;
            results += text ? "$" + r.Str : fun::DoubleStr(r.Num) + ";";
            if (text) results += ";";
        };
        EXPECT_TRUE(k.RunSetup(c.Text, "", options).empty()) << c.Text;
        EXPECT_EQ(results, c.Results) << c.Text;
    }
}

// A callback that throws ends the reading: the lines after it are not applied.
TEST(Setup, StopsWhenACallbackThrows) {
    Kalvos k;
    Kalvos::SetupOptions options = KeepGoing();
    options.OnResult = [](const Kalvos::SetupResult& r) {
        if (r.Kind == Kind::Expression) throw std::runtime_error("output failed");
    };
    std::istringstream in("a = 1\na\nb = 2\n");
    EXPECT_THROW(k.RunSetup(in, "", options), std::runtime_error);
    EXPECT_EQ(Dump(k), "a=1;");
}

// One line, as a host's argument: the error text is the caller's, the line number 0, and a
// byte-order mark is no line start.
TEST(Setup, RunsOneLineWithTheCallersErrorText) {
    Kalvos k;
    EXPECT_TRUE(k.RunSetupLine("a = 4 // m", " (argument 1)", {}).empty());
    EXPECT_RAISES(k.RunSetupLine("a / 0", " (argument 2)", {}), "ComputExpr",
                  "Evaluating [a/0]: Division by zero. (argument 2)");
    const auto failures = k.RunSetupLine("b = a + \r", "!", KeepGoing());
    EXPECT_EQ(
        Collected(failures),
        (std::vector<std::string>{"0|b|ComputExpr|Evaluating [a+]: Expression is invalid.!"}));
    EXPECT_EQ(failures[0].Text, "b = a + ");
    EXPECT_RAISES(k.RunSetupLine("\xEF\xBB\xBF"
                                 "1",
                                 "", {}),
                  "ComputExpr",
                  "Evaluating [\xEF\xBB\xBF"
                  "1]: The expression at position 0 is invalid.");
}

TEST(Setup, NamesTheVariableATargetDesignates) {
    Kalvos k;
    k.GetVars().SetVarNum("i", 2);
    EXPECT_EQ(k.GetSetupTargetName(" x[i + 1][0] ", "!"), "x30");
    EXPECT_EQ(k.GetSetupTargetName("unit"), "unit");
    EXPECT_RAISES(k.GetSetupTargetName("x[i - 3]", "!"), "ComputExpr",
                  "Evaluating [x[i-3]]: The result of brackets [i-3] is less than zero.!");
    EXPECT_RAISES(k.GetSetupTargetName("x[1", "!"), "RunSetup",
                  "cannot assign to 'x[1': a variable is a letter or '_', then letters, digits or "
                  "'_', then any number of [INDEX]!");
    EXPECT_EQ(k.GetErrorText(), "!");
}
