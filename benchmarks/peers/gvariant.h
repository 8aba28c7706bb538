// SPDX-License-Identifier: Apache-2.0
// GVariant (GLib): an immutable a{sv}, appended without looking for the name; copies are counted;
// finding is walking. Its wire form is read in place, so there is no decoding to measure.
#pragma once

#include <glib.h>

#include <string>
#include <string_view>
#include <utility>

#include "benchmarks/mixed_fields.h"

namespace ovbench {

struct Gvariant {
  static constexpr const char* name = "gvariant";
  using Name = std::string;
  class Map {
   public:
    explicit Map(GVariant* variant) : m_variant(g_variant_ref_sink(variant)) {}
    Map(const Map& other) : m_variant(g_variant_ref(other.m_variant)) {}
    Map& operator=(const Map&) = delete;
    ~Map() { g_variant_unref(m_variant); }
    GVariant* get() const { return m_variant; }

   private:
    GVariant* m_variant;
  };

  static Map build(const FieldsOf<Name>& fields) { return Map(tree(fields)); }
  template <class T>
  static T get(const Map& map, const Name& n) {
    GVariant* const value = g_variant_lookup_value(map.get(), n.c_str(), nullptr);
    T result;
    if constexpr (is_text<T>) {
      gsize size = 0;
      const char* text = g_variant_get_string(value, &size);
      result = T(text, size);  // the map keeps it
    } else if constexpr (std::is_same_v<T, bool>) {
      result = g_variant_get_boolean(value);
    } else if constexpr (std::is_same_v<T, double>) {
      result = g_variant_get_double(value);
    } else {
      result = g_variant_get_int64(value);
    }
    g_variant_unref(value);
    return result;
  }
  static bool has(const Map& map, const Name& n) {
    GVariant* const value = g_variant_lookup_value(map.get(), n.c_str(), nullptr);
    if (value == nullptr) return false;
    g_variant_unref(value);
    return true;
  }
  static Map copy(const Map& map) { return map; }
  static bool equal(const Map& a, const Map& b) { return g_variant_equal(a.get(), b.get()); }

  using Bytes = std::string;
  static Bytes encode(const Map& map) {
    Bytes bytes(g_variant_get_size(map.get()), '\0');
    g_variant_store(map.get(), bytes.data());
    return bytes;
  }

 private:
  static GVariant* tree(const FieldsOf<Name>& fields) {
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE_VARDICT);
    for_each_field<Name>(fields, [&](const Name& n, const auto& value) {
      using T = std::remove_cvref_t<decltype(value)>;
      GVariant* element = nullptr;
      if constexpr (is_fields<T>) {
        element = tree(value);
      } else if constexpr (is_text<T>) {
        element = g_variant_new_string(value.c_str());
      } else if constexpr (std::is_same_v<T, bool>) {
        element = g_variant_new_boolean(value);
      } else if constexpr (std::is_same_v<T, double>) {
        element = g_variant_new_double(value);
      } else {
        element = g_variant_new_int64(value);
      }
      g_variant_builder_add_value(&builder,
                                  g_variant_new_dict_entry(g_variant_new_string(n.c_str()),
                                                           g_variant_new_variant(element)));
    });
    return g_variant_builder_end(&builder);
  }
};

}  // namespace ovbench
