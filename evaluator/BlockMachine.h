#pragma once

// The block machine: a compiled program run over many elements at a time, for the bulk calls.
// Internal to the library; not installed.
//
// A program is lowered for blocks against the columns of a call. Every value of the program is
// then a vector, one number for each element of a block (a column, or a buffer that an
// instruction writes), or a scalar, one number for the whole call (a constant, a variable of
// the store that is no column, or what an instruction computes from scalars alone). The
// instructions of scalars form the prelude, run once a call; the others are steps, each run
// over the whole block before the next, in the program's order. Each element of a block thus
// meets the operations that a run of the program alone would do, in the same order, on the
// same numbers: the same bits.
//
// A block machine does not raise. A step that meets a fault (a division by zero, a call's value
// that is not finite) says so, and the caller runs the block again element by element, where
// the first failing element raises exactly as it would alone.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "evaluator/Kalvos.h"

#if defined(__GNUC__) || defined(_MSC_VER)
#define KALVOS_RESTRICT __restrict
#else
#define KALVOS_RESTRICT
#endif

struct Kalvos::BlockMachine {
    /// Elements a step runs over before the next step: enough that dispatching a step costs
    /// little beside its loop, few enough that the buffers of a program's live values stay in
    /// the processor's first-level cache.
    static constexpr std::size_t kBlock = 128;

    /// A value of the machine: a vector (by its index in Frame::Vectors) or a scalar (by its
    /// index in the call's scalars).
    struct Ref {
        std::uint32_t Index = 0;
        bool Vector = false;
    };

    /// What a step does: a prefix operator, a call, or an infix operator, whose operands are
    /// in one of three shapes: both vectors, the right one a scalar, the left one a scalar.
    enum class Kind : std::uint8_t { Neg, Not, Call, CallUnary, CallHost, Infix };
    enum class Shape : std::uint8_t { VV, VS, SV };

    /// An instruction over vectors.
    struct Step {
        Kind Code = Kind::Neg;
        TpOper Oper = OP_None;  // an infix operator's
        Shape Form = Shape::VV;
        std::uint8_t Count = 0;
        std::uint32_t Dst = 0;   // a buffer
        Ref A, B;                // the operands; a prefix operator's and a plain call's is B
        std::uint32_t Args = 0;  // a call's operands, from Plan::CallArgs
        Builtin Function = nullptr;
        Unary Plain = nullptr;
        const HostFunction* Host = nullptr;
    };

    /// An instruction of scalars, run once a call: its operands and result are scalars.
    struct ScalarStep {
        Op Code = Op::Raise;
        std::uint8_t Count = 0;
        std::uint32_t A = 0, B = 0, Dst = 0;
        std::uint32_t Args = 0;  // a call's operands, from Plan::ScalarArgs
        Builtin Function = nullptr;
        Unary Plain = nullptr;
        const HostFunction* Host = nullptr;
    };

    /// A program lowered against the columns of a call.
    struct Plan {
        /// The program cannot run by blocks: it runs element by element.
        bool Elementwise = false;
        /// A host function it calls, if any; and whether all of them may run on several threads.
        const HostFunction* Host = nullptr;
        bool ThreadSafe = true;
        /// Scalars[0, Sources.size()) are read from here at the start of a call: constants, and
        /// variables of the store, columns of stride 0 among them.
        std::vector<const double*> Sources;
        std::vector<ScalarStep> Prelude;  // then the prelude computes the rest, in order
        std::vector<std::uint32_t> ScalarArgs;
        std::uint32_t ScalarCount = 0;
        /// Scalars that steps divide by: zero fails every element.
        std::vector<std::uint32_t> ScalarDivisors;
        /// The columns read as vectors, by their number in the call: Vectors[0, n).
        std::vector<std::uint32_t> Columns;
        /// The buffers the steps write: Vectors[n, n + BufferCount).
        std::uint32_t BufferCount = 0;
        std::vector<Step> Steps;
        std::vector<Ref> CallArgs;
        Ref Result;
    };

    /// One block as the steps see it.
    struct Frame {
        const double* const* Vectors = nullptr;
        double* Buffers = nullptr;  // BufferCount blocks
        const double* Scalars = nullptr;
        const Ref* CallArgs = nullptr;
        const Kalvos* Evaluator = nullptr;  // what a built-in function is handed
        std::size_t Count = 0;              // elements in this block
    };

    /// Lowers linked code for a call whose columns of nonzero stride number `columns` in the
    /// store (`addresses`, where their numbers live; their Ref is their index here).
    static void Lower(const Code& code, const std::vector<const double*>& addresses, Plan& plan);
    /// Reads the sources and runs the prelude into `scalars`; false when the prelude met a
    /// fault or a step would divide by a zero scalar: every element then fails.
    static bool RunPrelude(const Plan& plan, const Kalvos& evaluator, double* scalars);
    /// Runs the steps over one block; false when a step met a fault.
    static bool RunSteps(const Plan& plan, const Frame& frame);

private:
    class Lowering;

    static bool IsPrefix(Op code) { return code <= Op::NotA; }
    static TpOper InfixOper(Op code);
    static Kind KindOf(Op code);
    static double ApplyScalar(const ScalarStep& step, const double* scalars, bool& fault,
                              const Plan& plan, const Kalvos& evaluator);
    static bool RunStep(const Step& step, const Frame& frame, std::size_t count);
    template <TpOper kOper>
    static bool Infix(const Step& step, const Frame& frame, Shape shape, std::size_t count);
    static bool Divide(const Step& step, const Frame& frame, Shape shape, std::size_t count);

    template <TpOper kOper>
    static bool Prefix(const Step& step, const Frame& frame, std::size_t count);
    static void CallSources(const Step& step, const Frame& frame, const double** sources,
                            std::size_t* strides);
    static bool CallBuiltin(const Step& step, const Frame& frame, std::size_t count);
    static bool CallUnary(const Step& step, const Frame& frame, std::size_t count);
    static bool CallHost(const Step& step, const Frame& frame, std::size_t count);
    /// A pure host function's value; false when it raised or the value is not finite.
    static bool HostValue(const HostFunction& function, const double* values, unsigned int count,
                          double& value);
};
