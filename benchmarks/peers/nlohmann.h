// SPDX-License-Identifier: Apache-2.0
// nlohmann::json: a std::map of std::string an object, names unique; copies are deep.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "benchmarks/mixed_fields.h"

namespace ovbench {

struct Nlohmann {
  static constexpr const char* name = "nlohmann";
  using Name = std::string;
  using Map = nlohmann::json;

  static Map build(const FieldsOf<Name>& fields) {
    Map map = Map::object();
    auto& object = map.get_ref<Map::object_t&>();
    for_each_field<Name>(fields, [&](const Name& n, const auto& value) {
      if constexpr (is_fields<std::remove_cvref_t<decltype(value)>>) {
        object.emplace(n, build(value));
      } else {
        object.emplace(n, value);
      }
    });
    return map;
  }
  template <class T>
  static T get(const Map& map, const Name& n) {
    const auto found = map.find(n);
    if constexpr (is_text<T>) {
      return found->get_ref<const std::string&>();
    } else {
      return found->get<T>();
    }
  }
  static bool has(const Map& map, const Name& n) { return map.find(n) != map.end(); }
  static Map copy(const Map& map) { return map; }
  static void set(Map& map, const Name& n, std::int64_t value) { map[n] = value; }
  static bool equal(const Map& a, const Map& b) { return a == b; }
  static std::size_t hash(const Map& map) { return std::hash<Map>()(map); }
};

struct NlohmannCbor : Nlohmann {
  static constexpr const char* name = "nlohmann_cbor";
  using Bytes = std::vector<std::uint8_t>;

  static Bytes encode(const Map& map) { return Map::to_cbor(map); }
  static Map decode(std::string_view bytes) { return Map::from_cbor(bytes.begin(), bytes.end()); }
};

struct NlohmannMsgpack : Nlohmann {
  static constexpr const char* name = "nlohmann_msgpack";
  using Bytes = std::vector<std::uint8_t>;

  static Bytes encode(const Map& map) { return Map::to_msgpack(map); }
  static Map decode(std::string_view bytes) {
    return Map::from_msgpack(bytes.begin(), bytes.end());
  }
};

}  // namespace ovbench
