// SPDX-License-Identifier: Apache-2.0
#include "ovcrypto/key.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "ovcore/error_composer.h"
#include "ovcore/exception.h"
#include "ovcrypto/error_codes.h"
#include "ovcrypto/impl/libcrypto.h"
#include "ovcrypto/wiped.h"

namespace ovcrypto {
namespace {

void check_size(std::uint64_t size, const char* function) {
  if (size <= Key::max_size) return;
  ovcore::ErrorComposer("Key cannot be larger than {@maxSize} bytes")
      .add("maxSize", Key::max_size)
      .throw_error(error::ovcrypto_key_size, {"ovcrypto/key", function, 0});
}

}  // namespace

Key::Key(std::size_t size) {
  check_size(size, "ovcrypto::Key::Key()");
  reallocate(size);
}

Key::Key(const void* data, std::size_t size) : Key(size) {
  if (size > 0) std::memcpy(m_data, data, size);
}

Key Key::random(std::size_t size) {
  Key key(size);
  if (!impl::fill_random(key.m_data, size, impl::Generator::secret)) {
    ovcore::throw_error(error::ovcrypto_randomProvider_failed, "No random bytes for a key",
                        {"ovcrypto/key", "ovcrypto::Key::random()", 0});
  }
  return key;
}

Key::~Key() {
  if (m_data == nullptr) return;
  wipe(m_data, m_size);
  delete[] m_data;
}

bool Key::equals(const Key& other) const noexcept {
  return m_size == other.m_size && equal_in_constant_time(m_data, other.m_data, m_size);
}

void Key::resize(std::size_t size) {
  check_size(size, "ovcrypto::Key::resize()");
  reallocate(size);
}

void Key::reallocate(std::size_t size) {
  if (size == m_size) return;
  Key resized;
  if (size > 0) {
    resized.m_data = new unsigned char[size]();
    resized.m_size = size;
    if (m_size > 0) std::memcpy(resized.m_data, m_data, std::min(size, m_size));
  }
  swap(resized);
}

void Key::read(ovcore::IReadStream& stream) {
  constexpr const char* function = "ovcrypto::Key::read()";
  constexpr std::size_t first_size = 64;  // holds most keys

  const std::uint64_t announced = stream.remaining();
  if (announced != ovcore::IReadStream::unknown) {
    check_size(announced, function);
    Key key(static_cast<std::size_t>(announced));
    unsigned char nothing;  // no stream gets a null pointer to read to
    key.reallocate(stream.read(key.m_size > 0 ? key.m_data : &nothing, key.m_size));
    return swap(key);
  }

  Key key(first_size);
  std::size_t total = stream.read(key.m_data, key.m_size);
  while (total == key.m_size) {
    // At the limit there is room for one byte more, which shows what is too large.
    key.reallocate(std::min(2 * total, max_size + 1));
    total += stream.read(key.m_data + total, key.m_size - total);
    check_size(total, function);
  }
  key.reallocate(total);
  swap(key);
}

}  // namespace ovcrypto
