#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""What becomes of results when the reader or the user leaves."""
import json
import os
import resource
import shutil
import signal
import stat
import subprocess
import time
import unittest

from tool import SANITIZED, InFolder, TOOL, start


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
        for number in [signal.SIGTERM, signal.SIGINT, signal.SIGALRM, signal.SIGXCPU,
                       signal.SIGPIPE, signal.SIGUSR1, signal.SIGABRT, signal.SIGRTMIN + 3]:
            with self.subTest(number):
                with start("convert", "-", "--lines", "-o", "out.json", stdin=subprocess.PIPE,
                           cwd=self.folder) as process:
                    while not os.listdir(self.folder):
                        time.sleep(0.01)
                    process.send_signal(number)  # at once: the file is known when it is there
                self.assertEqual(process.returncode, -number)
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

        os.mkdir(self.path("folder"))
        os.symlink("folder/next.json", self.path("first.json"))
        os.symlink("../new.json", self.path("folder/next.json"))
        self.run_tool("convert", "in.json", "-o", "first.json")
        self.assertTrue(os.path.islink(self.path("folder/next.json")))
        self.assertEqual(self.read("new.json"), b"[1,2]\n")

        os.symlink("round.json", self.path("round.json"))
        self.assertIn("symbolic links", self.refuse("convert", "in.json", "-o", "round.json"))

    def test_names_may_be_as_long_as_the_system_allows(self):
        for size in [249, 255]:
            name = "n" * (size - 5) + ".json"
            self.run_tool("convert", "-", "-o", name, stdin=b"1")
            self.assertEqual(self.read(name), b"1\n")

    def test_an_open_descriptor_is_written_to(self):
        self.write("in.json", b"[1, 2]")
        os.symlink("/dev/stderr", self.path("log"))
        with open(self.path("target"), "ab") as target:
            for name in ["/dev/stdout", "/dev/stderr", "/dev/fd/2", "/proc/self/fd/1", "log",
                         f"/dev/fd/{target.fileno()}", f"/proc/self/fd/{target.fileno()}",
                         f"/proc/{os.getpid()}/fd/{target.fileno()}"]:
                with self.subTest(name):
                    target.truncate(0)
                    target.write(b"before ")
                    target.flush()
                    code = start("convert", "in.json", "-o", name, stdout=target, stderr=target,
                                 pass_fds=[target.fileno()], cwd=self.folder).wait()
                    target.write(b"after")
                    target.flush()
                    self.assertEqual((code, self.read("target")), (0, b"before [1,2]\nafter"))
        self.assertIn("Bad file descriptor", self.refuse("convert", "in.json", "-o", "/dev/fd/999"))
        done = subprocess.run([TOOL, "convert", self.path("in.json"), "-o", "1"], cwd="/dev/fd",
                              capture_output=True)
        self.assertEqual(done.stdout, b"[1,2]\n")

    def test_a_file_is_not_appended_to_itself(self):
        for arguments in [("convert", "in.jsonl"), ("show", "in.jsonl"), ("query", "in.jsonl", ""),
                          ("diff", "other", "in.jsonl"), ("inspect", "in.jsonl"),
                          ("convert", "-", "--lines"), ("convert", "in.jsonl", "-o", "/dev/stdout")]:
            with self.subTest(arguments):
                self.write("other", b"3")
                self.write("in.jsonl", b"1\n2\n")
                with open(self.path("in.jsonl"), "rb") as data, \
                        open(self.path("in.jsonl"), "ab") as out:
                    process = start(*arguments, stdin=data, stdout=out, stderr=subprocess.PIPE,
                                    cwd=self.folder)
                    self.assertIn(b"-o FILE", process.communicate(timeout=60)[1])
                self.assertEqual((process.returncode, self.read("in.jsonl")), (2, b"1\n2\n"))
        self.run_tool("convert", "in.jsonl", "-o", "in.jsonl")

    def test_a_named_pipe_must_be_read_to_its_end(self):
        self.write("large.json", json.dumps(["x" * 1000] * 1000))
        os.mkfifo(self.path("pipe"))
        with start("convert", "large.json", "-o", "pipe", cwd=self.folder,
                   stderr=subprocess.PIPE) as process:
            with open(self.path("pipe"), "rb") as reader:
                reader.read(10)
            self.assertEqual(process.stderr.read(), b"ovattr: pipe: Writing failed: Broken pipe\n")
        self.assertEqual(process.returncode, 1)

    def test_rights_are_kept_and_no_more(self):
        self.write("in.json", b"1")
        self.write("old.json", b"2")
        if os.geteuid() == 0:
            os.chown(self.path("old.json"), 12345, 12346)
        os.chmod(self.path("old.json"), 0o7754)
        before = os.stat(self.path("old.json"))
        self.run_tool("convert", "in.json", "-o", "old.json")
        after = os.stat(self.path("old.json"))
        self.assertEqual(stat.S_IMODE(after.st_mode), 0o754)
        self.assertEqual((after.st_uid, after.st_gid), (before.st_uid, before.st_gid))

    def start_in_mounts(self, script):
        """A shell in the folder that may mount, but not for others; $0 is the tool."""
        unshare = ["unshare", "-m"] if os.geteuid() == 0 else ["unshare", "-rm"]
        return subprocess.Popen([*unshare, "bash", "-c", script, TOOL], cwd=self.folder,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def run_in_mounts(self, script):
        with self.start_in_mounts(script) as process:
            out, err = process.communicate()
        if process.returncode == 77 or b"unshare" in err:
            self.skipTest("mounting is not allowed")
        return process.returncode, out, err

    def test_a_file_mounted_by_itself_is_overwritten(self):
        self.write("in.json", b"[1, 2]")
        self.write("behind.json", b"an older and longer text")
        self.write("old.json", b"")
        code, _, _ = self.run_in_mounts("""mount --bind behind.json old.json || exit 77
            "$0" convert in.json -o old.json && "$0" convert - -o old.json <<<"[1" """)
        self.assertEqual(code, 1)
        self.assertEqual(self.read("behind.json"), b"[1,2]\n")
        self.assertEqual(sorted(os.listdir(self.folder)), ["behind.json", "in.json", "old.json"])

    def test_a_file_is_not_overwritten_without_room_for_all(self):
        self.write("in.json", json.dumps("x" * 500_000))
        self.write("old.json", b"")
        os.mkdir(self.path("small"))
        code, out, err = self.run_in_mounts("""
            mount -t tmpfs -o size=100k tmpfs small && echo old > small/f || exit 77
            mount --bind small/f old.json || exit 77
            "$0" convert in.json -o old.json; cat old.json""")
        self.assertEqual((code, out), (0, b"old\n"))
        self.assertIn(b"No space left on device", err)

    def test_an_interruption_leaves_no_half_of_a_file_that_is_overwritten(self):
        text = b'"%s"\n' % (b"x" * 20_000_000)
        self.write("in.json", text)
        os.mkdir(self.path("shut"))
        self.write("shut/old.json", b"old")
        self.write("behind.json", b"old")
        with self.start_in_mounts("""
                mount --bind shut shut && mount -o remount,ro,bind shut || exit 77
                mount --bind behind.json shut/old.json || exit 77
                exec "$0" convert in.json -o shut/old.json""") as process:
            while os.stat(self.path("behind.json")).st_size == 3 and process.poll() is None:
                time.sleep(0.001)
            process.send_signal(signal.SIGINT)
            err = process.communicate()[1]
        if process.returncode == 77 or b"unshare" in err:
            self.skipTest("mounting is not allowed")
        self.assertTrue(self.read("behind.json") == text, (process.returncode, err))

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


@unittest.skipIf(SANITIZED, "a sanitizer makes calls of its own")
@unittest.skipUnless(shutil.which("strace"), "strace is not installed")
class SystemCalls(InFolder):
    def calls(self, *arguments, stdin=b""):
        done = subprocess.run(["strace", "-o", "calls", "-e",
                               "trace=poll,write,fsync,rename,renameat,renameat2", TOOL,
                               *arguments], cwd=self.folder, input=stdin, capture_output=True)
        if b"ptrace" in done.stderr:
            self.skipTest("tracing is not allowed")
        self.assertEqual((done.returncode, done.stderr), (0, b""))
        return [line.split(b"(")[0] for line in self.read("calls").splitlines() if b"(" in line]

    def test_are_made_once_a_block(self):
        lines = b'{"a": 1}\n' * 10_000
        for command in [("convert", "-", "--lines"), ("convert", "-", "--lines", "--to", "binary"),
                        ("query", "-", "/a", "--lines"), ("show", "-", "--lines")]:
            with self.subTest(command):
                self.assertLess(len(self.calls(*command, stdin=lines)), 100)

    def test_sync_a_file_before_it_takes_its_place(self):
        calls = self.calls("convert", "-", "-o", "out.json", stdin=b"1")
        self.assertEqual(calls[-2:], [b"fsync", b"rename"])


if __name__ == "__main__":
    unittest.main()
