// SPDX-License-Identifier: Apache-2.0
// Interned strings. Equal texts share one token in a table that the whole process has in common, so
// that comparing two keys compares two addresses.
#pragma once

#include <atomic>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <utility>

#include "ovcore/export.h"
#include "ovcore/source_string.h"

namespace ovcore {

namespace impl {

/// One interned text, or the place for one; one cache line. Tokens are neither made nor destroyed:
/// they are pages of zeros. Who holds no reference may read all but the union, at any time.
struct alignas(64) KeyToken {
  std::atomic<std::size_t> refs;  // there is a text while it is not zero
  std::atomic<std::size_t> hash;
  union {
    std::string text;
    KeyToken* next_free;
  };
};

/// The token of a text, with a reference for the caller; null for the empty text.
[[nodiscard]] OV_EXPORT KeyToken* intern(SourceString text);

/// Gives back a token whose last reference is gone.
OV_EXPORT void reclaim(KeyToken* token) noexcept;

inline void add_ref(KeyToken* token) noexcept {
  if (token != nullptr) token->refs.fetch_add(1, std::memory_order_relaxed);
}

inline void release(KeyToken* token) noexcept {
  if (token != nullptr && token->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) reclaim(token);
}

}  // namespace impl

/// The counted handle to a token; null for the empty text.
class OV_EXPORT ObjectKeyBase {
 public:
  /// The token's address as a number: equal exactly for equal texts, 0 for the empty text. Tokens
  /// come out of one ascending arena, so the order is that of first use as long as no name was
  /// dropped in between; it means nothing outside the process.
  [[nodiscard]] std::uintptr_t key_value() const noexcept {
    return reinterpret_cast<std::uintptr_t>(m_token);
  }
  /// Writes the text.
  void write_trace(std::ostream& out) const;

 protected:
  ObjectKeyBase() noexcept = default;
  explicit ObjectKeyBase(impl::KeyToken* owned) noexcept : m_token(owned) {}
  ObjectKeyBase(const ObjectKeyBase& other) noexcept : m_token(other.m_token) {
    impl::add_ref(m_token);
  }
  ObjectKeyBase(ObjectKeyBase&& other) noexcept : m_token(std::exchange(other.m_token, nullptr)) {}
  ~ObjectKeyBase() { impl::release(m_token); }
  ObjectKeyBase& operator=(const ObjectKeyBase& other) noexcept {
    impl::add_ref(other.m_token);
    impl::release(std::exchange(m_token, other.m_token));
    return *this;
  }
  ObjectKeyBase& operator=(ObjectKeyBase&& other) noexcept {
    impl::KeyToken* const taken = std::exchange(other.m_token, nullptr);
    impl::release(std::exchange(m_token, taken));
    return *this;
  }

  impl::KeyToken* m_token = nullptr;
};

/// An interned text, compared byte by byte when it is interned and never again. The text may hold
/// any bytes. Handles are copied without a lock; one handle is used by one thread at a time.
///
/// Tokens are counted: the last handle of a text gives its memory back. Works during static
/// initialisation and at exit. Interning is safe from any thread, takes no lock when the text is
/// known, and mixes a secret of the process into its hash, so that texts from outside
/// cannot be chosen to collide. Allocation failures leave the table as it was.
class OV_EXPORT StringKey : public ObjectKeyBase {
 public:
  StringKey() noexcept = default;
  StringKey(const char* text) : StringKey(SourceString(text)) {}
  StringKey(const char* text, std::size_t size) : StringKey(SourceString(text, size)) {}
  StringKey(const std::string& text) : StringKey(SourceString(text)) {}
  explicit StringKey(SourceString text) : ObjectKeyBase(impl::intern(text)) {}

  [[nodiscard]] const std::string& value() const noexcept {
    return m_token != nullptr ? m_token->text : empty_text();
  }
  [[nodiscard]] bool empty() const noexcept { return m_token == nullptr; }
  /// Differs from process to process; 0 for the empty text.
  [[nodiscard]] std::size_t hash() const noexcept {
    return m_token != nullptr ? m_token->hash.load(std::memory_order_relaxed) : 0;
  }

  void clear() noexcept { *this = StringKey(); }
  void swap(StringKey& other) noexcept { std::swap(m_token, other.m_token); }
  friend void swap(StringKey& a, StringKey& b) noexcept { a.swap(b); }

  friend bool operator==(const StringKey& a, const StringKey& b) noexcept {
    return a.m_token == b.m_token;
  }
  /// By token identity, not alphabetical; see `key_value`.
  friend std::strong_ordering operator<=>(const StringKey& a, const StringKey& b) noexcept {
    return a.key_value() <=> b.key_value();
  }
  friend std::ostream& operator<<(std::ostream& out, const StringKey& key) {
    key.write_trace(out);
    return out;
  }

  /// The number of texts interned at this moment, for tests and diagnostics.
  [[nodiscard]] static std::size_t interned_count() noexcept;

 private:
  static const std::string& empty_text() noexcept;
};

}  // namespace ovcore

template <>
struct std::hash<ovcore::StringKey> {
  std::size_t operator()(const ovcore::StringKey& key) const noexcept { return key.hash(); }
};
