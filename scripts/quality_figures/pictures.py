"""Pictures: spectrograms on the original's time, and figures over speed."""

import base64
import html
import io
from collections.abc import Sequence
from dataclasses import dataclass

import matplotlib

matplotlib.use("Agg")
matplotlib.rcParams["svg.fonttype"] = "none"  # letters as letters, a quarter of the size

import matplotlib.pyplot as plt  # noqa: E402 -- after the choice of what draws
import numpy as np  # noqa: E402
import scipy.fft  # noqa: E402
from matplotlib.figure import Figure as Canvas  # noqa: E402
from numpy.typing import NDArray  # noqa: E402
from PIL import Image  # noqa: E402
from scipy.signal import get_window  # noqa: E402

from .clips import Clip  # noqa: E402
from .figures import Figure  # noqa: E402
from .spectra import Sound  # noqa: E402
from .stretchers import Stretcher  # noqa: E402
from .tables import Results  # noqa: E402

RANGE_DB = 90
COLOURS = 48  # of a spectrogram: steps of 2 dB
WINDOW_SECONDS = 0.023
COLUMNS = 700  # of a spectrogram: about the pixels of its width
SHOWN_SECONDS = 5.0  # of the original
LINE_STYLES = {"Velora natural": ("black", "-", 2.4), "Velora engine": ("grey", "-", 2.0)}


@dataclass(frozen=True)
class Spectrograms:
    """A clip at one speed: the picture to be made of it, by whom it is played."""

    clip: Clip
    speed: float
    stretchers: Sequence[Stretcher]


def draw_spectrograms(what: Spectrograms) -> str:
    """The original above what each stretcher makes of it, as an HTML image."""
    clip = what.clip.cut(SHOWN_SECONDS)
    sounds = [("original", clip.sound, 1.0)]
    for stretcher in what.stretchers:
        sounds.append((stretcher.name, stretcher.play(clip, what.speed)[0], what.speed))
    canvas, axes = plt.subplots(
        len(sounds), 1, figsize=(9, 1.9 * len(sounds)), sharex=True, layout="constrained"
    )
    loudest = _levels(clip.sound, clip.rate, 1.0).max()
    for axis, (name, sound, speed) in zip(axes, sounds):
        level = _levels(sound, clip.rate, speed)
        extent = (0, len(sound) / clip.rate * speed, 0, clip.rate / 2000)
        axis.imshow(
            level,
            origin="lower",
            aspect="auto",
            extent=extent,
            vmin=loudest - RANGE_DB,
            vmax=loudest,
            cmap="magma",
        )
        axis.set_ylabel("kHz")
        axis.set_title(name, loc="left", fontsize=9)
    axes[-1].set_xlabel("time in the original, s")
    return _png(canvas, f"Spectrograms of {clip.name} at speed {what.speed:g}")


def draw_figure(results: Results, figure: Figure, clip: str | None) -> str:
    """A figure of every stretcher over speed, as an HTML image; nothing where it has one speed."""
    all_series = {name: results.series(figure, name, clip) for name in results.stretchers}
    if max(len(series) for series in all_series.values()) < 2:
        return ""
    canvas, axis = plt.subplots(figsize=(5.4, 3.4), layout="constrained")
    for name, series in all_series.items():
        colour, dashes, width = LINE_STYLES.get(name, (None, "--", 1.0))
        axis.plot(
            list(series),
            list(series.values()),
            dashes,
            color=colour,
            linewidth=width,
            marker=".",
            label=name,
        )
    _label(axis, figure, sorted({speed for series in all_series.values() for speed in series}))
    return _svg(canvas, f"{figure.title} over speed")


def _label(axis: plt.Axes, figure: Figure, speeds: list[float]) -> None:
    axis.set_xscale("log")
    axis.set_xticks(speeds, [f"{speed:g}" for speed in speeds])
    axis.minorticks_off()
    if figure.key == "cost":
        axis.set_yscale("log")
    axis.set_title(f"{figure.title}: {figure.best.value}", fontsize=9)
    axis.set_ylabel(figure.unit)
    axis.grid(alpha=0.3)
    axis.legend(fontsize=6)


def _levels(sound: Sound, rate: int, speed: float) -> NDArray[np.float64]:
    """Levels [bins, columns] in dB; a column is the same stretch of the original at every speed."""
    length = int(2 ** round(np.log2(rate * WINDOW_SECONDS)))
    hop = max(1, int(SHOWN_SECONDS * rate / COLUMNS / speed))
    starts = np.arange(0, max(1, len(sound) - length), hop)
    windows = sound[starts[:, None] + np.arange(length)] * get_window("hann", length)[:, None]
    power = (np.abs(scipy.fft.rfft(windows, axis=1)) ** 2).mean(2)
    return 10 * np.log10(power.T + 1e-18)


def _png(canvas: Canvas, alternative: str) -> str:
    drawn, packed = io.BytesIO(), io.BytesIO()
    canvas.savefig(drawn, format="png", dpi=90)
    plt.close(canvas)
    few_colours = Image.open(drawn).convert("RGB").quantize(COLOURS, dither=Image.Dither.NONE)
    few_colours.save(packed, format="png", optimize=True)
    return _image("image/png", packed, alternative)


def _svg(canvas: Canvas, alternative: str) -> str:
    drawn = io.BytesIO()
    canvas.savefig(drawn, format="svg")
    plt.close(canvas)
    return _image("image/svg+xml", drawn, alternative)


def _image(kind: str, stream: io.BytesIO, alternative: str) -> str:
    data = base64.b64encode(stream.getvalue()).decode()
    return f'<img src="data:{kind};base64,{data}" alt="{html.escape(alternative)}">'
