// SPDX-License-Identifier: Apache-2.0
// The names that a reader has met lately, found without the lock and hash of the interning table.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "ovcore/string_key.h"
#include "ovserialize/impl/format.h"

namespace ovserialize::impl {

/// One slot for each of a few hundred hashes; a name displaces what was in its slot. Keeps the
/// names that it holds interned as long as it lives.
class KeyCache {
 public:
  /// Null when the text is not there.
  [[nodiscard]] const ovcore::StringKey* find(std::string_view text) const noexcept {
    const ovcore::StringKey& slot = m_slots[slot_of(text)];
    const std::string& known = slot.value();
    return known.size() == text.size() && equal_short(known.data(), text.data(), text.size())
               ? &slot
               : nullptr;
  }
  void remember(const ovcore::StringKey& key) noexcept { m_slots[slot_of(key.value())] = key; }

 private:
  static constexpr unsigned bits = 8;

  // The first and last bytes and the size; names that agree in them share a slot.
  static std::size_t slot_of(std::string_view text) noexcept {
    std::uint64_t mixed = text.size();
    if (text.size() >= 8) {
      mixed += load<std::uint64_t>(text.data()) ^ load<std::uint64_t>(text.data() + text.size() - 8)
                                                      << 1;
    } else if (text.size() >= 4) {
      mixed += load<std::uint32_t>(text.data()) |
               std::uint64_t{load<std::uint32_t>(text.data() + text.size() - 4)} << 32;
    } else if (!text.empty()) {
      const auto byte = [text](std::size_t i) {
        return std::uint64_t{static_cast<unsigned char>(text[i])};
      };
      mixed += byte(0) << 16 | byte(text.size() / 2) << 8 | byte(text.size() - 1) << 24;
    }
    return static_cast<std::size_t>(mixed * 0x9e3779b97f4a7c15 >> (64 - bits));
  }
  template <class Word>
  static Word load(const char* from) noexcept {
    Word word;
    std::memcpy(&word, from, sizeof word);
    return word;
  }

  ovcore::StringKey m_slots[std::size_t{1} << bits];
};

}  // namespace ovserialize::impl
