// SPDX-License-Identifier: Apache-2.0
// What the items of a binary stream mean, as far as they follow the form of values.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ovattribute/attribute_name_package.h"
#include "ovattribute/attribute_value_type.h"
#include "tools/ovattr/item_lines.h"

namespace ovattr {

/// Prints every item up to the end of the stream or its first fault, which is raised. Follows
/// values, packages and references to them; from the first item on that fits nowhere, items are
/// printed without their meaning.
class Inspection {
 public:
  /// `packages`: those whose names are known, not null. `lines` must outlive this object.
  Inspection(ItemLines& lines, ovattribute::AttributeNamePackageSet::Ptr packages);

  /// What was expected where the meaning got lost, and the offset; nothing when it did not.
  std::optional<std::string> run();

 private:
  struct Surprise {
    std::string expected;
    std::uint64_t offset;
  };
  struct PackageRef {
    std::uint64_t base;
    std::uint64_t count;
    ovcore::Uuid id;
    ovattribute::AttributeNamePackage::Ptr package;  // null when it is not known
  };

  void expect(int kind, const char* expected);
  void scalar(int kind, const char* label);
  void end_structure();
  bool next_is(int kind);

  void value();
  void elements(ovattribute::ValueTypeId::EId type);
  void element(ovattribute::ValueTypeId::EId type);
  void map();
  void name();
  void token();
  void serialized();
  void secured();
  void error_info();
  void error();

  void announcement();
  void package_reference();
  void package_names();
  [[nodiscard]] std::optional<std::string> name_of(std::uint64_t token) const;

  ItemLines& m_lines;
  const ovattribute::AttributeNamePackageSet::Ptr m_packages;
  std::vector<PackageRef> m_refs;  // ranges ascend and do not overlap
};

}  // namespace ovattr
