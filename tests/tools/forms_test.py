#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Takes documents through all forms, judged by python's json and cbor2."""
import json
import os
import subprocess
import threading
import unittest
import uuid

from tool import SANITIZED, InFolder, TOOL, iso_files, ovattr_bytes, start

from marshaled import Values, cbor2, items_of, packages_of

TAG, SIMPLE = cbor2.CBORTag, cbor2.CBORSimpleValue
ONE, BEGIN, END = SIMPLE(16), SIMPLE(17), SIMPLE(18)


def load(path):
    with open(path, encoding="utf-8") as file:
        return json.load(file)


def records_of(path):
    """The list of which most files consist; a schema is one record."""
    document = load(path)
    return next(iter(document.values())) if len(document) == 1 else [document]


class IsoCodes(InFolder):
    """Every file: JSON -> binary -> text -> binary -> JSON."""

    def there_and_back(self, path, *options):
        self.run_tool("convert", path, *options, "-o", "1.ovb")
        self.run_tool("convert", "1.ovb", *options, "-o", "2.ovt")
        self.run_tool("convert", "2.ovt", *options, "-o", "3.ovb")
        self.run_tool("convert", "3.ovb", *options, "-o", "4.json")
        self.assertEqual(load(self.path("4.json")), load(path))
        return self.read("1.ovb")

    def test_without_package(self):
        for path in iso_files():
            with self.subTest(path):
                self.assertEqual(Values(self.there_and_back(path)).all(), [load(path)])

    def test_with_package(self):
        for path in iso_files():
            with self.subTest(path):
                self.run_tool("package", "create", "--from", path, "-o", "names.ovp")
                packages = packages_of(self.read("names.ovp"))
                for announce in [(), ("--announce",)]:
                    self.run_tool("convert", path, "--package", "names.ovp", *announce,
                                  "-o", "announced.ovb")
                    values = Values(self.read("announced.ovb"), packages)
                    self.assertEqual(values.all(), [load(path)])
                    self.assertEqual(values.references, 1)
                self.there_and_back(path, "--package", "names.ovp", "--strict")

    def test_through_pipes_as_lines(self):
        """The records of each file, one a line, through four processes at once."""
        for path in iso_files():
            with self.subTest(path):
                records = records_of(path)
                lines = "".join(json.dumps(record, ensure_ascii=False) + "\n" for record in records)
                self.run_tool("package", "create", "-o", "names.ovp", "--lines", "--from",
                              self.write("records.json", lines))
                steps = [("json", "binary"), ("binary", "text"), ("text", "binary"),
                         ("binary", "json")]
                last = subprocess.PIPE
                processes = []
                for source, target in steps:
                    processes.append(start(
                        "convert", "-", "--lines", "--from", source, "--to", target, "--package",
                        "names.ovp", stdin=last, stdout=subprocess.PIPE, cwd=self.folder))
                    if last != subprocess.PIPE:
                        last.close()
                    last = processes[-1].stdout
                feeder = threading.Thread(target=feed, args=(processes[0].stdin, lines.encode()))
                feeder.start()
                result = last.read()
                last.close()
                feeder.join()
                self.assertEqual([process.wait() for process in processes], [0] * len(steps))
                self.assertEqual([json.loads(line) for line in result.splitlines()], records)

    def test_lines_announce_each_package_once(self):
        (path,) = [path for path in iso_files() if path.endswith("iso_639-3.json")]
        records = records_of(path)
        self.write("records.jsonl", "\n".join(map(json.dumps, records)))
        self.run_tool("package", "create", "-o", "names.ovp", "--from", "records.jsonl")
        self.run_tool("convert", "records.jsonl", "--package", "names.ovp", "-o", "records.ovb")
        values = Values(self.read("records.ovb"), packages_of(self.read("names.ovp")))
        self.assertEqual(values.all(), records)
        self.assertEqual(values.references, 1)

    def test_sizes_beside_messagepack(self):
        try:
            import msgpack
        except ImportError:
            self.skipTest("python3-msgpack is not installed")
        for name, with_package in [("iso_639-3.json", 0.60), ("iso_3166-2.json", 0.78)]:
            with self.subTest(name):
                (path,) = [path for path in iso_files() if path.endswith(name)]
                peer = len(msgpack.packb(load(path), use_bin_type=True))
                self.run_tool("package", "create", "--from", path, "-o", "names.ovp")
                sizes = []
                for options, limit in [((), 1.05), (("--package", "names.ovp"), with_package)]:
                    self.run_tool("convert", path, *options, "-o", "out.ovb")
                    sizes.append(len(self.read("out.ovb")))
                    self.assertLessEqual(sizes[-1], limit * peer)
                print(f"{name}: MessagePack {peer} bytes, binary {sizes[0]}, with package"
                      f" {sizes[1]}: {sizes[0] / peer:.3f} and {sizes[1] / peer:.3f} of it")


def feed(pipe, data):
    with pipe:
        pipe.write(data)


class Types(InFolder):
    """A scalar, an empty list and a list of each type, as text, and what cbor2 must find."""

    UUID = uuid.UUID("00112233-4455-6677-8899-aabbccddeeff")
    SEALED = [BEGIN, "note", "EAX_AES128", BEGIN, "family", UUID, END, b"sealed", END]
    ERROR = [BEGIN, "error.a", "{@n}", ONE, "n", "v", "file", "f()", SIMPLE(7), END]
    CASES = [  # the text of one element, the type's number, the element's items, native or not
        ("true", 1, [True], True),
        ("-9223372036854775808", 2, [-2 ** 63], True),
        ('"\\u0000ü"', 3, ["\0ü"], True),
        ("38218(h'ff')", 3, [TAG(38218, b"\xff")], True),
        ("-0.5", 4, [-0.5], True),
        ("37(h'00112233445566778899aabbccddeeff')", 5, [UUID], True),
        ('"http://example.org/?a#b"', 6, ["http://example.org/?a#b"], False),
        ("1001({1: -1, -6: 999999})", 7, [TAG(1001, {1: -1, -6: 999999})], True),
        ("1002({1: 5})", 8, [TAG(1002, {1: 5})], True),
        ('"2024-02-29T12:34:56.5"', 9, ["2024-02-29T12:34:56.5"], False),
        ("h'0102'", 10, [b"\1\2"], True),
        ("simple(17), simple(17), \"t\", simple(18), h'00', simple(18)", 11,
         [BEGIN, BEGIN, "t", END, b"\0", END], False),
        ('simple(17), "note", "EAX_AES128", simple(17), "family",'
         " 37(h'00112233445566778899aabbccddeeff'), simple(18), h'7365616c6564', simple(18)",
         13, SEALED, False),
        ('simple(17), "error.a", "{@n}", simple(16), "n", "v", "file", "f()", simple(7),'
         " simple(18)", 14, ERROR, False),
    ]

    def streams(self):
        yield "null", [None]
        yield "simple(12), [_ 0]", [SIMPLE(12), [0]]
        yield "simple(12), simple(16), [_ 0]", [SIMPLE(12), ONE, [0]]
        for text, number, items, native in self.CASES:
            tag = SIMPLE(number)
            yield (text, items) if native else (f"simple({number}), {text}", [tag, *items])
            yield f"simple({number}), [_ 0]", [tag, [0]]
            yield f"simple({number}), [_ 2, {text}, {text}]", [tag, [2, *items, *items]]
            deep = f"simple({number}), [_ 2, {text}, {text}]"
            deep_items = [tag, [2, *items, *items]]
            for _ in range(4):
                deep = f'simple(12), simple(16), simple(16), "m", {deep}'
                deep_items = [SIMPLE(12), ONE, ONE, "m", *deep_items]
            yield deep, deep_items

    def test_python_reads_what_is_written(self):
        for text, items in self.streams():
            with self.subTest(text):
                binary = self.run_tool("convert", "-", "--from", "text", "--to", "binary",
                                       stdin=text.encode())
                self.assertEqual(items_of(binary), items)

    def test_survive_in_every_form(self):
        for text, _ in self.streams():
            steps = ["text", "binary", "text", "binary", "json", "binary", "text"]
            with self.subTest(text):
                data = text.encode()
                for source, target in zip(steps, steps[1:]):
                    data = self.run_tool("convert", "-", "--from", source, "--to", target,
                                         stdin=data)
                self.assertEqual(data.decode(), text + "\n")


class Endings(InFolder):
    def test_say_the_form(self):
        for name, content in [("a.json", b'{"a":1}\n'), ("a.jsonl", b'{"a":1}\n'),
                              ("a.ndjson", b'{"a":1}\n'),
                              ("a.ovb", bytes.fromhex("ecf0f0616101")),
                              ("a.ovt", b'simple(12), simple(16), simple(16), "a", 1\n'),
                              ("a", b'{"a":1}\n')]:
            with self.subTest(name):
                self.run_tool("convert", "-", "-o", name, stdin=b'{"a": 1}')
                self.assertEqual(self.read(name), content)
                self.assertEqual(self.run_tool("convert", name), b'{"a":1}\n')
                self.assertEqual(self.run_tool("query", name, "/a"), b"1\n")
                self.assertEqual(self.run_tool("diff", name, "a.json"), b"")
                self.assertIn(b"'a' => [Integer: {1}]", self.run_tool("show", name))

    def test_that_are_not_known_are_not_written(self):
        for name in ["a.cbor", "a.json.bak", "./a.b"]:
            err = self.refuse("convert", "-", "-o", name, stdin=b"1", code=2)
            self.assertIn(".json, .jsonl, .ndjson, .ovb, .ovt; give --to", err)
        self.assertEqual(os.listdir(self.folder), [])
        self.run_tool("convert", "-", "-o", "a.cbor", "--to", "text", stdin=b"1")
        self.assertEqual(self.read("a.cbor"), b"1\n")
        self.assertEqual(self.run_tool("convert", self.write("a.geojson", b"2")), b"2\n")

    def test_options_go_first(self):
        self.write("a.json", bytes.fromhex("e29f020102ff"))
        self.assertEqual(self.run_tool("convert", "a.json", "--from", "binary"), b"[1,2]\n")
        self.assertEqual(self.run_tool("convert", "-", "--from", "text", "--to", "trace",
                                       stdin=b"2.0"), b"[Double: {2.0}]\n")

    def test_text_can_be_laid_out(self):
        self.assertEqual(
            self.run_tool("convert", "-", "--to", "text", "--indent", "2", stdin=b"[1, 2]"),
            b"simple(2),\n[_ 2,\n  1,\n  2\n]\n")


class Lines(InFolder):
    def test_are_one_value_each(self):
        lines = b'{"a": 1}\r\n\n  \n[1, 2]\n"x"'
        self.write("a.jsonl", lines)
        self.run_tool("convert", "a.jsonl", "-o", "a.ovb")
        self.run_tool("convert", "a.ovb", "-o", "a.ovt")
        self.assertEqual(self.run_tool("convert", "a.ovt", "--lines"), b'{"a":1}\n[1,2]\n"x"\n')
        self.assertEqual(self.run_tool("convert", "-", "--lines", stdin=b"1\n2\n"), b"1\n2\n")
        self.assertEqual(self.run_tool("convert", "-", "--lines", stdin=b" \n\n"), b"")
        os.rename(self.path("a.jsonl"), self.path("a.ndjson"))
        self.assertEqual(self.run_tool("query", "a.ndjson", "/a"), b"1\n")
        self.run_tool("convert", "a.ovb", "-o", "b.ndjson")
        self.assertEqual(self.read("b.ndjson").count(b"\n"), 3)
        self.assertEqual(self.run_tool("show", "a.ovb").count(b"["), 4)

    def test_errors_name_the_line(self):
        for text, place in [("1\n\n[1, ]\n2", "[line 3, pos 5]"), ("1\n {\n}", "[line 2, pos"),
                            ("1 2", "[line 1, pos 3]"), ("{}\n\t{\"a\": 01}", "[line 2, pos 9]")]:
            with self.subTest(text):
                err = self.refuse("convert", "-", "--lines", "-o", "out.ovb", stdin=text.encode())
                self.assertIn(place, err)
                self.assertEqual(os.listdir(self.folder), [])

    def test_one_document_holds_one_value(self):
        self.write("two.ovt", "1, 2")
        self.write("none.ovb", b"")
        for arguments, message in [
                (("convert", "two.ovt", "-o", "out.json"), "--lines"),
                (("convert", "none.ovb", "-o", "out.json"), "no value")]:
            self.assertIn(message, self.refuse(*arguments))
            self.assertFalse(os.path.exists(self.path("out.json")))
        self.run_tool("convert", "none.ovb", "--lines", "-o", "out.jsonl")
        self.assertEqual(self.read("out.jsonl"), b"")

    def test_diff_goes_value_by_value(self):
        self.write("a.jsonl", '{"a": 1}\n{"a": 2}\n3\n')
        self.write("b.ovt", 'simple(12), simple(16), simple(16), "a", 1, '
                            'simple(12), simple(16), simple(16), "a", 5')
        code_out = subprocess.run([TOOL, "diff", "a.jsonl", "b.ovt"], cwd=self.folder,
                                  capture_output=True)
        self.assertEqual((code_out.returncode, code_out.stdout.decode()),
                         (1, "! #2/a: [Integer: 2] => [Integer: 5]\n- #3: [Integer: 3]\n"))

    def test_values_pass_as_they_come(self):
        """A value is handed on before the next one is sent."""
        with start("convert", "-", "--lines", "--to", "binary", stdin=subprocess.PIPE,
                   stdout=subprocess.PIPE) as first:
            with start("convert", "-", "--from", "binary", "--lines", stdin=first.stdout,
                       stdout=subprocess.PIPE) as second:
                first.stdout.close()
                for number in range(3):
                    first.stdin.write(b'{"n": %d}\n' % number)
                    first.stdin.flush()
                    self.assertEqual(second.stdout.readline(), b'{"n":%d}\n' % number)
                first.stdin.close()
                self.assertEqual(second.stdout.read(), b"")
        self.assertEqual((first.returncode, second.returncode), (0, 0))

    def test_take_no_more_memory_than_one_value(self):
        size = 96 << 20
        line = json.dumps({"name": "x" * 1000, "list": list(range(100))}).encode() + b"\n"
        with open(self.path("long.jsonl"), "wb") as file:
            for _ in range(size // len(line)):
                file.write(line)
        environment = {**os.environ, "ASAN_OPTIONS": "quarantine_size_mb=1"}
        for arguments in [("convert", "long.jsonl", "-o", "long.ovb"),
                          ("convert", "long.ovb", "--lines", "-o", "again.jsonl")]:
            with start(*arguments, cwd=self.folder, env=environment) as process:
                _, status, usage = os.wait4(process.pid, 0)
                process.returncode = os.waitstatus_to_exitcode(status)
            self.assertEqual(process.returncode, 0)
            self.assertLess(usage.ru_maxrss, (72 if SANITIZED else 56) << 10)
        with open(self.path("long.jsonl"), "rb") as a, open(self.path("again.jsonl"), "rb") as b:
            for before, after in zip(a, b, strict=True):
                self.assertEqual(json.loads(after), json.loads(before))


class Damage(InFolder):
    def test_keeps_what_was_read_before(self):
        good = b"".join(b'{"n": %d, "text": "%s"}\n' % (n, b"x" * (n % 700)) for n in range(3000))
        to_form = ("convert", "-", "--lines", "--to")
        streams = {"json": (good, b'{"n": 1, "text": [1, "a"]}\n'),
                   "binary": (self.run_tool(*to_form, "binary", stdin=good), b"\xec\xf0\xf3"),
                   "text": (self.run_tool(*to_form, "text", stdin=good), b", simple(12), 1")}
        commands = [(*to_form, form) for form in ["json", "binary", "text", "trace"]]
        commands += [("show", "-", "--lines"), ("query", "-", "/text", "--lines"),
                     ("diff", "-", self.write("nothing.json", b"[]"), "--lines"),
                     ("convert", "-", "--lines", "-o", "/dev/stdout")]
        for source, (data, bad) in streams.items():
            for command in commands:
                with self.subTest((source, command)):
                    _, whole, _ = ovattr_bytes(*command, "--from", source, stdin=data,
                                               cwd=self.folder)
                    code, out, err = ovattr_bytes(*command, "--from", source, stdin=data + bad,
                                                  cwd=self.folder)
                    self.assertEqual((code, err.count("\n")), (1, 1))
                    self.assertTrue(out == whole and len(out) > 20_000, (len(out), len(whole)))

    def test_leaves_no_file(self):
        (path,) = [path for path in iso_files() if path.endswith("iso_4217.json")]
        self.run_tool("convert", path, "-o", "whole.ovb")
        self.run_tool("convert", path, "-o", "whole.ovt")
        binary, text = self.read("whole.ovb"), self.read("whole.ovt")
        os.remove(self.path("whole.ovb"))
        os.remove(self.path("whole.ovt"))
        for name, data in [("cut.ovb", binary[:1000]), ("cut.ovt", text[:1000]),
                           ("bad.ovb", binary[:1000] + b"\xf3" + binary[1001:]),
                           ("bad.ovt", text[:1000] + b"\xff" + text[1001:]),
                           ("more.ovb", binary + b"\x1c"), ("tag.ovb", b"\xef")]:
            with self.subTest(name):
                self.write(name, data)
                err = self.refuse("convert", name, "--lines", "-o", "out.json", "-v")
                self.assertRegex(err, rf"^ovattr: {name}: .*\n  error\.ov")
                if name != "tag.ovb":
                    self.assertRegex(err, r"offset \d+|line \d+")
                self.assertEqual(os.listdir(self.folder), [name])
                os.remove(self.path(name))


if __name__ == "__main__":
    unittest.main()
