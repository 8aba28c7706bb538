# SPDX-License-Identifier: Apache-2.0
"""What the tests of the tool share. The path of the tool is the first argument of each test."""
import os
import subprocess
import sys
import tempfile
import unittest

TOOL = os.path.abspath(sys.argv.pop(1))
with open(TOOL, "rb") as program:
    SANITIZED = b"__asan_init" in program.read()
ISO_CODES = "/usr/share/iso-codes/json"


def ovattr(*arguments, stdin=b"", cwd=None):
    """Exit code, standard output and standard error, as text."""
    code, out, err = ovattr_bytes(*arguments, stdin=stdin, cwd=cwd)
    return code, out.decode(), err


def ovattr_bytes(*arguments, stdin=b"", cwd=None):
    done = subprocess.run([TOOL, *arguments], input=stdin, capture_output=True, cwd=cwd)
    return done.returncode, done.stdout, done.stderr.decode()


def start(*arguments, **pipes):
    return subprocess.Popen([TOOL, *arguments], **pipes)


def iso_files():
    return [os.path.join(ISO_CODES, name) for name in sorted(os.listdir(ISO_CODES))]


class InFolder(unittest.TestCase):
    """Runs in an empty folder of its own."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def path(self, name):
        return os.path.join(self.folder, name)

    def write(self, name, content):
        with open(self.path(name), "wb") as file:
            file.write(content if isinstance(content, bytes) else content.encode())
        return self.path(name)

    def read(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()

    def run_tool(self, *arguments, stdin=b""):
        """What it prints; it must succeed in silence."""
        code, out, err = ovattr_bytes(*arguments, stdin=stdin, cwd=self.folder)
        self.assertEqual((code, err), (0, ""), arguments)
        return out

    def refuse(self, *arguments, stdin=b"", code=1):
        """What it says; it must fail."""
        actual, out, err = ovattr_bytes(*arguments, stdin=stdin, cwd=self.folder)
        self.assertEqual(actual, code, (arguments, out, err))
        self.assertTrue(err.startswith("ovattr: "), err)
        return err
