// SPDX-License-Identifier: Apache-2.0
#include "tests/ovserialize/items.h"

#include <bit>
#include <limits>

#include "ovcore/to_string.h"
#include "ovserialize/memory_reader.h"
#include "ovserialize/memory_writer.h"

namespace ovserialize {
namespace {

using ovcore::AbsoluteTime;
using ovcore::RelativeTime;

Item number(int kind, std::uint64_t bits) {
  return {kind, bits, {}, {}};
}
Item number(double value) {
  return number(item_double, std::bit_cast<std::uint64_t>(value));
}
Item text(int kind, std::string bytes) {
  return {kind, 0, std::move(bytes), {}};
}
Item sequence(std::uint64_t count, Items inside) {
  return {item_sequence, count, {}, std::move(inside)};
}
Item structure(Items inside) {
  return {item_structure, 0, {}, std::move(inside)};
}

void write(Writer& writer, const Item& item) {
  switch (item.kind) {
    case item_null:
      return writer.write_null();
    case item_boolean:
      return static_cast<void>(writer << (item.number != 0));
    case item_integer:
      return static_cast<void>(writer << static_cast<long long>(item.number));
    case item_unsigned:
      return static_cast<void>(writer << static_cast<unsigned long long>(item.number));
    case item_double:
      return static_cast<void>(writer << std::bit_cast<double>(item.number));
    case item_string:
      return static_cast<void>(writer << item.bytes);
    case item_absolute_time:
      return static_cast<void>(
          writer << AbsoluteTime::from_microseconds(static_cast<std::int64_t>(item.number)));
    case item_relative_time:
      return static_cast<void>(
          writer << RelativeTime::from_microseconds(static_cast<std::int64_t>(item.number)));
    case item_uuid: {
      ovcore::Uuid::BinaryData data;
      item.bytes.copy(reinterpret_cast<char*>(data.data()), data.size());
      return static_cast<void>(writer << ovcore::Uuid(data));
    }
    case item_binary:
      return writer.write_binary(item.bytes.data(), item.bytes.size());
    case item_sequence:
      writer.begin_sequence(item.number);
      for (std::size_t i = 0; i < item.inside.size(); ++i) {
        if (i > 0) writer.next_element();
        write(writer, item.inside[i]);
      }
      return writer.end_sequence();
    default:
      writer.begin_structure();
      write(writer, item.inside);
      writer.end_structure();
  }
}

template <class T>
T get(Reader& reader) {
  T value{};
  reader >> value;
  return value;
}

Item read(Reader& reader) {
  switch (const int kind = reader.item_kind()) {
    case item_boolean:
      return number(kind, get<bool>(reader));
    case item_integer:
      return number(kind, static_cast<std::uint64_t>(get<long long>(reader)));
    case item_unsigned:
      return number(kind, get<unsigned long long>(reader));
    case item_double:
      return number(kind, std::bit_cast<std::uint64_t>(get<double>(reader)));
    case item_string:
      return text(kind, get<std::string>(reader));
    case item_absolute_time:
      return number(kind, static_cast<std::uint64_t>(get<AbsoluteTime>(reader).microseconds()));
    case item_relative_time:
      return number(kind, static_cast<std::uint64_t>(get<RelativeTime>(reader).microseconds()));
    case item_uuid: {
      const auto uuid = get<ovcore::Uuid>(reader);
      return text(kind, std::string(uuid.data().begin(), uuid.data().end()));
    }
    case item_binary:
      return text(kind, text_of(*reader.read_memory_list_as_binary()));
    case item_sequence: {
      Item item = sequence(reader.begin_sequence(), {});
      while (reader.has_next_element())
        item.inside.push_back(read(reader));
      return item;
    }
    case item_structure: {
      Item item = structure({});
      reader.begin_structure();
      while (reader.item_kind() != item_none)
        item.inside.push_back(read(reader));
      reader.end_structure();
      return item;
    }
    default:
      reader.read_null();
      return {};
  }
}

}  // namespace

void write(Writer& writer, const Items& items) {
  for (const Item& item : items)
    write(writer, item);
}

Items read_all(Reader& reader) {
  Items items;
  while (!reader.at_end())
    items.push_back(read(reader));
  return items;
}

std::string to_binary(const Items& items, const Limits& limits) {
  MemoryWriter writer({}, limits);
  write(writer, items);
  return text_of(*writer.memory_list());
}

Items from_binary(std::string_view bytes, const Limits& limits) {
  MemoryReader reader(bytes.data(), bytes.size(), limits);
  return read_all(reader);
}

Items scalar_items() {
  Items items{number(item_null, 0), number(item_boolean, 0), number(item_boolean, 1)};
  // At the edges of every length of head, on both sides, as signed and as unsigned.
  for (const std::uint64_t edge :
       {std::uint64_t{0}, std::uint64_t{16}, std::uint64_t{24}, std::uint64_t{240},
        std::uint64_t{1} << 8, std::uint64_t{1} << 16, std::uint64_t{1} << 32,
        std::uint64_t{1} << 63}) {
    for (const std::uint64_t value : {edge - 1, edge}) {
      items.push_back(number(item_integer, value));
      items.push_back(number(item_integer, ~value));
      items.push_back(number(item_unsigned, value));
    }
  }
  using Double = std::numeric_limits<double>;
  for (const double value : {0.0, -0.0, 2.0, -0.1, 1e300, Double::denorm_min(), Double::min(),
                             Double::max(), Double::infinity(), -Double::infinity()}) {
    items.push_back(number(value));
  }
  // Quiet and signaling, with sign and payload.
  for (const std::uint64_t bits : {0x7ff8000000000000u, 0x7ff0000000000001u, 0xfff8000000000000u,
                                   0xffffffffffffffffu, 0x7ff8dead0000beefu}) {
    items.push_back(number(item_double, bits));
  }
  for (const std::int64_t time :
       {std::int64_t{0}, std::int64_t{1}, std::int64_t{-1}, std::int64_t{999'999},
        std::int64_t{1'000'000}, std::int64_t{-1'000'000}, std::int64_t{1'700'000'000'000'001},
        std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max()}) {
    items.push_back(number(item_absolute_time, static_cast<std::uint64_t>(time)));
    items.push_back(number(item_relative_time, static_cast<std::uint64_t>(time)));
  }
  for (const std::size_t size : {0, 1, 7, 8, 23, 24, 255, 256}) {
    items.push_back(text(item_string, std::string(size, 'x')));
    items.push_back(text(item_binary, std::string(size, '\xff')));
  }
  for (const char* s :
       {"\u00e4\u20ac\U0001f600 \"quoted\\\" \x7f\x01\t", "\xff", "a\xc3", "\xed\xa0\x80"})
    items.push_back(text(item_string, s));
  items.push_back(text(item_string, std::string("a\0b", 3)));
  items.push_back(text(item_uuid, std::string(16, '\0')));
  items.push_back(text(item_uuid, from_hex("00112233445566778899aabbccddeeff")));
  return items;
}

Items all_items() {
  Items items = scalar_items();
  const Items few{number(item_unsigned, 12), text(item_string, "name"), number(-1.5)};
  items.push_back(sequence(0, {}));
  items.push_back(sequence(0, few));
  items.push_back(sequence(3, few));
  items.push_back(sequence(2, few));
  items.push_back(sequence(1'000'000, {}));
  items.push_back(sequence(std::numeric_limits<std::uint64_t>::max(), few));
  items.push_back(sequence(1, {few[0]}));
  items.push_back(sequence(1, {sequence(1, {sequence(0, few)})}));
  items.push_back(structure({}));
  items.push_back(structure(few));
  items.push_back(structure({structure({few[1]}), sequence(2, {structure(few), structure({})})}));
  return items;
}

Items random_items(std::mt19937& random) {
  static const Items scalars = scalar_items();
  const auto below = [&random](std::size_t n) { return random() % n; };
  Items items;
  for (std::size_t left = below(6); left > 0; --left) {
    switch (below(8)) {
      case 0:
        items.push_back(structure(random_items(random)));
        break;
      case 1: {
        Items inside = random_items(random);
        // 1 is for sequences of one.
        const std::uint64_t count = below(2) * (inside.size() + 1);
        items.push_back(sequence(count == 1 ? 0 : count, std::move(inside)));
        break;
      }
      case 2:
        items.push_back(sequence(1, {scalars[below(scalars.size())]}));
        break;
      default:
        items.push_back(scalars[below(scalars.size())]);
    }
  }
  return items;
}

std::string text_of(const MemoryList& list) {
  std::string text(list.size(), '\0');
  list.copy_to(text.data(), 0, text.size());
  return text;
}

}  // namespace ovserialize
