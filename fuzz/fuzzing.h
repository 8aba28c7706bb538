// SPDX-License-Identifier: Apache-2.0
// What the fuzzers share: which failures input may cause, and how a broken property is reported.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "ovattribute/attribute_value.h"
#include "ovattribute/attribute_value_marshaler.h"
#include "ovcore/exception.h"
#include "ovserialize/memory_reader.h"
#include "ovserialize/memory_writer.h"

namespace ovfuzz {

/// Ends the process, so that the fuzzer keeps the input.
inline void require(bool holds, const char* property) {
  if (holds) return;
  std::fprintf(stderr, "broken property: %s\n", property);
  std::abort();
}

/// Runs what input may make fail: with an error of the catalog or an index out of range. Any other
/// exception ends the process. Returns the message, empty on success.
template <class F>
std::string failure_of(F&& f) {
  try {
    f();
  } catch (const ovcore::Exception& e) {
    require(!e.code().empty() && e.what()[0] != '\0', "an error has a code and a message");
    return e.what();
  } catch (const std::out_of_range& e) {
    return e.what();
  }
  return {};
}

/// Takes settings off the front of the input.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) noexcept
      : m_rest(reinterpret_cast<const char*>(data), size) {}

  /// 0 when nothing is left.
  std::uint8_t byte() noexcept {
    if (m_rest.empty()) return 0;
    const auto result = static_cast<std::uint8_t>(m_rest.front());
    m_rest.remove_prefix(1);
    return result;
  }
  std::string_view bytes(std::size_t size) noexcept {
    const std::string_view result = m_rest.substr(0, size);
    m_rest.remove_prefix(result.size());
    return result;
  }
  [[nodiscard]] bool empty() const noexcept { return m_rest.empty(); }
  [[nodiscard]] std::string_view rest() const noexcept { return m_rest; }

 private:
  std::string_view m_rest;
};

inline std::string text_of(const ovserialize::MemoryList& list) {
  std::string result(list.size(), '\0');
  list.copy_to(result.data(), 0, list.size());
  return result;
}

/// The binary form.
inline std::string binary_of(const ovattribute::AttributeValue& value) {
  ovserialize::MemoryWriter writer;
  write_attribute_value(writer, value);
  return text_of(*writer.memory_list());
}

inline ovattribute::AttributeValue value_of(std::string_view binary) {
  ovserialize::MemoryReader reader(binary.data(), binary.size());
  return ovattribute::read_attribute_value(reader);
}

}  // namespace ovfuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
