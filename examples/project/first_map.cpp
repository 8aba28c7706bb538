// SPDX-License-Identifier: Apache-2.0
#include <iostream>
#include <string>
#include <utility>

#include "ovattribute/attribute_map.h"
#include "ovattribute/typed_attribute.h"
#include "ovserialize/memory_reader.h"
#include "ovserialize/memory_writer.h"

int main() {
  ovattribute::MutableAttributeMap map;
  map.add("caller", "alice");
  map.add("attempts", 3);
  const ovattribute::AttributeMap request(std::move(map));  // shared from here on, never copied

  ovserialize::MemoryWriter writer;  // a StreamWriter writes to a file, a pipe or a socket
  writer << request;
  ovserialize::MemoryReader reader(writer.memory_list());
  const ovattribute::AttributeMap received(reader);

  const ovattribute::TypedAttribute<std::string> caller{"caller"};
  const ovattribute::TypedAttribute<int> attempts{"attempts"};
  std::cout << caller.get(received) << " tried " << attempts.get_or(received, 0) << " times\n";
}
