// SPDX-License-Identifier: Apache-2.0
// A program that is linked to the library, and whose values must live through whatever is loaded.
#include <dlfcn.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <span>
#include <string>
#include <utility>

#include "ovattribute/attribute_map.h"
#include "ovattribute/error_codes.h"
#include "ovattribute/typed_attribute.h"
#include "ovcore/exception.h"
#include "tests/module/steps.h"

namespace {

using ovattribute::AttributeMap;
using ovattribute::TypedAttribute;

AttributeMap make_map() {
  ovattribute::MutableAttributeMap inner;
  inner.add("text", "a text that is longer than what lies inside of a string");
  ovattribute::MutableAttributeMap map;
  map.add("number", 42);
  map.add("inner", AttributeMap(std::move(inner)));
  return AttributeMap(std::move(map));
}

bool works(const AttributeMap& map) {
  const TypedAttribute<int> number{"number"};
  const TypedAttribute<int> absent{"absent"};
  if (map != make_map() || number.get(map) != 42) return false;
  try {
    static_cast<void>(absent.get(map));
  } catch (const ovcore::Exception& e) {
    return e.code() == ovattribute::error::ovattribute_map_attributeNotFound;
  }
  return false;
}

/// The other copy must refer to its own constants, not to ours.
void look(void* handle, const char* path) {
  using Catalog = std::span<const ovcore::ErrorCatalogEntry> (*)();
  constexpr char name[] = "_ZN11ovattribute5error7catalogEv";
  void* symbol = dlsym(handle, name);
  Catalog catalog = nullptr;
  std::memcpy(&catalog, &symbol, sizeof catalog);
  Dl_info info{};
  const bool own = catalog != nullptr && dladdr(catalog().front().code, &info) != 0 &&
                   std::filesystem::equivalent(info.dli_fname, path);
  std::puts(own ? "refers to itself" : "refers to another copy");
}

}  // namespace

int main(int argc, char** argv) {
  const AttributeMap map = make_map();
  const int failed = run_steps(argc, argv, look);
  std::puts(works(map) ? "values work" : "values do not work");
  return failed;
}
