// SPDX-License-Identifier: Apache-2.0
// The order of virtual functions is part of what the libraries promise.
#include <gtest/gtest.h>

#include <concepts>
#include <type_traits>

#include "ovattribute/attribute_map.h"
#include "ovattribute/attribute_name_coder.h"
#include "ovattribute/attribute_value.h"
#include "ovattribute/impl/visit_elements.h"
#include "ovattribute/secured_value_cipher.h"
#include "ovcrypto/random_provider.h"
#include "ovjson/writer.h"
#include "tests/support/vtable_slot.h"

namespace ovattribute {
namespace {

using ovtest::not_virtual;
using ovtest::vtable_slot;
using ovtest::vtable_slots;

struct Slot {
  const char* function;
  std::ptrdiff_t slot;
};

// Functions in the order in which their slots must be, from slot `first` on.
void expect_order(std::initializer_list<Slot> functions, std::ptrdiff_t first = 0) {
  for (const Slot& f : functions)
    EXPECT_EQ(f.slot, first++) << f.function;
}

#define SLOT(Class, function) \
  { #function, vtable_slot(&Class::function) }
#define SLOT_OF(Class, function, Type) \
  { #function, vtable_slot(static_cast <Type>(&Class::function)) }

TEST(Vtable, OfValueStorage) {
  using impl::ValueBase;
  using Subrange = ValueBase* (ValueBase::*)(std::size_t);
  using SubrangeOfSome = ValueBase* (ValueBase::*)(std::size_t, std::size_t);
  expect_order({SLOT(ValueBase, release), SLOT(ValueBase, clone), SLOT(ValueBase, make_unique),
                SLOT(ValueBase, make_growable), SLOT_OF(ValueBase, subrange, Subrange),
                SLOT_OF(ValueBase, subrange, SubrangeOfSome), SLOT(ValueBase, clear),
                SLOT(ValueBase, equal), SLOT(ValueBase, compare), SLOT(ValueBase, empty),
                SLOT(ValueBase, size), SLOT(ValueBase, hash), SLOT(ValueBase, write_trace)});
  EXPECT_EQ(vtable_slots<ValueBase>(), 13);
  EXPECT_EQ(vtable_slot(&ValueBase::type), not_virtual);
}

// The destructor lies between the functions of every storage and the assignment.
TEST(Vtable, OfTypedStorageEndsWithDestructorAndAssignment) {
  for (std::uint32_t id = 0; id < 15; ++id) {
    impl::visit_type(static_cast<ValueTypeId::EId>(id), []<class T>(std::type_identity<T>) {
      using Typed = impl::TypedValue<T>;
      static_assert(std::has_virtual_destructor_v<Typed>);
      static_assert(std::derived_from<Typed, impl::ValueBase>);
      EXPECT_EQ(vtable_slot(&Typed::write_trace), 12);
      EXPECT_EQ(vtable_slot(&Typed::assign), 15);
      EXPECT_EQ(vtable_slots<Typed>(), 16);
    });
  }
}

TEST(Vtable, OfMapHolder) {
  using Holder = AttributeMapBase::MapHolder;
  // Those of the counted base are the destructor's, and the holder adds none.
  static_assert(std::has_virtual_destructor_v<Holder>);
  EXPECT_EQ(vtable_slots<ovcore::RefCounted>(), 2);
  using Write = void (Holder::*)(ovserialize::Writer&) const;
  using WriteCoded = void (Holder::*)(ovserialize::Writer&, IAttributeNameEncoder&) const;
  for (const Slot& f : {Slot SLOT(Holder, clone), Slot SLOT_OF(Holder, write, Write),
                        Slot SLOT_OF(Holder, write, WriteCoded)}) {
    EXPECT_EQ(f.slot, not_virtual) << f.function;
  }
}

TEST(Vtable, OfNameCoders) {
  expect_order({SLOT(IAttributeNameEncoder, write_encoder_mappings),
                SLOT(IAttributeNameEncoder, write_attribute_name)});
  EXPECT_EQ(vtable_slots<IAttributeNameEncoder>(), 2);
  expect_order({SLOT(IAttributeNameDecoder, read_decoder_mappings),
                SLOT(IAttributeNameDecoder, read_attribute_name)});
  EXPECT_EQ(vtable_slots<IAttributeNameDecoder>(), 2);
  static_assert(!std::has_virtual_destructor_v<IAttributeNameEncoder>);
  static_assert(!std::has_virtual_destructor_v<IAttributeNameDecoder>);
  static_assert(std::copyable<AttributeNameEncoder> && std::copyable<AttributeNameDecoder>);
}

TEST(Vtable, OfCiphers) {
  using Cipher = SecuredValue::ICipher;
  expect_order({SLOT(Cipher, cipher_id), SLOT(Cipher, key_size), SLOT(Cipher, encrypt),
                SLOT(Cipher, decrypt), SLOT(Cipher, authenticate)});
  EXPECT_EQ(vtable_slots<Cipher>(), 5);
  expect_order({SLOT(SecuredValue::ICipherProvider, find_cipher)});
  EXPECT_EQ(vtable_slots<SecuredValue::ICipherProvider>(), 1);
  expect_order({SLOT(ovcrypto::IRandomProvider, generate_random)});
  EXPECT_EQ(vtable_slots<ovcrypto::IRandomProvider>(), 1);
}

TEST(Vtable, OfJsonWriter) {
  using ovjson::Writer;
  using Text = void (Writer::*)(const char*, std::size_t);
  using Integer = void (Writer::*)(std::int64_t);
  expect_order({SLOT_OF(Writer, member_name, Text), SLOT_OF(Writer, string_value, Text),
                SLOT(Writer, boolean_value), SLOT_OF(Writer, integer_value, Integer)});
  // Between them are the two other forms of numbers.
  expect_order(
      {SLOT(Writer, null_value), SLOT(Writer, begin_object), SLOT(Writer, end_object),
       SLOT(Writer, begin_array), SLOT(Writer, end_array), SLOT(Writer, begin_streamed_string),
       SLOT_OF(Writer, string_data, Text), SLOT(Writer, end_streamed_string)},
      6);
}

#undef SLOT
#undef SLOT_OF

}  // namespace
}  // namespace ovattribute
