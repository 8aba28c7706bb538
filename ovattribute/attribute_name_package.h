// SPDX-License-Identifier: Apache-2.0
// Lists of names that writer and reader agree on in advance, so that a name can travel as a number.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <set>
#include <vector>

#include "ovattribute/attribute_name.h"
#include "ovattribute/impl/name_index.h"
#include "ovcore/export.h"
#include "ovcore/ref_count.h"
#include "ovcore/uuid.h"

namespace ovattribute {

/// An immutable list of distinct names, sorted by text, and the id that follows from them: the same
/// names have the same id in every process. Shared between threads freely.
class OV_EXPORT AttributeNamePackage final : public ovcore::RefCounted {
 public:
  using Ptr = ovcore::RefCountPtr<const AttributeNamePackage>;

  struct IdLess {
    bool operator()(const Ptr& a, const Ptr& b) const noexcept { return a->id() < b->id(); }
  };
  struct IdEquals {
    bool operator()(const Ptr& a, const Ptr& b) const noexcept { return a->id() == b->id(); }
  };
  class Composer;

  ~AttributeNamePackage() override;

  /// From names in any order. Raise `ovattribute_name_package_duplicateName`.
  [[nodiscard]] static Ptr create(std::vector<AttributeName> names);
  [[nodiscard]] static Ptr create(std::initializer_list<AttributeName> names);
  [[nodiscard]] static Ptr create(const std::set<AttributeName>& names);
  /// Reads what `write` wrote. Raises `ovattribute_name_package_serialization` for names that are
  /// not sorted or do not belong to the id, `ovattribute_name_package_duplicateName`, and what the
  /// reader raises.
  [[nodiscard]] static Ptr create(ovserialize::Reader& reader);

  /// MD5 of the names, each with its length, stamped as a UUID.
  [[nodiscard]] const ovcore::Uuid& id() const noexcept { return m_id; }
  [[nodiscard]] std::size_t size() const noexcept { return m_names.size(); }
  [[nodiscard]] bool empty() const noexcept { return m_names.empty(); }
  /// By text, byte by byte.
  [[nodiscard]] const AttributeName* begin() const noexcept { return m_names.data(); }
  [[nodiscard]] const AttributeName* end() const noexcept { return begin() + size(); }
  /// Raises `std::out_of_range`.
  [[nodiscard]] const AttributeName& at(std::size_t i) const {
    if (i >= size()) throw_out_of_range();
    return m_names[i];
  }
  /// The name inside the package, or `end()`.
  [[nodiscard]] const AttributeName* find(const AttributeName& name) const noexcept {
    const impl::NameIndex::Entry* const entry = m_index.find(name);
    return entry != nullptr ? begin() + entry->position : end();
  }
  [[nodiscard]] std::size_t count(const AttributeName& name) const noexcept {
    return m_index.find(name) != nullptr ? 1 : 0;
  }

  /// A structure of the id and a sequence of the names.
  void write(ovserialize::Writer& writer) const;

 private:
  AttributeNamePackage(const ovcore::Uuid& id, std::vector<AttributeName> names,
                       impl::NameIndex index) noexcept;
  [[nodiscard]] static Ptr create_aux(std::vector<AttributeName>& names);
  [[noreturn]] static void throw_out_of_range();

  const ovcore::Uuid m_id;
  const std::vector<AttributeName> m_names;
  const impl::NameIndex m_index;
};

/// Collects names, also those of packages, which are not null; repeats collapse.
class OV_EXPORT AttributeNamePackage::Composer {
 public:
  Composer() = default;
  explicit Composer(const AttributeName& name) { add(name); }

  Composer& add(const AttributeName& name);
  Composer& operator()(const AttributeName& name) { return add(name); }
  Composer& add(const Ptr& package);
  [[nodiscard]] Ptr compose() const { return create(m_names); }

 private:
  std::set<AttributeName> m_names;
};

OV_EXPORT ovserialize::Writer& operator<<(ovserialize::Writer& writer,
                                          const AttributeNamePackage::Ptr& package);
OV_EXPORT ovserialize::Reader& operator>>(ovserialize::Reader& reader,
                                          AttributeNamePackage::Ptr& package);

/// An immutable collection of packages, ordered by id, none twice; what encoders and decoders work
/// with. Packages may have names in common. Shared between threads freely.
class OV_EXPORT AttributeNamePackageSet final : public ovcore::RefCounted {
 public:
  using Ptr = ovcore::RefCountPtr<const AttributeNamePackageSet>;
  using PackagePtr = AttributeNamePackage::Ptr;

  class Composer;

  ~AttributeNamePackageSet() override;

  [[nodiscard]] static Ptr create();
  [[nodiscard]] static Ptr create(const PackagePtr& package);
  /// Reads what `write` wrote. Raises as `AttributeNamePackage::create`.
  [[nodiscard]] static Ptr create(ovserialize::Reader& reader);
  /// The packages of this set and the other ones.
  [[nodiscard]] Ptr create_union(const Ptr& other) const;
  [[nodiscard]] Ptr create_union(const PackagePtr& package) const;
  [[nodiscard]] Ptr create_union(ovserialize::Reader& reader) const;

  [[nodiscard]] std::size_t size() const noexcept { return m_packages.size(); }
  [[nodiscard]] bool empty() const noexcept { return m_packages.empty(); }
  [[nodiscard]] const PackagePtr* begin() const noexcept { return m_packages.data(); }
  [[nodiscard]] const PackagePtr* end() const noexcept { return begin() + size(); }
  /// The package of that id, or `end()`.
  [[nodiscard]] const PackagePtr* find(const ovcore::Uuid& id) const noexcept;
  /// The first package that has the name, or `end()`.
  [[nodiscard]] const PackagePtr* find(const AttributeName& name) const noexcept;
  /// Whether some name occurs in more than one package; `names`, which may be null, is set to all
  /// such names.
  [[nodiscard]] bool check_duplicate_names(std::set<AttributeName>* names) const;

  /// A structure of a sequence of the packages.
  void write(ovserialize::Writer& writer) const;

 private:
  friend class AttributeNameEncoder;

  AttributeNamePackageSet(std::vector<PackagePtr> packages, impl::NameIndex index,
                          std::size_t several_count) noexcept;
  [[nodiscard]] static Ptr create_aux(std::vector<PackagePtr>& packages);
  static void read_append_aux(std::vector<PackagePtr>& packages, ovserialize::Reader& reader);

  const std::vector<PackagePtr> m_packages;
  const impl::NameIndex m_index;      // of the names of all packages
  const std::size_t m_several_count;  // names in more than one
};

/// Collects packages and sets, none of them null.
class OV_EXPORT AttributeNamePackageSet::Composer {
 public:
  Composer() = default;
  explicit Composer(const PackagePtr& package) { add(package); }
  explicit Composer(const Ptr& set) { add(set); }

  Composer& add(const PackagePtr& package);
  Composer& add(const Ptr& set);
  [[nodiscard]] Ptr compose() const;

 private:
  std::vector<PackagePtr> m_packages;
};

OV_EXPORT ovserialize::Writer& operator<<(ovserialize::Writer& writer,
                                          const AttributeNamePackageSet::Ptr& set);
OV_EXPORT ovserialize::Reader& operator>>(ovserialize::Reader& reader,
                                          AttributeNamePackageSet::Ptr& set);

}  // namespace ovattribute
