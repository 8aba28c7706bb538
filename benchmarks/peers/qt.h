// SPDX-License-Identifier: Apache-2.0
// Qt 5: QCborMap, a vector of pairs that is walked, ASCII kept as bytes; QVariantMap, a tree of
// QString whose constants exist beforehand. Names are unique, copies shared until changed.
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QCborMap>
#include <QtCore/QCborValue>
#include <QtCore/QDataStream>
#include <QtCore/QString>
#include <QtCore/QVariant>
#include <string>
#include <string_view>

#include "benchmarks/mixed_fields.h"

namespace ovbench {

inline QByteArray qt_bytes(std::string_view bytes) {
  return QByteArray::fromRawData(bytes.data(), static_cast<int>(bytes.size()));
}

struct QtCbor {
  static constexpr const char* name = "qt_cbor";
  using Name = std::string;
  using Map = QCborMap;

  static Map build(const FieldsOf<Name>& fields) {
    Map map;
    for_each_field<Name>(fields, [&](const Name& n, const auto& value) {
      using T = std::remove_cvref_t<decltype(value)>;
      if constexpr (is_fields<T>) {
        map.insert(latin1(n), build(value));
      } else if constexpr (is_text<T>) {
        map.insert(latin1(n), QCborValue(latin1(value)));
      } else if constexpr (std::is_same_v<T, std::int64_t>) {
        map.insert(latin1(n), QCborValue(qint64{value}));
      } else {
        map.insert(latin1(n), QCborValue(value));
      }
    });
    return map;
  }
  template <class T>
  static auto get(const Map& map, const Name& n) {
    const QCborValue value = map.value(latin1(n));
    if constexpr (is_text<T>) {
      return value.toString();
    } else if constexpr (std::is_same_v<T, bool>) {
      return value.toBool();
    } else if constexpr (std::is_same_v<T, double>) {
      return value.toDouble();
    } else {
      return value.toInteger();
    }
  }
  static bool has(const Map& map, const Name& n) { return map.contains(latin1(n)); }
  static Map copy(const Map& map) { return map; }
  static void set(Map& map, const Name& n, std::int64_t value) {
    map.insert(latin1(n), QCborValue(qint64{value}));
  }
  static bool equal(const Map& a, const Map& b) { return a == b; }
  static std::size_t hash(const Map& map) { return qHash(map); }

  using Bytes = QByteArray;
  static Bytes encode(const Map& map) { return map.toCborValue().toCbor(); }
  static Map decode(std::string_view bytes) {
    return QCborValue::fromCbor(qt_bytes(bytes)).toMap();
  }

 private:
  static QLatin1String latin1(const std::string& text) {
    return QLatin1String(text.data(), static_cast<int>(text.size()));
  }
};

struct QtVariant {
  static constexpr const char* name = "qt_variant";
  struct Name : QString {
    explicit Name(const std::string& text) : QString(QString::fromStdString(text)) {}
  };
  using Map = QVariantMap;

  static Map build(const FieldsOf<Name>& fields) {
    Map map;
    for_each_field<Name>(fields, [&](const Name& n, const auto& value) {
      using T = std::remove_cvref_t<decltype(value)>;
      if constexpr (is_fields<T>) {
        map.insert(n, build(value));
      } else if constexpr (is_text<T>) {
        map.insert(n, QString::fromLatin1(value.data(), static_cast<int>(value.size())));
      } else if constexpr (std::is_same_v<T, std::int64_t>) {
        map.insert(n, qint64{value});
      } else {
        map.insert(n, value);
      }
    });
    return map;
  }
  template <class T>
  static auto get(const Map& map, const Name& n) {
    const QVariant& value = *map.constFind(n);
    if constexpr (is_text<T>) {
      return value.toString();
    } else if constexpr (std::is_same_v<T, bool>) {
      return value.toBool();
    } else if constexpr (std::is_same_v<T, double>) {
      return value.toDouble();
    } else {
      return value.toLongLong();
    }
  }
  static bool has(const Map& map, const Name& n) { return map.contains(n); }
  static Map copy(const Map& map) { return map; }
  static void set(Map& map, const Name& n, std::int64_t value) { map.insert(n, qint64{value}); }
  static bool equal(const Map& a, const Map& b) { return a == b; }

  using Bytes = QByteArray;
  static Bytes encode(const Map& map) {
    Bytes bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream << map;
    return bytes;
  }
  static Map decode(std::string_view bytes) {
    QDataStream stream(qt_bytes(bytes));
    Map map;
    stream >> map;
    return map;
  }
};

}  // namespace ovbench
