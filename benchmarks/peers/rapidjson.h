// SPDX-License-Identifier: Apache-2.0
// RapidJSON: members are appended without looking for the name, which is not copied; all memory is
// an arena's, given up as a whole; finding is walking.
#pragma once

#include <rapidjson/document.h>

#include <string>
#include <string_view>

#include "benchmarks/mixed_fields.h"

namespace ovbench {

struct Rapidjson {
  static constexpr const char* name = "rapidjson";
  using Name = std::string;
  using Map = rapidjson::Document;

  static Map build(const FieldsOf<Name>& fields) {
    Map map;
    fill(map, fields, map.GetAllocator());
    return map;
  }
  template <class T>
  static T get(const Map& map, const Name& n) {
    const rapidjson::Value& value = find(map, n)->value;
    if constexpr (is_text<T>) {
      return T(value.GetString(), value.GetStringLength());
    } else {
      return value.Get<T>();
    }
  }
  static bool has(const Map& map, const Name& n) { return find(map, n) != map.MemberEnd(); }
  static Map copy(const Map& map) {
    Map result;
    result.CopyFrom(map, result.GetAllocator());
    return result;
  }
  static void set(Map& map, const Name& n, std::int64_t value) {
    map.FindMember(rapidjson::StringRef(n.data(), static_cast<rapidjson::SizeType>(n.size())))
        ->value.SetInt64(value);
  }
  static bool equal(const Map& a, const Map& b) { return a == b; }

 private:
  static Map::ConstMemberIterator find(const Map& map, const Name& n) {
    return map.FindMember(rapidjson::Value(
        rapidjson::StringRef(n.data(), static_cast<rapidjson::SizeType>(n.size()))));
  }
  template <class Allocator>
  static void fill(rapidjson::Value& to, const FieldsOf<Name>& fields, Allocator& arena) {
    to.SetObject();
    for_each_field<Name>(fields, [&](const Name& n, const auto& value) {
      using T = std::remove_cvref_t<decltype(value)>;
      rapidjson::Value element;
      if constexpr (is_fields<T>) {
        fill(element, value, arena);
      } else if constexpr (is_text<T>) {
        element.SetString(value.data(), static_cast<rapidjson::SizeType>(value.size()), arena);
      } else {
        element.Set(value);
      }
      to.AddMember(rapidjson::StringRef(n.data(), static_cast<rapidjson::SizeType>(n.size())),
                   element, arena);
    });
  }
};

}  // namespace ovbench
