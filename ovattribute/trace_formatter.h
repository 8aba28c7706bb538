// SPDX-License-Identifier: Apache-2.0
// How values and maps are written as text for people. Nothing reads it back.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <utility>

#include "ovcore/export.h"
#include "ovcore/ref_count.h"
#include "ovcore/source_string.h"

namespace ovattribute {

// Every setting with its type and default, in one list.
//
// A newline in a text is not written as such: it becomes `line_prefix` and the indentation of the
// level, see `TraceFormatter::render_indented`.
#define OV_TRACE_SETTINGS(NUMBER, TEXT, LIST)                        \
  NUMBER(bool, show_type, true) /* "[Type: ...]" around a value */   \
  NUMBER(std::uint32_t, max_multivalue_count, 32)                    \
  NUMBER(std::uint32_t, multiline_length_threshold, 128) /* bytes */ \
  NUMBER(std::uint32_t, max_string_len, 4096)            /* bytes */ \
  NUMBER(std::uint32_t, max_binary_value_dump_bytes, 256)            \
  NUMBER(std::uint32_t, binary_value_dump_line_size, 32) /* bytes */ \
  TEXT(line_prefix, "\n ")                                           \
  TEXT(indent, "  ")                                                 \
  TEXT(error_info_null, "##NULL##")                                  \
  LIST(list_default, "{", ", ", "}")                                 \
  LIST(list_map, "\n {", "\n ,", "\n }")                             \
  LIST(list_string_simple, "{", ", ", "}")                           \
  LIST(list_string_multiline, "\n {", "\n , ", "\n }")               \
  LIST(list_binary_value_dump, "\n {", "\n , ", "\n }")              \
  LIST(list_error_info, "\n {", "\n , ", "\n }")                     \
  TEXT(map_element_prefix, "\n'")                                    \
  TEXT(map_name_value_separator, "' => ")                            \
  TEXT(map_element_suffix, "")                                       \
  TEXT(multiline_string_prefix, "\n  \"")                            \
  TEXT(multiline_string_newline, "\"\n  \"")                         \
  TEXT(multiline_string_suffix, "\"")                                \
  TEXT(binary_value_dump_prefix, "\n  ")                             \
  TEXT(binary_value_dump_newline, "\n  ")                            \
  TEXT(binary_value_dump_suffix, "")                                 \
  TEXT(error_info_line_prefix, "\n  ")                               \
  NUMBER(bool, order_names_by_text, false) /* else maps print in their own order */

/// An immutable set of layout settings; copies share it, between threads too. `Composer` makes a
/// changed one.
class OV_EXPORT TraceFormatter {
 public:
  class ListParams;
  class Composer;

  /// Shares the default settings.
  TraceFormatter();
  TraceFormatter(const TraceFormatter&) noexcept;
  TraceFormatter& operator=(const TraceFormatter&) noexcept;
  ~TraceFormatter();

#define OV_NUMBER(type, name, value) [[nodiscard]] type name() const noexcept;
#define OV_TEXT(name, value) [[nodiscard]] const std::string& name() const noexcept;
#define OV_LIST(name, prefix, separator, suffix) \
  [[nodiscard]] const ListParams& name() const noexcept;
  OV_TRACE_SETTINGS(OV_NUMBER, OV_TEXT, OV_LIST)
#undef OV_NUMBER
#undef OV_TEXT
#undef OV_LIST

  /// Writes `line_prefix`, then `indent` `level` times.
  std::ostream& indented(std::ostream& out, unsigned level) const;
  /// Writes the text; a line break in it, "\n" or "\r\n", becomes `indented`.
  std::ostream& render_indented(std::ostream& out, unsigned level, ovcore::SourceString text) const;
  std::ostream& render_indented(std::ostream& out, unsigned level, const char* text,
                                std::size_t size) const {
    return render_indented(out, level, ovcore::SourceString(text, size));
  }

 private:
  struct Settings;
  explicit TraceFormatter(ovcore::RefCountPtr<const Settings> settings) noexcept;

  ovcore::RefCountPtr<const Settings> m_settings;
};

/// How one kind of list is bracketed and separated. Texts are copied.
class OV_EXPORT TraceFormatter::ListParams {
 public:
  /// `show_for_scalar`: whether a list of exactly one element has prefix and suffix.
  ListParams(ovcore::SourceString prefix, ovcore::SourceString separator,
             ovcore::SourceString suffix, bool show_for_scalar)
      : m_prefix(prefix.view()),
        m_separator(separator.view()),
        m_suffix(suffix.view()),
        m_show_for_scalar(show_for_scalar) {}

  [[nodiscard]] const std::string& prefix() const noexcept { return m_prefix; }
  [[nodiscard]] const std::string& separator() const noexcept { return m_separator; }
  [[nodiscard]] const std::string& suffix() const noexcept { return m_suffix; }
  [[nodiscard]] bool show_for_scalar() const noexcept { return m_show_for_scalar; }

  ListParams& prefix(ovcore::SourceString text) {
    m_prefix = text.view();
    return *this;
  }
  ListParams& separator(ovcore::SourceString text) {
    m_separator = text.view();
    return *this;
  }
  ListParams& suffix(ovcore::SourceString text) {
    m_suffix = text.view();
    return *this;
  }
  ListParams& show_for_scalar(bool show) noexcept {
    m_show_for_scalar = show;
    return *this;
  }
  void swap(ListParams& other) noexcept { std::swap(*this, other); }

 private:
  std::string m_prefix;
  std::string m_separator;
  std::string m_suffix;
  bool m_show_for_scalar;
};

/// Builds a formatter from the default settings or another formatter's. Used by one thread.
class OV_EXPORT TraceFormatter::Composer {
 public:
  Composer();
  explicit Composer(const TraceFormatter& formatter);
  Composer(const Composer& other);
  Composer& operator=(const Composer& other);
  ~Composer();

#define OV_NUMBER(type, name, value) Composer& name(type setting) noexcept;
#define OV_TEXT(name, value) Composer& name(ovcore::SourceString setting);
#define OV_LIST(name, prefix, separator, suffix) Composer& name(const ListParams& setting);
  OV_TRACE_SETTINGS(OV_NUMBER, OV_TEXT, OV_LIST)
#undef OV_NUMBER
#undef OV_TEXT
#undef OV_LIST

  [[nodiscard]] TraceFormatter compose() const;

 private:
  ovcore::RefCountPtr<Settings> m_settings;  // this composer's own
};

}  // namespace ovattribute
