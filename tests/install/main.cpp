// SPDX-License-Identifier: Apache-2.0
// Raises an error in one installed library with a code of another and catches it here.
#include <cstdio>

#include "ovattribute/error_codes.h"
#include "ovcore/exception.h"
#include "ovcore/string_key.h"

int main() {
  const ovcore::StringKey name("caller");
  try {
    ovcore::throw_error(ovattribute::error::ovattribute_map_attributeNotFound, name.value(),
                        {"install_test", "main()", 0});
  } catch (const ovcore::Exception& e) {
    std::printf("%s: %s\n", e.code().text().str().c_str(), e.what());
    return e.code().is_a(ovattribute::error::ovattribute_map) ? 0 : 1;
  }
}
