// SPDX-License-Identifier: Apache-2.0
// msgpack-cxx: a tree in a zone. Pairs are appended without looking for the name, which is not
// copied; finding is walking. Strings that are decoded stay in the input.
#pragma once

#include <msgpack.hpp>
#include <string>
#include <string_view>
#include <utility>

#include "benchmarks/mixed_fields.h"

namespace ovbench {

struct Msgpack {
  static constexpr const char* name = "msgpack_cxx";
  using Name = std::string;
  using Map = msgpack::object_handle;

  static Map build(const FieldsOf<Name>& fields) {
    auto zone = std::make_unique<msgpack::zone>();
    const msgpack::object object = tree(fields, *zone);
    return Map(object, std::move(zone));
  }
  template <class T>
  static T get(const Map& map, const Name& n) {
    const msgpack::object& value = find(map, n)->val;
    if constexpr (is_text<T>) {
      if (value.type != msgpack::type::STR) throw msgpack::type_error();
      return T(value.via.str.ptr, value.via.str.size);
    } else {
      return value.as<T>();
    }
  }
  static bool has(const Map& map, const Name& n) { return find(map, n) != nullptr; }
  static Map copy(const Map& map) { return msgpack::clone(map.get()); }
  static void set(Map& map, const Name& n, std::int64_t value) {
    find(map, n)->val = msgpack::object(value);
  }
  static bool equal(const Map& a, const Map& b) { return a.get() == b.get(); }

  using Bytes = msgpack::sbuffer;
  static Bytes encode(const Map& map) {
    Bytes bytes;
    msgpack::pack(bytes, map.get());
    return bytes;
  }
  static Map decode(std::string_view bytes) {
    return msgpack::unpack(bytes.data(), bytes.size(),
                           [](msgpack::type::object_type, std::size_t, void*) { return true; });
  }

 private:
  static msgpack::object tree(const FieldsOf<Name>& fields, msgpack::zone& zone) {
    msgpack::object result;
    result.type = msgpack::type::MAP;
    result.via.map.size = static_cast<std::uint32_t>(fields.size());
    result.via.map.ptr = static_cast<msgpack::object_kv*>(
        zone.allocate_align(sizeof(msgpack::object_kv) * fields.size()));
    msgpack::object_kv* to = result.via.map.ptr;
    for_each_field<Name>(fields, [&](const Name& n, const auto& value) {
      to->key.type = msgpack::type::STR;
      to->key.via.str = {static_cast<std::uint32_t>(n.size()), n.data()};
      if constexpr (is_fields<std::remove_cvref_t<decltype(value)>>) {
        to->val = tree(value, zone);
      } else {
        to->val = msgpack::object(value, zone);
      }
      ++to;
    });
    return result;
  }
  static msgpack::object_kv* find(const Map& map, const Name& n) {
    const auto& pairs = map.get().via.map;
    for (std::uint32_t i = 0; i < pairs.size; ++i) {
      const auto& key = pairs.ptr[i].key.via.str;
      if (std::string_view(key.ptr, key.size) == n) return pairs.ptr + i;
    }
    return nullptr;
  }
};

}  // namespace ovbench
