"""What a run leaves: the tables, the page, the raw values, and docs/sound.md brought up to date."""

import csv
import datetime
import html
import platform
from concurrent.futures import ProcessPoolExecutor
from pathlib import Path

from .clips import Clip
from .measuring import Value
from .pictures import Spectrograms, draw_figure, draw_spectrograms
from .stretchers import Stretcher
from .tables import OURS, Results, Table, at_a_glance, figure_table, where_others_are_better

BEGIN, END = "<!-- scripts/quality writes from here -->", "<!-- to here -->"
PEER_IN_PICTURES = "Rubber Band R3"
STYLE = """
body { font: 15px/1.4 sans-serif; margin: 2em auto; max-width: 75em; padding: 0 1em; }
table { border-collapse: collapse; font-size: 13px; margin: 0.5em 0 1.5em; }
td, th { border: 1px solid #ccc; padding: 0.15em 0.5em; text-align: right; }
td:first-child, th:first-child { text-align: left; }
"""


def conditions(stretchers: list[Stretcher], version: str, clips: list[Clip]) -> str:
    """Machine, date, versions and clips, as a paragraph of Markdown and a list."""
    versions = [f"Velora VSP {version}"]
    versions += [f"{each.name} {each.version()}" for each in stretchers if each.package]
    today = datetime.date.today().isoformat()
    lines = [f"{today}, {processor()}. {', '.join(versions)}.", ""]
    return "\n".join(lines + [f"- `{clip.name}`: {clip.about}" for clip in clips])


def processor() -> str:
    """The name of this machine's processor."""
    try:
        for line in Path("/proc/cpuinfo").read_text().splitlines():
            if line.startswith("model name"):
                return line.split(":", 1)[1].strip()
    except OSError:
        pass
    return platform.processor() or platform.machine()


def summary(results: Results, about: str) -> str:
    """The tables of all clips together, in Markdown."""
    parts = [about, at_a_glance(results).markdown(), where_others_are_better(results)]
    parts += [figure_table(results, figure).markdown() for figure in results.figures()]
    return "\n\n".join(parts) + "\n"


def clip_tables(results: Results, clips: list[Clip]) -> str:
    """The tables of each clip, in Markdown."""
    parts = []
    for clip in clips:
        parts.append(f"## {clip.name}: {clip.about}")
        for figure in results.figures(clip.name):
            parts.append(figure_table(results, figure, clip.name).markdown())
    return "\n\n".join(parts) + "\n"


def write_values(path: Path, values: list[Value]) -> None:
    """Writes every single value as CSV."""
    with path.open("w", newline="") as file:
        writer = csv.writer(file)
        writer.writerow(["clip", "stretcher", "speed", "figure", "value"])
        for each in values:
            writer.writerow([each.clip, each.stretcher, each.speed, each.key, f"{each.value:.6g}"])


def write_page(
    path: Path, results: Results, clips: list[Clip], pictures: list[tuple[str, str]], about: str
) -> None:
    """Writes the page of pictures: one file that needs no other."""
    parts = [f"<h1>How it sounds</h1><pre>{html.escape(about)}</pre>"]
    parts += [_html(at_a_glance(results)), "<h2>Over speed</h2>"]
    parts += [draw_figure(results, figure, None) for figure in results.figures()]
    parts.append("<h2>Spectrograms</h2>")
    parts += [f"<h3>{html.escape(title)}</h3>{picture}" for title, picture in pictures]
    parts.append("<h2>Clip by clip</h2>")
    for clip in clips if len(clips) > 1 else []:
        parts.append(f"<h3>{html.escape(clip.name)}: {html.escape(clip.about)}</h3>")
        parts += [draw_figure(results, each, clip.name) for each in results.figures(clip.name)]
    head = f"<!DOCTYPE html><meta charset=utf-8><title>How it sounds</title><style>{STYLE}</style>"
    path.write_text(head + "\n".join(parts))


def spectrograms(
    clips: list[Clip], stretchers: list[Stretcher], speeds: list[float], workers: int
) -> list[tuple[str, str]]:
    """Title and image of the clips whose spectra are compared, at the slowest and the fastest speed."""
    shown = [each for each in stretchers if each.name.startswith(OURS)]
    shown += [each for each in stretchers if each.name == PEER_IN_PICTURES]
    wanted = [
        Spectrograms(clip, speed, shown)
        for clip in clips
        if clip.kinds & {"spectrum", "attacks"}
        for speed in sorted({min(speeds), max(speeds)})
    ]
    with ProcessPoolExecutor(workers) as pool:
        images = pool.map(draw_spectrograms, wanted)
        return [
            (f"{each.clip.name} at {each.speed:g}", image) for each, image in zip(wanted, images)
        ]


def update_document(path: Path, text: str) -> None:
    """Puts the tables between the two marker lines of a document."""
    document = path.read_text()
    before, rest = document.split(BEGIN, 1)
    after = rest.split(END, 1)[1]
    path.write_text(f"{before}{BEGIN}\n\n{text}\n{END}{after}")


def _html(table: Table) -> str:
    def row(tag: str, cells: list[str]) -> str:
        inside = "".join(f"<{tag}>{html.escape(cell)}</{tag}>" for cell in cells)
        return f"<tr>{inside}</tr>"

    rows = [row("th", table.header)] + [row("td", cells) for cells in table.rows]
    text = f"<h2>{html.escape(table.heading)}</h2><p>{html.escape(table.text)}</p>"
    return f"{text}<table>{''.join(rows)}</table>"
