// SPDX-License-Identifier: Apache-2.0
#include "ovcore/string_key.h"

#include <pthread.h>

#include "ovcore/impl/at_load.h"
#include "ovcore/impl/key_table.h"
#include "ovcore/static_instance.h"

namespace ovcore {
namespace {

// Null until the library is loaded, or the first use before that.
constinit std::atomic<impl::KeyTable*> g_table = nullptr;

impl::KeyTable& process_table() {
  static StaticInstance<impl::KeyTable> table;
  g_table.store(&*table, std::memory_order_release);
  return *table;
}

[[gnu::noinline]] impl::KeyToken* intern_in_new_table(SourceString text) {
  return process_table().intern(text);
}

// What `before_fork` locked; the child has a copy.
constinit thread_local impl::KeyTable* t_locked = nullptr;

void before_fork() noexcept {
  t_locked = g_table.load(std::memory_order_acquire);
  if (t_locked != nullptr) t_locked->lock();
}

void after_fork() noexcept {
  if (t_locked != nullptr) t_locked->unlock();
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
  out << SourceString(m_token != nullptr ? std::string_view(m_token->text) : "");
}

std::size_t StringKey::interned_count() noexcept {
  return process_table().size();
}

const std::string& StringKey::empty_text() noexcept {
  static const StaticInstance<std::string> empty;
  return *empty;
}

namespace {

[[maybe_unused]] const bool g_key_table_ready = impl::at_load([] {
  ::pthread_atfork(before_fork, after_fork, after_fork);
  static_cast<void>(StringKey().value());
  process_table();
});

}  // namespace

}  // namespace ovcore
