// SPDX-License-Identifier: Apache-2.0
// Names and types declared once, checked wherever they are used.
#include <iostream>
#include <string>

#include "ovattribute/attribute_map.h"
#include "ovattribute/error_codes.h"
#include "ovattribute/typed_attribute.h"
#include "ovcore/exception.h"

// [declare]
namespace order {
using ovattribute::TypedAttribute;
const TypedAttribute<std::string> article{"article"};
const TypedAttribute<int> count{"count"};
const TypedAttribute<double> price{"price"};
const TypedAttribute<std::string> tags{"tags"};
}  // namespace order
// [declare]

int main() {
  // [use]
  ovattribute::MutableAttributeMap line;
  order::article.set(line, "cable, 2 m");
  order::price.set(line, 4.75);
  line.add("tags", {"blue", "flat"});

  std::cout << order::article.get(line) << "\n";
  std::cout << order::count.get_or(line, 1) << " of them\n";  // a default for the missing
  if (const double* price = order::price.find(line)) std::cout << *price << " each\n";
  for (const std::string& tag : order::tags.elements(line))  // one or many
    std::cout << "tagged " << tag << "\n";
  // [use]

  // [refuse]
  line.add("count", "three");
  try {
    std::cout << order::count.get(line);
  } catch (const ovcore::Exception& e) {
    std::cout << e.what() << "\n";
    std::cout << e.code() << "\n";
  }
  // [refuse]
}
