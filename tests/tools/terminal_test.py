#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""What only who sits at a terminal sees."""
import os
import pty
import subprocess
import time
import unittest

from tool import InFolder, start


def read_all(descriptor):
    data = b""
    while True:
        try:
            piece = os.read(descriptor, 4096)
        except OSError:  # what a terminal says when all have left
            piece = b""
        if not piece:
            return data
        data += piece


class Progress(InFolder):
    def convert_slowly(self, seconds, stderr):
        with start("convert", "-", "--lines", "-o", "out.ovb", stdin=subprocess.PIPE, stderr=stderr,
                   cwd=self.folder) as process:
            end = time.monotonic() + seconds
            while time.monotonic() < end:
                process.stdin.write(b'"line"\n')
                process.stdin.flush()
                time.sleep(0.1)
            process.stdin.close()
        self.assertEqual(process.returncode, 0)

    def seen(self, seconds):
        master, slave = pty.openpty()
        self.convert_slowly(seconds, slave)
        os.close(slave)
        try:
            return read_all(master)
        finally:
            os.close(master)

    def test_shows_after_a_second_and_is_erased(self):
        seen = self.seen(1.6)
        self.assertRegex(seen, rb"^\rovattr: read 0\.0 MB")
        self.assertTrue(seen.endswith(b"\r\33[K"), seen)

    def test_short_work_shows_nothing(self):
        self.assertEqual(self.seen(0.1), b"")

    def test_shows_nothing_elsewhere(self):
        with open(self.path("errors"), "wb") as file:
            self.convert_slowly(1.6, file)
        self.assertEqual(self.read("errors"), b"")


class Text(InFolder):
    def test_steers_no_terminal(self):
        document = b'"\\u001b[2J\\u007f\\u009b\\t\\u00e4\\u00a0"'
        for slave_is_output in (True, False):
            master, slave = pty.openpty()
            with start("show", "-", stdin=subprocess.PIPE,
                       stdout=slave if slave_is_output else subprocess.PIPE) as process:
                process.stdin.write(document)
                process.stdin.close()
                out = b"" if slave_is_output else process.stdout.read()
            os.close(slave)
            out += read_all(master)
            os.close(master)
            shown = b"?[2J??" if slave_is_output else b"\x1b[2J\x7f\xc2\x9b"
            self.assertIn(b'"' + shown + b'\t\xc3\xa4\xc2\xa0"', out)


class Binary(InFolder):
    def test_is_not_written_to_a_terminal(self):
        for arguments in [("convert", "-", "--to", "binary"), ("package", "create", "a")]:
            master, slave = pty.openpty()
            with start(*arguments, stdin=subprocess.DEVNULL, stdout=slave,
                       stderr=subprocess.PIPE) as process:
                err = process.stderr.read()
            os.close(slave)
            self.assertEqual((process.returncode, read_all(master)), (2, b""))
            self.assertIn(b"terminal", err)
            os.close(master)


if __name__ == "__main__":
    unittest.main()
