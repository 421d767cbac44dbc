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
// resolve stops the run where the text reads it.
double Kalvos::Run(Code& code) {
    if (code.LinkedVersion != Vars->GetVersion()) Relink(code);
    double* const v = code.Slots;
    for (std::uint32_t i = 0; i < code.LinkCount; ++i) v[code.Links[i].Slot] = *code.Links[i].Value;
    const bool faulty = code.FirstFault < code.LinkCount;
    const std::uint32_t end = faulty ? code.Links[code.FirstFault].Pc : code.InstrCount;
    for (std::uint32_t pc = 0; pc < end; ++pc) {
        const Instr& in = code.Instrs[pc];
        switch (in.Code) {
            case Op::Neg:
                v[in.Dst] = -v[in.A];
                break;
            case Op::Not:
                v[in.Dst] = v[in.A] == 0.0 ? 1.0 : 0.0;
                break;
            case Op::Mul:
                v[in.Dst] = v[in.A] * v[in.B];
                break;
            case Op::Div:
                if (v[in.B] == 0.0) RaiseAt(code, pc, MessageId::DivisionByZero);
                v[in.Dst] = v[in.A] / v[in.B];
                break;
            case Op::Add:
                v[in.Dst] = v[in.A] + v[in.B];
                break;
            case Op::Sub:
                v[in.Dst] = v[in.A] - v[in.B];
                break;
            case Op::Eq:
            case Op::Neq:
            case Op::Lt:
            case Op::Gt:
            case Op::Le:
            case Op::Ge:
            case Op::And:
            case Op::Or:
                v[in.Dst] = ApplyOperator(static_cast<TpOper>(in.Code), v[in.A], v[in.B]);
                break;
            case Op::Call:
                v[in.Dst] = CallAt(code, pc, v);
                break;
            case Op::CheckIndex:
                if (TruncToInt(v[in.A]) < 0) RaiseAt(code, pc, MessageId::NegativeIndex);
                break;
            case Op::LoadIndexed:
                v[in.Dst] = LoadIndexed(code, pc, v);
                break;
            case Op::Raise:
                RaiseAt(code, pc, SiteAt(code, pc).Id);
        }
    }
    if (faulty) RaiseLink(code, code.Links[code.FirstFault]);
    return v[code.Result];
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

// Every parameter was evaluated before the call; the result must be a finite number.
double Kalvos::CallAt(const Code& code, std::uint32_t pc, const double* slots) {
    const Instr& in = code.Instrs[pc];
    double values[kMaxParameters];
    for (unsigned int i = 0; i < in.Count; ++i) values[i] = slots[code.Aux[in.B + i]];
    const double value = CallBuiltin(in.A, values, in.Count);
    if (CheckNumberValue(value) != 0) RaiseAt(code, pc, MessageId::InvalidResult, {}, value);
    return value;
}

// The name of an indexed variable with computed indices, built when the run reaches it.
double Kalvos::LoadIndexed(const Code& code, std::uint32_t pc, const double* slots) {
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
    if (idx == KalvosVars::kNoVar) {
        if (EqualsLower(NameBuf, "true")) return 1.0;
        if (EqualsLower(NameBuf, "false")) return 0.0;
        RaiseAt(code, pc, MessageId::NoVariable, NameBuf);
    }
    if (!Vars->VarIsNum(idx)) RaiseAt(code, pc, MessageId::NotNumeric, NameBuf);
    return *Vars->GetNumAddress(idx);
}

const Kalvos::Site& Kalvos::SiteAt(const Code& code, std::uint32_t pc) {
    const Site* end = code.Sites + code.SiteCount;
    return *std::lower_bound(code.Sites, end, pc,
                             [](const Site& site, std::uint32_t key) { return site.Pc < key; });
}

// Every failure of a run is raised here, from the site of the instruction that met it.
void Kalvos::RaiseAt(const Code& code, std::uint32_t pc, MessageId id, std::string_view name,
                     double value) const {
    const Site& site = SiteAt(code, pc);
    const std::string_view text1(code.Text + site.Begin1, site.Length1);
    const std::string_view text2(code.Text + site.Begin2, site.Length2);
    const int line = site.Line;
    const std::string_view error = ErrorText;
    switch (id) {
        case MessageId::ExpressionEmpty:
            Raise<MessageId::ExpressionEmpty>(line, error);
        case MessageId::NegativeIndex:
            Raise<MessageId::NegativeIndex>(line, error, text1, text2);
        case MessageId::NoToken:
            Raise<MessageId::NoToken>(line, error, text1, site.Number);
        case MessageId::BadNumber:
            Raise<MessageId::BadNumber>(line, error, text1, site.Number);
        case MessageId::BadOperator:
            Raise<MessageId::BadOperator>(line, error, text1, site.Number);
        case MessageId::NotNumeric:
            Raise<MessageId::NotNumeric>(line, error, text1, name);
        case MessageId::NoVariable:
            Raise<MessageId::NoVariable>(line, error, text1, name);
        case MessageId::TooManyParameters:
            Raise<MessageId::TooManyParameters>(line, error, text1, text2);
        case MessageId::FunctionNotFound:
            Raise<MessageId::FunctionNotFound>(line, error, text1, text2, site.Number);
        case MessageId::InvalidResult:
            Raise<MessageId::InvalidResult>(line, error, text1, text2, value,
                                            ResultLabel(CheckNumberValue(value)));
        default:
            RaiseText(id, line, text1);
    }
}

void Kalvos::RaiseLink(const Code& code, const Link& link) const {
    const std::string_view level(code.Text + link.LevelBegin, link.LevelLength);
    const std::string_view name = LinkName(code, link);
    if (link.Fault == MessageId::NotNumeric) {
        Raise<MessageId::NotNumeric>(link.Line, ErrorText, level, name);
    }
    Raise<MessageId::NoVariable>(link.Line, ErrorText, level, name);
}

// The messages that name one text.
void Kalvos::RaiseText(MessageId id, int line, std::string_view text) const {
    const std::string_view error = ErrorText;
    switch (id) {
        case MessageId::ParenthesesWrong:
            Raise<MessageId::ParenthesesWrong>(line, error, text);
        case MessageId::ExpressionInvalid:
            Raise<MessageId::ExpressionInvalid>(line, error, text);
        case MessageId::TooManyParts:
            Raise<MessageId::TooManyParts>(line, error, text);
        case MessageId::DivisionByZero:
            Raise<MessageId::DivisionByZero>(line, error, text);
        case MessageId::NoEndOfParentheses:
            Raise<MessageId::NoEndOfParentheses>(line, error, text);
        case MessageId::NoEndOfBrackets:
            Raise<MessageId::NoEndOfBrackets>(line, error, text);
        default:
            Raise<MessageId::NestingTooDeep>(line, error, text);
    }
}
