// In a file of its own, so that compilers see no pair of new and free.

#include "support/allocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> count = 0;

} // namespace

std::size_t allocationCount()
{
    return count;
}

void* operator new(std::size_t bytes)
{
    ++count;
    if (void* memory = std::malloc(bytes))
        return memory;
    throw std::bad_alloc();
}

void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept
{
    ++count;
    return std::malloc(bytes);
}

void* operator new(std::size_t bytes, std::align_val_t alignment)
{
    ++count;
    if (void* memory = std::aligned_alloc(std::size_t(alignment), bytes))
        return memory;
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::align_val_t) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t, std::align_val_t) noexcept
{
    std::free(memory);
}
