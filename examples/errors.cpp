// SPDX-License-Identifier: Apache-2.0
// Errors: caught by family, raised with named parameters and a cause, carried as values.
#include <iostream>

#include "ovattribute/attribute_map.h"
#include "ovattribute/error_codes.h"
#include "ovattribute/typed_attribute.h"
#include "ovcore/error_composer.h"
#include "ovcore/exception.h"

using ovattribute::AttributeMap;

// [own]
const ovcore::ErrorCode shop_order_refused("error.shop.order.refused", true);

int items_of(const AttributeMap& order) {
  static const ovattribute::TypedAttribute<int> items{"items"};
  try {
    return items.get(order);
  } catch (const ovcore::Exception& e) {
    ovcore::ErrorComposer("Order {@id} was refused")
        .add("id", order.query("id").get<int>())
        .cause(e.info())
        .throw_error(shop_order_refused, {"shop/orders", "items_of()", 0});
  }
}
// [own]

int main() {
  // [catch]
  ovcore::RefCountPtr<const ovcore::ErrorInfo> failure;
  try {
    std::cout << items_of(AttributeMap{{"id", 17}});
  } catch (const ovcore::Exception& e) {
    failure = e.info();  // costs a pointer
    std::cout << e.what() << "\n";
    std::cout << "order " << *failure->parameter("id") << "\n";
    const ovcore::ErrorInfo& cause = *failure->cause();
    std::cout << "because: " << cause.message() << "\n";
    if (cause.code().is_a(ovattribute::error::ovattribute_map)) std::cout << "a map error\n";
  }
  // [catch]

  // [carry]
  const AttributeMap answer{{"accepted", false}, {"failure", failure}};
  try {
    ovcore::throw_error(answer.query("failure").get<decltype(failure)>());
  } catch (const ovcore::Exception& e) {
    std::cout << "again: " << e.code() << "\n";
  }
  // [carry]
}
