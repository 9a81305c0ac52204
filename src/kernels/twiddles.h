// The constants of the FFT: twiddle factors (declared in the public header) and bit reversal.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include <velora/fft.h>

#include "kernels/sizes.h"

namespace vsp {

/// fftBitRev[i]: the 9 bits of i in reversed order. For 2^n points shift it right by 9 - n.
inline constexpr std::array<uint16_t, kFftN> fftBitRev = [] {
    std::array<uint16_t, kFftN> table{};
    for (int i = 0; i < kFftN; ++i)
        for (int bit = 0; bit < kFftLog2N; ++bit)
            if (i & (1 << bit))
                table[std::size_t(i)] =
                    uint16_t(table[std::size_t(i)] | (1 << (kFftLog2N - 1 - bit)));
    return table;
}();

/// sqrt(1/2), Q31: both components of the eighth roots of unity.
inline constexpr int32_t kSqrtHalfQ31 = 0x5A82799A;

/// The 512-point transform runs in three passes over columns of so many points, three levels each.
inline constexpr int kRadix = 8;
static_assert(kRadix * kRadix * kRadix == kFftN);
/// Columns of a pass.
inline constexpr int kColumns = kFftN / kRadix;
/// Factors of a column: one of the first of its levels, two of the second, four of the third.
inline constexpr int kColumnTwiddles = kRadix - 1;

/// The 3 bits of i in reversed order.
inline constexpr int kBitRev3[kRadix] = {0, 4, 2, 6, 1, 5, 3, 7};

/// Factors of the last pass for the columns 8 kBitRev3[lane] + kBitRev3[group]: entries of
/// fftTwiddle in the order of the lanes.
struct LastPassTwiddles {
    alignas(32) int32_t re[kColumnTwiddles][kRadix];
    alignas(32) int32_t im[kColumnTwiddles][kRadix];
};
extern const std::array<LastPassTwiddles, kRadix> kLastPassTwiddles;

} // namespace vsp
