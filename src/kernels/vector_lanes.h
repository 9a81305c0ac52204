// The operations that mean the same for one lane and for a register full of them, written once for
// every vector type.
//
// A vector type has `lanes` and its value `v`: 32-bit lanes in a register of the instruction set,
// which GCC and clang also take for a vector of their own, or an array of lanes (vector_scalar.h).
// Multiplications, shuffles and packs stand in the file of each instruction set. Each set has a
// namespace of its own, so the linker can never take a copy that was compiled for another one.
#pragma once

#include <cstddef>
#include <cstdint>

#include "fixed/fixed.h"

namespace vsp::VSP_KERNEL_SET {

/// Lanes of the widest vector there is: what vectors read beyond an array's end is padded for it.
constexpr int kMostLanes = 8;

/// A register of so many bytes as the compilers' vectors; InMemory lies wherever an int32_t may.
template <std::size_t bytes>
struct Register {
    typedef int32_t Signed __attribute__((vector_size(bytes)));
    typedef uint32_t Unsigned __attribute__((vector_size(bytes)));
    typedef int32_t InMemory __attribute__((vector_size(bytes), aligned(4), may_alias));
    typedef float Float __attribute__((vector_size(bytes)));
    typedef float FloatInMemory __attribute__((vector_size(bytes), aligned(4), may_alias));
};

/// f of all lanes at once, as signed values or as unsigned ones, which wrap. Arrays of lanes have
/// their own, which go lane by lane.
template <class V, class F, class... Rest>
VSP_INLINE V onSigned(F f, V a, Rest... rest)
{
    using Signed = typename Register<sizeof(V)>::Signed;
    return {decltype(a.v)(f(Signed(a.v), Signed(rest.v)...))};
}
template <class V, class F, class... Rest>
VSP_INLINE V onUnsigned(F f, V a, Rest... rest)
{
    using Unsigned = typename Register<sizeof(V)>::Unsigned;
    return {decltype(a.v)(f(Unsigned(a.v), Unsigned(rest.v)...))};
}

template <class V>
VSP_INLINE V load(const int32_t* p, V)
{
    using InMemory = typename Register<sizeof(V)>::InMemory;
    return {decltype(V::v)(*reinterpret_cast<const InMemory*>(p))};
}
template <class V>
VSP_INLINE void store(int32_t* p, V a)
{
    using InMemory = typename Register<sizeof(V)>::InMemory;
    *reinterpret_cast<InMemory*>(p) = InMemory(a.v);
}
template <class V>
VSP_INLINE V set1(int32_t x, V)
{
    return onSigned([=](auto zero) { return zero + x; }, V{});
}
template <class V>
VSP_INLINE V wrapAdd(V a, V b)
{
    return onUnsigned([](auto x, auto y) { return x + y; }, a, b);
}
template <class V>
VSP_INLINE V wrapSub(V a, V b)
{
    return onUnsigned([](auto x, auto y) { return x - y; }, a, b);
}
/// a * b modulo 2^32.
template <class V>
VSP_INLINE V mulLow(V a, V b)
{
    return onUnsigned([](auto x, auto y) { return x * y; }, a, b);
}
template <int bits, class V>
VSP_INLINE V shiftRight(V a)
{
    return onSigned([](auto x) { return x >> bits; }, a);
}
template <int bits, class V>
VSP_INLINE V shiftRightUnsigned(V a)
{
    return onUnsigned([](auto x) { return x >> bits; }, a);
}
template <int bits, class V>
VSP_INLINE V shiftLeft(V a)
{
    return onUnsigned([](auto x) { return x << bits; }, a);
}
template <class V>
VSP_INLINE V min(V a, V b)
{
    return onSigned([](auto x, auto y) { return x < y ? x : y; }, a, b);
}
template <class V>
VSP_INLINE V max(V a, V b)
{
    return onSigned([](auto x, auto y) { return x > y ? x : y; }, a, b);
}
/// A mask: all bits of a lane set where a > b, or a == b.
template <class V>
VSP_INLINE V greater(V a, V b)
{
    return onSigned([](auto x, auto y) { return x > y ? decltype(x){} - 1 : decltype(x){}; }, a, b);
}
template <class V>
VSP_INLINE V equal(V a, V b)
{
    return onSigned([](auto x, auto y) { return x == y ? decltype(x){} - 1 : decltype(x){}; }, a,
                    b);
}
/// Lanes of a where the mask is set, of b elsewhere.
template <class V>
VSP_INLINE V select(V mask, V a, V b)
{
    return onSigned([](auto set, auto x, auto y) { return set < 0 ? x : y; }, mask, a, b);
}

} // namespace vsp::VSP_KERNEL_SET
