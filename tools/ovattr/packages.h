// SPDX-License-Identifier: Apache-2.0
// Files of name packages: one package or a set of them, in the binary form.
#pragma once

#include <string>
#include <vector>

#include "ovattribute/attribute_name_package.h"

namespace ovattr {

/// What a file holds, as a set. Errors name the file.
[[nodiscard]] ovattribute::AttributeNamePackageSet::Ptr read_packages(const std::string& file);
/// What all of the files hold; never null.
[[nodiscard]] ovattribute::AttributeNamePackageSet::Ptr read_packages(
    const std::vector<std::string>& files);

}  // namespace ovattr
