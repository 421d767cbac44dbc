#include "evaluator/Bulk.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <system_error>

#include "support/KalvosVars.h"

namespace {

double ValueAt(const char* base, std::size_t stride, std::size_t i) {
    double value = 0.0;
    std::memcpy(&value, base + i * stride, sizeof value);  // the stride may leave it unaligned
    return value;
}

// The end of `count` items of `size` bytes, `stride` apart, from `begin`; false when it lies
// past the end of memory.
bool EndOf(std::uintptr_t begin, std::size_t count, std::size_t stride, std::size_t size,
           std::uintptr_t& end) {
    const std::uintptr_t max = static_cast<std::uintptr_t>(-1);
    if (stride != 0 && count - 1 > (max - size) / stride) return false;
    const std::uintptr_t span = (count - 1) * stride + size;
    if (span > max - begin) return false;
    end = begin + span;
    return true;
}

}  // namespace

void Kalvos::ComputeCompiled(const CompiledExpr& compiled, std::size_t count,
                             const std::vector<Column>& columns, double* out) {
    CheckNotInHost("ComputeCompiled");
    Bulk& bulk = *BulkWork;
    bulk.FailedElement = kNoElement;
    if (count == 0) return;
    Bulk::Check(*this, compiled, count, columns, out);
    // The loop's first element sets its columns as SetVarNum does, then meets the handle.
    bulk.FailedElement = 0;
    bulk.Bind(*Vars, columns, count);
    Enter(compiled);
    Code& code = Active->Prog.Get()->Body;
    if (code.LinkedVersion != Vars->GetVersion()) Relink(code);
    for (std::uint32_t i = 0; i < code.HostCount; ++i) {
        if (code.Hosts[i].Version != HostVersion) ResolveHost(code, code.Hosts[i]);
    }
    const BlockMachine::Plan& plan = bulk.PlanFor(*this, code);
    std::size_t done = 0;
    if (!plan.Elementwise) {
        const std::uint64_t version = Vars->GetVersion();
        {
            const HostScope scope(*this, plan.Host);
            done = bulk.RunBlocks(*this, plan, count, out);
        }
        if (Vars->GetVersion() != version) {
            Raise<MessageId::BulkStoreChanged>(__LINE__, compiled.GetErrorText(),
                                               compiled.GetExprText());
        }
    }
    bulk.RunElements(*this, code, done, count, out);
    for (const Bulk::Input& input : bulk.Inputs) *input.Variable = input.Last;
    bulk.FailedElement = kNoElement;
}

std::size_t Kalvos::GetFailedElement() const { return BulkWork->FailedElement; }

void Kalvos::SetThreads(unsigned int threads) {
    if (threads < 1 || threads > kMaxThreads)
        Raise<MessageId::ThreadCount>(__LINE__, "", threads, kMaxThreads);
    CheckNotInHost("SetThreads");
    Bulk& bulk = *BulkWork;
    if (threads == bulk.Threads) return;
    bulk.Pool.reset();
    bulk.Threads = 1;
    if (threads > 1) {
        try {
            bulk.Pool = std::make_unique<WorkerPool>(threads - 1);
        } catch (const std::system_error& error) {
            Raise<MessageId::ThreadsNotStarted>(__LINE__, "", error.what());
        }
    }
    bulk.Threads = threads;
}

unsigned int Kalvos::GetThreads() const { return BulkWork->Threads; }

// Everything the loop could not do, or would do to memory it must not touch, is refused before
// anything is set or written.
void Kalvos::Bulk::Check(const Kalvos& k, const CompiledExpr& compiled, std::size_t count,
                         const std::vector<Column>& columns, const double* out) {
    const std::string& text = compiled.GetExprText();
    const std::string& error = compiled.GetErrorText();
    if (out == nullptr) k.Raise<MessageId::BulkNoOutput>(__LINE__, error, text);
    const auto outBegin = reinterpret_cast<std::uintptr_t>(out);
    std::uintptr_t outEnd = 0;
    if (!EndOf(outBegin, count, sizeof(double), sizeof(double), outEnd)) {
        k.Raise<MessageId::BulkOutputTooLong>(__LINE__, error, text);
    }
    for (auto column = columns.begin(); column != columns.end(); ++column) {
        const std::string& name = column->Name;
        if (column->Data == nullptr) k.Raise<MessageId::BulkNoData>(__LINE__, error, text, name);
        const bool named = std::any_of(columns.begin(), column,
                                       [&](const Column& before) { return before.Name == name; });
        if (named) k.Raise<MessageId::BulkSameName>(__LINE__, error, text, name);
        const auto begin = reinterpret_cast<std::uintptr_t>(column->Data);
        std::uintptr_t end = 0;
        if (!EndOf(begin, count, column->Stride, sizeof(double), end)) {
            k.Raise<MessageId::BulkColumnTooLong>(__LINE__, error, text, name);
        }
        // Computed in place, an element is read before its result is written.
        const bool inPlace = begin == outBegin && column->Stride == sizeof(double);
        if (begin < outEnd && outBegin < end && !inPlace) {
            k.Raise<MessageId::BulkOverlap>(__LINE__, error, text, name);
        }
    }
}

// The columns' variables hold the first element's values, as after the loop's first
// SetVarNum calls, which may define them or turn texts into numbers.
void Kalvos::Bulk::Bind(KalvosVars& vars, const std::vector<Column>& columns, std::size_t count) {
    Inputs.clear();
    for (const Column& column : columns) {
        const auto* base = reinterpret_cast<const char*>(column.Data);
        const unsigned int idx = vars.SetNum(column.Name, ValueAt(base, column.Stride, 0));
        Inputs.push_back(
            {base, column.Stride, idx, nullptr, ValueAt(base, column.Stride, count - 1)});
    }
    // Only once every variable is defined: a definition may move the numbers.
    Key.clear();
    Addresses.clear();
    VectorInputs.clear();
    for (std::uint32_t i = 0; i < Inputs.size(); ++i) {
        Input& input = Inputs[i];
        input.Variable = vars.NumAddress(input.Index);
        Key.push_back(std::uint64_t{input.Index} << 1 | (input.Stride == 0 ? 1u : 0u));
        // A column of stride 0 is one number for the whole call, read from its variable.
        if (input.Stride == 0) continue;
        Addresses.push_back(input.Variable);
        VectorInputs.push_back(i);
    }
}

const Kalvos::BlockMachine::Plan& Kalvos::Bulk::PlanFor(const Kalvos& k, const Code& code) {
    Program* const program = k.Active->Prog.Get();
    const std::uint64_t version = k.Vars->GetVersion();
    for (const KeptPlan& kept : Plans) {
        if (kept.Program.Get() == program && kept.Version == version &&
            kept.HostVersion == k.HostVersion && kept.Key == Key) {
            return kept.Plan;
        }
    }
    if (Plans.size() < kKeptPlans) Plans.emplace_back();
    KeptPlan& kept = Plans.size() < kKeptPlans ? Plans.back() : Plans[NextPlan++ % kKeptPlans];
    kept.Program = ProgramRef::Share(program);
    kept.Version = version;
    kept.HostVersion = k.HostVersion;
    kept.Key = Key;
    BlockMachine::Lower(code, Addresses, kept.Plan);
    return kept.Plan;
}

// Gives the first element from which the call has to run element by element: `count` when
// every block ran, the start of the first block that met a fault, or 0 when the prelude did.
std::size_t Kalvos::Bulk::RunBlocks(const Kalvos& k, const BlockMachine::Plan& plan,
                                    std::size_t count, double* out) {
    constexpr std::size_t kBlock = BlockMachine::kBlock;
    Scalars.resize(plan.ScalarCount);
    if (!BlockMachine::RunPrelude(plan, k, Scalars.data())) return 0;
    const unsigned int threads = count >= 2 * kChunk && plan.ThreadSafe ? Threads : 1;
    Scratches.resize(std::max<std::size_t>(Scratches.size(), threads));
    for (unsigned int t = 0; t < threads; ++t) {
        Scratch& scratch = Scratches[t];
        const std::size_t vectors = plan.Columns.size() + plan.BufferCount;
        scratch.Reserve(vectors);
        scratch.Vectors.resize(vectors);
    }
    if (threads == 1) {
        for (std::size_t start = 0; start < count; start += kBlock) {
            const std::size_t n = std::min(kBlock, count - start);
            if (!RunBlock(k, plan, Scratches[0], start, n, out)) return start;
        }
        return count;
    }
    // Chunks are taken in order, and none after a fault: every block before the first faulting
    // one is run, whichever thread runs it.
    std::atomic<std::size_t> next{0};
    std::atomic<std::size_t> fault{count};
    const std::function<void(unsigned int)> job = [&](unsigned int t) {
        for (;;) {
            const std::size_t first = next.fetch_add(1, std::memory_order_relaxed) * kChunk;
            if (first >= count || first > fault.load(std::memory_order_relaxed)) return;
            for (std::size_t start = first; start < std::min(first + kChunk, count);
                 start += kBlock) {
                const std::size_t n = std::min(kBlock, count - start);
                if (RunBlock(k, plan, Scratches[t], start, n, out)) continue;
                std::size_t seen = fault.load(std::memory_order_relaxed);
                while (start < seen && !fault.compare_exchange_weak(seen, start)) {
                }
                return;
            }
        }
    };
    Pool->Run(job);
    return fault.load();
}

// The result of a block is written only when none of its elements met a fault, so that a
// column computed in place still holds the inputs of the block when it runs again element by
// element.
bool Kalvos::Bulk::RunBlock(const Kalvos& k, const BlockMachine::Plan& plan, Scratch& scratch,
                            std::size_t start, std::size_t count, double* out) const {
    constexpr std::size_t kBlock = BlockMachine::kBlock;
    const std::size_t columns = plan.Columns.size();
    double* const buffers = scratch.Buffers();
    double* const gathered = buffers + std::size_t{plan.BufferCount} * kBlock;
    for (std::size_t c = 0; c < columns; ++c) {
        const Input& input = Inputs[VectorInputs[plan.Columns[c]]];
        const char* first = input.Base + start * input.Stride;
        if (input.Stride == sizeof(double) &&
            reinterpret_cast<std::uintptr_t>(first) % alignof(double) == 0) {
            scratch.Vectors[c] = reinterpret_cast<const double*>(first);
        } else {
            double* to = gathered + c * kBlock;
            for (std::size_t i = 0; i < count; ++i) to[i] = ValueAt(first, input.Stride, i);
            scratch.Vectors[c] = to;
        }
    }
    for (std::size_t b = 0; b < plan.BufferCount; ++b) {
        scratch.Vectors[columns + b] = buffers + b * kBlock;
    }
    BlockMachine::Frame frame;
    frame.Vectors = scratch.Vectors.data();
    frame.Buffers = buffers;
    frame.Scalars = Scalars.data();
    frame.CallArgs = plan.CallArgs.data();
    frame.Evaluator = &k;
    frame.Count = count;
    if (!BlockMachine::RunSteps(plan, frame)) return false;
    if (plan.Result.Vector) {
        std::memmove(out + start, scratch.Vectors[plan.Result.Index], count * sizeof(double));
    } else {
        std::fill(out + start, out + start + count, Scalars[plan.Result.Index]);
    }
    return true;
}

// The loop itself, from `from` on: each element's columns set, then the program run.
void Kalvos::Bulk::RunElements(Kalvos& k, Code& code, std::size_t from, std::size_t to,
                               double* out) {
    for (std::size_t i = from; i < to; ++i) {
        for (const Input& input : Inputs) *input.Variable = ValueAt(input.Base, input.Stride, i);
        FailedElement = i;
        out[i] = code.Calls ? k.Run<true>(code) : k.Run<false>(code);
    }
}
