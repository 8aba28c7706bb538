#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""pages_test.py OVATTR: does what the pages show at a prompt, and compares what they show of it.

In a block ```console a line `$ COMMAND` is run by bash, each page in a folder of its own that holds
examples/demo/order.json. The lines behind it are what it prints, a line `...` standing for any
number of lines. Where nothing is shown, the command prints nothing and succeeds.
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
PAGES = [ROOT / "README.md", *sorted(ROOT.glob("docs/**/*.md"))]
BLOCK = re.compile(r"^```console\n(.*?)^```$", re.DOTALL | re.MULTILINE)
# A command, with the lines that a backslash continues, and what is shown behind it.
COMMAND = re.compile(r"^\$ ((?:.*\\\n)*.*\n)((?:(?!\$ ).*\n)*)", re.MULTILINE)


def pattern_of(shown):
    return "".join("(?:.*\n)*?" if line == "...\n" else re.escape(line)
                   for line in shown.splitlines(keepends=True))


def failure_of(command, shown, folder, environment):
    run = subprocess.run(["bash", "-c", "set -o pipefail\n" + command], cwd=folder,
                         env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                         stderr=subprocess.STDOUT, text=True, timeout=60, check=False)
    printed = run.stdout if run.stdout.endswith("\n") or not run.stdout else run.stdout + "\n"
    if not re.fullmatch(pattern_of(shown), printed):
        return f"prints\n{printed}and not\n{shown}"
    if not shown and run.returncode != 0:
        return f"ends with {run.returncode}"
    return None


def main():
    environment = dict(os.environ)
    environment["PATH"] = f"{pathlib.Path(sys.argv[1]).resolve().parent}:{environment['PATH']}"
    commands = failures = 0
    for page in PAGES:
        with tempfile.TemporaryDirectory() as folder:
            shutil.copy(ROOT / "examples/demo/order.json", folder)
            for block in BLOCK.findall(page.read_text(encoding="utf-8")):
                for command, shown in COMMAND.findall(block):
                    commands += 1
                    if failure := failure_of(command, shown, folder, environment):
                        failures += 1
                        print(f"{page.relative_to(ROOT)}: $ {command}{failure}")
    print(f"{commands} commands, {failures} failures")
    return 1 if failures or commands == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
