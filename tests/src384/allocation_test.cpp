// The converter runs in audio threads: it may not allocate there, and may not throw where it does.
#include <cstdlib>
#include <new>

#include <gtest/gtest.h>
#include <velora/src384.h>

#include "support/signals.h"

namespace {

int allocations = 0;
bool memoryIsGone = false;

void* allocate(std::size_t size)
{
    ++allocations;
    return memoryIsGone ? nullptr : std::malloc(size);
}

} // namespace

void* operator new(std::size_t size)
{
    void* memory = allocate(size);
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return allocate(size);
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

TEST(ConverterMemory, ComesFromCreateAlone)
{
    const signals::Frames in = signals::noise(700, 32767, 1);
    signals::Frames out(8 * in.size());
    const int before = allocations;
    Velora_SRC384_Interface* converter = Velora_SRC384_Factory::Create();
    EXPECT_EQ(before + 1, allocations);
    converter->Init(14, 5, 2, 0, 0);
    converter->Exe(signals::raw(out), signals::raw(in), 700);
    EXPECT_EQ(before + 1, allocations);
    Velora_SRC384_Factory::Destroy(converter);
}

TEST(ConverterMemory, ExhaustedGivesNull)
{
    memoryIsGone = true;
    Velora_SRC384_Interface* converter = Velora_SRC384_Factory::Create();
    memoryIsGone = false;
    EXPECT_EQ(nullptr, converter);
    Velora_SRC384_Factory::Destroy(converter); // null does nothing
}
