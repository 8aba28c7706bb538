#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Seals, carries, checks and opens documents and attributes. The path of the tool is the first
argument."""
import json
import os
import stat
import subprocess
import time
import unittest

from tool import ISO_CODES, TOOL, InFolder, ovattr, start

KEY_ID = "0b1f2c6e-58a7-4f1d-9a54-0c5e9d3f7b21"
OTHER_ID = "ffffffff-58a7-4f1d-9a54-0c5e9d3f7b21"
LANGUAGES = os.path.join(ISO_CODES, "iso_639-3.json")
UNAUTHENTIC = "Ciphertext fails authentication with provided key.  Cipher=EAX_AES128"


def load(path):
    with open(path, encoding="utf-8") as file:
        return json.load(file)


class Sealing(InFolder):
    def setUp(self):
        super().setUp()
        for name, size in [("k", 16), ("other", 16), ("k256", 32)]:
            self.run_tool("keygen", "--size", str(size), "-o", name)

    def seal_options(self, source, target, *more, key="k", id=KEY_ID):
        return ("seal", source, "-o", target, "--key-file", key, "--key-category", "orders",
                "--key-id", id, *more)

    def seal(self, *arguments, **named):
        self.run_tool(*self.seal_options(*arguments, **named))

    def mode(self, name):
        return stat.S_IMODE(os.stat(self.path(name)).st_mode)

    def refuse_to_write(self, *arguments, **named):
        """Nor does it change the folder."""
        before = {name: self.read(name) for name in os.listdir(self.folder)}
        message = self.refuse(*arguments, **named)
        self.assertEqual({name: self.read(name) for name in os.listdir(self.folder)}, before)
        return message


class Keygen(Sealing):
    def test_writes_random_bytes_for_the_owner_only(self):
        for name, size in [("k", 16), ("k256", 32)]:
            self.assertEqual(len(self.read(name)), size)
            self.assertEqual(self.mode(name), 0o600)
        self.assertNotEqual(self.read("k"), self.read("other"))
        old = os.umask(0o277)
        try:
            self.run_tool("keygen", "--size", "16", "-o", "masked")
        finally:
            os.umask(old)
        self.assertEqual(self.mode("masked"), 0o600)

    def test_never_overwrites(self):
        os.symlink("nowhere", self.path("link"))
        self.addCleanup(os.unlink, self.path("link"))
        before = self.read("k")
        for name in ["k", "link"]:
            self.assertIn("File exists", self.refuse("keygen", "--size", "16", "-o", name))
        self.assertEqual(self.read("k"), before)
        self.assertFalse(os.path.exists(self.path("nowhere")))

    def test_an_interruption_leaves_a_whole_key_or_none(self):
        for i in range(20):
            with start("keygen", "--size", "16", "-o", f"n{i}", cwd=self.folder) as process:
                time.sleep(0.0005 * i)
                process.terminate()
            if os.path.exists(self.path(f"n{i}")):
                self.assertEqual(len(self.read(f"n{i}")), 16)

    def test_usage(self):
        for arguments in [("--size", "24", "-o", "x"), ("-o", "x"), ("--size", "16"),
                          ("--size", "16", "-o", "-")]:
            self.refuse_to_write("keygen", *arguments, code=2)


class Carried(Sealing):
    """Through all forms, by who has no key."""

    def carry(self, name):
        self.run_tool("convert", name, "-o", "1.ovb")
        self.run_tool("convert", "1.ovb", "-o", "2.ovt")
        self.run_tool("convert", "2.ovt", "-o", "3.json")
        return "3.json"

    def there_and_back(self, path, *options, key="k"):
        self.seal(path, "sealed.json", *options, key=key)
        carried = self.carry("sealed.json")
        self.run_tool("check", carried, "--key-file", key)
        self.assertIn(UNAUTHENTIC if key == "k" else "Size of key",
                      self.refuse_to_write("open", carried, "-o", "opened.json", "--key-file",
                                           "other"))
        self.refuse("check", carried, "--key-file", "other")
        for more in [(), ("--at", options[1])] if options else [()]:
            self.run_tool("open", carried, "-o", "opened.json", "--key-file", key, *more)
            self.assertEqual(load(self.path("opened.json")), load(path))
            self.assertEqual(self.mode("opened.json"), 0o600)
            os.unlink(self.path("opened.json"))

    def test_one_attribute_of_a_real_file(self):
        for pointer in ["/639-3/7/name", "/639-3"]:
            for key in ["k", "k256"]:
                with self.subTest(pointer=pointer, key=key):
                    self.there_and_back(LANGUAGES, "--at", pointer, key=key)

    def test_a_whole_real_file(self):
        self.there_and_back(LANGUAGES)

    def test_only_the_attribute_is_sealed(self):
        self.seal(LANGUAGES, "sealed.json", "--at", "/639-3/7/name")
        sealed, plain = load(self.path("sealed.json")), load(LANGUAGES)
        self.assertNotIn(plain["639-3"][7]["name"], json.dumps(sealed["639-3"][7]["name"]))
        sealed["639-3"][7]["name"] = plain["639-3"][7]["name"]
        self.assertEqual(sealed, plain)

    def test_every_type(self):
        document = {"n": 1, "half": {"ovserialize": "0.5"}, "list": [1, 2], "maps": [{}, {"a": 1}],
                    "none": None, "a/b": {"~": "odd"}, "empty": []}
        self.write("d.json", json.dumps(document))
        for pointer in ["/n", "/half", "/list", "/maps", "/maps/1/a", "/none", "/a~1b/~0", "/empty"]:
            with self.subTest(pointer):
                self.there_and_back(self.path("d.json"), "--at", pointer)

    def test_maps_as_deep_as_they_may_be(self):
        self.write("deep.json", '{"a":' * 512 + "1" + "}" * 512)
        self.seal("deep.json", "once.ovb")
        self.seal("once.ovb", "twice.ovb")
        self.run_tool("open", "twice.ovb", "-o", "opened.json", "--key-file", "k")
        self.run_tool("diff", "deep.json", "opened.json")

    def test_show_prints_what_is_known_without_the_key(self):
        self.write("d.json", '{"name": "a secret name"}')
        self.seal("d.json", "sealed.ovb", "--at", "/name", "--annotation", "a note")
        shown = self.run_tool("show", "sealed.ovb").decode()
        size = 32 + 1 + len("a secret name")
        self.assertIn(f"(cipher=EAX_AES128, keyid=orders:{KEY_ID}, datasize={size})", shown)
        self.assertNotIn("note", shown)
        self.assertNotIn(b"secret", self.read("sealed.ovb"))

    def test_cipher_follows_the_key_or_the_option(self):
        self.write("d.json", "7")
        for key, options, cipher in [("k", (), "EAX_AES128"), ("k256", (), "EAX_AES256"),
                                     ("k256", ("--cipher", "EAX_AES256"), "EAX_AES256")]:
            self.seal("d.json", "s.ovt", *options, key=key)
            self.assertIn(cipher.encode(), self.read("s.ovt"))


class Opening(Sealing):
    def setUp(self):
        super().setUp()
        self.write("d.json", '{"a": {"b": 1}, "c": "text", "d": [1, 2]}')

    def test_all_values_under_the_key_and_those_inside_them(self):
        self.seal("d.json", "1.json", "--at", "/a/b")
        self.seal("1.json", "2.json", "--at", "/c", id=OTHER_ID)
        self.seal("2.json", "3.json")
        self.run_tool("open", "3.json", "-o", "4.json", "--key-file", "k")
        self.assertEqual(load(self.path("4.json")), load(self.path("d.json")))

    def test_every_value_must_be_authentic_unless_only_some_are_asked_for(self):
        self.seal("d.json", "1.json", "--at", "/a/b")
        self.seal("1.json", "2.json", "--at", "/c", id=OTHER_ID, key="other")
        self.seal("1.json", "3.json", "--at", "/c", "--annotation", "note")
        changed = self.read("3.json").replace(b"note", b"nope")
        self.write("changed.json", changed)
        where = changed.rindex(KEY_ID.replace("-", "").encode())  # that of /c
        self.write("forged.json", changed[:where] + b"f" * 8 + changed[where + 8:])
        forged = f"/c (key id {OTHER_ID}): {UNAUTHENTIC}"
        some = [("--others",), ("--key-id", KEY_ID), ("--at", "/a/b")]
        for name, options, refusal in [
            ("2.json", (), forged), ("forged.json", (), forged),
            ("changed.json", (), f"/c (key id {KEY_ID}): {UNAUTHENTIC}"),
            ("changed.json", ("--others",), "/c"), ("changed.json", ("--key-id", KEY_ID), "/c"),
            ("2.json", ("--key-id", OTHER_ID), forged), ("2.json", ("--at", "/c"), forged),
            ("3.json", ("--key-id", OTHER_ID), "No sealed value bears that key id"),
            *(("2.json", options, None) for options in some),
            *(("forged.json", options, None) for options in some),
        ]:
            for command in [("open", name, "-o", "x.json"), ("check", name)]:
                with self.subTest(command=command, options=options):
                    if refusal:
                        self.assertIn(refusal, self.refuse_to_write(*command, "--key-file", "k",
                                                                    *options))
                        continue
                    passed = "" if options[0] == "--at" else (
                        f"ovattr: {name}: 1 passed over; the first is at '/c'\n")
                    self.assertEqual(ovattr(*command, "--key-file", "k", *options, cwd=self.folder),
                                     (0, "", passed))
        opened = load(self.path("x.json"))
        self.assertEqual(opened["a"], {"b": 1})
        self.assertIn("ovserialize", opened["c"])

    def test_failed_authentication_goes_before_any_other_error(self):
        self.seal("d.json", "s.json", "--at", "/c", "--annotation", "note")
        item = load(self.path("s.json"))["c"]["ovserialize"]
        element = item.split(", ", 1)[1]  # without the tag of its type
        listed = f"simple(13), [_ 2, {element}, {element}]"
        wide, unknown, forged = (item.replace(*change) for change in [
            ("AES128", "AES256"), ("AES128", "AES512"), ("note", "nope")])
        values = {"a": listed, "b": wide, "c": unknown, "d": forged, "e": item}
        self.write("m.json", json.dumps({n: {"ovserialize": v} for n, v in values.items()}))
        for command, more in [(("open", "m.json", "-o", "x.json"), 4), (("check", "m.json"), 2)]:
            for option in [(), ("--others",)]:
                message = self.refuse_to_write(*command, "--key-file", "k", *option)
                self.assertIn(f"/d (key id {KEY_ID}) and {more} more: {UNAUTHENTIC}", message)

    def test_what_is_not_sealed(self):
        for arguments, message in [
            (("open", "d.json", "-o", "x.json"), "There is no sealed value"),
            (("check", "d.json"), "There is no sealed value"),
            (("open", "d.json", "-o", "x.json", "--at", "/c"), "What is at '/c' is not a sealed value"),
            (("check", "d.json", "--at", ""), "What is at '' is not a sealed value"),
            (("open", "d.json", "-o", "x.json", "--at", "/x"), "Nothing at /x"),
            (("check", "d.json", "--at", "/x"), "Nothing at /x"),
        ]:
            with self.subTest(arguments):
                self.assertIn(message, self.refuse_to_write(*arguments, "--key-file", "k"))

    def test_lists_of_sealed_values_are_checked_not_opened(self):
        self.seal("d.json", "s.ovt", "--at", "/c")
        sealed = self.run_tool("convert", "s.ovt", "--to", "json").decode()
        item = json.loads(sealed)["c"]["ovserialize"]
        element = item[item.index(",") + 1:].strip()  # without the tag of its type
        both = json.dumps({"l": {"ovserialize": f"simple(13), [_ 2, {element}, {element}]"}})
        self.write("l.json", both)
        self.run_tool("check", "l.json", "--key-file", "k")
        self.run_tool("check", "l.json", "--key-file", "k", "--at", "/l/1")
        self.assertIn("An element of a list cannot be opened by itself",
                      self.refuse_to_write("open", "l.json", "-o", "x.json", "--key-file", "k"))


    def test_the_cipher_that_seals_nothing_is_unknown(self):
        self.write("d.json", '{"n": 1}')
        self.seal("d.json", "sealed.json")
        forged = self.read("sealed.json").decode().replace("EAX_AES128", "NULL")
        self.write("forged.json", forged)
        for arguments in [("check",), ("open", "-o", "x.json"), ("open", "-o", "x.json", "--at", "")]:
            with self.subTest(arguments):
                self.assertIn("Unknown/unsupported cipher: NULL", self.refuse_to_write(
                    arguments[0], "forged.json", *arguments[1:], "--key-file", "k"))


class Refusals(Sealing):
    def setUp(self):
        super().setUp()
        self.write("d.json", '{"list": [1, 2], "one": [1], "maps": [{"a": [3, 4]}, {}]}')

    def test_elements_of_lists(self):
        for pointer in ["/list/0", "/one/0", "/maps/0", "/maps/0/a/1"]:
            with self.subTest(pointer):
                message = self.refuse_to_write(*self.seal_options("d.json", "s.json", "--at", pointer))
                self.assertIn(f"d.json: {pointer} is an element of a list", message)

    def test_a_long_pointer_costs_no_more_for_every_sealed_value_behind_it(self):
        self.seal("d.json", "s.json", "--at", "/list", key="other")
        sealed = load(self.path("s.json"))["list"]
        self.write("m.json", json.dumps({"x" * 200_000: {f"a{i}": sealed for i in range(2000)}}))
        with open(os.devnull, "wb") as nowhere:
            checking = start("check", self.path("m.json"), "--key-file", self.path("k"), stderr=nowhere)
            _, status, usage = os.wait4(checking.pid, 0)
        checking.returncode = os.waitstatus_to_exitcode(status)
        self.assertEqual(checking.returncode, 1)
        self.assertLess(usage.ru_maxrss, 200_000)  # KiB

    def test_pointers_may_be_of_any_length(self):
        long = "/0" * 60_000  # each step leads to a scalar, here the map, as its only element
        self.seal("d.json", "s.json", "--at", long + "/list")
        self.run_tool("check", "s.json", "--key-file", "k", "--at", long + "/list/0")
        self.run_tool("open", "s.json", "-o", "o.json", "--key-file", "k", "--at", long + "/list")
        self.assertEqual(load(self.path("o.json"))["list"], [1, 2])
        self.assertIn("an element of a list",
                      self.refuse_to_write(*self.seal_options("d.json", "x.json", "--at", long)))

    def test_nothing_there(self):
        for pointer in ["/x", "/list/2", "/maps/1/a", "/one/x"]:
            message = self.refuse_to_write(*self.seal_options("d.json", "s.json", "--at", pointer))
            self.assertIn(f"d.json: Nothing at {pointer}", message)

    def test_keys_of_wrong_sizes(self):
        for size in [0, 15, 17, 24, 31, 33, 100_000]:
            self.write("bad", b"x" * size)
            message = self.refuse_to_write(*self.seal_options("d.json", "s.json", key="bad"))
            self.assertIn("bad: A key is exactly 16 or 32 bytes", message)
        for digits in [b"0123456789abcdef", b"0123456789abcdefABCDEF9876543210"]:
            self.write("hex", digits)
            self.assertIn("hex: A key is raw bytes, not hexadecimal digits",
                          self.refuse_to_write(*self.seal_options("d.json", "s.json", key="hex")))
        for key, cipher, text in [("k", "EAX_AES256", "Expexted=32, Provided=16"),
                                  ("k256", "EAX_AES128", "Expexted=16, Provided=32")]:
            message = self.refuse_to_write(
                *self.seal_options("d.json", "s.json", "--cipher", cipher, key=key))
            self.assertIn(f"{key}: Size of key provided does not match cipher.", message)
            self.assertIn(text, message)
        self.assertIn("No such file",
                      self.refuse_to_write(*self.seal_options("d.json", "s.json", key="none")))

    def test_usage(self):
        for arguments in [
            self.seal_options("d.json", "s.json", id="no-uuid"),
            self.seal_options("d.json", "s.json", "--cipher", "NULL"),
            self.seal_options("d.json", "s.json", "--at", "list"),
            self.seal_options("d.json", "s.json", "--key-fd", "0"),
            ("seal", "d.json", "-o", "s.json", "--key-category", "c", "--key-id", KEY_ID),
            ("seal", "d.json", "-o", "s.json", "--key-file", "k", "--key-id", KEY_ID),
            ("open", "d.json"), ("check", "d.json"),
            ("open", "d.json", "--key-fd", "-1"),
            ("open", "-", "--key-fd", "0"),
            ("check", "d.json", "--key-file", "k", "--key-id", "no-uuid"),
            ("check", "d.json", "--key-file", "k", "--key-id", KEY_ID, "--others"),
            ("check", "d.json", "--key-file", "k", "--at", "/x", "--others"),
            ("check", "d.json", "--key-file", "k", "--at", "/x", "--key-id", KEY_ID),
        ]:
            with self.subTest(arguments):
                self.refuse_to_write(*arguments, code=2)

    def test_the_key_is_no_output(self):
        self.seal("d.json", "sealed.json")
        os.symlink("k", self.path("link"))
        os.link(self.path("k"), self.path("same"))
        for output in ["k", "link", "same"]:
            for arguments in [self.seal_options("d.json", output),
                              ("open", "sealed.json", "-o", output, "--key-file", "k")]:
                self.assertIn("The output would take the place of the key",
                              self.refuse_to_write(*arguments, code=2))

        with open(self.path("k"), "r+b") as key:
            done = subprocess.run([TOOL, "open", "sealed.json", "--key-file", "k"], cwd=self.folder,
                                  stdout=key, stderr=subprocess.PIPE)
        self.assertEqual(done.returncode, 2, done.stderr)
        self.assertEqual(len(self.read("k")), 16)

    def test_key_files_open_to_others_draw_a_warning(self):
        self.seal("d.json", "s.json")
        for mode in [0o604, 0o640, 0o620, 0o602, 0o600, 0o400]:
            os.chmod(self.path("k"), mode)
            code, _, message = ovattr("check", "s.json", "--key-file", "k", cwd=self.folder)
            self.assertEqual((code, "k: Others than its owner" in message), (0, mode & 0o77 != 0))

    def test_opening_keeps_the_mode_of_an_old_file(self):
        self.seal("d.json", "s.json")
        self.write("old.json", "1\n")
        os.chmod(self.path("old.json"), 0o640)
        self.run_tool("open", "s.json", "-o", "old.json", "--key-file", "k")
        self.assertEqual(self.mode("old.json"), 0o640)

    def test_a_failure_leaves_the_old_output(self):
        self.write("old.json", "1\n")
        self.refuse_to_write(*self.seal_options("d.json", "old.json", "--at", "/x"))
        self.refuse_to_write("open", "d.json", "-o", "old.json", "--key-file", "k")


class KeyFromDescriptor(Sealing):
    def run_with_fd(self, *arguments, key):
        reading, writing = os.pipe()
        os.write(writing, key)
        os.close(writing)
        done = subprocess.run([TOOL, *arguments, "--key-fd", str(reading)], pass_fds=[reading],
                              cwd=self.folder, capture_output=True)
        os.close(reading)
        return done.returncode, done.stderr.decode()

    def test_serves_as_a_file_does(self):
        self.write("d.json", '{"a": 1}')
        options = ("seal", "d.json", "-o", "s.json", "--key-category", "c", "--key-id", KEY_ID)
        self.assertEqual(self.run_with_fd(*options, key=self.read("k")), (0, ""))
        self.assertEqual(self.run_with_fd("check", "s.json", key=self.read("k")), (0, ""))
        self.run_tool("open", "s.json", "-o", "o.json", "--key-file", "k")
        self.assertEqual(load(self.path("o.json")), {"a": 1})
        code, message = self.run_with_fd("check", "s.json", key=b"short")
        self.assertEqual(code, 1)
        self.assertRegex(message, r"file descriptor \d+: A key is exactly 16 or 32 bytes")
        self.assertIn("file descriptor 999", self.refuse("check", "s.json", "--key-fd", "999"))


if __name__ == "__main__":
    unittest.main()
