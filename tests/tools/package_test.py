#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Packages of names, and peers that have or lack them."""
import hashlib
import json
import struct
import subprocess
import unittest
import uuid

from tool import InFolder, start

from marshaled import Values, packages_of


def package_id(names):
    """As docs/format.md says."""
    names = sorted(name.encode() for name in names)
    digest = hashlib.md5(struct.pack(">Q", len(names)))
    for name in names:
        digest.update(struct.pack(">Q", len(name)) + name)
    data = bytearray(digest.digest())
    data[7] = data[7] & 0x0f | 0x40
    data[8] = data[8] & 0x3f | 0x80
    return uuid.UUID(bytes=bytes(data))


class Files(InFolder):
    def test_create(self):
        for names in [["b", "a"], ["one"], ["a", "a", "ü", "B"], ["n%d" % i for i in range(1000)]]:
            with self.subTest(names[:4]):
                self.run_tool("package", "create", "-o", "names.ovp", *names)
                unique = sorted(set(names), key=str.encode)
                self.assertEqual(packages_of(self.read("names.ovp")), {package_id(unique): unique})
                lines = self.run_tool("package", "show", "names.ovp").decode().splitlines()
                self.assertEqual(lines[0].split()[:2], [str(package_id(unique)), str(len(unique))])
                self.assertEqual(lines[1:], ["  " + name for name in unique])

    def test_create_from_data(self):
        self.write("a.json", '{"x": [{"y": 1}, {"z": {"w": []}}]}')
        self.run_tool("convert", "a.json", "-o", "a.ovb")
        self.write("b.jsonl", '{"x": 1}\n2\n{"v": null}')
        for files, names in [(["a.json"], "wxyz"), (["a.ovb", "b.jsonl"], "vwxyz")]:
            out = self.run_tool("package", "create", "--from", *files)
            self.assertEqual(packages_of(out), {package_id(names): list(names)})

    def test_create_takes_no_placeholders_for_names(self):
        self.write("a.json", '{"x": 1}')
        self.run_tool("package", "create", "x", "-o", "x.ovp")
        self.run_tool("convert", "a.json", "--package", "x.ovp", "-o", "a.ovb")
        self.assertIn("unknown attribute name package",
                      self.refuse("package", "create", "--from", "a.ovb"))
        out = self.run_tool("package", "create", "--package", "x.ovp", "--from", "a.ovb")
        self.assertEqual(out, self.read("x.ovp"))

    def test_union_has_each_package_once(self):
        for name in "ab":
            self.run_tool("package", "create", name, "-o", name + ".ovp")
        self.run_tool("package", "union", "b.ovp", "a.ovp", "-o", "ab.ovp")
        self.run_tool("package", "union", "ab.ovp", "a.ovp", "-o", "all.ovp")
        self.assertEqual(self.read("ab.ovp"), self.read("all.ovp"))
        self.assertEqual(packages_of(self.read("ab.ovp")),
                         {package_id("a"): ["a"], package_id("b"): ["b"]})
        self.assertEqual(self.run_tool("package", "show", "all.ovp").count(b" 1 name\n"), 2)

    def test_bad_files_are_refused(self):
        self.run_tool("package", "create", "a", "b", "-o", "good.ovp")
        good = self.read("good.ovp")
        for data, code in [
            (b"", "reader.truncated"), (good[:-1], "reader.truncated"),
            (good + b"\xf6", "invalidParameter"), (b"{}", "reader.kind"),
            (good.replace(b"\x61a", b"\x61c"), "name.package.serialization"),
            (good.replace(b"\x61a", b"\x61\x41"), "name.package.serialization"),
        ]:
            self.write("bad.ovp", data)
            for command in [("package", "show", "bad.ovp"),
                            ("package", "union", "good.ovp", "bad.ovp", "-o", "out.ovp"),
                            ("convert", "-", "--package", "bad.ovp", "--to", "binary")]:
                with self.subTest((data, command)):
                    err = self.refuse(*command, "-v", stdin=b"{}")
                    self.assertTrue(err.startswith("ovattr: bad.ovp: "), err)
                    self.assertIn(code, err)
        with self.assertRaises(FileNotFoundError):
            self.read("out.ovp")
        self.assertIn("Expected a structure", self.refuse("package", "show", "/dev/zero"))

    def test_one_file_an_option(self):
        self.run_tool("package", "create", "a", "-o", "a.ovp")
        self.run_tool("package", "create", "b", "-o", "b.ovp")
        out = self.run_tool("convert", "--package", "a.ovp", "--package", "b.ovp", "-", "-o", "-",
                            stdin=b'{"a":1}')
        self.assertEqual(out, b'{"a":1}\n')

    def test_usage(self):
        for arguments in [("package",), ("package", "create"), ("package", "union"),
                          ("package", "create", "a", "--from", "a.json"),
                          ("convert", "-", "--announce")]:
            self.refuse(*arguments, code=2)


class Peers(InFolder):
    """Two processes that share a pipe and what is said here."""

    MAPS = [{"caller": "alice", "attempts": 3}, {"caller": "bob", "more": {"attempts": 4}}]

    def send(self, receiver, *options):
        """What the receiver says to the two maps: exit code, output, errors."""
        lines = "".join(json.dumps(value) + "\n" for value in self.MAPS).encode()
        with start("convert", "-", "--lines", "--to", "binary", "--package", "names.ovp", *options,
                   stdin=subprocess.PIPE, stdout=subprocess.PIPE, cwd=self.folder) as sender:
            with start("convert", "-", "--from", "binary", "--lines", *receiver,
                       stdin=sender.stdout, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                       cwd=self.folder) as process:
                sender.stdout.close()
                sender.stdin.write(lines)
                sender.stdin.close()
                out, err = process.communicate()
        return process.returncode, out.decode(), err.decode()

    def setUp(self):
        super().setUp()
        self.run_tool("package", "create", "-o", "names.ovp", "attempts", "caller")
        self.run_tool("package", "create", "-o", "other.ovp", "attempts")

    def test_with_the_package_exchange_maps(self):
        for options in [(), ("--announce",)]:
            code, out, err = self.send(("--package", "names.ovp", "--strict"), *options)
            self.assertEqual((code, err), (0, ""))
            self.assertEqual([json.loads(line) for line in out.splitlines()], self.MAPS)

    def test_without_it_refuse_when_strict(self):
        for options in [(), ("--announce",)]:
            for known in [(), ("--package", "other.ovp")]:
                code, out, err = self.send((*known, "--strict", "-v"), *options)
                self.assertEqual((code, out), (1, ""))
                self.assertIn("Reference to unknown attribute name package.  PackageId: "
                              + str(package_id(["attempts", "caller"])), err)
                self.assertIn("error.ovattribute.name.decoder.packageRef.unknown", err)

    def test_without_it_show_placeholders_else(self):
        known = str(package_id(["attempts", "caller"]))
        code, out, err = self.send(())
        self.assertEqual((code, err), (0, ""))
        names = {"attempts": known + ":0", "caller": known + ":1"}
        self.assertEqual([json.loads(line) for line in out.splitlines()],
                         [{names.get(name, name): value for name, value in self.MAPS[0].items()},
                          {names["caller"]: "bob", "more": {names["attempts"]: 4}}])

    def test_streams_one_behind_the_other_when_announced(self):
        binary = b""
        for package in ["names.ovp", "other.ovp"]:
            binary += self.run_tool("convert", "-", "--to", "binary", "--announce", "--package",
                                    package, stdin=b'{"attempts": 1}')
        packages = {**packages_of(self.read("names.ovp")), **packages_of(self.read("other.ovp"))}
        self.assertEqual(Values(binary, packages).all(), [{"attempts": 1}] * 2)
        out = self.run_tool("convert", "-", "--from", "binary", "--lines", "--strict", "--package",
                            "names.ovp", "--package", "other.ovp", stdin=binary)
        self.assertEqual(out, b'{"attempts":1}\n' * 2)


if __name__ == "__main__":
    unittest.main()
