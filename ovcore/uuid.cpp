// SPDX-License-Identifier: Apache-2.0
#include "ovcore/uuid.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "ovcore/error_codes.h"
#include "ovcore/impl/mix_hash.h"
#include "ovcore/impl/raise_site.h"
#include "ovcore/operating_system.h"

namespace ovcore {
namespace {

constexpr std::size_t text_size = 36;
/// Where the text of each byte begins.
constexpr std::uint8_t places[] = {0, 2, 4, 6, 9, 11, 14, 16, 19, 21, 24, 26, 28, 30, 32, 34};

constexpr bool is_hyphen_place(std::size_t position) noexcept {
  return position == 8 || position == 13 || position == 18 || position == 23;
}

/// The values of hexadecimal digits, -1 for all other bytes.
constexpr auto digit_values = [] {
  std::array<std::int8_t, 256> values{};
  values.fill(-1);
  for (unsigned i = 0; i < 10; ++i)
    values['0' + i] = static_cast<std::int8_t>(i);
  for (unsigned i = 0; i < 6; ++i)
    values['a' + i] = values['A' + i] = static_cast<std::int8_t>(10 + i);
  return values;
}();

int digit_value(char c) noexcept {
  return digit_values[static_cast<unsigned char>(c)];
}

bool read_bytes(std::string_view text, Uuid::BinaryData& data) noexcept {
  if (text.size() != text_size || text[8] != '-' || text[13] != '-' || text[18] != '-' ||
      text[23] != '-') {
    return false;
  }
  int seen = 0;  // negative after any mistake
  for (std::size_t i = 0; i < data.size(); ++i) {
    const int high = digit_value(text[places[i]]);
    const int low = digit_value(text[places[i] + 1u]);
    seen |= high | low;
    data[i] = static_cast<std::uint8_t>((high & 0x0F) << 4 | (low & 0x0F));
  }
  return seen >= 0;
}

std::size_t first_mistake(std::string_view text) noexcept {
  std::size_t i = 0;
  while (i < std::min(text.size(), text_size) &&
         (is_hyphen_place(i) ? text[i] == '-' : digit_value(text[i]) >= 0)) {
    ++i;
  }
  return i;
}

}  // namespace

Uuid Uuid::generate() {
  BinaryData data;
  fill_random(data.data(), data.size());
  // Version and variant: RFC 9562, section 5.4.
  data[6] = static_cast<std::uint8_t>((data[6] & 0x0F) | 0x40);
  data[8] = static_cast<std::uint8_t>((data[8] & 0x3F) | 0x80);
  return Uuid(data);
}

Uuid Uuid::parse(SourceString text) {
  BinaryData data;
  if (!read_bytes(text, data)) {
    impl::throw_text_error(error::ovcore_uuid_syntax,
                           "Malformed UUID '{@text}' at position {@position}", text,
                           first_mistake(text), {"ovcore/uuid", "ovcore::Uuid::parse()"});
  }
  return Uuid(data);
}

std::optional<Uuid> Uuid::try_parse(SourceString text) noexcept {
  BinaryData data;
  if (!read_bytes(text, data)) return std::nullopt;
  return Uuid(data);
}

Uuid::Text Uuid::text() const noexcept {
  static constexpr char digits[] = "0123456789abcdef";
  Text result;
  char* const out = result.extend(text_size);
  for (std::size_t i = 0; i < m_data.size(); ++i) {
    out[places[i]] = digits[m_data[i] >> 4];
    out[places[i] + 1u] = digits[m_data[i] & 0x0F];
  }
  out[8] = out[13] = out[18] = out[23] = '-';
  return result;
}

std::string Uuid::as_string(int /*format*/) const {
  return text().str();
}

std::size_t Uuid::hash() const noexcept {
  std::uint64_t halves[2];
  static_assert(sizeof halves == sizeof m_data);
  std::memcpy(halves, m_data.data(), sizeof halves);
  return impl::mix_hash(halves[0] ^ impl::mix_hash(halves[1]));
}

}  // namespace ovcore
