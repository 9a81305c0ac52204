#!/usr/bin/env python3
"""Writes fft/twiddles.cpp, the FFT's twiddle factors. Usage: scripts/make_tables.py > fft/twiddles.cpp"""
import math


def reversed_fraction(k):
    """The 8 bits of k read as the binary fraction 0.b0 b1 ... b7."""
    return int(f"{k:08b}"[::-1], 2) / 256


def q31(value):
    return max(-(2**31 - 1), min(2**31 - 1, math.floor(value * 2**31 + 0.5)))


print("// Written by scripts/make_tables.py.")
print('#include "fft/twiddles.h"')
print()
print("// clang-format off")
print("constexpr Velora_FFT_Twiddle fftTwiddle[256] = {")
for k in range(256):
    angle = -math.pi * reversed_fraction(k)
    print(f"    {{{q31(math.cos(angle))}, {q31(math.sin(angle))}}},")
print("};")
print("// clang-format on")
print("""
namespace vsp {
namespace {

constexpr std::array<LastPassTwiddles, 8> inLaneOrder() {
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

} // namespace vsp""")
