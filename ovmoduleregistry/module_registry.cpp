// SPDX-License-Identifier: Apache-2.0
#include "ovmoduleregistry/module_registry.h"

#include <pthread.h>

#include "ovcore/impl/at_load.h"
#include "ovcore/static_instance.h"
#include "ovmoduleregistry/impl/module_table.h"

namespace ovmoduleregistry {
namespace {

// Modules withdraw at exit, in whatever order that is.
impl::ModuleTable& table() {
  static const ovcore::StaticInstance<impl::ModuleTable> modules;
  return *modules;
}

[[maybe_unused]] const bool g_modules_ready = ovcore::impl::at_load([] {
  table();
  ::pthread_atfork([] { table().lock(); }, [] { table().unlock(); }, [] { table().unlock(); });
});

}  // namespace

bool add_module_info(ovcore::SourceString name, ovcore::SourceString data) {
  return table().add(name, data);
}

bool query_module_info(ovcore::SourceString name, ModuleInfo* info) {
  return table().query(name, info);
}

bool remove_module_info(ovcore::SourceString name) noexcept {
  return table().remove(name);
}

}  // namespace ovmoduleregistry
