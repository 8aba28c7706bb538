// SPDX-License-Identifier: Apache-2.0
// The sealed values of a document, found and judged under one key.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "ovattribute/attribute_value.h"
#include "ovattribute/secured_value.h"
#include "ovcore/ref_count.h"
#include "tools/ovattr/pointer.h"

namespace CLI {
class App;
}

namespace ovattr {

using ErrorInfoPtr = ovattribute::SecuredValue::ErrorInfoPtr;

/// Adds --at.
void add_at_option(CLI::App& command, std::string& text, const char* description);
/// What --at says. Raises a usage error for what is no pointer.
[[nodiscard]] Pointer pointer_of_option(const std::string& text);

/// The one sealed value. Raises an error for any other value.
[[nodiscard]] const ovattribute::SecuredValue& sealed_value(
    const ovattribute::AttributeValue& value, const std::string& pointer);

/// What messages call a place in a file.
[[nodiscard]] std::string place_in(const std::string& file, const Place& place);

/// What takes the place of a sealed value, if anything.
using Visit = std::function<std::optional<ovattribute::AttributeValue>(
    const ovattribute::SecuredValue& sealed, const Place& place)>;

/// Gives the value with every sealed value in it, at any depth, replaced as `visit` says; what
/// takes a place is searched too. Raises an error when an element of a list of sealed values would
/// have to be replaced: what is in them need not be of one type.
[[nodiscard]] ovattribute::AttributeValue visit_sealed(const ovattribute::AttributeValue& whole,
                                                       const Visit& visit);

/// Which sealed values are under a key can only be told by their being authentic, and by their
/// carrying the key id of one that is.
class KeyFindings {
 public:
  void add_authentic(const ovattribute::SecuredValue& sealed);
  /// `why`: what opening or checking raised.
  void add_refused(const ovattribute::SecuredValue& sealed, Place place, ErrorInfoPtr why);

  /// Raises the first refusal unless some value is authentic; also that of a value which carries
  /// the key id of an authentic one. Says on standard error how many others there are.
  void judge(const std::string& file) const;

 private:
  struct Refusal {
    ovattribute::SecuredValue::KeyId key_id;
    Place place;
    ErrorInfoPtr why;
  };

  std::set<ovattribute::SecuredValue::KeyId> m_authentic;
  std::vector<Refusal> m_refused;
};

/// Whether the error says that key and sealed value do not belong together.
[[nodiscard]] bool is_refusal(const ovcore::ErrorInfo& error);

}  // namespace ovattr
