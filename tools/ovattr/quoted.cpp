// SPDX-License-Identifier: Apache-2.0
#include "tools/ovattr/quoted.h"

#include <algorithm>

#include "ovcore/utf8.h"
#include "ovserialize/text_writer.h"

namespace ovattr {
namespace {

bool is_control(char c) noexcept {
  return static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
}

}  // namespace

void Excerpt::write(const char* text, std::size_t size) {
  const std::size_t taken = std::min(size, max_size - m_text.size());
  m_text.append(text, taken);
  m_cut = m_cut || taken != size;
}

std::string Excerpt::text() const {
  if (!m_cut) return m_text;
  std::string text = m_text;
  while (!ovcore::is_utf8(text))
    text.pop_back();
  return text + "...";
}

std::string without_controls(std::string_view text, std::string_view allowed) {
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    const char c = text.front();
    std::size_t size = 1;
    bool shown = !is_control(c) || allowed.find(c) != allowed.npos;
    if (static_cast<unsigned char>(c) >= 0x80) {
      const ovcore::Utf8Sequence character = ovcore::first_utf8_sequence(text);
      size = character.size;
      const bool control = c == '\xc2' && size == 2 && static_cast<unsigned char>(text[1]) < 0xa0;
      shown = character.state == ovcore::Utf8Sequence::State::whole && !control;
    }
    result += shown ? text.substr(0, size) : "?";
    text.remove_prefix(size);
  }
  return result;
}

std::string quoted(const std::string& text) {
  Excerpt excerpt;
  ovserialize::TextWriter(excerpt) << text;
  return excerpt.text();
}

std::string plain_or_quoted(const std::string& text) {
  const bool plain = !text.empty() && text.front() != '"' && text.front() != ' ' &&
                     text.back() != ' ' && ovcore::is_utf8(text) &&
                     std::none_of(text.begin(), text.end(), is_control);
  if (plain) return text;
  std::string result;
  ovserialize::StringTextTarget target(result);
  ovserialize::TextWriter(target) << text;
  return result;
}

}  // namespace ovattr
