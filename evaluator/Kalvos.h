#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

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
///   Levels are kept on the heap, not the stack, so the depth of a text costs no stack;
/// - in ComputeExprStr, kMaxReplacements replacements of markers ("Evaluating [%s]: Too
///   many variable replacements.", which is what a variable that refers to itself, such as
///   s = [s], ends in) and kMaxExpandedLength characters of expanded text ("Evaluating [%s]:
///   The expanded text is too long."); both name the text the host gave.
///
/// Compiled evaluation: every text is compiled to a compact program, which is then run; the
/// programs of the texts an object has seen are kept in its cache (SetCacheLimits), so a
/// known text is only run. CompileExpr gives the host a handle to a program for the last
/// nanoseconds. A run sees the store as it is at that moment: values, new and deleted
/// variables and their kinds. Cold or warm, cached or not, the value, every failure (all six
/// arguments), ExprText, ErrorText and the random draws are the same.
///
/// Threads: objects share no writable state but an atomic counter that numbers them for the
/// handles, so separate objects may be used from separate threads at the same time. One
/// object serves one thread at a time: every evaluation writes the object's texts, cache,
/// scratch space and random generator, and the store must not change while the object
/// evaluates. Messages are formatted under the host's C locale, so a host must not call
/// setlocale while any object evaluates.
///
/// Texts passed by value are taken over: a host that evaluates a known text and wants no
/// allocation in the call moves the text in.
class KALVOS_EXPORT Kalvos : public JObject {
public:
    class CompiledExpr;

    static constexpr unsigned int kMaxElements = 100;
    static constexpr unsigned int kMaxParameters = 10;
    /// Far deeper than any formula is written; it bounds the memory a hostile text can make
    /// the compiler hold (about 200 bytes a level).
    static constexpr unsigned int kMaxNesting = 1000;
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

    /// Compiles the expression for ComputeCompiled. Nothing is evaluated and nothing raised:
    /// a faulty text gives a program that raises when it is computed, exactly as ComputeExpr
    /// would. ExprText and ErrorText are not touched.
    CompiledExpr CompileExpr(std::string expr, const std::string& errortext = "");
    /// Exactly ComputeExpr of the compiled text and error text: the same value, the same
    /// failure, the same random draws, and the store as it is now. Raises "The compiled
    /// expression [%s] belongs to another evaluator or was made before Reset." (method
    /// "ComputeCompiled") for a handle of another object, or one made before the last Reset.
    double ComputeCompiled(const CompiledExpr& compiled);

    /// One input of a bulk call: for element i, the variable `Name` takes the double that lies
    /// i * Stride bytes after Data. Stride 0 repeats one value; a stride that is no multiple
    /// of sizeof(double) reads a member of packed structs.
    struct Column {
        std::string Name;
        const double* Data = nullptr;
        std::size_t Stride = sizeof(double);
    };
    /// Computes the handle for `count` elements into out[0, count): exactly the loop "for each
    /// element i: SetVarNum(name, value i) for every column, then out[i] =
    /// ComputeCompiled(compiled)": the same bits, the same random draws, the same failure (the
    /// first failing element raises what the loop would raise, the elements before it written
    /// and none after it), ExprText and ErrorText as the loop leaves them, and each column's
    /// variable holding the value of the last element run. GetFailedElement tells which
    /// element failed. With more than one thread (SetThreads), elements after the failing one
    /// may be written too; nothing else depends on the thread count.
    ///
    /// Each instruction runs over a block of elements at a time; what reads no column runs once
    /// per call. A program that draws random numbers, builds variable names from computed
    /// indices (x[i + 1]), calls "roundposx", "roundposy" or "roundposz" or a host function that
    /// is not pure runs element by element, on one thread, with the same results; one that
    /// calls a host function that is not thread-safe runs by blocks on one thread. `out` may be
    /// exactly a column's data with that column's stride sizeof(double); any other overlap with a
    /// column, a null pointer and two columns of one name raise before anything is written or set
    /// ("Bulk evaluation of [%s]: ...", method "ComputeCompiled"). `count` 0 does nothing.
    void ComputeCompiled(const CompiledExpr& compiled, std::size_t count,
                         const std::vector<Column>& columns, double* out);
    /// The element whose failure the last bulk call raised; kNoElement when that call did not
    /// fail in an element (it succeeded, or its arguments were refused) or none was made.
    std::size_t GetFailedElement() const;
    static constexpr std::size_t kNoElement = static_cast<std::size_t>(-1);
    /// The threads of a bulk call, the calling one included: 1 (the default) to kMaxThreads.
    /// The object starts the others, and stops them when it ends or the count changes.
    void SetThreads(unsigned int threads);
    unsigned int GetThreads() const;
    static constexpr unsigned int kMaxThreads = 256;

    /// The names of GetVariables() of the handle that no variable of the store has now (the
    /// keywords "true" and "false" excepted), in the same order.
    std::vector<std::string> GetMissingVariables(const CompiledExpr& compiled) const;

    /// The object keeps the programs of the texts it has evaluated more than once, keyed by
    /// the text exactly as given, up to `entries` programs and `bytes` bytes in all (defaults:
    /// kDefaultCacheEntries and kDefaultCacheBytes; the oldest leave first), and the program of
    /// its last text. A text met for the first time is compiled and run as with the cache off;
    /// texts longer than kMaxCachedTextLength are never kept. 0 entries turns the cache off.
    /// Reset and SetCacheLimits empty it.
    void SetCacheLimits(std::size_t entries, std::size_t bytes);
    std::size_t GetCacheCount() const;
    std::size_t GetCacheBytes() const;
    static constexpr std::size_t kDefaultCacheEntries = 1024;
    static constexpr std::size_t kDefaultCacheBytes = std::size_t{4} << 20;
    static constexpr std::size_t kMaxCachedTextLength = 4096;

    /// Defines (or defines anew) the host function `name`, which an expression calls with
    /// `minParams` to `maxParams` parameters (within 0 to 10): `fn` gets their values and their
    /// count. A call of it is a call of a built-in: its parameters are evaluated first and in
    /// order, and a value that is not finite raises the invalid-result error. A JException it
    /// throws reaches the host unchanged; any other exception becomes a JException that names
    /// the call. `pure`: the same parameters always give the same value, with no side effect,
    /// so a call with constant parameters is computed once; `threadSafe`: a bulk call on
    /// several threads may call it from all of them. Raises for a name that an expression
    /// cannot call, a built-in's name, counts outside 0 to 10 and an empty `fn`. Texts compiled
    /// before see the definition, as they see the store. The function must not call back into
    /// this object, nor add or remove its variables (both raise). Reset keeps the functions.
    void DefineFunction(const std::string& name, unsigned int minParams, unsigned int maxParams,
                        std::function<double(const double* params, unsigned int count)> fn,
                        bool pure = false, bool threadSafe = false);
    /// False when there was no host function of that name. A call of it then raises the
    /// not-found error, as for a name never defined.
    bool RemoveFunction(const std::string& name);

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
    /// The text of the last ComputeExpr, ComputeExprStr or ComputeCompiled call, as the host
    /// gave it.
    const std::string& GetExprText() const;
    /// The error text of that call.
    const std::string& GetErrorText() const;

    // ---- Set-up files (Setup.cpp) ----------------------------------------------------------
    // A set-up is a text of lines, applied to the store one at a time, in order:
    //   blank, or // comment        nothing
    //   EXPR                        evaluated as a check; its value goes to OnResult
    //   $TEXT                       expanded as a check; the text goes to OnResult
    //   NAME = EXPR                 stores the value in the numeric variable NAME
    //   NAME = $TEXT                stores the expansion in the text variable NAME
    // NAME may carry indices, x[i + 1] = EXPR storing the variable x[i + 1] reads. "//" starts
    // a comment on every line but a "$" text, which runs to the end of its line. A UTF-8
    // byte-order mark before the first line is skipped, and lines may end in CR LF.

    /// The kinds of line of a set-up.
    enum class SetupLineKind {
        Blank,
        Comment,
        Expression,
        Text,
        Assignment,
        TextAssignment,
        BadTarget
    };
    /// A line taken apart; the views point into the line given.
    struct SetupLine {
        SetupLineKind Kind = SetupLineKind::Blank;
        /// Left of the "=" of an assignment, without its outer blanks; empty otherwise.
        std::string_view Target;
        /// What is evaluated: the expression without its comment and outer blanks, or the
        /// text from its "$" to the end of the line.
        std::string_view Body;
    };
    /// What a line that did something gave.
    struct SetupResult {
        unsigned long Line = 0;  // from 1; 0 for RunSetupLine
        SetupLineKind Kind = SetupLineKind::Blank;
        std::string Name;  // the variable an assignment stored
        double Num = 0.0;  // the value of an expression or a numeric assignment
        std::string Str;   // the text of a "$" line or a text assignment
    };
    /// A line that failed, as keep-going mode collects it.
    struct SetupFailure {
        unsigned long Line = 0;
        std::string Text;       // the line as written, without a line ending or byte-order mark
        std::string Target;     // the variable it was to store, when its name was known
        std::string ErrorText;  // " (SOURCE line N)", appended to the message
        std::string Method;     // of the JException
        std::string Message;    // of the JException, the error text included
    };
    struct SetupOptions {
        /// Every line is read: a failing line is collected (and handed to OnFailure) instead of
        /// raised.
        bool KeepGoing = false;
        /// Expression lines are conditions (ComputeExprBool); their value is 1 or 0.
        bool Conditions = false;
        std::function<void(const SetupResult&)> OnResult;
        std::function<void(const SetupFailure&)> OnFailure;
    };

    /// Applies a set-up. A failing line raises its JException, whose error text names the
    /// source and the line: " (SOURCE line N)", or " (line N)" without a source.
    void RunSetup(const std::string& text, const std::string& source = "");
    void RunSetup(std::istream& in, const std::string& source = "");
    /// The same with options; returns the failing lines in keep-going mode. An exception that
    /// a callback throws ends the reading and reaches the caller.
    std::vector<SetupFailure> RunSetup(const std::string& text, const std::string& source,
                                       const SetupOptions& options);
    std::vector<SetupFailure> RunSetup(std::istream& in, const std::string& source,
                                       const SetupOptions& options);
    /// One line, its messages ending in `errortext`; Line is 0 in what it reports.
    std::vector<SetupFailure> RunSetupLine(std::string_view line, const std::string& errortext,
                                           const SetupOptions& options);
    /// How RunSetup reads a line; evaluates nothing.
    static SetupLine ReadSetupLine(std::string_view line);
    /// The variable a target such as x[i + 1] designates, its indices evaluated. Raises what
    /// a set-up line with that target raises, `errortext` appended.
    std::string GetSetupTargetName(std::string_view target, const std::string& errortext = "");

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
    /// Truncates toward zero to a 32-bit int; NaN and values outside the range give
    /// -2147483648. The one place where a double becomes an int.
    static int TruncToInt(double value);

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
    // While a handle is active (ComputeCompiled), GetExprText() and GetErrorText() give its
    // texts; these two are brought up to date by the next ComputeExpr, ComputeExprStr or Reset.
    std::string ExprText;
    std::string ErrorText;

public:
    /// One built-in function: its name, the parameter counts it accepts and its computation.
    struct CatalogueEntry;

private:
    // ---- The compiled form of a text -------------------------------------------------------
    // A text compiles to straight-line code over a file of value slots (constants and
    // temporaries) and the numbers of the variables it names, read where the store keeps them.
    // Operands are evaluated in the order the text reads, each level's operators after its
    // operands, in the order the reduction applies them; a fault found while compiling becomes
    // a Raise at the point where reading the text meets it. So a run does what reading the
    // text would do, in the same order.

    // A value that an instruction leaves is also kept in a register, the accumulator, so
    // that the next instruction, which most often reads it, does not wait for memory. Each
    // operator therefore comes in forms: its operands read in place (M), or one of them the
    // accumulator (A). The prefix operators first, two forms each, then the infix operators
    // in the order of their TpOper, three forms each: MM, AM (left is the accumulator), MA.
    // clang-format off
    enum class Op : std::uint8_t {
        NegM, NegA, NotM, NotA,
        MulMM, MulAM, MulMA, DivMM, DivAM, DivMA, AddMM, AddAM, AddMA, SubMM, SubAM, SubMA,
        EqMM, EqAM, EqMA, NeqMM, NeqAM, NeqMA,
        LtMM, LtAM, LtMA, GtMM, GtAM, GtMA, LeMM, LeAM, LeMA, GeMM, GeAM, GeMA,
        AndMM, AndAM, AndMA, OrMM, OrAM, OrMA,
        Call,         // catalogue entry Fn of Count parameters, read through Args from Extra
        CallUnary,    // catalogue entry of one parameter, read through A, by its plain function
        CallHost,     // the host's function of Host, Count parameters read through Args from Extra
        CheckIndex,   // raises when A, truncated, is negative
        LoadIndexed,  // the variable named by Aux[Extra], Aux[Extra+1], with Count indices
                      // appended, read through Args from Aux[Extra+2]
        Raise,        // raises the failure of its site
    };
    // clang-format on
    enum class Form : std::uint8_t { MM, AM, MA };

    /// No position, slot or link.
    static constexpr std::uint32_t kNone = 0xFFFFFFFFu;

    /// A reference to a value while compiling: a slot of the program (constants and
    /// temporaries), or with kLinkRef set a variable, by the number of its link.
    using Ref = std::uint32_t;
    static constexpr Ref kLinkRef = 0x80000000u;

    /// An instruction as the compiler emits it, its operands references.
    struct Draft {
        Op Code;
        std::uint8_t Count;
        std::uint16_t Fn;
        std::uint32_t Extra;
        Ref A, B;
        std::uint32_t Dst;
    };

    /// The computation of a built-in function.
    using Builtin = double (*)(const Kalvos& k, const double* p, unsigned int count);
    /// The same computation of a pure function of one parameter, which a run calls directly.
    using Unary = double (*)(double x);

    /// A function the host defined (DefineFunction).
    struct HostFunction {
        std::string Name;
        unsigned int MinParams, MaxParams;
        std::function<double(const double* params, unsigned int count)> Compute;
        bool Pure, ThreadSafe;
    };

    /// A call of a name the catalogue does not have, resolved against the host's functions
    /// when a run reaches it after they changed.
    struct HostLink {
        std::uint32_t NameBegin, NameLength;  // in the text
        std::uint8_t Count;                   // its parameters
        bool Constant;                        // every parameter is a constant
        bool Kept;                            // Value is a pure function's value for them
        std::uint64_t Version;                // of the host's functions when it was resolved
        const HostFunction* Function;         // none of that name for that count: nullptr
        double Value;
    };

    /// An instruction as it runs: its operands are read where they live, a variable's number
    /// in the store. A call holds its function in place of its second operand.
    struct Instr {
        Op Code;
        std::uint8_t Count;
        std::uint32_t Extra;
        const double* A;
        union {
            const double* B;
            Builtin Function;
            Unary Plain;
            HostLink* Host;
        };
        double* Dst;
    };

    /// What an instruction that may raise needs for its message: its texts are ranges of the
    /// program's working text.
    struct Site {
        std::uint32_t Pc;
        MessageId Id;
        int Line;
        std::uint32_t Begin1, Length1;
        std::uint32_t Begin2, Length2;
        int Number;
    };

    /// A variable the text names directly (indices constant), resolved against the store once
    /// per store version. The instructions that read it hold its address (see Patch).
    struct Link {
        const double* Value;                    // into the store, or a keyword's value
        std::uint32_t NameBegin, NameLength;    // in the text, or past its end in the names
        std::uint32_t At;                       // where the text writes it
        std::uint32_t LevelBegin, LevelLength;  // the text that first names it
        std::uint32_t Pc;                       // where the run first reaches it
        int Line;
        MessageId Fault;  // MessageId::Count while it resolves to a number
    };

    /// A place of the program that holds a link's address, rewritten when the link is
    /// resolved again.
    enum class Field : std::uint8_t { A, B, Arg, Result };
    struct Patch {
        std::uint32_t Link;
        std::uint32_t At;  // the instruction, or the entry of Args
        Field Where;
    };

    /// The arrays of one compiled text, wherever they are kept.
    struct Code {
        Instr* Instrs = nullptr;
        const Site* Sites = nullptr;
        Link* Links = nullptr;
        const Patch* Patches = nullptr;
        const double** Args = nullptr;
        const std::uint32_t* Aux = nullptr;
        HostLink* Hosts = nullptr;
        const std::uint32_t* Called = nullptr;  // calls: name's begin, length in Text; count
        double* Slots = nullptr;
        const double* Result = nullptr;
        const char* Text = nullptr;
        const char* Names = nullptr;
        std::uint32_t InstrCount = 0, SiteCount = 0, LinkCount = 0, PatchCount = 0;
        std::uint32_t ArgCount = 0, AuxCount = 0, HostCount = 0, CalledCount = 0, SlotCount = 0;
        std::uint32_t TextLength = 0, NamesLength = 0;
        std::uint64_t LinkedVersion = 0;  // the store version the links were resolved in
        std::uint32_t FirstFault = 0;     // the first link that raises, or LinkCount
        bool Calls = false;               // an instruction calls out of the run
    };

    /// A compiled text in one block of memory, shared by the cache and the handles, which
    /// count their references to it.
    struct Program {
        std::atomic<std::uint32_t> Refs{1};
        std::uint64_t Hash = 0;
        std::size_t Bytes = 0;
        const char* Raw = nullptr;  // the text exactly as the host gave it: the cache's key
        std::size_t RawLength = 0;
        std::string_view Key() const { return {Raw, RawLength}; }
        Code Body;
    };
    class ProgramRef {
    public:
        ProgramRef() = default;
        explicit ProgramRef(Program* program) : Ptr(program) {}
        ProgramRef(const ProgramRef& other);
        ProgramRef(ProgramRef&& other) noexcept : Ptr(other.Release()) {}
        ProgramRef& operator=(ProgramRef other) noexcept;
        ~ProgramRef();
        /// A new reference to a program that another reference keeps.
        static ProgramRef Share(Program* program);
        Program* Get() const { return Ptr; }
        /// Gives the reference up without releasing it.
        Program* Release() {
            Program* program = Ptr;
            Ptr = nullptr;
            return program;
        }

    private:
        Program* Ptr = nullptr;
    };

    /// What a CompiledExpr shares with its copies: the program, the texts it was made from
    /// and the object that made it. Never changed once made.
    struct Handle {
        std::atomic<std::uint32_t> Refs{1};
        ProgramRef Prog;
        std::string ExprText;
        std::string ErrorText;
        std::uint64_t Owner = 0;
    };

public:
    /// A text compiled once by CompileExpr, to be computed by ComputeCompiled on the object
    /// that made it, as often as the host likes. Copies share the compiled program and texts,
    /// and may be kept and released on any thread.
    class KALVOS_EXPORT CompiledExpr {
    public:
        CompiledExpr() = default;
        CompiledExpr(const CompiledExpr& other);
        CompiledExpr(CompiledExpr&& other) noexcept;
        CompiledExpr& operator=(CompiledExpr other) noexcept;
        ~CompiledExpr();
        /// The expression as the host gave it to CompileExpr.
        const std::string& GetExprText() const;
        const std::string& GetErrorText() const;

        // What the formula reads, up to the first fault found in its text (a run stops there).
        /// The variables it reads by their names, in the order of the text, each once; an
        /// index that is a constant is part of the name (x[2] reads "x2").
        std::vector<std::string> GetVariables() const;
        /// The names before the indices it computes when it runs (x[i + 1]), each once: the
        /// variables it reads by those are built from them.
        std::vector<std::string> GetComputedNames() const;
        /// The functions it calls, built-in and the host's, in the order of the text, each once.
        std::vector<std::string> GetFunctions() const;
        /// Whether it draws random numbers or reseeds the generator.
        bool DrawsRandomNumbers() const;

    private:
        friend class Kalvos;
        Handle* Shared = nullptr;
    };

private:
    class SetupReader;  // Setup.cpp

    enum class Mode { Entry, Expr, Func };
    enum class Wait : std::uint8_t { None, Group, Index, Param };

    /// An element of a level while compiling: an operator, or a number that is a constant or
    /// has a reference. Sixteen bytes, since the passes move elements about.
    struct Operand {
        double Value;
        Ref Where;
        bool Constant;
        bool Temporary;
        std::uint8_t Oper = OP_None;  // a TpOper; OP_None for a number
    };
    using Element = Operand;

    /// One level of the text being compiled, and what it waits for from the level above it.
    struct Frame {
        std::uint32_t Begin, End;  // the level's text
        std::uint32_t Pos;         // the first character not yet read
        std::uint32_t Depth;
        std::uint32_t ElemStart;   // its elements, in Elems
        std::uint32_t PassesUsed;  // a bit for each reduction pass its operators need
        Wait Waiting;
        std::uint32_t Resume;              // where reading goes on after the construct
        std::uint32_t NameBegin, NameEnd;  // a function's or an indexed variable's name
        std::uint32_t ArgsBegin, ArgsEnd;
        std::uint32_t OperandStart;  // the construct's values so far, in Operands
        std::uint32_t ParamCount;
        std::uint32_t ParamStart;  // its parameters' texts, begin and end, in Params
    };

    /// The working arrays of the compiler, kept from one compilation to the next so that
    /// compiling allocates nothing once they have grown.
    struct Builder {
        std::string Text;
        std::vector<std::uint32_t> Match;  // the closing ")" or "]" of each "(" or "["
        std::vector<Frame> Frames;
        std::vector<Element> Elems;
        std::vector<Operand> Operands;
        std::vector<std::uint32_t> Params;
        std::vector<Draft> Drafts;
        std::vector<Site> Sites;
        std::vector<Link> Links;
        std::vector<Ref> ArgRefs;  // the parameters of calls and the indices of variables
        std::vector<std::uint32_t> Aux;
        std::vector<HostLink> Hosts;
        std::vector<std::uint32_t> Called;
        std::vector<double> Slots;
        // The run's form of the last text compiled without a program of its own.
        std::vector<Instr> Instrs;
        std::vector<const double*> Args;
        std::vector<Patch> Patches;
        std::vector<std::uint32_t> OpenParens, OpenBrackets;
        std::string Names;
        std::uint32_t Request[3];  // a level to open next: begin, end, depth
        bool Requested;
        bool Matched;  // Match is made when the first span needs it
        Ref Result;
        std::uint32_t FirstFault;
        std::uint32_t AccSlot;  // the slot whose value the last instruction left in the accumulator
        bool Done;
    };

    // Compiler.cpp
    void Compile(std::string_view raw, Mode mode, std::string_view name = {});
    void CompileEntry(std::string_view raw);
    void CompileLevels();
    void OpenLevel(std::uint32_t begin, std::uint32_t end, std::uint32_t depth);
    void Deliver(Frame& frame, const Operand& value);
    void OpenIndex(Frame& frame);
    void FinishVariable(Frame& frame);
    void OpenCall(Frame& frame, std::uint32_t nameBegin, std::uint32_t nameEnd,
                  std::uint32_t argsBegin, std::uint32_t argsEnd, std::uint32_t resume);
    void FinishCall(Frame& frame);
    Operand BuiltinCall(const Frame& frame, const CatalogueEntry& entry);
    Operand HostCall(const Frame& frame);
    std::uint32_t PushArgs(const Operand* params, std::uint32_t count);
    void PushNumber(const Operand& value) { Work.Elems.push_back(value); }
    Operand LinkVariable(std::uint32_t levelBegin, std::uint32_t levelEnd, std::uint32_t nameBegin,
                         std::string_view name, std::uint32_t at = kNone);
    bool ReadSingleToken(std::uint32_t begin, std::uint32_t end, Operand& value);
    Ref RefOf(const Operand& operand) {
        if (!operand.Constant) return operand.Where;
        Work.Slots.push_back(operand.Value);
        return static_cast<Ref>(Work.Slots.size() - 1);
    }
    std::uint32_t NewTemporary() { return RefOf({0.0, 0, true, false}); }
    /// An instruction that leaves a value in `dst` and the accumulator, or none.
    void Emit(const Draft& draft, bool leavesValue) {
        Work.Drafts.push_back(draft);
        Work.AccSlot = leavesValue ? draft.Dst : kNone;
    }
    void AddSite(MessageId id, int line, std::uint32_t begin1, std::uint32_t end1,
                 std::uint32_t begin2 = 0, std::uint32_t end2 = 0, int number = 0);
    void Fail(MessageId id, int line, std::uint32_t begin1, std::uint32_t end1,
              std::uint32_t begin2 = 0, std::uint32_t end2 = 0, int number = 0);
    std::uint32_t SpanEndAt(const Frame& frame, std::uint32_t open, MessageId missing, int line);
    Code BuiltCode();
    ProgramRef Freeze(std::string_view raw, std::uint64_t hash);
    void Lower(Code& code, Patch* patches);
    const double* Address(const Code& code, Ref ref, std::uint32_t at, Field where,
                          Patch*& patches);

    // Scan.cpp
    bool ScanLevel(Frame& frame);
    void ScanOperator(Frame& frame);

    // Passes.cpp
    Operand ReduceLevel(Frame& frame);
    void ApplyPrefixOperators(Element* list, std::uint32_t& count);
    bool ApplyInfixOperators(std::uint32_t pass, const Frame& frame, Element* list,
                             std::uint32_t& count);
    Operand Combine(TpOper oper, const Operand& a, const Operand& b);
    Op FormOf(TpOper oper, Ref a, Ref b) const;

    /// Where a run stopped, when it met a failure: the instruction (or the variable, for a
    /// name that does not resolve), and the value or built name its message needs.
    struct Fault {
        MessageId Id = MessageId::Count;
        std::uint32_t Pc = 0;
        const Link* Variable = nullptr;
        double Value = 0.0;
    };

    // EntryPoints.cpp
    inline double Execute(Code& code);
    /// Makes the handle's texts and program the object's current ones, without copying them:
    /// the handle is held among the pinned ones; raises for a handle of another object.
    void Enter(const CompiledExpr& compiled);
    /// Copies the active handle's texts and program into ExprText, ErrorText and Current.
    void Leave();
    void Unpin();
    Code& Prepare(std::string&& expr);
    Code& CompileLoose(std::string_view raw, Mode mode, std::string_view name = {});
    /// Raises the failure described in Halt; never returns.
    double RaiseHalt(const Code& code);

    // Machine.cpp
    /// kCalls for code that calls out of the run (a function, a computed variable, an index
    /// check); the run of code that does not needs no frame of its own.
    template <bool kCalls>
    double Run(const Code& code);
    MessageReport Describe(const Code& code, const Fault& fault) const;
    void Relink(Code& code) const;
    void Resolve(Link& link, std::string_view name) const;
    static std::string_view LinkName(const Code& code, const Link& link);
    static const Site& SiteAt(const Code& code, std::uint32_t pc);
    MessageReport DescribeText(MessageId id, int line, std::string_view text) const;
    MessageId LoadIndexed(const Code& code, const Instr& in, double& value);

    // Cache.cpp
    static std::uint64_t HashText(std::string_view text);
    bool Cacheable(std::string_view raw) const;
    ProgramRef CompileKept(std::string_view raw, std::uint64_t hash);
    bool SeenBefore(std::uint64_t hash);
    Program* FindCached(std::string_view raw, std::uint64_t hash) const;
    void Insert(const ProgramRef& program);
    void EvictOldest();
    void ClearCache();

    // Readers.cpp: the readers on views, which the operations above wrap.
    static TpOper ScanOperatorToken(std::string_view text, unsigned int& length);
    static std::size_t ScanName(std::string_view text);
    static std::size_t ScanNumber(std::string_view text, double& value);
    static bool ConvertNumber(std::string_view literal, double& value);
    unsigned int SpanEnd(std::string_view text, char open, MessageId missing) const;
    static bool MatchSpans(std::string_view text, std::vector<std::uint32_t>& match,
                           std::vector<std::uint32_t>& parens,
                           std::vector<std::uint32_t>& brackets);

    // Operators.cpp
    struct OperatorInfo {
        std::string_view Text;
        // The reduction pass that applies the operator between two numbers; prefix "!" and
        // "-" are applied in pass 0 besides.
        unsigned int InfixPass;
    };
    static constexpr unsigned int kNoPass = 99;
    static constexpr unsigned int kPasses = 7;
    // Indexed by TpOper. "==" and "!=" are numbered before the relational operators but bind
    // less tightly, hence their later pass.
    static constexpr OperatorInfo kOperators[] = {
        {"???", kNoPass}, {"!", kNoPass}, {"*", 1}, {"/", 1},  {"+", 2},  {"-", 2},  {"==", 4},
        {"!=", 4},        {"<", 3},       {">", 3}, {"<=", 3}, {">=", 3}, {"@@", 5}, {"||", 6},
    };
    static_assert(std::size(kOperators) == OP_Or + 1, "one entry for each TpOper");
    static unsigned int OperatorPass(TpOper oper) { return kOperators[oper].InfixPass; }
    /// The value of an infix operator between two numbers; a division by zero is the
    /// caller's. Inline, so that the run, which names the operator, gets its one operation.
    static double ApplyOperator(TpOper oper, double a, double b) {
        switch (oper) {
            case OP_Mul:
                return LeftNaN(a, a * b);
            case OP_Div:
                return LeftNaN(a, a / b);
            case OP_Add:
                return LeftNaN(a, a + b);
            case OP_Sub:
                return LeftNaN(a, a - b);
            case OP_Lt:
                return a < b ? 1.0 : 0.0;
            case OP_Gt:
                return a > b ? 1.0 : 0.0;
            case OP_Le:
                return a <= b ? 1.0 : 0.0;
            case OP_Ge:
                return a >= b ? 1.0 : 0.0;
            case OP_Eq:
                return a == b ? 1.0 : 0.0;
            case OP_Neq:
                return a == b ? 0.0 : 1.0;
            case OP_And:
                return a != 0.0 && b != 0.0 ? 1.0 : 0.0;
            case OP_Or:
                return a == 0.0 && b == 0.0 ? 0.0 : 1.0;
            default:
                return 0.0;  // no other operator has an infix pass
        }
    }
    /// Of two NaN operands the processor gives the one the instruction names first, and the
    /// compiler orders the operands of a product or a sum as it likes, differently from one
    /// loop to another: the left NaN is given, quieted (as the processor quiets a NaN it
    /// gives), so that every way of computing gives the same bits.
    static double LeftNaN(double a, double result) { return a != a ? a + a : result; }
    /// The value of a prefix operator: "!" (OP_Not) or the negation (OP_None).
    static double ApplyPrefix(TpOper oper, double b) {
        return oper == OP_Not ? (b == 0.0 ? 1.0 : 0.0) : -b;
    }

    // FunctionCall.cpp and Catalogue.cpp
    static unsigned int SplitParameters(std::string_view args, std::uint32_t* begins,
                                        std::uint32_t* ends);
    static const CatalogueEntry* Catalogue(std::size_t& size);
    static const CatalogueEntry* FindBuiltin(std::string_view name, unsigned int count);
    /// Whether the catalogue has the name, for any count of parameters.
    static bool HasBuiltin(std::string_view name);
    static bool IsPure(const CatalogueEntry& entry);
    static std::uint32_t CatalogueIndex(const CatalogueEntry& entry);
    static Builtin BuiltinAt(std::uint32_t index);
    static Unary UnaryAt(std::uint32_t index);
    double CallBuiltin(const CatalogueEntry& entry, const double* values, unsigned int count) const;
    double RoundPosOnAxis(double p, const char* axisVariable) const;

    std::string Expand(std::string_view text) const;

    void Clear();

    // HostFunctions.cpp
    /// The host's function for the link's name and count now, called; a failure of the call
    /// other than a JException it raised, or MessageId::Count.
    MessageId CallHost(const Code& code, HostLink& link, const double* values, double& value);
    void ResolveHost(const Code& code, HostLink& link) const;
    MessageId Invoke(const HostFunction& function, const double* values, unsigned int count,
                     double& value);
    /// Raises when a host function calls back into the object that runs it.
    void CheckNotInHost(const char* method) const {
        if (InHost != nullptr) RaiseInHost(method);
    }
    [[noreturn]] void RaiseInHost(const char* method) const;
    /// While a host function runs: the object knows it, and no handle is active.
    class HostScope {
    public:
        /// No function (a program that calls none) changes nothing.
        HostScope(Kalvos& k, const HostFunction* function);
        ~HostScope();
        HostScope(const HostScope&) = delete;
        HostScope& operator=(const HostScope&) = delete;

    private:
        Kalvos& K;
        const HostFunction* Function;
        Handle* Active;
    };

    // Bulk.cpp: the bulk calls; BlockMachine.h: the machine that runs a program over blocks.
    struct Bulk;
    struct BlockMachine;
    static bool IsPureBuiltin(Builtin function);

    static bool EqualsLower(std::string_view text, std::string_view lower);

    Builder Work;
    // The cache: open addressing over the kept programs (nullptr for an empty slot), and the
    // same programs in the order they came, the oldest first out.
    std::vector<Program*> CacheSlots;
    std::vector<Program*> CacheOrder;
    std::vector<std::uint64_t> Seen;  // see SeenBefore
    std::size_t SeenCount = 0;        // the hashes in Seen
    std::size_t CacheOldest = 0;
    std::size_t CacheCount = 0;
    std::size_t CacheBytes = 0;
    std::size_t CacheMaxEntries = kDefaultCacheEntries;
    std::size_t CacheMaxBytes = kDefaultCacheBytes;
    std::string NameBuf;  // the name of an indexed variable, built at run time
    ProgramRef Current;   // the program of the text ExprText holds, when it has one that is kept
    // A host computes a few handles in turn, element after element: the handles it computed
    // last are held here, so that going from one to another copies no text and counts no
    // reference. While a handle is active, its texts and program are the object's current ones
    // and ExprText, ErrorText and Current are not brought up to date (Leave does that).
    static constexpr std::size_t kPinnedHandles = 8;
    Handle* Pinned[kPinnedHandles] = {};
    std::size_t NextPin = 0;
    Handle* Active = nullptr;
    MessageReport Report;  // the failure of the last run that failed
    Fault Halt;            // where the run stopped, while it is raised
    Code Loose;            // the code of the last text compiled without a program of its own
    std::uint64_t Serial = 0;
    std::unique_ptr<Bulk> BulkWork;  // the plans, threads and buffers of the bulk calls
    // The host's functions, each in a block of its own that links point to; every definition
    // and removal counts a new version, against which links are resolved again.
    std::vector<std::unique_ptr<HostFunction>> Hosts;
    std::uint64_t HostVersion = 1;
    const HostFunction* InHost = nullptr;  // the host function running, if any
    std::string HostError;                 // what the failing host function's exception said
};
