#!/usr/bin/env python3
"""Writes the FFT's twiddle factors. Usage: scripts/make_tables.py > src/kernels/twiddle_table.inc"""
import math


def reversed_fraction(k):
    """The 8 bits of k read as the binary fraction 0.b0 b1 ... b7."""
    return int(f"{k:08b}"[::-1], 2) / 256


def q31(value):
    return max(-(2**31 - 1), min(2**31 - 1, math.floor(value * 2**31 + 0.5)))


print("// Written by scripts/make_tables.py: exp(-i pi r(k)), Q31, r(k) the reversed bits of k as a fraction.")
for k in range(256):
    angle = -math.pi * reversed_fraction(k)
    print(f"{{{q31(math.cos(angle))}, {q31(math.sin(angle))}}},")
