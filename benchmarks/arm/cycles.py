#!/usr/bin/env python3
"""What a static model says that a program's blocks of code cost on ARM processors.

    cycles.py PROGRAM LONG SHORT SECONDS

PROGRAM is a 64-bit ARM executable, LONG and SHORT are what the qemu plugin beside this file prints with
`blocks=on` of two runs of it, one of which plays SECONDS more; so what starting costs drops out. Prints a
table of the kernels that take the most: million instructions and, for each processor, million cycles in a
second of sound.

A block counts as llvm-mca has it, repeated; that is exact for loops of one block, which make nearly all of
the time. Caches and branches that are foretold wrongly cost nothing.
"""

import json
import re
import subprocess
import sys
from collections import defaultdict

PROCESSORS = ("cortex-a55", "cortex-a76")
REPEATED = 100
SHARE_OF_ALL = 0.999  # of the instructions: the blocks that run least are left out
TABLE = "neon"


def counts(path: str) -> dict[tuple[int, int], int]:
    """Runs of each block by its address and number of instructions, which may be translated twice."""
    runs: dict[tuple[int, int], int] = defaultdict(int)
    with open(path, encoding="ascii") as lines:
        for line in lines:
            address, instructions, times = line.split()
            runs[int(address, 16), int(instructions)] += int(times)
    return runs


def disassembly(program: str) -> tuple[dict[int, str], dict[int, str]]:
    """The text of each instruction, and the function it is in, by its address."""
    text: dict[int, str] = {}
    functions: dict[int, str] = {}
    function = ""
    listing = subprocess.run(
        ["aarch64-linux-gnu-objdump", "-d", "--no-show-raw-insn", program],
        check=True, capture_output=True, text=True).stdout  # fmt: skip
    for line in listing.splitlines():
        if start := re.match(r"[0-9a-f]+ <(.*)>:$", line):
            function = start[1]
        elif instruction := re.match(r" *([0-9a-f]+):\t(.*)$", line):
            address = int(instruction[1], 16)
            # Targets of branches and addresses of data are nothing to the model, and it can't call.
            plain = re.sub(r"\b[0-9a-f]+ <[^>]*>", "target", instruction[2].split("//")[0])
            text[address] = re.sub(r"^(bl|blr|ret|br)\b.*", "b\ttarget", plain)
            functions[address] = function
    return text, functions


def name_of(function: str) -> str:
    """`vsp::neon::split<...>(...)` as `split`, anything but a kernel as an empty name."""
    plain = subprocess.run(["c++filt", function], check=True, capture_output=True, text=True).stdout
    kernel = re.match(rf"(?:.*? )?vsp::{TABLE}::(\w+)", plain)
    return kernel[1] if kernel else ""


def model(blocks: list[str], processor: str) -> list[float]:
    """Cycles of each block, repeated."""
    regions = "".join(
        f"# LLVM-MCA-BEGIN {number}\n{block}\n# LLVM-MCA-END {number}\n" for number, block in enumerate(blocks))
    report = subprocess.run(
        ["llvm-mca", "-mtriple=aarch64", f"-mcpu={processor}", f"-iterations={REPEATED}", "-json", "-"],
        input=regions, check=True, stdout=subprocess.PIPE, text=True).stdout  # fmt: skip
    cycles = {
        int(region["Name"]): region["SummaryView"]["TotalCycles"] / REPEATED
        for region in json.loads(report)["CodeRegions"]
    }
    return [cycles[number] for number in range(len(blocks))]


def main() -> None:
    program, long, short, seconds = sys.argv[1:]
    before = counts(short)
    runs = {block: (times - before[block]) / float(seconds) for block, times in counts(long).items()}
    total = sum(instructions * times for (_, instructions), times in runs.items())
    text, functions = disassembly(program)

    heaviest = sorted(runs, key=lambda block: -block[1] * runs[block])
    kept: list[tuple[int, int]] = []
    counted = 0.0
    for block in heaviest:
        if counted >= SHARE_OF_ALL * total:
            break
        counted += block[1] * runs[block]
        kept.append(block)
    names = {function: name_of(function) for function in {functions.get(start, "") for start, _ in kept}}
    listings = ["\n".join(text[start + 4 * n] for n in range(instructions)) for start, instructions in kept]
    cycles = {processor: model(listings, processor) for processor in PROCESSORS}

    instructions_of: dict[str, float] = defaultdict(float)
    cycles_of: dict[tuple[str, str], float] = defaultdict(float)
    for number, block in enumerate(kept):
        name = names[functions.get(block[0], "")] or "the rest"
        for row in (name, "all"):
            instructions_of[row] += block[1] * runs[block] / 1e6
            for processor in PROCESSORS:
                cycles_of[row, processor] += cycles[processor][number] * runs[block] / 1e6

    print("| kernel | instructions |" + "".join(f" {processor} |" for processor in PROCESSORS))
    print("| --- | ---: |" + " ---: |" * len(PROCESSORS))
    for row in sorted(instructions_of, key=lambda row: -cycles_of[row, PROCESSORS[0]]):
        if instructions_of[row] < 0.003 * instructions_of["all"]:
            continue
        print(f"| {row} | {instructions_of[row]:.3f} |" + "".join(
            f" {cycles_of[row, processor]:.3f} |" for processor in PROCESSORS))  # fmt: skip


if __name__ == "__main__":
    main()
