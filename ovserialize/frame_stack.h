// SPDX-License-Identifier: Apache-2.0
// The sequences and structures that a reader or writer has open.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "ovcore/export.h"

namespace ovserialize {

enum class Frame : std::uint8_t {
  none,
  counted,       // a sequence with an end mark
  single,        // a sequence announced with 1
  single_asked,  // the same, after `has_next_element` has answered true
  structure,
};

/// A byte per open frame; the first few cost no allocation.
class OV_EXPORT FrameStack {
 public:
  [[nodiscard]] std::size_t depth() const noexcept { return m_depth; }
  /// The innermost frame.
  [[nodiscard]] Frame top() const noexcept { return m_top; }
  void set_top(Frame frame) noexcept { m_top = frame; }

  /// Makes sure that the next `push` finds its room.
  void reserve() {
    if (m_depth >= inline_size + m_more.size()) grow();
  }
  void push(Frame frame) noexcept {
    slot(m_depth++) = m_top;
    m_top = frame;
  }
  void pop() noexcept { m_top = slot(--m_depth); }
  void clear() noexcept { return_to({}); }

  struct Mark {
    std::size_t depth = 0;
    Frame top = Frame::none;
  };
  [[nodiscard]] Mark mark() const noexcept { return {m_depth, m_top}; }
  /// Drops the frames that were opened since. REQUIRES: no other was ended.
  void return_to(const Mark& mark) noexcept {
    m_depth = mark.depth;
    m_top = mark.top;
  }

 private:
  static constexpr std::size_t inline_size = 22;

  void grow();
  // Holds the frame around the one that was pushed at this depth.
  Frame& slot(std::size_t i) noexcept {
    return i < inline_size ? m_inline[i] : m_more[i - inline_size];
  }

  std::size_t m_depth = 0;
  std::vector<Frame> m_more;
  Frame m_top = Frame::none;
  Frame m_inline[inline_size];
};

}  // namespace ovserialize
