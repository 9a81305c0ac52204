"""Every figure: its name, its unit, what it means."""

from dataclasses import dataclass
from enum import Enum


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
