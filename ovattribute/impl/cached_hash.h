// SPDX-License-Identifier: Apache-2.0
// Hashes that are computed once.
#pragma once

#include <atomic>
#include <cstddef>

namespace ovattribute::impl {

/// The hash of an immutable value, 0 as long as nobody asked. It is copied with the value. Threads
/// that share the value may ask at the same time: then each computes and stores the same number.
class CachedHash {
 public:
  CachedHash() noexcept = default;
  CachedHash(const CachedHash& other) noexcept : m_hash(other.load()) {}
  CachedHash(CachedHash&& other) noexcept : m_hash(other.load()) { other.clear(); }
  CachedHash& operator=(const CachedHash& other) noexcept {
    store(other.load());
    return *this;
  }
  CachedHash& operator=(CachedHash&& other) noexcept {
    const std::size_t hash = other.load();
    other.clear();
    store(hash);
    return *this;
  }
  ~CachedHash() = default;

  template <class F>
  [[nodiscard]] std::size_t get(F&& compute) const {
    std::size_t hash = load();
    if (hash == 0) store(hash = compute());
    return hash;
  }
  void clear() noexcept { store(0); }

 private:
  [[nodiscard]] std::size_t load() const noexcept { return m_hash.load(std::memory_order_relaxed); }
  void store(std::size_t hash) const noexcept { m_hash.store(hash, std::memory_order_relaxed); }

  mutable std::atomic<std::size_t> m_hash{0};
};

/// Adds the hash of one field to that of the fields before it.
[[nodiscard]] constexpr std::size_t combine_hash(std::size_t hash, std::size_t field) noexcept {
  return hash ^ (field + 0x9e3779b9 + (hash << 6) + (hash >> 2));
}

}  // namespace ovattribute::impl
