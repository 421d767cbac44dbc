#include <algorithm>
#include <charconv>

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

// Runs compiled code against the store as it is now. Variables named by the text are
// resolved once per store version and copied into their slots; the first that does not
// resolve stops the run where the text reads it. A failure stops the run and is described in
// `fault`; the caller raises it.
double Kalvos::Run(Code& code, Fault& fault) {
    if (code.LinkedVersion != Vars->GetVersion()) Relink(code);
    double* const v = code.Slots;
    for (std::uint32_t i = 0; i < code.LinkCount; ++i) v[code.Links[i].Slot] = *code.Links[i].Value;
    const bool faulty = code.FirstFault < code.LinkCount;
    const std::uint32_t end = faulty ? code.Links[code.FirstFault].Pc : code.InstrCount;
    MessageId failure = MessageId::Count;
    std::uint32_t pc = 0;
    for (; pc < end; ++pc) {
        const Instr& in = code.Instrs[pc];
        switch (in.Code) {
            case Op::Neg:
                v[in.Dst] = ApplyPrefix(OP_None, v[in.A]);
                break;
            case Op::Not:
                v[in.Dst] = ApplyPrefix(OP_Not, v[in.A]);
                break;
            case Op::Mul:
                v[in.Dst] = ApplyOperator(OP_Mul, v[in.A], v[in.B]);
                break;
            case Op::Div:
                if (v[in.B] == 0.0) {
                    failure = MessageId::DivisionByZero;
                    goto stop;
                }
                v[in.Dst] = ApplyOperator(OP_Div, v[in.A], v[in.B]);
                break;
            case Op::Add:
                v[in.Dst] = ApplyOperator(OP_Add, v[in.A], v[in.B]);
                break;
            case Op::Sub:
                v[in.Dst] = ApplyOperator(OP_Sub, v[in.A], v[in.B]);
                break;
            case Op::Eq:
                v[in.Dst] = ApplyOperator(OP_Eq, v[in.A], v[in.B]);
                break;
            case Op::Neq:
                v[in.Dst] = ApplyOperator(OP_Neq, v[in.A], v[in.B]);
                break;
            case Op::Lt:
                v[in.Dst] = ApplyOperator(OP_Lt, v[in.A], v[in.B]);
                break;
            case Op::Gt:
                v[in.Dst] = ApplyOperator(OP_Gt, v[in.A], v[in.B]);
                break;
            case Op::Le:
                v[in.Dst] = ApplyOperator(OP_Le, v[in.A], v[in.B]);
                break;
            case Op::Ge:
                v[in.Dst] = ApplyOperator(OP_Ge, v[in.A], v[in.B]);
                break;
            case Op::And:
                v[in.Dst] = ApplyOperator(OP_And, v[in.A], v[in.B]);
                break;
            case Op::Or:
                v[in.Dst] = ApplyOperator(OP_Or, v[in.A], v[in.B]);
                break;
            case Op::Call:
                v[in.Dst] = CallAt(code, pc, v);
                if (CheckNumberValue(v[in.Dst]) != 0) {
                    failure = MessageId::InvalidResult;
                    fault.Value = v[in.Dst];
                    goto stop;
                }
                break;
            case Op::CheckIndex:
                if (TruncToInt(v[in.A]) < 0) {
                    failure = MessageId::NegativeIndex;
                    goto stop;
                }
                break;
            case Op::LoadIndexed:
                failure = LoadIndexed(code, pc, v);
                if (failure != MessageId::Count) goto stop;
                break;
            case Op::Raise:
                failure = SiteAt(code, pc).Id;
                goto stop;
        }
    }
    if (!faulty) return v[code.Result];
    fault.Id = code.Links[code.FirstFault].Fault;
    fault.Variable = &code.Links[code.FirstFault];
    return 0.0;
stop:
    fault.Id = failure;
    fault.Pc = pc;
    return 0.0;
}

void Kalvos::Relink(Code& code) const {
    code.FirstFault = code.LinkCount;
    for (std::uint32_t i = 0; i < code.LinkCount; ++i) {
        Link& link = code.Links[i];
        Resolve(link, LinkName(code, link));
        if (link.Fault != MessageId::Count && code.FirstFault == code.LinkCount)
            code.FirstFault = i;
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

// Every parameter was evaluated before the call.
double Kalvos::CallAt(const Code& code, std::uint32_t pc, const double* slots) {
    const Instr& in = code.Instrs[pc];
    double values[kMaxParameters];
    for (unsigned int i = 0; i < in.Count; ++i) values[i] = slots[code.Aux[in.B + i]];
    return CallBuiltin(in.A, values, in.Count);
}

// The name of an indexed variable with computed indices, built when the run reaches it, into
// NameBuf, where a failure's message finds it. A built name ends in digits, so it is never the
// keyword "true" or "false".
MessageId Kalvos::LoadIndexed(const Code& code, std::uint32_t pc, double* slots) {
    const Instr& in = code.Instrs[pc];
    const std::uint32_t* aux = code.Aux + in.B;
    NameBuf.assign(code.Text + aux[0], aux[1]);
    for (std::uint32_t i = 0; i < in.A; ++i) {
        char digits[16];
        const auto converted =
            std::to_chars(digits, digits + sizeof digits, TruncToInt(slots[aux[2 + i]]));
        NameBuf.append(digits, converted.ptr);
    }
    const unsigned int idx = Vars->FindVar(NameBuf);
    if (idx == KalvosVars::kNoVar) return MessageId::NoVariable;
    if (!Vars->VarIsNum(idx)) return MessageId::NotNumeric;
    slots[in.Dst] = *Vars->GetNumAddress(idx);
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
