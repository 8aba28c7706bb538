// SPDX-License-Identifier: Apache-2.0
// Protocol Buffers' Struct: a hash map, names unique; it has no integers, they become doubles. All
// memory is an arena's, given up as a whole.
#pragma once

#include <google/protobuf/arena.h>
#include <google/protobuf/struct.pb.h>
#include <google/protobuf/util/message_differencer.h>

#include <memory>
#include <string>
#include <string_view>

#include "benchmarks/mixed_fields.h"

namespace ovbench {

struct Protobuf {
  static constexpr const char* name = "protobuf";
  static constexpr bool rounds_integers = true;
  using Name = std::string;
  using Struct = google::protobuf::Struct;
  class Map {
   public:
    Map()
        : m_arena(std::make_unique<google::protobuf::Arena>()),
          m_struct(google::protobuf::Arena::CreateMessage<Struct>(m_arena.get())) {}
    Struct* operator->() const { return m_struct; }
    Struct& operator*() const { return *m_struct; }

   private:
    std::unique_ptr<google::protobuf::Arena> m_arena;
    Struct* m_struct;
  };

  static Map build(const FieldsOf<Name>& fields) {
    Map map;
    fill(*map, fields);
    return map;
  }
  template <class T>
  static T get(const Map& map, const Name& n) {
    const google::protobuf::Value& value = map->fields().find(n)->second;
    if constexpr (is_text<T>) {
      return value.string_value();
    } else if constexpr (std::is_same_v<T, bool>) {
      return value.bool_value();
    } else {
      return static_cast<T>(value.number_value());
    }
  }
  static bool has(const Map& map, const Name& n) { return map->fields().contains(n); }
  static Map copy(const Map& map) {
    Map result;
    result->CopyFrom(*map);
    return result;
  }
  static void set(Map& map, const Name& n, std::int64_t value) {
    (*map->mutable_fields())[n].set_number_value(static_cast<double>(value));
  }
  static bool equal(const Map& a, const Map& b) {
    return google::protobuf::util::MessageDifferencer::Equals(*a, *b);
  }

  using Bytes = std::string;
  static Bytes encode(const Map& map) { return map->SerializeAsString(); }
  static Map decode(std::string_view bytes) {
    Map map;
    map->ParseFromArray(bytes.data(), static_cast<int>(bytes.size()));
    return map;
  }

 private:
  static void fill(Struct& map, const FieldsOf<Name>& fields) {
    auto& to = *map.mutable_fields();
    for_each_field<Name>(fields, [&](const Name& n, const auto& value) {
      using T = std::remove_cvref_t<decltype(value)>;
      google::protobuf::Value& element = to[n];
      if constexpr (is_fields<T>) {
        fill(*element.mutable_struct_value(), value);
      } else if constexpr (is_text<T>) {
        element.set_string_value(value);
      } else if constexpr (std::is_same_v<T, bool>) {
        element.set_bool_value(value);
      } else {
        element.set_number_value(static_cast<double>(value));
      }
    });
  }
};

}  // namespace ovbench
