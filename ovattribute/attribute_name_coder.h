// SPDX-License-Identifier: Apache-2.0
// Names as numbers: what stands between the names of a map and an item stream.
//
// A coder belongs to one stream, from its start to its end: which number means which name is known
// to the two coders only, from the references to packages that the encoder put into the stream.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "ovattribute/attribute_name.h"
#include "ovattribute/attribute_name_package.h"
#include "ovcore/export.h"
#include "ovcore/ref_count.h"
#include "ovcore/uuid.h"
#include "ovserialize/savepoint.h"

namespace ovattribute {

namespace impl {
class ValueReading;
}

/// Writes names. The order of the virtual operations is fixed; implementations are not destroyed
/// through the interface. What an implementation remembers of a stream goes back with the stream
/// when a value fails: see `ovserialize::Rewindable`.
class OV_EXPORT IAttributeNameEncoder {
 public:
  /// Announces packages in advance, so that names of theirs need no reference.
  virtual void write_encoder_mappings(ovserialize::Writer& writer) = 0;
  virtual void write_attribute_name(ovserialize::Writer& writer, const AttributeName& name) = 0;

 protected:
  IAttributeNameEncoder() noexcept = default;
  IAttributeNameEncoder(const IAttributeNameEncoder&) noexcept = default;
  IAttributeNameEncoder(IAttributeNameEncoder&&) noexcept = default;
  IAttributeNameEncoder& operator=(const IAttributeNameEncoder&) noexcept = default;
  IAttributeNameEncoder& operator=(IAttributeNameEncoder&&) noexcept = default;
  ~IAttributeNameEncoder() = default;
};

/// Reads names. As `IAttributeNameEncoder`.
class OV_EXPORT IAttributeNameDecoder {
 public:
  /// Reads what `write_encoder_mappings` wrote.
  virtual void read_decoder_mappings(ovserialize::Reader& reader) = 0;
  [[nodiscard]] virtual AttributeName read_attribute_name(ovserialize::Reader& reader) = 0;

 protected:
  IAttributeNameDecoder() noexcept = default;
  IAttributeNameDecoder(const IAttributeNameDecoder&) noexcept = default;
  IAttributeNameDecoder(IAttributeNameDecoder&&) noexcept = default;
  IAttributeNameDecoder& operator=(const IAttributeNameDecoder&) noexcept = default;
  IAttributeNameDecoder& operator=(IAttributeNameDecoder&&) noexcept = default;
  ~IAttributeNameDecoder() = default;
};

/// Writes the names of a set of packages as numbers and all others as texts. A package becomes
/// active, and its reference is written, with the first name of it that is met, or by
/// `write_encoder_mappings`; its names then have consecutive numbers behind those of the packages
/// that were active before. Of two packages that have a name, the one that became active first
/// counts, else the one that is first in the set. A reference that is taken back from the stream,
/// because the value around it failed, makes its package inactive again. Used by one thread.
class OV_EXPORT AttributeNameEncoder final : public IAttributeNameEncoder,
                                             private ovserialize::Rewindable {
 public:
  using PackageSetPtr = AttributeNamePackageSet::Ptr;

  /// `package_set` may be null: then every name is written as text.
  explicit AttributeNameEncoder(PackageSetPtr package_set);
  ~AttributeNameEncoder();
  AttributeNameEncoder(const AttributeNameEncoder&) = default;
  AttributeNameEncoder(AttributeNameEncoder&&) noexcept = default;
  AttributeNameEncoder& operator=(const AttributeNameEncoder&) = default;
  AttributeNameEncoder& operator=(AttributeNameEncoder&&) noexcept = default;

  [[nodiscard]] const PackageSetPtr& package_set() const noexcept { return m_package_set; }

  /// Makes all packages of the set active, in the order of the set, and writes a structure of a
  /// sequence of all active references. Raise what the writer raises; then the same packages are
  /// active as before.
  void write_encoder_mappings(ovserialize::Writer& writer) override;
  void write_attribute_name(ovserialize::Writer& writer, const AttributeName& name) override;

 private:
  struct PackageRef {
    AttributeNamePackage::Ptr package;
    std::size_t base;
    std::size_t number;  // of the package in the set
    std::uint64_t position;
  };
  /// A name in the set: the number of its package there, and its position in the package.
  struct Place {
    std::size_t package;
    std::size_t position;
  };
  static constexpr std::size_t inactive = ~std::size_t{0};
  static constexpr std::uint32_t none = ~std::uint32_t{0};

  [[nodiscard]] Place place_of_one_of_several(const AttributeName& name, std::uint32_t first,
                                              std::uint32_t number) const noexcept;
  void announce(ovserialize::Savepoint& savepoint) noexcept;
  void activate(std::size_t package, std::uint64_t position) noexcept;
  void rewind(std::uint64_t position) noexcept override;
  [[nodiscard]] std::size_t next_base() const noexcept;
  static void write_package_ref(ovserialize::Writer& writer, const PackageRef& ref);

  PackageSetPtr m_package_set;
  std::vector<PackageRef> m_refs;    // active, in the order of their announcement
  std::size_t m_kept = 0;            // those that are not taken back any more
  std::vector<std::size_t> m_bases;  // of the packages in the order of the set
  /// Of the names in several packages: the package that became active first, or `none`.
  std::vector<std::uint32_t> m_owners;
};

/// Reads what an `AttributeNameEncoder` wrote. Used by one thread.
class OV_EXPORT AttributeNameDecoder final : public IAttributeNameDecoder {
 public:
  using PackageSetPtr = AttributeNamePackageSet::Ptr;

  /// `package_set`: the packages that the reader knows; null knows and checks none. `strict`: a
  /// reference to a package outside the set is an error; else the names of such a package are its
  /// id, a colon and their position.
  AttributeNameDecoder(PackageSetPtr package_set, bool strict);
  ~AttributeNameDecoder();
  AttributeNameDecoder(const AttributeNameDecoder&) = default;
  AttributeNameDecoder(AttributeNameDecoder&&) noexcept = default;
  AttributeNameDecoder& operator=(const AttributeNameDecoder&) = default;
  AttributeNameDecoder& operator=(AttributeNameDecoder&&) noexcept = default;

  [[nodiscard]] const PackageSetPtr& package_set() const noexcept { return m_package_set; }
  [[nodiscard]] bool strict() const noexcept { return m_strict; }

  /// Replaces all references that were read before. Both raise
  /// `ovattribute_name_decoder_packageRef_invalid` and
  /// `ovattribute_name_decoder_packageRef_unknown` for a bad reference, and what the reader raises.
  void read_decoder_mappings(ovserialize::Reader& reader) override;
  /// Raises `ovattribute_name_decoder_unknownIndex` too, for a number that belongs to no reference.
  /// References that were read stay, whatever fails behind them.
  [[nodiscard]] AttributeName read_attribute_name(ovserialize::Reader& reader) override;

 private:
  struct PackageRef {
    std::uint64_t base;
    std::uint64_t count;
    AttributeNamePackage::Ptr package;  // null when the package is not known
    ovcore::Uuid id;
  };

  friend impl::ValueReading;

  void read_package_ref(ovserialize::Reader& reader, std::vector<PackageRef>& refs) const;
  [[nodiscard]] AttributeNamePackage::Ptr known_package(const PackageRef& ref) const;
  /// The name of a number in the range that was read last, held by its package; null for any other.
  [[nodiscard]] const AttributeName* find_in_last(std::uint64_t token) const noexcept {
    if (m_refs.empty()) return nullptr;
    const PackageRef& ref = m_refs.back();
    const std::uint64_t position = token - ref.base;
    return position < ref.count && ref.package ? ref.package->begin() + position : nullptr;
  }
  [[nodiscard]] AttributeName name_of(std::uint64_t token) const;

  PackageSetPtr m_package_set;
  bool m_strict;
  std::vector<PackageRef> m_refs;  // ranges ascend and do not overlap
};

/// An encoder as a function that writes a name.
class AttributeNameEncoderFunctor {
 public:
  explicit AttributeNameEncoderFunctor(IAttributeNameEncoder& encoder) noexcept
      : m_encoder(&encoder) {}
  void operator()(ovserialize::Writer& writer, const AttributeName& name) const {
    m_encoder->write_attribute_name(writer, name);
  }

 private:
  IAttributeNameEncoder* m_encoder;
};

/// A decoder as a function that reads a name.
class AttributeNameDecoderFunctor {
 public:
  explicit AttributeNameDecoderFunctor(IAttributeNameDecoder& decoder) noexcept
      : m_decoder(&decoder) {}
  [[nodiscard]] AttributeName operator()(ovserialize::Reader& reader) const {
    return m_decoder->read_attribute_name(reader);
  }

 private:
  IAttributeNameDecoder* m_decoder;
};

}  // namespace ovattribute
