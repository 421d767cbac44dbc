#include <utility>

#include "evaluator/Kalvos.h"
#include "support/KalvosVars.h"

#if defined(__GNUC__) && !defined(__clang__)
#define KALVOS_OUT_OF_SIGHT [[gnu::noipa]]
#else
#define KALVOS_OUT_OF_SIGHT
#endif

// Inlined into the entry points, which end in the run as a tail call, as the run ends in
// RaiseHalt on a failure. A program without instructions that reads no faulty variable (a
// constant, or one variable) needs no run.
inline double Kalvos::Execute(Code& code) {
    if (code.LinkedVersion != Vars->GetVersion()) Relink(code);
    if (code.InstrCount == 0 && code.FirstFault == code.LinkCount) return *code.Result;
    return code.Calls ? Run<true>(code) : Run<false>(code);
}

// The run reaches this by a tail call, as the entry point reaches the run, so the unwinding
// meets no frame of the library but this one. It is not marked as never returning, and the
// compiler must not find out that it never returns (noipa, or out of sight in another file):
// either would make the calls to it calls rather than jumps. The report is kept in the object,
// so that no frame between the throw and the host has anything to clean up.
KALVOS_OUT_OF_SIGHT double Kalvos::RaiseHalt(const Code& code) {
    if (Active != nullptr) Leave();
    Report = Describe(code, Halt);
    RunExceptioon(Report.Module, Report.Line, ClassName, Report.Method, Report.Text, Report.File);
}
#undef KALVOS_OUT_OF_SIGHT

double Kalvos::ComputeExpr(std::string expr, const std::string& errortext) {
    CheckNotInHost("ComputeExpr");
    if (Active != nullptr) Leave();
    if (ErrorText != errortext) ErrorText = errortext;
    // A known text is usually the one of the last call: compared, neither copied nor looked up.
    // It is compared with the program's own text, which no other code can change.
    const bool known = Current.Get() != nullptr && Current.Get()->Key() == expr;
    return Execute(known ? Current.Get()->Body : Prepare(std::move(expr)));
}

// The code of a text other than the last one: found in the cache, or compiled, into a program
// of its own when the text is to be kept, else into the builder's arrays. A text read once,
// as a file of formulas is, costs no more than with the cache off.
Kalvos::Code& Kalvos::Prepare(std::string&& expr) {
    ExprText = std::move(expr);
    Current = ProgramRef();
    const std::uint64_t hash = Cacheable(ExprText) ? HashText(ExprText) : 0;
    Program* cached = hash != 0 ? FindCached(ExprText, hash) : nullptr;
    if (cached != nullptr) {
        Current = ProgramRef::Share(cached);
    } else if (hash != 0 && SeenBefore(hash)) {
        Current = CompileKept(ExprText, hash);
    } else {
        return CompileLoose(ExprText, Mode::Entry);
    }
    return Current.Get()->Body;
}

// A text compiled for one run, into the builder's arrays.
Kalvos::Code& Kalvos::CompileLoose(std::string_view raw, Mode mode, std::string_view name) {
    Compile(raw, mode, name);
    Loose = BuiltCode();
    return Loose;
}

// The four literals are answered without evaluating, and without touching ExprText and
// ErrorText; they are tested before blanks are removed, so " true" is evaluated instead.
bool Kalvos::ComputeExprBool(std::string expr, const std::string& errortext) {
    std::string_view literal = expr;
    if (!literal.empty() && literal[0] == '#') literal.remove_prefix(1);
    if (literal.empty()) return false;
    if (EqualsLower(literal, "true") || literal == "1") return true;
    if (EqualsLower(literal, "false") || literal == "0") return false;
    return ComputeExpr(std::move(expr), errortext) != 0.0;
}

// The text is taken by value, as by every operation that may edit a text.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
double Kalvos::ComputExpr(std::string text) { return Execute(CompileLoose(text, Mode::Expr)); }

double Kalvos::ComputFunc(const std::string& name, const std::string& args) {
    return Execute(CompileLoose(args, Mode::Func, name));
}

Kalvos::CompiledExpr Kalvos::CompileExpr(std::string expr, const std::string& errortext) {
    CheckNotInHost("CompileExpr");
    CompiledExpr compiled;
    compiled.Shared = new Handle;
    Handle& handle = *compiled.Shared;
    handle.ExprText = std::move(expr);
    handle.ErrorText = errortext;
    handle.Owner = Serial;
    const std::string_view raw = handle.ExprText;
    const std::uint64_t hash = HashText(raw);
    Program* cached = Cacheable(raw) ? FindCached(raw, hash) : nullptr;
    handle.Prog = cached != nullptr ? ProgramRef::Share(cached) : CompileKept(raw, hash);
    return compiled;
}

// A host that computes one handle again and again, or a few in turn, finds it active or pinned.
double Kalvos::ComputeCompiled(const CompiledExpr& compiled) {
    if (compiled.Shared != Active || Active == nullptr) Enter(compiled);
    return Execute(Active->Prog.Get()->Body);
}

void Kalvos::Enter(const CompiledExpr& compiled) {
    CheckNotInHost("ComputeCompiled");
    Handle* const handle = compiled.Shared;
    if (handle == nullptr || handle->Owner != Serial) {
        const CompiledExpr& texts = compiled;
        Raise<MessageId::ForeignCompiled>(__LINE__, texts.GetErrorText(), texts.GetExprText());
    }
    Active = handle;
    for (Handle* pinned : Pinned) {
        if (pinned == handle) return;
    }
    // The oldest pin gives way; the texts of an active handle it releases are no longer needed.
    Handle*& slot = Pinned[NextPin];
    NextPin = (NextPin + 1) % kPinnedHandles;
    CompiledExpr released;
    released.Shared = slot;
    handle->Refs.fetch_add(1, std::memory_order_relaxed);
    slot = handle;
}

void Kalvos::Leave() {
    if (ExprText != Active->ExprText) ExprText = Active->ExprText;
    if (ErrorText != Active->ErrorText) ErrorText = Active->ErrorText;
    if (Current.Get() != Active->Prog.Get()) Current = Active->Prog;
    Active = nullptr;
}

void Kalvos::Unpin() {
    Active = nullptr;
    for (Handle*& pinned : Pinned) {
        CompiledExpr released;
        released.Shared = pinned;
        pinned = nullptr;
    }
}

const std::string& Kalvos::GetExprText() const {
    return Active != nullptr ? Active->ExprText : ExprText;
}

const std::string& Kalvos::GetErrorText() const {
    return Active != nullptr ? Active->ErrorText : ErrorText;
}

Kalvos::CompiledExpr::CompiledExpr(const CompiledExpr& other) : Shared(other.Shared) {
    if (Shared != nullptr) Shared->Refs.fetch_add(1, std::memory_order_relaxed);
}

Kalvos::CompiledExpr::CompiledExpr(CompiledExpr&& other) noexcept : Shared(other.Shared) {
    other.Shared = nullptr;
}

Kalvos::CompiledExpr& Kalvos::CompiledExpr::operator=(CompiledExpr other) noexcept {
    std::swap(Shared, other.Shared);
    return *this;
}

Kalvos::CompiledExpr::~CompiledExpr() {
    if (Shared != nullptr && Shared->Refs.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete Shared;
    }
}

const std::string& Kalvos::CompiledExpr::GetExprText() const {
    static const std::string kNone;
    return Shared != nullptr ? Shared->ExprText : kNone;
}

const std::string& Kalvos::CompiledExpr::GetErrorText() const {
    static const std::string kNone;
    return Shared != nullptr ? Shared->ErrorText : kNone;
}
