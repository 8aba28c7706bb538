// SPDX-License-Identifier: Apache-2.0
// What a value can be, and how it is read, changed and printed.
#include <iostream>
#include <string>
#include <vector>

#include "ovattribute/attribute_value.h"
#include "ovcore/time.h"

using ovattribute::AttributeValue;
using ovattribute::ValueTypeId;

int main() {
  // [make]
  const AttributeValue name("alice");  // String
  const AttributeValue attempts(3);    // Integer, of 64 bits
  const AttributeValue ratio(0.75);    // Double
  const AttributeValue since(ovcore::AbsoluteTime::parse("2024-02-29T12:00:00Z"));
  const AttributeValue tags{"blue", "flat"};  // a list of two Strings
  const std::vector<int> measured{4, 8, 15};
  const AttributeValue sizes = AttributeValue::list_of(measured);  // a list, however long
  const AttributeValue nothing;                                    // Null
  // [make]

  // [read]
  std::cout << name.get<std::string>() << ", " << attempts.get<int>() << " attempts\n";
  for (const std::string& tag : tags.elements<std::string>())
    std::cout << "tag " << tag << "\n";
  std::cout << "the last size is " << sizes.at<long long>(sizes.size() - 1) << "\n";
  if (ratio.type() == ValueTypeId::typeDouble) std::cout << "a Double\n";
  if (nothing.is_null()) std::cout << "Null has " << nothing.size() << " elements\n";
  // [read]

  // [change]
  AttributeValue more = tags;  // shares the list with `tags`
  more.append("round");        // takes a copy of its own first
  std::cout << tags.size() << " tags, and " << more.size() << "\n";
  // [change]

  // [print]
  std::cout << since << "\n" << more << "\n";
  // [print]
}
