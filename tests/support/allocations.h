// Counts what a test program allocates, in the libraries it links too, and takes memory away.
#pragma once

#include <cstddef>

/// Calls of operator new so far, on all threads.
std::size_t allocationCount();

/// Of these, the ones that gave memory which was not freed since.
std::size_t liveAllocations();

/// While it lives, operator new succeeds only so many times more. One at a time.
class MemoryLimit {
public:
    explicit MemoryLimit(std::ptrdiff_t allocations);
    ~MemoryLimit();
    bool wasMet() const; ///< an allocation has failed
    MemoryLimit(const MemoryLimit&) = delete;
    MemoryLimit& operator=(const MemoryLimit&) = delete;
};
