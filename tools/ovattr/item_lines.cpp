// SPDX-License-Identifier: Apache-2.0
#include "tools/ovattr/item_lines.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "ovcore/time.h"
#include "ovcore/to_string.h"
#include "ovserialize/text_writer.h"
#include "ovserialize/transcode.h"
#include "tools/ovattr/quoted.h"

namespace ovattr {
namespace {

constexpr const char* kind_names[] = {"",       "null",     "boolean",  "integer",  "unsigned",
                                      "double", "string",   "time",     "duration", "uuid",
                                      "binary", "sequence", "structure"};

/// The next item as the text form has it, where that is not clearer otherwise.
std::string read_text(ovserialize::StreamReader& reader, int kind) {
  switch (kind) {
    case ovserialize::item_unsigned: {
      unsigned long long number = 0;
      reader >> number;
      return ovcore::to_string(number);
    }
    case ovserialize::item_absolute_time: {
      ovcore::AbsoluteTime time;
      reader >> time;
      return time.as_string();
    }
    case ovserialize::item_relative_time: {
      ovcore::RelativeTime time;
      reader >> time;
      return time.as_string();
    }
    case ovserialize::item_uuid: {
      ovcore::Uuid uuid;
      reader >> uuid;
      return uuid.as_string();
    }
    default:
      break;
  }
  Excerpt excerpt;
  ovserialize::TextWriter writer(excerpt);
  ovserialize::copy_item(reader, writer);
  return excerpt.text();
}

std::string joined(const std::string& label, const std::string& text) {
  return label.empty() ? text : label + ' ' + text;
}

void print_aligned(std::ostream& out, std::uint64_t number, std::size_t width) {
  const std::string text = ovcore::to_string(number);
  out << std::string(width - std::min(width, text.size()), ' ') << text;
}

}  // namespace

ItemLines::ItemLines(ovserialize::StreamReader& reader, std::ostream& out)
    : m_reader(reader), m_out(out) {
  m_out << "    offset     bytes  kind       meaning\n" << std::flush;
}

void ItemLines::scalar(const std::string& label) {
  start();
  const int kind = m_reader.item_kind();
  const std::string text = read_text(m_reader, kind);
  print(kind_names[kind], joined(label, text));
}

std::uint64_t ItemLines::read_unsigned() {
  start();
  unsigned long long number = 0;
  m_reader >> number;
  return number;
}

ovcore::Uuid ItemLines::read_uuid() {
  start();
  ovcore::Uuid uuid;
  m_reader >> uuid;
  return uuid;
}

void ItemLines::open_sequence(const std::string& label) {
  start();
  const std::uint64_t count = m_reader.begin_sequence();
  print("sequence", joined(label, "of " + ovcore::to_string(count)));
  m_open.push_back(false);
}

bool ItemLines::has_next_element() {
  start();
  if (m_reader.has_next_element()) return true;
  m_open.pop_back();
  if (m_reader.offset() != m_start) print("end", "");  // a sequence of one has no mark
  return false;
}

void ItemLines::open_structure(const std::string& label) {
  start();
  m_reader.begin_structure();
  print("structure", label);
  m_open.push_back(true);
}

void ItemLines::close_structure() {
  start();
  m_reader.end_structure();
  m_open.pop_back();
  print("end", "");
}

void ItemLines::print_rest() {
  while (!at_end()) {
    const bool in_structure = !m_open.empty() && m_open.back();
    const bool in_sequence = !m_open.empty() && !m_open.back();
    if (in_structure && kind() == ovserialize::item_none) {
      close_structure();
    } else if (!in_sequence || has_next_element()) {
      next_of_rest();
    }
  }
}

void ItemLines::next_of_rest() {
  switch (kind()) {
    case ovserialize::item_sequence:
      return open_sequence("");
    case ovserialize::item_structure:
      return open_structure("");
    default:
      return scalar("");
  }
}

void ItemLines::print(const char* kind, const std::string& meaning) {
  const std::string_view kind_text = kind;
  print_aligned(m_out, m_start, 10);
  print_aligned(m_out, m_reader.offset() - m_start, 10);
  m_out << "  " << kind_text;
  if (!meaning.empty()) {
    m_out << std::string(11 - kind_text.size() + 2 * m_open.size(), ' ') << meaning;
  }
  m_out << '\n' << std::flush;  // the line is printed whatever comes after it
}

}  // namespace ovattr
