// SPDX-License-Identifier: Apache-2.0
// The one exception class of all libraries, and the ways to raise it. Besides it only the standard
// out-of-range exception (an index) and the standard allocation failure leave a library.
#pragma once

#include <exception>

#include "ovcore/error_info.h"
#include "ovcore/export.h"

namespace ovcore {

/// Carries an `ErrorInfo`. Copying never throws.
class OV_EXPORT Exception : public std::exception {
 public:
  /// `info` is not null.
  explicit Exception(RefCountPtr<const ErrorInfo> info) noexcept : m_info(std::move(info)) {}
  Exception(const Exception&) noexcept = default;
  Exception& operator=(const Exception&) noexcept = default;
  ~Exception() override;

  [[nodiscard]] const RefCountPtr<const ErrorInfo>& info() const noexcept { return m_info; }
  [[nodiscard]] const ErrorCode& code() const noexcept { return m_info->code(); }
  /// The finished message.
  [[nodiscard]] const char* what() const noexcept override { return m_info->message().c_str(); }

 private:
  RefCountPtr<const ErrorInfo> m_info;
};

/// Raises an error again that arrived as a value.
[[noreturn]] OV_EXPORT void throw_error(RefCountPtr<const ErrorInfo> info);

/// Raises an error without parameters.
[[noreturn]] OV_EXPORT void throw_error(const ErrorCode& code, SourceString message,
                                        const SourceLocation& location);

/// Raises an error whose nested cause is the failure being handled.
[[noreturn]] OV_EXPORT void throw_with_nested_exception(const ErrorCode& code, SourceString message,
                                                        const SourceLocation& location,
                                                        const std::exception& cause);

/// The error inside an `Exception`; for any other exception an error of code
/// `error::ovcore_exception` with its text.
[[nodiscard]] OV_EXPORT RefCountPtr<const ErrorInfo> error_info_of(const std::exception& e);

}  // namespace ovcore
