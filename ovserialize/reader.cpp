// SPDX-License-Identifier: Apache-2.0
#include "ovserialize/reader.h"

namespace ovserialize {

Reader::~Reader() = default;

}  // namespace ovserialize
