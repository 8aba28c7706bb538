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

/// Appends as many bytes as are there, but 64 KiB at most; false when there are none.
bool read_piece(Input& input, std::string& bytes) {
  const std::size_t before = bytes.size();
  bytes.resize(before + 65536);
  const std::size_t got = input.read(bytes.data() + before, bytes.size() - before);
  bytes.resize(before + got);
  return got != 0;
}

/// A package begins with its id, a set with its sequence; what begins otherwise is refused.
bool is_set(const std::string& bytes) {
  ovserialize::MemoryReader reader(bytes.data(), bytes.size());
  reader.begin_structure();
  return reader.item_kind() == ovserialize::item_sequence;
}

}  // namespace

AttributeNamePackageSet::Ptr read_packages(const std::string& file) {
  return about_file(input_name(file), [&] {
    const auto input = ovcore::make_ref_counted<Input>(file);
    std::string bytes;
    bool more = read_piece(*input, bytes);
    const bool several = is_set(bytes);  // before the rest, which may have no end
    while (more)
      more = read_piece(*input, bytes);
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
