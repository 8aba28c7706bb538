// SPDX-License-Identifier: Apache-2.0
// Attribute values from JSON text and back.
#include <iostream>
#include <string>

#include "ovattribute/attribute_map.h"
#include "ovattribute/json_marshaler.h"
#include "ovcore/exception.h"
#include "ovcore/time.h"

using namespace ovattribute;

int main() {
  // [both]
  const AttributeValue value = parse_json(R"({"id": 17, "tags": ["blue", "flat"]})");
  MutableAttributeMap order = value.get<AttributeMap>();
  order.add("price", 4.75);
  order.add("placed", ovcore::AbsoluteTime::parse("2024-02-29T12:00:00Z"));
  std::cout << to_json(order, {.order_names_by_text = true}) << "\n";
  // [both]

  // [refuse]
  for (const char* const text : {R"({"id": 1)", R"({"grid": [[1, 2], [3, 4]]})"}) {
    try {
      std::cout << parse_json(text) << "\n";
    } catch (const ovcore::Exception& e) {
      std::cout << e.what() << "\n";
    }
  }
  // [refuse]
}
