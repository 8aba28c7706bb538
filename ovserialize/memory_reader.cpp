// SPDX-License-Identifier: Apache-2.0
#include "ovserialize/memory_reader.h"

#include <algorithm>
#include <cstring>

#include "ovcore/operating_system.h"

namespace ovserialize {
namespace {

// A block that is a smaller part of the whole than this is copied, rather than keeping all for it.
constexpr std::size_t shared_part = 4;

}  // namespace

MemoryReader::MemoryReader(ovcore::RefCountPtr<const MemoryList> list,
                           const Limits& limits) noexcept
    : BinaryReader(limits), m_list(std::move(list)), m_beyond(m_list ? m_list->size() : 0) {
  fill(1);
}

MemoryReader::MemoryReader(const void* data, std::size_t size, const Limits& limits) noexcept
    : BinaryReader(limits), m_data(static_cast<const unsigned char*>(data), size), m_beyond(0) {
  set_window(m_data.data(), size, 0);
}

MemoryReader::~MemoryReader() {
  if (m_list && m_list->wiping()) ovcore::cleanse(m_edge, edge_size);
}

ovcore::RefCountPtr<const MemoryList> MemoryReader::memory_list() const {
  return m_list ? m_list : MemoryList::create_copy(m_data.data(), m_data.size());
}

// The bytes behind the window, up to the end of their run.
std::span<const unsigned char> MemoryReader::next_run() noexcept {
  while (m_rest.empty() && m_beyond > 0)
    m_rest = m_list->span(m_next++);
  return m_rest;
}

bool MemoryReader::fill(std::size_t size) {
  const std::uint64_t offset = position();
  std::size_t kept = in_window();
  if (kept == 0 && (size == 1 || next_run().size() >= size)) {
    const auto run = next_run();
    m_rest = {};
    m_beyond -= run.size();
    set_window(run.data(), run.size(), offset);
    return in_window() >= size;
  }
  if (kept > 0) std::memmove(m_edge, cursor(), kept);
  while (kept < size && m_beyond > 0) {
    const auto run = next_run();
    const std::size_t added = std::min(size - kept, run.size());
    std::memcpy(m_edge + kept, run.data(), added);
    m_rest = run.subspan(added);
    m_beyond -= added;
    kept += added;
  }
  set_window(m_edge, kept, offset);
  return kept >= size;
}

ovcore::RefCountPtr<const MemoryList> MemoryReader::take_list(std::size_t size) {
  if (!m_list || available() < size) return BinaryReader::take_list(size);
  const bool share = size >= MemoryList::shared_from && size >= m_list->size() / shared_part;
  const auto offset = static_cast<std::size_t>(position());
  ovcore::RefCountPtr<const MemoryList> result =
      share ? m_list->slice(offset, size)
            : ovcore::RefCountPtr<const MemoryList>(m_list->copy(offset, size));
  skip(size);
  return result;
}

}  // namespace ovserialize
