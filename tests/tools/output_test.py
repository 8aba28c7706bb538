#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""What becomes of results when the reader or the user leaves."""
import json
import os
import resource
import signal
import subprocess
import time
import unittest

from tool import InFolder, start


class Output(InFolder):
    def large_commands(self):
        """Commands that print more than a pipe holds."""
        self.write("large.json", json.dumps({"a": ["x" * 1000] * 1000}))
        self.run_tool("convert", "large.json", "-o", "large.ovb")
        return [["show", "large.json", "--all"], ["query", "large.json", "/a"],
                ["inspect", "large.ovb"], ["convert", "large.ovb", "--to", "json"]]

    def test_nobody_who_reads_is_no_failure(self):
        for command in self.large_commands():
            with self.subTest(command), start(*command, cwd=self.folder, stdout=subprocess.PIPE,
                                              stderr=subprocess.PIPE) as process:
                os.read(process.stdout.fileno(), 10)
                process.stdout.close()
                self.assertEqual(process.stderr.read(), b"")
            self.assertEqual(process.returncode, 1)

    def test_a_full_device_is_named(self):
        for command in self.large_commands() + [["--help"]]:
            with self.subTest(command), open("/dev/full", "wb") as full:
                process = start(*command, cwd=self.folder, stdout=full, stderr=subprocess.PIPE)
                self.assertIn(b"standard output: Writing failed", process.communicate()[1])
                self.assertEqual(process.returncode, 1)

    def test_an_interruption_leaves_nothing(self):
        with start("convert", "-", "--lines", "-o", "out.json", stdin=subprocess.PIPE,
                   cwd=self.folder) as process:
            while not os.listdir(self.folder):
                time.sleep(0.01)
            process.terminate()  # at once: the file is known as soon as it is there
        self.assertEqual(process.returncode, -signal.SIGTERM)
        self.assertEqual(os.listdir(self.folder), [])

    def test_a_limit_on_files_is_an_error(self):
        self.write("in.json", json.dumps("x" * 10_000))
        process = start("convert", "in.json", "-o", "out.json", cwd=self.folder,
                        stderr=subprocess.PIPE,
                        preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (5000, 5000)))
        self.assertIn(b"File too large", process.communicate()[1])
        self.assertEqual((process.returncode, os.listdir(self.folder)), (1, ["in.json"]))

    def test_links_stay(self):
        self.write("in.json", b"[1, 2]")
        self.write("old.json", b"3")
        os.symlink("old.json", self.path("link.json"))
        self.run_tool("convert", "in.json", "-o", "link.json")
        self.assertTrue(os.path.islink(self.path("link.json")))
        self.assertEqual(self.read("old.json"), b"[1,2]\n")

        os.symlink("nowhere", self.path("broken.json"))
        self.refuse("convert", "in.json", "-o", "broken.json")
        self.assertTrue(os.path.islink(self.path("broken.json")))

    def test_a_link_to_standard_output_is_standard_output(self):
        self.write("in.json", b"[1, 2]")
        os.symlink("/proc/self/fd/1", self.path("stdout"))
        with open(self.path("out"), "wb") as out:
            out.write(b"before ")
            out.flush()
            process = start("convert", "in.json", "-o", "stdout", stdout=out, cwd=self.folder)
            self.assertEqual(process.wait(), 0)
        self.assertEqual(self.read("out"), b"before [1,2]\n")
        self.assertTrue(os.path.islink(self.path("stdout")))

    def test_a_closed_stream_is_not_the_output(self):
        for stream in [0, 1]:
            self.write("in.json", b"[1, 2]")
            with open(self.path("in.json"), "rb") as data:
                process = start("convert", "-", "-o", "out.json", stdin=data, cwd=self.folder,
                                stderr=subprocess.DEVNULL, preexec_fn=lambda: os.close(stream))
                code = process.wait()
            self.assertEqual((code, os.path.exists(self.path("out.json"))),
                             (1, False) if stream == 0 else (0, True))


if __name__ == "__main__":
    unittest.main()
