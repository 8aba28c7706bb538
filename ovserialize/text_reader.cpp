// SPDX-License-Identifier: Apache-2.0
#include "ovserialize/text_reader.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

#include "ovcore/utf8.h"
#include "ovserialize/impl/format.h"
#include "ovserialize/impl/raise.h"
#include "ovserialize/impl/text_tokens.h"

namespace ovserialize {
namespace {

using impl::TextToken;
using Mark = TextToken::Mark;

constexpr impl::RaiseSite text_reader_site(const char* function) {
  return {"ovserialize/text_reader", function};
}

[[noreturn]] void throw_range(const TextToken& token, int kind) {
  impl::throw_range(token.at, kind, text_reader_site("ovserialize::TextReader::throw_range()"));
}

/// The value of an integer, which must be within these limits.
std::int64_t integer_of(const TextToken& token, std::int64_t min, std::int64_t max) {
  // Of a negative number the ones' complement fits where the magnitude may not.
  const std::uint64_t bits = token.negative ? ~(token.number - 1) : token.number;
  const auto value = static_cast<std::int64_t>(bits);
  const bool fits = token.in_range && (token.number == 0 || (value < 0) == token.negative);
  if (!fits || value < min || value > max) throw_range(token, item_integer);
  return value;
}

constexpr std::int64_t min_integer = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t max_integer = std::numeric_limits<std::int64_t>::max();

/// A block of its own.
class BlockStream final : public ovcore::IReadStream {
 public:
  explicit BlockStream(std::string bytes) noexcept : m_bytes(std::move(bytes)) {}

  std::size_t read(void* buffer, std::size_t size) override {
    size = m_bytes.copy(static_cast<char*>(buffer), size, m_read);
    m_read += size;
    return size;
  }
  std::size_t read_some(void* buffer, std::size_t size) override { return read(buffer, size); }
  [[nodiscard]] std::uint64_t remaining() const override { return m_bytes.size() - m_read; }

 private:
  const std::string m_bytes;
  std::size_t m_read = 0;
};

}  // namespace

TextReader::TextReader(ovcore::IReadStream& source, const Limits& limits, std::size_t buffer_size)
    : Reader(limits), m_tokens(std::make_unique<impl::TextTokens>(source, buffer_size)) {}

TextReader::~TextReader() = default;

int TextReader::item_kind() {
  return m_tokens->next().kind;
}

bool TextReader::at_end() {
  return m_tokens->next().mark == Mark::end;
}

std::uint64_t TextReader::offset() const noexcept {
  return m_tokens->position().offset;
}

// Takes the token of an item that must be of this kind.
const TextToken& TextReader::next_of_kind(int kind) {
  const TextToken& token = m_tokens->next();
  if (token.kind != kind) throw_other(impl::kind_name(kind));
  m_tokens->take();
  return token;
}

void TextReader::end_item() {
  m_tokens->end_item();
}

void TextReader::read_null() {
  next_of_kind(item_null);
  end_item();
}

bool TextReader::get_boolean() {
  const bool value = next_of_kind(item_boolean).flag;
  end_item();
  return value;
}

std::int64_t TextReader::get_integer(std::int64_t min, std::int64_t max) {
  const std::int64_t value = integer_of(next_of_kind(item_integer), min, max);
  end_item();
  return value;
}

std::uint64_t TextReader::get_unsigned(std::uint64_t max) {
  TextToken token = next_of_kind(item_unsigned);
  if (token.tagged) {
    const TextToken number = m_tokens->read_integer();
    if (number.negative || (number.in_range && number.number < impl::unsigned_tagged_from)) {
      m_tokens->throw_malformed("not an unsigned integer that needs its tag", number.at);
    }
    m_tokens->expect(')', "a closing parenthesis is missing");
    token.number = number.number;
    token.in_range = number.in_range;
  }
  if (!token.in_range || token.number > max) throw_range(token, item_unsigned);
  end_item();
  return token.number;
}

double TextReader::get_double() {
  const TextToken& token = next_of_kind(item_double);
  if (!token.in_range) throw_range(token, item_double);
  end_item();
  return token.real;
}

std::string TextReader::read_string() {
  const TextToken token = next_of_kind(item_string);
  std::string text;
  if (token.tagged) {
    m_tokens->read_block(text, limits().max_string, item_string);
    m_tokens->expect(')', "a closing parenthesis is missing");
    if (ovcore::is_utf8(text)) {
      m_tokens->throw_malformed("UTF-8 behind the tag for other text", token.at);
    }
  } else {
    m_tokens->read_text(text, limits().max_string);
  }
  end_item();
  return text;
}

void TextReader::get_string(std::string& text) {
  text = read_string();
}

ovcore::StringKey TextReader::read_string_key() {
  return ovcore::StringKey(read_string());
}

std::string TextReader::read_block() {
  next_of_kind(item_binary);
  std::string bytes;
  m_tokens->read_hex(bytes, limits().max_binary, item_binary);
  end_item();
  return bytes;
}

ovcore::RefCountPtr<const MemoryList> TextReader::read_memory_list_as_binary() {
  const std::string bytes = read_block();
  return MemoryList::create_copy(bytes.data(), bytes.size());
}

ovcore::RefCountPtr<ovcore::IReadStream> TextReader::read_binary_stream() {
  return ovcore::make_ref_counted<BlockStream>(read_block());
}

std::int64_t TextReader::read_time(int kind) {
  constexpr auto not_a_time = "not the map of a time";
  const TextToken token = next_of_kind(kind);
  const auto key = [this](bool negative, std::uint64_t number) {
    const TextToken found = m_tokens->read_integer();
    if (found.negative != negative || found.number != number || !found.in_range) {
      m_tokens->throw_malformed(not_a_time, found.at);
    }
    m_tokens->expect(':', not_a_time);
  };
  m_tokens->expect('{', not_a_time);
  key(false, 1);
  ovcore::TimeParts parts{integer_of(m_tokens->read_integer(), min_integer, max_integer), 0};
  bool comma = m_tokens->take_if(',');
  if (comma && !m_tokens->take_if('}')) {
    key(true, 6);
    const TextToken fraction = m_tokens->read_integer();
    if (fraction.negative || !fraction.in_range || fraction.number < 1 ||
        fraction.number > 999'999) {
      m_tokens->throw_malformed("microseconds that are not 1 to 999999", fraction.at);
    }
    parts.microseconds = static_cast<std::uint32_t>(fraction.number);
    static_cast<void>(m_tokens->take_if(','));
    comma = false;
  }
  if (!comma) m_tokens->expect('}', not_a_time);
  m_tokens->expect(')', "a closing parenthesis is missing");
  const auto time = ovcore::RelativeTime::try_from_parts(parts);
  if (!time) throw_range(token, kind);
  end_item();
  return time->microseconds();
}

std::int64_t TextReader::get_absolute_time() {
  return read_time(item_absolute_time);
}

std::int64_t TextReader::get_relative_time() {
  return read_time(item_relative_time);
}

ovcore::Uuid TextReader::get_uuid() {
  const TextToken token = next_of_kind(item_uuid);
  std::string bytes;
  ovcore::Uuid::BinaryData data;
  m_tokens->read_block(bytes, data.size(), item_uuid);
  if (bytes.size() != data.size()) {
    m_tokens->throw_malformed("a UUID that is not 16 bytes long", token.at);
  }
  m_tokens->expect(')', "a closing parenthesis is missing");
  std::memcpy(data.data(), bytes.data(), data.size());
  end_item();
  return ovcore::Uuid(data);
}

// Before the mark is taken, so that nothing is left to fail behind it.
void TextReader::open(const TextToken& token, Frame frame) {
  if (m_frames.depth() >= limits().max_depth) {
    impl::throw_reader_depth(
        token.at, limits().max_depth,
        text_reader_site(frame == Frame::structure ? "ovserialize::Reader::begin_structure()"
                                                   : "ovserialize::Reader::begin_sequence()"));
  }
  m_frames.reserve();
  m_frames.push(frame);
  m_tokens->take();
  end_item();
}

std::uint64_t TextReader::begin_sequence() {
  const TextToken& token = m_tokens->next();
  if (token.kind != item_sequence) throw_other(impl::kind_name(item_sequence));
  const std::uint64_t count = token.flag ? 1 : token.number;
  open(token, token.flag ? Frame::single : Frame::counted);
  return count;
}

bool TextReader::has_next_element() {
  switch (m_frames.top()) {
    case Frame::single:
      m_frames.set_top(Frame::single_asked);
      return true;
    case Frame::single_asked:
      m_frames.pop();
      return false;
    case Frame::counted:
      break;
    default:
      impl::throw_no_sequence(m_tokens->position(),
                              text_reader_site("ovserialize::Reader::has_next_element()"));
  }
  const TextToken& token = m_tokens->next();
  if (token.mark == Mark::structure_end) {
    m_tokens->throw_malformed("the end of a structure in a sequence", token.at);
  }
  if (token.mark == Mark::item) return true;
  if (token.mark != Mark::sequence_end) throw_other("the end of a sequence");
  m_tokens->take();
  end_item();
  m_frames.pop();
  return false;
}

void TextReader::begin_structure() {
  const TextToken& token = m_tokens->next();
  if (token.kind != item_structure) throw_other(impl::kind_name(item_structure));
  open(token, Frame::structure);
}

void TextReader::end_structure() {
  if (m_frames.top() != Frame::structure) {
    impl::throw_no_structure(m_tokens->position(),
                             text_reader_site("ovserialize::Reader::end_structure()"));
  }
  const TextToken& token = m_tokens->next();
  if (token.mark == Mark::sequence_end) {
    m_tokens->throw_malformed("the end of a sequence in a structure", token.at);
  }
  if (token.mark != Mark::structure_end) throw_other("the end of a structure");
  m_tokens->take();
  end_item();
  m_frames.pop();
}

// Something else than what was asked for: another item, no item, or nothing at all.
void TextReader::throw_other(const char* expected) {
  const TextToken& token = m_tokens->next();
  constexpr impl::RaiseSite here = text_reader_site("ovserialize::TextReader::throw_other()");
  switch (token.mark) {
    case Mark::item:
      impl::throw_kind(token.at, expected, impl::kind_name(token.kind), here);
    case Mark::sequence_end:
      impl::throw_kind(token.at, expected, "the end of a sequence", here);
    case Mark::structure_end:
      impl::throw_kind(token.at, expected, "the end of a structure", here);
    case Mark::malformed:
      m_tokens->throw_malformed(token.reason, token.at);
    default:
      m_tokens->throw_truncated();
  }
}

}  // namespace ovserialize
