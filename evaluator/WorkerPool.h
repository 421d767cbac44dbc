#pragma once

// Threads that an evaluator keeps for its bulk calls. Internal to the library; not installed.

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

/// Threads that wait for one job at a time from their owner, which takes part in each job
/// itself. A job must not throw.
class WorkerPool {
public:
    /// Starts `workers` threads; throws std::system_error when the system refuses one, with none
    /// left running.
    explicit WorkerPool(unsigned int workers);
    ~WorkerPool();
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    /// Runs job(0) on the calling thread and job(1) to job(workers) on the workers, and returns
    /// when every one has returned.
    void Run(const std::function<void(unsigned int)>& job);

private:
    void Work(unsigned int index);
    void Stop();

    std::mutex Mutex;
    std::condition_variable Wake;
    std::condition_variable Done;
    const std::function<void(unsigned int)>* Job = nullptr;
    std::atomic<std::uint64_t> Round{0};  // counts the jobs, so that a worker takes each once
    std::atomic<unsigned int> Busy{0};    // workers still on the current job
    std::atomic<bool> Stopping{false};
    std::vector<std::thread> Threads;
};
