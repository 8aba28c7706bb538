// SPDX-License-Identifier: Apache-2.0
// This library. Names are unique, strings and names owned; maps are shared until changed.
#pragma once

#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "benchmarks/mixed_fields.h"
#include "ovattribute/attribute_map.h"
#include "ovattribute/attribute_name_coder.h"
#include "ovattribute/typed_attribute.h"
#include "ovserialize/memory_list.h"
#include "ovserialize/memory_reader.h"
#include "ovserialize/memory_writer.h"

namespace ovbench {

struct Ovattribute {
  static constexpr const char* name = "ovattribute";
  using Name = ovattribute::AttributeName;
  using Map = ovattribute::MutableAttributeMap;
  template <class T>
  using Key = ovattribute::TypedAttribute<std::conditional_t<
      is_text<T>, std::string, std::conditional_t<std::is_same_v<T, std::int64_t>, long long, T>>>;

  static Map build(const FieldsOf<Name>& fields) {
    Map map;
    for_each_field<Name>(fields, [&](const Name& n, const auto& value) {
      if constexpr (is_fields<std::remove_cvref_t<decltype(value)>>) {
        map.add(n, build(value));
      } else {
        map.add(n, value);
      }
    });
    return map;
  }
  template <class T>
  static T get(const Map& map, const Key<T>& key) {
    return key.get(map);
  }
  static bool has(const Map& map, const Name& n) { return map.exists(n); }
  static Map copy(const Map& map) { return map; }
  static void set(Map& map, const Name& n, std::int64_t value) { map.add(n, value); }
  static bool equal(const Map& a, const Map& b) { return a == b; }
  static std::size_t hash(const Map& map) { return map.hash(); }

  using Bytes = ovcore::RefCountPtr<ovserialize::MemoryList>;
  static Bytes encode(const Map& map) {
    ovserialize::MemoryWriter writer;
    map.write(writer);
    return writer.detach();
  }
  static Map decode(std::string_view bytes) {
    ovserialize::MemoryReader reader(bytes.data(), bytes.size());
    Map map;
    map.read(reader);
    return map;
  }
  static std::string to_string(const Bytes& bytes) {
    std::string result(bytes->size(), '\0');
    bytes->copy_to(result.data(), 0, result.size());
    return result;
  }
  /// What a process sends whose names lie in another order.
  static std::string encode_in_order(const FieldsOf<Name>& fields) {
    return write_in_order(fields, [](ovserialize::Writer& writer, const auto& entry) {
      Map::write_element_aux(writer, entry);
    });
  }
  /// All names, interned in the order in which they are declared.
  static const std::vector<Name>& constants() {
    static const std::vector<Name> result = [] {
      const auto all = all_names();
      return std::vector<Name>(all.begin(), all.end());
    }();
    return result;
  }

 protected:
  template <class WriteEntry>
  static std::string write_in_order(const FieldsOf<Name>& fields, WriteEntry write_entry) {
    ovserialize::MemoryWriter writer;
    writer.begin_sequence(fields.size());
    for (std::size_t i = 0; i < fields.size(); ++i) {
      if (i > 0) writer.next_element();
      for (const auto& entry : build({fields[i]}))
        write_entry(writer, entry);
    }
    writer.end_sequence();
    return to_string(writer.detach());
  }
};

/// Names as numbers, from one package of just these names that both ends have.
struct OvattributePackage : Ovattribute {
  static constexpr const char* name = "ovattribute_package";

  static inline ovattribute::AttributeNamePackageSet::Ptr packages;

  static void prepare(const Fields& fields) {
    ovattribute::AttributeNamePackage::Composer names;
    add_names(fields, names);
    packages = ovattribute::AttributeNamePackageSet::create(names.compose());
  }

  static Bytes encode(const Map& map) {
    ovserialize::MemoryWriter writer;
    ovattribute::AttributeNameEncoder encoder(packages);
    map.write(writer, encoder);
    return writer.detach();
  }
  static Map decode(std::string_view bytes) {
    ovserialize::MemoryReader reader(bytes.data(), bytes.size());
    ovattribute::AttributeNameDecoder decoder(packages, true);
    Map map;
    map.read(reader, decoder);
    return map;
  }
  static std::string encode_in_order(const FieldsOf<Name>& fields) {
    ovattribute::AttributeNameEncoder encoder(packages);
    return write_in_order(fields, [&](ovserialize::Writer& writer, const auto& entry) {
      Map::write_element_aux(writer, encoder, entry);
    });
  }

 private:
  static void add_names(const Fields& fields, ovattribute::AttributeNamePackage::Composer& names) {
    for_each_field<std::string>(fields, [&](const std::string& n, const auto& value) {
      names.add(n);
      if constexpr (is_fields<std::remove_cvref_t<decltype(value)>>) add_names(value, names);
    });
  }
};

}  // namespace ovbench
