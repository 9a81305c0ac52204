"""Runs every stretcher on every clip at every speed, on all processors, and takes the figures."""

import sys
from concurrent.futures import ProcessPoolExecutor
from dataclasses import dataclass, replace

import numpy as np

from .clips import Clip
from .courses import CHANGES, Course
from .spectra import Sound
from .stretchers import Stretcher
from .taking import take_all, take_dips

SHORT_SECONDS, LONG_SECONDS = 5.0, 45.0  # of the sounds whose difference is the cost
QUICK, REPEATS = 1.0, 3  # a run that takes less than so many s of CPU time is repeated


@dataclass(frozen=True)
class Value:
    """One figure of one stretcher on one clip; speed 0 stands for a course of speeds."""

    clip: str
    stretcher: str
    speed: float
    key: str
    value: float


@dataclass(frozen=True)
class Job:
    """One run of one stretcher."""

    clip: Clip
    stretcher: Stretcher
    speed: float | Course


def measure(
    clips: list[Clip], stretchers: list[Stretcher], speeds: list[float], workers: int
) -> list[Value]:
    """All figures but the cost. What can't be run is said and left out."""
    jobs = [
        Job(clip, stretcher, speed)
        for clip in clips
        for stretcher in stretchers
        for speed in _speeds_for(clip, stretcher, speeds)
    ]
    values: list[Value] = []
    with ProcessPoolExecutor(workers) as pool:
        for count, found in enumerate(pool.map(_take, jobs), 1):
            values += found
            _progress(f"{count} of {len(jobs)} runs")
    print(file=sys.stderr)
    return values


def measure_cost(clip: Clip, stretchers: list[Stretcher], speeds: list[float]) -> list[Value]:
    """CPU time for a second of `clip`, one run at a time."""
    values = []
    for stretcher in stretchers:
        _progress(f"cost of {stretcher.name}")
        for speed in speeds:
            seconds = _cpu_time(stretcher, clip, speed, LONG_SECONDS)
            seconds -= _cpu_time(stretcher, clip, speed, SHORT_SECONDS)
            milliseconds = 1000 * seconds / (LONG_SECONDS - SHORT_SECONDS)
            values.append(Value(clip.name, stretcher.name, speed, "cost", milliseconds))
    print(file=sys.stderr)
    return values


def _speeds_for(clip: Clip, stretcher: Stretcher, speeds: list[float]) -> list[float | Course]:
    if "dips" not in clip.kinds:
        return list(speeds)
    return [CHANGES] if stretcher.on_course else []


def _take(job: Job) -> list[Value]:
    clip, stretcher, speed = job.clip, job.stretcher, job.speed
    try:
        stretched, _ = stretcher.play(clip, speed)
        _refuse_fragment(clip, stretched, speed)
    except RuntimeError as error:
        print(f"\nleft out: {clip.name}, {stretcher.name}: {error}", file=sys.stderr)
        return []
    if isinstance(speed, Course):
        found, at = take_dips(clip, stretched, speed), 0.0
    else:
        found, at = take_all(clip, stretched, speed), speed
    return [
        Value(clip.name, stretcher.name, at, key, value)
        for key, value in found.items()
        if np.isfinite(value)
    ]


def _refuse_fragment(clip: Clip, stretched: Sound, speed: float | Course) -> None:
    """Raises RuntimeError where so much is missing that figures would mean nothing."""
    if isinstance(speed, Course):
        seconds = speed.seconds * len(speed.speeds)
    else:
        seconds = len(clip.sound) / clip.rate / speed
    if len(stretched) < 0.8 * seconds * clip.rate:
        raise RuntimeError(f"only {len(stretched) / clip.rate:.2f} s of {seconds:.2f}")


def _cpu_time(stretcher: Stretcher, clip: Clip, speed: float, seconds: float) -> float:
    frames = round(seconds * clip.rate)
    repeats = -(-frames // len(clip.sound))
    long = replace(clip, sound=np.tile(clip.sound, (repeats, 1))[:frames])
    times = [stretcher.play(long, speed)[1]]
    while times[0] < QUICK and len(times) < REPEATS:
        times.append(stretcher.play(long, speed)[1])
    return min(times)


def _progress(text: str) -> None:
    if sys.stderr.isatty():
        print(f"\r{text:40}", end="", file=sys.stderr, flush=True)
