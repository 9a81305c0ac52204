// A thread that takes blocks of sound in order, while who gives them makes the next ones.
#pragma once

#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "samples.h"

class Worker {
public:
    /// Runs `take` for each block, in a thread of its own that sees no signals.
    explicit Worker(std::function<void(const Block&)> take);
    /// Leaves out what still waits.
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    /// Takes the block's content and leaves an empty one. Waits while too many wait. Throws what
    /// `take` threw, or Interrupted.
    void give(Block& block);
    /// Waits until all blocks have been taken. Throws the same.
    void finish();

private:
    using Lock = std::unique_lock<std::mutex>;
    void run();
    bool waitForBatch(Lock& lock);
    void takeFirst(Lock& lock);
    template <class Condition>
    void waitUntil(Lock& lock, Condition holds);

    std::function<void(const Block&)> work;
    std::mutex mutex;
    std::condition_variable given;
    std::condition_variable taken;
    std::deque<Block> waiting; // the first is being taken
    std::vector<Block> spares; // keep their memory
    std::exception_ptr failure;
    bool isComplete = false; // no more will be given
    bool isEnding = false;
    std::thread thread; // the last: it uses all the others
};
