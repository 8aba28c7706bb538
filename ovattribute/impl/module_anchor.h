// SPDX-License-Identifier: Apache-2.0
// Of a static library a program takes only what it refers to, and nobody refers to the registration
// at load. Sources whose symbols every user needs include this header, and so bring it along.
#pragma once

namespace ovattribute::impl {

/// The marker by which the block is found in a file, and from the first "<" on the XML document
/// that is registered.
extern const char module_info_block[];

[[gnu::used]] static const char* const module_anchor = module_info_block;

}  // namespace ovattribute::impl
