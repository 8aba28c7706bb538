// SPDX-License-Identifier: Apache-2.0
// Maps: built, frozen, read, shared, changed behind a shared copy, and merged.
#include <iostream>
#include <set>
#include <string>
#include <utility>

#include "ovattribute/attribute_map.h"
#include "ovattribute/trace_formatter.h"

using ovattribute::AttributeMap;
using ovattribute::MutableAttributeMap;

int main() {
  // [build]
  MutableAttributeMap order;
  order.add("id", 17);
  order.add("customer", AttributeMap{{"name", "Zoe"}, {"member", true}});
  order["note"] = "ring twice";
  const AttributeMap frozen(std::move(order));  // takes the entries over, copies nothing
  // [build]

  // [read]
  if (frozen.exists("note")) std::cout << frozen.query("note").get<std::string>() << "\n";
  if (frozen.query("coupon").is_null()) std::cout << "no coupon\n";
  const AttributeMap& customer = frozen.query("customer").get<AttributeMap>();
  std::cout << customer.query("name").get<std::string>() << "\n";
  // [read]

  // [change]
  const AttributeMap kept = frozen;     // a second handle to the same entries
  MutableAttributeMap changed(frozen);  // a third one
  changed.add("id", 18);                // `changed` gets entries of its own first
  std::cout << kept.query("id").get<int>() << " became " << changed.query("id").get<int>() << "\n";
  // [change]

  // [merge]
  const AttributeMap defaults{{"currency", "EUR"}, {"note", ""}};
  const AttributeMap complete = changed.merged_with(defaults);  // the map's own values count
  // [merge]

  // [walk]
  std::set<std::string> names;  // by text: the order of a map means nothing outside the process
  for (const auto& [name, value] : complete)
    names.insert(name.value());
  for (const std::string& name : names)
    std::cout << "has " << name << "\n";
  // [walk]

  // [print]
  ovattribute::TraceFormatter::Composer layout;
  layout.order_names_by_text(true).show_type(false);
  complete.write_trace(std::cout, layout.compose(), 0);
  // [print]
  std::cout << "\n";
}
