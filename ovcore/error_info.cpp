// SPDX-License-Identifier: Apache-2.0
#include "ovcore/error_info.h"

#include <string_view>
#include <tuple>
#include <utility>

namespace ovcore {
namespace {

/// Calls `f` with what the finished message consists of, piece by piece.
template <class F>
void for_each_piece(std::string_view text, const std::vector<ErrorInfo::Parameter>& parameters,
                    F&& f) {
  while (!text.empty()) {
    const std::size_t open = text.find("{@");
    const std::size_t close = open == text.npos ? open : text.find('}', open);
    if (close == text.npos) break;
    f(text.substr(0, open));
    const std::string_view name = text.substr(open + 2, close - open - 2);
    const ErrorInfo::Parameter* match = nullptr;
    for (const ErrorInfo::Parameter& p : parameters) {
      if (p.name == name) {
        match = &p;
        break;
      }
    }
    if (match != nullptr) {
      f(std::string_view(match->value));
      text.remove_prefix(close + 1);
    } else {
      // Not a placeholder of ours: keep the mark and go on right behind it.
      f(text.substr(open, 2));
      text.remove_prefix(open + 2);
    }
  }
  f(text);
}

/// In memory of its size: a message that was sent may be many times as long as its parameters.
std::string finished_message(std::string_view text,
                             const std::vector<ErrorInfo::Parameter>& parameters) {
  std::size_t size = 0;
  for_each_piece(text, parameters, [&size](std::string_view piece) { size += piece.size(); });
  std::string result;
  result.reserve(size);
  for_each_piece(text, parameters, [&result](std::string_view piece) { result.append(piece); });
  return result;
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
