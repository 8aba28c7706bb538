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

[[noreturn]] void raise(const char* message, const std::vector<std::string>& tokens) {
  std::string pointer;
  for (const std::string& token : tokens)
    pointer += '/' + Pointer::escaped(token);
  ovcore::ErrorComposer(message)
      .add("pointer", pointer)
      .throw_error(ovattribute::error::ovattribute_invalidParameter,
                   {"tools/ovattr/pointer", "ovattr::Pointer::replace_in()", 0});
}

/// The list with another map at an index.
AttributeValue with_map(const AttributeValue& list, std::size_t index, const AttributeValue& map) {
  const auto elements = list.elements<AttributeMap>();
  std::vector<AttributeMap> maps(elements.begin(), elements.end());
  maps[index] = map.get<AttributeMap>();
  return AttributeValue::list_of(maps);
}

AttributeValue replaced(const AttributeValue& value, const std::vector<std::string>& tokens,
                        std::size_t done, const Pointer::Change& change) {
  if (done == tokens.size()) return change(value);
  const std::string& token = tokens[done];
  const bool is_map = value.type() == ValueTypeId::typeAttributeMap;
  if (is_map && value.size() == 1) {
    const AttributeMap& map = value.get<AttributeMap>();
    if (const AttributeValue* child = map.query_ptr(token); child != nullptr) {
      ovattribute::MutableAttributeMap result(map);
      result.add(token, replaced(*child, tokens, done + 1, change));
      return AttributeValue(AttributeMap(std::move(result)));
    }
  }
  const std::optional<std::size_t> index = index_of(token);
  if (!index || *index >= value.size()) raise("Nothing at {@pointer}", tokens);
  if (done + 1 == tokens.size()) {
    raise("{@pointer} is an element of a list, not an attribute", tokens);
  }
  if (value.size() == 1) return replaced(value, tokens, done + 1, change);
  const AttributeValue element = replaced(value.subrange(*index, 1), tokens, done + 1, change);
  return with_map(value, *index, element);
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
  return replaced(whole, m_tokens, 0, change);
}

}  // namespace ovattr
