#include "worker.h"

#include <chrono>
#include <utility>

#include "interruption.h"

namespace {

constexpr size_t kMostWaiting = 4; // blocks

} // namespace

Worker::Worker(std::function<void(const Block&)> take) : work(std::move(take))
{
    const SignalsBlocked inherited;
    thread = std::thread([this] { run(); });
}

Worker::~Worker()
{
    {
        const std::lock_guard lock(mutex);
        isEnding = true;
    }
    changed.notify_all();
    thread.join();
}

void Worker::run()
{
    std::unique_lock lock(mutex);
    for (;;) {
        changed.wait(lock, [this] { return isEnding || !waiting.empty(); });
        if (isEnding)
            return;
        Block& block = waiting.front(); // which stays there when others are added
        lock.unlock();
        std::exception_ptr problem;
        try {
            work(block);
        } catch (...) {
            problem = std::current_exception();
        }
        lock.lock();
        spare = std::move(block);
        waiting.pop_front();
        failure = problem;
        isEnding = isEnding || failure;
        changed.notify_all();
    }
}

// A signal doesn't end the wait, so it is looked for.
template <class Condition>
void Worker::waitUntil(std::unique_lock<std::mutex>& lock, Condition holds)
{
    constexpr std::chrono::milliseconds kPatience(100);
    while (!changed.wait_for(lock, kPatience, [&] { return failure || holds(); }))
        throwIfInterrupted();
    if (failure)
        std::rethrow_exception(failure);
}

void Worker::give(Block& block)
{
    std::unique_lock lock(mutex);
    waitUntil(lock, [this] { return waiting.size() < kMostWaiting; });
    waiting.push_back(std::move(block));
    block = std::move(spare);
    block.clear();
    changed.notify_all();
}

void Worker::finish()
{
    std::unique_lock lock(mutex);
    waitUntil(lock, [this] { return waiting.empty(); });
}
