#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The module information follows from version, settings and sources alone.

Arguments: cmake, the root of the project.
"""
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

CMAKE, ROOT = sys.argv[1], pathlib.Path(sys.argv[2])
del sys.argv[1:]


def write(folder, epoch="1700000000", **values):
    """The information and the linker's option for a project of two sources in the folder."""
    folder = pathlib.Path(folder)
    (folder / "list.txt").write_text("a.h\nb.cpp\n", encoding="utf-8")
    for name in ["a.h", "b.cpp"]:
        path = folder / name
        if not path.exists():
            path.write_text(name, encoding="utf-8")
    values = {
        "ROOT": folder, "SOURCES": folder / "list.txt", "FOLDER": folder / "out",
        "TEMPLATE": ROOT / "ovattribute" / "module_info.inc.in", "SETTINGS": "-O2 -g",
        "VERSION": "1.2.3", "FILE_NAME": "libx.so.1.2.3", "MACHINE": "m", "NAME": "n",
        "CHANGELIST": "7", "NUMBER": "8", **values,
    }
    environment = {k: v for k, v in os.environ.items() if k != "SOURCE_DATE_EPOCH"}
    if epoch:
        environment["SOURCE_DATE_EPOCH"] = epoch
    subprocess.run([CMAKE, *(f"-D{k}={v}" for k, v in values.items()),
                    "-P", ROOT / "cmake" / "write_module_info.cmake"],
                   env=environment, check=True)
    return tuple((folder / "out" / name).read_text(encoding="utf-8")
                 for name in ["module_info.inc", "build_id.options"])


def item(information, name):
    return re.search(f'<Item name="{name}">(.*)</Item>', information)[1]


class ModuleInfo(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.information, self.options = write(self.folder.name)

    def test_another_folder_and_day_make_the_same(self):
        with tempfile.TemporaryDirectory() as other:
            for name in ["a.h", "b.cpp"]:
                path = pathlib.Path(other, name)
                path.write_text(name, encoding="utf-8")
                os.utime(path, (0, 0))
            self.assertEqual(write(other), (self.information, self.options))

    def test_the_linker_takes_the_id(self):
        build_id = item(self.information, "KORVGCCBuildId")
        self.assertRegex(build_id, "^[0-9a-f]{40}$")
        self.assertEqual(self.options, f"--build-id=0x{build_id}\n")

    def test_version_settings_and_sources_make_the_id(self):
        ids = {self.options}
        for values in [{"VERSION": "1.2.4"}, {"SETTINGS": "-O0 -g"}]:
            ids.add(write(self.folder.name, **values)[1])
        pathlib.Path(self.folder.name, "b.cpp").write_text("changed", encoding="utf-8")
        ids.add(write(self.folder.name)[1])
        self.assertEqual(len(ids), 4)
        self.assertEqual(write(self.folder.name, MACHINE="other")[1],
                         write(self.folder.name, epoch="1")[1])

    def test_the_time_is_the_builders_or_that_of_the_newest_source(self):
        self.assertEqual(item(self.information, "KORVBuildTimestamp"), "2023-11-14T22:13:20Z")
        os.utime(pathlib.Path(self.folder.name, "a.h"), (86400, 86400))
        os.utime(pathlib.Path(self.folder.name, "b.cpp"), (3600, 3600))
        information, _ = write(self.folder.name, epoch=None)
        self.assertEqual(item(information, "KORVBuildTimestamp"), "1970-01-02T00:00:00Z")

    def test_values_are_text_of_an_xml_document(self):
        information, _ = write(self.folder.name, NAME='<a> & )xml"')
        self.assertEqual(item(information, "KORVBuildName"), "&lt;a&gt; &amp; )xml&quot;")


if __name__ == "__main__":
    unittest.main()
