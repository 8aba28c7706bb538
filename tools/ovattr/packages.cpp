// SPDX-License-Identifier: Apache-2.0
#include "tools/ovattr/packages.h"

#include <cstddef>

#include "ovserialize/item_kind.h"
#include "ovserialize/memory_reader.h"
#include "tools/ovattr/command.h"
#include "tools/ovattr/input.h"

namespace ovattr {
namespace {

using ovattribute::AttributeNamePackage;
using ovattribute::AttributeNamePackageSet;

std::string read_whole(const std::string& file) {
  const auto input = ovcore::make_ref_counted<Input>(file);
  std::string bytes;
  std::size_t size = 0;
  std::size_t got;
  do {
    bytes.resize(size + 65536);
    got = input->read(bytes.data() + size, bytes.size() - size);
    size += got;
    bytes.resize(size);
  } while (got != 0);
  return bytes;
}

/// A package begins with its id, a set with its sequence.
bool is_set(const std::string& bytes) {
  ovserialize::MemoryReader reader(bytes.data(), bytes.size());
  reader.begin_structure();
  return reader.item_kind() == ovserialize::item_sequence;
}

}  // namespace

AttributeNamePackageSet::Ptr read_packages(const std::string& file) {
  return about_file(input_name(file), [&] {
    const std::string bytes = read_whole(file);
    const bool several = is_set(bytes);
    ovserialize::MemoryReader reader(bytes.data(), bytes.size());
    AttributeNamePackageSet::Ptr set =
        several ? AttributeNamePackageSet::create(reader)
                : AttributeNamePackageSet::create(AttributeNamePackage::create(reader));
    if (!reader.at_end()) fail(input_name(file), "More follows behind the package");
    return set;
  });
}

AttributeNamePackageSet::Ptr read_packages(const std::vector<std::string>& files) {
  AttributeNamePackageSet::Composer composer;
  for (const std::string& file : files)
    composer.add(read_packages(file));
  return composer.compose();
}

}  // namespace ovattr
