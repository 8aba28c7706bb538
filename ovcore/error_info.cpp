// SPDX-License-Identifier: Apache-2.0
#include "ovcore/error_info.h"

#include <string_view>
#include <tuple>
#include <utility>

namespace ovcore {
namespace {

std::string finished_message(std::string_view text,
                             const std::vector<ErrorInfo::Parameter>& parameters) {
  std::string result;
  result.reserve(text.size() + 32);
  while (!text.empty()) {
    const std::size_t open = text.find("{@");
    const std::size_t close = open == text.npos ? open : text.find('}', open);
    if (close == text.npos) break;
    result.append(text.substr(0, open));
    const std::string_view name = text.substr(open + 2, close - open - 2);
    const ErrorInfo::Parameter* match = nullptr;
    for (const ErrorInfo::Parameter& p : parameters) {
      if (p.name == name) {
        match = &p;
        break;
      }
    }
    if (match != nullptr) {
      result.append(match->value);
      text.remove_prefix(close + 1);
    } else {
      // Not a placeholder of ours: keep the mark and go on right behind it.
      result.append("{@");
      text.remove_prefix(open + 2);
    }
  }
  return result.append(text);
}

}  // namespace

RefCountPtr<const ErrorInfo> ErrorInfo::create(ErrorCode code, std::string message_template,
                                               std::vector<Parameter> parameters,
                                               SourceLocation location,
                                               RefCountPtr<const ErrorInfo> cause) {
  return RefCountPtr<const ErrorInfo>::adopt(
      new ErrorInfo(std::move(code), std::move(message_template), std::move(parameters),
                    std::move(location), std::move(cause)));
}

ErrorInfo::ErrorInfo(ErrorCode code, std::string message_template,
                     std::vector<Parameter> parameters, SourceLocation location,
                     RefCountPtr<const ErrorInfo> cause)
    : m_code(std::move(code)),
      m_template(std::move(message_template)),
      m_parameters(std::move(parameters)),
      m_location(std::move(location)),
      m_cause(std::move(cause)),
      m_message(finished_message(m_template, m_parameters)) {}

ErrorInfo::~ErrorInfo() {
  // Link by link, so that a long chain does not end on a deep stack.
  RefCountPtr<const ErrorInfo> next = std::move(m_cause);
  while (next && next->has_unique_ref()) {
    RefCountPtr<const ErrorInfo> after = std::move(next->m_cause);
    next = std::move(after);
  }
}

const std::string* ErrorInfo::parameter(SourceString name) const noexcept {
  for (const Parameter& p : m_parameters) {
    if (p.name == name.view()) return &p.value;
  }
  return nullptr;
}

int ErrorInfo::compare(const ErrorInfo& other) const noexcept {
  const ErrorInfo* a = this;
  const ErrorInfo* b = &other;
  while (a != b && a != nullptr && b != nullptr) {
    const auto order = std::tie(a->m_code, a->m_template, a->m_parameters, a->m_location) <=>
                       std::tie(b->m_code, b->m_template, b->m_parameters, b->m_location);
    if (order != 0) return order < 0 ? -1 : 1;
    a = a->m_cause.get();
    b = b->m_cause.get();
  }
  if (a == b) return 0;
  return a == nullptr ? -1 : 1;
}

std::size_t ErrorInfo::hash() const noexcept {
  std::size_t result = 0;
  const auto mix = [&result](std::string_view text) {
    result = result * 31 + std::hash<std::string_view>()(text);
  };
  for (const ErrorInfo* e = this; e != nullptr; e = e->m_cause.get()) {
    mix(e->m_code.text());
    mix(e->m_template);
    for (const Parameter& p : e->m_parameters) {
      mix(p.name);
      mix(p.value);
    }
    mix(e->m_location.file);
    mix(e->m_location.function);
    result = result * 31 + e->m_location.line;
  }
  return result;
}

std::ostream& operator<<(std::ostream& out, const ErrorInfo& error) {
  for (const ErrorInfo* e = &error; e != nullptr; e = e->cause().get()) {
    if (e != &error) out << "\n  caused by ";
    out << e->code() << ": " << SourceString(e->message());
  }
  return out;
}

void PrintTo(const RefCountPtr<const ErrorInfo>& error, std::ostream* out) {
  if (error) {
    *out << *error;
  } else {
    *out << "no error";
  }
}

}  // namespace ovcore
