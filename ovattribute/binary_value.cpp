// SPDX-License-Identifier: Apache-2.0
#include "ovattribute/binary_value.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "ovattribute/error_codes.h"
#include "ovcore/error_composer.h"

namespace ovattribute {
namespace {

using Buffer = std::unique_ptr<unsigned char[]>;

Buffer make_buffer(std::size_t size) {
  return size > 0 ? Buffer(new unsigned char[size]) : Buffer();
}

void copy_bytes(unsigned char* to, const unsigned char* from, std::size_t size) noexcept {
  if (size > 0) std::memmove(to, from, size);
}

}  // namespace

void BinaryValue::set(const unsigned char* data, std::size_t size) {
  if (size == m_size) {
    copy_bytes(m_data.get(), data, size);
    return;
  }
  Buffer buffer = make_buffer(size);
  copy_bytes(buffer.get(), data, size);
  m_data = std::move(buffer);
  m_size = size;
}

void BinaryValue::set(ovcore::IReadStream& stream) {
  const std::uint64_t size = stream.remaining();
  if (size == ovcore::IReadStream::unknown) return set_from_unknown_length(stream);
  if (size > max_stream_size) {
    ovcore::ErrorComposer("Attribute value BLOB cannot be larger than {@maxSize} bytes.")
        .add("maxSize", max_stream_size)
        .add("size", size)
        .throw_error(error::ovattribute_value_binary_size,
                     {"ovattribute/binary_value", "ovattribute::BinaryValue::set()", 87});
  }
  Buffer buffer = make_buffer(size);
  unsigned char nothing;  // no stream gets a null pointer to read to
  m_size = stream.read(buffer ? buffer.get() : &nothing, size);
  m_data = std::move(buffer);
}

void BinaryValue::set_from_unknown_length(ovcore::IReadStream& stream) {
  unsigned char first[4096];
  std::size_t total = stream.read(first, sizeof first);
  if (total < sizeof first) return set(first, total);

  std::size_t capacity = 2 * sizeof first;
  Buffer buffer = make_buffer(capacity);
  copy_bytes(buffer.get(), first, total);
  for (;;) {
    total += stream.read(buffer.get() + total, capacity - total);
    if (total < capacity) break;
    Buffer larger = make_buffer(2 * capacity);
    copy_bytes(larger.get(), buffer.get(), total);
    buffer = std::move(larger);
    capacity *= 2;
  }
  set(buffer.get(), total);
}

void BinaryValue::resize(std::size_t size) {
  if (size == m_size) return;
  Buffer buffer = make_buffer(size);
  const std::size_t kept = std::min(size, m_size);
  copy_bytes(buffer.get(), m_data.get(), kept);
  if (size > kept) std::memset(buffer.get() + kept, 0, size - kept);
  m_data = std::move(buffer);
  m_size = size;
}

int BinaryValue::compare(const BinaryValue& other) const noexcept {
  const std::size_t common = std::min(m_size, other.m_size);
  const int order = common > 0 ? std::memcmp(m_data.get(), other.m_data.get(), common) : 0;
  if (order != 0) return order;
  return m_size < other.m_size ? -1 : m_size > other.m_size ? 1 : 0;
}

std::size_t BinaryValue::hash() const noexcept {
  std::uint32_t h = 0;
  for (std::size_t i = 0; i < m_size; ++i)
    h = h * 5 + m_data[i];
  return h;
}

}  // namespace ovattribute
