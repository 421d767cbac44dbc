#pragma once

// What an evaluator keeps for its bulk calls: the plans of the programs it ran by blocks, its
// threads and their buffers. Internal to the library; not installed.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "evaluator/BlockMachine.h"
#include "evaluator/WorkerPool.h"

struct Kalvos::Bulk {
    /// A column of the call, bound to its variable.
    struct Input {
        const char* Base;
        std::size_t Stride;
        std::uint32_t Index;  // the variable's
        double* Variable;     // where its number lives
        double Last;          // the value of the last element, read before any output is written
    };

    /// A plan kept for a program against the columns' variables in one version of the store.
    struct KeptPlan {
        ProgramRef Program;
        std::uint64_t Version = 0;       // of the store
        std::uint64_t HostVersion = 0;   // of the host's functions
        std::vector<std::uint64_t> Key;  // each column's variable, and whether its stride is 0
        BlockMachine::Plan Plan;
    };
    /// Enough for the formulas a host runs in turn over the same elements.
    static constexpr std::size_t kKeptPlans = 8;
    /// Elements a thread takes at a time: few enough that the threads finish together, enough
    /// that taking them costs nothing. A call shorter than two runs on the calling thread alone.
    static constexpr std::size_t kChunk = 64 * BlockMachine::kBlock;

    /// One thread's buffers: the steps' values, then the gathered columns, each block on a
    /// boundary of the widest vectors, which are slower to store across two cache lines.
    struct Scratch {
        static constexpr std::size_t kAlignment = 64;
        void Reserve(std::size_t blocks) {
            const std::size_t size = blocks * BlockMachine::kBlock + kAlignment / sizeof(double);
            if (Memory.size() < size) Memory.resize(size);
        }
        double* Buffers() {
            const auto at = reinterpret_cast<std::uintptr_t>(Memory.data());
            return Memory.data() + (kAlignment - at % kAlignment) % kAlignment / sizeof(double);
        }
        std::vector<double> Memory;
        std::vector<const double*> Vectors;
    };

    static void Check(const Kalvos& k, const CompiledExpr& compiled, std::size_t count,
                      const std::vector<Column>& columns, const double* out);
    void Bind(KalvosVars& vars, const std::vector<Column>& columns, std::size_t count);
    const BlockMachine::Plan& PlanFor(const Kalvos& k, const Code& code);
    std::size_t RunBlocks(const Kalvos& k, const BlockMachine::Plan& plan, std::size_t count,
                          double* out);
    bool RunBlock(const Kalvos& k, const BlockMachine::Plan& plan, Scratch& scratch,
                  std::size_t start, std::size_t count, double* out) const;
    void RunElements(Kalvos& k, Code& code, std::size_t from, std::size_t to, double* out);

    std::vector<Input> Inputs;
    std::vector<std::uint64_t> Key;
    std::vector<const double*> Addresses;     // the variables of the columns of nonzero stride
    std::vector<std::uint32_t> VectorInputs;  // and which inputs they are
    std::vector<KeptPlan> Plans;
    std::size_t NextPlan = 0;
    std::vector<double> Scalars;
    std::vector<Scratch> Scratches;  // one for each thread
    std::unique_ptr<WorkerPool> Pool;
    unsigned int Threads = 1;
    std::size_t FailedElement = kNoElement;
};
