"""What holds between the two channels, and what a mono loudspeaker makes of them."""

from dataclasses import dataclass

import numpy as np

from .spectra import Pair, Sound


@dataclass(frozen=True)
class Image:
    """Left and right of one sound, over all of its length."""

    correlation: float  # 1 to -1
    difference: float  # dB, left over right
    mono: float  # dB, power of the mono sum over the mean power of the channels


def image(sound: Sound) -> Image:
    """Measures a sound of two channels."""
    left, right = sound[:, 0], sound[:, 1]
    left_power, right_power = (left * left).mean(), (right * right).mean()
    mono_power = (((left + right) / 2) ** 2).mean()
    return Image(
        correlation=float((left * right).mean() / np.sqrt(left_power * right_power + 1e-20)),
        difference=float(10 * np.log10((left_power + 1e-15) / (right_power + 1e-15))),
        mono=float(10 * np.log10(mono_power / ((left_power + right_power) / 2 + 1e-20) + 1e-12)),
    )


def phase_error(pair: Pair) -> float:
    """Mean error of the phase between the channels in degrees, weighted by magnitude; 90 is random."""
    original = pair.original[:, :, 0] * np.conj(pair.original[:, :, 1])
    stretched = pair.stretched[:, :, 0] * np.conj(pair.stretched[:, :, 1])
    weight = np.sqrt(np.abs(original) * np.abs(stretched))
    error = np.abs(np.angle(stretched * np.conj(original) + 1e-30))
    return float(np.degrees((weight * error).sum() / (weight.sum() + 1e-20)))
