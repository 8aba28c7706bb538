// SPDX-License-Identifier: Apache-2.0
// URIs and relative references (RFC 3986).
#pragma once

#include <compare>
#include <cstddef>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>

#include "ovcore/export.h"
#include "ovcore/ref_count.h"
#include "ovcore/source_string.h"

namespace ovuri {

/// A URI or a relative reference, checked against the grammar of RFC 3986 section 4.1, its text
/// kept as given. The default is the empty text, which is the reference to the same document.
///
/// An immutable value: copies share one text, between threads too, and cost a pointer. Equality,
/// order and hash are by simple string comparison (RFC 3986 section 6.2.1): references that differ
/// in letter case, escapes or dot segments differ.
class OV_EXPORT UriReference {
 public:
  /// In bytes; also of what `resolve` makes.
  static constexpr std::size_t max_size = std::size_t{16} << 20;

  UriReference() noexcept = default;
  /// Copies the text. Raises `ovuri_syntax` with the position of the first byte that cannot
  /// belong to a URI reference, such as a blank, a NUL or any byte beyond ASCII, or of the end;
  /// raises `ovuri_size`.
  explicit UriReference(ovcore::SourceString text);
  /// Empty where the constructor would raise an error. Raises `std::bad_alloc` only.
  [[nodiscard]] static std::optional<UriReference> try_parse(ovcore::SourceString text);

  /// Valid as long as any copy of this reference, as are all parts below.
  [[nodiscard]] std::string_view text() const noexcept;
  [[nodiscard]] std::string as_string() const { return std::string(text()); }
  [[nodiscard]] bool empty() const noexcept { return !m_text; }

  /// The parts of the text, found by a scan in each call, without the delimiters around them and
  /// without decoding anything. What is absent differs from what is empty: "a?" has an empty query.
  [[nodiscard]] std::optional<std::string_view> scheme() const noexcept;
  [[nodiscard]] std::optional<std::string_view> authority() const noexcept;
  [[nodiscard]] std::optional<std::string_view> userinfo() const noexcept;
  /// Present with the authority, though it may be empty. The brackets around an IPv6 address are
  /// part of the host, as they are in the grammar.
  [[nodiscard]] std::optional<std::string_view> host() const noexcept;
  /// Digits, any number of them.
  [[nodiscard]] std::optional<std::string_view> port() const noexcept;
  /// Always there.
  [[nodiscard]] std::string_view path() const noexcept;
  [[nodiscard]] std::optional<std::string_view> query() const noexcept;
  [[nodiscard]] std::optional<std::string_view> fragment() const noexcept;

  /// Whether it is a URI, which has a scheme, and not a relative reference.
  [[nodiscard]] bool is_absolute() const noexcept { return scheme().has_value(); }
  [[nodiscard]] bool is_relative() const noexcept { return !is_absolute(); }

  /// The URI that this reference means in a document at `base` (RFC 3986 section 5.2, strict).
  /// A path that would begin with "//" without an authority is led by "/." so that it stays a path.
  /// Raises `ovuri_base` when `base` is relative, `ovuri_size`.
  [[nodiscard]] UriReference resolve(const UriReference& base) const;

  /// -1, 0 or 1, byte by byte.
  [[nodiscard]] int compare(const UriReference& other) const noexcept;
  [[nodiscard]] std::size_t hash() const noexcept { return std::hash<std::string_view>()(text()); }
  void swap(UriReference& other) noexcept { m_text.swap(other.m_text); }
  friend void swap(UriReference& a, UriReference& b) noexcept { a.swap(b); }

  friend bool operator==(const UriReference& a, const UriReference& b) noexcept {
    return a.m_text == b.m_text || a.text() == b.text();
  }
  friend std::strong_ordering operator<=>(const UriReference& a, const UriReference& b) noexcept {
    return a.compare(b) <=> 0;
  }
  friend std::ostream& operator<<(std::ostream& out, const UriReference& uri) {
    return out << ovcore::SourceString(uri.text());
  }

 private:
  /// Takes text that is known to be a URI reference.
  [[nodiscard]] static UriReference from_valid(std::string_view text);

  ovcore::RefCountPtr<const ovcore::RefCounted> m_text;  // null when empty
};

}  // namespace ovuri

template <>
struct std::hash<ovuri::UriReference> {
  std::size_t operator()(const ovuri::UriReference& uri) const noexcept { return uri.hash(); }
};
