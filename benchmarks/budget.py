#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""budget.py [--update] FOLDER MADE_WITH: compares what `budget` counted with benchmarks/budget.txt.

FOLDER holds the program's output (counts.txt) and callgrind's dumps (out.*). MADE_WITH names compiler
and libraries, which the numbers depend on: with others nothing is compared, and that is said. With
--update the file is written anew.
"""

import pathlib
import re
import sys

FILE = pathlib.Path(__file__).resolve().parent / "budget.txt"
TOLERANCE = 0.02  # of instructions; those of interning depend on a secret of the process
HEADING = """\
# What the operations of `budget` may cost; scripts/budget compares, scripts/budget --update writes.
# Instructions and allocations, with their bytes, of this library in one call: instructions when the
# thread keeps memory of the call before, allocations when it keeps none. Sealing is counted without
# instructions: most are of libcrypto and depend on the processor.
"""


def counted(folder):
    """{operation: (instructions or None, allocations, bytes)}"""
    instructions = {}
    for path in folder.glob("out.*"):
        text = path.read_text(encoding="utf-8")
        trigger = re.search(r"^desc: Trigger: Client Request: (\S+)", text, re.M)
        if trigger:
            instructions[trigger.group(1)] = int(re.search(r"^totals: (\d+)", text, re.M).group(1))
    result = {}
    for line in (folder / "counts.txt").read_text(encoding="utf-8").splitlines():
        name, allocations, size = line.split()
        if name not in instructions:
            sys.exit(f"budget: callgrind left no dump of {name}; is <valgrind/callgrind.h> there?")
        own = name.startswith(("seal_", "open_"))
        result[name] = (None if own else instructions[name], int(allocations), int(size))
    return result


def write(counts, made_with):
    lines = [HEADING + f"# Made with: {made_with}", "",
             f"{'# operation':26}{'instructions':>14}{'allocations':>13}{'bytes':>9}"]
    for name, (instructions, allocations, size) in counts.items():
        lines.append(f"{name:26}{'-' if instructions is None else instructions:>14}"
                     f"{allocations:>13}{size:>9}")
    FILE.write_text("\n".join(lines) + "\n", encoding="utf-8")
    print(f"{len(counts)} operations written to benchmarks/{FILE.name}")


def compare(counts, made_with):
    text = FILE.read_text(encoding="utf-8")
    recorded = re.search(r"^# Made with: (.*)", text, re.M).group(1)
    if recorded != made_with:
        print(f"NOT COMPARED: the numbers hold for\n  {recorded}\nand this is\n  {made_with}")
        return 0
    budget = {}
    for line in text.splitlines():
        if line and not line.startswith("#"):
            name, *numbers = line.split()
            budget[name] = tuple(None if n == "-" else int(n) for n in numbers)
    worse, better = [], []
    for name in sorted(budget.keys() ^ counts.keys()):
        worse.append(f"{name}: only in {'the file' if name in budget else 'the program'}")
    for name in (name for name in budget if name in counts):
        allowed = (TOLERANCE, 0, 0)
        for unit, was, now, part in zip(("instructions", "allocations", "bytes"), budget[name],
                                        counts[name], allowed):
            if was is None or abs(now - was) <= was * part:
                continue
            line = f"{name}: {now} {unit}, {was} in the file"
            (worse if now > was else better).append(line + (f" ({now / was - 1:+.1%})" if was else ""))
    for line in worse:
        print("more  " + line)
    for line in better:
        print("less  " + line)
    if worse:
        print("Where that is meant, run scripts/budget --update and say why in the commit.")
    elif better:
        print("scripts/budget --update keeps what was won.")
    else:
        print(f"{len(counts)} operations cost what benchmarks/{FILE.name} says")
    return 1 if worse else 0


def main():
    *options, folder, made_with = sys.argv[1:]
    counts = counted(pathlib.Path(folder))
    if options == ["--update"]:
        write(counts, made_with)
        return 0
    return compare(counts, made_with)


if __name__ == "__main__":
    sys.exit(main())
