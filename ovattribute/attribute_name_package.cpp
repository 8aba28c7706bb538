// SPDX-License-Identifier: Apache-2.0
#include "ovattribute/attribute_name_package.h"

#include <openssl/md5.h>

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <utility>

#include "ovattribute/error_codes.h"
#include "ovcore/error_composer.h"
#include "ovserialize/reader.h"
#include "ovserialize/savepoint.h"
#include "ovserialize/writer.h"

namespace ovattribute {
namespace {

using PackagePtr = AttributeNamePackage::Ptr;
using SetPtr = AttributeNamePackageSet::Ptr;

// Announced counts are believed up to here.
constexpr std::size_t max_reserve = 128;

ovcore::SourceLocation location(const char* function, std::uint32_t line) {
  return {"ovattribute/attribute_name_coder", function, line};
}

bool text_less(const AttributeName& a, const AttributeName& b) noexcept {
  return a.value() < b.value();
}

void add_big_endian(MD5_CTX& digest, std::uint64_t number) {
  unsigned char bytes[8];
  for (int i = 0; i < 8; ++i)
    bytes[i] = static_cast<unsigned char>(number >> (56 - 8 * i));
  MD5_Update(&digest, bytes, sizeof bytes);
}

/// The version stands in byte 7, not 6, and says 4: all peers compute it so.
ovcore::Uuid compute_id(const std::vector<AttributeName>& names) {
  MD5_CTX digest;
  MD5_Init(&digest);
  add_big_endian(digest, names.size());
  for (const AttributeName& name : names) {
    add_big_endian(digest, name.size());
    MD5_Update(&digest, name.data(), name.size());
  }
  ovcore::Uuid::BinaryData id;
  MD5_Final(id.data(), &digest);
  id[7] = static_cast<std::uint8_t>((id[7] & 0x0f) | 0x40);
  id[8] = static_cast<std::uint8_t>((id[8] & 0x3f) | 0x80);
  return ovcore::Uuid(id);
}

impl::NameIndex index_of(const std::vector<AttributeName>& names,
                         const ovcore::SourceLocation& raised_at) {
  impl::NameIndex index(names.size());
  for (std::size_t i = 0; i < names.size(); ++i) {
    impl::NameIndex::Entry& entry = index.enter(names[i]);
    if (entry.package != impl::NameIndex::vacant) {
      ovcore::ErrorComposer(
          "Attempt to add duplicate attribute name ({@attributeName}) to package.")
          .add("attributeName", names[i].value())
          .throw_error(error::ovattribute_name_package_duplicateName, raised_at);
    }
    entry.package = 0;
    entry.position = static_cast<std::uint32_t>(i);
  }
  return index;
}

impl::NameIndex index_of(const std::vector<PackagePtr>& packages, std::uint32_t& several_count) {
  std::size_t count = 0;
  for (const PackagePtr& package : packages)
    count += package->size();
  impl::NameIndex index(count);
  for (std::size_t p = 0; p < packages.size(); ++p) {
    for (std::size_t i = 0; i < packages[p]->size(); ++i) {
      impl::NameIndex::Entry& entry = index.enter(packages[p]->begin()[i]);
      if (entry.package == impl::NameIndex::vacant) {
        entry.package = static_cast<std::uint32_t>(p);
        entry.position = static_cast<std::uint32_t>(i);
      } else if ((entry.package & impl::NameIndex::several) == 0) {
        entry.package |= impl::NameIndex::several;
        entry.position = several_count++;
      }
    }
  }
  return index;
}

std::vector<AttributeName> read_names(ovserialize::Reader& reader) {
  std::vector<AttributeName> names;
  names.reserve(std::min<std::uint64_t>(reader.begin_sequence(), max_reserve));
  while (reader.has_next_element())
    names.emplace_back(reader.read_string_key());
  names.shrink_to_fit();
  return names;
}

void check_read_id(const ovcore::Uuid& id, const std::vector<AttributeName>& names) {
  constexpr const char* function = "ovattribute::AttributeNamePackage::create()";
  if (!std::is_sorted(names.begin(), names.end(), text_less)) {
    ovcore::ErrorComposer("Names in deserialized package (id: {@packageId}) are not sorted")
        .add("packageId", id.as_string())
        .throw_error(error::ovattribute_name_package_serialization, location(function, 123));
  }
  const ovcore::Uuid expected = compute_id(names);
  if (id == expected) return;
  ovcore::ErrorComposer(
      "Mismatch of deserialized package identifier ({@packageId}) and computed ID "
      "({@packageIdExpected})")
      .add("packageId", id.as_string())
      .add("packageIdExpected", expected.as_string())
      .throw_error(error::ovattribute_name_package_serialization, location(function, 131));
}

}  // namespace

AttributeNamePackage::AttributeNamePackage(const ovcore::Uuid& id, std::vector<AttributeName> names,
                                           impl::NameIndex index) noexcept
    : m_id(id), m_names(std::move(names)), m_index(std::move(index)) {}

AttributeNamePackage::~AttributeNamePackage() = default;

PackagePtr AttributeNamePackage::create(std::vector<AttributeName> names) {
  return create_aux(names);
}

PackagePtr AttributeNamePackage::create(std::initializer_list<AttributeName> names) {
  return create(std::vector<AttributeName>(names));
}

PackagePtr AttributeNamePackage::create(const std::set<AttributeName>& names) {
  return create(std::vector<AttributeName>(names.begin(), names.end()));
}

PackagePtr AttributeNamePackage::create_aux(std::vector<AttributeName>& names) {
  std::sort(names.begin(), names.end(), text_less);
  impl::NameIndex index =
      index_of(names, location("ovattribute::AttributeNamePackage::create_aux()", 0));
  const ovcore::Uuid id = compute_id(names);
  return Ptr::adopt(new AttributeNamePackage(id, std::move(names), std::move(index)));
}

PackagePtr AttributeNamePackage::create(ovserialize::Reader& reader) {
  ovcore::Uuid id;
  reader.begin_structure();
  reader >> id;
  std::vector<AttributeName> names = read_names(reader);
  reader.end_structure();
  check_read_id(id, names);
  impl::NameIndex index =
      index_of(names, location("ovattribute::AttributeNamePackage::create()", 143));
  return Ptr::adopt(new AttributeNamePackage(id, std::move(names), std::move(index)));
}

void AttributeNamePackage::write(ovserialize::Writer& writer) const {
  ovserialize::Savepoint whole(writer);
  writer.begin_structure();
  writer << m_id;
  writer.begin_sequence(size());
  for (const AttributeName& name : *this) {
    if (&name != begin()) writer.next_element();
    writer.write_string_key(name.key());
  }
  writer.end_sequence();
  writer.end_structure();
  whole.commit();
}

void AttributeNamePackage::throw_out_of_range() {
  throw std::out_of_range("ovattribute::AttributeNamePackage");
}

AttributeNamePackage::Composer& AttributeNamePackage::Composer::add(const AttributeName& name) {
  m_names.insert(name);
  return *this;
}

AttributeNamePackage::Composer& AttributeNamePackage::Composer::add(const Ptr& package) {
  std::set<AttributeName> names = m_names;
  names.insert(package->begin(), package->end());
  m_names.swap(names);
  return *this;
}

ovserialize::Writer& operator<<(ovserialize::Writer& writer, const PackagePtr& package) {
  package->write(writer);
  return writer;
}

ovserialize::Reader& operator>>(ovserialize::Reader& reader, PackagePtr& package) {
  package = AttributeNamePackage::create(reader);
  return reader;
}

AttributeNamePackageSet::AttributeNamePackageSet(std::vector<PackagePtr> packages,
                                                 impl::NameIndex index,
                                                 std::size_t several_count) noexcept
    : m_packages(std::move(packages)), m_index(std::move(index)), m_several_count(several_count) {}

AttributeNamePackageSet::~AttributeNamePackageSet() = default;

SetPtr AttributeNamePackageSet::create_aux(std::vector<PackagePtr>& packages) {
  std::sort(packages.begin(), packages.end(), AttributeNamePackage::IdLess());
  packages.erase(std::unique(packages.begin(), packages.end(), AttributeNamePackage::IdEquals()),
                 packages.end());
  std::uint32_t several_count = 0;
  impl::NameIndex index = index_of(packages, several_count);
  return Ptr::adopt(
      new AttributeNamePackageSet(std::move(packages), std::move(index), several_count));
}

void AttributeNamePackageSet::read_append_aux(std::vector<PackagePtr>& packages,
                                              ovserialize::Reader& reader) {
  reader.begin_structure();
  const std::uint64_t count = reader.begin_sequence();
  packages.reserve(packages.size() + std::min<std::uint64_t>(count, max_reserve));
  while (reader.has_next_element())
    packages.push_back(AttributeNamePackage::create(reader));
  reader.end_structure();
}

SetPtr AttributeNamePackageSet::create() {
  return Composer().compose();
}

SetPtr AttributeNamePackageSet::create(const PackagePtr& package) {
  return Composer(package).compose();
}

SetPtr AttributeNamePackageSet::create(ovserialize::Reader& reader) {
  std::vector<PackagePtr> packages;
  read_append_aux(packages, reader);
  return create_aux(packages);
}

SetPtr AttributeNamePackageSet::create_union(const Ptr& other) const {
  std::vector<PackagePtr> packages = m_packages;
  packages.insert(packages.end(), other->begin(), other->end());
  return create_aux(packages);
}

SetPtr AttributeNamePackageSet::create_union(const PackagePtr& package) const {
  std::vector<PackagePtr> packages = m_packages;
  packages.push_back(package);
  return create_aux(packages);
}

SetPtr AttributeNamePackageSet::create_union(ovserialize::Reader& reader) const {
  std::vector<PackagePtr> packages = m_packages;
  read_append_aux(packages, reader);
  return create_aux(packages);
}

const PackagePtr* AttributeNamePackageSet::find(const ovcore::Uuid& id) const noexcept {
  const PackagePtr* const found = std::lower_bound(
      begin(), end(), id, [](const PackagePtr& p, const ovcore::Uuid& i) { return p->id() < i; });
  return found != end() && (*found)->id() == id ? found : end();
}

const PackagePtr* AttributeNamePackageSet::find(const AttributeName& name) const noexcept {
  const impl::NameIndex::Entry* const entry = m_index.find(name);
  return entry != nullptr ? begin() + (entry->package & ~impl::NameIndex::several) : end();
}

bool AttributeNamePackageSet::check_duplicate_names(std::set<AttributeName>* names) const {
  std::set<AttributeName> found;
  for (const PackagePtr& package : m_packages) {
    for (const AttributeName& name : *package) {
      if ((m_index.find(name)->package & impl::NameIndex::several) != 0) found.insert(name);
    }
  }
  const bool any = !found.empty();
  if (names != nullptr) names->swap(found);
  return any;
}

void AttributeNamePackageSet::write(ovserialize::Writer& writer) const {
  ovserialize::Savepoint whole(writer);
  writer.begin_structure();
  writer.begin_sequence(size());
  for (const PackagePtr& package : *this) {
    if (&package != begin()) writer.next_element();
    package->write(writer);
  }
  writer.end_sequence();
  writer.end_structure();
  whole.commit();
}

AttributeNamePackageSet::Composer& AttributeNamePackageSet::Composer::add(
    const PackagePtr& package) {
  m_packages.push_back(package);
  return *this;
}

AttributeNamePackageSet::Composer& AttributeNamePackageSet::Composer::add(const Ptr& set) {
  m_packages.insert(m_packages.end(), set->begin(), set->end());
  return *this;
}

SetPtr AttributeNamePackageSet::Composer::compose() const {
  std::vector<PackagePtr> packages = m_packages;
  return create_aux(packages);
}

ovserialize::Writer& operator<<(ovserialize::Writer& writer, const SetPtr& set) {
  set->write(writer);
  return writer;
}

ovserialize::Reader& operator>>(ovserialize::Reader& reader, SetPtr& set) {
  set = AttributeNamePackageSet::create(reader);
  return reader;
}

}  // namespace ovattribute
