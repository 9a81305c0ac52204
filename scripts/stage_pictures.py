#!/usr/bin/env python3
"""Draws spectrograms of the sounds that stage_tap leaves. Usage: stage_pictures.py FOLDER PICTURES"""

import pathlib
import struct
import sys
import zlib

import numpy as np

RATE = 44100
LOW_RATE = RATE // 4
WIDTH, HEIGHT = 720, 160  # pixels
LOWEST, HIGHEST = 50.0, 20000.0  # Hz, at the bottom and the top
RANGE_DB = 80
COLOURS = 20
WINDOW_SECONDS = 0.046
STOPS = [(14, 17, 22), (38, 44, 92), (112, 64, 150), (206, 84, 110), (246, 156, 84), (255, 244, 190)]
LINE = (90, 98, 110)
MARK = (120, 220, 160)


def read(path: pathlib.Path) -> np.ndarray:
    """The mean of both channels; full scale is 1."""
    return np.fromfile(path, dtype="<i2").reshape(-1, 2).mean(1) / 32768


def levels(sound: np.ndarray, rate: int) -> np.ndarray:
    """Levels [HEIGHT, WIDTH] in dB below a full-scale sine: the whole sound across, octaves upwards."""
    length = 2 ** round(np.log2(rate * WINDOW_SECONDS))
    padded = np.pad(sound, length // 2)
    starts = np.linspace(0, len(sound) - 1, WIDTH).astype(int)
    windows = padded[starts[:, None] + np.arange(length)] * np.hanning(length)
    power = (np.abs(np.fft.rfft(windows, axis=1)) / (length / 4)) ** 2
    bins = np.geomspace(HIGHEST, LOWEST, HEIGHT) * length / rate
    whole = np.arange(power.shape[1])
    decibels = 10 * np.log10(power + 1e-15)
    return np.stack([np.interp(bins, whole, column, right=-150) for column in decibels], axis=1)


def png(pixels: np.ndarray, palette: list[tuple[int, int, int]]) -> bytes:
    def chunk(kind: bytes, data: bytes) -> bytes:
        check = zlib.crc32(kind + data)
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", check)

    height, width = pixels.shape
    rows = b"".join(b"\0" + row.tobytes() for row in pixels.astype(np.uint8))
    return (
        b"\x89PNG\r\n\x1a\n"
        + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 3, 0, 0, 0))
        + chunk(b"PLTE", bytes(part for colour in palette for part in colour))
        + chunk(b"IDAT", zlib.compress(rows, 9))
        + chunk(b"IEND", b"")
    )


def shades() -> list[tuple[int, int, int]]:
    at = np.linspace(0, len(STOPS) - 1, COLOURS)
    parts = [np.interp(at, range(len(STOPS)), [stop[n] for stop in STOPS]) for n in range(3)]
    return [(int(red), int(green), int(blue)) for red, green, blue in zip(*parts)]


def draw(decibels: np.ndarray, loudest: float, marks: list[float]) -> bytes:
    """With lines at 100 Hz, 1 kHz and 10 kHz, and marks at the top at these parts of the width."""
    shade = (decibels - loudest) / RANGE_DB * COLOURS + COLOURS
    pixels = np.clip(shade, 0, COLOURS - 1).astype(int)
    for hertz in (100, 1000, 10000):
        row = round(np.log(HIGHEST / hertz) / np.log(HIGHEST / LOWEST) * (HEIGHT - 1))
        pixels[row, ::4] = COLOURS
    for mark in marks:
        pixels[:10, round(mark * (WIDTH - 1)) :][:, :2] = COLOURS + 1
    return png(pixels, shades() + [LINE, MARK])


def main() -> None:
    folder, pictures = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
    rates = {
        "in": RATE,
        "low": LOW_RATE,
        "high": RATE,
        "stretched-low": LOW_RATE,
        "stretched-high": RATE,
        "out": RATE,
    }
    seen = {name: levels(read(folder / f"{name}.raw"), rate) for name, rate in rates.items()}
    loudest = max(float(picture.max()) for picture in seen.values())
    seconds = len(read(folder / "in.raw")) / RATE
    onsets = [float(line) / seconds for line in (folder / "onsets.txt").read_text().split()]
    for name, picture in seen.items():
        drawn = draw(picture, loudest, onsets if name == "low" else [])
        (pictures / f"{name}.png").write_bytes(drawn)


main()
