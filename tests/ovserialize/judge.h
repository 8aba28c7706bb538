// SPDX-License-Identifier: Apache-2.0
// An independent decoder, python3-cbor2, as the judge of binary streams.
#pragma once

#include <string>

#include "tests/ovserialize/items.h"

namespace ovserialize {

/// The stream must be these items for cbor2 too. Skips the test where that is not installed.
void expect_python_reads(const std::string& stream, const Items& items);

}  // namespace ovserialize
