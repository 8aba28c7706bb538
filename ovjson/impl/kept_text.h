// SPDX-License-Identifier: Apache-2.0
// A text that is replaced again and again.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>

namespace ovjson::impl {

/// What a text that is not in use may keep of its memory, in bytes.
inline constexpr std::size_t kept_capacity = 65'536;

/// Keeps its memory, and costs little more than copying the bytes.
class KeptText {
 public:
  [[nodiscard]] std::string_view view() const noexcept { return {m_bytes.get(), m_size}; }

  void assign(std::string_view text) {
    make_room(text.size());
    if (!text.empty()) std::memcpy(m_bytes.get(), text.data(), text.size());
    m_size = text.size();
  }
  /// REQUIRES: a word can be read where the text ends.
  void assign_words(std::string_view text) {
    make_room(text.size());
    for (std::size_t i = 0; i < text.size(); i += sizeof(std::uint64_t))
      std::memcpy(m_bytes.get() + i, text.data() + i, sizeof(std::uint64_t));
    m_size = text.size();
  }
  void clear() noexcept {
    m_size = 0;
    if (m_capacity > kept_capacity) give_back();
  }

 private:
  void make_room(std::size_t size) {
    if (m_capacity > kept_capacity) give_back();
    if (size > m_capacity) grow(size);
  }
  void grow(std::size_t size) {
    const std::size_t capacity = std::max<std::size_t>(size, 64);
    m_bytes = std::make_unique_for_overwrite<char[]>(capacity + sizeof(std::uint64_t));
    m_capacity = capacity;
  }
  void give_back() noexcept {
    m_bytes.reset();
    m_capacity = 0;
  }

  std::unique_ptr<char[]> m_bytes;
  std::size_t m_size = 0;
  std::size_t m_capacity = 0;
};

}  // namespace ovjson::impl
