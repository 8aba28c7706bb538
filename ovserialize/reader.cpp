// SPDX-License-Identifier: Apache-2.0
#include "ovserialize/reader.h"

#include "ovserialize/impl/known_names.h"

namespace ovserialize {

Reader::Reader(const Limits& limits) noexcept : m_limits(limits) {}

Reader::~Reader() = default;

}  // namespace ovserialize
