"""What becomes of attacks: where they sound, how sharp, and what is heard before them."""

from dataclasses import dataclass

import numpy as np
from numpy.typing import NDArray
from scipy.ndimage import maximum_filter1d
from scipy.signal import fftconvolve

from .spectra import Sound

SMOOTHING = (
    0.003  # s; half a period of a kick drum's lowest note is longer, so the first one counts
)
SEARCH = 0.050  # s in the stretched sound, before and after the time where an attack belongs
KNOWN = 0.020  # s around an onset in the original, where it is known
ATTACK = 0.010  # s from the attack's rise: its level
JUST_BEFORE = 0.003  # s before the rise that are the rise itself
PRE_ECHO = 0.030  # s before that in which an echo is looked for
QUIETEST = 1e-6  # power relative to the attack: -60 dB
LOST = 1e-2  # of the gain of the best kept attack: one of less power was left out altogether

RISE_DB, QUIETEST_ATTACK_DB, ALONE_MS = 10.0, -30.0, 120
CLOSEST_ATTACKS = 0.150  # s; closer ones aren't told apart at high speeds


@dataclass(frozen=True)
class Attacks:
    """Figures of all attacks of a sound."""

    position: float  # ms, mean: above 0 is late
    jitter: float  # ms, standard deviation of the position
    level: float  # dB, mean change of the power of the attack's first 10 ms
    lost: float  # per cent: attacks that became softer by 20 dB more than the best kept one
    pre_echo: float  # dB, power before the attack that the original hasn't, relative to the attack


def measure_attacks(
    original: Sound, stretched: Sound, speed: float, rate: int, onsets: NDArray[np.float64]
) -> Attacks:
    """Compares the attacks of `original` that begin at `onsets` (s) with those of `stretched`.

    What can't be told, since there is no attack, is NaN.
    """
    power_in, power_out = _power(original, rate), _power(stretched, rate)
    rooms = _rooms(onsets, speed)
    found = [
        (onset, before, after)
        for onset, room in zip(onsets, rooms)
        if (before := _attack_near(power_in, rate, onset, min(KNOWN, room * speed)))
        and (after := _attack_near(power_out, rate, onset / speed, room))
    ]
    if not found:
        return Attacks(np.nan, np.nan, np.nan, np.nan, np.nan)
    least = LOST * max(after.power / before.power for _, before, after in found)
    kept = [each for each in found if each[2].power >= least * each[1].power]
    late = [after.rise - onset / speed - (before.rise - onset) for onset, before, after in kept]
    change = [after.power / before.power for _, before, after in kept]
    echo = [max(after.echo - before.echo, 0.0) for _, before, after in kept]
    return Attacks(
        position=float(1000 * np.mean(late)),
        jitter=float(1000 * np.std(late)),
        level=float(np.mean(10 * np.log10(change))),
        lost=100 * (1 - len(kept) / len(found)),
        pre_echo=float(10 * np.log10(np.mean(echo) + QUIETEST)),
    )


def find_onsets(sound: Sound, rate: int) -> NDArray[np.float64]:
    """Times at which a sound rises by 10 dB over all of the 120 ms before, however loud that was.

    Attacks that follow each other sooner can't be told apart where they are played fast.
    """
    level = 10 * np.log10(_power(sound, rate) + 1e-12)
    step = rate // 1000
    level = level[::step]  # one value a millisecond
    before = maximum_filter1d(level, ALONE_MS, origin=ALONE_MS // 2 - 1, mode="nearest")
    rise = level[10:] - before[:-10]
    candidates = np.flatnonzero((rise > RISE_DB) & (level[10:] > level.max() + QUIETEST_ATTACK_DB))
    onsets: list[float] = []
    for index in candidates:
        time = (index + 10) * step / rate
        if not onsets or time - onsets[-1] >= CLOSEST_ATTACKS:
            onsets.append(time)
    return np.array(onsets)


@dataclass(frozen=True)
class _Attack:
    rise: float  # s, where the power first rises through a quarter of its peak
    power: float  # mean of the attack
    echo: float  # mean power before it, relative to the attack's


def _power(sound: Sound, rate: int) -> NDArray[np.float64]:
    window = np.hanning(max(3, round(SMOOTHING * rate)))
    power = fftconvolve((sound**2).mean(1), window / window.sum(), mode="same")
    return np.maximum(power, 0.0)


def _rooms(onsets: NDArray[np.float64], speed: float) -> list[float]:
    """How far around each attack one may look without meeting its neighbours, in stretched time."""
    gaps = np.diff(onsets, prepend=-np.inf, append=np.inf) / speed
    return [min(SEARCH, 0.4 * before, 0.4 * after) for before, after in zip(gaps[:-1], gaps[1:])]


def _attack_near(power: NDArray[np.float64], rate: int, time: float, room: float) -> _Attack | None:
    first, last = round((time - room) * rate), round((time + room) * rate)
    echo_frames, attack_frames = round(PRE_ECHO * rate), round(ATTACK * rate)
    if first < 0 or last + attack_frames > len(power):
        return None
    near = power[first:last]
    loud = near >= near.max() / 4
    rises = np.flatnonzero(loud[1:] & ~loud[:-1])
    if len(rises) == 0:  # only the end of something louder
        return None
    rise = first + int(rises[0]) + 1
    end = rise - round(JUST_BEFORE * rate)
    attack = power[rise : rise + attack_frames].mean()
    if end - echo_frames < 0 or attack <= 0:
        return None
    return _Attack(rise / rate, attack, power[end - echo_frames : end].mean() / attack)
