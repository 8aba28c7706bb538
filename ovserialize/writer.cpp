// SPDX-License-Identifier: Apache-2.0
#include "ovserialize/writer.h"

namespace ovserialize {

Writer::~Writer() = default;

}  // namespace ovserialize
