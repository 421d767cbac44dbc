#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "kalvos_export.h"
#include "support/Functions.h"
#include "support/JObject.h"

class KalvosVars;
class CRandomMersenne;

/// Evaluates expressions written as text: numbers, variables (also indexed, x[2]), the
/// operators ! * / + - == != < > <= >= @@ || , parentheses and built-in functions such as
/// sin(x), max(a,b,c) or pi(); and expands string expressions whose [name] markers are
/// replaced by the values of variables.
///
/// A host creates a Kalvos, fills its store through GetVars() and calls ComputeExpr,
/// ComputeExprBool or ComputeExprStr. Every failure is thrown as a JException whose message
/// names the offending text and ends with the error text the host gave for the call.
///
/// Limits (each raises a JException from the method that meets it):
/// - 100 elements (numbers and operators) in one level of an expression;
/// - 10 parameters in one function call;
/// - kMaxNesting levels of nesting: a parenthesised group, an index in brackets and a
///   function's parameter each open one level; the message is
///   "Evaluating [%s]: Expression nesting is too deep." for the text one level too deep.
///   The bound keeps the evaluator within 256 KiB of stack;
/// - in ComputeExprStr, kMaxReplacements replacements of markers ("Evaluating [%s]: Too
///   many variable replacements.", which is what a variable that refers to itself, such as
///   s = [s], ends in) and kMaxExpandedLength characters of expanded text ("Evaluating [%s]:
///   The expanded text is too long."); both name the text the host gave.
///
/// Threads: objects share no writable state (only the read-only function table), so separate
/// objects may be used from separate threads at the same time. One object serves one thread
/// at a time: every evaluation writes the object's texts, scratch space and random generator,
/// and the store must not change while the object evaluates. Messages are formatted under the
/// host's C locale, so a host must not call setlocale while any object evaluates.
///
/// Texts passed by value are taken over: a host that evaluates a long text repeatedly and
/// wants no allocation in the call moves the text in.
class KALVOS_EXPORT Kalvos : public JObject {
public:
    static constexpr unsigned int kMaxElements = 100;
    static constexpr unsigned int kMaxParameters = 10;
    /// About 3.1 KiB of stack a level (the element list of 100 entries and the call frames),
    /// so the deepest expression needs about 125 KiB, leaving room on a 256 KiB thread stack.
    static constexpr unsigned int kMaxNesting = 40;
    /// Far above what real texts need; reached only by a variable that refers to itself.
    static constexpr unsigned int kMaxReplacements = 1000000;
    /// Bounds the memory an exponentially growing set of text variables can take.
    static constexpr std::size_t kMaxExpandedLength = std::size_t{4} << 20;

    Kalvos();
    ~Kalvos();
    Kalvos(const Kalvos&) = delete;
    Kalvos& operator=(const Kalvos&) = delete;

    /// Back to the freshly constructed state: empty store, reseeded generator, empty texts.
    void Reset();

    /// The value of a numeric expression. Blanks are removed first, and one leading "#".
    double ComputeExpr(std::string expr, const std::string& errortext = "");
    /// The expression as a condition: "", "#", "0" and "false" (any case) are false, "1" and
    /// "true" are true without evaluation; anything else is true when its value is not 0.
    bool ComputeExprBool(std::string expr, const std::string& errortext = "");
    /// The text with every [name] marker replaced by the variable's value, numbers written
    /// as "%g"; a leading "$" is dropped. Markers that replacements produce are replaced too.
    std::string ComputeExprStr(std::string text, const std::string& errortext = "");

    /// A text compiled once by CompileExpr, to be computed by ComputeCompiled on the object
    /// that made it, as often as the host likes. Copies share the compiled program.
    class CompiledExpr {
    public:
        CompiledExpr() = default;
        /// The expression as the host gave it to CompileExpr.
        const std::string& GetExprText() const { return ExprText; }
        const std::string& GetErrorText() const { return ErrorText; }

    private:
        friend class Kalvos;
        std::string ExprText;
        std::string ErrorText;
        std::uint64_t Owner = 0;
    };

    /// Compiles the expression for ComputeCompiled. Nothing is evaluated and nothing raised:
    /// a faulty text gives a program that raises when it is computed, exactly as ComputeExpr
    /// would. ExprText and ErrorText are not touched.
    CompiledExpr CompileExpr(std::string expr, const std::string& errortext = "");
    /// Exactly ComputeExpr of the compiled text and error text: the same value, the same
    /// failure, the same random draws, and the store as it is now. Raises "The compiled
    /// expression [%s] belongs to another evaluator or was made before Reset." (method
    /// "ComputeCompiled") for a handle of another object, or one made before the last Reset.
    double ComputeCompiled(const CompiledExpr& compiled);

    /// The object keeps the programs of the texts it has evaluated, keyed by the text exactly
    /// as given, up to `entries` programs and `bytes` bytes in all (defaults:
    /// kDefaultCacheEntries and kDefaultCacheBytes); texts longer than kMaxCachedTextLength
    /// are never kept. 0 entries turns the cache off. Reset empties it.
    void SetCacheLimits(std::size_t entries, std::size_t bytes);
    std::size_t GetCacheCount() const;
    std::size_t GetCacheBytes() const;
    static constexpr std::size_t kDefaultCacheEntries = 1024;
    static constexpr std::size_t kDefaultCacheBytes = std::size_t{4} << 20;
    static constexpr std::size_t kMaxCachedTextLength = 4096;

    /// One built-in function: its name, the parameter counts it accepts and what it gives.
    struct FunctionInfo {
        std::string_view Name;
        unsigned int MinParams = 0;
        unsigned int MaxParams = 0;
        std::string_view Description;
    };
    /// The built-in functions in the order of their names; a name with entries for several
    /// parameter counts ("rand") appears once for each.
    static std::size_t GetFunctionCount();
    static FunctionInfo GetFunction(std::size_t index);

    KalvosVars& GetVars() { return *Vars; }
    const KalvosVars& GetVars() const { return *Vars; }
    /// The text of the last ComputeExpr or ComputeExprStr call, as the host gave it.
    const std::string& GetExprText() const { return ExprText; }
    /// The error text of the last ComputeExpr or ComputeExprStr call.
    const std::string& GetErrorText() const { return ErrorText; }

protected:
    enum TpOper : std::uint32_t {
        OP_None = 0,
        OP_Not = 1,
        OP_Mul = 2,
        OP_Div = 3,
        OP_Add = 4,
        OP_Sub = 5,
        OP_Eq = 6,
        OP_Neq = 7,
        OP_Lt = 8,
        OP_Gt = 9,
        OP_Le = 10,
        OP_Ge = 11,
        OP_And = 12,
        OP_Or = 13,
    };

    struct StElement {
        bool IsNum;
        double Num;
        TpOper Oper;
    };

    static std::string GetOperCode(TpOper oper);
    void RemoveElement(unsigned int pos, unsigned int count, StElement* list,
                       unsigned int& listCount) const;

    TpOper ReadOperator(std::string& text);
    unsigned int LookforEndParentesis(const std::string& text) const;
    unsigned int LookforEndBrackets(const std::string& text) const;
    std::string ReadName(const std::string& text, unsigned int& length, char& next) const;
    double ReadNumber(std::string& text, bool& invalid) const;

    double ComputExpr(std::string text);
    double ComputFunc(const std::string& name, const std::string& args);
    int CheckNumberValue(double value) const;

    void RandomInit(int seed) const;
    double Random() const;
    double Random(double low, double high) const;
    int RandomInt(int min, int max) const;

    double CalcWaveLengthSimple(double g, double d, double t) const;
    double CalcWaveLength(double g, double d, double t) const;
    double CalcRoundPos(double p, double pmin, double dp) const;

    std::string ComputExprStr(std::string text);

    KalvosVars* Vars;
    CRandomMersenne* RandGen;
    std::string ExprText;
    std::string ErrorText;

public:
    /// One built-in function: its name, the parameter counts it accepts and its computation.
    struct CatalogueEntry;

private:
    // The workers behind the operations above. They read the text through views, so that
    // an evaluation copies no part of it.
    double Evaluate(std::string_view text, unsigned int depth);
    double ReadGroup(std::string_view& rest, unsigned int depth);
    double ReadOperand(std::string_view text, std::string_view& rest, unsigned int depth);
    double ReadVariable(std::string_view text, std::string_view& rest, std::size_t nameLength,
                        unsigned int depth);
    double VariableValue(std::string_view text, std::string_view name) const;
    double ReadLiteral(std::string_view text, std::string_view& rest) const;
    TpOper ReadOperatorToken(std::string_view text, std::string_view& rest, const StElement* list,
                             unsigned int count) const;
    double Reduce(std::string_view text, StElement* list, unsigned int& count,
                  unsigned int passes) const;
    void ApplyPrefixOperators(StElement* list, unsigned int& count) const;
    void ApplyInfixOperators(unsigned int pass, std::string_view text, StElement* list,
                             unsigned int& count) const;
    double ApplyInfix(TpOper oper, double a, double b, std::string_view text) const;

    double CallFunction(std::string_view name, std::string_view args, unsigned int depth);
    unsigned int SplitParameters(std::string_view name, std::string_view args,
                                 std::string_view* params) const;
    static const CatalogueEntry* Catalogue(std::size_t& size);
    static const CatalogueEntry* FindBuiltin(std::string_view name, unsigned int count);
    double CallBuiltin(const CatalogueEntry& entry, const double* values, unsigned int count) const;
    double RoundPosOnAxis(double p, const char* axisVariable) const;

    unsigned int ParenthesesEnd(std::string_view text) const;
    unsigned int BracketsEnd(std::string_view text) const;
    unsigned int SpanEnd(std::string_view text, char open, char close, const char* method,
                         const char* message) const;
    static TpOper ScanOperator(std::string_view text, unsigned int& length);
    /// The pass that applies `oper` between two numbers; above 6 for "!" and OP_None.
    static unsigned int OperatorPass(TpOper oper);
    static std::size_t ScanName(std::string_view text);
    static std::size_t ScanNumber(std::string_view text, double& value);
    static bool ConvertNumber(std::string_view literal, double& value);

    std::string Expand(std::string_view text) const;

    /// Truncates toward zero to a 32-bit int; NaN and values outside the range give
    /// -2147483648. The one place where a double becomes an int.
    static int TruncToInt(double value);
    static bool EqualsLower(std::string_view text, std::string_view lower);

    /// Raises the failure of `method`: the message with ErrorText appended, through
    /// RunExceptioon with the module, line, class name, method and "".
    [[noreturn]] void RaiseMessage(int line, const char* method, const std::string& message) const;

    /// Formats `format` with fun::PrintStr and raises it; texts may be passed as views.
    template <typename... Args>
    [[noreturn]] void Raise(int line, const char* method, const char* format,
                            const Args&... args) const {
        RaiseMessage(line, method, Format(format, Held(args)...));
    }
    template <typename... Values>
    static std::string Format(const char* format, const Values&... held) {
        return fun::PrintStr(format, CArg(held)...);
    }
    static std::string Held(std::string_view text) { return std::string(text); }
    static int Held(int value) { return value; }
    static double Held(double value) { return value; }
    static const char* CArg(const std::string& text) { return text.c_str(); }
    static int CArg(int value) { return value; }
    static double CArg(double value) { return value; }

    // Scratch space for names with indices appended, used as a stack by nested levels so
    // that a lookup copies nothing once the object has seen a name of that length.
    std::string NameBuf;
    std::uint64_t Serial = 0;
};
