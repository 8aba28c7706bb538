// SPDX-License-Identifier: Apache-2.0
#include <optional>
#include <utility>

#include "ovattribute/attribute_name_coder.h"
#include "ovattribute/attribute_value_marshaler.h"
#include "ovattribute/json_marshaler.h"
#include "ovjson/reader.h"
#include "ovserialize/item_kind.h"
#include "ovserialize/stream_reader.h"
#include "ovserialize/text_reader.h"
#include "tools/ovattr/command.h"
#include "tools/ovattr/json_lines.h"
#include "tools/ovattr/values.h"

namespace ovattr {
namespace {

using ovattribute::AttributeValue;

AttributeValue read_json(ovjson::Reader& reader) {
  AttributeValue value = ovattribute::read_attribute_value(
      reader, {.exact_integers = true, .refuse_repeated_names = true});
  reader.next_value();  // nothing but white space may follow
  return value;
}

/// One value.
class JsonSource final : public ValueSource {
 public:
  explicit JsonSource(const Reading& reading)
      : ValueSource(reading),
        m_reader(std::in_place, input(), ovcore::SourceString(),
                 ovjson::ReaderOptions{.allow_comments = reading.comments}) {}

 private:
  bool read_next(AttributeValue& value) override {
    if (!m_reader) return false;
    value = read_json(*m_reader);
    m_reader.reset();
    return true;
  }

  std::optional<ovjson::Reader> m_reader;
};

class JsonLinesSource final : public ValueSource {
 public:
  explicit JsonLinesSource(const Reading& reading)
      : ValueSource(reading), m_comments(reading.comments), m_lines(input()) {}

 private:
  bool read_next(AttributeValue& value) override {
    if (!m_lines.next_line()) return false;
    ovjson::Reader reader(
        m_lines, {}, {.allow_comments = m_comments, .buffer_size = 4096, .start = m_lines.start()});
    value = read_json(reader);
    return true;
  }

  const bool m_comments;
  LineStream m_lines;
};

/// Values as items, in the form that `ItemReader` reads.
template <class ItemReader>
class ItemSource final : public ValueSource {
 public:
  ItemSource(const Reading& reading, const PackageSetPtr& packages)
      : ValueSource(reading),
        m_reader(*input(), {}, buffer_size),
        m_decoder(packages, reading.strict) {}

 private:
  bool read_next(AttributeValue& value) override {
    // No value begins with a structure: it announces packages.
    while (m_reader.item_kind() == ovserialize::item_structure)
      m_decoder.read_decoder_mappings(m_reader);
    if (m_reader.at_end()) return false;
    ovattribute::read_attribute_value(m_reader, m_decoder, value);
    return true;
  }

  static constexpr std::size_t buffer_size = 65536;

  ItemReader m_reader;
  ovattribute::AttributeNameDecoder m_decoder;
};

}  // namespace

ValueSource::ValueSource(const Reading& reading)
    : m_name(input_name(reading.file)), m_input(ovcore::make_ref_counted<Input>(reading.file)) {}

bool ValueSource::next(AttributeValue& value) {
  return about_file(m_name, [&] {
    try {
      return read_next(value);
    } catch (...) {
      m_input->raise_output_failure();
      throw;
    }
  });
}

std::unique_ptr<ValueSource> open_source(const Reading& reading, const PackageSetPtr& packages) {
  return about_file(input_name(reading.file), [&]() -> std::unique_ptr<ValueSource> {
    switch (form_of(reading)) {
      case Form::binary:
        return std::make_unique<ItemSource<ovserialize::StreamReader>>(reading, packages);
      case Form::text:
        return std::make_unique<ItemSource<ovserialize::TextReader>>(reading, packages);
      default:
        if (has_lines(reading)) return std::make_unique<JsonLinesSource>(reading);
        return std::make_unique<JsonSource>(reading);
    }
  });
}

}  // namespace ovattr
