// SPDX-License-Identifier: Apache-2.0
#include "ovcore/error_code.h"

namespace ovcore {
namespace {

class SharedText final : public RefCounted {
 public:
  explicit SharedText(SourceString text) : m_text(text.view()) {}
  const std::string& text() const noexcept { return m_text; }

 private:
  const std::string m_text;
};

}  // namespace

void ErrorCode::copy(SourceString text) {
  const auto shared = make_ref_counted<const SharedText>(text);
  m_text = shared->text();
  m_owner = shared;
}

ErrorCode ErrorCode::parent() const {
  const std::size_t dot = m_text.view().rfind('.');
  ErrorCode result = *this;
  result.m_text = m_text.view().substr(0, dot == std::string_view::npos ? 0 : dot);
  return result;
}

bool ErrorCode::is_a(const ErrorCode& family) const noexcept {
  const std::string_view own = m_text.view();
  const std::string_view other = family.m_text.view();
  return other.empty() ||
         (own.starts_with(other) && (own.size() == other.size() || own[other.size()] == '.'));
}

}  // namespace ovcore
