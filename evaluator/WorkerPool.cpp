#include "evaluator/WorkerPool.h"

namespace {

// How long a thread spins for the next job, or for the workers to finish, before it sleeps: a
// host that runs formulas one after the other over large arrays calls again within
// microseconds, and waking a sleeping thread takes about as long as a thousand elements.
constexpr int kSpins = 1 << 14;

void Pause() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#else
    std::this_thread::yield();
#endif
}

}  // namespace

WorkerPool::WorkerPool(unsigned int workers) {
    Threads.reserve(workers);
    try {
        for (unsigned int i = 1; i <= workers; ++i) Threads.emplace_back([this, i] { Work(i); });
    } catch (...) {
        Stop();
        throw;
    }
}

WorkerPool::~WorkerPool() { Stop(); }

void WorkerPool::Stop() {
    {
        const std::lock_guard<std::mutex> lock(Mutex);
        Stopping.store(true);
    }
    Wake.notify_all();
    for (std::thread& thread : Threads) thread.join();
    Threads.clear();
}

void WorkerPool::Run(const std::function<void(unsigned int)>& job) {
    Job = &job;
    Busy.store(static_cast<unsigned int>(Threads.size()));
    {
        // Under the lock, so that a worker about to sleep sees the new round or is woken.
        const std::lock_guard<std::mutex> lock(Mutex);
        Round.fetch_add(1);
    }
    Wake.notify_all();
    job(0);
    for (int spin = 0; spin < kSpins && Busy.load() != 0; ++spin) Pause();
    std::unique_lock<std::mutex> lock(Mutex);
    Done.wait(lock, [this] { return Busy.load() == 0; });
}

void WorkerPool::Work(unsigned int index) {
    std::uint64_t seen = 0;
    for (;;) {
        for (int spin = 0; spin < kSpins && Round.load() == seen && !Stopping.load(); ++spin) {
            Pause();
        }
        {
            std::unique_lock<std::mutex> lock(Mutex);
            Wake.wait(lock, [&] { return Stopping.load() || Round.load() != seen; });
            if (Stopping.load()) return;
        }
        seen = Round.load();
        (*Job)(index);
        if (Busy.fetch_sub(1) == 1) {
            const std::lock_guard<std::mutex> lock(Mutex);
            Done.notify_one();
        }
    }
}
