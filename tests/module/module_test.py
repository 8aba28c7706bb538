#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Loads copies of the library into processes and reads what comes of it.

Arguments: the library, the host in C, the host that is linked to the library, the version.
"""
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree as ElementTree

VERSION = sys.argv.pop()
LIBRARY, C_HOST, LINKED_HOST = (os.path.realpath(path) for path in sys.argv[1:])
del sys.argv[1:]

MARKER = b"***KORV*MODULE*INFO*F70397B5E6FEBE4447157E5A1C9D5E64***\n"
ITEMS = [
    "CompanyName", "FileVersion", "InternalName", "OriginalFilename", "LegalCopyright",
    "KORVBuildMachine", "KORVBuildName", "KORVBuildChangelist", "KORVBuildNum",
    "KORVBuildTimestamp", "KORVGCCBuildId",
]
VARIABLE = "KORV_MODULEREGISTRY_DONT_FAIL_ON_DUPLICATES"


def document():
    """The XML document, found by its marker as build tools do."""
    before, marker, after = pathlib.Path(LIBRARY).read_bytes().partition(MARKER)
    assert marker and MARKER not in after and before
    return after[:after.index(b"\0")].decode()


def run(host, *steps, let_in=None, preexec_fn=None):
    """What the host prints for the steps; `let_in` is the value of the variable, None for unset."""
    environment = {name: value for name, value in os.environ.items() if name != VARIABLE}
    # A second definition of everything is what is tested; what a library keeps for good is lost
    # when it is unloaded.
    options = environment.get("ASAN_OPTIONS", "")
    environment["ASAN_OPTIONS"] = f"{options}:detect_odr_violation=0:detect_leaks=0"
    if let_in is not None:
        environment[VARIABLE] = let_in
    done = subprocess.run([host, *steps], capture_output=True, text=True, env=environment,
                          timeout=120, check=False, preexec_fn=preexec_fn)
    return done.returncode, done.stdout.splitlines(), done.stderr


def messages(registered, new):
    return (
        "ModuleRegistry: Module ovattribute is already loaded into this process!\n"
        "This is typically caused by a version or debug/release mismatch between libraries "
        "referenced by this process.\n"
        f"Data of module that was already registered:\n{registered}\n"
        f"Data of new module that conflicts:\n{new}\n"
        "\nAborting...\n")


class Module(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        # Of another name, and with data that tells it from the first.
        self.copy = os.path.join(os.path.realpath(self.folder.name), "libother.so")
        data = pathlib.Path(LIBRARY).read_bytes()
        other = data.replace(b'<Item name="CompanyName">ov', b'<Item name="CompanyName">OV')
        self.assertNotEqual(other, data)
        pathlib.Path(self.copy).write_bytes(other)
        self.first = document()
        self.messages = messages(
            self.first, self.first.replace('"CompanyName">ov', '"CompanyName">OV'))

    def test_the_block_tells_of_the_build(self):
        module = ElementTree.fromstring(document())
        self.assertEqual((module.tag, module.attrib), ("ModuleInfo", {
            "name": "ovattribute", "type": "dll", "tool": "vc", "build": "release",
            "arch": "x86_64"}))
        self.assertEqual([child.tag for child in module], ["FileInfo"])
        items = list(module[0])
        self.assertEqual({item.tag for item in items}, {"Item"})
        self.assertEqual([item.get("name") for item in items], ITEMS)
        values = {item.get("name"): item.text for item in items}
        self.assertTrue(all(values.values()), values)
        self.assertEqual(values["FileVersion"], VERSION)
        self.assertEqual(values["OriginalFilename"], os.path.basename(LIBRARY))
        self.assertRegex(values["KORVBuildTimestamp"], r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ$")
        notes = subprocess.run(["readelf", "-n", LIBRARY], capture_output=True, text=True,
                               check=True).stdout
        self.assertEqual(re.search(r"Build ID: (\w+)", notes)[1], values["KORVGCCBuildId"])

    def test_a_second_copy_stops_the_process(self):
        steps = ["+" + LIBRARY, "+" + self.copy]
        self.assertEqual(run(C_HOST, *steps), (-signal.SIGTRAP, ["loaded"], self.messages))
        self.assertEqual(run(LINKED_HOST, "+" + self.copy), (-signal.SIGTRAP, [], self.messages))

    def test_the_break_cannot_be_ignored(self):
        # Both settings are those of the parent.
        for ignore in [lambda: signal.signal(signal.SIGTRAP, signal.SIG_IGN),
                       lambda: signal.pthread_sigmask(signal.SIG_BLOCK, [signal.SIGTRAP])]:
            self.assertEqual(run(C_HOST, "+" + LIBRARY, "+" + self.copy, preexec_fn=ignore),
                             (-signal.SIGTRAP, ["loaded"], self.messages))

    def test_a_second_copy_is_let_in(self):
        for let_in in ["1", "0", ""]:
            with self.subTest(let_in):
                self.assertEqual(
                    run(LINKED_HOST, "+" + self.copy, let_in=let_in),
                    (0, ["loaded", "refers to itself", "values work"], self.messages))
        self.assertEqual(
            run(C_HOST, "+" + LIBRARY, "+" + self.copy, let_in="1"),
            (0, ["loaded", "loaded"], self.messages))

    def test_loads_again_after_it_was_unloaded(self):
        load, unload, tell = "+" + LIBRARY, "-" + LIBRARY, "?" + LIBRARY
        # What it has a fork call goes with it.
        once = ["loaded", "mapped", "forked", "unloaded", "not mapped", "forked"]
        self.assertEqual(
            run(C_HOST, *[load, tell, "!", unload, tell, "!"] * 3), (0, once * 3, ""))
        # Whoever comes after it finds the name free.
        self.assertEqual(
            run(C_HOST, load, unload, "+" + self.copy, "-" + self.copy, load),
            (0, ["loaded", "unloaded", "loaded", "unloaded", "loaded"], ""))

    def test_a_copy_comes_and_goes_beside_a_linked_one(self):
        load, unload, tell = "+" + self.copy, "-" + self.copy, "?" + self.copy
        once = ["loaded", "refers to itself", "mapped", "unloaded", "not mapped"]
        # A copy that goes takes the entry along, so the second time nothing is in its way.
        self.assertEqual(
            run(LINKED_HOST, *[load, tell, unload, tell] * 2, let_in="1"),
            (0, once * 2 + ["values work"], self.messages))
        # The one that is linked stays.
        load, unload, tell = "+" + LIBRARY, "-" + LIBRARY, "?" + LIBRARY
        once = ["loaded", "refers to itself", "mapped", "unloaded", "mapped"]
        self.assertEqual(
            run(LINKED_HOST, *[load, tell, unload, tell] * 2), (0, once * 2 + ["values work"], ""))


if __name__ == "__main__":
    unittest.main()
