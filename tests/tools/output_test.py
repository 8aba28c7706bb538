#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""What becomes of results when the reader or the user leaves."""
import os
import signal
import subprocess
import time
import unittest

from tool import InFolder, ISO_CODES, start


class Output(InFolder):
    def test_nobody_who_reads_is_no_failure(self):
        with start("show", f"{ISO_CODES}/iso_639-3.json", "--all", stdout=subprocess.PIPE,
                   stderr=subprocess.PIPE) as process:
            process.stdout.readline()
            process.stdout.close()
            self.assertEqual(process.stderr.read(), b"")
        self.assertEqual(process.returncode, 1)

    def test_an_interruption_leaves_nothing(self):
        with start("convert", "-", "--lines", "-o", "out.json", stdin=subprocess.PIPE,
                   cwd=self.folder) as process:
            while not os.listdir(self.folder):
                time.sleep(0.01)
            time.sleep(0.2)  # the file is there a moment before it is known what to remove
            process.terminate()
        self.assertEqual(process.returncode, -signal.SIGTERM)
        self.assertEqual(os.listdir(self.folder), [])


if __name__ == "__main__":
    unittest.main()
