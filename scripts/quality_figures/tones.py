"""Steady tones: their pitch, what noise comes beside them, and how they dip where the speed changes."""

from dataclasses import dataclass

import numpy as np
from numpy.typing import NDArray
from scipy.signal import fftconvolve, get_window

from .spectra import Sound

PITCH_SECONDS = 2.0  # of the middle of a sound
PITCH_SEARCH = 0.03  # of the frequency, either way: half a semitone
TONE_HERTZ = 30.0  # either way of a tone's frequency: what counts as the tone
LOWEST_NOISE_HERTZ = 20.0
LEVEL_SMOOTHING = 0.008  # s, standard deviation: tones 110 Hz apart don't meet
DIP_WITHIN = 0.150  # s around a change, and beyond it as much again for the level without a dip


def pitch_error(sound: Sound, rate: int, tones: NDArray[np.float64]) -> float:
    """Largest deviation of the `tones` (Hz) that the middle of a sound is made of, in cents."""
    length = min(len(sound), round(PITCH_SECONDS * rate))
    start = (len(sound) - length) // 2
    middle = sound[start : start + length].mean(1) * get_window("hann", length)
    size = 4 * int(2 ** np.ceil(np.log2(length)))  # bins much narrower than a tone's peak
    spectrum = np.log(np.abs(np.fft.rfft(middle, size)) + 1e-12)
    found = [_peak_near(spectrum, tone * size / rate) * rate / size for tone in tones]
    return float(np.abs(1200 * np.log2(np.array(found) / tones)).max())


def signal_to_noise(sound: Sound, rate: int, tone: float) -> float:
    """Power of a tone (Hz) over that of all else above 20 Hz, in dB; start and end are left out."""
    edge = round(0.1 * len(sound))
    middle = sound[edge : len(sound) - edge].mean(1)
    power = np.abs(np.fft.rfft(middle * get_window("blackmanharris", len(middle)))) ** 2
    frequencies = np.fft.rfftfreq(len(middle), 1 / rate)
    is_tone = np.abs(frequencies - tone) < TONE_HERTZ
    noise = power[~is_tone & (frequencies > LOWEST_NOISE_HERTZ)].sum()
    return float(10 * np.log10((power[is_tone].sum() + 1e-20) / (noise + 1e-20)))


@dataclass(frozen=True)
class Dips:
    """How far tones sink where the speed changes, over all tones and changes, in dB."""

    median: float
    worst: float  # what 5 % exceed


def dips(sound: Sound, rate: int, tones: NDArray[np.float64], changes: NDArray[np.float64]) -> Dips:
    """Measures steady `tones` (Hz) around `changes` (s in this sound)."""
    depths = []
    for tone in tones:
        level = _level_of(sound.mean(1), rate, tone)
        depths += [_dip_at(level, round(change * rate), rate) for change in changes]
    return Dips(float(np.median(depths)), float(np.percentile(depths, 95)))


def _peak_near(log_spectrum: NDArray[np.float64], bin_expected: float) -> float:
    """The largest bin near another, to fractions of a bin by the parabola through its neighbours."""
    first = int(bin_expected * (1 - PITCH_SEARCH))
    last = int(bin_expected * (1 + PITCH_SEARCH)) + 2
    peak = first + int(np.argmax(log_spectrum[first:last]))
    below, at, above = log_spectrum[peak - 1 : peak + 2]
    return float(peak + 0.5 * (below - above) / (below - 2 * at + above))


def _level_of(sound: NDArray[np.float64], rate: int, tone: float) -> NDArray[np.float64]:
    """Level of one tone over time, in dB."""
    time = np.arange(len(sound)) / rate
    reach = np.arange(-round(4 * LEVEL_SMOOTHING * rate), round(4 * LEVEL_SMOOTHING * rate) + 1)
    window = np.exp(-0.5 * (reach / (LEVEL_SMOOTHING * rate)) ** 2)
    turned = fftconvolve(sound * np.exp(-2j * np.pi * tone * time), window / window.sum(), "same")
    return 20 * np.log10(np.abs(turned) + 1e-9)


def _dip_at(level: NDArray[np.float64], frame: int, rate: int) -> float:
    near = round(DIP_WITHIN * rate)
    before, after = level[frame - 2 * near : frame - near], level[frame + near : frame + 2 * near]
    lowest = level[frame - near : frame + near].min()
    return float((np.median(before) + np.median(after)) / 2 - lowest)
