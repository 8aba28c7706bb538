// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "ovattribute/attribute_value.h"
#include "ovattribute/secured_value.h"
#include "ovserialize/error_codes.h"
#include "tests/ovattribute/marshaling.h"
#include "tests/support/error_matcher.h"

namespace ovattribute {
namespace {

using KeyId = SecuredValue::KeyId;

const ovcore::Uuid uuid_1 = ovcore::Uuid::parse("00112233-4455-6677-8899-aabbccddeeff");
const ovcore::Uuid uuid_2 = ovcore::Uuid::parse("00112233-4455-6677-8899-aabbccddef00");

struct Parts {
  const char* data;
  const char* annotation;
  const char* cipher_id;
  KeyId key_id;
};

SecuredValue value_of(const Parts& parts) {
  const std::string bytes = bytes_of([&](ovserialize::Writer& writer) {
    writer.begin_structure();
    writer << parts.annotation << parts.cipher_id;
    parts.key_id.write(writer);
    writer.write_binary(parts.data, std::string_view(parts.data).size());
    writer.end_structure();
  });
  return read_from(bytes, [](auto& reader) { return SecuredValue(reader); });
}

TEST(SecuredValueKeyId, IsOrderedByInstanceThenCategory) {
  const std::vector<KeyId> ids{KeyId(), KeyId("b", uuid_1), KeyId("c", uuid_1), KeyId("a", uuid_2)};
  for (std::size_t i = 0; i < ids.size(); ++i) {
    for (std::size_t j = 0; j < ids.size(); ++j) {
      EXPECT_EQ(ids[i] == ids[j], i == j);
      EXPECT_EQ(ids[i] < ids[j], i < j);
      EXPECT_EQ(ids[i].hash() == ids[j].hash(), i == j);
    }
  }
  KeyId id("a", uuid_1);
  id.clear();
  EXPECT_EQ(id, KeyId());
}

TEST(SecuredValue, IsAStructureOfItsParts) {
  struct Case {
    SecuredValue value;
    const char* bytes;
  };
  for (const Case& c :
       {Case{SecuredValue(), "f1 60 60 f1 60 d8255000000000000000000000000000000000 f2 40 f2"},
        {value_of({"ab", "n", "NULL", KeyId("f", uuid_1)}),
         "f1 616e 644e554c4c f1 6166 d8255000112233445566778899aabbccddeeff f2 426162 f2"}}) {
    SCOPED_TRACE(c.bytes);
    EXPECT_EQ(to_hex(bytes_of([&](auto& writer) { c.value.write(writer); })),
              without_blanks(c.bytes));
    SecuredValue read = value_of({"before", "", "", {}});
    static_cast<void>(read.hash());
    read_from(from_hex(c.bytes), [&](auto& reader) { return read.read(reader), 0; });
    EXPECT_EQ(read, c.value);
    EXPECT_EQ(read.hash(), c.value.hash());
  }
  const SecuredValue value = value_of({"ab", "n", "NULL", KeyId("f", uuid_1)});
  EXPECT_EQ(value.annotation(), "n");
  EXPECT_EQ(value.cipher_id(), "NULL");
  EXPECT_EQ(value.key_id(), KeyId("f", uuid_1));
  EXPECT_EQ(value.data_size(), 2u);
}

TEST(SecuredValue, FirstDifferenceDecides) {
  // In order: data, annotation, cipher, key instance, key category.
  const std::vector<Parts> rows{{"", "", "", {}},
                                {"", "", "", KeyId("", uuid_1)},
                                {"", "", "c", {}},
                                {"", "z", "", {}},
                                {"a", "", "", KeyId("b", uuid_1)},
                                {"a", "", "", KeyId("a", uuid_2)},
                                {"aa", "", "", {}},
                                {"b", "", "", {}}};
  for (std::size_t i = 0; i < rows.size(); ++i) {
    for (std::size_t j = 0; j < rows.size(); ++j) {
      SCOPED_TRACE(std::to_string(i) + " " + std::to_string(j));
      const SecuredValue a = value_of(rows[i]);
      const SecuredValue b = value_of(rows[j]);
      EXPECT_EQ(a.compare(b), i < j ? -1 : i > j ? 1 : 0);
      EXPECT_EQ(a == b, i == j);
      EXPECT_EQ(a <= b, i <= j);
      if (i == j) {
        EXPECT_EQ(a.hash(), b.hash());
      }
    }
  }
  // No data and empty data are the same.
  EXPECT_EQ(SecuredValue(), value_of({"", "", "", {}}));
  EXPECT_EQ(SecuredValue().hash(), value_of({"", "", "", {}}).hash());
  // Every part but the data takes part in the hash.
  EXPECT_NE(value_of(rows[0]).hash(), value_of(rows[1]).hash());
  EXPECT_NE(value_of(rows[0]).hash(), value_of(rows[2]).hash());
  EXPECT_NE(value_of(rows[0]).hash(), value_of(rows[3]).hash());
  EXPECT_EQ(value_of(rows[0]).hash(), value_of(rows[7]).hash());
}

TEST(SecuredValue, HashesAreMixedOneByOne) {
  const auto mixed = [](std::initializer_list<std::size_t> hashes) {
    std::size_t h = 0;
    for (const std::size_t x : hashes)
      h ^= x + 0x9e3779b9 + (h << 6) + (h >> 2);
    return h;
  };
  const std::hash<std::string> of;
  const KeyId id("f", uuid_1);
  EXPECT_EQ(id.hash(), mixed({of("f"), uuid_1.hash()}));
  EXPECT_EQ(value_of({"ab", "n", "NULL", id}).hash(), mixed({of("n"), of("NULL"), id.hash()}));
}

TEST(SecuredValue, SwapAndClearMindTheHash) {
  SecuredValue value = value_of({"ab", "n", "NULL", KeyId("f", uuid_1)});
  const SecuredValue copy = value;
  const std::size_t hash = value.hash();
  SecuredValue other;
  other.swap(value);
  EXPECT_EQ(other.hash(), hash);
  EXPECT_EQ(value, SecuredValue());
  EXPECT_EQ(value.hash(), SecuredValue().hash());
  other.clear();
  EXPECT_EQ(other.hash(), SecuredValue().hash());
  EXPECT_EQ(other.data_size(), 0u);
  EXPECT_EQ(copy.hash(), hash);
}

TEST(SecuredValue, ThreadsMayAskForTheHashAtOnce) {
  const SecuredValue value = value_of({"ab", "n", "NULL", KeyId("f", uuid_1)});
  std::size_t other = 0;
  std::thread thread([&] { other = value.hash(); });
  const std::size_t hash = value.hash();
  thread.join();
  EXPECT_EQ(other, hash);
}

TEST(SecuredValue, IsUnchangedByWhatCannotBeRead) {
  const SecuredValue before = value_of({"ab", "n", "NULL", KeyId("f", uuid_1)});
  const std::string bytes = bytes_of([&](auto& writer) { before.write(writer); });
  SecuredValue target;
  for (std::size_t size = 0; size < bytes.size(); ++size) {
    ovserialize::MemoryReader reader(bytes.data(), size);
    const auto info = ovtest::error_of([&] { target.read(reader); });
    ASSERT_TRUE(info);
    EXPECT_EQ(info->code(), ovserialize::error::ovserialize_reader_truncated);
    EXPECT_EQ(target, SecuredValue());
  }
}

TEST(SecuredValue, TraceShowsNeitherAnnotationNorData) {
  std::ostringstream out;
  out << value_of({"ab", "n", "EAX_AES128", KeyId("f", uuid_1)});
  EXPECT_EQ(out.str(),
            "(cipher=EAX_AES128, keyid=f:00112233-4455-6677-8899-aabbccddeeff, datasize=2)");
}

}  // namespace
}  // namespace ovattribute
