"""The clips: those made here, the same in every run, and those that one gives."""

import subprocess
import tempfile
from collections.abc import Callable
from dataclasses import dataclass, field, replace
from functools import cache
from pathlib import Path

import numpy as np
import soundfile
from numpy.typing import NDArray
from scipy.signal import resample_poly

from .attacks import find_onsets
from .spectra import Sound
from .synthesis import Place, band_noise, drum_kit, held_chord, steady_tones, struck_chord

FEWEST_ONSETS = 8  # of a clip that one gives: the jitter of fewer says nothing
SHORTEST, LONGEST = 2.0, 20.0  # s of it that are needed, and used

TONES = np.array([220.0, 370.0, 587.0, 988.0, 1568.0, 2637.0])  # Hz, no one a multiple of another
QUIET_TONE = 997.0  # Hz


def nothing() -> NDArray[np.float64]:
    """No times, no frequencies."""
    return np.array([])


@dataclass(frozen=True)
class Clip:
    """A sound, and what may be measured in it."""

    name: str
    about: str
    rate: int
    sound: Sound
    kinds: frozenset[str]  # groups of figures, see taking.py
    bits: int = 16
    onsets: NDArray[np.float64] = field(default_factory=nothing)  # s
    tones: NDArray[np.float64] = field(default_factory=nothing)  # Hz

    def cut(self, seconds: float) -> "Clip":
        """The clip's beginning."""
        return replace(
            self,
            sound=self.sound[: round(seconds * self.rate)],
            onsets=self.onsets[self.onsets < seconds - 0.1],
        )


def given_clip(path: Path) -> Clip:
    """A sound file as a clip. Speech is told by a name that begins with `speech`.

    Raises ValueError, or soundfile's own RuntimeError, if it can't be measured.
    """
    sound, rate = soundfile.read(path, always_2d=True)
    if len(sound) < SHORTEST * rate or not sound.any():
        raise ValueError(f"{path}: shorter than {SHORTEST:g} s, or silent")
    bits = 16 if soundfile.info(path).subtype in ("PCM_16", "PCM_U8", "VORBIS") else 24
    sound = sound[: round(LONGEST * rate), :2]
    kinds = {"spectrum", "level", "clipping"} | ({"stereo"} if sound.shape[1] == 2 else set())
    onsets = find_onsets(sound, rate)
    if path.name.startswith("speech"):
        kinds.add("speech")
    elif len(onsets) >= FEWEST_ONSETS:
        kinds.add("attacks")
    about = f"{sound.shape[1]} channels, {rate / 1000:g} kHz, {bits} bits"
    return Clip(path.name, about, rate, sound, frozenset(kinds), bits, onsets)


def _speech(rate: int, voice: str, text: str) -> Sound:
    with tempfile.TemporaryDirectory() as folder:
        path = Path(folder) / "speech.wav"
        command = ["espeak-ng", "-v", voice, "-s", "160", "-w", str(path), text]
        subprocess.run(command, check=True, capture_output=True)
        spoken, made_at = soundfile.read(path, always_2d=True)
    divisor = np.gcd(rate, made_at)
    spoken = resample_poly(spoken, rate // divisor, made_at // divisor)
    return scaled(spoken[: 9 * rate], -3.0)


TEXT = (
    "The music plays slower, or it plays faster, and the pitch stays where it was. "
    "Six quick zebras jump over a lazy fox; she sells sea shells while the church bells chime. "
    "Please call me back before half past twelve, and bring a box of fresh green peas."
)


def speech() -> Clip:
    """A man's voice, with all the band of a recording."""
    sound = _speech(44100, "en-us+m3", TEXT)
    kinds = frozenset({"spectrum", "level", "speech"})
    return Clip("speech", "a man reading (espeak-ng), mono, 44.1 kHz", 44100, sound, kinds)


def speech16() -> Clip:
    """A woman's voice at the rate of telephones."""
    sound = _speech(16000, "en-gb+f3", TEXT)
    kinds = frozenset({"spectrum", "level", "speech"})
    return Clip("speech16", "a woman reading (espeak-ng), mono, 16 kHz", 16000, sound, kinds)


def drums() -> Clip:
    """A drum kit, each drum at a place of its own."""
    sound, onsets = drum_kit(44100, 9.0, np.random.default_rng(1))
    kinds = frozenset({"spectrum", "level", "stereo", "attacks"})
    about = "a drum kit at full scale, 44.1 kHz"
    return Clip("drums", about, 44100, scaled(sound, -0.1), kinds, onsets=onsets)


@cache
def chords() -> Clip:
    """Chords before two microphones 40 cm apart: every note reaches one of them later."""
    rate, rng = 48000, np.random.default_rng(2)
    sound = np.zeros((9 * rate, 2))
    for beat, notes in enumerate(
        [(48, 55, 64, 71), (45, 57, 64, 72), (41, 57, 60, 69), (43, 59, 62, 67)]
    ):
        struck_chord(sound, rate, 0.1 + 2.2 * beat, notes, rng)
    kinds = frozenset({"spectrum", "level", "stereo"})
    return Clip(
        "chords", "struck chords, spaced microphones, 48 kHz", rate, scaled(sound, -3.0), kinds
    )


@cache
def dense() -> Clip:
    """A band: drums, bass in the middle, bowed chords from left to right, a bed of noise."""
    rate, rng = 44100, np.random.default_rng(3)
    sound = np.zeros((9 * rate, 2))
    for beat, notes in enumerate(
        [(50, 57, 62, 65), (46, 58, 62, 65), (41, 57, 60, 65), (48, 55, 60, 64)]
    ):
        held_chord(sound, rate, 2.25 * beat, 2.3, notes, rng)
        held_chord(sound, rate, 2.25 * beat, 2.3, (notes[0] - 12,), rng, Place(0.0, 0.0), gain=3.0)
    bed = band_noise(len(sound), rate, 300.0, 9000.0, rng)
    kit = drum_kit(rate, 9.0, rng)[0]
    mix = (
        scaled(sound, -6.0) + 0.35 * scaled(kit, 0.0) + 0.03 * np.stack([bed, np.roll(bed, 13)], 1)
    )
    kinds = frozenset({"spectrum", "level", "stereo"})
    about = "a band: drums, bass, bowed chords, a bed of noise, 44.1 kHz"
    return Clip("dense", about, rate, scaled(mix, -3.0), kinds)


def hot() -> Clip:
    """The band as a loud master: driven into a soft limiter up to full scale."""
    band = dense()
    sound = scaled(np.tanh(4 * band.sound), -0.01)
    about = "the same band, limited, peaks at full scale"
    return replace(
        band, name="hot", about=about, sound=sound, kinds=frozenset({"clipping", "level"})
    )


def quiet() -> Clip:
    """Music as quiet as the softest passages of a recording."""
    music = chords()
    about = "the chords 36 dB below that, 24 bits"
    sound = music.sound * 10 ** (-36 / 20)
    return replace(
        music, name="quiet", about=about, sound=sound, kinds=frozenset({"quiet"}), bits=24
    )


def clicks() -> Clip:
    """Clicks at uneven times, so that they fall anywhere in a stretcher's hop."""
    rate, rng = 44100, np.random.default_rng(4)
    onsets = np.cumsum(rng.uniform(0.4, 0.6, 23)) - 0.2
    sound = np.zeros((12 * rate, 2))
    for onset in onsets:
        burst = rng.standard_normal(rate // 50) * np.exp(-np.arange(rate // 50) / (0.0015 * rate))
        start, pan = round(onset * rate), rng.uniform(0.3, 0.7)
        sound[start : start + len(burst)] += burst[:, None] * [1 - pan, pan]
    about = "clicks at uneven times, 44.1 kHz"
    return Clip("clicks", about, rate, scaled(sound, -1.0), frozenset({"attacks"}), onsets=onsets)


def tones() -> Clip:
    """Six steady tones."""
    sound = scaled(steady_tones(44100, 8.0, TONES), -6.0)
    kinds = frozenset({"pitch"})
    return Clip("tones", "six steady tones, 44.1 kHz", 44100, sound, kinds, tones=TONES)


def changes() -> Clip:
    """The same tones, long enough for a course of speeds."""
    sound = scaled(steady_tones(44100, 20.0, TONES), -6.0)
    kinds = frozenset({"dips"})
    return Clip("changes", "the tones under changing speeds", 44100, sound, kinds, tones=TONES)


def tone60() -> Clip:
    """A tone at -60 dBFS, in 24 bits, so that the format isn't what makes the noise."""
    tone = np.array([QUIET_TONE])
    sound = scaled(steady_tones(44100, 6.0, tone), -60.0)
    kinds = frozenset({"floor"})
    return Clip("tone60", "a tone at -60 dBFS, 24 bits", 44100, sound, kinds, bits=24, tones=tone)


def scaled(sound: Sound, peak_db: float) -> Sound:
    """The sound with its largest sample at a level below full scale."""
    return sound * (10 ** (peak_db / 20) / np.abs(sound).max())


BUILT_IN: dict[str, Callable[[], Clip]] = {
    "dense": dense,
    "chords": chords,
    "drums": drums,
    "speech": speech,
    "speech16": speech16,
    "clicks": clicks,
    "tones": tones,
    "changes": changes,
    "quiet": quiet,
    "tone60": tone60,
    "hot": hot,
}
