// SPDX-License-Identifier: Apache-2.0
// Programs of map operations, beside std::map. Four maps, so that they share and part again.
#include <algorithm>
#include <array>
#include <map>

#include "fuzz/fuzzing.h"
#include "ovattribute/attribute_map.h"

using namespace ovfuzz;
using namespace ovattribute;

namespace {

struct Pair {
  MutableAttributeMap map;
  std::map<AttributeName, AttributeValue> oracle;
};

AttributeName name(std::uint8_t number) {
  return AttributeName(ovcore::to_string(number).c_str());
}

/// Hashing walks what is shared as often as it is reached, so maps nest once only.
bool nests(const Pair& pair) {
  return std::any_of(pair.oracle.begin(), pair.oracle.end(), [](const auto& entry) {
    return entry.second.type() == ValueTypeId::typeAttributeMap;
  });
}

void check(const Pair& pair) {
  const AttributeMapBase& map = pair.map;
  require(map.size() == pair.oracle.size(), "the sizes agree");
  auto expected = pair.oracle.begin();
  for (const auto& [key, value] : map) {
    require(key == expected->first && value == expected->second, "the entries agree");
    ++expected;
  }
  auto backwards = map.end();
  for (auto i = pair.oracle.rbegin(); i != pair.oracle.rend(); ++i)
    require((--backwards)->first == i->first, "the way back agrees");
}

void check_lookup(const Pair& pair, const AttributeName& key) {
  const AttributeMapBase& map = pair.map;
  const auto same = [&](auto found, auto expected) {
    return found == map.end() ? expected == pair.oracle.end()
                              : expected != pair.oracle.end() && found->first == expected->first;
  };
  require(same(map.find(key), pair.oracle.find(key)), "find agrees");
  require(same(map.lower_bound(key), pair.oracle.lower_bound(key)), "lower_bound agrees");
  require(same(map.upper_bound(key), pair.oracle.upper_bound(key)), "upper_bound agrees");
}

void check_order(const Pair& a, const Pair& b) {
  require((a.map == b.map) == (a.oracle == b.oracle), "equality agrees");
  require((a.map < b.map) == (a.oracle < b.oracle), "order agrees");
  if (a.map == b.map) require(a.map.hash() == b.map.hash(), "equal maps hash alike");
}

void step(std::array<Pair, 4>& pairs, Input& input) {
  const std::uint8_t operation = input.byte();
  Pair& a = pairs[operation & 3];
  Pair& b = pairs[operation >> 2 & 3];
  const std::uint8_t number = input.byte();
  const AttributeName key = name(number);
  const AttributeValue value(static_cast<int>(input.byte()));
  switch (operation >> 4) {
    case 0:
      a.map.add(key, value);
      a.oracle[key] = value;
      break;
    case 1:
      a.map[key] = value;
      a.oracle[key] = value;
      break;
    case 2:
      require(a.map.insert({key, value}).second == a.oracle.insert({key, value}).second,
              "insert agrees");
      break;
    case 3:
      require(a.map.erase(key) == a.oracle.erase(key), "erase agrees");
      break;
    case 4:
      a.map = b.map;
      a.oracle = b.oracle;
      break;
    case 5: {
      a.map.add(b.map);
      for (const auto& [k, v] : std::map(b.oracle))
        a.oracle[k] = v;
      break;
    }
    case 6: {
      a.map = MutableAttributeMap(a.map.merged_with(b.map));
      a.oracle.insert(b.oracle.begin(), b.oracle.end());
      break;
    }
    case 7:
      a.map.clear();
      a.oracle.clear();
      break;
    case 8: {
      a.map.erase(a.map.lower_bound(key), a.map.end());
      a.oracle.erase(a.oracle.lower_bound(key), a.oracle.end());
      break;
    }
    case 9: {
      if (&a == &b) break;
      const AttributeMapBase& from = b.map;
      a.map.insert(from.begin(), from.lower_bound(key));
      a.oracle.insert(b.oracle.begin(), b.oracle.lower_bound(key));
      break;
    }
    case 10:
      a.map.swap(b.map);
      a.oracle.swap(b.oracle);
      break;
    case 11: {
      AttributeMap frozen(a.map);
      WritableAttributeMapRef(frozen).add(key, value);
      b.map = MutableAttributeMap(frozen);
      b.oracle = a.oracle;
      b.oracle[key] = value;
      break;
    }
    case 12: {
      // As many entries as make an index worth having.
      for (int i = 0; i < number; ++i) {
        const AttributeName many = name(static_cast<std::uint8_t>(i * 7));
        a.map.add(many, value);
        a.oracle[many] = value;
      }
      break;
    }
    case 13: {
      a.map.insert(a.map.lower_bound(key), {key, value});
      a.oracle.insert({key, value});
      break;
    }
    case 14: {
      if (nests(b)) break;
      const AttributeValue nested(AttributeMap(b.map));
      a.map.add(key, nested);
      a.oracle[key] = nested;
      break;
    }
    default:
      check_lookup(a, key);
      check_order(a, b);
      break;
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::array<Pair, 4> pairs;
  Input input(data, size);
  while (!input.empty())
    step(pairs, input);
  for (const Pair& pair : pairs)
    check(pair);
  return 0;
}
