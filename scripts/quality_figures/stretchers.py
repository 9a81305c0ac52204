"""The programs that stretch: this project's tool in both of its modes, and those of others."""

import resource
import shutil
import subprocess
import tempfile
from collections.abc import Callable
from dataclasses import dataclass
from functools import partial
from pathlib import Path

import numpy as np
import soundfile

from .clips import Clip
from .courses import Course
from .spectra import Sound

MOST_SECONDS = 300.0  # after which a program is taken to hang


@dataclass(frozen=True)
class Files:
    """What a stretcher reads and writes, and a file beside it for a course of speeds."""

    original: Path
    stretched: Path
    course: Path
    bits: int
    rate: int


Command = list[str]


@dataclass(frozen=True)
class Stretcher:
    """A program, and how it is told a speed or a course of speeds."""

    name: str
    program: str  # its path or name
    package: str  # Debian's, whose version counts; none for our own tool
    at_speed: Callable[[Files, float], Command]
    on_course: Callable[[Files, Course], Command] | None = None
    most_bits: int = 24

    def version(self) -> str:
        """That of the Debian package."""
        command = ["dpkg-query", "-W", "-f", "${Version}", self.package]
        found = subprocess.run(command, capture_output=True, text=True).stdout
        return found.split(":")[-1].split("-")[0].split("+")[0] or "(not Debian's)"

    def play(self, clip: Clip, speed: float | Course) -> tuple[Sound, float]:
        """The clip at another speed, and the CPU time that took, in s. Raises RuntimeError."""
        with tempfile.TemporaryDirectory() as name:
            folder = Path(name)
            bits = min(clip.bits, self.most_bits)
            files = Files(
                folder / "original.wav", folder / "out.wav", folder / "course", bits, clip.rate
            )
            soundfile.write(files.original, clip.sound, clip.rate, subtype=f"PCM_{bits}")
            seconds = _run(self._command(files, speed))
            stretched, _ = soundfile.read(files.stretched, always_2d=True)
        # Sonic's program says in its file's header that stereo is mono.
        return stretched.reshape(-1, clip.sound.shape[1]), seconds

    def _command(self, files: Files, speed: float | Course) -> Command:
        if not isinstance(speed, Course):
            return self.at_speed(files, speed)
        if self.on_course is None:
            raise RuntimeError("takes no course of speeds")
        return self.on_course(files, speed)


def ours(tool: Path) -> list[Stretcher]:
    """This project's tool in both of its modes."""
    return [
        Stretcher(
            f"Velora {sound}",
            str(tool),
            "",
            partial(_our_speed, tool, sound),
            partial(_our_course, tool, sound),
        )
        for sound in ("natural", "engine")
    ]


def peers() -> list[Stretcher]:
    """Other stretchers with their makers' defaults, whether they are installed or not."""
    return [
        _rubber_band("R3", "--fine"),
        _rubber_band("R2", "--fast"),
        Stretcher("SoundTouch", "soundstretch", "soundstretch", _soundstretch),
        Stretcher("Sonic", "sonic", "sonic", _sonic, most_bits=16),
        Stretcher("SoX tempo", "sox", "sox", _sox),
        Stretcher("FFmpeg atempo", "ffmpeg", "ffmpeg", _ffmpeg, _ffmpeg_course),
    ]


def present(stretchers: list[Stretcher]) -> list[Stretcher]:
    """Those that can be run here."""
    return [stretcher for stretcher in stretchers if shutil.which(stretcher.program)]


def _our_command(tool: Path, sound: str, files: Files) -> Command:
    return [str(tool), str(files.original), str(files.stretched), "--quiet", "--sound", sound]


def _our_speed(tool: Path, sound: str, files: Files, speed: float) -> Command:
    return [*_our_command(tool, sound, files), "--keep-pitch", "--speed", str(speed)]


def _our_course(tool: Path, sound: str, files: Files, course: Course) -> Command:
    course.speed_map(files.course)
    return [*_our_command(tool, sound, files), "--speed-map", str(files.course)]


def _rubber_band(engine: str, option: str) -> Stretcher:
    return Stretcher(
        f"Rubber Band {engine}",
        "rubberband",
        "rubberband-cli",
        partial(_rubber_band_speed, option),
        partial(_rubber_band_course, option),
    )


def _rubber_band_command(option: str, files: Files) -> Command:
    # Where its output clips the program starts again with less gain, unless it is told not to.
    command = ["rubberband", "--quiet", option, "--ignore-clipping"]
    return [*command, str(files.original), str(files.stretched)]


def _rubber_band_speed(option: str, files: Files, speed: float) -> Command:
    return [*_rubber_band_command(option, files), "--tempo", str(speed)]


def _rubber_band_course(option: str, files: Files, course: Course) -> Command:
    course.time_map(files.course, files.rate)
    seconds = course.seconds * len(course.speeds)
    options = ["--duration", str(seconds), "--timemap", str(files.course)]
    return [*_rubber_band_command(option, files), *options]


def _soundstretch(files: Files, speed: float) -> Command:
    percent = 100 * (speed - 1)
    return ["soundstretch", str(files.original), str(files.stretched), f"-tempo={percent:+.4f}"]


def _sonic(files: Files, speed: float) -> Command:
    return ["sonic", "-s", str(speed), str(files.original), str(files.stretched)]


def _sox(files: Files, speed: float) -> Command:
    # -D: no dither, which the others don't add either.
    return ["sox", "-D", str(files.original), str(files.stretched), "tempo", str(speed)]


def _ffmpeg(files: Files, speed: float) -> Command:
    # Each instance blends, and drops nothing, between 0.5 and 2.
    count = max(1, int(np.ceil(abs(np.log2(speed)))))
    each = f"atempo={speed ** (1 / count):.6f}"
    return _ffmpeg_command(files, ",".join([each] * count))


def _ffmpeg_course(files: Files, course: Course) -> Command:
    commands = course.commands("atempo")
    return _ffmpeg_command(files, f"asendcmd=c='{commands}',atempo={course.speeds[0]}")


def _ffmpeg_command(files: Files, filters: str) -> Command:
    command = ["ffmpeg", "-nostdin", "-v", "error", "-i", str(files.original)]
    return [*command, "-af", filters, "-c:a", f"pcm_s{files.bits}le", str(files.stretched)]


def _run(command: Command) -> float:
    """Runs a program; its CPU time in s, of all its threads."""
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    try:
        done = subprocess.run(
            command, capture_output=True, text=True, errors="replace", timeout=MOST_SECONDS
        )
    except subprocess.TimeoutExpired as error:
        raise RuntimeError(f"{command[0]}: no end after {MOST_SECONDS} s") from error
    if done.returncode != 0:
        lines = done.stderr.strip().splitlines() or ["no reason given"]
        raise RuntimeError(f"{command[0]}: {lines[0]}")
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
