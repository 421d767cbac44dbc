#include "evaluator/BlockMachine.h"

#include <cmath>
#include <cstring>
#include <unordered_map>

// The steps' loops are compiled for each vector width an x86-64 processor may have, and the
// widest the processor has is chosen when the library is loaded: wider vectors do the same
// operations on more elements at a time, with the same results to the bit (the library is
// built without contraction into fused multiply-add). g++ only: the clones clang++ 14 made gave
// wrong results. Not under a sanitizer, whose instrumented chooser would run before the
// sanitizer's own start-up.
#if defined(__x86_64__) && defined(__linux__) && defined(__GNUC__) && !defined(__clang__) && \
    !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__) &&                       \
    !defined(KALVOS_BASELINE_ONLY)
#define KALVOS_VECTOR_WIDTHS __attribute__((target_clones("avx512f", "avx2", "default")))
#else
#define KALVOS_VECTOR_WIDTHS
#endif

#if defined(__GNUC__)
#define KALVOS_INLINE __attribute__((always_inline)) inline
#else
#define KALVOS_INLINE inline
#endif

namespace {

// A scalar that the prelude computes, told apart from a source while lowering; renumbered after
// the sources once they are all known.
constexpr std::uint32_t kComputed = 0x80000000u;
constexpr std::uint32_t kUnread = 0xFFFFFFFFu;

}  // namespace

// Walks the program once, in its order: each slot is bound to the value its last write left,
// so that a temporary written more than once is a new value each time. Then gives each vector
// value a buffer, reusing the buffer of a value no step reads any more.
class Kalvos::BlockMachine::Lowering {
public:
    Lowering(const Code& code, const std::vector<const double*>& addresses, Plan& plan)
        : C(code), P(plan), Slots(code.SlotCount), Bound(code.SlotCount, false) {
        for (std::uint32_t i = 0; i < addresses.size(); ++i) ColumnAt.emplace(addresses[i], i);
    }

    void Run() {
        for (std::uint32_t pc = 0; pc < C.InstrCount && !P.Elementwise; ++pc) {
            Instruction(C.Instrs[pc]);
        }
        if (P.Elementwise) return;
        P.Result = Operand(C.Result);
        if (P.Result.Vector) Read(P.Result.Index, static_cast<std::uint32_t>(P.Steps.size()));
        AllocateBuffers();
        Renumber();
    }

private:
    void Instruction(const Instr& in) {
        Ref operands[kMaxParameters];
        unsigned int count = 0;
        switch (in.Code) {
            case Op::Raise:
            case Op::CheckIndex:
            case Op::LoadIndexed:
                P.Elementwise = true;  // a fault of the text, or a name built by each element
                return;
            case Op::Call:
                if (!IsPureBuiltin(in.Function)) {
                    P.Elementwise = true;  // draws random numbers, or reads the store by name
                    return;
                }
                for (; count < in.Count; ++count)
                    operands[count] = Operand(C.Args[in.Extra + count]);
                break;
            case Op::CallUnary:  // only pure functions have this form
                operands[count++] = Operand(in.A);
                break;
            case Op::CallHost: {
                // Resolved for this call: none fails every element there, and an impure one
                // is called element after element, between the element's other calls.
                const HostFunction* function = in.Host->Function;
                if (function == nullptr || !function->Pure) {
                    P.Elementwise = true;
                    return;
                }
                P.Host = function;
                P.ThreadSafe = P.ThreadSafe && function->ThreadSafe;
                for (; count < in.Count; ++count)
                    operands[count] = Operand(C.Args[in.Extra + count]);
                break;
            }
            default:
                if (!IsPrefix(in.Code)) operands[count++] = Operand(in.A);
                operands[count++] = Operand(in.B);
                break;
        }
        bool vector = false;
        for (unsigned int i = 0; i < count; ++i) vector = vector || operands[i].Vector;
        const auto slot = static_cast<std::uint32_t>(in.Dst - C.Slots);
        Slots[slot] = vector ? AddStep(in, operands, count) : AddScalarStep(in, operands, count);
        Bound[slot] = true;
    }

    Ref AddScalarStep(const Instr& in, const Ref* operands, unsigned int count) {
        ScalarStep step;
        step.Code = in.Code;
        step.Count = in.Count;
        step.Function = in.Code == Op::Call ? in.Function : nullptr;
        step.Plain = in.Code == Op::CallUnary ? in.Plain : nullptr;
        step.Host = in.Code == Op::CallHost ? in.Host->Function : nullptr;
        step.Dst = kComputed | static_cast<std::uint32_t>(P.Prelude.size());
        if (in.Code == Op::Call || in.Code == Op::CallHost) {
            step.Args = static_cast<std::uint32_t>(P.ScalarArgs.size());
            for (unsigned int i = 0; i < count; ++i) P.ScalarArgs.push_back(operands[i].Index);
        } else {
            step.A = count == 2 ? operands[0].Index : 0;
            step.B = operands[count - 1].Index;
        }
        P.Prelude.push_back(step);
        return {step.Dst, false};
    }

    Ref AddStep(const Instr& in, const Ref* operands, unsigned int count) {
        const auto at = static_cast<std::uint32_t>(P.Steps.size());
        Step step;
        step.Count = in.Count;
        step.Function = in.Code == Op::Call ? in.Function : nullptr;
        step.Plain = in.Code == Op::CallUnary ? in.Plain : nullptr;
        step.Host = in.Code == Op::CallHost ? in.Host->Function : nullptr;
        step.Dst = kFirstStepValue + at;  // a value of its own, given a buffer later
        Shape shape = Shape::VV;
        if (in.Code == Op::Call || in.Code == Op::CallHost) {
            step.Args = static_cast<std::uint32_t>(P.CallArgs.size());
            P.CallArgs.insert(P.CallArgs.end(), operands, operands + count);
        } else {
            step.A = count == 2 ? operands[0] : Ref{};
            step.B = operands[count - 1];
            if (count == 2 && !step.A.Vector) shape = Shape::SV;
            if (count == 2 && !step.B.Vector) shape = Shape::VS;
            if (shape == Shape::VS && InfixOper(in.Code) == OP_Div) {
                P.ScalarDivisors.push_back(step.B.Index);
            }
        }
        step.Code = KindOf(in.Code);
        step.Form = shape;
        if (step.Code == Kind::Infix) step.Oper = InfixOper(in.Code);
        for (unsigned int i = 0; i < count; ++i) {
            if (operands[i].Vector) Read(operands[i].Index, at);
        }
        P.Steps.push_back(step);
        LastUse.push_back(kUnread);
        return {step.Dst, true};
    }

    // A number the program reads: what a slot holds now, a column, or a source.
    Ref Operand(const double* where) {
        const auto at = reinterpret_cast<std::uintptr_t>(where);
        const auto first = reinterpret_cast<std::uintptr_t>(C.Slots);
        if (at >= first && at - first < std::uintptr_t{C.SlotCount} * sizeof(double)) {
            const auto slot = static_cast<std::uint32_t>((at - first) / sizeof(double));
            if (Bound[slot]) return Slots[slot];  // else a constant
        } else if (const auto column = ColumnAt.find(where); column != ColumnAt.end()) {
            return {ColumnRef(column->second), true};
        }
        const auto source = SourceAt.emplace(where, static_cast<std::uint32_t>(P.Sources.size()));
        if (source.second) P.Sources.push_back(where);
        return {source.first->second, false};
    }

    std::uint32_t ColumnRef(std::uint32_t column) {
        const auto read = ColumnRefs.emplace(column, static_cast<std::uint32_t>(P.Columns.size()));
        if (read.second) P.Columns.push_back(column);
        return read.first->second;
    }

    void Read(std::uint32_t value, std::uint32_t step) {
        if (value >= kFirstStepValue) LastUse[value - kFirstStepValue] = step;
    }

    // The buffer of a step's value is taken before the buffers of its operands are given back,
    // so that no step writes where it reads: its loops may assume so.
    void AllocateBuffers() {
        std::vector<std::uint32_t> free;
        Buffer.assign(P.Steps.size(), 0);
        for (std::uint32_t at = 0; at < P.Steps.size(); ++at) {
            if (free.empty()) free.push_back(P.BufferCount++);
            Buffer[at] = free.back();
            free.pop_back();
            std::uint32_t read[kMaxParameters];
            const unsigned int count = StepValuesRead(P.Steps[at], read);
            for (unsigned int i = 0; i < count; ++i) {
                if (LastUse[read[i]] == at) free.push_back(Buffer[read[i]]);
            }
            if (LastUse[at] == kUnread) free.push_back(Buffer[at]);
        }
    }

    // The steps whose values a step reads, each once.
    unsigned int StepValuesRead(const Step& step, std::uint32_t* read) const {
        Ref operands[kMaxParameters] = {step.A, step.B};
        unsigned int operandCount = 2;
        if (step.Function != nullptr || step.Host != nullptr) {
            operandCount = step.Count;
            for (unsigned int i = 0; i < operandCount; ++i) operands[i] = P.CallArgs[step.Args + i];
        }
        unsigned int count = 0;
        for (unsigned int i = 0; i < operandCount; ++i) {
            if (!operands[i].Vector || operands[i].Index < kFirstStepValue) continue;
            const std::uint32_t value = operands[i].Index - kFirstStepValue;
            bool seen = false;
            for (unsigned int j = 0; j < count; ++j) seen = seen || read[j] == value;
            if (!seen) read[count++] = value;
        }
        return count;
    }

    // Vectors: the columns, then the buffers; scalars: the sources, then the prelude's values.
    void Renumber() {
        const auto columns = static_cast<std::uint32_t>(P.Columns.size());
        const auto sources = static_cast<std::uint32_t>(P.Sources.size());
        const auto vector = [&](std::uint32_t value) {
            return value < kFirstStepValue ? value : columns + Buffer[value - kFirstStepValue];
        };
        const auto scalar = [&](std::uint32_t value) {
            return (value & kComputed) != 0 ? sources + (value & ~kComputed) : value;
        };
        const auto ref = [&](Ref& r) { r.Index = r.Vector ? vector(r.Index) : scalar(r.Index); };
        for (std::size_t at = 0; at < P.Steps.size(); ++at) {
            Step& step = P.Steps[at];
            step.Dst = Buffer[at];
            ref(step.A);
            ref(step.B);
        }
        for (Ref& arg : P.CallArgs) ref(arg);
        ref(P.Result);
        for (ScalarStep& step : P.Prelude) {
            step.A = scalar(step.A);
            step.B = scalar(step.B);
            step.Dst = scalar(step.Dst);
        }
        for (std::uint32_t& arg : P.ScalarArgs) arg = scalar(arg);
        for (std::uint32_t& divisor : P.ScalarDivisors) divisor = scalar(divisor);
        P.ScalarCount = sources + static_cast<std::uint32_t>(P.Prelude.size());
    }

    // Column values are numbered below this, step values from it: a program reads at most one
    // column for each of its operands, far fewer than this.
    static constexpr std::uint32_t kFirstStepValue = 0x40000000u;

    const Code& C;
    Plan& P;
    std::vector<Ref> Slots;  // what each slot holds now, once bound
    std::vector<bool> Bound;
    std::unordered_map<const double*, std::uint32_t> ColumnAt;  // a column's number by address
    std::unordered_map<std::uint32_t, std::uint32_t> ColumnRefs;
    std::unordered_map<const double*, std::uint32_t> SourceAt;
    std::vector<std::uint32_t> LastUse;  // for each step's value, the last step that reads it
    std::vector<std::uint32_t> Buffer;   // for each step's value, its buffer
};

void Kalvos::BlockMachine::Lower(const Code& code, const std::vector<const double*>& addresses,
                                 Plan& plan) {
    plan = Plan{};
    // A variable that does not resolve fails every element where the text reads it.
    plan.Elementwise = code.FirstFault < code.LinkCount;
    if (!plan.Elementwise) Lowering(code, addresses, plan).Run();
}

Kalvos::TpOper Kalvos::BlockMachine::InfixOper(Op code) {
    const auto form = static_cast<unsigned int>(code) - static_cast<unsigned int>(Op::MulMM);
    return static_cast<TpOper>(OP_Mul + form / 3);
}

// A fault is noted and the step's value left undefined: the prelude's faults are met by every
// element, which then runs alone and raises.
double Kalvos::BlockMachine::ApplyScalar(const ScalarStep& step, const double* scalars, bool& fault,
                                         const Plan& plan, const Kalvos& evaluator) {
    if (step.Code == Op::CallHost) {
        double values[kMaxParameters];
        for (unsigned int i = 0; i < step.Count; ++i) {
            values[i] = scalars[plan.ScalarArgs[step.Args + i]];
        }
        double value = 0.0;
        fault = fault || !HostValue(*step.Host, values, step.Count, value);
        return value;
    }
    if (step.Code == Op::Call) {
        double values[kMaxParameters];
        for (unsigned int i = 0; i < step.Count; ++i)
            values[i] = scalars[plan.ScalarArgs[step.Args + i]];
        const double value = step.Function(evaluator, values, step.Count);
        fault = fault || !std::isfinite(value);
        return value;
    }
    const double b = scalars[step.B];
    if (step.Code == Op::CallUnary) {
        const double value = step.Plain(b);
        fault = fault || !std::isfinite(value);
        return value;
    }
    if (IsPrefix(step.Code)) return ApplyPrefix(step.Code >= Op::NotM ? OP_Not : OP_None, b);
    const TpOper oper = InfixOper(step.Code);
    if (oper == OP_Div && b == 0.0) {
        fault = true;
        return 0.0;
    }
    return ApplyOperator(oper, scalars[step.A], b);
}

bool Kalvos::BlockMachine::RunPrelude(const Plan& plan, const Kalvos& evaluator, double* scalars) {
    for (std::size_t i = 0; i < plan.Sources.size(); ++i) scalars[i] = *plan.Sources[i];
    bool fault = false;
    for (const ScalarStep& step : plan.Prelude) {
        scalars[step.Dst] = ApplyScalar(step, scalars, fault, plan, evaluator);
        if (fault) return false;
    }
    for (const std::uint32_t divisor : plan.ScalarDivisors) {
        if (scalars[divisor] == 0.0) return false;
    }
    return true;
}

// ---- The kernels ----------------------------------------------------------------------------
// Each loop does for every element what the one-element run does for one: the same operation
// (ApplyOperator, ApplyPrefix, the same built-in function), on the same numbers. The kernels are
// inlined into RunSteps, which is compiled for each vector width the processor may have.

Kalvos::BlockMachine::Kind Kalvos::BlockMachine::KindOf(Op code) {
    if (code == Op::Call) return Kind::Call;
    if (code == Op::CallUnary) return Kind::CallUnary;
    if (code == Op::CallHost) return Kind::CallHost;
    if (IsPrefix(code)) return code >= Op::NotM ? Kind::Not : Kind::Neg;
    return Kind::Infix;
}

template <Kalvos::TpOper kOper>
KALVOS_INLINE bool Kalvos::BlockMachine::Infix(const Step& step, const Frame& frame, Shape shape,
                                               std::size_t count) {
    double* KALVOS_RESTRICT dst = frame.Buffers + std::size_t{step.Dst} * kBlock;
    if (shape == Shape::VV) {
        const double* KALVOS_RESTRICT a = frame.Vectors[step.A.Index];
        const double* KALVOS_RESTRICT b = frame.Vectors[step.B.Index];
        for (std::size_t i = 0; i < count; ++i) dst[i] = ApplyOperator(kOper, a[i], b[i]);
    } else if (shape == Shape::VS) {
        const double* KALVOS_RESTRICT a = frame.Vectors[step.A.Index];
        const double b = frame.Scalars[step.B.Index];
        for (std::size_t i = 0; i < count; ++i) dst[i] = ApplyOperator(kOper, a[i], b);
    } else {
        const double a = frame.Scalars[step.A.Index];
        const double* KALVOS_RESTRICT b = frame.Vectors[step.B.Index];
        for (std::size_t i = 0; i < count; ++i) dst[i] = ApplyOperator(kOper, a, b[i]);
    }
    return false;
}

// A zero divisor ends the step before anything is divided: the block runs again element by
// element, where the element raises before it divides. A scalar divisor was looked at once,
// by RunPrelude.
KALVOS_INLINE bool Kalvos::BlockMachine::Divide(const Step& step, const Frame& frame, Shape shape,
                                                std::size_t count) {
    if (shape != Shape::VS) {
        const double* KALVOS_RESTRICT b = frame.Vectors[step.B.Index];
        double nonzero = 1.0;
        for (std::size_t i = 0; i < count; ++i) nonzero = b[i] == 0.0 ? 0.0 : nonzero;
        if (nonzero == 0.0) return true;
    }
    return Infix<OP_Div>(step, frame, shape, count);
}

template <Kalvos::TpOper kOper>
KALVOS_INLINE bool Kalvos::BlockMachine::Prefix(const Step& step, const Frame& frame,
                                                std::size_t count) {
    double* KALVOS_RESTRICT dst = frame.Buffers + std::size_t{step.Dst} * kBlock;
    const double* KALVOS_RESTRICT b = frame.Vectors[step.B.Index];
    for (std::size_t i = 0; i < count; ++i) dst[i] = ApplyPrefix(kOper, b[i]);
    return false;
}

// Where a call's parameters are: an element's is at its index in a vector, or the scalar.
KALVOS_INLINE void Kalvos::BlockMachine::CallSources(const Step& step, const Frame& frame,
                                                     const double** sources, std::size_t* strides) {
    for (unsigned int p = 0; p < step.Count; ++p) {
        const Ref& arg = frame.CallArgs[step.Args + p];
        sources[p] = arg.Vector ? frame.Vectors[arg.Index] : frame.Scalars + arg.Index;
        strides[p] = arg.Vector ? 1 : 0;
    }
}

KALVOS_INLINE bool Kalvos::BlockMachine::CallBuiltin(const Step& step, const Frame& frame,
                                                     std::size_t count) {
    double* KALVOS_RESTRICT dst = frame.Buffers + std::size_t{step.Dst} * kBlock;
    const double* sources[kMaxParameters];
    std::size_t strides[kMaxParameters];
    CallSources(step, frame, sources, strides);
    bool fault = false;
    for (std::size_t i = 0; i < count; ++i) {
        double values[kMaxParameters];
        for (unsigned int p = 0; p < step.Count; ++p) values[p] = sources[p][i * strides[p]];
        const double value = step.Function(*frame.Evaluator, values, step.Count);
        fault = fault || !std::isfinite(value);
        dst[i] = value;
    }
    return fault;
}

// The plain function of each element's parameter; the values are looked at afterwards, in a
// loop of their own that is vectorised.
KALVOS_INLINE bool Kalvos::BlockMachine::CallUnary(const Step& step, const Frame& frame,
                                                   std::size_t count) {
    double* KALVOS_RESTRICT dst = frame.Buffers + std::size_t{step.Dst} * kBlock;
    const double* KALVOS_RESTRICT b = frame.Vectors[step.B.Index];
    const Unary plain = step.Plain;
    for (std::size_t i = 0; i < count; ++i) dst[i] = plain(b[i]);
    double finite = 1.0;
    for (std::size_t i = 0; i < count; ++i) finite = std::isfinite(dst[i]) ? finite : 0.0;
    return finite == 0.0;
}

// A host function's exception, or a value that is not finite, is a fault of the block: run
// again element by element, the element calls the function again, and raises.
KALVOS_INLINE bool Kalvos::BlockMachine::HostValue(const HostFunction& function,
                                                   const double* values, unsigned int count,
                                                   double& value) {
    try {
        value = function.Compute(values, count);
    } catch (...) {
        return false;
    }
    return std::isfinite(value);
}

KALVOS_INLINE bool Kalvos::BlockMachine::CallHost(const Step& step, const Frame& frame,
                                                  std::size_t count) {
    double* KALVOS_RESTRICT dst = frame.Buffers + std::size_t{step.Dst} * kBlock;
    const double* sources[kMaxParameters];
    std::size_t strides[kMaxParameters];
    CallSources(step, frame, sources, strides);
    if (step.Count == 1 && strides[0] == 1) {  // each element's parameter handed where it is
        for (std::size_t i = 0; i < count; ++i) {
            if (!HostValue(*step.Host, sources[0] + i, 1, dst[i])) return true;
        }
        return false;
    }
    for (std::size_t i = 0; i < count; ++i) {
        double values[kMaxParameters];
        for (unsigned int p = 0; p < step.Count; ++p) values[p] = sources[p][i * strides[p]];
        if (!HostValue(*step.Host, values, step.Count, dst[i])) return true;
    }
    return false;
}

KALVOS_INLINE bool Kalvos::BlockMachine::RunStep(const Step& step, const Frame& frame,
                                                 std::size_t count) {
    switch (step.Code) {
        case Kind::Neg:
            return Prefix<OP_None>(step, frame, count);
        case Kind::Not:
            return Prefix<OP_Not>(step, frame, count);
        case Kind::Call:
            return CallBuiltin(step, frame, count);
        case Kind::CallUnary:
            return CallUnary(step, frame, count);
        case Kind::CallHost:
            return CallHost(step, frame, count);
        case Kind::Infix:
            break;
    }
    switch (step.Oper) {
        case OP_Mul:
            return Infix<OP_Mul>(step, frame, step.Form, count);
        case OP_Div:
            return Divide(step, frame, step.Form, count);
        case OP_Add:
            return Infix<OP_Add>(step, frame, step.Form, count);
        case OP_Sub:
            return Infix<OP_Sub>(step, frame, step.Form, count);
        case OP_Eq:
            return Infix<OP_Eq>(step, frame, step.Form, count);
        case OP_Neq:
            return Infix<OP_Neq>(step, frame, step.Form, count);
        case OP_Lt:
            return Infix<OP_Lt>(step, frame, step.Form, count);
        case OP_Gt:
            return Infix<OP_Gt>(step, frame, step.Form, count);
        case OP_Le:
            return Infix<OP_Le>(step, frame, step.Form, count);
        case OP_Ge:
            return Infix<OP_Ge>(step, frame, step.Form, count);
        case OP_And:
            return Infix<OP_And>(step, frame, step.Form, count);
        default:
            return Infix<OP_Or>(step, frame, step.Form, count);
    }
}

KALVOS_VECTOR_WIDTHS
bool Kalvos::BlockMachine::RunSteps(const Plan& plan, const Frame& frame) {
    // A whole block's loops have a constant count, so that they are vectorised without a
    // remainder; RunStep is inlined into both calls.
    const std::size_t count = frame.Count;
    for (const Step& step : plan.Steps) {
        if (count == kBlock ? RunStep(step, frame, kBlock) : RunStep(step, frame, count)) {
            return false;
        }
    }
    return true;
}
