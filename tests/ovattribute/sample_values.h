// SPDX-License-Identifier: Apache-2.0
// Values of every type with every number of elements.
#pragma once

#include <vector>

#include "ovattribute/attribute_map.h"
#include "ovattribute/attribute_value.h"

namespace ovattribute {

/// Each type with a scalar of every sample element, no elements, a list of one, and a list of all.
std::vector<AttributeValue> sample_values();
/// The values by name, in maps within lists of maps, `depth` maps deep.
AttributeMap nested_samples(std::size_t depth);
/// Maps within maps, the innermost one empty.
AttributeMap maps_within_maps(std::size_t depth);

}  // namespace ovattribute
