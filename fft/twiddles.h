// The constants of the FFT: twiddle factors (declared in the public header) and bit reversal.
#pragma once

#include <array>
#include <cstddef>

#include <velora/fft.h>

namespace vsp {

inline constexpr int kMaxLog2N = 9;
inline constexpr int kMaxN = 1 << kMaxLog2N;

/// fftBitRev[i]: the 9 bits of i in reversed order. For 2^n points shift it right by 9 - n.
inline constexpr std::array<uint16_t, kMaxN> fftBitRev = [] {
    std::array<uint16_t, kMaxN> table{};
    for (int i = 0; i < kMaxN; ++i)
        for (int bit = 0; bit < kMaxLog2N; ++bit)
            if (i & (1 << bit))
                table[std::size_t(i)] =
                    uint16_t(table[std::size_t(i)] | (1 << (kMaxLog2N - 1 - bit)));
    return table;
}();

} // namespace vsp
