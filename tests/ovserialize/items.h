// SPDX-License-Identifier: Apache-2.0
// Items as values: written to any writer, read from any reader, compared bit by bit.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "ovserialize/reader.h"
#include "ovserialize/writer.h"
#include "tests/support/hex.h"

namespace ovserialize {

struct Item {
  int kind = item_null;
  std::uint64_t number = 0;  // the bits of whatever number the item is; a sequence's count
  std::string bytes;
  std::vector<Item> inside;

  friend bool operator==(const Item&, const Item&) = default;
};
using Items = std::vector<Item>;

void write(Writer& writer, const Items& items);
/// Up to the end of the stream.
Items read_all(Reader& reader);

/// The binary form.
std::string to_binary(const Items& items, const Limits& limits = {});
Items from_binary(std::string_view bytes, const Limits& limits = {});

/// One item of every kind and form at every edge of its range; none inside another.
Items scalar_items();
/// All of the above, and sequences and structures of all sorts around some.
Items all_items();
/// A tree of a few dozen items.
Items random_items(std::mt19937& random);

std::string text_of(const MemoryList& list);
using ovtest::from_hex;
using ovtest::to_hex;

}  // namespace ovserialize
