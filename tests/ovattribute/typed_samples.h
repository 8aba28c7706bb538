// SPDX-License-Identifier: Apache-2.0
// What tests do with the elements of any type: the typed operations of values, by type at run time.
// An element is handed over as a scalar.
#pragma once

#include <cstddef>
#include <vector>

#include "ovattribute/attribute_value.h"

namespace ovattribute {

using Elements = std::vector<AttributeValue>;

struct ElementType {
  const ValueTypeId* type;
  /// Different elements in ascending order, made anew by each call: at least two, with the smallest
  /// of the type where there is one; none is a constant of the process but the Booleans.
  Elements (*samples)();

  AttributeValue (*get)(const AttributeValue&);
  AttributeValue (*at)(const AttributeValue&, std::size_t);
  Elements (*elements)(const AttributeValue&);
  const void* (*address)(const AttributeValue&);  // of the first element
  std::size_t (*element_hash)(const AttributeValue&);

  AttributeValue (*list)(const Elements&);
  void (*set)(AttributeValue&, const AttributeValue& element);
  void (*append)(AttributeValue&, const AttributeValue& element);
};

/// All but Null, in the order of the type numbers.
const std::vector<ElementType>& element_types();

/// One value of every type, Null first, in the order of the type numbers.
std::vector<AttributeValue> one_of_each_type();

}  // namespace ovattribute
