# SPDX-License-Identifier: Apache-2.0
"""gdb shows values, names, maps, errors and identifiers as what they mean.

gdb loads this file by itself where the libraries are installed under /usr. Elsewhere say
"source PATH" in gdb, with the path of this file.

What lies behind a handle is read as memory, at the offsets below, so that nothing but the program
itself needs debug information. All words have 8 bytes.
"""
import datetime
import uuid

import gdb
import gdb.printing

# impl::ValueBase with impl::TypedValue: virtual table, type, range of the elements.
STORAGE_TYPE, STORAGE_BEGIN, STORAGE_END = 8, 16, 24
# AttributeMapBase::MapHolder and the list of its entries, whose end lies in the holder.
HOLDER_LIST_END, HOLDER_SIZE = 16, 32  # the size in 4 bytes
ENTRY_NEXT, ENTRY_NAME, ENTRY_VALUE = 8, 16, 24
# impl::KeyToken, ErrorInfo and the text behind a UriReference.
TOKEN_TEXT = 16
ERROR_CODE_SIZE, ERROR_CODE_TEXT, ERROR_CAUSE, ERROR_MESSAGE = 16, 24, 168, 176
URI_SIZE, URI_TEXT = 16, 24

LONGEST_TEXT = 1000  # bytes
LARGEST_BLOCK = 65536  # that is read in one piece

# Before its construction an object may hold anything.
UNREADABLE = "<unreadable>"

# By the number of the type: its name, and class and size of its elements.
TYPES = [
    ("Null", None, 1),
    ("Boolean", "bool", 1),
    ("Integer", "long long", 8),
    ("String", None, 32),
    ("Double", "double", 8),
    ("UUID", "ovcore::Uuid", 16),
    ("URI", "ovuri::UriReference", 8),
    ("AbsoluteTime", "ovcore::AbsoluteTime", 8),
    ("RelativeTime", "ovcore::RelativeTime", 8),
    ("SimpleDateTime", "ovcore::SimpleDateTime", 8),
    ("Binary", "ovattribute::BinaryValue", 16),
    ("Serialized", "ovattribute::SerializedValue", 48),
    ("AttributeMap", "ovattribute::AttributeMap", 8),
    ("Secured", "ovattribute::SecuredValue", 128),
    ("ErrorInfo", "ovcore::RefCountPtr<ovcore::ErrorInfo const>", 8),
]
NULL, STRING, MAP = 0, 3, 12


def memory(address, size):
    if size > LARGEST_BLOCK:
        raise gdb.MemoryError(f"{size} bytes are no object of ours")
    return bytes(gdb.selected_inferior().read_memory(address, size)) if size else b""


def word(address, size=8, signed=False):
    return int.from_bytes(memory(address, size), "little", signed=signed)


def quoted(address, size):
    """Text in quotation marks, a long one cut."""
    data = memory(address, min(size, LONGEST_TEXT)).decode("utf-8", "backslashreplace")
    data = data.replace("\\", "\\\\").replace('"', '\\"').replace("\n", "\\n")
    return f'"{data}"' + ("..." if size > LONGEST_TEXT else "")


def quoted_string(address):
    """Of a std::string."""
    return quoted(word(address), word(address + 8))


def address_of(value):
    return int(value.address)


def at(address, type_name):
    """The object of that type."""
    return gdb.Value(address).cast(gdb.lookup_type(type_name).pointer()).dereference()


def count(number, one, many):
    return f"{number} {one if number == 1 else many}"


# What stands for one object, from its address.

def uuid_text(address):
    return str(uuid.UUID(bytes=memory(address, 16)))


def uri_text(address):
    shared = word(address)
    return quoted(shared + URI_TEXT, word(shared + URI_SIZE)) if shared else '""'


def absolute_time_text(address):
    microseconds = word(address, signed=True)
    try:
        time = datetime.datetime(1970, 1, 1) + datetime.timedelta(microseconds=microseconds)
    except OverflowError:
        return f"{microseconds} us since 1970-01-01"
    return time.isoformat() + "Z"


def relative_time_text(address):
    seconds, microseconds = divmod(abs(word(address, signed=True)), 1000000)
    sign = "-" if word(address, signed=True) < 0 else ""
    return f"{sign}{seconds}.{microseconds:06}".rstrip("0").rstrip(".") + " s"


def simple_date_time_text(address):
    fields = word(address)

    def field(shift, bits):
        return fields >> shift & ((1 << bits) - 1)

    return (f"{field(46, 14):04}-{field(42, 4):02}-{field(37, 5):02}"
            f"T{field(32, 5):02}:{field(26, 6):02}:{field(20, 6):02}")


def binary_text(address):
    size = word(address + 8)
    shown = memory(word(address), min(size, 16)).hex(" ")
    return f"{count(size, 'byte', 'bytes')}: {shown}{' ...' if size > 16 else ''}" if size \
        else "0 bytes"


def error_text(address):
    """Of a pointer to an ErrorInfo: code, message, and the causes behind it."""
    parts = []
    info = word(address)
    while info and len(parts) < 10:
        code = memory(word(info + ERROR_CODE_TEXT), word(info + ERROR_CODE_SIZE)).decode()
        parts.append(f"{code} {quoted_string(info + ERROR_MESSAGE)}")
        info = word(info + ERROR_CAUSE)
    return ", caused by ".join(parts) + (", ..." if info else "") if parts else "no error"


def name_text(address):
    token = word(address)
    return quoted_string(token + TOKEN_TEXT) if token else '""'


def map_text(address):
    holder = word(address)
    size = word(holder + HOLDER_SIZE, 4) if holder else 0
    return f"AttributeMap of {count(size, 'attribute', 'attributes')}"


def number_text(type_name):
    return lambda address: str(at(address, type_name))


TEXTS = {
    1: number_text("bool"), 2: number_text("long long"), 3: quoted_string,
    4: number_text("double"), 5: uuid_text, 6: uri_text, 7: absolute_time_text,
    8: relative_time_text, 9: simple_date_time_text, 10: binary_text, 14: error_text,
}


def map_entries(address):
    """Of a map: name and value of each entry in order, as gdb takes them for a dictionary."""
    holder = word(address)
    if not holder:
        return
    end = holder + HOLDER_LIST_END
    entry = word(end + ENTRY_NEXT)
    for i in range(word(holder + HOLDER_SIZE, 4)):
        token = word(entry + ENTRY_NAME)
        text = token + TOKEN_TEXT
        name = memory(word(text), word(text + 8)).decode("utf-8", "backslashreplace") \
            if token else ""
        yield f"name {i}", name
        yield f"value {i}", at(entry + ENTRY_VALUE, "ovattribute::AttributeValue")
        entry = word(entry + ENTRY_NEXT)


class Text:
    """For what is shown as one text."""

    def __init__(self, value, text):
        self._address = address_of(value)
        self._text = text

    def to_string(self):
        try:
            return self._text(self._address)
        except gdb.error:
            return UNREADABLE


class Map:
    def __init__(self, value):
        self._address = address_of(value)

    def to_string(self):
        try:
            return map_text(self._address)
        except gdb.error:
            return UNREADABLE

    def children(self):
        try:
            yield from map_entries(self._address)
        except gdb.error:
            pass

    def display_hint(self):
        return "map"


class AttributeValue:
    def __init__(self, value):
        self._count = None
        try:
            self._read(word(address_of(value)))
        except (gdb.error, IndexError):
            pass

    def _read(self, storage):
        self._type = int.from_bytes(memory(word(storage + STORAGE_TYPE), 4), "little")
        self._name, self._class, self._size = TYPES[self._type]
        self._begin = word(storage + STORAGE_BEGIN)
        self._count = (word(storage + STORAGE_END) - self._begin) // self._size

    def _is_one_map(self):
        return self._count == 1 and self._type == MAP

    def to_string(self):
        if self._count is None:
            return UNREADABLE
        if self._type == NULL:
            return self._name
        if self._count != 1:
            return f"{self._name} list of {self._count}"
        if self._type == MAP:
            return map_text(self._begin)
        if self._type in TEXTS:
            return f"{self._name} {TEXTS[self._type](self._begin)}"
        return self._name

    def children(self):
        if self._count is None or self._type == NULL:
            return
        if self._is_one_map():
            yield from map_entries(self._begin)
        elif self._count != 1:
            for i in range(self._count):
                address = self._begin + i * self._size
                yield f"[{i}]", self._element(address)

    def _element(self, address):
        if self._type == STRING:
            text = gdb.Value(word(address)).cast(gdb.lookup_type("char").const().pointer())
            return text.lazy_string(length=word(address + 8))
        try:
            return at(address, self._class)
        except gdb.error:  # the program does not know the class
            return TEXTS.get(self._type, lambda _: "?")(address)

    def display_hint(self):
        return "map" if self._is_one_map() else "array"


class Attribute:
    def __init__(self, value):
        self._value = value

    def to_string(self):
        return f"Attribute {name_text(address_of(self._value['m_name']))}"

    def children(self):
        yield "value", self._value["m_value"]


def text_printer(text):
    return lambda value: Text(value, text)


def printers():
    collection = gdb.printing.RegexpCollectionPrettyPrinter("ovattribute")
    for name, expression, printer in [
            ("StringKey", "ovcore::StringKey", text_printer(name_text)),
            ("Uuid", "ovcore::Uuid", text_printer(uuid_text)),
            ("AbsoluteTime", "ovcore::AbsoluteTime", text_printer(absolute_time_text)),
            ("RelativeTime", "ovcore::RelativeTime", text_printer(relative_time_text)),
            ("SimpleDateTime", "ovcore::SimpleDateTime", text_printer(simple_date_time_text)),
            ("ErrorInfo", "ovcore::RefCountPtr<(ovcore::ErrorInfo const|const ovcore::ErrorInfo)>",
             text_printer(error_text)),
            # The pointer lies behind the virtual table.
            ("Exception", "ovcore::Exception",
             text_printer(lambda address: error_text(address + 8))),
            ("UriReference", "ovuri::UriReference", text_printer(uri_text)),
            ("AttributeName", "ovattribute::AttributeName", text_printer(name_text)),
            ("AttributeValue", "ovattribute::AttributeValue", AttributeValue),
            ("Attribute", "ovattribute::Attribute", Attribute),
            ("AttributeMap", "ovattribute::(AttributeMap|MutableAttributeMap|AttributeMapBase)",
             Map),
            ("BinaryValue", "ovattribute::BinaryValue", text_printer(binary_text)),
    ]:
        collection.add_printer(name, f"^{expression}$", printer)
    return collection


gdb.printing.register_pretty_printer(gdb.current_objfile(), printers(), replace=True)
