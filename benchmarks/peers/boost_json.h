// SPDX-License-Identifier: Apache-2.0
// Boost.JSON: names are unique and copied, found by hash beyond 18; room is reserved.
#pragma once

#include <boost/json.hpp>
#include <memory>
#include <string>
#include <string_view>

#include "benchmarks/mixed_fields.h"

namespace ovbench {

struct BoostJson {
  static constexpr const char* name = "boost_json";
  using Name = std::string;
  using Map = boost::json::object;

  static Map build(const FieldsOf<Name>& fields, boost::json::storage_ptr storage = {}) {
    Map map(fields.size(), storage);
    for_each_field<Name>(fields, [&](const Name& n, const auto& value) {
      using T = std::remove_cvref_t<decltype(value)>;
      if constexpr (is_fields<T>) {
        map.emplace(n, build(value, storage));
      } else if constexpr (is_text<T>) {
        map.emplace(n, boost::json::string_view(value));
      } else {
        map.emplace(n, value);
      }
    });
    return map;
  }
  template <class T>
  static T get(const Map& map, const Name& n) {
    const boost::json::value& value = *map.if_contains(n);
    if constexpr (is_text<T>) {
      const boost::json::string& text = value.as_string();
      return T(text.data(), text.size());
    } else if constexpr (std::is_same_v<T, bool>) {
      return value.as_bool();
    } else if constexpr (std::is_same_v<T, double>) {
      return value.as_double();
    } else {
      return value.as_int64();
    }
  }
  static bool has(const Map& map, const Name& n) { return map.if_contains(n) != nullptr; }
  static Map copy(const Map& map) { return map; }
  static void set(Map& map, const Name& n, std::int64_t value) { map[n] = value; }
  static bool equal(const Map& a, const Map& b) { return a == b; }
  static std::size_t hash(const Map& map) { return std::hash<Map>()(map); }
};

/// In an arena that is given up as a whole.
struct BoostJsonArena {
  static constexpr const char* name = "boost_json_arena";
  static constexpr bool build_only = true;
  using Name = std::string;
  struct Map {
    explicit Map(const FieldsOf<Name>& fields) : object(BoostJson::build(fields, &arena)) {}
    boost::json::monotonic_resource arena;
    boost::json::object object;
  };

  static Map build(const FieldsOf<Name>& fields) { return Map(fields); }
  template <class T>
  static T get(const Map& map, const Name& n) {
    return BoostJson::get<T>(map.object, n);
  }
  static bool has(const Map& map, const Name& n) { return BoostJson::has(map.object, n); }
};

}  // namespace ovbench
