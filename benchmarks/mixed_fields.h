// SPDX-License-Identifier: Apache-2.0
// The data of the benchmarks: fields with a name and a value, the same in every run.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <random>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace ovbench {

/// `Name` is what a user of a library keeps as the constant for a name.
template <class Name>
struct Field {
  Name name;
  std::variant<bool, std::int64_t, double, std::string, std::vector<Field>> value;
};
template <class Name>
using FieldsOf = std::vector<Field<Name>>;
using Fields = FieldsOf<std::string>;

/// 2048 names of 5 to 18 bytes, in the order in which a program would declare them.
inline std::vector<std::string> all_names() {
  const char* const firsts[] = {
      "order",  "item",    "customer", "invoice",  "user",    "session",  "request", "response",
      "client", "server",  "host",     "device",   "network", "account",  "payment", "card",
      "bank",   "product", "price",    "discount", "tax",     "shipping", "address", "street",
      "city",   "country", "region",   "phone",    "mail",    "message",  "thread",  "channel",
      "group",  "role",    "policy",   "token",    "key",     "cert",     "log",     "event",
      "job",    "task",    "queue",    "worker",   "batch",   "file",     "folder",  "image",
      "video",  "audio",   "page",     "document", "version", "branch",   "commit",  "build",
      "test",   "result",  "metric",   "sample",   "sensor",  "signal",   "frame",   "packet"};
  const char* const seconds[] = {
      "Id",     "Name",    "Count", "Size",  "Time",  "Date",   "State",  "Type",
      "Kind",   "Code",    "Text",  "Label", "Index", "Offset", "Length", "Width",
      "Height", "Limit",   "Total", "Rate",  "Score", "Flag",   "Owner",  "Parent",
      "Level",  "Version", "Hash",  "Url",   "Path",  "Locale", "Zone",   "Currency"};
  std::vector<std::string> names;
  for (const char* first : firsts) {
    for (const char* second : seconds)
      names.push_back(std::string(first) + second);
  }
  return names;
}

namespace impl {

inline std::vector<std::string> shuffled_names() {
  std::vector<std::string> names = all_names();
  std::shuffle(names.begin(), names.end(), std::mt19937_64(1));
  return names;
}

inline std::string text(std::mt19937_64& random, std::size_t least, std::size_t most) {
  std::string result(least + random() % (most - least + 1), ' ');
  for (char& c : result)
    c = "abcdefghijklmnopqrstuvwxyz012345"[random() % 32];
  return result;
}

}  // namespace impl

enum class Order { declared, random };

/// Up to 1024 fields: 40 % strings of 3 to 12 bytes, 15 % of 56 to 64, 30 % integers of 64 bits,
/// 10 % doubles, 5 % Booleans. Either in the order in which their names are declared or in another.
inline Fields mixed_fields(std::size_t count, Order order = Order::random) {
  std::vector<std::string> names = impl::shuffled_names();
  names.resize(count);
  std::mt19937_64 random(count);
  Fields fields;
  for (std::size_t i = 0; i < count; ++i) {
    Field<std::string> field{std::move(names[i]), false};
    const std::size_t percent = (i * 100 + 50) / count;
    if (percent < 40) {
      field.value = impl::text(random, 3, 12);
    } else if (percent < 55) {
      field.value = impl::text(random, 56, 64);
    } else if (percent < 85) {
      field.value = static_cast<std::int64_t>(random());
    } else if (percent < 95) {
      field.value = static_cast<double>(random() % 1000000007) / 1024;
    } else {
      field.value = random() % 2 == 0;
    }
    fields.push_back(std::move(field));
  }
  std::shuffle(fields.begin(), fields.end(), random);
  if (order == Order::declared) {
    const std::vector<std::string> all = all_names();
    const auto place = [&](const auto& field) {
      return std::find(all.begin(), all.end(), field.name);
    };
    std::sort(fields.begin(), fields.end(),
              [&](const auto& a, const auto& b) { return place(a) < place(b); });
  }
  return fields;
}

/// 100 fields, each a map of 8 whose names are the same in all, as in a list of records.
inline Fields nested_fields() {
  Fields result = mixed_fields(100);
  const Fields child = mixed_fields(8);
  std::mt19937_64 random(3);
  for (auto& field : result) {
    Fields fields = child;
    for (auto& [name, value] : fields) {
      if (auto* number = std::get_if<std::int64_t>(&value)) *number ^= random() >> 8;
      if (auto* text = std::get_if<std::string>(&value))
        *text = impl::text(random, text->size(), text->size());
    }
    field.value = std::move(fields);
  }
  return result;
}

/// Names that no field has.
inline std::vector<std::string> absent_names(std::size_t count) {
  const std::vector<std::string> names = impl::shuffled_names();
  return {names.begin() + 1024, names.begin() + 1024 + static_cast<std::ptrdiff_t>(count)};
}

/// The same fields with the names as a library has them.
template <class Name>
FieldsOf<Name> with_names(const Fields& fields) {
  FieldsOf<Name> result;
  for (const auto& field : fields) {
    if (const auto* children = std::get_if<Fields>(&field.value)) {
      result.push_back({Name(field.name), with_names<Name>(*children)});
    } else {
      result.push_back({Name(field.name), false});
      std::visit(
          [&]<class T>(const T& value) {
            if constexpr (!std::is_same_v<T, Fields>) result.back().value = value;
          },
          field.value);
    }
  }
  return result;
}

/// Calls `f(name, value)` for each field, the value in its own type.
template <class Name, class F>
void for_each_field(const FieldsOf<Name>& fields, F&& f) {
  for (const auto& field : fields)
    std::visit([&](const auto& value) { f(field.name, value); }, field.value);
}

template <class T>
inline constexpr bool is_text = std::is_convertible_v<T, std::string_view>;
template <class T>
inline constexpr bool is_fields = !std::is_arithmetic_v<T> && !is_text<T>;

}  // namespace ovbench
