"""Tables of the figures, in Markdown."""

from collections import defaultdict
from dataclasses import dataclass

from .figures import FIGURES, Figure
from .measuring import Value

Series = dict[float, float]  # figure by speed; speed 0 stands for a course of speeds
OURS = "Velora"  # how the names of our own begin; the first of them is compared with others


@dataclass(frozen=True)
class Table:
    """Rows under a header, with a heading and a text."""

    heading: str
    text: str
    header: list[str]
    rows: list[list[str]]

    def markdown(self) -> str:
        """The table with its heading, of the third level."""
        rules = ["---"] + ["---:"] * (len(self.header) - 1)
        lines = [f"| {' | '.join(cells)} |" for cells in [self.header, rules, *self.rows]]
        return "\n".join([f"### {self.heading}", "", self.text, "", *lines])


class Results:
    """The values of a run, and what they come to over several clips."""

    def __init__(self, values: list[Value], stretchers: list[str]) -> None:
        self.stretchers = stretchers
        self._values: dict[str, list[Value]] = defaultdict(list)
        for value in values:
            self._values[value.key].append(value)

    def clips_of(self, figure: Figure) -> list[str]:
        """Names of the clips that the figure was taken from."""
        return list(dict.fromkeys(value.clip for value in self._values[figure.key]))

    def figures(self, clip: str | None = None) -> list[Figure]:
        """The figures that there are, of all clips or of one."""
        return [
            figure
            for figure in FIGURES
            if (self.clips_of(figure) if clip is None else clip in self.clips_of(figure))
        ]

    def series(self, figure: Figure, stretcher: str, clip: str | None = None) -> Series:
        """One stretcher's figure over speed, of one clip or what all clips come to."""
        found: dict[float, list[float]] = defaultdict(list)
        for value in self._values[figure.key]:
            if value.stretcher == stretcher and clip in (None, value.clip):
                found[value.speed].append(value.value)
        return {speed: figure.best.of_several(found[speed]) for speed in sorted(found)}


def at_a_glance(results: Results) -> Table:
    """Every figure of every stretcher, over all speeds and clips."""
    rows = []
    for figure in results.figures():
        cells = [f"{figure.title}, {figure.unit}"]
        for stretcher in results.stretchers:
            series = results.series(figure, stretcher)
            value = figure.best.of_several(list(series.values())) if series else None
            cells.append(number(value, figure.digits))
        rows.append(cells)
    text = "Means over the speeds and clips; of what is best at 0, the value farthest from it."
    return Table("At a glance", text, ["figure", *results.stretchers], rows)


def figure_table(results: Results, figure: Figure, clip: str | None = None) -> Table:
    """One figure of every stretcher at every speed, of one clip or what all clips come to."""
    all_series = {name: results.series(figure, name, clip) for name in results.stretchers}
    speeds = sorted({speed for series in all_series.values() for speed in series})
    header = ["stretcher", *(f"speed {speed:g}" if speed else "a course" for speed in speeds)]
    rows = [
        [name, *(number(series.get(speed), figure.digits) for speed in speeds)]
        for name, series in all_series.items()
        if series
    ]
    return Table(f"{figure.title} ({figure.unit})", _text(results, figure, clip), header, rows)


def where_others_are_better(results: Results) -> str:
    """For each figure the stretchers that beat ours by what can be heard, in the mean of the speeds."""
    lines = []
    ours = next((name for name in results.stretchers if name.startswith(OURS)), "")
    for figure in results.figures():
        own = _badness(results, figure, ours)
        if own is None:
            continue
        better = []
        for stretcher in results.stretchers:
            theirs = _badness(results, figure, stretcher)
            if not stretcher.startswith(OURS) and theirs is not None:
                if theirs < own - figure.audible:
                    better.append((theirs, stretcher))
        if better:
            names = ", ".join(name for _, name in sorted(better))
            lines.append(f"- {figure.title}: {names}")
    heading = f"### Where others are better than {ours}\n\nBest first, by the mean over the speeds:"
    return f"{heading}\n\n" + ("\n".join(lines) or "Nowhere.")


def number(value: float | None, digits: int) -> str:
    """A value, a dash where there is none."""
    if value is None or value != value:
        return "–"
    rounded = round(value, digits) + 0.0  # no negative zero
    return f"{rounded:.{digits}f}".replace("-", "−")


def _badness(results: Results, figure: Figure, stretcher: str) -> float | None:
    series = results.series(figure, stretcher)
    if not series:
        return None
    return sum(figure.best.badness(value) for value in series.values()) / len(series)


def _text(results: Results, figure: Figure, clip: str | None) -> str:
    best = figure.best.value.capitalize()
    if clip is not None:
        return f"{figure.meaning} {best}."
    clips = results.clips_of(figure)
    several = f"{figure.best.summary} of " if len(clips) > 1 else ""
    return f"{figure.meaning} {best}. Clips: {several}{', '.join(clips)}."
