// SPDX-License-Identifier: Apache-2.0
// What --version prints.
#pragma once

#include <string>

namespace ovattr {

/// Version and build id of the library that is loaded, and its module information as it stands in
/// the registry of this process.
std::string version_text();

}  // namespace ovattr
