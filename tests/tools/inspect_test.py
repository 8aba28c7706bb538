#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The list of items in a binary stream, whole and broken."""
import json
import unittest

from tool import InFolder, ISO_CODES, ovattr

DOCUMENT = json.dumps({"list": [1, 2], "map": {"n": "x"}, "none": None}).encode()


def lines_of(text):
    return [line.split(None, 3) for line in text.splitlines()[1:]]


class Inspect(InFolder):
    def inspect(self, *arguments):
        return ovattr("inspect", *arguments, cwd=self.folder)

    def setUp(self):
        super().setUp()
        self.run_tool("package", "create", "list", "map", "-o", "names.ovp")
        for name, options in [("plain.ovb", ()), ("coded.ovb", ("--package", "names.ovp"))]:
            self.run_tool("convert", "-", *options, "-o", name, stdin=DOCUMENT)

    def assert_covers(self, text, size):
        """Every byte belongs to one line."""
        offset = 0
        for line in lines_of(text):
            self.assertEqual(int(line[0]), offset)
            offset += int(line[1])
        self.assertEqual(offset, size)

    def test_says_what_items_mean(self):
        self.write("map.ovt", 'simple(12), simple(16), [_ 2, "list", simple(2), [_ 2, 1, -2], '
                              '"when", 1001({1: 0})], simple(6), "a:b"')
        self.run_tool("convert", "map.ovt", "-o", "map.ovb")
        code, out, err = self.inspect("map.ovb")
        self.assertEqual((code, err), (0, ""))
        self.assertEqual(out.splitlines(), [
            "    offset     bytes  kind       meaning",
            "         0         1  unsigned   type AttributeMap",
            "         1         1  sequence   elements of 1",
            "         2         2  sequence     map of 2",
            '         4         5  string         name "list"',
            "         9         1  unsigned       type Integer",
            "        10         2  sequence       elements of 2",
            "        12         1  integer          Integer 1",
            "        13         1  integer          Integer -2",
            "        14         1  end",
            '        15         5  string         name "when"',
            "        20         6  time           AbsoluteTime 1970-01-01T00:00:00Z",
            "        26         1  end",
            "        27         1  unsigned   type URI",
            '        28         4  string     URI "a:b"',
        ])

    def test_knows_names_behind_numbers(self):
        size = len(self.read("coded.ovb"))
        for options, name in [(("--package", "names.ovp"), "list"), ((), ":0")]:
            code, out, err = self.inspect("coded.ovb", *options)
            self.assertEqual((code, err), (0, ""))
            self.assertRegex(out, rf'unsigned +name 0: "\S*{name}"\n')
            self.assertEqual("not known" in out, not options)
            self.assert_covers(out, size)

    def test_lists_packages_and_announcements(self):
        self.run_tool("convert", "-", "--package", "names.ovp", "--announce", "-o", "first.ovb",
                      stdin=DOCUMENT)
        self.run_tool("package", "create", "other", "-o", "other.ovp")
        self.run_tool("package", "union", "names.ovp", "other.ovp", "-o", "both.ovp")
        for name in ["first.ovb", "names.ovp", "both.ovp"]:
            with self.subTest(name):
                code, out, err = self.inspect(name)
                self.assertEqual((code, err), (0, ""))
                self.assertIn(" package ", out)
                self.assert_covers(out, len(self.read(name)))

    def test_goes_up_to_the_fault_wherever_a_stream_is_cut(self):
        for name in ["plain.ovb", "coded.ovb"]:
            whole = self.read(name)
            _, all_lines, _ = self.inspect(name)
            for size in range(1, len(whole)):
                with self.subTest((name, size)):
                    self.write("cut.ovb", whole[:size])
                    code, out, err = self.inspect("cut.ovb")
                    self.assertEqual(code, 1)
                    self.assertRegex(err, r"^ovattr: cut\.ovb: .*offset \d+\n$")
                    self.assertTrue(all_lines.startswith(out))
                    shown = sum(int(line[1]) for line in lines_of(out))
                    following = int(lines_of(all_lines)[len(lines_of(out))][1])
                    self.assertTrue(shown <= size < shown + following)

    def test_lists_flat_items_behind_a_surprise(self):
        cases = [  # a stream, the items in it, what was expected
            ("ec f0 f0 07 08 05", ["unsigned", "sequence", "sequence", "integer", "integer",
                                   "integer"], "name at offset 3"),
            ("ef 05 9f 00 f1 f2 ff", ["unsigned", "integer", "sequence", "structure", "end", "end"],
             "a type at offset 0"),
            ("f0 05 06", ["sequence", "integer", "integer"], "a value at offset 0"),
            ("ec 9f 00 f0 61 61 ff", ["unsigned", "sequence", "sequence", "string", "end"],
             "a value at offset 6"),
            ("ec f0 f0 e7 05 06", ["unsigned", "sequence", "sequence", "unsigned", "integer",
                                   "integer"], "the number of a name at offset 3"),
            ("eb f1 f1 05 f2 f2 05", ["unsigned", "structure", "structure", "integer", "end", "end",
                                      "integer"], "type at offset 3"),
        ]
        for data, kinds, message in cases:
            with self.subTest(data):
                self.write("odd.ovb", bytes.fromhex(data))
                code, out, err = self.inspect("odd.ovb")
                self.assertEqual([line[2] for line in lines_of(out)], kinds)
                self.assertEqual((code, err), (1, f"ovattr: odd.ovb: Expecting {message}\n"))
                self.assert_covers(out, len(bytes.fromhex(data)))

    def test_every_flipped_bit(self):
        whole = bytearray(self.read("coded.ovb"))
        for bit in range(0, 8 * len(whole), 3):
            damaged = bytearray(whole)
            damaged[bit // 8] ^= 1 << bit % 8
            self.write("flipped.ovb", bytes(damaged))
            code, out, err = self.inspect("flipped.ovb")
            with self.subTest(bit):
                self.assertIn(code, (0, 1), err)
                if code == 0 or "Expecting" in err:
                    self.assert_covers(out, len(whole))

    def test_cuts_long_contents(self):
        self.run_tool("convert", "-", "-o", "long.ovb", stdin=json.dumps("ü" * 1000).encode())
        _, out, _ = self.inspect("long.ovb")
        self.assertIn("...", out)
        self.assertLess(max(map(len, out.splitlines())), 110)

    def test_names_stay_on_their_line(self):
        self.run_tool("package", "create", "a\nb\33", "-o", "odd.ovp")
        self.assertEqual(self.run_tool("package", "show", "odd.ovp").splitlines()[1:],
                         [b'  "a\\nb\\u001b"'])
        self.run_tool("convert", "-", "--package", "odd.ovp", "-o", "odd.ovb",
                      stdin=b'{"a\\nb\\u001b": 1}')
        _, out, _ = self.inspect("odd.ovb", "--package", "odd.ovp")
        self.assertIn('name 0: "a\\nb\\u001b"\n', out)

    def test_a_real_file(self):
        self.run_tool("convert", f"{ISO_CODES}/iso_3166-1.json", "-o", "real.ovb")
        code, out, err = self.inspect("real.ovb")
        self.assertEqual((code, err), (0, ""))
        self.assert_covers(out, len(self.read("real.ovb")))


if __name__ == "__main__":
    unittest.main()
