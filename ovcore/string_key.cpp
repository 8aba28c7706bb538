// SPDX-License-Identifier: Apache-2.0
#include "ovcore/string_key.h"

#include "ovcore/impl/key_table.h"
#include "ovcore/static_instance.h"

namespace ovcore {
namespace {

impl::KeyTable& process_table() {
  static StaticInstance<impl::KeyTable> table;
  return *table;
}

}  // namespace

void impl::release_last(KeyToken* token) noexcept {
  process_table().release_last(token);
}

void ObjectKeyBase::write_trace(std::ostream& out) const {
  if (m_token != nullptr) out << SourceString(m_token->text);
}

StringKey::StringKey(SourceString text)
    : ObjectKeyBase(text.empty() ? nullptr : process_table().intern(text)) {}

std::size_t StringKey::interned_count() noexcept {
  return process_table().size();
}

const std::string& StringKey::empty_text() noexcept {
  static const StaticInstance<std::string> empty;
  return *empty;
}

}  // namespace ovcore
