// SPDX-License-Identifier: Apache-2.0
#include "ovjson/impl/reader_state.h"

#include <algorithm>
#include <utility>

#include "ovcore/error_composer.h"
#include "ovcore/to_string.h"
#include "ovjson/error_codes.h"

namespace ovjson {
namespace {

constexpr const char* state_file = "ovjson/impl/reader_state";

constexpr std::string_view reserved_words[] = {
    "break",   "do",     "instanceof", "typeof",    "case",    "else",       "new",
    "var",     "catch",  "finally",    "return",    "void",    "continue",   "for",
    "switch",  "while",  "debugger",   "function",  "this",    "with",       "default",
    "if",      "throw",  "delete",     "in",        "try",     "class",      "enum",
    "extends", "super",  "const",      "export",    "import",  "implements", "let",
    "private", "public", "yield",      "interface", "package", "protected",  "static"};
static_assert(std::size(reserved_words) == 42);

bool is_reserved(std::string_view word) noexcept {
  return std::ranges::find(reserved_words, word) != std::end(reserved_words);
}

void empty(std::string& text) noexcept {
  if (text.capacity() > impl::kept_capacity) {
    std::string().swap(text);
  } else {
    text.clear();
  }
}

}  // namespace

Reader::State::State(ovcore::RefCountPtr<ovcore::IReadStream> source, ovcore::SourceString uri,
                     const ReaderOptions& options)
    : m_uri(uri.view()),
      m_max_depth(options.max_depth),
      m_max_value_size(options.max_value_size),
      m_tokenizer(std::move(source), {options.allow_comments, options.max_value_size,
                                      options.buffer_size, options.start}),
      m_current(new_value()) {}

Reader::State::~State() {
  while (m_free != nullptr)
    delete std::exchange(m_free, m_free->m_next_free);
}

void Reader::State::close() noexcept {
  m_current.reset();
  m_tokenizer.close();
  m_closed = true;
  if (m_values_in_use == 0) delete this;
}

ovcore::RefCountPtr<Reader::Value> Reader::State::new_value() {
  auto* value = const_cast<Value*>(m_free);
  if (value != nullptr) {
    m_free = value->m_next_free;
  } else {
    value = new Value(*this);
  }
  ++m_values_in_use;
  return ovcore::RefCountPtr<Value>(value);
}

Reader::Value& Reader::State::renew_current() {
  if (!m_current || m_current->m_refs > 1) {
    m_current = new_value();
  } else {
    m_current->forget_text();
  }
  return *m_current;
}

inline void Reader::Value::forget_text() const noexcept {
  if (m_text.capacity() > impl::kept_capacity) std::string().swap(m_text);
  m_text_state = Text::unread;
}

void Reader::State::recycle(const Value* value) noexcept {
  const_cast<Value*>(value)->m_name.clear();
  value->forget_text();
  value->m_next_free = std::exchange(m_free, value);
  if (--m_values_in_use == 0 && m_closed) delete this;
}

Reader::State::Step Reader::State::walk_top(Item& item) {
  Token token = next_token();
  if (token == Token::document_start) token = next_token();
  if (token == Token::document_end) return Step::end;
  if (m_started) raise_unexpected(token);
  m_started = true;
  begin_unnamed(token, item);
  return Step::value;
}

template <class Name>
[[gnu::always_inline]] inline Reader::State::Step Reader::State::walk_inside(Item& item,
                                                                             Name& name) {
  const bool in_array = m_open.back().is_array;
  const bool after_comma = m_after_value && m_tokenizer.take_punctuator(',');
  if (!in_array && (after_comma || !m_after_value) && m_tokenizer.take_name()) {
    item.name_position = m_tokenizer.position();
    take_name(name, m_tokenizer.text());
    if (m_tokenizer.take_quote()) {
      begin_string(item);
    } else {
      begin_value(next_token(), item);
    }
    return Step::value;
  }
  clear_name(name);
  Token token = next_token();
  if (!after_comma) {
    if (is_punctuator(token, in_array ? ']' : '}')) {
      m_open.pop_back();
      m_after_value = true;
      return Step::close;
    }
    if (m_after_value) {
      if (!is_punctuator(token, ',')) raise_unexpected(token);
      token = next_token();
    }
  }
  if (in_array) {
    begin_unnamed(token, item);
  } else {
    read_name(token, item);
    set_name(name, m_name);
    begin_value(next_token(), item);
  }
  return Step::value;
}

template <class Name>
Reader::State::Step Reader::State::walk(Item& item, Name& name) {
  m_failed = true;
  if (m_in_text) skip_text();
  Step result;
  if (m_open.empty()) {
    clear_name(name);
    result = walk_top(item);
  } else {
    result = walk_inside(item, name);
  }
  m_failed = false;
  return result;
}

Reader::State::Step Reader::State::step(Item& item, impl::KeptText& name) {
  return walk(item, name);
}

Reader::State::Step Reader::State::step(Item& item, const ovcore::StringKey*& name) {
  return walk(item, name);
}

void Reader::State::begin_unnamed(Token token, Item& item) {
  begin_value(token, item);
  item.name_position = item.position;
}

inline void Reader::State::begin_string(Item& item) noexcept {
  item.depth = m_open.size() + 1;
  item.position = m_tokenizer.position();
  m_after_value = true;
  item.kind = Kind::string;
  m_in_text = true;
}

void Reader::State::begin_value(Token token, Item& item) {
  item.depth = m_open.size() + 1;
  item.position = m_tokenizer.position();
  m_after_value = true;
  switch (token) {
    case Token::punctuator:
      begin_container(item);
      break;
    case Token::string_begin:
      item.kind = Kind::string;
      m_in_text = true;
      break;
    case Token::number:
      item.kind = Kind::number;
      break;
    case Token::literal_true:
    case Token::literal_false:
      item.kind = Kind::boolean;
      item.boolean = token == Token::literal_true;
      break;
    case Token::literal_null:
      item.kind = Kind::null;
      break;
    default:
      raise_unexpected(token);
  }
}

void Reader::State::begin_container(Item& item) {
  const bool is_array = is_punctuator(Token::punctuator, '[');
  if (!is_array && !is_punctuator(Token::punctuator, '{')) raise_unexpected(Token::punctuator);
  if (m_open.size() >= m_max_depth) {
    raise(m_tokenizer.position(), error::ovjson_reader,
          "Objects and arrays nest deeper than {@maxDepth}",
          {{"maxDepth", ovcore::to_string(m_max_depth)}},
          {state_file, "ovjson::Reader::State::begin_container()", 0});
  }
  item.kind = is_array ? Kind::array : Kind::object;
  item.id = ++m_last_id;
  m_open.push_back({item.id, is_array});
  m_after_value = false;
}

// Into `m_name`, with the colon behind it.
void Reader::State::read_name(Token token, Item& item) {
  if (token != Token::string_begin && token != Token::identifier_begin) raise_unexpected(token);
  item.name_position = m_tokenizer.position();
  const bool quoted = token == Token::string_begin;
  empty(m_name);
  m_in_text = true;
  for (std::string_view run; !(run = next_text()).empty();)
    m_name += run;
  if (m_name.empty() || (!quoted && is_reserved(m_name))) {
    raise(item.name_position, error::ovjson_reader, "Invalid member name", {},
          {state_file, "ovjson::Reader::State::read_name()", 0});
  }
  if (m_tokenizer.take_punctuator(':')) return;
  token = next_token();
  if (!is_punctuator(token, ':')) raise_token(token);
}

bool Reader::State::is_open(const Item& container) const noexcept {
  switch (container.kind) {
    case Kind::root:
      return true;
    case Kind::object:
    case Kind::array:
      return container.depth <= m_open.size() && m_open[container.depth - 1].id == container.id;
    default:
      return false;
  }
}

std::string_view Reader::State::next_run() {
  m_failed = true;
  const std::string_view run = next_text();
  m_failed = false;
  return run;
}

// Of a string or a name, until `m_in_text` ends.
std::string_view Reader::State::next_text() {
  if (!m_in_text) return {};
  const Token token = next_token();
  m_in_text = token == Token::char_data;
  if (!m_in_text) {
    if (token != Token::string_end && token != Token::identifier_end) raise_unexpected(token);
    return {};
  }
  if (m_tokenizer.take_string_end()) m_in_text = false;
  return m_tokenizer.text();
}

void Reader::State::read_text(std::string& text) {
  std::string_view run;
  if (take_plain_text(run)) {
    text.assign(run);
    return;
  }
  text.clear();
  while (!(run = next_run()).empty())
    text += run;
}

void Reader::State::skip_text() {
  if (m_tokenizer.take_string()) m_in_text = false;
  while (m_in_text)
    next_text();
}

const ovcore::StringKey& Reader::State::intern(std::string_view name) {
  const std::size_t size = name.size();
  if (size > 64) return m_long_name = ovcore::StringKey(ovcore::SourceString(name));
  const auto byte = [name](std::size_t i) {
    return static_cast<std::size_t>(static_cast<unsigned char>(name[i]));
  };
  const std::size_t place = size + byte(0) * 3 + byte(size / 2) * 5 + byte(size - 1) * 7;
  ovcore::StringKey& known = m_names[place % m_names.size()];
  if (known.value() != name) known = ovcore::StringKey(ovcore::SourceString(name));
  return known;
}

Position Reader::State::position() const noexcept {
  if (m_failed || !m_current || m_current->kind() == Kind::root) return m_tokenizer.position();
  return m_current->position();
}

void Reader::State::raise_fault() {
  const Tokenizer::Fault& fault = m_tokenizer.fault();
  const ovcore::SourceLocation location{state_file, "ovjson::Reader::State::next_token()", 0};
  const Position position = m_tokenizer.position();
  switch (fault.kind) {
    case Tokenizer::Fault::Kind::stream:
      raise(position, error::ovjson_reader_tokenizer_stream, fault.message, {}, location,
            fault.cause);
    case Tokenizer::Fault::Kind::size:
      raise(position, error::ovjson_reader_unexpected_size, fault.message,
            {{"maxSize", ovcore::to_string(m_max_value_size)}}, location);
    default:
      if (fault.found.empty()) {
        raise(position, error::ovjson_reader_tokenizer_syntaxError, fault.message, {}, location);
      }
      raise(position, error::ovjson_reader_tokenizer_syntaxError, fault.message,
            {{"found", fault.found}}, location);
  }
}

void Reader::State::raise_unexpected(Token token) {
  if (token == Token::document_end && !m_open.empty()) {
    raise(m_tokenizer.position(), error::ovjson_reader,
          m_open.back().is_array ? "End of document reached without all arrays properly closed"
                                 : "End of document reached without all objects properly closed",
          {}, {state_file, "ovjson::Reader::State::raise_unexpected()", 0});
  }
  raise_token(token);
}

void Reader::State::raise_token(Token token) {
  raise(m_tokenizer.position(), error::ovjson_reader_unexpected_token,
        "Unexpected tokenizer token: {@token}", {{"token", token_name(token)}},
        {state_file, "ovjson::Reader::State::raise_token()", 0});
}

void Reader::State::raise(const Position& position, const ovcore::ErrorCode& code,
                          ovcore::SourceString message_template,
                          std::initializer_list<ovcore::ErrorInfo::Parameter> parameters,
                          const ovcore::SourceLocation& location,
                          ovcore::RefCountPtr<const ovcore::ErrorInfo> cause) const {
  std::string text = message_template.str() + " [line {@line}, pos {@linePos}";
  if (!m_uri.empty()) text += ", uri <{@uri}>";
  text += ']';
  ovcore::ErrorComposer composer{ovcore::SourceString(text)};
  for (const ovcore::ErrorInfo::Parameter& p : parameters)
    composer.add(p.name, p.value);
  composer.add("line", position.line);
  composer.add("linePos", position.line_pos);
  composer.add("sourcePos", position.source_pos);
  if (!m_uri.empty()) composer.add("uri", m_uri);
  composer.cause(std::move(cause)).throw_error(code, location);
}

}  // namespace ovjson
