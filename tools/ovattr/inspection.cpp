// SPDX-License-Identifier: Apache-2.0
#include "tools/ovattr/inspection.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "ovcore/to_string.h"
#include "tools/ovattr/quoted.h"

namespace ovattr {
namespace {

using ovattribute::ValueTypeId;
using ovcore::to_string;

constexpr std::uint64_t last_type = ValueTypeId::idErrorInfo;

const std::string& type_name(ValueTypeId::EId type) {
  return ValueTypeId::from_id(type).name();
}

/// The type that an item alone tells, if it is one.
std::optional<ValueTypeId::EId> native_type(int kind) {
  switch (kind) {
    case ovserialize::item_null:
      return ValueTypeId::idNull;
    case ovserialize::item_boolean:
      return ValueTypeId::idBoolean;
    case ovserialize::item_integer:
      return ValueTypeId::idInteger;
    case ovserialize::item_double:
      return ValueTypeId::idDouble;
    case ovserialize::item_string:
      return ValueTypeId::idString;
    case ovserialize::item_absolute_time:
      return ValueTypeId::idAbsoluteTime;
    case ovserialize::item_relative_time:
      return ValueTypeId::idRelativeTime;
    case ovserialize::item_uuid:
      return ValueTypeId::idUuid;
    case ovserialize::item_binary:
      return ValueTypeId::idBinary;
    default:
      return std::nullopt;
  }
}

/// The item that an element of the type is; none for those of several items.
int item_of(ValueTypeId::EId type) {
  switch (type) {
    case ValueTypeId::idUri:
    case ValueTypeId::idSimpleDateTime:
      return ovserialize::item_string;
    default:
      break;
  }
  for (int kind = ovserialize::item_null; kind <= ovserialize::item_binary; ++kind) {
    if (native_type(kind) == type) return kind;
  }
  return ovserialize::item_none;
}

}  // namespace

Inspection::Inspection(ItemLines& lines, ovattribute::AttributeNamePackageSet::Ptr packages)
    : m_lines(lines), m_packages(std::move(packages)) {}

std::optional<std::string> Inspection::run() {
  try {
    while (!m_lines.at_end()) {
      if (next_is(ovserialize::item_structure)) {
        announcement();
      } else {
        value();
      }
    }
    return std::nullopt;
  } catch (const Surprise& surprise) {
    m_lines.print_rest();
    return "Expecting " + surprise.expected + " at offset " + to_string(surprise.offset);
  }
}

bool Inspection::next_is(int kind) {
  return m_lines.kind() == kind;
}

void Inspection::expect(int kind, const char* expected) {
  if (!next_is(kind)) throw Surprise{expected, m_lines.offset()};
}

void Inspection::scalar(int kind, const char* label) {
  expect(kind, label);
  m_lines.scalar(label);
}

void Inspection::end_structure() {
  expect(ovserialize::item_none, "the end of a structure");
  m_lines.close_structure();
}

void Inspection::value() {
  if (const auto type = native_type(m_lines.kind())) {
    m_lines.scalar(type == ValueTypeId::idNull ? "" : type_name(*type));
    return;
  }
  expect(ovserialize::item_unsigned, "a value");
  const std::uint64_t offset = m_lines.offset();
  const std::uint64_t tag = m_lines.read_unsigned();
  if (tag > last_type) {
    m_lines.print_unsigned(to_string(tag));
    throw Surprise{"a type", offset};
  }
  const auto type = static_cast<ValueTypeId::EId>(tag);
  m_lines.print_unsigned("type " + type_name(type));
  if (type != ValueTypeId::idNull) elements(type);
}

void Inspection::elements(ValueTypeId::EId type) {
  if (!next_is(ovserialize::item_sequence)) return element(type);
  m_lines.open_sequence("elements");
  while (m_lines.has_next_element())
    element(type);
}

void Inspection::element(ValueTypeId::EId type) {
  switch (type) {
    case ValueTypeId::idAttributeMap:
      return map();
    case ValueTypeId::idSerialized:
      return serialized();
    case ValueTypeId::idSecured:
      return secured();
    case ValueTypeId::idErrorInfo:
      return error_info();
    default:
      return scalar(item_of(type), type_name(type).c_str());
  }
}

void Inspection::map() {
  expect(ovserialize::item_sequence, "a map");
  m_lines.open_sequence("map");
  while (m_lines.has_next_element()) {
    name();
    value();
  }
}

void Inspection::name() {
  if (next_is(ovserialize::item_uuid)) {
    package_reference();
    expect(ovserialize::item_unsigned, "the number of a name");
  }
  if (next_is(ovserialize::item_unsigned)) return token();
  scalar(ovserialize::item_string, "name");
}

void Inspection::token() {
  const std::uint64_t offset = m_lines.offset();
  const std::uint64_t number = m_lines.read_unsigned();
  const std::optional<std::string> name = name_of(number);
  m_lines.print_unsigned("name " + to_string(number) + (name ? ": " + quoted(*name) : ""));
  if (!name) throw Surprise{"the number of a name", offset};
}

std::optional<std::string> Inspection::name_of(std::uint64_t token) const {
  const auto behind = std::upper_bound(
      m_refs.begin(), m_refs.end(), token,
      [](std::uint64_t number, const PackageRef& ref) { return number < ref.base; });
  if (behind == m_refs.begin()) return std::nullopt;
  const PackageRef& ref = *(behind - 1);
  const std::uint64_t position = token - ref.base;
  if (position >= ref.count) return std::nullopt;
  if (!ref.package || position >= ref.package->size()) {
    return ref.id.as_string(1) + ':' + to_string(position);
  }
  return ref.package->at(static_cast<std::size_t>(position)).value();
}

void Inspection::serialized() {
  expect(ovserialize::item_structure, "a Serialized value");
  m_lines.open_structure("Serialized");
  expect(ovserialize::item_structure, "the structure of a type");
  m_lines.open_structure("");
  scalar(ovserialize::item_string, "type");
  end_structure();
  scalar(ovserialize::item_binary, "data");
  end_structure();
}

void Inspection::secured() {
  expect(ovserialize::item_structure, "a Secured value");
  m_lines.open_structure("Secured");
  scalar(ovserialize::item_string, "annotation");
  scalar(ovserialize::item_string, "cipher");
  expect(ovserialize::item_structure, "the id of a key");
  m_lines.open_structure("key");
  scalar(ovserialize::item_string, "category");
  scalar(ovserialize::item_uuid, "instance");
  end_structure();
  scalar(ovserialize::item_binary, "ciphertext");
  end_structure();
}

void Inspection::error_info() {
  if (next_is(ovserialize::item_null)) return m_lines.scalar("no error");
  expect(ovserialize::item_structure, "an ErrorInfo");
  m_lines.open_structure("ErrorInfo");
  do {
    error();
  } while (next_is(ovserialize::item_string));
  end_structure();
}

void Inspection::error() {
  scalar(ovserialize::item_string, "code");
  scalar(ovserialize::item_string, "template");
  expect(ovserialize::item_sequence, "the parameters of an error");
  m_lines.open_sequence("parameters");
  while (m_lines.has_next_element()) {
    scalar(ovserialize::item_string, "parameter");
    scalar(ovserialize::item_string, "is");
  }
  scalar(ovserialize::item_string, "file");
  scalar(ovserialize::item_string, "function");
  scalar(ovserialize::item_unsigned, "line");
}

/// Where no value stands: references to packages, or a file of packages.
void Inspection::announcement() {
  m_lines.open_structure("");
  if (next_is(ovserialize::item_uuid)) return package_names();
  expect(ovserialize::item_sequence, "packages or references to them");
  m_lines.open_sequence("packages");
  m_refs.clear();
  while (m_lines.has_next_element()) {
    if (next_is(ovserialize::item_structure)) {
      m_lines.open_structure("");
      package_names();
    } else {
      package_reference();
    }
  }
  end_structure();
}

void Inspection::package_names() {
  scalar(ovserialize::item_uuid, "package");
  expect(ovserialize::item_sequence, "the names of a package");
  m_lines.open_sequence("names");
  while (m_lines.has_next_element())
    scalar(ovserialize::item_string, "name");
  end_structure();
}

void Inspection::package_reference() {
  expect(ovserialize::item_uuid, "a reference to a package");
  PackageRef ref{};
  ref.id = m_lines.read_uuid();
  const auto* const known = m_packages->find(ref.id);
  if (known != m_packages->end()) ref.package = *known;
  m_lines.print_uuid("package " + ref.id.as_string(1) + (ref.package ? "" : ", not known"));
  expect(ovserialize::item_unsigned, "the first number of a package");
  const std::uint64_t offset = m_lines.offset();
  ref.base = m_lines.read_unsigned();
  m_lines.print_unsigned("numbers from " + to_string(ref.base));
  expect(ovserialize::item_unsigned, "the size of a package");
  ref.count = m_lines.read_unsigned();
  m_lines.print_unsigned("for " + to_string(ref.count) + " names");
  const bool ascends = m_refs.empty() || ref.base >= m_refs.back().base + m_refs.back().count;
  if (!ascends || ref.base + ref.count < ref.base) throw Surprise{"numbers that are free", offset};
  m_refs.push_back(std::move(ref));
}

}  // namespace ovattr
