// SPDX-License-Identifier: Apache-2.0
#include "tools/ovattr/sealed_values.h"

#include <CLI/CLI.hpp>
#include <utility>

#include "ovattribute/attribute_map.h"
#include "ovattribute/error_codes.h"
#include "ovattribute/nesting.h"
#include "ovcore/error_composer.h"
#include "tools/ovattr/command.h"

namespace ovattr {
namespace {

using ovattribute::AttributeMap;
using ovattribute::AttributeValue;
using ovattribute::MutableAttributeMap;
using ovattribute::SecuredValue;
using ovattribute::ValueTypeId;

[[noreturn]] void raise(const char* message, const std::string& pointer) {
  ovcore::ErrorComposer(message)
      .add("pointer", pointer)
      .throw_error(ovattribute::error::ovattribute_invalidParameter,
                   {"tools/ovattr/sealed_values", "ovattr::visit_sealed()", 0});
}

class Visitor {
 public:
  explicit Visitor(const Visit& visit) : m_visit(visit) {}

  /// Whether the value has changed.
  bool visit(AttributeValue& value, const Place& place, std::size_t depth) {
    if (depth > ovattribute::nesting_limit()) raise("Sealed values nest too deep", place.pointer());
    if (value.type() == ValueTypeId::typeSecured) return visit_secured(value, place, depth);
    if (value.type() == ValueTypeId::typeAttributeMap) return visit_maps(value, place, depth);
    return false;
  }

 private:
  bool visit_secured(AttributeValue& value, const Place& place, std::size_t depth) {
    if (value.size() != 1) {
      visit_list(value, place);
      return false;
    }
    std::optional<AttributeValue> inside = m_visit(value.get<SecuredValue>(), place);
    if (!inside) return false;
    visit(*inside, place, depth + 1);
    value = std::move(*inside);
    return true;
  }

  void visit_list(const AttributeValue& list, const Place& place) {
    for (std::size_t i = 0; i < list.size(); ++i) {
      const Place inside = place.at(std::to_string(i));
      if (m_visit(list.at<SecuredValue>(i), inside)) {
        raise("{@pointer} is an element of a list, which cannot be opened by itself",
              inside.pointer());
      }
    }
  }

  bool visit_maps(AttributeValue& value, const Place& place, std::size_t depth) {
    const auto elements = value.elements<AttributeMap>();
    std::vector<AttributeMap> maps(elements.begin(), elements.end());
    bool any = false;
    for (std::size_t i = 0; i < maps.size(); ++i) {
      const Place inside = maps.size() == 1 ? place : place.at(std::to_string(i));
      if (visit_map(maps[i], inside, depth)) any = true;
    }
    if (any) value = AttributeValue::list_of(maps);
    return any;
  }

  bool visit_map(AttributeMap& map, const Place& place, std::size_t depth) {
    MutableAttributeMap changed(map);
    bool any = false;
    for (const auto& entry : std::as_const(map)) {
      AttributeValue value = entry.second;
      if (!visit(value, place.at(entry.first.value()), depth + 1)) continue;
      changed.add(entry.first, std::move(value));
      any = true;
    }
    if (any) map = AttributeMap(std::move(changed));
    return any;
  }

  const Visit& m_visit;
};

}  // namespace

void add_at_option(CLI::App& command, std::string& text, const char* description) {
  command.add_option("--at", text, description)->option_text("POINTER");
}

Pointer pointer_of_option(const std::string& text) {
  std::optional<Pointer> pointer = Pointer::parse(text);
  if (!pointer) throw UsageError("--at: " + text + " is not a JSON pointer");
  return std::move(*pointer);
}

const SecuredValue& sealed_value(const AttributeValue& value, const std::string& pointer) {
  if (value.type() != ValueTypeId::typeSecured || value.size() != 1) {
    raise("What is at '{@pointer}' is not sealed", pointer);
  }
  return value.get<SecuredValue>();
}

std::string place_in(const std::string& file, const Place& place) {
  return place.is_whole() ? file : file + ": " + place.pointer();
}

AttributeValue visit_sealed(const AttributeValue& whole, const Visit& visit) {
  AttributeValue value = whole;
  Visitor(visit).visit(value, {}, 0);
  return value;
}

bool is_refusal(const ovcore::ErrorInfo& error) {
  namespace codes = ovattribute::error;
  return error.code() == codes::ovattribute_value_secured_keysize ||
         error.code() == codes::ovattribute_value_secured_ciphertext ||
         error.code() == codes::ovattribute_value_secured_authentication ||
         error.code() == codes::ovattribute_value_secured_cipher_unknown;
}

void KeyFindings::add_authentic(const SecuredValue& sealed) {
  m_authentic.insert(sealed.key_id());
}

void KeyFindings::add_refused(const SecuredValue& sealed, Place place, ErrorInfoPtr why) {
  m_refused.push_back({sealed.key_id(), std::move(place), std::move(why)});
}

void KeyFindings::judge(const std::string& file) const {
  if (m_authentic.empty() && m_refused.empty()) fail(file, "There is no sealed value");
  for (const Refusal& refusal : m_refused) {
    if (!m_authentic.empty() && !m_authentic.contains(refusal.key_id)) continue;
    throw FileFailure(place_in(file, refusal.place), refusal.why);
  }
  if (m_refused.empty()) return;
  report(file + ": " + std::to_string(m_refused.size()) +
         " sealed under other keys, or changed; the first is " + m_refused.front().place.pointer());
}

}  // namespace ovattr
