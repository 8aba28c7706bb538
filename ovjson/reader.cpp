// SPDX-License-Identifier: Apache-2.0
#include "ovjson/reader.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "ovcore/to_string.h"
#include "ovjson/error_codes.h"
#include "ovjson/impl/number.h"
#include "ovjson/impl/reader_state.h"

namespace ovjson {
namespace {

constexpr const char* source_file = "ovjson/reader";
constexpr const char* after_error = "Value cannot be read after a parse error";

}  // namespace

std::string Reader::kind_name(Kind kind) {
  static constexpr const char* names[] = {"Root",    "Object", "Array", "Null",
                                          "Boolean", "Number", "String"};
  const int number = static_cast<int>(kind);
  if (number >= 0 && number < static_cast<int>(std::size(names))) return names[number];
  return "##InvalidType(" + ovcore::to_string(number) + ")";
}

Reader::Reader(ovcore::RefCountPtr<ovcore::IReadStream> source, ovcore::SourceString uri,
               const ReaderOptions& options)
    : m_state(new State(std::move(source), uri, options)) {}

Reader::~Reader() {
  m_state->close();
}

inline void Reader::check(const char* function) const {
  if (m_state->is_failed()) {
    raise_error(error::ovjson_reader, after_error, {}, {source_file, function, 0});
  }
}

Reader::ValuePtr Reader::current_value() const {
  check("ovjson::Reader::current_value()");
  return m_state->current();
}

Reader::ValuePtr Reader::next_value() {
  check("ovjson::Reader::next_value()");
  Value& value = m_state->renew_current();
  State::Step step;
  do {
    step = m_state->step(value.m_item, value.m_name);
  } while (step == State::Step::close);
  if (step == State::Step::value) return ValuePtr(&value);
  m_state->set_current(nullptr);
  return nullptr;
}

Reader::ValuePtr Reader::next_child(const ValuePtr& parent) {
  const char* const function = "ovjson::Reader::next_child()";
  check(function);
  if (!parent) {
    raise_error(error::ovjson_reader, "Parent parameter cannot be NULL", {},
                {source_file, function, 0});
  }
  if (parent->m_state != m_state) {
    raise_error(error::ovjson_reader, "Parent parameter belongs to another reader", {},
                {source_file, function, 0});
  }
  if (!m_state->is_open(parent->m_item)) return nullptr;

  Value& value = m_state->renew_current();
  State::Step step;
  do {
    step = m_state->step(value.m_item, value.m_name);
    if (step == State::Step::value && value.depth() == parent->depth() + 1) {
      return ValuePtr(&value);
    }
  } while (step != State::Step::end && m_state->depth() >= parent->depth());
  m_state->set_current(nullptr);
  return nullptr;
}

Position Reader::position() const noexcept {
  return m_state->position();
}

void Reader::raise_error(const ovcore::ErrorCode& code, ovcore::SourceString message_template,
                         std::initializer_list<ovcore::ErrorInfo::Parameter> parameters,
                         const ovcore::SourceLocation& location,
                         ovcore::RefCountPtr<const ovcore::ErrorInfo> cause) const {
  m_state->raise(m_state->position(), code, message_template, parameters, location,
                 std::move(cause));
}

void Reader::raise_error_at(const Position& position, const ovcore::ErrorCode& code,
                            ovcore::SourceString message_template,
                            std::initializer_list<ovcore::ErrorInfo::Parameter> parameters,
                            const ovcore::SourceLocation& location,
                            ovcore::RefCountPtr<const ovcore::ErrorInfo> cause) const {
  m_state->raise(position, code, message_template, parameters, location, std::move(cause));
}

/// Keeps its value from being recycled.
class Reader::ValueStream final : public ovcore::IReadStream {
 public:
  ValueStream(ValuePtr value, std::string_view text) noexcept
      : m_value(std::move(value)), m_run(text) {}

  std::size_t read(void* buffer, std::size_t size) override {
    std::size_t total = 0;
    while (total < size) {
      const std::size_t got = read_some(static_cast<char*>(buffer) + total, size - total);
      if (got == 0) break;
      total += got;
    }
    return total;
  }

  std::size_t read_some(void* buffer, std::size_t size) override {
    m_value->check_readable("ovjson::Reader::ValueStream::read_some()");
    if (size == 0) return 0;
    if (m_run.empty()) m_run = m_value->m_state->next_run();
    const std::size_t got = m_run.copy(static_cast<char*>(buffer), size);
    m_run.remove_prefix(got);
    return got;
  }

  [[nodiscard]] std::uint64_t remaining() const override { return unknown; }

 private:
  const ValuePtr m_value;
  std::string_view m_run;
};

void Reader::Value::recycle() const noexcept {
  m_state->recycle(this);
}

ovcore::StringKey Reader::Value::member_key() const {
  return m_name.view().empty() ? ovcore::StringKey() : m_state->intern(m_name.view());
}

void Reader::Value::raise(ovcore::SourceString message, const char* function) const {
  m_state->raise(m_state->position(), error::ovjson_reader_value, message, {},
                 {source_file, function, 0});
}

void Reader::Value::check_readable(const char* function) const {
  if (m_state->is_failed()) raise(after_error, function);
  if (m_state->current().get() != this) raise("The current value is no longer available", function);
}

inline void Reader::Value::check_kind(Kind kind, const char* message, const char* function) const {
  if (!m_state->is_readable(*this) || m_item.kind != kind) raise_kind(message, function);
}

void Reader::Value::raise_kind(const char* message, const char* function) const {
  check_readable(function);
  m_state->raise(m_state->position(), error::ovjson_reader_value, message,
                 {{"type", kind_name(m_item.kind)}}, {source_file, function, 0});
}

bool Reader::Value::as_bool() const {
  check_kind(Kind::boolean, "Cannot return current value type <{@type}> as a bool",
             "ovjson::Reader::Value::as_bool()");
  return m_item.boolean;
}

double Reader::Value::as_double() const {
  const char* const function = "ovjson::Reader::Value::as_double()";
  check_kind(Kind::number, "Cannot return current value type <{@type}> as a double", function);
  const std::optional<double> value = impl::number_as_double(m_state->number_text());
  if (!value.has_value()) raise("The current value is too large for a double", function);
  return *value;
}

std::optional<std::int64_t> Reader::Value::as_integer() const {
  check_kind(Kind::number, "Cannot return current value type <{@type}> as an integer",
             "ovjson::Reader::Value::as_integer()");
  return impl::number_as_integer(m_state->number_text());
}

std::string_view Reader::Value::number_text() const {
  check_kind(Kind::number, "Cannot return current value type <{@type}> as a number",
             "ovjson::Reader::Value::number_text()");
  return m_state->number_text();
}

inline void Reader::Value::check_text(const char* function) const {
  check_kind(Kind::string, "Cannot return current value type <{@type}> as a string", function);
  if (m_text_state == Text::gone) {
    raise("The character data of the current value was already given out", function);
  }
}

inline void Reader::Value::read_text() const {
  m_text_state = Text::gone;  // should an allocation fail halfway
  m_state->read_text(m_text);
  m_text_state = Text::held;
}

const std::string& Reader::Value::as_string() const {
  check_text("ovjson::Reader::Value::as_string()");
  if (m_text_state == Text::unread) read_text();
  return m_text;
}

std::string Reader::Value::take_string() const {
  check_text("ovjson::Reader::Value::take_string()");
  if (m_text_state == Text::unread) read_text();
  m_text_state = Text::gone;
  return std::move(m_text);
}

ovcore::RefCountPtr<ovcore::IReadStream> Reader::Value::as_stream() const {
  check_text("ovjson::Reader::Value::as_stream()");
  const std::string_view held = m_text_state == Text::held ? m_text : std::string_view();
  auto stream = ovcore::make_ref_counted<ValueStream>(ValuePtr(this), held);
  m_text_state = Text::gone;
  return stream;
}

}  // namespace ovjson
