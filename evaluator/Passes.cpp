#include "evaluator/Kalvos.h"

// Seven passes, tightest binding first: 0 prefix "!" and "-"; 1 "*" "/"; 2 "+" "-";
// 3 "<" ">" "<=" ">="; 4 "==" "!="; 5 "@@"; 6 "||". Passes whose operators the level lacks
// are skipped, since they would find nothing to reduce. Operators of constants are applied
// now; the others become instructions, in the order the reduction applies them.
Kalvos::Operand Kalvos::ReduceLevel(Frame& frame) {
    Element* list = Work.Elems.data() + frame.ElemStart;
    auto count = static_cast<std::uint32_t>(Work.Elems.size() - frame.ElemStart);
    if ((frame.PassesUsed & 1u) != 0) ApplyPrefixOperators(list, count);
    for (unsigned int pass = 1; pass < kPasses; ++pass) {
        if ((frame.PassesUsed & (1u << pass)) == 0) continue;
        if (!ApplyInfixOperators(pass, frame, list, count)) return {};
    }
    if (count != 1 || list[0].Oper != OP_None) {
        Fail(MessageId::ExpressionInvalid, __LINE__, frame.Begin, frame.End);
        return {};
    }
    return list[0];
}

// Reducing the leftmost applicable prefix operator again and again applies every chain from
// the operator nearest to its number outwards, and chains do not affect one another: an
// operator in front of a prefix operator stays an operator until that one is applied. So one
// sweep from the right gives the same list, and since negation and "!" cannot fail, the
// order in which the chains are applied is not seen.
void Kalvos::ApplyPrefixOperators(Element* list, std::uint32_t& count) {
    std::uint32_t out = count;  // list[out, count) is the reduced tail
    for (std::uint32_t in = count; in-- > 0;) {
        const Element element = list[in];
        const bool numberFollows = out < count && list[out].Oper == OP_None;
        const bool isPrefix = element.Oper == OP_Not ||
                              (element.Oper == OP_Sub && (in == 0 || list[in - 1].Oper != OP_None));
        if (element.Oper != OP_None && numberFollows && isPrefix) {
            list[out] = Combine(element.Oper == OP_Not ? OP_Not : OP_None, list[out], list[out]);
        } else {
            list[--out] = element;
        }
    }
    for (std::uint32_t i = out; i < count; ++i) list[i - out] = list[i];
    count -= out;
}

// Reducing the leftmost applicable operator of the pass again and again groups from the left,
// and within an infix pass no operator ever becomes a number, so an operator passed over stays
// inapplicable. One sweep that folds each operator into the number before it therefore gives
// the same results, in the same order, and the same first failure. False when a division by
// a constant zero ends the reading.
bool Kalvos::ApplyInfixOperators(std::uint32_t pass, const Frame& frame, Element* list,
                                 std::uint32_t& count) {
    std::uint32_t out = 0;  // list[0, out) is the reduced head
    for (std::uint32_t in = 0; in < count; ++in) {
        const Element element = list[in];
        const bool applies = element.Oper != OP_None &&
                             OperatorPass(static_cast<TpOper>(element.Oper)) == pass && out > 0 &&
                             list[out - 1].Oper == OP_None && in + 1 < count &&
                             list[in + 1].Oper == OP_None;
        if (!applies) {
            list[out++] = element;
            continue;
        }
        const Operand& b = list[in + 1];
        if (element.Oper == OP_Div) {
            if (b.Constant && b.Value == 0.0) {
                Fail(MessageId::DivisionByZero, __LINE__, frame.Begin, frame.End);
                return false;
            }
            if (!b.Constant || !list[out - 1].Constant) {
                AddSite(MessageId::DivisionByZero, __LINE__, frame.Begin, frame.End);
            }
        }
        list[out - 1] = Combine(static_cast<TpOper>(element.Oper), list[out - 1], b);
        ++in;
    }
    count = out;
    return true;
}

// The value of `a oper b`, or for the prefix operators (OP_Not, and OP_None for negation)
// of the operator applied to b: computed now when constant, else by an instruction that
// writes its result over a temporary operand, which nothing else reads.
Kalvos::Operand Kalvos::Combine(TpOper oper, const Operand& a, const Operand& b) {
    const bool prefix = oper == OP_None || oper == OP_Not;
    if (b.Constant && (prefix || a.Constant)) {
        if (prefix) return {ApplyPrefix(oper, b.Value), 0, true, false};
        return {ApplyOperator(oper, a.Value, b.Value), 0, true, false};
    }
    const Operand& reused = prefix || !a.Temporary ? b : a;
    const std::uint32_t dst = reused.Temporary ? reused.Where : NewTemporary();
    const Ref left = prefix ? 0 : RefOf(a);
    const Ref right = RefOf(b);
    Emit({FormOf(oper, left, right), 0, 0, 0, left, right, dst}, true);
    return {0.0, dst, false, true};
}

// The form that reads the accumulator for the operand the instruction before left there.
Kalvos::Op Kalvos::FormOf(TpOper oper, Ref a, Ref b) const {
    const std::uint32_t acc = Work.AccSlot;
    if (oper == OP_None || oper == OP_Not) {
        const auto first = static_cast<unsigned int>(oper == OP_Not ? Op::NotM : Op::NegM);
        return static_cast<Op>(first + (b == acc ? 1u : 0u));
    }
    const Form form = a == acc ? Form::AM : b == acc ? Form::MA : Form::MM;
    static_assert(static_cast<unsigned int>(Op::OrMA) - static_cast<unsigned int>(Op::MulMM) ==
                      3 * (OP_Or - OP_Mul) + 2,
                  "three forms for each infix operator, in the order of TpOper");
    return static_cast<Op>(static_cast<unsigned int>(Op::MulMM) + 3 * (oper - OP_Mul) +
                           static_cast<unsigned int>(form));
}
