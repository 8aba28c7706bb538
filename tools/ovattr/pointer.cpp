// SPDX-License-Identifier: Apache-2.0
#include "tools/ovattr/pointer.h"

#include <charconv>
#include <cstddef>

#include "ovattribute/attribute_map.h"

namespace ovattr {
namespace {

using ovattribute::AttributeMap;
using ovattribute::AttributeValue;
using ovattribute::ValueTypeId;

/// Without its escapes; empty when one is broken.
std::optional<std::string> unescaped(std::string_view token) {
  std::string result;
  for (std::size_t i = 0; i < token.size(); ++i) {
    if (token[i] != '~') {
      result += token[i];
      continue;
    }
    if (++i == token.size() || (token[i] != '0' && token[i] != '1')) return std::nullopt;
    result += token[i] == '0' ? '~' : '/';
  }
  return result;
}

/// Decimal without leading zeros.
std::optional<std::size_t> index_of(std::string_view token) {
  if (token.empty() || (token.size() > 1 && token.front() == '0')) return std::nullopt;
  std::size_t index = 0;
  const auto [end, error] = std::from_chars(token.data(), token.data() + token.size(), index);
  if (error != std::errc() || end != token.data() + token.size()) return std::nullopt;
  return index;
}

std::optional<AttributeValue> child_of(const AttributeValue& value, const std::string& token) {
  if (value.type() == ValueTypeId::typeAttributeMap && value.size() == 1) {
    const AttributeValue* child = value.get<AttributeMap>().query_ptr(token);
    if (child != nullptr) return *child;
  }
  const std::optional<std::size_t> index = index_of(token);
  if (!index || *index >= value.size()) return std::nullopt;
  return value.size() == 1 ? value : value.subrange(*index, 1);
}

}  // namespace

std::optional<Pointer> Pointer::parse(const std::string& text) {
  Pointer result;
  std::string_view rest = text;
  while (!rest.empty()) {
    if (rest.front() != '/') return std::nullopt;
    rest.remove_prefix(1);
    const std::size_t end = std::min(rest.find('/'), rest.size());
    std::optional<std::string> token = unescaped(rest.substr(0, end));
    if (!token) return std::nullopt;
    result.m_tokens.push_back(std::move(*token));
    rest.remove_prefix(end);
  }
  return result;
}

std::optional<AttributeValue> Pointer::find_in(const AttributeValue& whole) const {
  std::optional<AttributeValue> value = whole;
  for (const std::string& token : m_tokens) {
    value = child_of(*value, token);
    if (!value) break;
  }
  return value;
}

}  // namespace ovattr
