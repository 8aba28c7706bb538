# SPDX-License-Identifier: Apache-2.0
"""Reads marshaled values with cbor2, independently of the library, following docs/format.md.

Where cbor2 is not installed, a test that imports this is skipped."""
import io
import sys

try:
    import cbor2
except ImportError:
    sys.exit(77)

sys.setrecursionlimit(100000)

NULL, BOOLEAN, INTEGER, STRING, DOUBLE, UUID, URI = range(7)
MAP = 12
ONE, STRUCTURE, STRUCTURE_END = 16, 17, 18  # the marks among the simple values
TAG_UNSIGNED = 38217


def items_of(data):
    """The items of a CBOR sequence."""
    stream = io.BytesIO(data)
    decoder = cbor2.CBORDecoder(stream)
    items = []
    while stream.tell() < len(data):
        items.append(decoder.decode())
    return items


def unsigned(item):
    """The number of an unsigned item, or None."""
    if isinstance(item, cbor2.CBORSimpleValue) and item.value not in (ONE, STRUCTURE, STRUCTURE_END):
        return item.value if item.value < ONE else item.value - 16
    if isinstance(item, cbor2.CBORTag) and item.tag == TAG_UNSIGNED:
        return item.value
    return None


class Values:
    """The values of a stream as Python's json would load them. `packages`: {id: [name, ...]}."""

    def __init__(self, data, packages=None):
        self.items = items_of(data)
        self.packages = packages or {}
        self.tokens = {}
        self.references = 0

    def all(self):
        values = []
        rest = iter(self.items)
        for item in rest:
            if item == cbor2.CBORSimpleValue(STRUCTURE):
                self.announcement(rest)
            else:
                values.append(self.value(item, rest))
        return values

    def value(self, item, rest):
        kind = unsigned(item)
        if kind is None:
            assert item is None or isinstance(item, (bool, int, str)), item
            return item
        item = next(rest)
        if kind == MAP:
            elements = list(self.elements(item, rest, self.map))
            return elements[0] if item == cbor2.CBORSimpleValue(ONE) else elements
        if kind == DOUBLE and isinstance(item, float):
            return item
        assert kind in (BOOLEAN, INTEGER, STRING, DOUBLE), kind
        return list(self.elements(item, rest, lambda element, _: element))

    @staticmethod
    def elements(item, rest, read):
        if item == cbor2.CBORSimpleValue(ONE):
            yield read(next(rest), rest)
        else:
            assert isinstance(item, list) and item[0] != 1, item
            inside = iter(item[1:])
            for element in inside:
                yield read(element, inside)

    def map(self, item, rest):
        pairs = list(self.elements(item, rest, self.entry))
        result = dict(pairs)
        assert len(result) == len(pairs)
        return result

    def entry(self, item, rest):
        name = self.name(item, rest)
        return name, self.value(next(rest), rest)

    def name(self, item, rest):
        if isinstance(item, str):
            return item
        if unsigned(item) is None:
            self.reference(item, rest)
            item = next(rest)
        return self.tokens[unsigned(item)]

    def reference(self, package, rest):
        base, count = unsigned(next(rest)), unsigned(next(rest))
        names = self.packages[package]
        assert len(names) == count
        for position, name in enumerate(names):
            assert base + position not in self.tokens
            self.tokens[base + position] = name
        self.references += 1

    def announcement(self, rest):
        self.tokens = {}
        for _ in self.elements(next(rest), rest, self.reference):
            pass
        assert next(rest) == cbor2.CBORSimpleValue(STRUCTURE_END)


def packages_of(data):
    """A package file as {id: [name, ...]}."""
    def without_marks(items):
        return [item for item in items if not isinstance(item, cbor2.CBORSimpleValue)]

    items = without_marks(items_of(data))
    if len(items) == 1:  # a set of several
        items = without_marks(items[0][1:])
    pairs = iter(items)
    return {package: names[1:] if isinstance(names, list) else [names]
            for package, names in zip(pairs, pairs)}
