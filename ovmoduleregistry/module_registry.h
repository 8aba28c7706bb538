// SPDX-License-Identifier: Apache-2.0
// The modules of the process: libraries that may be loaded once only tell each other apart here.
// The table belongs to the process and stays until it ends, whoever is unloaded before.
#pragma once

#include <string>

#include "ovcore/export.h"
#include "ovcore/source_string.h"

namespace ovmoduleregistry {

/// What a module says of itself.
struct ModuleInfo {
  std::string data;
};

/// Registers a module. False, and nothing changes, when one of that name is registered already.
/// Safe from any thread, as are the others.
[[nodiscard]] OV_EXPORT bool add_module_info(ovcore::SourceString name, ovcore::SourceString data);

/// Fills `info` with what was registered under the name. False, and `info` is as it was, when
/// nothing is.
[[nodiscard]] OV_EXPORT bool query_module_info(ovcore::SourceString name, ModuleInfo* info);

/// Forgets the module, whoever registered it. False when nothing is registered under the name.
OV_EXPORT bool remove_module_info(ovcore::SourceString name) noexcept;

}  // namespace ovmoduleregistry
