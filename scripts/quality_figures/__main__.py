"""The command line of scripts/quality."""

import argparse
import os
import re
import sys
from pathlib import Path

from . import report
from .clips import BUILT_IN, Clip, given_clip
from .measuring import measure, measure_cost
from .stretchers import Stretcher, ours, peers, present
from .tables import Results, at_a_glance

PROJECT = Path(__file__).resolve().parents[2]
SPEEDS, QUICK_SPEEDS = [0.4, 0.6, 0.75, 1.25, 1.5, 2.0, 3.0], [0.6, 1.5]
SLOWEST, FASTEST = 0.125, 8.0  # of our tool
QUICK_SECONDS = 5.0


def parse(arguments: list[str]) -> argparse.Namespace:
    """Reads the command line."""
    parser = argparse.ArgumentParser(
        prog="scripts/quality",
        description="Measures how stretched sound compares with its original, ours beside that of "
        "others, and writes tables (table.md, clips.md), every value (values.csv) and a page of "
        "pictures (page.html).",
        epilog=f"Clips made here: {', '.join(BUILT_IN)}.",
    )
    add = parser.add_argument
    add(
        "files",
        nargs="*",
        type=Path,
        metavar="FILE",
        help="sound files to measure (20 s of each); "
        "those named speech* count as speech; without any, the clips made here",
    )
    add("--clips", metavar="NAME,...", help="of the clips made here these, or all; with FILE, too")
    add(
        "--speeds",
        metavar="S,...",
        type=speed_list,
        help=f"default: {','.join(f'{s:g}' for s in SPEEDS)}",
    )
    add("--stretchers", metavar="NAME,...", help="only those whose names contain one of these")
    add("--quick", action="store_true", help="two speeds, 5 s of each clip, no cost, no pictures")
    add("--output", type=Path, default=PROJECT / "out/quality", help="default: out/quality")
    add("--tool", type=Path, default=PROJECT / "build/release/bin/velora-vsp", help="our tool")
    add("--workers", type=int, default=os.cpu_count() or 1, help="default: one a processor")
    add("--document", action="store_true", help="also rewrite the tables in docs/sound.md")
    return parser.parse_args(arguments)


def speed_list(text: str) -> list[float]:
    """Speeds between commas; argparse says so where one isn't a speed."""
    speeds = [float(speed) for speed in text.split(",")]
    if not all(SLOWEST <= speed <= FASTEST for speed in speeds):
        raise ValueError(text)
    return speeds


def choose_clips(options: argparse.Namespace) -> list[Clip]:
    """The clips that are asked for, made or read."""
    default = "" if options.files else "all"
    names = (default if options.clips is None else options.clips).split(",")
    names = list(BUILT_IN) if names == ["all"] else [name for name in names if name]
    unknown = set(names) - BUILT_IN.keys()
    if unknown:
        sys.exit(f"scripts/quality: no clip is called {', '.join(sorted(unknown))}")
    try:
        given = [given_clip(path) for path in options.files]
    except (ValueError, RuntimeError) as error:
        sys.exit(f"scripts/quality: {error}")
    clips = given + [BUILT_IN[name]() for name in names]
    if not clips:
        sys.exit("scripts/quality: no clip is meant")
    if not options.quick:
        return clips
    return [clip if "dips" in clip.kinds else clip.cut(QUICK_SECONDS) for clip in clips]


def choose_stretchers(options: argparse.Namespace) -> list[Stretcher]:
    """Ours, and the others that are here; says which aren't."""
    wanted = options.stretchers.lower().split(",") if options.stretchers else [""]
    stretchers = [
        each
        for each in ours(options.tool) + peers()
        if any(part in each.name.lower() for part in wanted)
    ]
    here = present(stretchers)
    for missing in (each for each in stretchers if each not in here):
        print(f"not here, left out: {missing.name} ({missing.program})", file=sys.stderr)
    if not here:
        sys.exit("scripts/quality: no stretcher is here or meant")
    return here


def main() -> None:
    """Measures and writes."""
    options = parse(sys.argv[1:])
    speeds = options.speeds or (QUICK_SPEEDS if options.quick else SPEEDS)
    stretchers, clips = choose_stretchers(options), choose_clips(options)

    values = measure(clips, stretchers, speeds, options.workers)
    if not options.quick:
        values += measure_cost(BUILT_IN["dense"](), stretchers, speeds)
    results = Results(values, [each.name for each in stretchers])
    about = report.conditions(stretchers, version(), clips)
    tables = report.summary(results, about)

    options.output.mkdir(parents=True, exist_ok=True)
    (options.output / "table.md").write_text(f"## Figures\n\n{tables}")
    (options.output / "clips.md").write_text(report.clip_tables(results, clips))
    report.write_values(options.output / "values.csv", values)
    if not options.quick:
        pictures = report.spectrograms(clips, stretchers, speeds, options.workers)
        report.write_page(options.output / "page.html", results, clips, pictures, about)
    if options.document:
        report.update_document(PROJECT / "docs/sound.md", tables)
    print(at_a_glance(results).markdown())
    print(f"\nThe rest is in {options.output}")


def version() -> str:
    """The project's version; the tool's own is that of its interface."""
    found = re.search(r"VERSION ([0-9.]+) DESC", (PROJECT / "CMakeLists.txt").read_text())
    return found.group(1) if found else "unknown"


if __name__ == "__main__":
    main()
