// SPDX-License-Identifier: Apache-2.0
// Registration of the library with the process at load: a second copy of it is reported on standard
// error, and stops the process unless the environment lets it in.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "ovattribute/impl/module_anchor.h"
#include "ovcore/operating_system.h"
#include "ovmoduleregistry/module_registry.h"

namespace ovattribute::impl {

const char module_info_block[] =
#include "ovattribute/module_info.inc"
    ;

namespace {

constexpr char module_name[] = "ovattribute";

void withdraw() {
  ovmoduleregistry::remove_module_info(module_name);
}

void report_duplicate(const char* data) {
  std::fputs("ModuleRegistry: Module ovattribute is already loaded into this process!\n", stderr);
  std::fputs(
      "This is typically caused by a version or debug/release mismatch between libraries "
      "referenced by this process.\n",
      stderr);
  ovmoduleregistry::ModuleInfo info;
  static_cast<void>(ovmoduleregistry::query_module_info(module_name, &info));
  std::fprintf(stderr, "Data of module that was already registered:\n%s\n", info.data.c_str());
  std::fprintf(stderr, "Data of new module that conflicts:\n%s\n", data);
  std::fputs("\nAborting...\n", stderr);
}

bool register_module() {
  const char* data = std::strchr(module_info_block, '<');
  if (!ovmoduleregistry::add_module_info(module_name, data)) {
    // Says that it aborts also where it is then let in.
    report_duplicate(data);
    if (!ovcore::has_environment_variable("KORV_MODULEREGISTRY_DONT_FAIL_ON_DUPLICATES")) {
      ovcore::debug_break();
    }
  }
  // From a shared object: run when that is unloaded.
  std::atexit(withdraw);
  return true;
}

[[maybe_unused]] const bool registered = register_module();

}  // namespace
}  // namespace ovattribute::impl
