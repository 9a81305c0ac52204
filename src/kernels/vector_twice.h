// Two vectors that go through a loop side by side: each operation runs on both before the next one
// begins. A processor that takes instructions in the order of the program would otherwise wait for
// most results of a loop whose values depend on each other; compilers can't change the order across
// stores, which may be what the next loads read.
#pragma once

#include <cstdint>

#include "kernels/vector_lanes.h"
#include "kernels/vector_scalar.h"

namespace vsp::VSP_KERNEL_SET {

template <class V>
struct Twice {
    static constexpr int lanes = 2 * V::lanes;
    using Word = typename V::Word;
    V low;
    V high;
};

template <class V>
VSP_INLINE Twice<V> load(const int32_t* p, Twice<V>)
{
    return {load(p, V{}), load(p + V::lanes, V{})};
}
template <class V>
VSP_INLINE void store(int32_t* p, Twice<V> a)
{
    store(p, a.low);
    store(p + V::lanes, a.high);
}
template <class V>
VSP_INLINE Twice<V> set1(int32_t x, Twice<V>)
{
    const V a = set1(x, V{});
    return {a, a};
}
template <class V>
VSP_INLINE void loadPairs(const ComplexInt* p, Twice<V>& re, Twice<V>& im)
{
    loadPairs(p, re.low, im.low);
    loadPairs(p + V::lanes, re.high, im.high);
}
template <class Pair, class V>
VSP_INLINE void loadShortPairs(const Pair* p, Twice<V>& a, Twice<V>& b)
{
    loadShortPairs(p, a.low, b.low);
    loadShortPairs(p + V::lanes, a.high, b.high);
}
template <class Pair, class V>
VSP_INLINE void storeShortPairs(Pair* p, Twice<V> a, Twice<V> b)
{
    storeShortPairs(p, a.low, b.low);
    storeShortPairs(p + V::lanes, a.high, b.high);
}

template <class V>
VSP_INLINE Twice<V> wrapAdd(Twice<V> a, Twice<V> b)
{
    return {wrapAdd(a.low, b.low), wrapAdd(a.high, b.high)};
}
template <class V>
VSP_INLINE Twice<V> wrapSub(Twice<V> a, Twice<V> b)
{
    return {wrapSub(a.low, b.low), wrapSub(a.high, b.high)};
}
template <class V>
VSP_INLINE Twice<V> wrapAbs(Twice<V> a)
{
    return {wrapAbs(a.low), wrapAbs(a.high)};
}
template <class V>
VSP_INLINE Twice<V> mulLow(Twice<V> a, Twice<V> b)
{
    return {mulLow(a.low, b.low), mulLow(a.high, b.high)};
}
template <class V>
VSP_INLINE Twice<V> mulShift16(Twice<V> a, Twice<V> b)
{
    return {mulShift16(a.low, b.low), mulShift16(a.high, b.high)};
}
template <class V>
VSP_INLINE Twice<V> mulShort(Twice<V> a, Twice<V> b)
{
    return {mulShort(a.low, b.low), mulShort(a.high, b.high)};
}
template <class V>
VSP_INLINE Twice<V> mulHighUnsigned16(Twice<V> a, Twice<V> b)
{
    return {mulHighUnsigned16(a.low, b.low), mulHighUnsigned16(a.high, b.high)};
}
template <class V>
VSP_INLINE Twice<V> normalisingFactor(Twice<V> a)
{
    return {normalisingFactor(a.low), normalisingFactor(a.high)};
}
template <int bits, class V>
VSP_INLINE Twice<V> shiftRight(Twice<V> a)
{
    return {shiftRight<bits>(a.low), shiftRight<bits>(a.high)};
}
template <int bits, class V>
VSP_INLINE Twice<V> shiftRightUnsigned(Twice<V> a)
{
    return {shiftRightUnsigned<bits>(a.low), shiftRightUnsigned<bits>(a.high)};
}
template <int bits, class V>
VSP_INLINE Twice<V> shiftLeft(Twice<V> a)
{
    return {shiftLeft<bits>(a.low), shiftLeft<bits>(a.high)};
}
template <class V>
VSP_INLINE Twice<V> min(Twice<V> a, Twice<V> b)
{
    return {min(a.low, b.low), min(a.high, b.high)};
}
template <class V>
VSP_INLINE Twice<V> max(Twice<V> a, Twice<V> b)
{
    return {max(a.low, b.low), max(a.high, b.high)};
}
template <class V>
VSP_INLINE Twice<V> greater(Twice<V> a, Twice<V> b)
{
    return {greater(a.low, b.low), greater(a.high, b.high)};
}
template <class V>
VSP_INLINE Twice<V> equal(Twice<V> a, Twice<V> b)
{
    return {equal(a.low, b.low), equal(a.high, b.high)};
}
template <class V>
VSP_INLINE Twice<V> select(Twice<V> mask, Twice<V> a, Twice<V> b)
{
    return {select(mask.low, a.low, b.low), select(mask.high, a.high, b.high)};
}

/// Where two vectors are four bins.
template <class V>
VSP_INLINE void turnFourBins(Twice<V> (&x)[1])
{
    V halves[2] = {x[0].low, x[0].high};
    turnFourBins(halves);
    x[0] = {halves[0], halves[1]};
}

} // namespace vsp::VSP_KERNEL_SET
