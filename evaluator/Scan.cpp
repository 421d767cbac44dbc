#include "evaluator/Kalvos.h"
#include "support/KalvosVars.h"

// Reads the frame's text token by token, the first character choosing the reader: "(" a
// group, a name's first character a variable or a call, a digit a number, anything else an
// operator. Gives true when the text is read to its end; false when a level above it has to
// be read first, or reading met a fault.
bool Kalvos::ScanLevel(Frame& frame) {
    Builder& w = Work;
    while (frame.Pos < frame.End) {
        if (w.Elems.size() - frame.ElemStart >= kMaxElements) {
            Fail(MessageId::TooManyParts, __LINE__, frame.Begin, frame.End);
            return false;
        }
        const std::string_view rest(w.Text.data() + frame.Pos, frame.End - frame.Pos);
        const char first = rest[0];
        if (first == '(') {
            const std::uint32_t close =
                SpanEndAt(frame, frame.Pos, MessageId::NoEndOfParentheses, __LINE__);
            if (w.Done) return false;
            frame.Waiting = Wait::Group;
            frame.Resume = close + 1;
            OpenLevel(frame.Pos + 1, close, frame.Depth + 1);
            return false;
        }
        if (KalvosVars::FirstCharValid(first)) {
            const auto nameEnd = static_cast<std::uint32_t>(frame.Pos + ScanName(rest));
            if (nameEnd < frame.End && w.Text[nameEnd] == '(') {
                const std::uint32_t close =
                    SpanEndAt(frame, nameEnd, MessageId::NoEndOfParentheses, __LINE__);
                if (w.Done) return false;
                OpenCall(frame, frame.Pos, nameEnd, nameEnd + 1, close, close + 1);
            } else {
                frame.NameBegin = frame.Pos;
                frame.NameEnd = frame.Pos = nameEnd;
                frame.OperandStart = static_cast<std::uint32_t>(w.Operands.size());
                if (nameEnd < frame.End && w.Text[nameEnd] == '[') {
                    OpenIndex(frame);
                } else {
                    PushNumber(LinkVariable(frame.Begin, frame.End, frame.NameBegin,
                                            rest.substr(0, nameEnd - frame.NameBegin)));
                }
            }
            if (w.Done || frame.Waiting != Wait::None) return false;
        } else if (KalvosVars::IsDigit(first)) {
            double value = 0.0;
            const std::size_t length = ScanNumber(rest, value);
            if (length == 0) {
                Fail(MessageId::BadNumber, __LINE__, frame.Begin, frame.End, 0, 0,
                     static_cast<int>(frame.Pos - frame.Begin));
                return false;
            }
            frame.Pos += static_cast<std::uint32_t>(length);
            PushNumber({value, 0, true, false});
        } else {
            ScanOperator(frame);
            if (w.Done) return false;
        }
    }
    return frame.Waiting == Wait::None;
}

// Only "!" and "-" may follow another operator; the test needs two elements read, so an
// operator after a single leading operator fails in the reduction instead.
void Kalvos::ScanOperator(Frame& frame) {
    Builder& w = Work;
    unsigned int length = 0;
    const std::string_view rest(w.Text.data() + frame.Pos, frame.End - frame.Pos);
    const TpOper oper = ScanOperatorToken(rest, length);
    if (oper == OP_None) {
        return Fail(MessageId::NoToken, __LINE__, frame.Begin, frame.End, 0, 0,
                    static_cast<int>(frame.Pos - frame.Begin));
    }
    frame.Pos += length;
    const std::size_t count = w.Elems.size() - frame.ElemStart;
    if (count >= 2 && w.Elems.back().Oper != OP_None && oper != OP_Not && oper != OP_Sub) {
        return Fail(MessageId::BadOperator, __LINE__, frame.Begin, frame.End, 0, 0,
                    static_cast<int>(frame.Pos - frame.Begin));
    }
    // "!" is always a prefix; "-" is one first in the level or after another operator. A
    // "-" that cannot become one keeps its infix pass only.
    const bool prefix =
        oper == OP_Not || (oper == OP_Sub && (count == 0 || w.Elems.back().Oper != OP_None));
    if (prefix) frame.PassesUsed |= 1u;
    const unsigned int pass = OperatorPass(oper);
    if (pass < kPasses) frame.PassesUsed |= 1u << pass;
    w.Elems.push_back({0.0, 0, false, false, static_cast<std::uint8_t>(oper)});
}
