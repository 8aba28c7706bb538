// SPDX-License-Identifier: Apache-2.0
// The sealed values of a document, found and judged under one key.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "ovattribute/attribute_value.h"
#include "ovattribute/secured_value.h"
#include "ovcore/uuid.h"
#include "tools/ovattr/pointer.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace ovattr {

/// Adds --at.
CLI::Option* add_at_option(CLI::App& command, std::optional<Pointer>& at, const char* description);
/// What --key-id says. Raises a usage error for what is no UUID.
[[nodiscard]] ovcore::Uuid key_id_of_option(const std::string& text);

/// Which sealed values must be authentic: all, unless an option asks for only some.
struct Choice {
  std::optional<Pointer> at;           // only the one there
  std::optional<ovcore::Uuid> key_id;  // only those that bear it
  bool others = false;                 // only those that bear the key id of an authentic one
};

/// Adds --at, --key-id and --others, of which at most one can be given.
void add_choice_options(CLI::App& command, Choice& choice, const char* at_description);

/// Opens or checks a sealed value; raises an error when it is not authentic. What it gives, if
/// anything, takes the place of the sealed value.
using Visit = std::function<std::optional<ovattribute::AttributeValue>(
    const ovattribute::SecuredValue& sealed)>;

/// Visits the value that a pointer leads to. Raises an error unless it is one sealed value.
std::optional<ovattribute::AttributeValue> visit_one(const std::string& file,
                                                     const Pointer& pointer,
                                                     const ovattribute::AttributeValue& value,
                                                     const Visit& visit);

/// Visits every chosen sealed value, also those in what takes a place, and gives the document with
/// the places taken. Raises an error when there is none, and when one fails: of several errors a
/// failed authentication goes first. An element of a list of sealed values cannot be replaced,
/// since what is in the others may be of another type. Says on standard error how many were passed
/// over. `choice`: without a pointer.
[[nodiscard]] ovattribute::AttributeValue visit_all(const std::string& file,
                                                    const ovattribute::AttributeValue& whole,
                                                    const Choice& choice, const Visit& visit);

}  // namespace ovattr
