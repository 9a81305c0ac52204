"""Takes the figures of figures.py from a clip and its stretched sound."""

from collections.abc import Callable
from dataclasses import dataclass, field

from . import levels, speech, stereo, tones
from .attacks import measure_attacks
from .clips import Clip
from .courses import Course
from .spectra import Comparison, Pair, Sound, log_spectral_distance, spectral_convergence


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
