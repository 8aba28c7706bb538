// SPDX-License-Identifier: Apache-2.0
// FlexBuffers: bytes of the wire, sorted by name when they are finished and never changed; read in
// place, so there is no decoding to measure.
#pragma once

#include <flatbuffers/flexbuffers.h>

#include <string>
#include <string_view>

#include "benchmarks/mixed_fields.h"

namespace ovbench {

struct Flexbuffers {
  static constexpr const char* name = "flexbuffers";
  using Name = std::string;
  class Map {
   public:
    explicit Map(const FieldsOf<Name>& fields) {
      m_builder.Map([&] { fill(fields); });
      m_builder.Finish();
    }
    const std::vector<std::uint8_t>& bytes() const { return m_builder.GetBuffer(); }
    flexbuffers::Reference find(const Name& n) const {
      return flexbuffers::GetRoot(bytes()).AsMap()[n.c_str()];
    }

   private:
    void fill(const FieldsOf<Name>& fields) {
      for_each_field<Name>(fields, [&](const Name& n, const auto& value) {
        using T = std::remove_cvref_t<decltype(value)>;
        m_builder.Key(n);
        if constexpr (is_fields<T>) {
          m_builder.Map([&] { fill(value); });
        } else if constexpr (is_text<T>) {
          m_builder.String(value);
        } else if constexpr (std::is_same_v<T, std::int64_t>) {
          m_builder.Int(value);
        } else {
          m_builder.Add(value);
        }
      });
    }
    mutable flexbuffers::Builder m_builder;
  };

  static Map build(const FieldsOf<Name>& fields) { return Map(fields); }
  template <class T>
  static T get(const Map& map, const Name& n) {
    const flexbuffers::Reference value = map.find(n);
    if constexpr (is_text<T>) {
      const auto text = value.AsString();
      return T(text.c_str(), text.size());
    } else if constexpr (std::is_same_v<T, bool>) {
      return value.AsBool();
    } else if constexpr (std::is_same_v<T, double>) {
      return value.AsDouble();
    } else {
      return value.AsInt64();
    }
  }
  static bool has(const Map& map, const Name& n) { return !map.find(n).IsNull(); }
  static std::size_t size(const Map& map) { return map.bytes().size(); }
};

}  // namespace ovbench
