// In a file of its own, so that compilers see no pair of new and free.

#include "support/allocations.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> count = 0;
std::atomic<std::size_t> live = 0;
std::atomic<std::ptrdiff_t> left = PTRDIFF_MAX;

bool mayAllocate()
{
    ++count;
    return left-- > 0;
}

void* counted(void* memory)
{
    live += memory != nullptr;
    return memory;
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

MemoryLimit::MemoryLimit(std::ptrdiff_t allocations)
{
    left = allocations;
}

MemoryLimit::~MemoryLimit()
{
    left = PTRDIFF_MAX;
}

bool MemoryLimit::wasMet() const
{
    return left < 0;
}

void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept
{
    return counted(mayAllocate() ? std::malloc(bytes) : nullptr);
}

void* operator new(std::size_t bytes)
{
    return orThrow(operator new(bytes, std::nothrow));
}

void* operator new(std::size_t bytes, std::align_val_t alignment)
{
    void* const memory =
        mayAllocate() ? std::aligned_alloc(std::size_t(alignment), bytes) : nullptr;
    return orThrow(counted(memory));
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
