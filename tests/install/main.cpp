// SPDX-License-Identifier: Apache-2.0
// Raises an error in one installed library with a code of another and catches it here. The code is
// all that is used of ovattribute: it brings the registration along, also in a static link.
#include <cstdio>

#include "ovattribute/error_codes.h"
#include "ovcore/exception.h"
#include "ovcore/string_key.h"
#include "ovmoduleregistry/module_registry.h"

int main() {
  ovmoduleregistry::ModuleInfo info;
  if (!ovmoduleregistry::query_module_info("ovattribute", &info)) {
    std::puts("ovattribute is not registered");
    return 1;
  }
  const ovcore::StringKey name("caller");
  try {
    ovcore::throw_error(ovattribute::error::ovattribute_map_attributeNotFound, name.value(),
                        {"install_test", "main()", 0});
  } catch (const ovcore::Exception& e) {
    std::printf("%s: %s\n", e.code().text().str().c_str(), e.what());
    return e.code().is_a(ovattribute::error::ovattribute_map) ? 0 : 1;
  }
}
