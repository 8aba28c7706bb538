// SPDX-License-Identifier: Apache-2.0
// The key type of attribute maps.
#pragma once

#include <compare>
#include <concepts>
#include <cstddef>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "ovcore/export.h"
#include "ovcore/static_instance.h"
#include "ovcore/string_key.h"
#include "ovcore/transfer_source.h"

namespace ovserialize {
class Reader;
class Writer;
}  // namespace ovserialize

namespace ovattribute {

class AttributeName;
class IAttributeNameDecoder;
class IAttributeNameEncoder;

template <class S>
concept StaticAttributeName = std::same_as<S, ovcore::StaticInstance<AttributeName>> ||
    std::same_as<S, ovcore::StaticInstance<const AttributeName>>;

/// One interned text. Equal and ordered by token identity, never by text, so every comparison is
/// one word compare; the order is fixed within the process and means nothing outside it. Whoever
/// needs a stable order sorts by `value()`.
class OV_EXPORT AttributeName {
 public:
  /// The empty name.
  AttributeName() noexcept = default;
  AttributeName(const char* text) : m_key(text) {}
  AttributeName(const char* text, std::size_t size) : m_key(text, size) {}
  AttributeName(const std::string& text) : m_key(text) {}
  AttributeName(std::string_view text) : m_key(ovcore::SourceString(text)) {}
  AttributeName(ovcore::SourceString text) : m_key(text) {}
  AttributeName(ovcore::StringKey key) noexcept : m_key(std::move(key)) {}
  template <StaticAttributeName S>
  AttributeName(const S& name) noexcept : AttributeName(name.get()) {}
  AttributeName(const AttributeName&) noexcept = default;
  AttributeName(AttributeName&&) noexcept = default;
  AttributeName(ovcore::TransferSource<AttributeName> other) noexcept
      : AttributeName(other.take()) {}
  AttributeName& operator=(AttributeName other) noexcept {
    swap(other);
    return *this;
  }
  ~AttributeName() = default;

  [[nodiscard]] const ovcore::StringKey& key() const noexcept { return m_key; }
  [[nodiscard]] const std::string& value() const noexcept { return m_key.value(); }
  [[nodiscard]] const char* data() const noexcept { return value().data(); }
  [[nodiscard]] std::size_t size() const noexcept { return value().size(); }
  [[nodiscard]] bool empty() const noexcept { return m_key.empty(); }
  [[nodiscard]] std::size_t hash() const noexcept { return m_key.hash(); }

  void clear() noexcept { m_key.clear(); }
  void swap(AttributeName& other) noexcept { m_key.swap(other.m_key); }
  friend void swap(AttributeName& a, AttributeName& b) noexcept { a.swap(b); }
  [[nodiscard]] ovcore::TransferSource<AttributeName> transfer() noexcept {
    return ovcore::TransferSource<AttributeName>(*this);
  }

  /// As a string item, or as the coder has it. Raise what the other side raises; a name that could
  /// not be read is as it was.
  void write(ovserialize::Writer& writer) const;
  void write(ovserialize::Writer& writer, IAttributeNameEncoder& encoder) const;
  void read(ovserialize::Reader& reader);
  void read(ovserialize::Reader& reader, IAttributeNameDecoder& decoder);

  friend bool operator==(const AttributeName& a, const AttributeName& b) noexcept {
    return a.m_key.key_value() == b.m_key.key_value();
  }
  friend std::strong_ordering operator<=>(const AttributeName& a, const AttributeName& b) noexcept {
    return a.m_key.key_value() <=> b.m_key.key_value();
  }
  template <StaticAttributeName S>
  friend bool operator==(const AttributeName& a, const S& b) noexcept {
    return a == b.get();
  }
  template <StaticAttributeName S>
  friend std::strong_ordering operator<=>(const AttributeName& a, const S& b) noexcept {
    return a <=> b.get();
  }

  /// Writes the text.
  friend std::ostream& operator<<(std::ostream& out, const AttributeName& name) {
    name.m_key.write_trace(out);
    return out;
  }

 private:
  ovcore::StringKey m_key;
};

OV_EXPORT ovserialize::Writer& operator<<(ovserialize::Writer& writer, const AttributeName& name);
OV_EXPORT ovserialize::Reader& operator>>(ovserialize::Reader& reader, AttributeName& name);

}  // namespace ovattribute

template <>
struct std::hash<ovattribute::AttributeName> {
  std::size_t operator()(const ovattribute::AttributeName& name) const noexcept {
    return name.hash();
  }
};
