#define VSP_KERNEL_SET measured
#include "benchmarks/bound/units.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <utility>

#include <immintrin.h>

#include "benchmarks/peers/measure.h"
#include "kernels/vector_avx2.h"

#include "kernels/recursive_sections.h"

namespace {

using vsp::measured::I32x4Wide;

constexpr int kRepeats = 200;
constexpr size_t kSteps = 2000;
constexpr size_t kAtOnce = 12; // registers, more than any unit's latency times its width

/// The compiler must take it that the register changes here.
void keep(__m256i& x)
{
    asm volatile("" : "+x"(x));
}

/// Nanoseconds of one of `count` steps that a call of `work` makes: the shortest of many.
template <class Work>
double shortest(size_t count, Work work)
{
    double best = HUGE_VAL;
    for (int repeat = 0; repeat < kRepeats; ++repeat) {
        const double start = wallSeconds();
        work();
        best = std::min(best, wallSeconds() - start);
    }
    return 1e9 * best / double(count);
}

/// operate(register, which) on registers that don't wait for each other.
template <class Operate, size_t... which>
double throughputOf(Operate operate, std::index_sequence<which...>)
{
    return shortest(kSteps * sizeof...(which), [=] {
        __m256i x[] = {_mm256_set1_epi32(int(which))...};
        for (size_t step = 0; step < kSteps; ++step)
            (..., (operate(x[which], which), keep(x[which])));
    });
}
template <class Operate>
double throughput(Operate operate)
{
    return throughputOf(operate, std::make_index_sequence<kAtOnce>());
}

/// step(value) on the result of the one before.
template <class Value, class Step>
double latency(Value value, Step step)
{
    return shortest(kSteps, [&] {
        Value x = value;
        for (size_t n = 0; n < kSteps; ++n) {
            x = step(x);
            keep(x.v);
        }
        value = x;
    });
}

double loadNs()
{
    alignas(32) static int32_t words[8 * kAtOnce] = {};
    return throughput([](__m256i& y, size_t i) {
        y = _mm256_load_si256(reinterpret_cast<const __m256i*>(words + 8 * i));
    });
}

double storeNs()
{
    alignas(32) int32_t words[8 * kAtOnce];
    return throughput([&words](__m256i& y, size_t i) {
        _mm256_store_si256(reinterpret_cast<__m256i*>(words + 8 * i), y);
        asm volatile("" : "+m"(words));
    });
}

double allPassNs()
{
    const int32_t coefficients[4] = {9000, 9000, 7000, 7000};
    const auto c = loadCoeffs(coefficients, I32x4Wide{});
    const I32x4Wide u = load(coefficients, I32x4Wide{});
    return latency(u, [=](I32x4Wide S) { return wrapAdd(u, timesQ14(S, c)); });
}

double biquadNs()
{
    const int32_t coefficients[4] = {9000, 9000, 7000, 7000};
    const I32x4Wide a = load(coefficients, I32x4Wide{});
    const I32x4Wide x = a;
    return latency(x, [=](I32x4Wide y) {
        auto sum = unsignedSums(x);
        addProducts(sum, y, a);
        return shiftLeft<2>(highWords(sum));
    });
}

} // namespace

Units measureUnits()
{
    const __m256i one = _mm256_set1_epi32(1);
    const __m256i order = _mm256_setr_epi32(7, 6, 5, 4, 3, 2, 1, 0);
    const auto add = [=](__m256i& x, size_t) { x = _mm256_add_epi32(x, one); };
    const auto shift = [](__m256i& x, size_t) { x = _mm256_slli_epi32(x, 1); };
    const auto multiply = [=](__m256i& x, size_t) { x = _mm256_mul_epi32(x, one); };
    const auto shiftAndMultiply = [=](__m256i& x, size_t) {
        x = _mm256_mul_epi32(_mm256_slli_epi32(x, 1), one);
    };
    const auto shuffle = [](__m256i& x, size_t) { x = _mm256_unpacklo_epi32(x, x); };
    const auto cross = [=](__m256i& x, size_t) { x = _mm256_permutevar8x32_epi32(x, order); };

    using O = Operation;
    Units result;
    result.units = {
        {"vectors",
         {O::arithmetic, O::shift, O::multiply, O::shuffle, O::crossing},
         throughput(add)},
        {"shifts", {O::shift}, throughput(shift)},
        {"products", {O::multiply}, throughput(multiply)},
        {"shifts, products", {O::shift, O::multiply}, 0.5 * throughput(shiftAndMultiply)},
        {"shuffles", {O::shuffle, O::crossing}, throughput(shuffle)},
        {"shuffles across", {O::crossing}, throughput(cross)},
        {"loads", {O::load}, loadNs()},
        {"stores", {O::store}, storeNs()},
    };
    result.allPassNs = allPassNs();
    result.biquadNs = biquadNs();
    return result;
}
