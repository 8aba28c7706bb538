// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <algorithm>
#include <bit>
#include <cstdint>
#include <limits>
#include <memory>
#include <ostream>
#include <set>
#include <sstream>
#include <string>
#include <utility>

#include "ovattribute/attribute_map.h"
#include "ovattribute/trace_formatter.h"
#include "tools/ovattr/command.h"
#include "tools/ovattr/forms.h"
#include "tools/ovattr/output.h"
#include "tools/ovattr/packages.h"
#include "tools/ovattr/pointer.h"
#include "tools/ovattr/quoted.h"
#include "tools/ovattr/values.h"

namespace ovattr {
namespace {

using ovattribute::AttributeMap;
using ovattribute::AttributeValue;
using ovattribute::TraceFormatter;
using ovattribute::ValueTypeId;

bool is_map(const AttributeValue& value) {
  return value.type() == ValueTypeId::typeAttributeMap && value.size() == 1;
}

constexpr std::uint32_t all_of_it = std::numeric_limits<std::uint32_t>::max();

/// Unlike `==`, takes a NaN as equal to one of the same bits: both say the same.
bool same_element(const AttributeValue& a, const AttributeValue& b) {
  if (a == b) return true;
  if (a.type() != ValueTypeId::typeDouble || b.type() != a.type()) return false;
  return a.size() == 1 && b.size() == 1 &&
         std::bit_cast<std::uint64_t>(a.get<double>()) ==
             std::bit_cast<std::uint64_t>(b.get<double>());
}

class Difference {
 public:
  explicit Difference(std::ostream& out)
      : m_out(out),
        m_cut(cut().compose()),
        m_whole(cut().max_string_len(all_of_it).max_binary_value_dump_bytes(all_of_it).compose()) {}

  /// One value after the other.
  void compare(ValueSource& a, ValueSource& b) {
    AttributeValue in_a;
    AttributeValue in_b;
    for (std::size_t number = 1;; m_value = '#' + std::to_string(++number)) {
      const bool has_a = a.next(in_a);
      const bool has_b = b.next(in_b);
      if (!has_a && !has_b) return;
      compare_places({}, has_a ? &in_a : nullptr, has_b ? &in_b : nullptr);
    }
  }
  [[nodiscard]] bool found() const noexcept { return m_found; }

 private:
  void compare(const Place& place, const AttributeValue& a, const AttributeValue& b) {
    if (is_map(a) && is_map(b)) {
      compare_maps(place, a.get<AttributeMap>(), b.get<AttributeMap>());
    } else if (a.type() == b.type() && (a.size() != 1 || b.size() != 1)) {
      compare_lists(place, a, b);
    } else if (!same_element(a, b)) {
      std::string in_a = traced(a, m_cut);
      std::string in_b = traced(b, m_cut);
      if (in_a == in_b) {  // they differ behind what is cut
        in_a = traced(a, m_whole);
        in_b = traced(b, m_whole);
      }
      line('!', place, in_a + " => " + in_b);
    }
  }

  /// One line a value.
  static TraceFormatter::Composer cut() {
    using ListParams = TraceFormatter::ListParams;
    const ListParams braces("{", ", ", "}", false);
    return TraceFormatter::Composer()
        .line_prefix(" ")
        .indent("")
        .max_multivalue_count(4)
        .max_string_len(60)
        .max_binary_value_dump_bytes(16)
        .list_default(braces)
        .list_string_simple(braces)
        .list_string_multiline(braces)
        .list_binary_value_dump(braces)
        .list_error_info(braces)
        .list_map(ListParams("{", ",", "}", true))
        .order_names_by_text(true);
  }

  static std::string traced(const AttributeValue& value, const TraceFormatter& formatter) {
    std::ostringstream text;
    value.write_trace(text, formatter, 0);
    return std::move(text).str();
  }

  /// It is printed whatever happens afterwards.
  void line(char mark, const Place& place, const std::string& text) {
    m_found = true;
    const std::string pointer = m_value + place.pointer();
    m_out << mark << ' ' << (pointer.empty() ? pointer : plain_or_quoted(pointer)) << ": " << text
          << '\n'
          << std::flush;
  }

  void compare_maps(const Place& place, const AttributeMap& a, const AttributeMap& b) {
    std::set<std::string> names;
    for (const auto& entry : a)
      names.insert(entry.first.value());
    for (const auto& entry : b)
      names.insert(entry.first.value());
    for (const std::string& name : names)
      compare_places(place.at(name), a.query_ptr(name), b.query_ptr(name));
  }

  void compare_lists(const Place& place, const AttributeValue& a, const AttributeValue& b) {
    for (std::size_t i = 0; i < std::max(a.size(), b.size()); ++i) {
      const AttributeValue in_a = i < a.size() ? a.subrange(i, 1) : AttributeValue();
      const AttributeValue in_b = i < b.size() ? b.subrange(i, 1) : AttributeValue();
      compare_places(place.at(std::to_string(i)), i < a.size() ? &in_a : nullptr,
                     i < b.size() ? &in_b : nullptr);
    }
  }

  void compare_places(const Place& place, const AttributeValue* a, const AttributeValue* b) {
    if (a != nullptr && b != nullptr) {
      compare(place, *a, *b);
    } else if (a != nullptr) {
      line('-', place, traced(*a, m_cut));
    } else if (b != nullptr) {
      line('+', place, traced(*b, m_cut));
    }
  }

  std::ostream& m_out;
  const TraceFormatter m_cut;  // leaves out what is long
  const TraceFormatter m_whole;
  std::string m_value;  // which of several, from the second on
  bool m_found = false;
};

struct Diff {
  Reading a;
  Reading b;
  Reading common;

  void run() {
    complete(a);
    complete(b);
    const PackageSetPtr packages = read_packages(common.packages);
    const auto source_a = open_source(a, packages);
    const auto source_b = open_source(b, packages);
    const bool differ = about_file(output_name("-"), [&] {
      Output out("-");
      source_a->feed(out);
      source_b->feed(out);
      OutputBuffer buffer(out);
      std::ostream text(&buffer);
      text.exceptions(std::ios::badbit);
      Difference difference(text);
      difference.compare(*source_a, *source_b);
      out.commit();
      return difference.found();
    });
    if (differ) throw Finding();
  }

 private:
  /// The options count for both; what a file's ending says goes before --from.
  void complete(Reading& reading) const {
    std::string file = std::move(reading.file);
    reading = common;
    reading.form = form_by_ending(file).value_or(common.form.value_or(Form::json));
    reading.file = std::move(file);
  }
};

}  // namespace

void add_diff(CLI::App& app) {
  CLI::App* command = app.add_subcommand(
      "diff", "Print what differs between two files, by JSON pointer; exit 1 when anything does");
  const auto diff = std::make_shared<Diff>();
  command->add_option("A", diff->a.file, "The old file; - is standard input")->required();
  command->add_option("B", diff->b.file, "The new file, in whatever form")->required();
  add_form_options(*command, diff->common);
  command->footer(
      "A line begins with - for what only A has, + for what only B has, ! for what differs.\n"
      "Types count: the Integer 2 and the Double 2.0 differ; a scalar and a list of one do not.\n"
      "Where a file has several values, the second one's pointers begin with #2, and so on.\n"
      "--from says the form of a file whose ending does not.\n\n"
      "Example:\n  ovattr diff order.json order.ovb");
  command->callback([diff] { diff->run(); });
}

}  // namespace ovattr
