// SPDX-License-Identifier: Apache-2.0
#include "ovuri/uri_reference.h"

#include <algorithm>
#include <new>

#include "ovcore/error_composer.h"
#include "ovuri/error_codes.h"
#include "ovuri/impl/uri_syntax.h"

namespace ovuri {
namespace {

using ovcore::SourceString;

/// Followed in memory by the bytes.
class SharedText final : public ovcore::RefCounted {
 public:
  static ovcore::RefCountPtr<const SharedText> create(std::string_view text) {
    void* const memory = ::operator new(sizeof(SharedText) + text.size());
    const auto shared = ::new (memory) SharedText(text.size());
    text.copy(reinterpret_cast<char*>(shared + 1), text.size());
    return ovcore::RefCountPtr<const SharedText>::adopt(shared);
  }
  /// Of the whole block, whose size the compiler does not know.
  // NOLINTNEXTLINE(misc-new-delete-overloads): made by `create` only
  static void operator delete(void* memory) noexcept { ::operator delete(memory); }

  [[nodiscard]] std::string_view view() const noexcept {
    return {reinterpret_cast<const char*>(this + 1), m_size};
  }

 private:
  explicit SharedText(std::size_t size) noexcept : m_size(size) {}

  const std::size_t m_size;
};

/// What errors show of a text; cut in front of a UTF-8 character, never inside one.
std::string excerpt(std::string_view text) {
  std::size_t size = 64;
  if (text.size() <= size) return std::string(text);
  while (size > 60 && (static_cast<unsigned char>(text[size]) & 0xC0) == 0x80)
    --size;
  return std::string(text.substr(0, size)) + "...";
}

[[noreturn]] void throw_syntax(SourceString text, std::size_t position) {
  const char* const message = position < text.size()
                                  ? "Invalid URI reference '{@text}' at byte {@position}"
                                  : "URI reference '{@text}' ends too early at byte {@position}";
  ovcore::ErrorComposer(message)
      .add("text", excerpt(text))
      .add("position", position)
      .throw_error(error::ovuri_syntax,
                   {"ovuri/uri_reference", "ovuri::UriReference::UriReference()", 0});
}

void check_size(std::size_t size, const char* function) {
  if (size <= UriReference::max_size) return;
  ovcore::ErrorComposer("URI reference of {@size} bytes exceeds the limit of {@maxSize}")
      .add("size", size)
      .add("maxSize", UriReference::max_size)
      .throw_error(error::ovuri_size, {"ovuri/uri_reference", function, 0});
}

/// Appends `path` without its dot segments (RFC 3986 section 5.2.4). Linear in time.
void append_without_dot_segments(std::string& out, std::string_view path) {
  const std::size_t start = out.size();
  // Only the first segment may have no slash in front.
  while (path.starts_with("./") || path.starts_with("../"))
    path.remove_prefix(path.find('/') + 1);
  if (path == "." || path == "..") return;
  const std::string_view first = path.substr(0, path.find('/'));
  out += first;
  path.remove_prefix(first.size());

  while (!path.empty()) {
    const std::string_view segment = path.substr(0, path.find('/', 1));
    path.remove_prefix(segment.size());
    if (segment == "/..") {
      const std::size_t slash = std::string_view(out).substr(start).rfind('/');
      out.resize(start + (slash != std::string_view::npos ? slash : 0));
    } else if (segment != "/.") {
      out += segment;
      continue;
    }
    if (path.empty()) out += '/';
  }
}

/// The path that `path` means beside the last segment of the base (RFC 3986 section 5.2.3).
std::string merge(const impl::UriParts& base, std::string_view path) {
  std::string merged;
  if (base.authority && base.path.empty()) {
    merged += '/';
  } else {
    merged += base.path.substr(0, base.path.rfind('/') + 1);
  }
  return merged += path;
}

void append_path(std::string& out, const impl::UriParts& base, const impl::UriParts& reference) {
  if (reference.scheme || reference.authority || reference.path.starts_with('/')) {
    append_without_dot_segments(out, reference.path);
  } else if (!reference.path.empty()) {
    append_without_dot_segments(out, merge(base, reference.path));
  } else {
    out += base.path;
  }
}

void append_part(std::string& out, std::string_view delimiter,
                 const std::optional<std::string_view>& part) {
  if (part) (out += delimiter) += *part;
}

/// RFC 3986 section 5.2.2; `base` has a scheme.
std::string resolved(const impl::UriParts& base, const impl::UriParts& reference) {
  const bool own_authority = reference.scheme || reference.authority;
  const auto& authority = own_authority ? reference.authority : base.authority;
  const bool own_query = own_authority || !reference.path.empty() || reference.query;

  std::string out(reference.scheme ? *reference.scheme : *base.scheme);
  out += ':';
  append_part(out, "//", authority);
  const std::size_t path_start = out.size();
  append_path(out, base, reference);
  if (!authority && out.compare(path_start, 2, "//") == 0) out.insert(path_start, "/.");
  append_part(out, "?", own_query ? reference.query : base.query);
  append_part(out, "#", reference.fragment);
  return out;
}

}  // namespace

UriReference::UriReference(SourceString text) {
  check_size(text.size(), "ovuri::UriReference::UriReference()");
  const std::size_t error = impl::find_syntax_error(text);
  if (error != impl::no_error) throw_syntax(text, error);
  *this = from_valid(text);
}

std::optional<UriReference> UriReference::try_parse(SourceString text) {
  if (text.size() > max_size || impl::find_syntax_error(text) != impl::no_error) return {};
  return from_valid(text);
}

UriReference UriReference::from_valid(std::string_view text) {
  UriReference result;
  if (!text.empty()) result.m_text = SharedText::create(text);
  return result;
}

std::string_view UriReference::text() const noexcept {
  return m_text ? static_cast<const SharedText&>(*m_text).view() : std::string_view();
}

std::optional<std::string_view> UriReference::scheme() const noexcept {
  return impl::split(text()).scheme;
}
std::optional<std::string_view> UriReference::authority() const noexcept {
  return impl::split(text()).authority;
}
std::optional<std::string_view> UriReference::userinfo() const noexcept {
  const auto all = authority();
  return all ? impl::split_authority(*all).userinfo : std::nullopt;
}
std::optional<std::string_view> UriReference::host() const noexcept {
  const auto all = authority();
  return all ? std::optional(impl::split_authority(*all).host) : std::nullopt;
}
std::optional<std::string_view> UriReference::port() const noexcept {
  const auto all = authority();
  return all ? impl::split_authority(*all).port : std::nullopt;
}
std::string_view UriReference::path() const noexcept {
  return impl::split(text()).path;
}
std::optional<std::string_view> UriReference::query() const noexcept {
  return impl::split(text()).query;
}
std::optional<std::string_view> UriReference::fragment() const noexcept {
  return impl::split(text()).fragment;
}

UriReference UriReference::resolve(const UriReference& base) const {
  constexpr const char* function = "ovuri::UriReference::resolve()";
  const impl::UriParts base_parts = impl::split(base.text());
  if (!base_parts.scheme) {
    ovcore::ErrorComposer("The base '{@text}' of a URI reference has no scheme")
        .add("text", excerpt(base.text()))
        .throw_error(error::ovuri_base, {"ovuri/uri_reference", function, 0});
  }
  const std::string result = resolved(base_parts, impl::split(text()));
  check_size(result.size(), function);
  return from_valid(result);
}

int UriReference::compare(const UriReference& other) const noexcept {
  const int order = text().compare(other.text());
  return (order > 0) - (order < 0);
}

}  // namespace ovuri
