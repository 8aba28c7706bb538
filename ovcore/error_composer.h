// SPDX-License-Identifier: Apache-2.0
// Composing errors from a message template and named parameters.
//
// A template is text in which `{@name}` stands for the value of the parameter `name`:
//
//   "Attribute '{@name}' not found in map" with name = "caller"
//       gives "Attribute 'caller' not found in map"
//
// - Names are compared byte by byte; of two parameters of one name the first is used.
// - A mark whose name was not added, or that is not closed, stays in the text as it is.
// - Values go in as they are: a mark inside a value is not replaced.
// - Braces without "@" mean nothing. Parameters that the template does not name are kept with the
//   error all the same.
#pragma once

#include <string>
#include <vector>

#include "ovcore/error_info.h"
#include "ovcore/export.h"
#include "ovcore/to_string.h"

namespace ovcore {

/// Collects what one error consists of. Used once, by one thread.
class OV_EXPORT ErrorComposer {
 public:
  explicit ErrorComposer(SourceString message_template) : m_template(message_template.view()) {}

  ErrorComposer& add(SourceString name, SourceString value);
  /// Decimal, or as `to_string` writes a double.
  template <class N>
  requires(std::integral<N> || std::same_as<N, double>) ErrorComposer& add(SourceString name,
                                                                           N value) {
    return add(name, SourceString(to_string(value)));
  }
  ErrorComposer& cause(RefCountPtr<const ErrorInfo> cause) {
    m_cause = std::move(cause);
    return *this;
  }

  [[nodiscard]] RefCountPtr<const ErrorInfo> compose(const ErrorCode& code,
                                                     const SourceLocation& location) const;
  /// Raises the composed error as an `Exception`.
  [[noreturn]] void throw_error(const ErrorCode& code, const SourceLocation& location) const;

 private:
  std::string m_template;
  std::vector<ErrorInfo::Parameter> m_parameters;
  RefCountPtr<const ErrorInfo> m_cause;
};

}  // namespace ovcore
