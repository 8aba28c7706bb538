# SPDX-License-Identifier: Apache-2.0
"""judge.py STREAM EXPECTED: reads a binary item stream with cbor2 and compares every item.

EXPECTED holds one JSON array per item, [kind, value...]: what the stream must hold in order.
Exit status 77: cbor2 is not installed.
"""

import json
import struct
import sys
import uuid

try:
    import cbor2
except ImportError:
    sys.exit(77)

sys.setrecursionlimit(100000)

TAG_UNSIGNED, TAG_STRING = 38217, 38218
TAG_ABSOLUTE_TIME, TAG_RELATIVE_TIME = 1001, 1002


def time_of(microseconds):
    seconds, fraction = divmod(microseconds, 1000000)
    return {1: seconds, -6: fraction} if fraction else {1: seconds}


def matches(item, expected):
    """Whether one decoded item is the expected one; frames are lists of what is inside."""
    kind, *value = expected
    if kind == "null":
        return item is None
    if kind == "boolean":
        return item is value[0]
    if kind == "integer":
        return type(item) is int and item == int(value[0])
    if kind == "unsigned":
        number = int(value[0])
        if number < 240:
            simple = number if number < 16 else number + 16
            return item == cbor2.CBORSimpleValue(simple)
        return item == cbor2.CBORTag(TAG_UNSIGNED, number)
    if kind == "double":
        if type(item) is not float:
            return False
        bits = int(value[0])
        # Python may quieten a NaN, which is all that may differ.
        if item != item:
            return bits >> 52 & 0x7ff == 0x7ff and bits & (1 << 52) - 1 != 0
        return struct.unpack(">Q", struct.pack(">d", item))[0] == bits
    if kind == "string":
        return item == bytes.fromhex(value[0]).decode("utf-8")
    if kind == "bytes-string":
        return item == cbor2.CBORTag(TAG_STRING, bytes.fromhex(value[0]))
    if kind == "absolute":
        return item.tag == TAG_ABSOLUTE_TIME and item.value == time_of(int(value[0]))
    if kind == "relative":
        return item.tag == TAG_RELATIVE_TIME and item.value == time_of(int(value[0]))
    if kind == "uuid":
        return item == uuid.UUID(value[0])
    if kind == "binary":
        return item == bytes.fromhex(value[0])
    if kind == "mark":
        return item == cbor2.CBORSimpleValue(value[0])
    if kind == "sequence":
        count, inside = value
        return (type(item) is list and item[0] == int(count) and len(item) == len(inside) + 1
                and all(map(matches, item[1:], inside)))
    raise ValueError(kind)


def main(stream_path, expected_path):
    with open(expected_path, encoding="utf-8") as file:
        expected = [json.loads(line) for line in file]
    with open(stream_path, "rb") as file:
        decoder = cbor2.CBORDecoder(file)
        for number, item in enumerate(expected):
            decoded = decoder.decode()
            if not matches(decoded, item):
                sys.exit(f"item {number}: expected {item}, decoded {decoded!r}")
        rest = file.read()
    if rest:
        sys.exit(f"{len(rest)} bytes behind the last item")
    print(f"{len(expected)} items agree")


if __name__ == "__main__":
    main(*sys.argv[1:])
