// SPDX-License-Identifier: Apache-2.0
// Every library that was found, ours first. What a library cannot do has no function in its struct,
// and it has no row then. Flags: `build_only`, `rounds_integers`.
#pragma once

#include "benchmarks/peers/ovattribute.h"
#include "benchmarks/rows.h"
#ifdef OV_PEER_NLOHMANN
#include "benchmarks/peers/nlohmann.h"
#endif
#ifdef OV_PEER_RAPIDJSON
#include "benchmarks/peers/rapidjson.h"
#endif
#ifdef OV_PEER_BOOST_JSON
#include "benchmarks/peers/boost_json.h"
#endif
#ifdef OV_PEER_MSGPACK
#include "benchmarks/peers/msgpack.h"
#endif
#ifdef OV_PEER_BSON
#include "benchmarks/peers/bson.h"
#endif
#ifdef OV_PEER_GLIB
#include "benchmarks/peers/gvariant.h"
#endif
#ifdef OV_PEER_QT
#include "benchmarks/peers/qt.h"
#endif
#ifdef OV_PEER_FLEXBUFFERS
#include "benchmarks/peers/flexbuffers.h"
#endif
#ifdef OV_PEER_PROTOBUF
#include "benchmarks/peers/protobuf.h"
#endif

#include <cstddef>
#include <string>
#include <string_view>
#include <type_traits>

namespace ovbench {

/// Calls `f.operator()<P>()` for every library.
template <class F>
void for_each_peer(F&& f) {
  f.template operator()<Ovattribute>();
#ifdef OV_PEER_NLOHMANN
  f.template operator()<Nlohmann>();
#endif
#ifdef OV_PEER_RAPIDJSON
  f.template operator()<Rapidjson>();
#endif
#ifdef OV_PEER_BOOST_JSON
  f.template operator()<BoostJson>();
  f.template operator()<BoostJsonArena>();
#endif
#ifdef OV_PEER_MSGPACK
  f.template operator()<Msgpack>();
#endif
#ifdef OV_PEER_BSON
  f.template operator()<Bson>();
#endif
#ifdef OV_PEER_GLIB
  f.template operator()<Gvariant>();
#endif
#ifdef OV_PEER_QT
  f.template operator()<QtCbor>();
  f.template operator()<QtVariant>();
#endif
#ifdef OV_PEER_FLEXBUFFERS
  f.template operator()<Flexbuffers>();
#endif
#ifdef OV_PEER_PROTOBUF
  f.template operator()<Protobuf>();
#endif
}

template <class P, class T>
struct KeyOf {
  using Type = typename P::Name;
};
template <class P, class T>
requires requires {
  typename P::template Key<T>;
}
struct KeyOf<P, T> {
  using Type = typename P::template Key<T>;
};
/// What a user keeps to read attributes of that type.
template <class P, class T>
using Key = typename KeyOf<P, T>::Type;

inline bool same(std::string_view a, const std::string& b) {
  return a == b;
}
template <class T>
bool same(T a, T b) {
  return a == b;
}
#ifdef OV_PEER_QT
inline bool same(const QString& a, const std::string& b) {
  return a.toStdString() == b;
}
inline bool same(qint64 a, std::int64_t b) {
  return a == b;
}
#endif

/// Ends the program unless the map holds these fields, which are not nested.
template <class P>
void require_fields(const typename P::Map& map, const Fields& fields) {
  for_each_field<std::string>(fields, [&](const std::string& name, const auto& value) {
    using T = std::remove_cvref_t<decltype(value)>;
    if constexpr (!is_fields<T>) {
      using Read = std::conditional_t<is_text<T>, std::string_view, T>;
      const auto read = P::template get<Read>(map, Key<P, Read>(typename P::Name(name)));
      if constexpr (std::is_same_v<T, std::int64_t> && requires { P::rounds_integers; }) {
        require(static_cast<double>(read) == static_cast<double>(value), P::name, name.c_str());
      } else {
        require(same(read, value), P::name, name.c_str());
      }
    }
  });
  for (const std::string& name : absent_names(fields.size()))
    require(!P::has(map, typename P::Name(name)), P::name, name.c_str());
}

}  // namespace ovbench
