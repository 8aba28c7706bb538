// SPDX-License-Identifier: Apache-2.0
#include "ovcore/exception.h"

#include "ovcore/error_codes.h"
#include "ovcore/error_composer.h"

namespace ovcore {

Exception::~Exception() = default;

void throw_error(RefCountPtr<const ErrorInfo> info) {
  throw Exception(std::move(info));
}

void throw_error(const ErrorCode& code, SourceString message, const SourceLocation& location) {
  ErrorComposer(message).throw_error(code, location);
}

void throw_with_nested_exception(const ErrorCode& code, SourceString message,
                                 const SourceLocation& location, const std::exception& cause) {
  ErrorComposer(message).cause(error_info_of(cause)).throw_error(code, location);
}

RefCountPtr<const ErrorInfo> error_info_of(const std::exception& e) {
  if (const auto* own = dynamic_cast<const Exception*>(&e)) return own->info();
  return ErrorComposer("{@what}").add("what", e.what()).compose(error::ovcore_exception, {});
}

}  // namespace ovcore
