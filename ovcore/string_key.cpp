// SPDX-License-Identifier: Apache-2.0
#include "ovcore/string_key.h"

#include "ovcore/impl/key_table.h"
#include "ovcore/static_instance.h"

namespace ovcore {
namespace {

// Null until the first use.
constinit std::atomic<impl::KeyTable*> g_table = nullptr;

impl::KeyTable& process_table() {
  static StaticInstance<impl::KeyTable> table;
  g_table.store(&*table, std::memory_order_release);
  return *table;
}

[[gnu::noinline]] impl::KeyToken* intern_in_new_table(SourceString text) {
  return process_table().intern(text);
}

}  // namespace

impl::KeyToken* impl::intern(SourceString text) {
  if (text.empty()) return nullptr;
  KeyTable* table = g_table.load(std::memory_order_acquire);
  return table != nullptr ? table->intern(text) : intern_in_new_table(text);
}

void impl::reclaim(KeyToken* token) noexcept {
  g_table.load(std::memory_order_relaxed)->reclaim(token);  // where the token comes from
}

void ObjectKeyBase::write_trace(std::ostream& out) const {
  if (m_token != nullptr) out << SourceString(m_token->text);
}

std::size_t StringKey::interned_count() noexcept {
  return process_table().size();
}

const std::string& StringKey::empty_text() noexcept {
  static const StaticInstance<std::string> empty;
  return *empty;
}

}  // namespace ovcore
