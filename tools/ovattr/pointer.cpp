// SPDX-License-Identifier: Apache-2.0
#include "tools/ovattr/pointer.h"

#include <charconv>
#include <cstddef>
#include <utility>

#include "ovattribute/attribute_map.h"
#include "ovattribute/error_codes.h"
#include "ovcore/error_composer.h"

namespace ovattr {
namespace {

using ovattribute::AttributeMap;
using ovattribute::AttributeValue;
using ovattribute::MutableAttributeMap;
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

/// The attribute of that name, null when the value is not one map that has it.
const AttributeValue* attribute_of(const AttributeValue& value, const std::string& name) {
  const bool is_map = value.type() == ValueTypeId::typeAttributeMap && value.size() == 1;
  return is_map ? value.get<AttributeMap>().query_ptr(name) : nullptr;
}

std::optional<AttributeValue> child_of(const AttributeValue& value, const std::string& token) {
  if (const AttributeValue* child = attribute_of(value, token); child != nullptr) return *child;
  const std::optional<std::size_t> index = index_of(token);
  if (!index || *index >= value.size()) return std::nullopt;
  return value.size() == 1 ? value : value.subrange(*index, 1);
}

/// The map or list of maps with another child at a token.
AttributeValue with_child(const AttributeValue& around, const std::string& token,
                          AttributeValue child) {
  if (attribute_of(around, token) != nullptr) {
    MutableAttributeMap map(around.get<AttributeMap>());
    map.add(token, std::move(child));
    return AttributeValue(AttributeMap(std::move(map)));
  }
  if (around.size() == 1) return child;
  const auto elements = around.elements<AttributeMap>();
  std::vector<AttributeMap> maps(elements.begin(), elements.end());
  maps[*index_of(token)] = child.get<AttributeMap>();
  return AttributeValue::list_of(maps);
}

[[noreturn]] void raise(const char* message, const std::string& pointer) {
  ovcore::ErrorComposer(message)
      .add("pointer", pointer)
      .throw_error(ovattribute::error::ovattribute_invalidParameter,
                   {"tools/ovattr/pointer", "ovattr::Pointer::replace_in()", 0});
}

}  // namespace

std::optional<Pointer> Pointer::parse(const std::string& text) {
  Pointer result;
  result.m_text = text;
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

std::string Pointer::escaped(const std::string& name) {
  std::string result;
  for (const char c : name) {
    if (c == '~') {
      result += "~0";
    } else if (c == '/') {
      result += "~1";
    } else {
      result += c;
    }
  }
  return result;
}

Place Place::at(std::string token) const {
  Place inside;
  inside.m_step = std::make_shared<const Step>(Step{m_step, std::move(token)});
  return inside;
}

std::string Place::pointer() const {
  std::vector<const Step*> steps;
  for (const Step* step = m_step.get(); step != nullptr; step = step->around.get())
    steps.push_back(step);
  std::string text;
  for (auto step = steps.rbegin(); step != steps.rend(); ++step)
    text += '/' + Pointer::escaped((*step)->token);
  return text;
}

AttributeValue Pointer::replace_in(const AttributeValue& whole, const Change& change) const {
  std::vector<AttributeValue> around;  // a loop, since a pointer may be of any length
  AttributeValue value = whole;
  for (const std::string& token : m_tokens) {
    std::optional<AttributeValue> child = child_of(value, token);
    if (!child) raise("Nothing at {@pointer}", m_text);
    around.push_back(std::move(value));
    value = std::move(*child);
  }
  if (!around.empty() && attribute_of(around.back(), m_tokens.back()) == nullptr) {
    raise("{@pointer} is an element of a list, not an attribute", m_text);
  }
  value = change(value);
  for (; !around.empty(); around.pop_back())
    value = with_child(around.back(), m_tokens[around.size() - 1], std::move(value));
  return value;
}

}  // namespace ovattr
