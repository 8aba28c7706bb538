// SPDX-License-Identifier: Apache-2.0
// The trace text of values and maps.
#include <algorithm>
#include <concepts>
#include <cstddef>
#include <ostream>
#include <span>
#include <string>
#include <string_view>

#include "ovattribute/attribute_map.h"
#include "ovattribute/attribute_value.h"
#include "ovattribute/binary_value.h"
#include "ovattribute/impl/text_order.h"
#include "ovattribute/nesting.h"
#include "ovattribute/secured_value.h"
#include "ovattribute/serialized_value.h"
#include "ovattribute/trace_formatter.h"
#include "ovcore/error_info.h"
#include "ovcore/simple_date_time.h"
#include "ovcore/time.h"
#include "ovcore/to_string.h"
#include "ovcore/uuid.h"
#include "ovuri/uri_reference.h"

namespace ovattribute {
namespace {

using ovcore::SourceString;

/// Where and how the current value is written.
struct Trace {
  std::ostream& out;
  const TraceFormatter& formatter;
  unsigned level;

  void indented(SourceString text) const { formatter.render_indented(out, level, text); }
  template <std::integral N>
  void number(N value) const {
    out << SourceString(ovcore::NumberText(value).view());
  }
  void left_out(std::size_t count) const {
    out << "...(+";
    number(count);
    out << ')';
  }
};

/// What stands around a list.
struct ListMarks {
  bool type;
  bool brackets;
};

[[gnu::always_inline]] inline ListMarks begin_list(const Trace& trace,
                                                   const TraceFormatter::ListParams& params,
                                                   const ValueTypeId& type, std::size_t count) {
  const ListMarks marks{trace.formatter.show_type(), params.show_for_scalar() || count != 1};
  if (marks.type) trace.out << '[' << type << ": ";
  if (marks.brackets) trace.indented(params.prefix());
  return marks;
}

/// False at the end, and when this element and those behind it are left out.
[[gnu::always_inline]] inline bool begin_element(const Trace& trace,
                                                 const TraceFormatter::ListParams& params,
                                                 std::size_t i, std::size_t count) {
  if (i == count) return false;
  if (i == trace.formatter.max_multivalue_count()) return trace.left_out(count - i), false;
  if (i > 0) trace.indented(params.separator());
  return true;
}

[[gnu::always_inline]] inline void end_list(const Trace& trace,
                                            const TraceFormatter::ListParams& params,
                                            ListMarks marks) {
  if (marks.brackets) trace.indented(params.suffix());
  if (marks.type) trace.out << ']';
}

template <class T, class WriteElement>
void write_list(const Trace& trace, const TraceFormatter::ListParams& params,
                std::span<const T> elements, WriteElement&& write_element) {
  const ListMarks marks =
      begin_list(trace, params, impl::ValueTypeTraits<T>::type(), elements.size());
  for (std::size_t i = 0; begin_element(trace, params, i, elements.size()); ++i)
    write_element(elements[i]);
  end_list(trace, params, marks);
}

/// The size to which a text is cut: no UTF-8 character is split.
std::size_t cut_size(std::string_view text, std::size_t limit) {
  if (text.size() <= limit) return text.size();
  while (limit > 0 && (static_cast<unsigned char>(text[limit]) & 0xC0) == 0x80)
    --limit;
  return limit;
}

void write_simple_string(const Trace& trace, std::string_view text) {
  const std::size_t size = cut_size(text, trace.formatter.max_string_len());
  trace.out << '"' << SourceString(text.substr(0, size)) << '"';
  if (size < text.size()) trace.left_out(text.size() - size);
}

/// Writes the lines of a text with `between` for each line break.
void write_lines(const Trace& trace, std::string_view text, SourceString between) {
  for (std::size_t end; (end = text.find('\n')) != text.npos; text.remove_prefix(end + 1)) {
    std::string_view line = text.substr(0, end);
    if (line.ends_with('\r')) line.remove_suffix(1);
    trace.out << SourceString(line);
    trace.indented(between);
  }
  trace.out << SourceString(text);
}

void write_multiline_string(const Trace& trace, std::string_view text) {
  const std::size_t size = cut_size(text, trace.formatter.max_string_len());
  trace.indented(trace.formatter.multiline_string_prefix());
  write_lines(trace, text.substr(0, size), trace.formatter.multiline_string_newline());
  trace.indented(trace.formatter.multiline_string_suffix());
  if (size < text.size()) trace.left_out(text.size() - size);
}

// The length of the first element is not looked at: one long text stays on its line.
bool is_multiline(std::span<const std::string> elements, std::size_t threshold) {
  for (std::size_t i = 0; i < elements.size(); ++i) {
    if (elements[i].find('\n') != std::string::npos) return true;
    if (i > 0 && elements[i].size() >= threshold) return true;
  }
  return false;
}

/// Lower-case hexadecimal bytes, a blank between two.
void write_binary_dump(const Trace& trace, const BinaryValue& value) {
  const TraceFormatter& f = trace.formatter;
  const std::size_t shown = std::min<std::size_t>(value.size(), f.max_binary_value_dump_bytes());
  trace.indented(f.binary_value_dump_prefix());
  for (std::size_t i = 0; i < shown; ++i) {
    if (i > 0) {
      if (i % f.binary_value_dump_line_size() == 0) {
        trace.indented(f.binary_value_dump_newline());
      } else {
        trace.out << ' ';
      }
    }
    static constexpr char digits[] = "0123456789abcdef";
    trace.out << digits[value.data()[i] >> 4] << digits[value.data()[i] & 15];
  }
  trace.indented(f.binary_value_dump_suffix());
  if (shown < value.size()) trace.left_out(value.size() - shown);
}

void write_size(const Trace& trace, const BinaryValue& value) {
  trace.out << "<size=";
  trace.number(value.size());
  trace.out << '>';
}

/// Code and message, then each parameter, then the place; causes follow in the same form.
void write_error(const Trace& trace, const impl::ErrorInfoPtr& error) {
  if (!error) {
    trace.indented(trace.formatter.error_info_null());
    return;
  }
  const SourceString line = trace.formatter.error_info_line_prefix();
  for (const ovcore::ErrorInfo* e = error.get(); e != nullptr; e = e->cause().get()) {
    trace.indented(line);
    if (e != error.get()) trace.out << "caused by ";
    write_lines(trace, e->code().text(), line);
    trace.out << ": ";
    write_lines(trace, e->message(), line);
    for (const auto& p : e->parameters()) {
      trace.indented(line);
      trace.out << "  ";
      write_lines(trace, p.name, line);
      trace.out << "='";
      write_lines(trace, p.value, line);
      trace.out << '\'';
    }
    if (e->location() == ovcore::SourceLocation()) continue;
    trace.indented(line);
    trace.out << "  at ";
    write_lines(trace, e->location().function, line);
    trace.out << ", ";
    write_lines(trace, e->location().file, line);
    if (e->location().line != 0) {
      trace.out << ':';
      trace.number(e->location().line);
    }
  }
}

/// Writes what stands before the value of the next entry, and returns that; null at the end.
[[gnu::noinline]] const AttributeValue* begin_entry(const Trace& trace, impl::EntryWalk& walk) {
  const AttributeMap::value_type* const entry = walk.next();
  if (entry == nullptr) return nullptr;
  trace.indented(trace.formatter.map_element_prefix());
  trace.out << entry->first;
  trace.indented(trace.formatter.map_name_value_separator());
  return &entry->second;
}

[[gnu::noinline]] void end_entry(const Trace& trace) {
  trace.indented(trace.formatter.map_element_suffix());
}

// Recurses over the values of the maps. Its frame is all that a level takes of the stack, so what
// needs more of it stands in functions that are not inlined.
[[gnu::noinline]] void write_maps(std::ostream& out, const TraceFormatter& formatter,
                                  unsigned level, std::span<const AttributeMap> maps) {
  Trace trace{out, formatter, level};
  const TraceFormatter::ListParams& params = formatter.list_map();
  const ListMarks marks = begin_list(trace, params, ValueTypeId::typeAttributeMap, maps.size());
  for (std::size_t i = 0; begin_element(trace, params, i, maps.size()); ++i) {
    const impl::NestingGuard guard;
    ++trace.level;
    impl::EntryWalk walk(maps[i], formatter.order_names_by_text());
    while (const AttributeValue* value = begin_entry(trace, walk)) {
      value->write_trace(out, formatter, trace.level);
      end_entry(trace);
    }
    --trace.level;
  }
  end_list(trace, params, marks);
}

void write_element(const Trace& trace, bool value) {
  trace.out << (value ? "true" : "false");
}
void write_element(const Trace& trace, long long value) {
  trace.number(value);
}
void write_element(const Trace& trace, double value) {
  trace.out << SourceString(ovcore::NumberText(value).view());
}
void write_element(const Trace& trace, const SerializedValue& value) {
  trace.out << "<type='" << SourceString(value.type()) << "', size=";
  trace.number(value.size());
  trace.out << '>';
}
template <class T>
void write_element(const Trace& trace, const T& value) {
  trace.out << value;
}

}  // namespace

template <class T>
void impl::ValueTypeTraitsBase<T>::write_trace(std::ostream& out, const TraceFormatter& formatter,
                                               unsigned level, std::span<const T> elements) {
  out.width(0);  // pads what is written next, which is a piece of this
  const Trace trace{out, formatter, level};
  const auto list = [&](const TraceFormatter::ListParams& params, auto&& write) {
    write_list(trace, params, elements, [&](const T& element) { write(trace, element); });
  };
  if constexpr (std::same_as<T, NullValueType>) {
    out << "[Null]";
  } else if constexpr (std::same_as<T, std::string>) {
    if (is_multiline(elements, formatter.multiline_length_threshold())) {
      list(formatter.list_string_multiline(), write_multiline_string);
    } else {
      list(formatter.list_string_simple(), write_simple_string);
    }
  } else if constexpr (std::same_as<T, BinaryValue>) {
    if (formatter.max_binary_value_dump_bytes() != 0 &&
        formatter.binary_value_dump_line_size() != 0) {
      list(formatter.list_binary_value_dump(), write_binary_dump);
    } else {
      list(formatter.list_default(), write_size);
    }
  } else if constexpr (std::same_as<T, AttributeMap>) {
    write_maps(out, formatter, level, elements);
  } else if constexpr (std::same_as<T, ErrorInfoPtr>) {
    list(formatter.list_error_info(), write_error);
  } else {
    list(formatter.list_default(),
         [](const Trace& t, const T& element) { write_element(t, element); });
  }
}

#define OV_INSTANTIATE(T)                                                                       \
  template void impl::ValueTypeTraitsBase<T>::write_trace(std::ostream&, const TraceFormatter&, \
                                                          unsigned, std::span<const T>);
OV_INSTANTIATE(impl::NullValueType)
OV_INSTANTIATE(bool)
OV_INSTANTIATE(long long)
OV_INSTANTIATE(std::string)
OV_INSTANTIATE(double)
OV_INSTANTIATE(ovcore::Uuid)
OV_INSTANTIATE(ovuri::UriReference)
OV_INSTANTIATE(ovcore::AbsoluteTime)
OV_INSTANTIATE(ovcore::RelativeTime)
OV_INSTANTIATE(ovcore::SimpleDateTime)
OV_INSTANTIATE(BinaryValue)
OV_INSTANTIATE(SerializedValue)
OV_INSTANTIATE(AttributeMap)
OV_INSTANTIATE(SecuredValue)
OV_INSTANTIATE(impl::ErrorInfoPtr)
#undef OV_INSTANTIATE

void AttributeMapBase::write_trace(std::ostream& out, const TraceFormatter& formatter,
                                   unsigned level) const {
  const AttributeMap map(*this);
  impl::ValueTypeTraits<AttributeMap>::write_trace(out, formatter, level, {&map, 1});
}

void AttributeMapBase::write_trace(std::ostream& out, const char* prefix,
                                   const char* separator) const {
  TraceFormatter::Composer composer;
  composer.line_prefix(prefix).map_element_prefix("\n");
  if (SourceString(prefix).empty()) composer.indent("");
  const TraceFormatter formatter = composer.compose();
  out.width(0);
  bool first = true;
  for (const auto& [name, value] : *this) {
    if (!first) out << SourceString(separator);
    first = false;
    out << SourceString(prefix) << '\'' << name << "' => ";
    value.write_trace(out, formatter, 0);
  }
}

std::ostream& operator<<(std::ostream& out, const AttributeValue& value) {
  value.write_trace(out, TraceFormatter(), 0);
  return out;
}

std::ostream& operator<<(std::ostream& out, const AttributeMapBase& map) {
  map.write_trace(out, TraceFormatter(), 0);
  return out;
}

std::ostream& operator<<(std::ostream& out, const Attribute& attribute) {
  out.width(0);
  return out << '\'' << attribute.name() << "' => " << attribute.value();
}

// Where values differ behind what is cut, a message would show two equal texts.
void PrintTo(const AttributeValue& value, std::ostream* out) {
  constexpr std::uint32_t much = 10'000;
  TraceFormatter::Composer composer;
  composer.order_names_by_text(true).max_multivalue_count(much).max_string_len(10 * much);
  composer.max_binary_value_dump_bytes(much);
  value.write_trace(*out, composer.compose(), 0);
}

void PrintTo(const AttributeMap& map, std::ostream* out) {
  PrintTo(AttributeValue(map), out);
}
void PrintTo(const MutableAttributeMap& map, std::ostream* out) {
  PrintTo(AttributeValue(map), out);
}
void PrintTo(const BinaryValue& value, std::ostream* out) {
  PrintTo(AttributeValue(value), out);
}
void PrintTo(const SerializedValue& value, std::ostream* out) {
  PrintTo(AttributeValue(value), out);
}

}  // namespace ovattribute
