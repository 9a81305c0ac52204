"""A course of speeds, as each stretcher that takes one wants it."""

from dataclasses import dataclass
from pathlib import Path

import numpy as np
from numpy.typing import NDArray


@dataclass(frozen=True)
class Course:
    """Speeds, each of which holds for `seconds` of the stretched sound."""

    speeds: tuple[float, ...]
    seconds: float

    def media_times(self) -> NDArray[np.float64]:
        """Where each speed begins in the original, and where the last one ends, in s."""
        return np.concatenate([[0.0], np.cumsum(self.speeds) * self.seconds])

    def changes(self) -> NDArray[np.float64]:
        """When the speed changes in the stretched sound, in s."""
        return np.arange(1, len(self.speeds)) * self.seconds

    def speed_map(self, path: Path) -> None:
        """Writes lines of a time in the original and the speed from there on."""
        lines = [f"{time:.6f} {speed}" for time, speed in zip(self.media_times(), self.speeds)]
        path.write_text("\n".join(lines) + "\n")

    def time_map(self, path: Path, rate: int) -> None:
        """Writes lines of a frame of the original and the frame of the result where it sounds."""
        times = self.media_times()[1:]
        lines = [
            f"{round(time * rate)} {round((count + 1) * self.seconds * rate)}"
            for count, time in enumerate(times)
        ]
        path.write_text("\n".join(lines) + "\n")

    def commands(self, target: str) -> str:
        """FFmpeg's commands that set `target`'s tempo at times of the original."""
        return "; ".join(
            f"{time:.6f} {target} tempo {speed}"
            for time, speed in zip(self.media_times(), self.speeds)
        )


# From and to 1 most of all, where a stretcher may switch between playing and stretching.
CHANGES = Course((1.0, 0.75, 1.0, 1.5, 0.75, 1.0, 1.25, 1.0, 0.6, 1.5) * 2, 0.9)
