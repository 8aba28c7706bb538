// SPDX-License-Identifier: Apache-2.0
// For texts that are read only to be made into something else.
#pragma once

#include <string>

#include "ovcore/operating_system.h"

namespace ovcore::impl {

/// A text that is overwritten at the end of its life: it may come from what was sealed.
class WipedText {
 public:
  WipedText() noexcept = default;
  WipedText(const WipedText&) = delete;
  WipedText& operator=(const WipedText&) = delete;
  ~WipedText() { cleanse(m_text.data(), m_text.size()); }

  [[nodiscard]] std::string& operator*() noexcept { return m_text; }

 private:
  std::string m_text;
};

}  // namespace ovcore::impl
