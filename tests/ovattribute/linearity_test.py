# SPDX-License-Identifier: Apache-2.0
"""Input of twice the size costs at most 2.5 times the work, counted in instructions:
linearity_test.py VALGRIND HOSTILE_INPUT_TEST. Prints the table of docs/reliability.md."""
import os
import re
import subprocess
import sys
import tempfile

MOST = 2.5
BYTES = "12000"


def main():
    valgrind, program = sys.argv[1:]
    with tempfile.TemporaryDirectory() as folder:
        out = os.path.join(folder, "out")
        run = subprocess.run(
            [valgrind, "--tool=callgrind", f"--callgrind-out-file={out}",
             "--toggle-collect=ov_measured", "--dump-after=ov_measured", program],
            env={**os.environ, "OVATTRIBUTE_HOSTILE_BYTES": BYTES},
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, errors="replace")
        measured = re.findall(r"^measured (\d+) (\d+) (\d+) (.+)$", run.stdout, re.MULTILINE)
        if run.returncode != 0 or not measured:
            sys.exit(run.stdout)
        costs = []
        for number in range(1, len(measured) + 1):
            with open(f"{out}.{number}", encoding="utf-8", errors="replace") as dump:
                costs.append(int(re.search(r"^summary: (\d+)", dump.read(), re.MULTILINE)[1]))

    wrong = 0
    print(f"{'input':28} {'bytes':>7} {'instructions':>13} {'twice the size costs':>21}")
    for i in range(0, len(measured), 2):
        sizes = [int(measured[i + k][0]) for k in (0, 1)]
        factor = costs[i + 1] / costs[i] * 2 * sizes[0] / sizes[1]
        print(f"{measured[i][3]:28} {sizes[0]:7} {costs[i]:13} {factor:21.2f}")
        wrong += factor > MOST
    if wrong:
        sys.exit(f"{wrong} of these cost more than {MOST} times as much")


main()
