// SPDX-License-Identifier: Apache-2.0
#include "ovcore/utf8.h"

namespace ovcore {

std::size_t utf8_prefix(std::string_view text) noexcept {
  const char* const end = text.data() + text.size();
  const char* p = text.data();
  while (p < end) {
    const std::string_view rest{p, static_cast<std::size_t>(end - p)};
    if (rest.size() >= 8 && is_ascii(rest.substr(0, 8))) {
      p += 8;
    } else if ((*p & 0x80) == 0) {
      ++p;
    } else {
      const Utf8Sequence next = first_utf8_sequence(rest);
      if (next.state != Utf8Sequence::State::whole) break;
      p += next.size;
    }
  }
  return static_cast<std::size_t>(p - text.data());
}

}  // namespace ovcore
