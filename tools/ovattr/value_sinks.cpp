// SPDX-License-Identifier: Apache-2.0
#include <limits>
#include <ostream>

#include "ovattribute/attribute_name_coder.h"
#include "ovattribute/attribute_value_marshaler.h"
#include "ovattribute/json_marshaler.h"
#include "ovattribute/trace_formatter.h"
#include "ovjson/writer.h"
#include "ovserialize/stream_writer.h"
#include "ovserialize/text_writer.h"
#include "tools/ovattr/command.h"
#include "tools/ovattr/values.h"

namespace ovattr {
namespace {

using ovattribute::AttributeNameEncoder;
using ovattribute::AttributeValue;

/// One value, or one a line.
class JsonSink final : public ValueSink {
 public:
  explicit JsonSink(const Writing& writing)
      : ValueSink(writing),
        m_several(has_lines(writing)),
        m_writer(output().stream(), {.indent = has_lines(writing) ? 0 : writing.indent}) {}

 private:
  void put(const AttributeValue& value) override {
    if (m_any && !m_several) fail(name(), "JSON holds one value, unless --lines is given");
    m_any = true;
    ovattribute::write_attribute_value(m_writer, value,
                                       {.exact_integers = true, .order_names_by_text = true});
    m_writer.next_document();
    m_writer.flush();
    output().keep();
  }
  void end() override {
    if (!m_any && !m_several) fail(name(), "There is no value to write");
    m_writer.close();
  }

  const bool m_several;
  ovjson::TextWriter m_writer;
  bool m_any = false;
};

class BinarySink final : public ValueSink {
 public:
  BinarySink(const Writing& writing, const PackageSetPtr& packages)
      : ValueSink(writing), m_writer(output().stream()), m_encoder(packages) {
    output().refuse_terminal();
    if (writing.announce) m_encoder.write_encoder_mappings(m_writer);
  }

 private:
  void put(const AttributeValue& value) override {
    ovattribute::write_attribute_value(m_writer, m_encoder, value);
    m_writer.flush();
    output().keep();
  }
  void end() override { m_writer.flush(); }

  ovserialize::StreamWriter m_writer;
  AttributeNameEncoder m_encoder;
};

class TextSink final : public ValueSink {
 public:
  TextSink(const Writing& writing, const PackageSetPtr& packages)
      : ValueSink(writing),
        m_one_line(writing.indent == 0),
        m_text(output().stream()),
        m_writer(m_text, {m_one_line, static_cast<unsigned>(writing.indent)}),
        m_encoder(packages) {
    if (writing.announce) m_encoder.write_encoder_mappings(m_writer);
  }

 private:
  void put(const AttributeValue& value) override {
    ovattribute::write_attribute_value(m_writer, m_encoder, value);
    m_text.flush();
    output().keep("\n");
  }
  void end() override {
    m_writer.close();
    if (m_one_line) m_text.put('\n');
    m_text.flush();
  }

  const bool m_one_line;
  ovserialize::StreamTextTarget m_text;
  ovserialize::TextWriter m_writer;
  AttributeNameEncoder m_encoder;
};

/// For people, so in the order of the names, with nothing left out unless asked for.
class TraceSink final : public ValueSink {
 public:
  explicit TraceSink(const Writing& writing)
      : ValueSink(writing),
        m_formatter(formatter(writing.shorten)),
        m_buffer(output()),
        m_text(&m_buffer) {
    m_text.exceptions(std::ios::badbit);  // let the output's own error through
  }

 private:
  static ovattribute::TraceFormatter formatter(bool shorten) {
    ovattribute::TraceFormatter::Composer composer;
    composer.order_names_by_text(true);
    if (!shorten) {
      constexpr std::uint32_t no_limit = std::numeric_limits<std::uint32_t>::max();
      composer.max_multivalue_count(no_limit).max_string_len(no_limit).max_binary_value_dump_bytes(
          no_limit);
    }
    return composer.compose();
  }

  void put(const AttributeValue& value) override {
    value.write_trace(m_text, m_formatter, 0);
    m_text << '\n' << std::flush;
  }
  void end() override {}

  const ovattribute::TraceFormatter m_formatter;
  OutputBuffer m_buffer;
  std::ostream m_text;
};

}  // namespace

ValueSink::ValueSink(const Writing& writing)
    : m_name(output_name(writing.file)), m_output(writing.file, writing.mode) {}

void ValueSink::write(const AttributeValue& value) {
  about_file(m_name, [&] { put(value); });
}

void ValueSink::finish() {
  about_file(m_name, [&] {
    end();
    m_output.commit();
  });
}

std::unique_ptr<ValueSink> open_sink(const Writing& writing, const PackageSetPtr& packages) {
  return about_file(output_name(writing.file), [&]() -> std::unique_ptr<ValueSink> {
    switch (form_of(writing)) {
      case Form::binary:
        return std::make_unique<BinarySink>(writing, packages);
      case Form::text:
        return std::make_unique<TextSink>(writing, packages);
      case Form::trace:
        return std::make_unique<TraceSink>(writing);
      case Form::json:
        break;
    }
    return std::make_unique<JsonSink>(writing);
  });
}

void copy_values(ValueSource& source, ValueSink& sink) {
  source.feed(sink.output());
  AttributeValue value;
  while (source.next(value))
    sink.write(value);
}

}  // namespace ovattr
