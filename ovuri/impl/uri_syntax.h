// SPDX-License-Identifier: Apache-2.0
// The grammar of URI references (RFC 3986 section 4.1): whether text follows it, and its parts.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace ovuri::impl {

inline constexpr std::size_t no_error = std::string_view::npos;

/// The position of the byte at which `text` stops being the beginning of any URI reference, or its
/// size when it ends too early; `no_error` when it is one. Linear in time; takes up to 32 bytes of
/// memory a byte for a moment, for the parser notes every slash. Raises `std::bad_alloc`.
std::size_t find_syntax_error(std::string_view text);

/// RFC 3986 section 3; what is absent differs from what is empty.
struct UriParts {
  std::optional<std::string_view> scheme;
  std::optional<std::string_view> authority;
  std::string_view path;
  std::optional<std::string_view> query;
  std::optional<std::string_view> fragment;
};
/// REQUIRES: `text` is a URI reference. The parts are views of it.
UriParts split(std::string_view text) noexcept;

/// RFC 3986 section 3.2.
struct AuthorityParts {
  std::optional<std::string_view> userinfo;
  std::string_view host;
  std::optional<std::string_view> port;
};
AuthorityParts split_authority(std::string_view authority) noexcept;

}  // namespace ovuri::impl
