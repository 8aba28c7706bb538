// SPDX-License-Identifier: Apache-2.0
#include "ovserialize/impl/decode.h"

#include <bit>

namespace ovserialize::impl {

const char* reason_against(unsigned char initial) noexcept {
  const unsigned info = initial & info_mask;
  if (info >= 28 && info < 31) return "a reserved initial byte";
  switch (initial & major_mask) {
    case major_bytes:
    case major_text:
      return "a string of indefinite length";
    case major_map:
      return "a map";
    case byte_sequence& major_mask:
      return "an array of definite length";
    case major_tag:
      return info == 31 ? "a reserved initial byte" : "an unknown tag";
    case byte_null& major_mask:
      return "an unused simple value";
    default:
      return "a reserved initial byte";
  }
}

double widen(std::uint64_t bits, unsigned exponent_bits, unsigned fraction_bits) noexcept {
  const std::uint64_t sign = bits >> (exponent_bits + fraction_bits) << 63;
  const std::uint64_t largest = (std::uint64_t{1} << exponent_bits) - 1;
  const std::uint64_t exponent = bits >> fraction_bits & largest;
  const std::uint64_t fraction = (bits & ((std::uint64_t{1} << fraction_bits) - 1))
                                 << (52 - fraction_bits);
  const std::uint64_t bias_change = 1023 - (largest >> 1);
  if (exponent == largest)
    return std::bit_cast<double>(sign | std::uint64_t{0x7ff} << 52 | fraction);
  if (exponent != 0) {
    return std::bit_cast<double>(sign | (exponent + bias_change) << 52 | fraction);
  }
  // Subnormal: the fraction without its hidden one, scaled by the subtraction.
  const double one = std::bit_cast<double>((bias_change + 1) << 52);
  const double magnitude = std::bit_cast<double>((bias_change + 1) << 52 | fraction) - one;
  return std::bit_cast<double>(sign | std::bit_cast<std::uint64_t>(magnitude));
}

}  // namespace ovserialize::impl
