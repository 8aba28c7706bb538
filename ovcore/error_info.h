// SPDX-License-Identifier: Apache-2.0
// What is known of one failure: code, message with its template and parameters, place, cause.
#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

#include "ovcore/error_code.h"
#include "ovcore/export.h"
#include "ovcore/ref_count.h"
#include "ovcore/source_location.h"

namespace ovcore {

/// Immutable once made and shared through `RefCountPtr<const ErrorInfo>` between threads; carrying
/// an error costs a pointer. Chains of causes may be of any length: nothing here recurses.
class OV_EXPORT ErrorInfo final : public RefCounted {
 public:
  struct Parameter {
    std::string name;
    std::string value;
    friend auto operator<=>(const Parameter&, const Parameter&) = default;
    friend bool operator==(const Parameter&, const Parameter&) = default;
  };

  /// `message_template`: see `ErrorComposer` for the `{@name}` rules. `cause` may be null.
  static RefCountPtr<const ErrorInfo> create(ErrorCode code, std::string message_template,
                                             std::vector<Parameter> parameters,
                                             SourceLocation location,
                                             RefCountPtr<const ErrorInfo> cause = {});

  [[nodiscard]] const ErrorCode& code() const noexcept { return m_code; }
  [[nodiscard]] const std::string& message_template() const noexcept { return m_template; }
  /// In the order in which they were added.
  [[nodiscard]] const std::vector<Parameter>& parameters() const noexcept { return m_parameters; }
  /// The value of the first parameter of that name, null when there is none.
  [[nodiscard]] const std::string* parameter(SourceString name) const noexcept;
  [[nodiscard]] const SourceLocation& location() const noexcept { return m_location; }
  /// The failure that led to this one, or null.
  [[nodiscard]] const RefCountPtr<const ErrorInfo>& cause() const noexcept { return m_cause; }
  /// The finished message, without the causes.
  [[nodiscard]] const std::string& message() const noexcept { return m_message; }

  /// Code, template, parameters, location, then the cause, where none sorts first. -1, 0 or 1.
  [[nodiscard]] int compare(const ErrorInfo& other) const noexcept;
  [[nodiscard]] std::size_t hash() const noexcept;
  friend bool operator==(const ErrorInfo& a, const ErrorInfo& b) noexcept {
    return a.compare(b) == 0;
  }

 private:
  ErrorInfo(ErrorCode code, std::string message_template, std::vector<Parameter> parameters,
            SourceLocation location, RefCountPtr<const ErrorInfo> cause);
  ~ErrorInfo() override;

  const ErrorCode m_code;
  const std::string m_template;
  const std::vector<Parameter> m_parameters;
  const SourceLocation m_location;
  mutable RefCountPtr<const ErrorInfo> m_cause;  // taken out only while the chain is destroyed
  std::string m_message;
};

/// Code and message, then those of its causes, a line each.
OV_EXPORT std::ostream& operator<<(std::ostream& out, const ErrorInfo& error);
/// What GoogleTest prints in its messages.
OV_EXPORT void PrintTo(const RefCountPtr<const ErrorInfo>& error, std::ostream* out);

}  // namespace ovcore
