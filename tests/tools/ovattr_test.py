#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Runs the tool as its users do. The path of the tool is the first argument."""
import json
import os
import resource
import stat
import tempfile
import unittest

from tool import ISO_CODES, ovattr

GOLDEN = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../data/golden")


class Query(unittest.TestCase):
    DOCUMENT = json.dumps({
        "text": "plain \"text\"", "n": 9223372036854775807, "half": 0.5, "yes": True, "no": None,
        "list": ["a", "b"], "one": [7], "maps": [{"x": 1}, {"x": 2}], "a/b": {"m~n": "odd"},
        "": "", "0": "named zero",
    }).encode().replace(b'"": "", ', b"")

    def query(self, pointer):
        return ovattr("query", "-", pointer, stdin=self.DOCUMENT)

    def test_finds_values(self):
        for pointer, text in [
            ("/text", 'plain "text"\n'), ("/n", "9223372036854775807\n"), ("/half", "0.5\n"),
            ("/yes", "true\n"), ("/list/1", "b\n"), ("/one", "7\n"), ("/one/0", "7\n"),
            ("/text/0", 'plain "text"\n'), ("/maps/1/x", "2\n"), ("/a~1b/m~0n", "odd\n"),
            ("/0", "named zero\n"), ("/list", '[\n  "a",\n  "b"\n]\n'),
            ("/maps/0", '{\n  "x": 1\n}\n'), ("/no", "null\n"),
        ]:
            with self.subTest(pointer):
                self.assertEqual(self.query(pointer), (0, text, ""))

    def test_prints_all_bytes_in_one_line(self):
        for size in [0, 2, 1000]:
            with self.subTest(size):
                document = b"simple(12), simple(16), simple(16), \"b\", h'%s'" % (b"0a" * size)
                self.assertEqual(ovattr("query", "-", "/b", "--from", "text", stdin=document),
                                 (0, " ".join(["0a"] * size) + "\n", ""))

    def test_names_what_is_not_there(self):
        for pointer in ["/nothing", "/list/2", "/list/01", "/list/-", "/text/1", "/n/x"]:
            with self.subTest(pointer):
                self.assertEqual(
                    self.query(pointer),
                    (1, "", f"ovattr: standard input: Nothing at {pointer}\n"))

    def test_refuses_what_is_no_pointer(self):
        for pointer in ["text", "/a~2", "/~"]:
            with self.subTest(pointer):
                code, out, err = self.query(pointer)
                self.assertEqual((code, out), (2, ""))
                self.assertIn("is not a JSON pointer", err)

    def test_reads_a_real_file(self):
        self.assertEqual(
            ovattr("query", f"{ISO_CODES}/iso_639-3.json", "/639-3/0/name"), (0, "Ghotuo\n", ""))


class Failures(unittest.TestCase):
    def test_name_the_file_and_the_place(self):
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "bad.json")
            for text, message in [
                ('{"a": 01}', "[line 1, pos 8]"), ('{"a": [1, "b"]}', "[line 1, pos 11]"),
                ('{\n"a": 1,\n"a": 2}', "Repeated member name 'a' [line 3, pos 1]"),
                ('{"\\n\\u001b": 1, "\\n\\u001b": 2}', "Repeated member name '??'"),
                ('{"\u009b": 1, "\u009b": 2}', "Repeated member name '?'"),
                ('{"a": }', "eToken_Punctuator [line 1, pos 7] (a bracket, comma or colon"),
                ("{a 1}", "eToken_Number [line 1, pos 4] (a number cannot stand here"),
                ("[x]", "eToken_IdentifierBegin [line 1, pos 2] (a word without quotation marks"),
                ('["a" "b"]', "eToken_StringBegin [line 1, pos 6] (a string cannot"),
                ("{null", "eToken_Null [line 1, pos 2] (null cannot"),
                ("{true", "eToken_True [line 1, pos 2] (true cannot"),
                ("{false", "eToken_False [line 1, pos 2] (false cannot"),
                ('{"a": 1} x', "[line 1, pos 10]"), ("", "Expecting JSON value"),
                ('{"a":\n 12345678901234567890}', "nor a Double exactly [line 2, pos 2]"),
                ('{"a": "\udc80"}', "[line 1, pos"), ("[" * 600, "[line 1, pos"),
            ]:
                with open(path, "wb") as file:
                    file.write(text.encode("utf-8", "surrogateescape"))
                with self.subTest(text[:20]):
                    code, out, err = ovattr("show", path)
                    self.assertEqual((code, out), (1, ""))
                    self.assertTrue(err.startswith(f"ovattr: {path}: "), err)
                    self.assertIn(message, err)
                    self.assertEqual(err.count("\n"), 1)

    def test_verbose_adds_the_code(self):
        for arguments in [("-v", "show", "-"), ("show", "-", "--verbose")]:
            _, _, err = ovattr(*arguments, stdin=b"[1")
            self.assertIn("error.ovjson.reader", err)

    def test_a_file_that_is_not_there_is_bad_data(self):
        code, _, err = ovattr("show", "/nonexistent/file.json")
        self.assertEqual(code, 1)
        self.assertIn("/nonexistent/file.json", err)
        self.assertIn("No such file", err)

    def test_usage(self):
        for arguments in [(), ("show",), ("sing",), ("convert", "-", "--to", "yaml"),
                          ("convert", "-", "--indent", "x"),
                          ("convert", "-", "--indent", "18446744073709551615"),
                          ("show", "a", "\33[2J\u009b2J")]:
            with self.subTest(arguments):
                code, out, err = ovattr(*arguments)
                self.assertEqual((code, out), (2, ""))
                self.assertTrue(err.startswith("ovattr: "), err)
                self.assertNotRegex(err, "[\0-\t\v-\37\x7f-\x9f]")
        code, _, err = ovattr("sing", "a.json")
        self.assertEqual((code, err.splitlines()[0]), (2, "ovattr: Unexpected argument: sing"))
        for command in ["show", "query", "convert", "diff", "inspect", "package", "package create",
                        "package show", "package union"]:
            code, out, _ = ovattr(*command.split(), "--help")
            self.assertEqual(code, 0)
            self.assertRegex(out, f"Examples?:\n  ovattr {command}")


class Convert(unittest.TestCase):
    def test_iso_codes_come_back_equal(self):
        for name in sorted(os.listdir(ISO_CODES)):
            with self.subTest(name):
                path = os.path.join(ISO_CODES, name)
                code, out, err = ovattr("convert", path, "--to", "json")
                self.assertEqual((code, err), (0, ""))
                with open(path, encoding="utf-8") as file:
                    self.assertEqual(json.loads(out), json.load(file))

    def test_says_what_the_mapping_changes(self):
        for text, result in [
            ("2.5", '{"ovserialize":"2.5"}'), ("[1]", "1"), ("-0", "0"), ("[]", "[]"),
            ("9007199254740993", "9007199254740993"), ('{"b":1,"a":{}}', '{"a":{},"b":1}'),
            ("[0.5, 1]", '{"ovserialize":"simple(4), [_ 2, 0.5, 1.0]"}'), ("1.0", "1"),
        ]:
            with self.subTest(text):
                self.assertEqual(ovattr("convert", "-", stdin=text.encode()), (0, result + "\n", ""))

    def test_a_failure_leaves_the_old_file(self):
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "out.json")
            self.assertEqual(ovattr("convert", "-", "-o", path, stdin=b"[1, 2]")[0], 0)
            os.chmod(path, 0o7640)
            self.assertEqual(ovattr("convert", "-", "-o", path, stdin=b"[1, ")[0], 1)
            with open(path, encoding="utf-8") as file:
                self.assertEqual(file.read(), "[1,2]\n")
            self.assertEqual(ovattr("convert", "-", "-o", path, stdin=b"3")[0], 0)
            self.assertEqual(stat.S_IMODE(os.stat(path).st_mode), 0o640)
            self.assertEqual(os.listdir(folder), ["out.json"])
        self.assertEqual(ovattr("convert", "-", "-o", "/nonexistent/out", stdin=b"1")[0], 1)
        self.assertEqual(ovattr("convert", "-", "-o", "/dev/full", stdin=b"1")[0], 1)


class Diff(unittest.TestCase):
    def diff(self, a, b):
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "b.json")
            with open(path, "w", encoding="utf-8") as file:
                file.write(b)
            return ovattr("diff", "-", path, stdin=a.encode())

    def test_equal_documents(self):
        for a, b in [('{"a": 1, "b": [2]}', '{"b": 2, "a": 1.0}'), ("[]", "[]"), ("null", "null")]:
            self.assertEqual(self.diff(a, b), (0, "", ""))

    def test_lists_each_difference(self):
        a = '{"same": 1, "gone": "x", "n": 2, "list": [1, 2, 3], "in": {"a/b": [{"x": 1}, {"x": 2}]}}'
        b = ('{"same": 1, "new": {"y": [1, 2]}, "n": {"ovserialize": "2.0"}, "list": [1, 5],'
             ' "in": {"a/b": [{"x": 1}, {"x": 3}]}}')
        code, out, err = self.diff(a, b)
        self.assertEqual((code, err), (1, ""))
        self.assertEqual(out.splitlines(), [
            '- /gone: [String: "x"]',
            "! /in/a~1b/1/x: [Integer: 2] => [Integer: 3]",
            "! /list/1: [Integer: 2] => [Integer: 5]",
            "- /list/2: [Integer: 3]",
            "! /n: [Integer: 2] => [Double: 2.0]",
            "+ /new: [AttributeMap: { 'y' => [Integer: {1, 2}]}]",
        ])

    def test_shows_what_differs_behind_what_is_cut(self):
        with tempfile.TemporaryDirectory() as folder:
            names = [os.path.join(folder, name) for name in ("a.json", "b.json")]
            for name, end in zip(names, "12"):
                with open(name, "w") as file:
                    file.write('"%s"' % ("x" * 100 + end))
            self.assertEqual(ovattr("diff", *names)[1], '! : [String: "%s1"] => [String: "%s2"]\n'
                             % ("x" * 100, "x" * 100))

    def test_a_long_pointer_costs_no_more_for_every_name_behind_it(self):
        a = json.dumps({"x" * 2_000_000: {f"a{i}": i for i in range(150_000)}})
        before = resource.getrusage(resource.RUSAGE_CHILDREN).ru_utime
        self.assertEqual(self.diff(a, a), (0, "", ""))
        self.assertLess(resource.getrusage(resource.RUSAGE_CHILDREN).ru_utime - before, 12)

    def test_a_name_does_not_break_the_line(self):
        code, out, _ = self.diff(r'{"a\n- /b": 1}', "{}")
        self.assertEqual((code, out), (1, '- "/a\\n- ~1b": [Integer: 1]\n'))

    def test_standard_input_is_one_file(self):
        code, out, err = ovattr("diff", "-", "-", stdin=b"1")
        self.assertEqual((code, out), (2, ""))
        self.assertIn("only once", err)


class Show(unittest.TestCase):
    def test_prints_the_golden_text(self):
        with open(f"{GOLDEN}/document.txt", encoding="utf-8", newline="") as file:
            self.assertEqual(ovattr("show", f"{GOLDEN}/document.json"), (0, file.read(), ""))

    def test_orders_names_and_cuts_long_lists(self):
        document = json.dumps({"b": list(range(40)), "a": "x"}).encode()
        code, out, _ = ovattr("show", "-", stdin=document)
        self.assertEqual(code, 0)
        self.assertLess(out.index("'a'"), out.index("'b'"))
        self.assertIn("31...(+8)", out.replace(", ", ""))
        self.assertIn("39}", ovattr("show", "-", "--all", stdin=document)[1])


if __name__ == "__main__":
    unittest.main()
