"""Short-time objective intelligibility (Taal, Hendriks, Heusdens, Jensen, 2011) at mapped times."""

import numpy as np
import scipy.fft
from numpy.typing import NDArray
from scipy.signal import get_window, resample_poly

from .spectra import Sound, mapped_starts, window_starts

RATE = 10000  # Hz; the method's own, as all that follows
LENGTH, TRANSFORM = 256, 512
BANDS, LOWEST_BAND_HERTZ = 15, 150.0
SEGMENT = 30  # windows: 384 ms
RANGE_DB = 40.0  # windows that are quieter than the loudest by more than this don't count
LOUDEST_ERROR = 1 + 10 ** (15 / 20.0)


def intelligibility(
    original: Sound, stretched: Sound, speed: float, rate: int, late: float
) -> float:
    """STOI of the mono sum, 1 where nothing is lost."""
    original, stretched = _at_own_rate(original, rate), _at_own_rate(stretched, rate)
    starts = window_starts(len(stretched), LENGTH)
    mapped, inside = mapped_starts(starts, LENGTH, len(original), speed, RATE, late)
    before, after = _windows(original, mapped[inside]), _windows(stretched, starts[inside])
    energy = 20 * np.log10(np.linalg.norm(before, axis=1) + 1e-9)
    speaking = energy > energy.max() - RANGE_DB
    return _mean_correlation(_bands(before[speaking]), _bands(after[speaking]))


def _at_own_rate(sound: Sound, rate: int) -> NDArray[np.float64]:
    divisor = np.gcd(RATE, rate)
    return resample_poly(sound.mean(1), RATE // divisor, rate // divisor)


def _windows(sound: NDArray[np.float64], starts: NDArray[np.int64]) -> NDArray[np.float64]:
    window = get_window("hann", LENGTH + 2, fftbins=False)[1:-1]
    return sound[starts[:, None] + np.arange(LENGTH)] * window


def _bands(windows: NDArray[np.float64]) -> NDArray[np.float64]:
    """Magnitudes [bands, windows] in third octaves."""
    frequencies = np.arange(TRANSFORM // 2 + 1) * RATE / TRANSFORM
    centres = LOWEST_BAND_HERTZ * 2 ** (np.arange(BANDS) / 3.0)
    low, high = centres[:, None] * 2 ** (-1 / 6), centres[:, None] * 2 ** (1 / 6)
    members = ((frequencies >= low) & (frequencies < high)).astype(float)
    return np.sqrt(members @ (np.abs(scipy.fft.rfft(windows, TRANSFORM)) ** 2).T)


def _mean_correlation(before: NDArray[np.float64], after: NDArray[np.float64]) -> float:
    """Mean over segments and bands of the correlation of the envelopes, errors limited."""
    values = []
    for end in range(SEGMENT, before.shape[1] + 1):
        x, y = before[:, end - SEGMENT : end], after[:, end - SEGMENT : end]
        level = np.linalg.norm(x, axis=1, keepdims=True)
        level = level / (np.linalg.norm(y, axis=1, keepdims=True) + 1e-12)
        y = np.minimum(y * level, x * LOUDEST_ERROR)
        x, y = x - x.mean(1, keepdims=True), y - y.mean(1, keepdims=True)
        norms = np.linalg.norm(x, axis=1) * np.linalg.norm(y, axis=1)
        values.append(((x * y).sum(1) / (norms + 1e-12)).mean())
    return float(np.mean(values))
