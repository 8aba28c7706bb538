#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The layering check passes what is allowed and names each include that is not."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

CHECK = pathlib.Path(__file__).parents[2] / ".ci" / "check_layering"

# File, its one include, and what the check says of it; empty where it says nothing.
CASES = [
    ("ovcore/a.h", "<string>", ""),
    ("ovcore/a.cpp", '"ovcore/impl/a.h"', ""),
    ("ovcore/a.cpp", '"ovjson/a.h"', "ovcore may not use ovjson"),
    ("ovcore/a.cpp", '"tests/support/splits.h"', "ovcore may not use tests"),
    ("ovmoduleregistry/a.cpp", '"ovserialize/a.h"', "ovmoduleregistry may not use ovserialize"),
    ("ovserialize/a.h", '"ovuri/a.h"', "ovserialize may not use ovuri"),
    ("ovserialize/impl/a.cpp", "<xxhash.h>", ""),
    ("ovserialize/a.h", "<xxhash.h>", "a public header shows another maker's header"),
    ("ovuri/a.cpp", "<uriparser/Uri.h>", ""),
    ("ovuri/a.h", "<uriparser/Uri.h>", "a public header shows another maker's header"),
    ("ovcrypto/a.h", '"ovserialize/a.h"', ""),
    ("ovcrypto/impl/a.h", "<openssl/aes.h>", ""),
    ("ovjson/a.h", '"ovserialize/a.h"', "ovjson may not use ovserialize"),
    ("ovjson/a.cpp", '"ovcore/impl/a.h"', ""),
    ("ovjson/a.h", '"ovcore/impl/a.h"', "a public header shows what is not public"),
    ("ovattribute/a.h", '"ovjson/a.h"', ""),
    ("ovattribute/a.h", "<ovjson/a.h>", "the project's own headers stand in quotation marks"),
    ("ovattribute/a.h", '  "tools/ovattr/a.h"', "ovattribute may not use tools"),
    ("tools/ovattr/a.cpp", "<CLI/CLI.hpp>", ""),
    ("tools/ovattr/a.cpp", '"ovuri/a.h"', ""),
    ("tools/ovattr/a.cpp", '"ovattribute/impl/a.h"', "a tool uses what is not public"),
]


class CheckLayering(unittest.TestCase):
    def test_each_case(self):
        for file, include, said in CASES:
            with self.subTest(file=file, include=include), tempfile.TemporaryDirectory() as root:
                path = pathlib.Path(root, file)
                path.parent.mkdir(parents=True)
                path.write_text(f"#pragma once\n#include {include}\n", encoding="utf-8")
                run = subprocess.run([CHECK, root], capture_output=True, text=True, check=False)
                self.assertEqual(run.returncode, 1 if said else 0, run.stdout + run.stderr)
                expected = f"{file}:2: {said}: " if said else "1 files, 0 includes"
                self.assertTrue(run.stdout.startswith(expected), run.stdout)

    def test_an_empty_tree_is_no_success(self):
        with tempfile.TemporaryDirectory() as root:
            run = subprocess.run([CHECK, root], capture_output=True, check=False)
            self.assertEqual(run.returncode, 1)


if __name__ == "__main__":
    sys.exit(unittest.main())
