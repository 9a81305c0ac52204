// The tables behind the FFT's passes.

#include "kernels/twiddles.h"

#include <array>
#include <cstddef>

#include <velora/fft.h>

constexpr Velora_FFT_Twiddle fftTwiddle[256] = {
#include "kernels/twiddle_table.inc"
};

namespace vsp {
namespace {

constexpr std::array<LastPassTwiddles, kRadix> inLaneOrder()
{
    std::array<LastPassTwiddles, kRadix> table{};
    for (int group = 0; group < kRadix; ++group)
        for (int lane = 0; lane < kRadix; ++lane) {
            const int block = kRadix * kBitRev3[lane] + kBitRev3[group];
            for (int row = 0, level = 0; level < 3; ++level)
                for (int j = 0; j < 1 << level; ++j, ++row) {
                    const Velora_FFT_Twiddle w = fftTwiddle[(block << level) + j];
                    table[std::size_t(group)].re[row][lane] = w.re;
                    table[std::size_t(group)].im[row][lane] = w.im;
                }
        }
    return table;
}

} // namespace

constinit const std::array<LastPassTwiddles, kRadix> kLastPassTwiddles = inLaneOrder();

} // namespace vsp
