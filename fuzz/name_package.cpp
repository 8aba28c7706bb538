// SPDX-License-Identifier: Apache-2.0
// Name packages and sets of them: what can be read is sorted, known by its id and writes itself
// again.
#include "fuzz/fuzzing.h"
#include "ovattribute/attribute_name_package.h"

using namespace ovfuzz;
using namespace ovattribute;

namespace {

template <class Ptr>
std::string written(const Ptr& ptr) {
  ovserialize::MemoryWriter writer;
  ptr->write(writer);
  return text_of(*writer.memory_list());
}

void check_package(std::string_view bytes) {
  ovserialize::MemoryReader reader(bytes.data(), bytes.size());
  const auto package = AttributeNamePackage::create(reader);
  for (const AttributeName& name : *package)
    require(package->find(name) == &name, "a package finds its names");
  const auto made =
      AttributeNamePackage::create(std::vector<AttributeName>(package->begin(), package->end()));
  require(made->id() == package->id(), "the names give the id");
  require(written(made) == written(package), "the same names write the same bytes");
}

void check_set(std::string_view bytes) {
  ovserialize::MemoryReader reader(bytes.data(), bytes.size());
  const auto set = AttributeNamePackageSet::create(reader);
  const std::string text = written(set);
  ovserialize::MemoryReader again(text.data(), text.size());
  require(written(AttributeNamePackageSet::create(again)) == text, "a set writes itself again");
  require(set->create_union(set)->size() == set->size(), "a set holds every package once");
  for (const auto& package : *set) {
    require(*set->find(package->id()) == package, "a set finds its packages");
    for (const AttributeName& name : *package)
      require((*set->find(name))->count(name) == 1, "a set finds the package of a name");
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const bool set = input.byte() & 1;
  failure_of([&] { set ? check_set(input.rest()) : check_package(input.rest()); });
  return 0;
}
