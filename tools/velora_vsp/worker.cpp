#include "worker.h"

#include <chrono>
#include <utility>

#include "interruption.h"

namespace {

// To wake a thread costs as much as the work on a block, so each sleeps until there are several to
// take, or there is room for several.
constexpr size_t kBatch = 8; // blocks
constexpr size_t kMostWaiting = 2 * kBatch;

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
    given.notify_one();
    thread.join();
}

void Worker::run()
{
    Lock lock(mutex);
    while (waitForBatch(lock))
        while (!waiting.empty() && !isEnding)
            takeFirst(lock);
}

// False if there is nothing more to do. What comes slowly is not kept waiting for more.
bool Worker::waitForBatch(Lock& lock)
{
    constexpr std::chrono::milliseconds kPatience(20);
    given.wait(lock, [this] { return isEnding || !waiting.empty(); });
    given.wait_for(lock, kPatience,
                   [this] { return isEnding || isComplete || waiting.size() >= kBatch; });
    return !isEnding;
}

void Worker::takeFirst(Lock& lock)
{
    Block& block = waiting.front(); // which stays there when others are added
    std::exception_ptr problem;
    lock.unlock();
    try {
        work(block);
    } catch (...) {
        problem = std::current_exception();
    }
    lock.lock();
    spares.push_back(std::move(block));
    waiting.pop_front();
    failure = problem;
    isEnding = isEnding || failure;
    if (failure || waiting.size() == kMostWaiting - kBatch || waiting.empty())
        taken.notify_one();
}

// A signal doesn't end the wait, so it is looked for.
template <class Condition>
void Worker::waitUntil(Lock& lock, Condition holds)
{
    constexpr std::chrono::milliseconds kPatience(100);
    while (!taken.wait_for(lock, kPatience, [&] { return failure || holds(); }))
        throwIfInterrupted();
    if (failure)
        std::rethrow_exception(failure);
}

void Worker::give(Block& block)
{
    Lock lock(mutex);
    const size_t most = waiting.size() < kMostWaiting ? kMostWaiting - 1 : kMostWaiting - kBatch;
    waitUntil(lock, [this, most] { return waiting.size() <= most; });
    waiting.push_back(std::move(block));
    block = Block();
    if (!spares.empty()) {
        block = std::move(spares.back());
        spares.pop_back();
        block.clear();
    }
    if (waiting.size() == 1 || waiting.size() == kBatch)
        given.notify_one();
}

void Worker::finish()
{
    Lock lock(mutex);
    isComplete = true;
    given.notify_one();
    waitUntil(lock, [this] { return waiting.empty(); });
}
