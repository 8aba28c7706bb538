// SPDX-License-Identifier: Apache-2.0
#include "ovserialize/frame_stack.h"

namespace ovserialize {

void FrameStack::grow() {
  m_more.resize(m_more.size() * 2 + 32);
}

}  // namespace ovserialize
