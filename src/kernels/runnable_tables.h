// The tables of one kind that this machine can run.
#pragma once

namespace vsp {

/// Portable first, the fastest last; ends with a null pointer.
template <class Table>
struct RunnableTables {
#if defined(VELORA_KERNELS_X86)
    RunnableTables(const Table& portable, const Table& sse41, const Table& avx2) : all{&portable}
    {
        if (__builtin_cpu_supports("sse4.1"))
            all[count++] = &sse41;
        if (__builtin_cpu_supports("avx2"))
            all[count++] = &avx2;
    }
#elif defined(VELORA_KERNELS_NEON)
    RunnableTables(const Table& portable, const Table& neon) : all{&portable, &neon}, count(2) {}
#else
    explicit RunnableTables(const Table& portable) : all{&portable} {}
#endif

    const Table& best() const
    {
        return *all[count - 1];
    }

    const Table* all[4];
    int count = 1;
};

} // namespace vsp
