// SPDX-License-Identifier: Apache-2.0
// Universally unique identifiers (RFC 9562).
#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <ostream>
#include <string>

#include "ovcore/export.h"
#include "ovcore/fixed_text.h"
#include "ovcore/source_string.h"

namespace ovcore {

/// 16 bytes in the order in which the text shows them; nothing is said about version or variant.
/// Ordered byte by byte. The default is the nil UUID, all zero.
class OV_EXPORT Uuid {
 public:
  using BinaryData = std::array<std::uint8_t, 16>;
  using Text = FixedText<36>;

  constexpr Uuid() noexcept = default;
  explicit constexpr Uuid(const BinaryData& data) noexcept : m_data(data) {}

  /// A new random UUID (version 4). Raises `ovcore_random`.
  [[nodiscard]] static Uuid generate();
  /// Reads exactly 8-4-4-4-12 hexadecimal digits of either case, without braces or blanks.
  /// Raises `ovcore_uuid_syntax` with the byte position of the first mistake.
  [[nodiscard]] static Uuid parse(SourceString text);
  /// As `parse`; empty instead of an error.
  [[nodiscard]] static std::optional<Uuid> try_parse(SourceString text) noexcept;

  [[nodiscard]] constexpr const BinaryData& data() const noexcept { return m_data; }
  [[nodiscard]] constexpr bool is_nil() const noexcept { return m_data == BinaryData{}; }
  [[nodiscard]] constexpr bool empty() const noexcept { return is_nil(); }
  constexpr void clear() noexcept { m_data = {}; }

  /// Lower-case 8-4-4-4-12 without braces, held in place.
  [[nodiscard]] Text text() const noexcept;
  /// The same as a string. All formats, of which 0 and 1 are in use, are this form.
  [[nodiscard]] std::string as_string(int format = 0) const;

  [[nodiscard]] std::size_t hash() const noexcept;

  friend constexpr bool operator==(const Uuid&, const Uuid&) noexcept = default;
  friend constexpr std::strong_ordering operator<=>(const Uuid&, const Uuid&) noexcept = default;
  friend std::ostream& operator<<(std::ostream& out, const Uuid& uuid) {
    return out << SourceString(uuid.text().view());
  }

 private:
  BinaryData m_data{};
};

}  // namespace ovcore

template <>
struct std::hash<ovcore::Uuid> {
  std::size_t operator()(const ovcore::Uuid& uuid) const noexcept { return uuid.hash(); }
};
