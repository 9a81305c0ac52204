// The converter runs in audio threads: it may not allocate there, and may not throw where it does.

#include <gtest/gtest.h>

#include "support/allocations.h"
#include "support/owners.h"
#include "support/signals.h"

TEST(ConverterMemory, ComesFromCreateAlone)
{
    const signals::Frames in = signals::noise(700, 32767, 1);
    signals::Frames out(8 * in.size());
    const std::size_t before = allocationCount();
    const ConverterOwner converter(Velora_SRC384_Factory::Create());
    EXPECT_EQ(before + 1, allocationCount());
    converter->Init(14, 5, 2, 0, 0);
    converter->Exe(signals::raw(out), signals::raw(in), 700);
    EXPECT_EQ(before + 1, allocationCount());
}

TEST(ConverterMemory, ExhaustedGivesNull)
{
    Velora_SRC384_Interface* const converter = [] {
        const MemoryLimit none(0);
        return Velora_SRC384_Factory::Create();
    }();
    EXPECT_EQ(nullptr, converter);
    Velora_SRC384_Factory::Destroy(converter); // null does nothing
}
