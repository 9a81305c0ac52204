// The AVX2 kernels once more, counting.
#define VSP_KERNEL_SET counted
#include "benchmarks/bound/counted_intrinsics.h"

#include <cstdint>
#include <type_traits>

#include "kernels/vector_avx2.h"

#include "benchmarks/bound/kernels_counted.h"
#include "kernels/kernel_table.h"
#include "kernels/vector_lanes.h"

// The operations that every vector type shares count here, by functions that are asked for before
// the general ones. Those are free that only make constants.
namespace vsp::counted {

template <class V>
concept InRegisters =
    std::is_same_v<V, I32x8> || std::is_same_v<V, I32x4> || std::is_same_v<V, I32x4Wide>;

template <InRegisters V, class F, class... Rest>
VSP_INLINE V onSigned(F f, V a, Rest... rest)
{
    using Signed = typename Register<sizeof(V)>::Signed;
    countOperation(Operation::arithmetic);
    return {decltype(a.v)(f(Signed(a.v), Signed(rest.v)...))};
}
template <InRegisters V, class F, class... Rest>
VSP_INLINE V onUnsigned(F f, V a, Rest... rest)
{
    using Unsigned = typename Register<sizeof(V)>::Unsigned;
    countOperation(Operation::arithmetic);
    return {decltype(a.v)(f(Unsigned(a.v), Unsigned(rest.v)...))};
}
template <InRegisters V>
VSP_INLINE V set1(int32_t x, V)
{
    using Signed = typename Register<sizeof(V)>::Signed;
    return {decltype(V::v)(Signed{} + x)};
}
template <int bits, InRegisters V>
VSP_INLINE V shiftRight(V a)
{
    using Signed = typename Register<sizeof(V)>::Signed;
    countOperation(Operation::shift);
    return {decltype(V::v)(Signed(a.v) >> bits)};
}
template <int bits, InRegisters V>
VSP_INLINE V shiftRightUnsigned(V a)
{
    using Unsigned = typename Register<sizeof(V)>::Unsigned;
    countOperation(Operation::shift);
    return {decltype(V::v)(Unsigned(a.v) >> bits)};
}
template <int bits, InRegisters V>
VSP_INLINE V shiftLeft(V a)
{
    using Unsigned = typename Register<sizeof(V)>::Unsigned;
    countOperation(Operation::shift);
    return {decltype(V::v)(Unsigned(a.v) << bits)};
}
template <InRegisters V>
VSP_INLINE V load(const int32_t* p, V) requires(!std::is_same_v<V, I32x4Wide>)
{
    using InMemory = typename Register<sizeof(V)>::InMemory;
    countOperation(Operation::load);
    return {decltype(V::v)(*reinterpret_cast<const InMemory*>(p))};
}
template <InRegisters V>
VSP_INLINE void store(int32_t* p, V a) requires(!std::is_same_v<V, I32x4Wide>)
{
    using InMemory = typename Register<sizeof(V)>::InMemory;
    countOperation(Operation::store);
    *reinterpret_cast<InMemory*>(p) = InMemory(a.v);
}

} // namespace vsp::counted

#include "kernels/make_table.h"

Operations operationsDone = {};

const vsp::KernelTable& countedKernels()
{
    static constexpr vsp::KernelTable table =
        vsp::counted::makeTable<vsp::counted::I32x8, vsp::counted::I32x4Wide>("counted");
    return table;
}
