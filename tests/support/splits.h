// SPDX-License-Identifier: Apache-2.0
// Feeding a reader its input in pieces of chosen sizes.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <vector>

#include "ovcore/read_stream.h"

namespace ovtest {

/// Delivers the text in at most the given piece sizes per `read_some` (the last one repeats), with
/// unknown length. The text must outlive the stream.
class PieceStream final : public ovcore::IReadStream {
 public:
  PieceStream(std::string_view text, std::vector<std::size_t> pieces)
      : m_text(text), m_pieces(std::move(pieces)) {}

  std::size_t read(void* buffer, std::size_t size) override {
    std::size_t total = 0;
    while (total < size) {
      const std::size_t got = read_some(static_cast<char*>(buffer) + total, size - total);
      if (got == 0) break;
      total += got;
    }
    return total;
  }
  std::size_t read_some(void* buffer, std::size_t size) override {
    const std::size_t piece = std::min({m_pieces[m_next], size, m_text.size()});
    if (m_next + 1 < m_pieces.size()) ++m_next;
    std::memcpy(buffer, m_text.data(), piece);
    m_text.remove_prefix(piece);
    return piece;
  }
  [[nodiscard]] std::uint64_t remaining() const override { return unknown; }

 private:
  std::string_view m_text;
  std::vector<std::size_t> m_pieces;
  std::size_t m_next = 0;
};

/// Calls `f(stream)` with the text cut in two at every place, and once byte by byte.
template <class F>
void for_each_split(std::string_view text, F&& f) {
  for (std::size_t cut = 1; cut < text.size(); ++cut) {
    f(ovcore::make_ref_counted<PieceStream>(text, std::vector<std::size_t>{cut, text.size()}));
  }
  f(ovcore::make_ref_counted<PieceStream>(text, std::vector<std::size_t>{1}));
}

}  // namespace ovtest
