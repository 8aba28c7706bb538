// SPDX-License-Identifier: Apache-2.0
// Reading whole containers: the walk of a reader from item to item, without a `Reader::Value` for
// each of them.
#pragma once

#include <string>
#include <string_view>

#include "ovcore/string_key.h"
#include "ovjson/impl/reader_state.h"
#include "ovjson/reader.h"

namespace ovjson::impl {

/// Used in place of the reader's own operations while it lives. What it says of an item is valid
/// until the next step.
class ItemWalk {
 public:
  using Kind = Reader::Kind;

  /// Begins at the reader's current value, which a walk inside a container leaves behind.
  /// REQUIRES: there is one, and nothing of it was read.
  explicit ItemWalk(Reader& reader) noexcept
      : m_state(*reader.m_state), m_item(m_state.current()->m_item) {
    if (kind() == Kind::object || kind() == Kind::array) m_state.set_current(nullptr);
  }
  ItemWalk(const ItemWalk&) = delete;
  ItemWalk& operator=(const ItemWalk&) = delete;

  /// Goes on to the next item inside the innermost container; false when that is closed. Raises
  /// what the reader does.
  bool next() { return m_state.step(m_item, m_name) == Reader::State::Step::value; }
  /// Reads on behind the end of the container that is `depth` deep, the innermost or one around.
  void leave(std::size_t depth) {
    m_state.set_current(nullptr);
    while (m_state.depth() >= depth)
      next();
  }

  [[nodiscard]] Kind kind() const noexcept { return m_item.kind; }
  [[nodiscard]] std::size_t depth() const noexcept { return m_item.depth; }
  [[nodiscard]] bool boolean() const noexcept { return m_item.boolean; }
  [[nodiscard]] std::string_view number_text() const noexcept { return m_state.number_text(); }
  [[nodiscard]] const Position& name_position() const noexcept { return m_item.name_position; }
  /// Of a member.
  [[nodiscard]] const ovcore::StringKey& name() const noexcept { return *m_name; }
  /// A string, once: as it lies in the buffer, where a block can be read from any byte of it, or
  /// put together.
  bool take_plain_text(std::string_view& text) noexcept { return m_state.take_plain_text(text); }
  [[nodiscard]] std::string take_text() {
    std::string text;
    m_state.read_text(text);
    return text;
  }

  /// Makes the item the reader's current value, whose text is still unread.
  Reader::ValuePtr make_current() {
    if (m_state.current()) return m_state.current();
    ovcore::RefCountPtr<Reader::Value> value = m_state.new_value();
    value->m_item = m_item;
    value->m_name.clear();
    if (m_name != nullptr) value->m_name.assign(m_name->value());
    m_state.set_current(value);
    return value;
  }

 private:
  Reader::State& m_state;
  Reader::Item m_item;
  const ovcore::StringKey* m_name = nullptr;
};

}  // namespace ovjson::impl
