// SPDX-License-Identifier: Apache-2.0
#include "ovuri/impl/uri_syntax.h"

#include <uriparser/Uri.h>

#include <algorithm>
#include <cstddef>
#include <new>
#include <utility>

namespace ovuri::impl {
namespace {

/// Memory for one run of the parser, which asks for many small pieces: handed out from chunks and
/// given back all at once, the first chunk being part of this object.
class ParserMemory {
 public:
  ParserMemory() noexcept
      : m_manager{allocate, uriEmulateCalloc, reallocate, uriEmulateReallocarray, [](auto...) {},
                  this} {}
  ParserMemory(const ParserMemory&) = delete;
  ParserMemory& operator=(const ParserMemory&) = delete;
  ~ParserMemory() {
    while (m_newest != nullptr)
      ::operator delete(std::exchange(m_newest, m_newest->older));
  }

  UriMemoryManager* manager() noexcept { return &m_manager; }

 private:
  static constexpr std::size_t largest_chunk = std::size_t{1} << 20;

  struct alignas(std::max_align_t) Chunk {
    Chunk* older;
  };

  static void* allocate(UriMemoryManager* manager, std::size_t size) noexcept {
    return static_cast<ParserMemory*>(manager->userData)->take(size);
  }
  /// The parser asks for nothing to be resized.
  static void* reallocate(UriMemoryManager*, void*, std::size_t) noexcept { return nullptr; }

  void* take(std::size_t size) noexcept {
    size = (size + alignof(std::max_align_t) - 1) & ~(alignof(std::max_align_t) - 1);
    if (size > static_cast<std::size_t>(m_end - m_next) && !add_chunk(size)) return nullptr;
    return std::exchange(m_next, m_next + size);
  }
  bool add_chunk(std::size_t least) noexcept {
    const std::size_t size = std::max(least, m_chunk_size);
    void* const memory = ::operator new(sizeof(Chunk) + size, std::nothrow);
    if (memory == nullptr) return false;
    m_newest = ::new (memory) Chunk{m_newest};
    m_next = reinterpret_cast<std::byte*>(m_newest + 1);
    m_end = m_next + size;
    m_chunk_size = std::min(2 * m_chunk_size, largest_chunk);
    return true;
  }

  UriMemoryManager m_manager;
  Chunk* m_newest = nullptr;
  std::size_t m_chunk_size = 4096;
  alignas(std::max_align_t) std::byte m_first[512];
  std::byte* m_next = m_first;
  std::byte* m_end = m_first + sizeof(m_first);
};

/// Takes the part in front of the first of `delimiters` off `rest`.
std::string_view take_until(std::string_view& rest, std::string_view delimiters) noexcept {
  const std::string_view part = rest.substr(0, rest.find_first_of(delimiters));
  rest.remove_prefix(part.size());
  return part;
}

}  // namespace

std::size_t find_syntax_error(std::string_view text) {
  if (text.empty()) return no_error;
  ParserMemory memory;
  UriUriA uri;
  const char* error = nullptr;
  switch (uriParseSingleUriExMmA(&uri, text.data(), text.data() + text.size(), &error,
                                 memory.manager())) {
    case URI_SUCCESS:
      return no_error;
    case URI_ERROR_SYNTAX:
      return static_cast<std::size_t>(error - text.data());
    default:
      throw std::bad_alloc();
  }
}

// RFC 3986 appendix B.
UriParts split(std::string_view text) noexcept {
  UriParts parts;
  std::string_view rest = text;
  const std::string_view first = take_until(rest, ":/?#");
  if (rest.starts_with(':')) {
    parts.scheme = first;
    rest.remove_prefix(1);
  } else {
    rest = text;
  }
  if (rest.starts_with("//")) {
    rest.remove_prefix(2);
    parts.authority = take_until(rest, "/?#");
  }
  parts.path = take_until(rest, "?#");
  if (rest.starts_with('?')) {
    rest.remove_prefix(1);
    parts.query = take_until(rest, "#");
  }
  if (rest.starts_with('#')) parts.fragment = rest.substr(1);
  return parts;
}

AuthorityParts split_authority(std::string_view authority) noexcept {
  AuthorityParts parts;
  std::string_view rest = authority;
  const std::string_view first = take_until(rest, "@");
  if (rest.starts_with('@')) {
    parts.userinfo = first;
    rest.remove_prefix(1);
  } else {
    rest = authority;
  }
  const std::size_t host_size = rest.starts_with('[') ? rest.find(']') + 1 : rest.find(':');
  parts.host = rest.substr(0, host_size);
  rest.remove_prefix(parts.host.size());
  if (rest.starts_with(':')) parts.port = rest.substr(1);
  return parts;
}

}  // namespace ovuri::impl
