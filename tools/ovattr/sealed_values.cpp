// SPDX-License-Identifier: Apache-2.0
#include "tools/ovattr/sealed_values.h"

#include <CLI/CLI.hpp>
#include <cstddef>
#include <set>
#include <utility>
#include <vector>

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

[[noreturn]] void raise_at(const char* message, const std::string& pointer) {
  ovcore::ErrorComposer(message)
      .add("pointer", pointer)
      .throw_error(ovattribute::error::ovattribute_invalidParameter,
                   {"tools/ovattr/sealed_values", "ovattr::visit_sealed()", 0});
}

/// Whether it may only mean that the value is under another key.
bool is_refusal(const ovcore::ErrorInfo& error) {
  namespace codes = ovattribute::error;
  return error.code() == codes::ovattribute_value_secured_keysize ||
         error.code() == codes::ovattribute_value_secured_ciphertext ||
         error.code() == codes::ovattribute_value_secured_authentication ||
         error.code() == codes::ovattribute_value_secured_cipher_unknown;
}

bool is_unauthentic(const ovcore::ErrorInfo& error) {
  return error.code() == ovattribute::error::ovattribute_value_secured_authentication;
}

/// What messages call a sealed value, of which `more` are like it.
std::string description(const std::string& file, const std::string& pointer,
                        const ovcore::Uuid& key_id, std::size_t more = 0) {
  return file + ": " + pointer + (pointer.empty() ? "" : " ") + "(key id " + key_id.as_string() +
         ")" + (more == 0 ? "" : " and " + std::to_string(more) + " more");
}

/// What became of the sealed values of a document.
class Findings {
 public:
  void add_authentic(const SecuredValue& sealed) { m_authentic.insert(sealed.key_id()); }
  void add_failure(const SecuredValue& sealed, Place place, SecuredValue::ErrorInfoPtr why) {
    m_failures.push_back({sealed.key_id(), std::move(place), std::move(why)});
  }
  void pass_over(const Place& place) {
    if (m_passed++ == 0) m_first_passed = place;
  }

  /// `others`: whether to pass over values of other keys, if some are of this one.
  void judge(const std::string& file, bool others) {
    const Failure* worst = nullptr;
    std::size_t count = 0;
    for (const Failure& failure : m_failures) {
      if (others && is_of_other_key(failure)) {
        pass_over(failure.place);
        continue;
      }
      ++count;
      if (worst == nullptr || (is_unauthentic(*failure.why) && !is_unauthentic(*worst->why))) {
        worst = &failure;
      }
    }
    if (worst != nullptr) {
      throw FileFailure(
          description(file, worst->place.pointer(), worst->key_id.instance_id(), count - 1),
          worst->why);
    }
    if (m_authentic.empty()) {
      fail(file, m_passed == 0 ? "There is no sealed value" : "No sealed value bears that key id");
    }
    if (m_passed == 0) return;
    report(file + ": " + std::to_string(m_passed) + " passed over; the first is at '" +
           m_first_passed.pointer() + "'");
  }

 private:
  struct Failure {
    SecuredValue::KeyId key_id;
    Place place;
    SecuredValue::ErrorInfoPtr why;
  };

  [[nodiscard]] bool is_of_other_key(const Failure& failure) const {
    return is_refusal(*failure.why) && !m_authentic.empty() &&
           !m_authentic.contains(failure.key_id);
  }

  std::set<SecuredValue::KeyId> m_authentic;
  std::vector<Failure> m_failures;
  std::size_t m_passed = 0;
  Place m_first_passed;
};

class Visitor {
 public:
  Visitor(const Choice& choice, const Visit& visit, Findings& findings)
      : m_choice(choice), m_visit(visit), m_findings(findings) {}

  /// Whether the value has changed.
  bool visit(AttributeValue& value, const Place& place, std::size_t depth) {
    // Maps may nest to the limit, so there is as much room again for seals around them.
    if (depth > 2 * ovattribute::nesting_limit()) {
      raise_at("Sealed values nest too deep", place.pointer());
    }
    if (value.type() == ValueTypeId::typeSecured) return visit_secured(value, place, depth);
    if (value.type() == ValueTypeId::typeAttributeMap) return visit_maps(value, place, depth);
    return false;
  }

 private:
  bool visit_secured(AttributeValue& value, const Place& place, std::size_t depth) {
    if (value.size() != 1) {
      for (std::size_t i = 0; i < value.size(); ++i)
        visit_sealed(value.at<SecuredValue>(i), place.at(std::to_string(i)), depth, true);
      return false;
    }
    auto inside = visit_sealed(value.get<SecuredValue>(), place, depth, false);
    if (!inside) return false;
    value = std::move(*inside);
    return true;
  }

  std::optional<AttributeValue> visit_sealed(const SecuredValue& sealed, const Place& place,
                                             std::size_t depth, bool in_list) {
    if (m_choice.key_id && sealed.key_id().instance_id() != *m_choice.key_id) {
      m_findings.pass_over(place);
      return std::nullopt;
    }
    try {
      std::optional<AttributeValue> inside = m_visit(sealed);
      m_findings.add_authentic(sealed);
      if (!inside) return std::nullopt;
      if (in_list) raise_at("An element of a list cannot be opened by itself", place.pointer());
      visit(*inside, place, depth + 1);
      return inside;
    } catch (const ovcore::Exception& e) {  // what else fails is found first
      m_findings.add_failure(sealed, place, e.info());
      return std::nullopt;
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

  const Choice& m_choice;
  const Visit& m_visit;
  Findings& m_findings;
};

}  // namespace

CLI::Option* add_at_option(CLI::App& command, std::optional<Pointer>& at, const char* description) {
  const auto parse = [&at](const std::string& text) {
    at = Pointer::parse(text);
    if (!at) throw UsageError("--at: " + text + " is not a JSON pointer");
  };
  return command.add_option_function<std::string>("--at", parse, description)
      ->option_text("POINTER");
}

ovcore::Uuid key_id_of_option(const std::string& text) {
  const std::optional<ovcore::Uuid> id = ovcore::Uuid::try_parse(text);
  if (!id) throw UsageError("--key-id: " + text + " is not a UUID");
  return *id;
}

void add_choice_options(CLI::App& command, Choice& choice, const char* at_description) {
  CLI::Option* const at = add_at_option(command, choice.at, at_description);
  CLI::Option* const key_id =
      command
          .add_option_function<std::string>(
              "--key-id",
              [&choice](const std::string& text) { choice.key_id = key_id_of_option(text); },
              "Only values that bear this key id; the others are passed over")
          ->option_text("UUID");
  command
      .add_flag("--others", choice.others,
                "Pass over values of other keys, which bear no key id of a value of this key")
      ->option_text("(not with --at, --key-id)")
      ->excludes(at)
      ->excludes(key_id);
  key_id->excludes(at);
}

std::optional<AttributeValue> visit_one(const std::string& file, const Pointer& pointer,
                                        const AttributeValue& value, const Visit& visit) {
  if (value.type() != ValueTypeId::typeSecured || value.size() != 1) {
    raise_at("What is at '{@pointer}' is not a sealed value", pointer.text());
  }
  const auto& sealed = value.get<SecuredValue>();
  return about_file(description(file, pointer.text(), sealed.key_id().instance_id()),
                    [&] { return visit(sealed); });
}

AttributeValue visit_all(const std::string& file, const AttributeValue& whole, const Choice& choice,
                         const Visit& visit) {
  Findings findings;
  AttributeValue value = whole;
  Visitor(choice, visit, findings).visit(value, {}, 0);
  findings.judge(file, choice.others);
  return value;
}

}  // namespace ovattr
