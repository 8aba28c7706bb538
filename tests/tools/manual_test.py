#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The manual page and the completion know what --help knows. Argument: the tool."""
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

TOOL = os.path.realpath(sys.argv.pop(1))
SOURCES = pathlib.Path(__file__).parents[2] / "tools" / "ovattr"
OPTION = re.compile(r"(?<![-\w])--?[a-z][a-z-]*")


def help_of(*command):
    return subprocess.run([TOOL, *command, "--help"], capture_output=True, text=True,
                          check=True).stdout


def options_of(text):
    return {option for line in re.findall(r"^  (-[-a-z,]+)", text, re.M)
            for option in line.split(",")}


def commands_of(text):
    part = re.search(r"^Subcommands:\n((?:  .*\n)+)", text, re.M)
    return re.findall(r"^  ([a-z]+) ", part[1], re.M) if part else []


def all_commands(*command):
    """Every command that has none below it, with its help."""
    text = help_of(*command)
    below = commands_of(text)
    if not below:
        yield command, text
    for name in below:
        yield from all_commands(*command, name)


class Manual(unittest.TestCase):
    def test_names_the_commands_and_options_of_help(self):
        page = (SOURCES / "ovattr.1.in").read_text(encoding="utf-8").replace("\\-", "-")
        page = page.replace("\\fR", "").replace("\\fI", "")
        commands = dict(all_commands())
        described = re.findall(r"^\.SS ovattr ((?:[a-z]+ ?)+?)(?= file| a b| \[)", page, re.M)
        self.assertEqual(described, [" ".join(command) for command in commands])

        known = options_of(help_of()).union(*map(options_of, commands.values()))
        # In heads of paragraphs and in the text.
        named = set(OPTION.findall(page.split(".SH COMMANDS")[1].split(".SH ENVIRONMENT")[0]))
        self.assertEqual(named, known)


class Completion(unittest.TestCase):
    def complete(self, *words):
        script = """
            source "$1"; shift
            COMP_WORDS=("$@"); COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
            _ovattr
            printf '%s\\n' "${COMPREPLY[@]}"
        """
        done = subprocess.run(
            ["bash", "-c", script, "bash", SOURCES / "completion.bash", TOOL, *words],
            capture_output=True, text=True, check=True, cwd=self.folder.name)
        self.assertEqual(done.stderr, "")
        return done.stdout.split()

    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        for name in ["order.json", "other.ovb"]:
            pathlib.Path(self.folder.name, name).touch()

    def test_offers_what_fits(self):
        for words, offered in [
            (["q"], ["query"]),
            (["--verb"], ["--verbose"]),
            (["-v", "con"], ["convert"]),
            (["package", ""], ["create", "show", "union"]),
            (["convert", "--ann"], ["--announce"]),
            (["package", "create", "--f"], ["--from"]),
            (["show", "--to"], []),
            (["convert", "order.json", "--to", ""], ["json", "binary", "text", "trace"]),
            (["convert", "--from", "b"], ["binary"]),
            (["convert", "--indent", ""], []),
            (["convert", "-o", "o"], ["order.json", "other.ovb"]),
            (["diff", "order.json", "ot"], ["other.ovb"]),
            (["package", "create", "--from", "or"], ["order.json"]),
            (["nonsense", ""], commands_of(help_of())),
        ]:
            with self.subTest(words):
                self.assertEqual(sorted(self.complete(*words)), sorted(offered))

    def test_offers_every_command_and_option(self):
        self.assertEqual(self.complete(""), commands_of(help_of()))
        for command, text in all_commands():
            with self.subTest(command):
                self.assertEqual(set(self.complete(*command, "-")), options_of(text))


if __name__ == "__main__":
    unittest.main()
