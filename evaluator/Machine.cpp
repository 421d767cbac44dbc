#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>

#include "evaluator/Kalvos.h"
#include "support/KalvosVars.h"

namespace {

constexpr double kTrue = 1.0;
constexpr double kFalse = 0.0;

const char* ResultLabel(int code) {
    switch (code) {
        case 1:
            return "NaN";
        case 2:
            return "Infinity";
        default:
            return "Unknown";
    }
}

}  // namespace

// Every opcode has its case, so the jump table needs no bounds check.
#if defined(__GNUC__)
#define KALVOS_UNREACHABLE() __builtin_unreachable()
#elif defined(_MSC_VER)
#define KALVOS_UNREACHABLE() __assume(0)
#else
#define KALVOS_UNREACHABLE() break
#endif

// How the run goes from one instruction to the next. Where the compiler can jump through a
// table of labels, each instruction ends in a jump of its own, which the processor predicts
// from the instruction it ends: a third faster than one shared jump on formulas of a few
// operators. Elsewhere, and where KALVOS_PORTABLE_DISPATCH asks for it, a switch in a loop.
#if defined(__GNUC__) && !defined(KALVOS_PORTABLE_DISPATCH)
#define KALVOS_THREADED 1
#define KALVOS_OP(NAME) L_##NAME:
#define KALVOS_DISPATCH()       \
    if (at == end) goto finish; \
    goto* kTargets[static_cast<unsigned int>(at->Code)];
#define KALVOS_BEGIN_DISPATCH KALVOS_DISPATCH()
#define KALVOS_END_DISPATCH
#else
#define KALVOS_THREADED 0
#define KALVOS_OP(NAME) case Op::NAME:
#define KALVOS_DISPATCH() continue;
#define KALVOS_BEGIN_DISPATCH       \
    for (;;) {                      \
        if (at == end) goto finish; \
        switch (at->Code) {
#define KALVOS_END_DISPATCH   \
    default:                  \
        KALVOS_UNREACHABLE(); \
        }                     \
        }
#endif
// The value an instruction leaves goes to its slot and stays in the accumulator.
#define KALVOS_NEXT \
    *at->Dst = acc; \
    ++at;           \
    KALVOS_DISPATCH()

// An infix operator in its three forms (see Op): both operands read in place, the left one
// the accumulator, the right one the accumulator.
#define KALVOS_INFIX(OPER)                          \
    KALVOS_OP(OPER##MM)                             \
    acc = ApplyOperator(OP_##OPER, *at->A, *at->B); \
    KALVOS_NEXT                                     \
    KALVOS_OP(OPER##AM)                             \
    acc = ApplyOperator(OP_##OPER, acc, *at->B);    \
    KALVOS_NEXT                                     \
    KALVOS_OP(OPER##MA)                             \
    acc = ApplyOperator(OP_##OPER, *at->A, acc);    \
    KALVOS_NEXT

// A prefix operator in its two forms: its operand read in place, or the accumulator.
#define KALVOS_PREFIX(NAME, OPER)    \
    KALVOS_OP(NAME##M)               \
    acc = ApplyPrefix(OPER, *at->B); \
    KALVOS_NEXT                      \
    KALVOS_OP(NAME##A)               \
    acc = ApplyPrefix(OPER, acc);    \
    KALVOS_NEXT

// A division by zero raises before the quotient is taken.
#define KALVOS_DIVIDE(FORM, LEFT, RIGHT)            \
    KALVOS_OP(Div##FORM) {                          \
        const double divisor = RIGHT;               \
        if (divisor == 0.0) {                       \
            failure = MessageId::DivisionByZero;    \
            goto stop;                              \
        }                                           \
        acc = ApplyOperator(OP_Div, LEFT, divisor); \
    }                                               \
    KALVOS_NEXT

// A call's value that is not finite raises.
#define KALVOS_CHECK_RESULT()               \
    if (!std::isfinite(acc)) {              \
        failure = MessageId::InvalidResult; \
        Halt.Value = acc;                   \
        goto stop;                          \
    }

// Runs compiled code against the store as it is now. Variables named by the text are
// resolved once per store version, and read where the store keeps them; the first that does
// not resolve stops the run where the text reads it. Every value an instruction computes
// goes to its slot and stays in the accumulator for the next. A failure stops the run, which
// hands it to RaiseHalt.
#if KALVOS_THREADED
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpedantic"  // the table of labels
#endif
template <bool kCalls>
double Kalvos::Run(const Code& code) {
#if KALVOS_THREADED
    // clang-format off
    static const void* const kTargets[] = {
        &&L_NegM, &&L_NegA, &&L_NotM, &&L_NotA,
        &&L_MulMM, &&L_MulAM, &&L_MulMA, &&L_DivMM, &&L_DivAM, &&L_DivMA,
        &&L_AddMM, &&L_AddAM, &&L_AddMA, &&L_SubMM, &&L_SubAM, &&L_SubMA,
        &&L_EqMM, &&L_EqAM, &&L_EqMA, &&L_NeqMM, &&L_NeqAM, &&L_NeqMA,
        &&L_LtMM, &&L_LtAM, &&L_LtMA, &&L_GtMM, &&L_GtAM, &&L_GtMA,
        &&L_LeMM, &&L_LeAM, &&L_LeMA, &&L_GeMM, &&L_GeAM, &&L_GeMA,
        &&L_AndMM, &&L_AndAM, &&L_AndMA, &&L_OrMM, &&L_OrAM, &&L_OrMA,
        &&L_Call, &&L_CallUnary, &&L_CallHost, &&L_CheckIndex, &&L_LoadIndexed, &&L_Raise};
    // clang-format on
    static_assert(std::size(kTargets) == static_cast<unsigned int>(Op::Raise) + 1,
                  "one label for each Op");
#endif
    const bool faulty = code.FirstFault < code.LinkCount;
    const Instr* const end =
        code.Instrs + (faulty ? code.Links[code.FirstFault].Pc : code.InstrCount);
    MessageId failure = MessageId::Count;
    double acc = 0.0;
    const Instr* at = code.Instrs;
    KALVOS_BEGIN_DISPATCH
    KALVOS_PREFIX(Neg, OP_None)
    KALVOS_PREFIX(Not, OP_Not)
    KALVOS_INFIX(Mul)
    KALVOS_DIVIDE(MM, *at->A, *at->B)
    KALVOS_DIVIDE(AM, acc, *at->B)
    KALVOS_DIVIDE(MA, *at->A, acc)
    KALVOS_INFIX(Add)
    KALVOS_INFIX(Sub)
    KALVOS_INFIX(Eq)
    KALVOS_INFIX(Neq)
    KALVOS_INFIX(Lt)
    KALVOS_INFIX(Gt)
    KALVOS_INFIX(Le)
    KALVOS_INFIX(Ge)
    KALVOS_INFIX(And)
    KALVOS_INFIX(Or)
    KALVOS_OP(Call) {
        if (!kCalls) KALVOS_UNREACHABLE();
        const double* const* args = code.Args + at->Extra;
        double values[kMaxParameters];
        for (unsigned int i = 0; i < at->Count; ++i) values[i] = *args[i];
        acc = at->Function(*this, values, at->Count);
        KALVOS_CHECK_RESULT()
    }
    KALVOS_NEXT
    KALVOS_OP(CallUnary) {
        if (!kCalls) KALVOS_UNREACHABLE();
        acc = at->Plain(*at->A);
        KALVOS_CHECK_RESULT()
    }
    KALVOS_NEXT
    KALVOS_OP(CallHost) {
        if (!kCalls) KALVOS_UNREACHABLE();
        // One parameter, the most common, is handed where it lives.
        const double* const* args = code.Args + at->Extra;
        double values[kMaxParameters];
        for (unsigned int i = 0; i < at->Count && at->Count > 1; ++i) values[i] = *args[i];
        failure = CallHost(code, *at->Host, at->Count == 1 ? args[0] : values, acc);
        if (failure != MessageId::Count) goto stop;
        KALVOS_CHECK_RESULT()
    }
    KALVOS_NEXT
    KALVOS_OP(CheckIndex) {
        if (!kCalls) KALVOS_UNREACHABLE();
        if (TruncToInt(*at->A) < 0) {
            failure = MessageId::NegativeIndex;
            goto stop;
        }
        ++at;  // it leaves no value
    }
    KALVOS_DISPATCH()
    KALVOS_OP(LoadIndexed) {
        if (!kCalls) KALVOS_UNREACHABLE();
        double loaded = 0.0;  // not the accumulator, which stays in a register
        failure = LoadIndexed(code, *at, loaded);
        if (failure != MessageId::Count) goto stop;
        acc = loaded;
    }
    KALVOS_NEXT
    KALVOS_OP(Raise)
    failure = SiteAt(code, static_cast<std::uint32_t>(at - code.Instrs)).Id;
    goto stop;
    KALVOS_END_DISPATCH
finish:
    if (!faulty) return *code.Result;
    Halt.Id = code.Links[code.FirstFault].Fault;
    Halt.Variable = &code.Links[code.FirstFault];
    Halt.Pc = 0;
    return RaiseHalt(code);
stop:
    Halt.Id = failure;
    Halt.Pc = static_cast<std::uint32_t>(at - code.Instrs);
    Halt.Variable = nullptr;
    return RaiseHalt(code);
}
#if KALVOS_THREADED
#pragma GCC diagnostic pop
#endif

template double Kalvos::Run<true>(const Code& code);
template double Kalvos::Run<false>(const Code& code);

#undef KALVOS_CHECK_RESULT
#undef KALVOS_DIVIDE
#undef KALVOS_PREFIX
#undef KALVOS_INFIX
#undef KALVOS_NEXT
#undef KALVOS_END_DISPATCH
#undef KALVOS_BEGIN_DISPATCH
#undef KALVOS_DISPATCH
#undef KALVOS_OP
#undef KALVOS_THREADED
#undef KALVOS_UNREACHABLE

// Resolves every link again and writes its address wherever the code reads it.
void Kalvos::Relink(Code& code) const {
    code.FirstFault = code.LinkCount;
    for (std::uint32_t i = 0; i < code.LinkCount; ++i) {
        Link& link = code.Links[i];
        Resolve(link, LinkName(code, link));
        if (link.Fault != MessageId::Count && code.FirstFault == code.LinkCount)
            code.FirstFault = i;
    }
    for (std::uint32_t i = 0; i < code.PatchCount; ++i) {
        const Patch& patch = code.Patches[i];
        const double* value = code.Links[patch.Link].Value;
        switch (patch.Where) {
            case Field::A:
                code.Instrs[patch.At].A = value;
                break;
            case Field::B:
                code.Instrs[patch.At].B = value;
                break;
            case Field::Arg:
                code.Args[patch.At] = value;
                break;
            case Field::Result:
                code.Result = value;
                break;
        }
    }
    code.LinkedVersion = Vars->GetVersion();
}

// A name no variable has is a keyword, "true" or "false" in any case, or a fault; so is a
// variable that holds a text.
void Kalvos::Resolve(Link& link, std::string_view name) const {
    const unsigned int idx = Vars->FindVar(name);
    link.Fault = MessageId::Count;
    link.Value = &kFalse;
    if (idx == KalvosVars::kNoVar) {
        if (EqualsLower(name, "true")) {
            link.Value = &kTrue;
        } else if (!EqualsLower(name, "false")) {
            link.Fault = MessageId::NoVariable;
        }
    } else if (!Vars->VarIsNum(idx)) {
        link.Fault = MessageId::NotNumeric;
    } else {
        link.Value = Vars->GetNumAddress(idx);
    }
}

std::string_view Kalvos::LinkName(const Code& code, const Link& link) {
    const char* names = link.NameBegin < code.TextLength ? code.Text : code.Names - code.TextLength;
    return {names + link.NameBegin, link.NameLength};
}

// The name of an indexed variable with computed indices, built when the run reaches it, into
// NameBuf, where a failure's message finds it. A built name ends in digits, so it is never the
// keyword "true" or "false".
MessageId Kalvos::LoadIndexed(const Code& code, const Instr& in, double& value) {
    const std::uint32_t* aux = code.Aux + in.Extra;
    const double* const* indices = code.Args + aux[2];
    NameBuf.assign(code.Text + aux[0], aux[1]);
    for (std::uint32_t i = 0; i < in.Count; ++i) {
        char digits[16];
        const auto converted =
            std::to_chars(digits, digits + sizeof digits, TruncToInt(*indices[i]));
        NameBuf.append(digits, converted.ptr);
    }
    const unsigned int idx = Vars->FindVar(NameBuf);
    if (idx == KalvosVars::kNoVar) return MessageId::NoVariable;
    if (!Vars->VarIsNum(idx)) return MessageId::NotNumeric;
    value = *Vars->GetNumAddress(idx);
    return MessageId::Count;
}

const Kalvos::Site& Kalvos::SiteAt(const Code& code, std::uint32_t pc) {
    const Site* end = code.Sites + code.SiteCount;
    return *std::lower_bound(code.Sites, end, pc,
                             [](const Site& site, std::uint32_t key) { return site.Pc < key; });
}

// Every failure of a run is described here, from the site of the instruction that met it or
// from the variable that did not resolve.
MessageReport Kalvos::Describe(const Code& code, const Fault& fault) const {
    const std::string_view error = ErrorText;
    if (fault.Variable != nullptr) {
        const Link& link = *fault.Variable;
        const std::string_view level(code.Text + link.LevelBegin, link.LevelLength);
        if (fault.Id == MessageId::NotNumeric) {
            return JObject::Describe<MessageId::NotNumeric>(link.Line, error, level,
                                                            LinkName(code, link));
        }
        return JObject::Describe<MessageId::NoVariable>(link.Line, error, level,
                                                        LinkName(code, link));
    }
    const Site& site = SiteAt(code, fault.Pc);
    const std::string_view text1(code.Text + site.Begin1, site.Length1);
    const std::string_view text2(code.Text + site.Begin2, site.Length2);
    const int line = site.Line;
    switch (fault.Id) {
        case MessageId::ExpressionEmpty:
            return JObject::Describe<MessageId::ExpressionEmpty>(line, error);
        case MessageId::NegativeIndex:
            return JObject::Describe<MessageId::NegativeIndex>(line, error, text1, text2);
        case MessageId::NoToken:
            return JObject::Describe<MessageId::NoToken>(line, error, text1, site.Number);
        case MessageId::BadNumber:
            return JObject::Describe<MessageId::BadNumber>(line, error, text1, site.Number);
        case MessageId::BadOperator:
            return JObject::Describe<MessageId::BadOperator>(line, error, text1, site.Number);
        case MessageId::NotNumeric:  // an indexed variable's name, built into NameBuf
            return JObject::Describe<MessageId::NotNumeric>(line, error, text1, NameBuf);
        case MessageId::NoVariable:
            return JObject::Describe<MessageId::NoVariable>(line, error, text1, NameBuf);
        case MessageId::TooManyParameters:
            return JObject::Describe<MessageId::TooManyParameters>(line, error, text1, text2);
        case MessageId::FunctionNotFound:
            return JObject::Describe<MessageId::FunctionNotFound>(line, error, text1, text2,
                                                                  site.Number);
        case MessageId::InvalidResult:
            return JObject::Describe<MessageId::InvalidResult>(
                line, error, text1, text2, fault.Value, ResultLabel(CheckNumberValue(fault.Value)));
        case MessageId::HostRaised:
            return JObject::Describe<MessageId::HostRaised>(line, error, text1, text2, HostError);
        case MessageId::HostChangedStore:
            return JObject::Describe<MessageId::HostChangedStore>(line, error, text1, text2);
        default:
            return DescribeText(fault.Id, line, text1);
    }
}

// The messages that name one text.
MessageReport Kalvos::DescribeText(MessageId id, int line, std::string_view text) const {
    const std::string_view error = ErrorText;
    switch (id) {
        case MessageId::ParenthesesWrong:
            return JObject::Describe<MessageId::ParenthesesWrong>(line, error, text);
        case MessageId::ExpressionInvalid:
            return JObject::Describe<MessageId::ExpressionInvalid>(line, error, text);
        case MessageId::TooManyParts:
            return JObject::Describe<MessageId::TooManyParts>(line, error, text);
        case MessageId::DivisionByZero:
            return JObject::Describe<MessageId::DivisionByZero>(line, error, text);
        case MessageId::NoEndOfParentheses:
            return JObject::Describe<MessageId::NoEndOfParentheses>(line, error, text);
        case MessageId::NoEndOfBrackets:
            return JObject::Describe<MessageId::NoEndOfBrackets>(line, error, text);
        default:
            return JObject::Describe<MessageId::NestingTooDeep>(line, error, text);
    }
}
