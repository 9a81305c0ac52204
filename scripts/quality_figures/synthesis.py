"""Instruments for the clips that are made here. All that looks random comes from the generator given."""

from dataclasses import dataclass

import numpy as np
from numpy.typing import NDArray
from scipy.signal import butter, sosfilt

from .spectra import Sound

HIGHEST_PARTIAL = 14000.0  # Hz
MOST_PARTIALS = 60
FARTHEST = 0.0012  # s, what sound takes for 40 cm between two microphones
BEAT = 0.55  # s
DRUM_SECONDS = 0.4


@dataclass(frozen=True)
class Place:
    """Where a source stands before two microphones."""

    delay: float  # s by which the right one hears it later; below 0, the left one
    difference: float  # dB, left over right

    def channels(self) -> list[tuple[float, float]]:
        """Delay and gain of the left and of the right microphone."""
        gain = 10 ** (self.difference / 40)
        return [(max(0.0, -self.delay), gain), (max(0.0, self.delay), 1 / gain)]


def random_place(rng: np.random.Generator) -> Place:
    """A place whose delay and level agree on the side."""
    side = rng.uniform(-1, 1)
    return Place(FARTHEST * side, 6.0 * side)


def struck_chord(
    sound: Sound, rate: int, start: float, notes: tuple[int, ...], rng: np.random.Generator
) -> None:
    """Adds struck strings (MIDI notes) that ring for two seconds, with one reflection each."""
    for note in notes:
        for place, level in ((random_place(rng), 1.0), (random_place(rng), 0.3)):
            for channel, (delay, gain) in enumerate(place.channels()):
                begin = start + (0.0 if level == 1.0 else 0.023)
                _add(sound, channel, rate, begin, level * gain * _string(rate, note, delay))


def held_chord(
    sound: Sound,
    rate: int,
    start: float,
    seconds: float,
    notes: tuple[int, ...],
    rng: np.random.Generator,
    place: Place | None = None,
    gain: float = 1.0,
) -> None:
    """Adds three bowed voices a note, a little out of tune, each at a place of its own unless told."""
    time = np.arange(round(seconds * rate)) / rate
    swell = np.minimum(1, np.minimum(time, seconds - time) / 0.05)
    for note in notes:
        for detune in (-0.004, 0.0, 0.005):
            pitch = 440 * 2 ** ((note - 69) / 12) * (1 + detune)
            partials = min(MOST_PARTIALS, int(HIGHEST_PARTIAL / pitch))
            phases = rng.uniform(0, 2 * np.pi, partials)
            source = place or random_place(rng)
            for channel, (delay, side) in enumerate(source.channels()):
                wave = _partials(time - delay, pitch, phases)
                _add(sound, channel, rate, start, gain * side * wave * swell)


def drum_kit(
    rate: int, seconds: float, rng: np.random.Generator
) -> tuple[Sound, NDArray[np.float64]]:
    """Kick and snare by turns with hats between; the sound, and when kick and snare begin."""
    sound = np.zeros((round(seconds * rate), 2))
    beats = np.arange(0.3, seconds - 0.5, BEAT)
    beats = beats + rng.uniform(-0.01, 0.01, len(beats))  # a drummer, and no grid of hops
    onsets = np.round(beats * rate) / rate
    for count, onset in enumerate(onsets):
        if count % 2:
            _add_at(sound, rate, onset, _snare(rate, rng), Place(0.0003, 1.5))
        else:
            _add_at(sound, rate, onset, _kick(rate), Place(0.0, 0.0))
        _add_at(sound, rate, onset + BEAT / 2, 0.25 * _hat(rate, rng), Place(-0.0008, -7.0))
    return sound, onsets


def steady_tones(rate: int, seconds: float, frequencies: NDArray[np.float64]) -> Sound:
    """Sines of equal level in both channels, faded in and out over 20 ms."""
    time = np.arange(round(seconds * rate)) / rate
    fade = np.minimum(1, np.minimum(time, time[::-1]) / 0.02)
    phases = 2 * np.pi * frequencies * time[:, None] + np.arange(len(frequencies)) ** 2
    mono = np.sin(phases).sum(1) * fade
    return np.stack([mono, mono], 1)


def band_noise(
    frames: int, rate: int, low: float, high: float, rng: np.random.Generator
) -> NDArray[np.float64]:
    """Noise between two frequencies, its power 1 before the filter."""
    band = butter(2, [low, high], "bandpass", fs=rate, output="sos")
    return sosfilt(band, rng.standard_normal(frames))


def _add(sound: Sound, channel: int, rate: int, start: float, wave: NDArray[np.float64]) -> None:
    first = round(start * rate)
    count = min(len(wave), len(sound) - first)
    if count > 0:
        sound[first : first + count, channel] += wave[:count]


def _string(rate: int, note: int, delay: float) -> NDArray[np.float64]:
    """A struck string: upper partials stretched and soon gone. `delay` in s, exact at any fraction."""
    pitch = 440 * 2 ** ((note - 69) / 12)
    time = np.arange(2 * rate) / rate - delay
    wave = np.zeros(len(time))
    for k in range(1, min(MOST_PARTIALS, int(HIGHEST_PARTIAL / pitch)) + 1):
        frequency = pitch * k * np.sqrt(1 + 0.0003 * k * k)
        if frequency < HIGHEST_PARTIAL:
            decay = np.exp(-np.maximum(time, 0) * (1.2 + 0.5 * k))
            wave += np.sin(2 * np.pi * frequency * time + k * k) * decay * k**-0.9
    return wave * np.clip(time / 0.004, 0, 1) * np.clip((time[-1] - time) / 0.05, 0, 1)


def _partials(
    time: NDArray[np.float64], pitch: float, phases: NDArray[np.float64]
) -> NDArray[np.float64]:
    """A bowed tone: partials that fall by 6 dB an octave."""
    wave = np.zeros(len(time))
    for index, phase in enumerate(phases):
        k = index + 1
        wave += np.sin(2 * np.pi * pitch * k * time + phase) / k
    return wave


def _add_at(sound: Sound, rate: int, start: float, wave: NDArray[np.float64], place: Place) -> None:
    for channel, (delay, gain) in enumerate(place.channels()):
        _add(sound, channel, rate, start + delay, gain * wave)


def _drum_time(rate: int) -> NDArray[np.float64]:
    return np.arange(round(DRUM_SECONDS * rate)) / rate


def _kick(rate: int) -> NDArray[np.float64]:
    time = _drum_time(rate)
    sweep = 50 * time + 2.2 * (1 - np.exp(-time / 0.03))  # cycles: from 120 Hz down to 50
    return np.cos(2 * np.pi * sweep) * np.exp(-time / 0.09)


def _snare(rate: int, rng: np.random.Generator) -> NDArray[np.float64]:
    time = _drum_time(rate)
    body = 0.5 * np.sin(2 * np.pi * 190 * time) * np.exp(-time / 0.06)
    rattle = band_noise(len(time), rate, 1000.0, 12000.0, rng) * np.exp(-time / 0.05)
    return body + 0.8 * rattle


def _hat(rate: int, rng: np.random.Generator) -> NDArray[np.float64]:
    time = _drum_time(rate)
    return band_noise(len(time), rate, 6000.0, 16000.0, rng) * np.exp(-time / 0.02)
