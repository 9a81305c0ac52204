// What a stream's position is, for any thread.
#pragma once

#include <atomic>
#include <cstdint>

namespace vsp {

struct Clock {
    std::int64_t mediaFrame;  // that the next frame of output sounds
    std::int64_t outputFrame; // frames handed out since the start or the last seek
    double speed;             // of that frame
    std::int64_t seeks;       // since the stream was made, and resets
};

/// One thread writes, any number read. No reader waits for the writer: of the last few positions it
/// takes the newest; only if it is overtaken several times while it reads one does it read again.
class ClockFace {
public:
    void write(const Clock& clock)
    {
        const std::uint64_t number = newest.load(std::memory_order_relaxed) + 1;
        Entry& entry = entries[number % kEntries];
        entry.number.store(kBeingWritten, std::memory_order_relaxed);
        std::atomic_thread_fence(std::memory_order_release);
        entry.mediaFrame.store(clock.mediaFrame, std::memory_order_relaxed);
        entry.outputFrame.store(clock.outputFrame, std::memory_order_relaxed);
        entry.speed.store(clock.speed, std::memory_order_relaxed);
        entry.seeks.store(clock.seeks, std::memory_order_relaxed);
        entry.number.store(number, std::memory_order_release);
        newest.store(number, std::memory_order_release);
    }

    Clock read() const
    {
        for (;;) {
            const std::uint64_t number = newest.load(std::memory_order_acquire);
            const Entry& entry = entries[number % kEntries];
            const Clock clock{entry.mediaFrame.load(std::memory_order_relaxed),
                              entry.outputFrame.load(std::memory_order_relaxed),
                              entry.speed.load(std::memory_order_relaxed),
                              entry.seeks.load(std::memory_order_relaxed)};
            std::atomic_thread_fence(std::memory_order_acquire);
            if (entry.number.load(std::memory_order_relaxed) == number)
                return clock;
        }
    }

private:
    static constexpr std::uint64_t kEntries = 4;
    static constexpr std::uint64_t kBeingWritten = ~std::uint64_t(0); // no entry's number

    struct Entry {
        std::atomic<std::uint64_t> number{0};
        std::atomic<std::int64_t> mediaFrame{0};
        std::atomic<std::int64_t> outputFrame{0};
        std::atomic<double> speed{1.0};
        std::atomic<std::int64_t> seeks{0};
    };

    std::atomic<std::uint64_t> newest{0};
    Entry entries[kEntries];
};

} // namespace vsp
