"""Loudness and clipping."""

import numpy as np
from scipy.signal import sosfilt

from .spectra import Sound

LARGEST_OF_16_BITS = 32766.5 / 32768  # what 16 bits round to their largest value


def loudness(sound: Sound, rate: int) -> float:
    """Loudness without gates in LU: mean power through the weighting of ITU-R BS.1770."""
    return float(10 * np.log10((_weighted(sound, rate) ** 2).mean() * 2 + 1e-20))


def loudness_change(original: Sound, stretched: Sound, rate: int) -> float:
    """How much louder the stretched sound is, in LU."""
    return loudness(stretched, rate) - loudness(original, rate)


def clipped_share(sound: Sound) -> float:
    """Samples at full scale, in per cent."""
    return float((np.abs(sound) >= LARGEST_OF_16_BITS).mean() * 100)


def _weighted(sound: Sound, rate: int) -> Sound:
    shelf = _high_shelf(1681.974450955533, 3.999843853973347, 0.7071752369554196, rate)
    high_pass = _high_pass(38.13547087602444, 0.5003270373238773, rate)
    return sosfilt([shelf, high_pass], sound, axis=0)


def _high_shelf(hertz: float, gain_db: float, quality: float, rate: int) -> list[float]:
    """BS.1770's first filter, from its analog prototype, so that it holds for every rate."""
    k = np.tan(np.pi * hertz / rate)
    high = 10 ** (gain_db / 20)
    band = high**0.4996667741545416
    norm = 1 + k / quality + k * k
    return [
        (high + band * k / quality + k * k) / norm,
        2 * (k * k - high) / norm,
        (high - band * k / quality + k * k) / norm,
        1,
        2 * (k * k - 1) / norm,
        (1 - k / quality + k * k) / norm,
    ]


def _high_pass(hertz: float, quality: float, rate: int) -> list[float]:
    """BS.1770's second filter, likewise."""
    k = np.tan(np.pi * hertz / rate)
    norm = 1 + k / quality + k * k
    return [1, -2, 1, 1, 2 * (k * k - 1) / norm, (1 - k / quality + k * k) / norm]
