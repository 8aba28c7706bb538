// SPDX-License-Identifier: Apache-2.0
// The element type of Serialized values: items that somebody else wrote, carried as they are.
#pragma once

#include <compare>
#include <cstddef>
#include <ostream>
#include <string>
#include <utility>

#include "ovattribute/impl/cached_hash.h"
#include "ovcore/export.h"
#include "ovcore/ref_count.h"
#include "ovserialize/memory_list.h"
#include "ovserialize/memory_reader.h"

namespace ovserialize {
class MemoryWriter;
class Reader;
class Writer;
}  // namespace ovserialize

namespace ovattribute {

/// Bytes that this library never looks into, and a text that tells their consumer what they are.
/// Copies share the bytes, between threads too.
///
/// A value without bytes is empty, whatever its type: all empty values are equal and sort before
/// the others, which are ordered by type and then by bytes.
class OV_EXPORT SerializedValue {
 public:
  using MemoryListPtr = ovcore::RefCountPtr<const ovserialize::MemoryList>;

  /// Empty, without a type.
  SerializedValue() noexcept = default;
  /// What was written so far. Raises `ovserialize_writer_sequence` or
  /// `ovserialize_writer_structure` while one is open.
  explicit SerializedValue(const ovserialize::MemoryWriter& writer) { set(writer); }
  SerializedValue(const std::string& type, const ovserialize::MemoryWriter& writer) {
    set(type, writer);
  }
  /// All that the reader reads, whatever it has read of it.
  explicit SerializedValue(const ovserialize::MemoryReader& reader) { set(reader); }
  SerializedValue(const std::string& type, const ovserialize::MemoryReader& reader) {
    set(type, reader);
  }
  /// Shares the list, which must not be changed any more; it may be null.
  explicit SerializedValue(MemoryListPtr list) noexcept : m_data(std::move(list)) {}
  SerializedValue(const std::string& type, MemoryListPtr list)
      : m_type(type), m_data(std::move(list)) {}

  // As the constructors. A failure leaves the value as it was.
  void set(const ovserialize::MemoryWriter& writer) { set(std::string(), writer); }
  void set(const std::string& type, const ovserialize::MemoryWriter& writer);
  void set(const ovserialize::MemoryReader& reader) { set(std::string(), reader); }
  void set(const std::string& type, const ovserialize::MemoryReader& reader);
  void set(MemoryListPtr list) noexcept { SerializedValue(std::move(list)).swap(*this); }
  void set(const std::string& type, MemoryListPtr list) {
    SerializedValue(type, std::move(list)).swap(*this);
  }

  [[nodiscard]] const std::string& type() const noexcept { return m_type; }
  /// Null when no bytes were ever set.
  [[nodiscard]] const MemoryListPtr& memory_list() const noexcept { return m_data; }
  /// A reader at the start of the bytes, which keeps them alive.
  [[nodiscard]] ovserialize::MemoryReader memory_reader() const;
  [[nodiscard]] bool empty() const noexcept { return size() == 0; }
  /// In bytes.
  [[nodiscard]] std::size_t size() const noexcept { return m_data ? m_data->size() : 0; }

  void clear() noexcept { SerializedValue().swap(*this); }
  void swap(SerializedValue& other) noexcept;
  friend void swap(SerializedValue& a, SerializedValue& b) noexcept { a.swap(b); }

  /// -1, 0 or 1.
  [[nodiscard]] int compare(const SerializedValue& other) const noexcept;
  /// Of type and bytes, also of an empty value; computed once.
  [[nodiscard]] std::size_t hash() const {
    return m_hash.get([this] { return aux_calc_hash(); });
  }

  friend bool operator==(const SerializedValue& a, const SerializedValue& b) noexcept {
    return a.compare(b) == 0;
  }
  friend std::strong_ordering operator<=>(const SerializedValue& a,
                                          const SerializedValue& b) noexcept {
    return a.compare(b) <=> 0;
  }

 private:
  [[nodiscard]] std::size_t aux_calc_hash() const noexcept;

  std::string m_type;
  MemoryListPtr m_data;
  impl::CachedHash m_hash;
};

/// A structure of the type, in a structure of its own, and the bytes as one block. Raises
/// `ovserialize_writer_size` for more bytes than the writer takes. The value is unchanged when it
/// cannot be read.
OV_EXPORT void write_serialized_value(ovserialize::Writer& writer, const SerializedValue& value);
OV_EXPORT void read_serialized_value(ovserialize::Reader& reader, SerializedValue& value);

/// What GoogleTest prints in its messages, as for a value of one such element.
OV_EXPORT void PrintTo(const SerializedValue& value, std::ostream* out);

}  // namespace ovattribute
