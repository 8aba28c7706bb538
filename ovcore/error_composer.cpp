// SPDX-License-Identifier: Apache-2.0
#include "ovcore/error_composer.h"

#include "ovcore/exception.h"

namespace ovcore {

ErrorComposer& ErrorComposer::add(SourceString name, SourceString value) {
  m_parameters.push_back({name.str(), value.str()});
  return *this;
}

RefCountPtr<const ErrorInfo> ErrorComposer::compose(const ErrorCode& code,
                                                    const SourceLocation& location) const {
  return ErrorInfo::create(code, m_template, m_parameters, location, m_cause);
}

void ErrorComposer::throw_error(const ErrorCode& code, const SourceLocation& location) const {
  ovcore::throw_error(compose(code, location));
}

}  // namespace ovcore
