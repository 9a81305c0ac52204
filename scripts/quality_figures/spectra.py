"""Spectra of a stretched sound beside those of its original, at the times that correspond."""

from dataclasses import dataclass

import numpy as np
import scipy.fft
from numpy.typing import NDArray
from scipy.signal import get_window

Sound = NDArray[np.float64]

WINDOW_SECONDS = 0.043  # as long as a vowel's pulse train needs, as short as a drum allows
SEARCH_MS = range(-12, 17, 2)  # by how much a stretcher may be late and still be heard as in time
WIDEST_SEARCH_MS = 60  # for stretchers that don't make up for their own delay
THIRDS_FROM_HERTZ = 100.0
QUIETEST_OF_DISTANCE = 1e-5  # of the loudest band's power: what is quieter isn't compared
FLOOR_OF_DISTANCE = 1e-6


@dataclass(frozen=True)
class Pair:
    """Spectra [windows, bins, channels] of the original and, window by window, of the stretched sound."""

    original: NDArray[np.complex128]
    stretched: NDArray[np.complex128]
    rate: int

    def mono(self) -> "Pair":
        """The spectra of both sounds' sums over all channels."""
        return Pair(
            self.original.sum(2, keepdims=True), self.stretched.sum(2, keepdims=True), self.rate
        )


class Comparison:
    """Takes windows of the stretched sound, half overlapping, and those of the original they came from."""

    def __init__(self, original: Sound, stretched: Sound, speed: float, rate: int) -> None:
        self.original, self.speed, self.rate = original, speed, rate
        self.length = int(2 ** round(np.log2(rate * WINDOW_SECONDS)))
        self.starts = window_starts(len(stretched), self.length)
        self.spectra = spectra_at(stretched, self.starts, self.length)
        self.magnitudes = np.abs(self.spectra)

    def pair(self, late: float) -> Pair:
        """The spectra if the stretched sound is `late` seconds behind where its speed puts it."""
        original, inside = self._original(late)
        return Pair(original, self.spectra[inside], self.rate)

    def _original(self, late: float) -> tuple[NDArray[np.complex128], NDArray[np.bool_]]:
        """The original's spectra, and which windows of the stretched sound they belong to."""
        start, inside = mapped_starts(
            self.starts, self.length, len(self.original), self.speed, self.rate, late
        )
        return spectra_at(self.original, start[inside], self.length), inside

    def lateness(self) -> float:
        """Seconds by which the sound is late: where the spectra agree best."""
        found = {ms: self._convergence(ms) for ms in SEARCH_MS}
        best = min(found, key=lambda ms: found[ms])
        step = {SEARCH_MS[0]: -2, SEARCH_MS[-1]: 2}.get(best, 0)
        while step and abs(best + step) <= WIDEST_SEARCH_MS:
            found[best + step] = self._convergence(best + step)
            if found[best + step] >= found[best]:
                break
            best += step
        return best / 1000.0

    def _convergence(self, late_ms: int) -> float:
        original, inside = self._original(late_ms / 1000.0)
        return convergence(np.abs(original), self.magnitudes[inside]) if inside.any() else 0.0


def window_starts(frames: int, length: int) -> NDArray[np.int64]:
    """First frames of windows of `length` frames, half overlapping."""
    hop = length // 2
    return np.arange(0, (frames - length) // hop) * hop


def mapped_starts(
    starts: NDArray[np.int64], length: int, frames: int, speed: float, rate: int, late: float
) -> tuple[NDArray[np.int64], NDArray[np.bool_]]:
    """Where the windows of a stretched sound lie in its original of `frames`, and which lie inside it."""
    centres = (starts + length / 2) / rate
    mapped = np.round((centres - late) * speed * rate - length / 2).astype(int)
    return mapped, (mapped >= 0) & (mapped + length <= frames)


def spectra_at(sound: Sound, starts: NDArray[np.int64], length: int) -> NDArray[np.complex128]:
    """Spectra [windows, bins, channels] of Hann windows of `length` frames."""
    windows = sound[starts[:, None] + np.arange(length)]
    return scipy.fft.rfft(windows * get_window("hann", length)[:, None], axis=1)


def spectral_convergence(pair: Pair) -> float:
    """Error of the magnitudes, level set aside, against the original's, in dB: lower is better."""
    return convergence(np.abs(pair.original), np.abs(pair.stretched))


def convergence(original: NDArray[np.float64], stretched: NDArray[np.float64]) -> float:
    """Spectral convergence of magnitudes of equal shape, in dB."""
    gain = (original * stretched).sum() / (original * original).sum()
    if gain <= 0:
        return 0.0
    error = np.linalg.norm(stretched / gain - original) / np.linalg.norm(original)
    return float(20 * np.log10(error + 1e-12))


def log_spectral_distance(pair: Pair) -> float:
    """Root mean square difference of the levels of third-octave bands, in dB."""
    bins = pair.original.shape[1]
    frequencies = np.arange(bins) * pair.rate / 2 / (bins - 1)
    edges = THIRDS_FROM_HERTZ * 2 ** (np.arange(24) / 3.0)
    edges = edges[edges < pair.rate / 2 * 0.95]
    original = _band_power(pair.original, frequencies, edges)
    stretched = _band_power(pair.stretched, frequencies, edges)
    floor = original.max() * FLOOR_OF_DISTANCE
    difference = 10 * np.log10((stretched + floor) / (original + floor))
    audible = original > original.max() * QUIETEST_OF_DISTANCE
    return float(np.sqrt((difference[audible] ** 2).mean()))


def _band_power(
    spectra: NDArray[np.complex128],
    frequencies: NDArray[np.float64],
    edges: NDArray[np.float64],
) -> NDArray[np.float64]:
    """Power [windows, bands] of all channels between neighbouring edges."""
    power = np.abs(spectra) ** 2
    bands = [
        power[:, (frequencies >= low) & (frequencies < high)].sum((1, 2))
        for low, high in zip(edges[:-1], edges[1:])
    ]
    return np.stack(bands, 1)
