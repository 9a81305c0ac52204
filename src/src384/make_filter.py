#!/usr/bin/env python3
"""Writes src/src384/interpolation_table.h, the converter's low-pass. Usage: src/src384/make_filter.py > src/src384/interpolation_table.h

A sinc with its zeros on the input samples, under a Kaiser window of 32 input samples to either side:

    h(t) = sin(pi t) / (pi t) * I0(BETA * sqrt(1 - (t / 32)^2)) / I0(BETA),   t in input samples

It is down by 6 dB at 0.5 of the input rate; BETA puts the stop band, from 0.55 on, 98 dB down.
GRID positions per input sample serve every ratio that divides it: 1, 2, 3, 4, 6, 8, 12, 16 and 24.
"""
import math

GRID = 48
REACH = 32
BETA = 9.8
ONE = 1 << 22  # 1.0 in Q22


def bessel_i0(x):
    total = term = 1.0
    k = 1
    while term > 1e-17 * total:
        term *= (x / (2 * k)) ** 2
        total += term
        k += 1
    return total


def h(position):
    """The impulse response at position / GRID input samples."""
    t = position / GRID
    if position % GRID == 0:
        return 1.0 if position == 0 else 0.0
    window = bessel_i0(BETA * math.sqrt(1 - (t / REACH) ** 2)) / bessel_i0(BETA)
    return math.sin(math.pi * t) / (math.pi * t) * window


def quantise_phase(table, phase):
    """Rounds the taps of the output position phase / GRID, each by less than one unit, so that they sum to ONE."""
    distances = [abs(phase - GRID * tap) for tap in range(1 - REACH, REACH + 1)]
    total = sum(h(d) for d in distances)
    exact = {d: ONE * h(d) / total for d in distances}
    floor = {d: math.floor(value) for d, value in exact.items()}
    # Half way between two samples each distance occurs twice.
    missing = (ONE - sum(floor[d] for d in distances)) * len(exact) // len(distances)
    for d in sorted(exact, key=lambda d: floor[d] - exact[d])[:missing]:
        floor[d] += 1
    for d, value in floor.items():
        table[d] = value


table = [0] * (GRID * REACH + 1)
table[0] = ONE
for phase in range(1, GRID // 2 + 1):
    quantise_phase(table, phase)

print("// Written by src/src384/make_filter.py, which has the formula.")
print("#pragma once")
print()
print("#include <cstdint>")
print()
print("/// Right half of the symmetric impulse response of the interpolating low-pass, Q22: entry i is its")
print(f"/// value at i / {GRID} input samples, from 0 to {REACH}. Entries a whole sample apart sum to exactly 1.0.")
print("// clang-format off")
print(f"inline constexpr std::int32_t kImpulseResponse[{len(table)}] = {{")
for row in range(0, len(table), 8):
    print("    " + " ".join(f"{value:8d}," for value in table[row:row + 8]))
print("};")
print("// clang-format on")
