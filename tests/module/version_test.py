#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""ovattr --version shows the module information that the library carries.

Arguments: the tool, the file that carries the information, the version.
"""
import pathlib
import re
import subprocess
import sys

MARKER = b"***KORV*MODULE*INFO*F70397B5E6FEBE4447157E5A1C9D5E64***\n"

tool, carrier, version = sys.argv[1:]
block = pathlib.Path(carrier).read_bytes().partition(MARKER)[2]
document = block[:block.index(b"\0")].decode()
build_id = re.search(r'<Item name="KORVGCCBuildId">([0-9a-f]{40})</Item>', document)[1]

done = subprocess.run([tool, "--version"], capture_output=True, text=True, check=False)
expected = (0, f"ovattr {version}\nbuild id {build_id}\n{document}\n", "")
found = (done.returncode, done.stdout, done.stderr)
if found != expected:
    sys.exit(f"expected {expected}\nfound {found}")
