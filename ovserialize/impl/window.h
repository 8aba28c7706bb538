// SPDX-License-Identifier: Apache-2.0
// Items of the binary form, read where they lie and without a call.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>

#include "ovcore/utf8.h"
#include "ovserialize/impl/decode.h"
#include "ovserialize/impl/format.h"
#include "ovserialize/impl/known_names.h"
#include "ovserialize/reader.h"

namespace ovserialize::impl {

/// The bytes that a reader of the binary form has in memory. What reads answers false, and leaves
/// the item, unless one of its kind stands there whole and without an error: it is the reader's
/// then, which knows all forms and raises the errors. For other forms the window is empty.
class Window {
 public:
  explicit Window(Reader& reader) noexcept : m_reader(reader) { ++reader.m_windows; }
  Window(const Window&) = delete;
  Window& operator=(const Window&) = delete;
  ~Window() {
    std::unique_ptr<KnownNames>& names = m_reader.m_names;
    if (--m_reader.m_windows == 0 && names != nullptr && names->capacity() > most_kept_names) {
      names.reset();
    }
  }

  /// The kind of the next item where its first byte tells, else `item_none`.
  [[nodiscard]] int kind() const noexcept {
    const int kind = empty() ? int{item_none} : kinds[*at()];
    return kind < kind_of_simple ? kind : int{item_none};
  }
  /// Opens a sequence that was not announced with 1.
  bool begin_sequence(std::uint64_t& count) {
    FrameStack& frames = m_reader.m_frames;
    if (left() < 2 || *at() != byte_sequence || frames.depth() >= m_reader.limits().max_depth) {
      return false;
    }
    const unsigned char* const head = at() + 1;
    if ((*head & major_mask) != major_positive || !peek_argument(head, count) || count == 1) {
      return false;
    }
    frames.reserve();
    frames.push(Frame::counted);
    return go_to(head + head_size(*head));
  }
  /// Closes such a sequence.
  bool end_sequence() noexcept {
    if (empty() || *at() != byte_sequence_end || m_reader.m_frames.top() != Frame::counted) {
      return false;
    }
    m_reader.m_frames.pop();
    return go_to(at() + 1);
  }
  /// Whether an element follows in such a sequence.
  [[nodiscard]] bool has_element() const noexcept {
    return !empty() && *at() != byte_sequence_end && *at() != byte_structure_end;
  }

  bool read(bool& value) noexcept {
    if (kind() != item_boolean) return false;
    value = *at() == byte_true;
    return go_to(at() + 1);
  }
  bool read(long long& value) noexcept {
    std::uint64_t bits;
    if (kind() != item_integer || !peek_argument(at(), bits) || bits >> 63 != 0) return false;
    const bool negative = (*at() & major_mask) == major_negative;
    value = static_cast<long long>(negative ? ~bits : bits);
    return go_to(at() + head_size(*at()));
  }
  bool read(double& value) noexcept {
    std::uint64_t bits;
    if (empty() || *at() != byte_double || !peek_argument(at(), bits)) return false;
    value = std::bit_cast<double>(bits);
    return go_to(at() + head_size(byte_double));
  }
  /// The text is valid until something else is read.
  bool read(std::string_view& text) noexcept {
    return peek_text(text) && ovcore::is_utf8(text) && skip_text(text);
  }
  bool read_unsigned(std::uint64_t& value) noexcept {
    if (kind() == item_unsigned) {
      value = *at() - std::uint64_t{byte_unsigned_tiny};
      return go_to(at() + 1);
    }
    if (left() >= 2 && *at() == byte_unsigned && at()[1] >= simple_two_bytes) {
      value = at()[1] - std::uint64_t{unsigned_bias};
      return go_to(at() + 2);
    }
    static constexpr unsigned char tag[] = {major_tag | 25, tag_unsigned >> 8, tag_unsigned & 0xff};
    if (left() <= sizeof tag || std::memcmp(at(), tag, sizeof tag) != 0) return false;
    const unsigned char* const head = at() + sizeof tag;
    if ((*head & major_mask) != major_positive || !peek_argument(head, value)) return false;
    return value >= unsigned_tagged_from && go_to(head + head_size(*head));
  }

  /// A text that is a name; null when it is left. Valid as long as the window.
  [[gnu::always_inline]] const ovcore::StringKey* read_name() {
    std::string_view text;
    if (!peek_text(text)) return nullptr;
    KnownNames* const names = m_reader.m_names.get();
    const ovcore::StringKey* const name = names != nullptr ? names->next(text) : nullptr;
    if (name == nullptr) return read_new_name(text);
    skip_text(text);
    return name;
  }
  /// Whether the map that has been read is the reader's first, and nothing else has its names.
  [[nodiscard]] bool end_first_map() noexcept {
    return m_reader.m_windows == 1 && m_reader.m_names != nullptr &&
           m_reader.m_names->end_first_map();
  }
  /// Holds a name as long as the window lives.
  const ovcore::StringKey& hold(ovcore::StringKey name) {
    return known_names().add(std::move(name), false);
  }

 private:
  // Names that a reader keeps for the next that are read.
  static constexpr std::size_t most_kept_names = 1024;

  /// The bytes of a text, which need not be UTF-8. Leaves them.
  bool peek_text(std::string_view& text) const noexcept {
    std::uint64_t size;
    if (kind() != item_string || !peek_argument(at(), size)) return false;
    const std::size_t head = head_size(*at());
    if (size > left() - head || size > m_reader.limits().max_string) return false;
    text = {reinterpret_cast<const char*>(at() + head), static_cast<std::size_t>(size)};
    return true;
  }
  bool skip_text(std::string_view text) noexcept {
    return go_to(reinterpret_cast<const unsigned char*>(text.data() + text.size()));
  }

  KnownNames& known_names() {
    if (m_reader.m_names == nullptr) m_reader.m_names = std::make_unique<KnownNames>();
    return *m_reader.m_names;
  }
  [[gnu::noinline]] const ovcore::StringKey* read_new_name(std::string_view text) {
    if (!ovcore::is_utf8(text)) return nullptr;
    skip_text(text);
    return &known_names().add(ovcore::StringKey(ovcore::SourceString(text)), true);
  }

  [[nodiscard]] const unsigned char* at() const noexcept { return m_reader.m_cursor; }
  [[nodiscard]] bool empty() const noexcept { return at() == m_reader.m_end; }
  [[nodiscard]] std::size_t left() const noexcept {
    return static_cast<std::size_t>(m_reader.m_end - at());
  }
  bool go_to(const unsigned char* next) noexcept {
    m_reader.m_cursor = next;
    return true;
  }

  /// The argument of the head at a place in the window; false at the edge and for what has none.
  bool peek_argument(const unsigned char* head, std::uint64_t& value) const noexcept {
    value = *head & info_mask;
    if (value < inline_end) return true;
    const std::size_t size = head_size(*head);
    if (size == 0 || m_reader.m_end - head < static_cast<std::ptrdiff_t>(max_head)) return false;
    value = load_big<std::uint64_t>(head + 1) >> (64 - 8 * (size - 1));
    return true;
  }

  Reader& m_reader;
};

}  // namespace ovserialize::impl
