// SPDX-License-Identifier: Apache-2.0
// Takes memory in inlined code, lets the library give it back, and uses whole blocks that the
// library hands out again. Compiled with the address sanitizer, though the library is not: the two
// must agree on the size of each block.
#include <cstring>
#include <string>

#include "ovattribute/attribute_map.h"

int main() {
  using Map = ovattribute::AttributeMapBase::Map;
  using Holder = ovattribute::AttributeMapBase::MapHolder;
  Map map;
  for (int i = 0; i < 40; ++i) {
    map.try_emplace(ovattribute::AttributeName("name " + std::to_string(i)), i);
    static_cast<void>(ovcore::make_ref_counted<Holder>(map));
  }
  for (std::size_t size = 1; size <= 2000; ++size) {
    void* const block = Holder::operator new(size);
    std::memset(block, 0xaa, size);
    Holder::operator delete(block, size);
  }
}
