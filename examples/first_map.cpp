// SPDX-License-Identifier: Apache-2.0
#include <iostream>
#include <string>
#include <utility>

#include "ovattribute/attribute_map.h"
#include "ovattribute/typed_attribute.h"

int main() {
  ovattribute::MutableAttributeMap map;
  map.add("caller", "alice");
  map.add("attempts", 3);
  const ovattribute::AttributeMap frozen(std::move(map));  // shared from here on, never copied

  const ovattribute::TypedAttribute<std::string> caller{"caller"};
  const ovattribute::TypedAttribute<int> attempts{"attempts"};
  std::cout << caller.get(frozen) << " tried " << attempts.get_or(frozen, 0) << " times\n";
}
