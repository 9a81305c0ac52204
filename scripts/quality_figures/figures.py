"""Every figure: its name, what it means, and how it is taken from a clip and its stretched sound."""

from collections.abc import Callable
from dataclasses import dataclass, field
from enum import Enum

from . import levels, speech, stereo, tones
from .attacks import measure_attacks
from .clips import Clip
from .courses import Course
from .spectra import (
    Comparison,
    Pair,
    Sound,
    log_spectral_distance,
    spectral_convergence,
)


class Best(Enum):
    """Which value of a figure is the best, and so how values of several clips become one."""

    LOW = "lower is better"
    HIGH = "higher is better"
    ZERO = "best at 0"

    def of_several(self, values: list[float]) -> float:
        """The mean; the one farthest from 0 where that is best, since signs would cancel."""
        if self is Best.ZERO:
            return max(values, key=abs)
        return sum(values) / len(values)

    @property
    def summary(self) -> str:
        """How `of_several` is called."""
        return "the farthest from 0" if self is Best.ZERO else "the mean"

    def badness(self, value: float) -> float:
        """Grows as the figure gets worse."""
        return {Best.LOW: value, Best.HIGH: -value, Best.ZERO: abs(value)}[self]


@dataclass(frozen=True)
class Figure:
    """What the report says of one figure."""

    key: str
    title: str
    unit: str
    meaning: str
    best: Best
    digits: int
    audible: float  # a difference that counts when figures are compared


FIGURES = [
    Figure(
        "sc",
        "Spectral convergence",
        "dB",
        "Error of the magnitudes of both channels' spectra, level set aside: smeared attacks, "
        "roughness, reverberation. -20 is very clean, -5 is rough.",
        Best.LOW,
        1,
        0.3,
    ),
    Figure(
        "sc_mono",
        "Spectral convergence of the mono sum",
        "dB",
        "The same of left plus right, which also suffers where the channels drift apart.",
        Best.LOW,
        1,
        0.3,
    ),
    Figure(
        "lsd",
        "Log-spectral distance",
        "dB",
        "Difference of the levels of third octaves, window by window: bands that are lost, dull or "
        "wobbling count although they are soft.",
        Best.LOW,
        2,
        0.2,
    ),
    Figure(
        "ipd",
        "Phase between the channels",
        "degrees",
        "Mean error, weighted by magnitude. 90 is random: nothing is then left of where a sound was.",
        Best.LOW,
        1,
        2.0,
    ),
    Figure(
        "corr",
        "Correlation of the channels",
        "change",
        "Correlation of left and right less that of the original. Below 0: the image is wider than "
        "it was, and hollow in the middle.",
        Best.ZERO,
        2,
        0.05,
    ),
    Figure(
        "mono",
        "Mono sum",
        "dB",
        "Level of left plus right, against the level of the channels, less the same of the original: "
        "what a mono loudspeaker loses.",
        Best.ZERO,
        2,
        0.2,
    ),
    Figure(
        "ild",
        "Level between the channels",
        "dB",
        "Change of the level of left over right.",
        Best.ZERO,
        2,
        0.1,
    ),
    Figure(
        "loud",
        "Loudness",
        "LU",
        "Change of the loudness (BS.1770, no gates).",
        Best.ZERO,
        2,
        0.3,
    ),
    Figure(
        "stoi",
        "Intelligibility",
        "STOI",
        "Short-time objective intelligibility of speech against the original; 1 is perfect.",
        Best.HIGH,
        3,
        0.005,
    ),
    Figure(
        "late",
        "Lateness",
        "ms",
        "By how much the sound is later than its speed says, where the spectra agree best, in steps "
        "of 2 ms; below 0 it is early.",
        Best.ZERO,
        0,
        2.0,
    ),
    Figure(
        "length",
        "Length",
        "ms",
        "Length of the output less the input's over the speed.",
        Best.ZERO,
        1,
        1.0,
    ),
    Figure(
        "position",
        "Position of attacks",
        "ms",
        "By how much attacks are late in the mean; below 0 they are early.",
        Best.ZERO,
        1,
        0.5,
    ),
    Figure(
        "jitter",
        "Jitter of attacks",
        "ms",
        "Standard deviation of their positions: how uneven a steady beat gets.",
        Best.LOW,
        1,
        0.5,
    ),
    Figure(
        "attack",
        "Level of attacks",
        "dB",
        "Change of the power of their first 10 ms. Below 0: soft, blurred attacks.",
        Best.ZERO,
        1,
        0.5,
    ),
    Figure(
        "lost",
        "Lost attacks",
        "%",
        "Attacks that were left out: what cuts and joins pieces drops some when it plays fast.",
        Best.LOW,
        0,
        2.0,
    ),
    Figure(
        "pre_echo",
        "Pre-echo",
        "dB",
        "Power in the 30 ms before an attack that the original hasn't, relative to the attack; "
        "-60 is none.",
        Best.LOW,
        1,
        1.0,
    ),
    Figure(
        "pitch",
        "Pitch",
        "cents",
        "Largest error of six tones between 220 and 2637 Hz.",
        Best.LOW,
        2,
        0.5,
    ),
    Figure(
        "floor",
        "Noise floor",
        "dB",
        "A tone at -60 dBFS over all that isn't the tone.",
        Best.HIGH,
        1,
        1.0,
    ),
    Figure(
        "sc_quiet",
        "Quiet music",
        "dB",
        "Spectral convergence of the chords played 36 dB softer.",
        Best.LOW,
        1,
        0.3,
    ),
    Figure(
        "clip",
        "Clipping",
        "%",
        "Samples at full scale beyond those of the original.",
        Best.LOW,
        3,
        0.02,
    ),
    Figure(
        "dip_median",
        "Dips at changes of speed, median",
        "dB",
        "How far a steady tone sinks where the speed changes.",
        Best.LOW,
        2,
        0.2,
    ),
    Figure(
        "dip_worst",
        "Dips at changes of speed, worst 5 %",
        "dB",
        "What 5 % of the tones and changes exceed.",
        Best.LOW,
        2,
        0.5,
    ),
    Figure(
        "cost",
        "Cost",
        "ms",
        "CPU time for a second of stereo music at 44.1 kHz, as a program with its files, "
        "start and end left out.",
        Best.LOW,
        2,
        0.2,
    ),
]


@dataclass
class Taken:
    """A clip and its stretched sound, with what several figures share."""

    clip: Clip
    stretched: Sound
    speed: float
    late: float = field(init=False)  # s
    pair: Pair = field(init=False)

    def __post_init__(self) -> None:
        comparison = Comparison(self.clip.sound, self.stretched, self.speed, self.clip.rate)
        self.late = comparison.lateness()
        self.pair = comparison.pair(self.late)


def take_all(clip: Clip, stretched: Sound, speed: float) -> dict[str, float]:
    """All figures that the clip's kinds allow, by key, at one speed."""
    values: dict[str, float] = {}
    if clip.kinds & COMPARED.keys():
        taken = Taken(clip, stretched, speed)
        for kind in COMPARED.keys() & clip.kinds:
            values |= COMPARED[kind](taken)
    for kind in ALONE.keys() & clip.kinds:
        values |= ALONE[kind](clip, stretched, speed)
    return values


def take_dips(clip: Clip, stretched: Sound, course: Course) -> dict[str, float]:
    """The figures of a course of speeds."""
    found = tones.dips(stretched, clip.rate, clip.tones, course.changes())
    return {"dip_median": found.median, "dip_worst": found.worst}


def _spectrum(taken: Taken) -> dict[str, float]:
    frames = len(taken.stretched) - len(taken.clip.sound) / taken.speed
    return {
        "sc": spectral_convergence(taken.pair),
        "sc_mono": spectral_convergence(taken.pair.mono()),
        "lsd": log_spectral_distance(taken.pair),
        "late": 1000 * taken.late,
        "length": 1000 * frames / taken.clip.rate,
    }


def _stereo(taken: Taken) -> dict[str, float]:
    before, after = stereo.image(taken.clip.sound), stereo.image(taken.stretched)
    return {
        "ipd": stereo.phase_error(taken.pair),
        "corr": after.correlation - before.correlation,
        "mono": after.mono - before.mono,
        "ild": after.difference - before.difference,
    }


def _speech(taken: Taken) -> dict[str, float]:
    clip = taken.clip
    value = speech.intelligibility(clip.sound, taken.stretched, taken.speed, clip.rate, taken.late)
    return {"stoi": value}


def _quiet(taken: Taken) -> dict[str, float]:
    return {"sc_quiet": spectral_convergence(taken.pair)}


def _level(clip: Clip, stretched: Sound, _speed: float) -> dict[str, float]:
    return {"loud": levels.loudness_change(clip.sound, stretched, clip.rate)}


def _attacks(clip: Clip, stretched: Sound, speed: float) -> dict[str, float]:
    found = measure_attacks(clip.sound, stretched, speed, clip.rate, clip.onsets)
    return {
        "position": found.position,
        "jitter": found.jitter,
        "attack": found.level,
        "lost": found.lost,
        "pre_echo": found.pre_echo,
    }


def _pitch(clip: Clip, stretched: Sound, _speed: float) -> dict[str, float]:
    return {"pitch": tones.pitch_error(stretched, clip.rate, clip.tones)}


def _floor(clip: Clip, stretched: Sound, _speed: float) -> dict[str, float]:
    return {"floor": tones.signal_to_noise(stretched, clip.rate, clip.tones[0])}


def _clipping(clip: Clip, stretched: Sound, _speed: float) -> dict[str, float]:
    added = levels.clipped_share(stretched) - levels.clipped_share(clip.sound)
    return {"clip": max(0.0, added)}


COMPARED: dict[str, Callable[[Taken], dict[str, float]]] = {
    "spectrum": _spectrum,
    "stereo": _stereo,
    "speech": _speech,
    "quiet": _quiet,
}
ALONE: dict[str, Callable[[Clip, Sound, float], dict[str, float]]] = {
    "level": _level,
    "attacks": _attacks,
    "pitch": _pitch,
    "floor": _floor,
    "clipping": _clipping,
}
