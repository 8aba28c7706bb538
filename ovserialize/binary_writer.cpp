// SPDX-License-Identifier: Apache-2.0
#include "ovserialize/binary_writer.h"

#include <bit>
#include <cstring>

#include "ovcore/utf8.h"
#include "ovserialize/impl/format.h"
#include "ovserialize/impl/raise.h"
#include "ovserialize/item_kind.h"

namespace ovserialize {
namespace {

constexpr impl::RaiseSite binary_writer_site(const char* function) {
  return {"ovserialize/binary_writer", function};
}

}  // namespace

template <class Store>
void BinaryWriter::emit(Store&& store) {
  if (room() >= impl::max_item) {
    m_cursor = store(m_cursor);
    return;
  }
  unsigned char item[impl::max_item];
  const unsigned char* const end = store(item);
  write_slow({item, static_cast<std::size_t>(end - item)}, {nullptr, 0});
}

void BinaryWriter::emit_byte(unsigned char byte) {
  if (m_cursor != m_end) {
    *m_cursor++ = byte;
  } else {
    write_slow({&byte, 1}, {nullptr, 0});
  }
}

void BinaryWriter::emit_block(Bytes head, Bytes body) {
  if (room() < head.size + body.size) return write_slow(head, body);
  std::memcpy(m_cursor, head.data, head.size);
  if (body.size > 0) std::memcpy(m_cursor + head.size, body.data, body.size);
  m_cursor += head.size + body.size;
}

bool BinaryWriter::put_in_window(Bytes bytes) noexcept {
  if (room() < bytes.size) return false;
  if (bytes.size > 0) std::memcpy(m_cursor, bytes.data, bytes.size);
  m_cursor += bytes.size;
  return true;
}

bool BinaryWriter::rewind_window(std::uint64_t offset) noexcept {
  if (offset < m_window_offset) return false;
  m_cursor = m_window + (offset - m_window_offset);
  return true;
}

void BinaryWriter::write_null() {
  emit_byte(impl::byte_null);
}

void BinaryWriter::put_boolean(bool value) {
  emit_byte(value ? impl::byte_true : impl::byte_false);
}

void BinaryWriter::put_integer(std::int64_t value) {
  emit([value](unsigned char* out) { return impl::store_integer(out, value); });
}

void BinaryWriter::put_unsigned(std::uint64_t value) {
  if (value < impl::unsigned_tiny_end) {
    return emit_byte(static_cast<unsigned char>(impl::byte_unsigned_tiny | value));
  }
  emit([value](unsigned char* out) {
    if (value < impl::unsigned_tagged_from) {
      out[0] = impl::byte_unsigned;
      out[1] = static_cast<unsigned char>(value + impl::unsigned_bias);
      return out + 2;
    }
    out = impl::store_head(out, impl::major_tag, impl::tag_unsigned);
    return impl::store_head(out, impl::major_positive, value);
  });
}

void BinaryWriter::put_double(double value) {
  emit([value](unsigned char* out) {
    *out = impl::byte_double;
    return impl::store_big(out + 1, std::bit_cast<std::uint64_t>(value));
  });
}

void BinaryWriter::put_string(std::string_view text) {
  if (text.size() < impl::inline_end && text.size() < room() &&
      text.size() <= limits().max_string && ovcore::is_ascii(text)) {
    *m_cursor = static_cast<unsigned char>(impl::major_text | text.size());
    impl::copy_short(m_cursor + 1, text.data(), text.size());
    m_cursor += 1 + text.size();
    return;
  }
  if (text.size() > limits().max_string) {
    impl::throw_writer_size(item_string, text.size(), limits().max_string,
                            binary_writer_site("ovserialize::Writer::operator<<()"));
  }
  unsigned char head[2 * impl::max_head];
  unsigned char* end = head;
  unsigned char major = impl::major_text;
  if (!ovcore::is_utf8(text)) {
    end = impl::store_head(end, impl::major_tag, impl::tag_string);
    major = impl::major_bytes;
  }
  end = impl::store_head(end, major, text.size());
  emit_block({head, static_cast<std::size_t>(end - head)},
             {reinterpret_cast<const unsigned char*>(text.data()), text.size()});
}

void BinaryWriter::put_time(std::uint64_t tag, std::int64_t microseconds) {
  const ovcore::TimeParts parts = ovcore::RelativeTime::from_microseconds(microseconds).parts();
  emit([tag, &parts](unsigned char* out) {
    const bool fraction = parts.microseconds != 0;
    out = impl::store_head(out, impl::major_tag, tag);
    *out++ = impl::major_map | (fraction ? 2 : 1);
    *out++ = impl::key_seconds;
    out = impl::store_integer(out, parts.seconds);
    if (!fraction) return out;
    *out++ = impl::key_microseconds;
    return impl::store_head(out, impl::major_positive, parts.microseconds);
  });
}

void BinaryWriter::put_absolute_time(std::int64_t microseconds) {
  put_time(impl::tag_absolute_time, microseconds);
}

void BinaryWriter::put_relative_time(std::int64_t microseconds) {
  put_time(impl::tag_relative_time, microseconds);
}

void BinaryWriter::put_uuid(const ovcore::Uuid& uuid) {
  emit([&uuid](unsigned char* out) {
    const auto& data = uuid.data();
    out = impl::store_head(out, impl::major_tag, impl::tag_uuid);
    out = impl::store_head(out, impl::major_bytes, data.size());
    std::memcpy(out, data.data(), data.size());
    return out + data.size();
  });
}

void BinaryWriter::put_binary(const void* data, std::size_t size) {
  if (size > limits().max_binary) {
    impl::throw_writer_size(item_binary, size, limits().max_binary,
                            binary_writer_site("ovserialize::Writer::write_binary()"));
  }
  unsigned char head[impl::max_head];
  const unsigned char* const end = impl::store_head(head, impl::major_bytes, size);
  emit_block({head, static_cast<std::size_t>(end - head)},
             {static_cast<const unsigned char*>(data), size});
}

void BinaryWriter::put_memory_list(const MemoryList* list) {
  const std::size_t size = list != nullptr ? list->size() : 0;
  if (size == 0) return put_binary(nullptr, 0);
  if (const auto first = list->span(0); first.size() == size && size <= room()) {
    return put_binary(first.data(), size);
  }
  if (size > limits().max_binary) {
    impl::throw_writer_size(
        item_binary, size, limits().max_binary,
        binary_writer_site("ovserialize::Writer::write_memory_list_as_binary()"));
  }
  unsigned char head[impl::max_head];
  const unsigned char* const end = impl::store_head(head, impl::major_bytes, size);
  write_list({head, static_cast<std::size_t>(end - head)}, *list);
}

// Before the mark is written, so that nothing is left to fail behind it.
void BinaryWriter::open(Frame frame) {
  if (m_frames.depth() >= limits().max_depth) {
    impl::throw_writer_depth(
        limits().max_depth,
        binary_writer_site(frame == Frame::structure ? "ovserialize::Writer::begin_structure()"
                                                     : "ovserialize::Writer::begin_sequence()"));
  }
  m_frames.reserve();
}

void BinaryWriter::begin_sequence(std::uint64_t count) {
  if (count == 1) {
    open(Frame::single);
    emit_byte(impl::byte_sequence_of_one);
    m_frames.push(Frame::single);
    m_single_start = size();
    return;
  }
  open(Frame::counted);
  emit([count](unsigned char* out) {
    *out = impl::byte_sequence;
    return impl::store_head(out + 1, impl::major_positive, count);
  });
  m_frames.push(Frame::counted);
}

void BinaryWriter::next_element() {
  if (m_frames.top() == Frame::counted) return;
  impl::throw_next_element(m_frames.top() == Frame::single,
                           binary_writer_site("ovserialize::Writer::next_element()"));
}

void BinaryWriter::end_sequence() {
  const Frame frame = m_frames.top();
  if (frame == Frame::counted) {
    emit_byte(impl::byte_sequence_end);
  } else if (frame != Frame::single || m_single_start == size()) {
    impl::throw_end_sequence(frame == Frame::single,
                             binary_writer_site("ovserialize::Writer::end_sequence()"));
  }
  m_frames.pop();
}

void BinaryWriter::begin_structure() {
  open(Frame::structure);
  emit_byte(impl::byte_structure);
  m_frames.push(Frame::structure);
}

void BinaryWriter::end_structure() {
  if (m_frames.top() != Frame::structure) {
    impl::throw_end_structure(binary_writer_site("ovserialize::Writer::end_structure()"));
  }
  emit_byte(impl::byte_structure_end);
  m_frames.pop();
}

Writer::Mark BinaryWriter::mark() const noexcept {
  return {.position = size(), .frames = m_frames.mark(), .single_start = m_single_start};
}

void BinaryWriter::roll_back(const Mark& mark) noexcept {
  m_frames.return_to(mark.frames);
  m_single_start = mark.single_start;
  rewind(mark.position);
}

void BinaryWriter::check_complete() const {
  if (m_frames.depth() == 0) return;
  impl::throw_still_open(m_frames.top() == Frame::structure,
                         binary_writer_site("ovserialize::BinaryWriter::check_complete()"));
}

}  // namespace ovserialize
