# SPDX-License-Identifier: Apache-2.0
"""An independent opinion on JSON: Python's own.

judge.py same FILE FILE      both texts mean the same
judge.py table FILE          the columns of each row mean the same, unless a third one says "lenient"
judge.py refuse FILE         the first column of each row is no JSON, unless a fourth says "lenient"
judge.py characters FILE     a string of all code points, surrogates left out
judge.py doubles FILE        an array of [number, "its 64 bits in hexadecimal"]
judge.py numbers FILE        writes such an array, of numbers hard to round
"""
import json
import random
import re
import struct
import sys


def load(data):
    return json.loads(data.decode("utf-8-sig"))


def read(name):
    with open(name, "rb") as file:
        return file.read()


def rows(name):
    for line in read(name).split(b"\n"):
        if line and not line.startswith(b"#"):
            columns = line.split(b"\t")
            yield [re.sub(rb"%(..)", lambda m: bytes.fromhex(m[1].decode()), c) for c in columns]


def bits(number):
    return struct.pack(">d", number).hex()


def refuse(text):
    def none(word):
        raise ValueError(word)

    try:
        result = json.loads(text.decode("utf-8-sig"), parse_constant=none)
        json.dumps(result, ensure_ascii=False).encode()  # lone surrogates
    except ValueError:
        return True
    return False


def hard_numbers():
    random.seed(1)
    for _ in range(500):
        low = struct.unpack(">d", random.randbytes(8))[0]
        high = struct.unpack(">d", struct.pack(">q", struct.unpack(">q", struct.pack(">d", low))[0] + 1))[0]
        if low - low != 0 or high - high != 0:
            continue
        # The exact middle between two neighbours, and one digit to each side of it.
        a, b = low.as_integer_ratio()
        c, d = high.as_integer_ratio()
        numerator, denominator = a * d + c * b, 2 * b * d
        scale = denominator.bit_length()
        digits = numerator * 10**scale // denominator
        for delta in (-1, 0, 1):
            yield "%de-%d" % (digits + delta, scale)
    yield from ("0.1", "2.5", "-0", "-0.0", "1e23", "4.9e-324", "2.4e-324", "1e-400", "-1e-400")
    yield from ("1.7976931348623157e308", "9007199254740993", "9223372036854775808", "0e999")


def main(command, *names):
    if command == "same":
        return load(read(names[0])) == load(read(names[1]))
    if command == "table":
        bad = [r[0] for r in rows(names[0]) if len(r) < 3 and load(r[0]) != load(r[1])]
        print(*bad, sep="\n", end="")
        return not bad
    if command == "refuse":
        bad = [r[0] for r in rows(names[0]) if len(r) < 4 and not refuse(r[0])]
        print(*bad, sep="\n", end="")
        return not bad
    if command == "characters":
        return load(read(names[0])) == "".join(
            chr(c) for c in range(0x110000) if not 0xD800 <= c < 0xE000)
    if command == "doubles":
        pairs = json.loads(read(names[0]))
        return len(pairs) > 0 and all(bits(number) == b for number, b in pairs)
    if command == "numbers":
        with open(names[0], "w") as file:
            pairs = ['[%s,"%s"]' % (text, bits(float(text))) for text in hard_numbers()]
            file.write("[" + ",".join(pairs) + "]")
        return True
    return False


sys.exit(0 if main(*sys.argv[1:]) else 1)
