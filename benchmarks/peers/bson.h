// SPDX-License-Identifier: Apache-2.0
// libbson: bytes of the wire, appended without looking for the name; finding is walking.
#pragma once

#include <bson/bson.h>

#include <string>
#include <string_view>

#include "benchmarks/mixed_fields.h"

namespace ovbench {

struct Bson {
  static constexpr const char* name = "libbson";
  using Name = std::string;
  class Map {
   public:
    Map() { bson_init(&bson); }
    Map(const Map& other) { bson_copy_to(&other.bson, &bson); }
    Map& operator=(const Map&) = delete;
    ~Map() { bson_destroy(&bson); }
    bson_t bson;
  };

  static Map build(const FieldsOf<Name>& fields) {
    Map map;
    fill(map.bson, fields);
    return map;
  }
  template <class T>
  static T get(const Map& map, const Name& n) {
    bson_iter_t at;
    bson_iter_init_find_w_len(&at, &map.bson, n.data(), static_cast<int>(n.size()));
    if constexpr (is_text<T>) {
      std::uint32_t size = 0;
      const char* text = bson_iter_utf8(&at, &size);
      return T(text, size);
    } else if constexpr (std::is_same_v<T, bool>) {
      return bson_iter_bool(&at);
    } else if constexpr (std::is_same_v<T, double>) {
      return bson_iter_double(&at);
    } else {
      return bson_iter_int64(&at);
    }
  }
  static bool has(const Map& map, const Name& n) {
    bson_iter_t at;
    return bson_iter_init_find_w_len(&at, &map.bson, n.data(), static_cast<int>(n.size()));
  }
  static Map copy(const Map& map) { return map; }
  static void set(Map& map, const Name& n, std::int64_t value) {
    bson_iter_t at;
    bson_iter_init_find_w_len(&at, &map.bson, n.data(), static_cast<int>(n.size()));
    bson_iter_overwrite_int64(&at, value);
  }
  static bool equal(const Map& a, const Map& b) { return bson_equal(&a.bson, &b.bson); }
  static std::size_t size(const Map& map) { return map.bson.len; }

 private:
  static void fill(bson_t& bson, const FieldsOf<Name>& fields) {
    for_each_field<Name>(fields, [&](const Name& n, const auto& value) {
      using T = std::remove_cvref_t<decltype(value)>;
      const int size = static_cast<int>(n.size());
      if constexpr (is_fields<T>) {
        bson_t child;
        bson_append_document_begin(&bson, n.data(), size, &child);
        fill(child, value);
        bson_append_document_end(&bson, &child);
      } else if constexpr (is_text<T>) {
        bson_append_utf8(&bson, n.data(), size, value.data(), static_cast<int>(value.size()));
      } else if constexpr (std::is_same_v<T, bool>) {
        bson_append_bool(&bson, n.data(), size, value);
      } else if constexpr (std::is_same_v<T, double>) {
        bson_append_double(&bson, n.data(), size, value);
      } else {
        bson_append_int64(&bson, n.data(), size, value);
      }
    });
  }
};

}  // namespace ovbench
