# SPDX-License-Identifier: Apache-2.0
"""How much of the errors that a fuzzer's reader raises its inputs reach:
error_coverage.py BUILD [FUZZER...], in the root of the project. See scripts/fuzz-coverage."""
import json
import os
import re
import subprocess
import sys

LEAST = 0.9

# The sources of what each fuzzer reads with. Those that are not here read nothing.
READERS = {
    "binary_value": [
        "ovserialize/binary_reader.cpp", "ovserialize/binary_reader_blocks.cpp",
        "ovserialize/error_info_stream.cpp", "ovserialize/simple_date_time_stream.cpp",
        "ovuri/uri_stream.cpp", "ovattribute/impl/type_tag.cpp",
        "ovattribute/impl/value_reading.h"],
    "coded_value": ["ovattribute/attribute_name_coder.cpp"],
    "json_reader": ["ovjson/tokenizer.cpp", "ovjson/reader.cpp", "ovjson/impl/reader_state.cpp"],
    "json_value": ["ovattribute/json_marshaler.cpp", "ovattribute/json_serialized.cpp"],
    "name_package": ["ovattribute/attribute_name_package.cpp"],
    "sealed_value": ["ovattribute/secured_value_cipher.cpp",
                     "ovattribute/secured_value_sealing.cpp"],
    "text_items": ["ovserialize/text_reader.cpp", "ovserialize/impl/text_tokens.cpp"],
}

# What raises an error, but not because of the input.
NOT_OF_INPUT = re.compile(
    r"throw_no_(sequence|structure)\(|throw_out_of_range\(|throw std::|write_|_writer_"  # misuse
    r"|Parent parameter|no longer available|already given out|ovserialize_reader_closed"
    r"|after_error|kind_name\(m_item|message_template, parameters"  # or passes on a caller's error
    r"|Reading the text failed|tokenizer_stream")  # a source that fails

RAISE = re.compile(r"(?<![\w])(?:throw_\w+|raise\w*|fail\w*)\(|throw std::")
DEFINITION = re.compile(r"^\s*(?:\[\[noreturn\]\] )?(?:static )?(?:void|Token) [\w:]+\(")


def raise_sites(path):
    """Line and column of each, counted from 1."""
    with open(path, encoding="utf-8") as file:
        lines = file.read().split("\n")
    for number, line in enumerate(lines, 1):
        code = line.split("//")[0]
        if DEFINITION.match(code):
            continue
        for match in RAISE.finditer(code):
            statement = "\n".join(lines[number - 1:number + 3]).split(";")[0]
            if not NOT_OF_INPUT.search(statement[match.start():]):
                yield number, match.start() + 1


def count_at(segments, place):
    """How often the code at a place ran, from the sorted starts of regions."""
    count = 0
    for line, column, times, has_count, *_ in segments:
        if (line, column) > place:
            break
        if has_count:
            count = times
    return count


def coverage_of(build, fuzzer):
    program = os.path.join(build, "bin", "fuzz_" + fuzzer)
    raw = os.path.join(build, fuzzer + ".profraw")
    merged = os.path.join(build, fuzzer + ".profdata")
    inputs = [folder for folder in (f"fuzz/corpus/{fuzzer}", f"fuzz/crashes/{fuzzer}")
              if os.path.isdir(folder)]
    subprocess.run([program, *inputs], check=True, stdout=subprocess.DEVNULL,
                   env={**os.environ, "LLVM_PROFILE_FILE": raw})
    subprocess.run(["llvm-profdata-14", "merge", "-sparse", raw, "-o", merged], check=True)
    exported = subprocess.run(
        ["llvm-cov-14", "export", program, f"-instr-profile={merged}", *READERS[fuzzer]],
        check=True, stdout=subprocess.PIPE)
    files = json.loads(exported.stdout)["data"][0]["files"]
    return {os.path.relpath(file["filename"]): file["segments"] for file in files}


def main():
    build, *wanted = sys.argv[1:]
    below = []
    for fuzzer in wanted or READERS:
        segments = coverage_of(build, fuzzer)
        reached = total = 0
        missed = []
        for path in READERS[fuzzer]:
            for place in raise_sites(path):
                total += 1
                if count_at(segments[path], place) > 0:
                    reached += 1
                else:
                    missed.append(f"{path}:{place[0]}")
        print(f"{fuzzer:14} {reached:3} of {total:3} error branches, {reached / total:4.0%}",
              *missed)
        if reached < LEAST * total:
            below.append(fuzzer)
    if below:
        sys.exit(f"below {LEAST:.0%}: {' '.join(below)}")


main()
