// SPDX-License-Identifier: Apache-2.0
#include "ovserialize/simple_date_time_stream.h"

#include <cstdint>

#include "ovcore/error_composer.h"
#include "ovcore/exception.h"
#include "ovcore/impl/wiped_text.h"
#include "ovserialize/error_codes.h"

namespace ovserialize {

void write_simple_date_time(Writer& writer, const ovcore::SimpleDateTime& time) {
  writer << time.text().view();
}

ovcore::SimpleDateTime read_simple_date_time(Reader& reader) {
  const std::uint64_t offset = reader.offset();
  ovcore::impl::WipedText text;
  reader >> *text;
  try {
    return ovcore::SimpleDateTime::parse(*text);
  } catch (const ovcore::Exception& e) {
    ovcore::ErrorComposer("Malformed date at offset {@offset}")
        .add("offset", offset)
        .cause(e.info())
        .throw_error(
            error::ovserialize_reader_malformed,
            {"ovserialize/simple_date_time_stream", "ovserialize::read_simple_date_time()", 0});
  }
}

}  // namespace ovserialize
