// Between two threads of which neither may wait for the other: one puts in, one takes out.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>

/// Up to `capacity` things in the order in which they were put. Never allocates or locks.
template <class Thing, size_t capacity>
class Mailbox {
public:
    /// For the one that puts: false, with nothing done, if it is full.
    bool put(const Thing& thing)
    {
        const size_t end = putIn.load(std::memory_order_relaxed);
        if (end - takenOut.load(std::memory_order_acquire) == capacity)
            return false;
        things[end % capacity] = thing;
        putIn.store(end + 1, std::memory_order_release);
        return true;
    }

    /// For the one that takes: how many there are, one of them, and away with the first of them.
    size_t size() const
    {
        return putIn.load(std::memory_order_acquire) - takenOut.load(std::memory_order_relaxed);
    }
    const Thing& operator[](size_t place) const
    {
        return things[(takenOut.load(std::memory_order_relaxed) + place) % capacity];
    }
    void drop(size_t count)
    {
        takenOut.store(takenOut.load(std::memory_order_relaxed) + count, std::memory_order_release);
    }

private:
    std::array<Thing, capacity> things{};
    std::atomic<size_t> putIn = 0;
    std::atomic<size_t> takenOut = 0;
};
