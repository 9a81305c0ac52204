// In a file of its own, so that compilers see no pair of new and free.

#include "support/allocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

constexpr int kNever = -1;

std::atomic<std::size_t> count = 0;
std::atomic<std::size_t> live = 0;
std::atomic<int> untilFailure = kNever;
std::atomic<bool> failed = false;

/// @return null where memory has run out
template <class Allocate>
void* allocate(Allocate memory)
{
    ++count;
    if (untilFailure != kNever && untilFailure-- == 0) {
        failed = true;
        return nullptr;
    }
    void* const given = memory();
    live += given != nullptr;
    return given;
}

void release(void* memory)
{
    live -= memory != nullptr;
    std::free(memory);
}

void* orThrow(void* memory)
{
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}

} // namespace

std::size_t allocationCount()
{
    return count;
}

std::size_t liveAllocations()
{
    return live;
}

void failAllocation(int number)
{
    failed = false;
    untilFailure = number;
}

bool allocationFailed()
{
    untilFailure = kNever;
    return failed;
}

void* operator new(std::size_t bytes)
{
    return orThrow(allocate([=] { return std::malloc(bytes); }));
}

void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept
{
    return allocate([=] { return std::malloc(bytes); });
}

void* operator new(std::size_t bytes, std::align_val_t alignment)
{
    return orThrow(allocate([=] { return std::aligned_alloc(std::size_t(alignment), bytes); }));
}

void operator delete(void* memory) noexcept
{
    release(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    release(memory);
}

void operator delete(void* memory, std::align_val_t) noexcept
{
    release(memory);
}

void operator delete(void* memory, std::size_t, std::align_val_t) noexcept
{
    release(memory);
}
