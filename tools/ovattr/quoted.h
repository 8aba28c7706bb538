// SPDX-License-Identifier: Apache-2.0
// Text that came from outside, made fit for a line of output.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "ovserialize/text_target.h"

namespace ovattr {

/// Keeps the beginning of a text and drops the rest.
class Excerpt final : public ovserialize::ITextTarget {
 public:
  void put(char character) override { write(&character, 1); }
  void write(const char* text, std::size_t size) override;

  /// With "..." where something was dropped.
  [[nodiscard]] std::string text() const;

 private:
  static constexpr std::size_t max_size = 60;

  std::string m_text;
  bool m_cut = false;
};

/// Fit for a terminal: control characters that are not among these, U+0080 to U+009F included, and
/// bytes that are no UTF-8 become "?".
[[nodiscard]] std::string without_controls(std::string_view text, std::string_view allowed = {});
/// In quotes as the text form has it, shortened.
[[nodiscard]] std::string quoted(const std::string& text);
/// The text as it is, in quotes only where it would be mistaken for something else.
[[nodiscard]] std::string plain_or_quoted(const std::string& text);

}  // namespace ovattr
