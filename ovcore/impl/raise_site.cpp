// SPDX-License-Identifier: Apache-2.0
#include "ovcore/impl/raise_site.h"

#include <string_view>

#include "ovcore/error_composer.h"

namespace ovcore::impl {
namespace {

/// Cut in front of a UTF-8 character, never inside one.
std::string_view excerpt(std::string_view text) {
  std::size_t size = 64;
  if (text.size() <= size) return text;
  while (size > 60 && (static_cast<unsigned char>(text[size]) & 0xC0) == 0x80)
    --size;
  return text.substr(0, size);
}

}  // namespace

void throw_text_error(const ErrorCode& code, SourceString message, SourceString text,
                      std::size_t position, const RaiseSite& site) {
  ErrorComposer(message)
      .add("text", excerpt(text))
      .add("position", position)
      .throw_error(code, {site.file, site.function, 0});
}

}  // namespace ovcore::impl
