// The tables behind the FFT's passes.

#include "kernels/twiddles.h"

constexpr Velora_FFT_Twiddle fftTwiddle[256] = {
#include "kernels/twiddle_table.inc"
};

namespace vsp {
namespace {

constexpr std::array<LastPassTwiddles, 8> inLaneOrder()
{
    std::array<LastPassTwiddles, 8> table{};
    for (int group = 0; group < 8; ++group)
        for (int lane = 0; lane < 8; ++lane) {
            const int block = 8 * kBitRev3[lane] + kBitRev3[group];
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

constinit const std::array<LastPassTwiddles, 8> kLastPassTwiddles = inLaneOrder();

} // namespace vsp
