// SPDX-License-Identifier: Apache-2.0
#include "ovuri/uri_stream.h"

#include <cstdint>

#include "ovcore/error_composer.h"
#include "ovcore/exception.h"
#include "ovcore/impl/wiped_text.h"
#include "ovserialize/error_codes.h"

namespace ovuri {

void write_uri(ovserialize::Writer& writer, const UriReference& uri) {
  writer << uri.text();
}

UriReference read_uri(ovserialize::Reader& reader) {
  const std::uint64_t offset = reader.offset();
  ovcore::impl::WipedText text;
  reader >> *text;
  try {
    return UriReference(*text);
  } catch (const ovcore::Exception& e) {
    ovcore::ErrorComposer("Malformed URI reference at offset {@offset}")
        .add("offset", offset)
        .cause(e.info())
        .throw_error(ovserialize::error::ovserialize_reader_malformed,
                     {"ovuri/uri_stream", "ovuri::read_uri()", 0});
  }
}

}  // namespace ovuri
