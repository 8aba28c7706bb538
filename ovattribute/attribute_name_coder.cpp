// SPDX-License-Identifier: Apache-2.0
#include "ovattribute/attribute_name_coder.h"

#include <algorithm>
#include <cassert>
#include <limits>
#include <utility>

#include "ovattribute/error_codes.h"
#include "ovcore/error_composer.h"
#include "ovcore/exception.h"
#include "ovcore/fixed_text.h"
#include "ovcore/to_string.h"
#include "ovserialize/item_kind.h"
#include "ovserialize/reader.h"
#include "ovserialize/writer.h"

namespace ovattribute {
namespace {

// Announced counts are believed up to here.
constexpr std::size_t max_reserve = 128;

ovcore::SourceLocation coder_location(const char* function, std::uint32_t line) {
  return {"ovattribute/attribute_name_coder", function, line};
}

[[noreturn]] void throw_package_ref(const ovcore::ErrorCode& code, const char* message,
                                    const ovcore::Uuid& id, std::uint32_t line) {
  ovcore::ErrorComposer(message)
      .add("packageId", id.as_string())
      .throw_error(code,
                   coder_location("ovattribute::AttributeNameDecoder::read_package_ref()", line));
}

/// What stands for a name of a package that is not known.
AttributeName placeholder(const ovcore::Uuid& id, std::uint64_t position) {
  ovcore::FixedText<64> text;
  const auto append = [&text](std::string_view part) {
    part.copy(text.extend(part.size()), part.size());
  };
  append(id.as_string(1));
  append(":");
  append(ovcore::NumberText(position).view());
  return text.view();
}

}  // namespace

AttributeNameEncoder::AttributeNameEncoder(PackageSetPtr package_set)
    : m_package_set(std::move(package_set)) {
  if (!m_package_set) return;
  m_bases.assign(m_package_set->size(), inactive);
  m_owners.assign(m_package_set->m_several_count, none);
}

AttributeNameEncoder::~AttributeNameEncoder() = default;

std::size_t AttributeNameEncoder::next_base() const noexcept {
  return m_refs.empty() ? 0 : m_refs.back().base + m_refs.back().package->size();
}

void AttributeNameEncoder::write_package_ref(ovserialize::Writer& writer, const PackageRef& ref) {
  writer << ref.package->id() << ref.base << ref.package->size();
}

auto AttributeNameEncoder::place_of_one_of_several(const AttributeName& name, std::uint32_t first,
                                                   std::uint32_t number) const noexcept -> Place {
  const std::size_t at = m_owners[number] != none ? m_owners[number] : first;
  const AttributeNamePackage& package = *m_package_set->begin()[at];
  return {at, static_cast<std::size_t>(package.find(name) - package.begin())};
}

// From here on `savepoint`, and those around it, may take references back.
void AttributeNameEncoder::announce(ovserialize::Savepoint& savepoint) noexcept {
  if (savepoint.include(*this)) m_kept = m_refs.size();
}

// REQUIRES: room for one more reference.
void AttributeNameEncoder::activate(std::size_t package, std::uint64_t position) noexcept {
  const AttributeNamePackage::Ptr& ptr = m_package_set->begin()[package];
  m_bases[package] = next_base();
  m_refs.push_back({ptr, m_bases[package], package, position});
  if (m_owners.empty()) return;
  for (const AttributeName& name : *ptr) {
    const impl::NameIndex::Entry& entry = *m_package_set->m_index.find(name);
    if ((entry.package & impl::NameIndex::several) == 0) continue;
    std::uint32_t& owner = m_owners[entry.position];
    if (owner == none) owner = static_cast<std::uint32_t>(package);
  }
}

void AttributeNameEncoder::rewind(std::uint64_t position) noexcept {
  while (m_refs.size() > m_kept && m_refs.back().position >= position) {
    const std::size_t package = m_refs.back().number;
    m_bases[package] = inactive;
    std::ranges::replace(m_owners, static_cast<std::uint32_t>(package), none);
    m_refs.pop_back();
  }
}

void AttributeNameEncoder::write_attribute_name(ovserialize::Writer& writer,
                                                const AttributeName& name) {
  const impl::NameIndex::Entry* const entry =
      m_package_set ? m_package_set->m_index.find(name) : nullptr;
  if (entry == nullptr) return writer.write_string_key(name.key());
  Place place{entry->package, entry->position};
  if ((entry->package & impl::NameIndex::several) != 0) {
    place =
        place_of_one_of_several(name, entry->package & ~impl::NameIndex::several, entry->position);
  }
  if (m_bases[place.package] != inactive) {
    writer << m_bases[place.package] + place.position;
    return;
  }
  m_refs.reserve(m_package_set->size());
  ovserialize::Savepoint whole(writer);
  announce(whole);
  activate(place.package, whole.position());
  write_package_ref(writer, m_refs.back());
  writer << m_bases[place.package] + place.position;
  whole.commit();
}

void AttributeNameEncoder::write_encoder_mappings(ovserialize::Writer& writer) {
  m_refs.reserve(m_bases.size());
  ovserialize::Savepoint whole(writer);
  announce(whole);
  for (std::size_t i = 0; i < m_bases.size(); ++i) {
    if (m_bases[i] == inactive) activate(i, whole.position());
  }
  writer.begin_structure();
  writer.begin_sequence(m_refs.size());
  for (const PackageRef& ref : m_refs) {
    if (&ref != m_refs.data()) writer.next_element();
    write_package_ref(writer, ref);
  }
  writer.end_sequence();
  writer.end_structure();
  whole.commit();
}

AttributeNameDecoder::AttributeNameDecoder(PackageSetPtr package_set, bool strict)
    : m_package_set(std::move(package_set)), m_strict(strict) {}

AttributeNameDecoder::~AttributeNameDecoder() = default;

void AttributeNameDecoder::read_package_ref(ovserialize::Reader& reader,
                                            std::vector<PackageRef>& refs) const {
  PackageRef ref{};
  try {
    reader >> ref.id >> ref.base >> ref.count;
  } catch (const ovcore::Exception& e) {
    ovcore::throw_with_nested_exception(
        error::ovattribute_name_decoder_packageRef_invalid, "Error reading package reference",
        coder_location("ovattribute::AttributeNameDecoder::read_package_ref()", 583), e);
  }
  const bool overlaps = !refs.empty() && ref.base < refs.back().base + refs.back().count;
  const bool too_long = ref.count > std::numeric_limits<std::uint64_t>::max() - ref.base;
  if (overlaps || too_long) {
    throw_package_ref(error::ovattribute_name_decoder_packageRef_invalid,
                      "Invalid index range in package reference.  PackageId: {@packageId}", ref.id,
                      591);
  }
  ref.package = known_package(ref);
  refs.push_back(std::move(ref));
}

AttributeNamePackage::Ptr AttributeNameDecoder::known_package(const PackageRef& ref) const {
  if (!m_package_set) return nullptr;
  const AttributeNamePackage::Ptr* const package = m_package_set->find(ref.id);
  if (package != m_package_set->end()) {
    if ((*package)->size() == ref.count) return *package;
    throw_package_ref(error::ovattribute_name_decoder_packageRef_invalid,
                      "Package size mismatch in package reference.  PackageId: {@packageId}",
                      ref.id, 604);
  }
  if (!m_strict) return nullptr;
  throw_package_ref(error::ovattribute_name_decoder_packageRef_unknown,
                    "Reference to unknown attribute name package.  PackageId: {@packageId}", ref.id,
                    612);
}

AttributeName AttributeNameDecoder::name_of(std::uint64_t token) const {
  if (const AttributeName* const name = find_in_last(token)) return *name;
  // The last range that begins at the token or before: those before it end there.
  const auto behind =
      std::upper_bound(m_refs.begin(), m_refs.end(), token,
                       [](std::uint64_t t, const PackageRef& ref) { return t < ref.base; });
  if (behind != m_refs.begin()) {
    const PackageRef& ref = *std::prev(behind);
    const std::uint64_t position = token - ref.base;
    if (position < ref.count) {
      return ref.package ? ref.package->begin()[position] : placeholder(ref.id, position);
    }
  }
  ovcore::ErrorComposer("No attribute name package reference for attribute name token {@index}")
      .add("index", token)
      .throw_error(error::ovattribute_name_decoder_unknownIndex,
                   coder_location("ovattribute::AttributeNameDecoder::read_attribute_name()", 557));
}

AttributeName AttributeNameDecoder::read_attribute_name(ovserialize::Reader& reader) {
  const int kind = reader.item_kind();
  if (kind != ovserialize::item_unsigned) {
    if (kind != ovserialize::item_uuid) return reader.read_string_key();
    read_package_ref(reader, m_refs);
  }
  std::uint64_t token;
  reader >> token;
  return name_of(token);
}

void AttributeNameDecoder::read_decoder_mappings(ovserialize::Reader& reader) {
  std::vector<PackageRef> refs;
  reader.begin_structure();
  refs.reserve(std::min<std::uint64_t>(reader.begin_sequence(), max_reserve));
  while (reader.has_next_element())
    read_package_ref(reader, refs);
  reader.end_structure();
  m_refs.swap(refs);
}

}  // namespace ovattribute
