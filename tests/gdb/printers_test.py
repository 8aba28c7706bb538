#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""What gdb prints for the variables of the host. Arguments: gdb, the host, the printers."""
import os
import subprocess
import sys

GDB, HOST, PRINTERS = sys.argv[1:]

# Variable, and what gdb says of it.
CASES = [
    ("uuid", "00112233-4455-6677-8899-aabbccddeeff"),
    ("name", '"a name that is too long for the token"'),
    ("no_name", '""'),
    ("null", "Null"),
    ("one", "Boolean true"),
    ("number", "Integer -123456789012"),
    ("text", r'String "say \"hello\""'),
    ("id", "UUID 00112233-4455-6677-8899-aabbccddeeff"),
    ("time", "AbsoluteTime 1970-01-01T00:00:01.500000Z"),
    ("span", "RelativeTime -1.5 s"),
    ("date", "SimpleDateTime 1970-01-01T23:59:59"),
    ("uri", 'URI "urn:x"'),
    ("block", "Binary 2 bytes: 01 fe"),
    ("numbers", "Integer list of 2 = {1, 2}"),
    ("ids", "UUID list of 2 = {00112233-4455-6677-8899-aabbccddeeff, "
            "00000000-0000-0000-0000-000000000000}"),
    ("texts", 'String list of 2 = {"a", "b"}'),
    ("empty", "AttributeMap of 0 attributes"),
    ("map", 'AttributeMap of 2 attributes = {[first] = Integer 1, [second] = Double 0.5}'),
    ("inner", 'AttributeMap of 2 attributes = {[first] = Integer 1, [second] = Double 0.5}'),
    ("map_value",
     'AttributeMap of 2 attributes = {[first] = Integer 1, [second] = Double 0.5}'),
    ("attribute", 'Attribute "key" = {value = Integer 7}'),
    ("no_error", "no error"),
    ("error", "error.ovattribute.map.attributeNotFound \"Attribute 'x' not found\""),
    ("error_value",
     "ErrorInfo error.ovattribute.map.attributeNotFound \"Attribute 'x' not found\""),
    ("*(ovattribute::AttributeValue*)stray", "<unreadable>"),
    ("*(ovattribute::AttributeMap*)stray", "<unreadable>"),
    ("*(ovattribute::AttributeName*)stray", "<unreadable>"),
]

commands = ["set width 0", "set confirm off", f"source {PRINTERS}", "break look", "run", "up"]
for variable, _ in CASES:
    commands += ["echo >", f"output {variable}", r"echo \n"]
arguments = [GDB, "-nx", "-batch", "-iex", "set disable-randomization off",
             "-iex", "set debuginfod enabled off"]
for command in commands:
    arguments += ["-ex", command]
# What looks for leaks cannot stop a program that gdb has stopped.
environment = {**os.environ, "ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", "") + ":detect_leaks=0"}
done = subprocess.run([*arguments, HOST], capture_output=True, text=True, timeout=240, check=False,
                      env=environment)

if "Could not trace the inferior" in done.stderr or "ptrace: Operation not permitted" in done.stderr:
    print("skipped: gdb may not trace programs here")
    sys.exit(77)
shown = [line[1:] for line in done.stdout.splitlines() if line.startswith(">")]
expected = [text for _, text in CASES]
if shown != expected:
    for (variable, text), line in zip(CASES, shown):
        if line != text:
            print(f"{variable}\n  expected {text}\n  shown    {line}")
    print(f"{len(shown)} of {len(expected)} shown\n{done.stdout}\n{done.stderr}")
    sys.exit(1)
