"""Whole runs of programs that change the speed of sound files: seconds from start to end, side by side.

    tool.py TOOL CLIP [--rounds N]

Ten minutes of CLIP go from WAV to WAV, FLAC to FLAC and MP3 to MP3 at 0.75 and 1.5, each program once
in each round, in turn; medians count. Programs that are not installed, or that don't take a kind of
file, are left out of its row; the slowest, rubberband, runs in the first round only. Then three hours
go through TOOL, for the memory that it takes.
"""

import argparse
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time
from collections.abc import Callable
from pathlib import Path

MINUTES = 10
LONG_MINUTES = 180
KINDS = ("wav", "flac", "mp3")
SPEEDS = (0.75, 1.5)
MP3_BIT_RATE = 192  # kb/s, for all

Command = list[str]


def commands(tool: str) -> dict[str, Callable[[str, str, float], Command]]:
    """Each program's command line for a file, a result and a speed."""

    def is_mp3(path: str) -> bool:
        return path.endswith(".mp3")

    def ffmpeg(source: str, result: str, speed: float) -> Command:
        rate = ["-b:a", f"{MP3_BIT_RATE}k"] if is_mp3(result) else []
        return ["ffmpeg", "-v", "error", "-y", "-i", source, "-af", f"atempo={speed}", *rate, result]

    def sox(source: str, result: str, speed: float) -> Command:
        rate = ["-C", str(MP3_BIT_RATE)] if is_mp3(result) else []
        return ["sox", source, *rate, result, "tempo", str(speed)]

    return {
        "velora-vsp": lambda source, result, speed: [tool, source, result, "-s", str(speed), "-f", "-q"],
        "ffmpeg atempo": ffmpeg,
        "sox tempo": sox,
        "soundstretch": lambda source, result, speed: [
            "soundstretch",
            source,
            result,
            f"-tempo={100 * speed - 100:g}",
        ],
        "rubberband": lambda source, result, speed: [
            "rubberband",
            "-q",
            "--tempo",
            str(speed),
            source,
            result,
        ],
    }


def run(command: Command) -> tuple[float, int] | None:
    """Seconds, and the most memory in KiB; None if the program failed."""
    start = time.perf_counter()
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    return (time.perf_counter() - start, usage.ru_maxrss) if status == 0 else None


def make_sound(clip: str, path: Path, minutes: int) -> None:
    """`clip` again and again."""
    rate = ["-b:a", f"{MP3_BIT_RATE}k"] if path.suffix == ".mp3" else []
    subprocess.run(
        ["ffmpeg", "-v", "error", "-y", "-stream_loop", "-1", "-i", clip, "-t", str(60 * minutes), *rate, path],
        check=True,
    )


def row(tool: str, source: Path, speed: float, rounds: int) -> str:
    """A line of the table."""
    seconds: dict[str, list[float]] = {}
    programs = {
        name: make for name, make in commands(tool).items() if name == "velora-vsp" or shutil.which(name.split()[0])
    }
    for number in range(rounds):
        for name, make in programs.items():
            if name == "rubberband" and number > 0:
                continue
            result = source.with_name("result" + source.suffix)
            result.unlink(missing_ok=True)
            measured = run(make(str(source), str(result), speed))
            # What writes another kind of file than it is asked for doesn't take part.
            if measured and result.exists() and same_kind(source, result):
                seconds.setdefault(name, []).append(measured[0])
    medians = {name: statistics.median(values) for name, values in seconds.items()}
    if "velora-vsp" not in medians:
        sys.exit(f"{tool} failed on {source.name}")
    ours = medians.pop("velora-vsp")
    cells = [f"{ours:.2f}"]
    for name in list(commands(tool))[1:]:
        cells.append(f"{medians[name]:.2f} ({ours / medians[name]:.2f})" if name in medians else "–")
    return f"| {source.suffix[1:].upper()}, {speed} | " + " | ".join(cells) + " |"


def same_kind(first: Path, second: Path) -> bool:
    """Whether both start alike; MP3 starts with a tag or with a frame, but not as the others do."""
    with first.open("rb") as one, second.open("rb") as other:
        start = other.read(4)
        return start == one.read(4) or (first.suffix == ".mp3" and start not in (b"RIFF", b"fLaC"))


def main() -> None:
    parser = argparse.ArgumentParser()
    parser.add_argument("tool")
    parser.add_argument("clip")
    parser.add_argument("--rounds", type=int, default=5)
    arguments = parser.parse_args()
    with tempfile.TemporaryDirectory() as directory:
        print(f"Seconds for {MINUTES} minutes of stereo music; in brackets velora-vsp's share of that.\n")
        print("| files, speed | " + " | ".join(commands(arguments.tool)) + " |")
        print("| --- |" + " ---: |" * len(commands(arguments.tool)))
        for kind in KINDS:
            source = Path(directory, f"source.{kind}")
            make_sound(arguments.clip, source, MINUTES)
            for speed in SPEEDS:
                print(row(arguments.tool, source, speed, arguments.rounds), flush=True)
            source.unlink()
        memory = {}
        for minutes in (MINUTES, LONG_MINUTES):
            source = Path(directory, "long.flac")
            make_sound(arguments.clip, source, minutes)
            measured = run([arguments.tool, str(source), "/dev/null", "--format", "flac", "-s", "1.5", "-f", "-q"])
            if measured:
                memory[minutes] = measured[1] / 1024
        print("\nMost memory: " + ", ".join(f"{size:.1f} MiB for {m} minutes" for m, size in memory.items()))


if __name__ == "__main__":
    main()
