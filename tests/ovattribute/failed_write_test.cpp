// SPDX-License-Identifier: Apache-2.0
// Writes that fail part of the way: the stream, and what an encoder announced in it, stand where
// they stood before. Where that cannot be, because bytes are gone, nothing more can be written.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "ovattribute/attribute.h"
#include "ovattribute/attribute_map.h"
#include "ovattribute/attribute_name_coder.h"
#include "ovattribute/attribute_name_package.h"
#include "ovattribute/attribute_value_marshaler.h"
#include "ovattribute/binary_value.h"
#include "ovattribute/json_marshaler.h"
#include "ovattribute/secured_value.h"
#include "ovattribute/serialized_value.h"
#include "ovcore/error_codes.h"
#include "ovcore/error_composer.h"
#include "ovcore/exception.h"
#include "ovcore/write_stream.h"
#include "ovjson/error_codes.h"
#include "ovjson/writer.h"
#include "ovserialize/error_codes.h"
#include "ovserialize/error_info_stream.h"
#include "ovserialize/memory_reader.h"
#include "ovserialize/savepoint.h"
#include "ovserialize/stream_writer.h"
#include "ovserialize/text_target.h"
#include "ovserialize/text_writer.h"
#include "ovserialize/transcode.h"
#include "tests/ovattribute/marshaling.h"
#include "tests/ovattribute/sample_values.h"
#include "tests/support/allocations.h"
#include "tests/support/error_matcher.h"

namespace ovattribute {
namespace {

using ovserialize::Limits;
using ovserialize::MemoryReader;
using ovserialize::MemoryWriter;
using ovserialize::Writer;

using Encoder = IAttributeNameEncoder;
using Write = std::function<void(Writer&, Encoder&)>;

const AttributeNamePackage::Ptr first_package =
    AttributeNamePackage::create({"shared", "user", "picture"});
const AttributeNamePackage::Ptr second_package = AttributeNamePackage::create({"shared", "time"});
const auto packages =
    AttributeNamePackageSet::create(first_package) -> create_union(second_package);

BinaryValue block_of(const std::string& bytes) {
  return {reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()};
}
const std::string block(101, 'b');
const BinaryValue too_large = block_of(block);
const Limits small_limits{.max_binary = 100};

AttributeMap nested(int depth) {
  AttributeMap map{{"user", "bob"}};
  for (int i = 1; i < depth; ++i)
    map = AttributeMap{{"picture", map}};
  return map;
}

ovcore::RefCountPtr<const ovserialize::MemoryList> list_of(const std::string& bytes) {
  return ovserialize::MemoryList::create_copy(bytes.data(), bytes.size());
}

SecuredValue secured(const std::string& ciphertext) {
  SecuredValue value;
  read_from(bytes_of([&](Writer& w) {
              w.begin_structure();
              w << "note"
                << "cipher";
              SecuredValue::KeyId("orders", {}).write(w);
              w.write_memory_list_as_binary(list_of(ciphertext));
              w.end_structure();
            }),
            [&](auto& reader) { return value.read(reader), 0; });
  return value;
}

ovcore::RefCountPtr<const ovcore::ErrorInfo> chain(int length) {
  ovcore::RefCountPtr<const ovcore::ErrorInfo> error;
  for (int i = 0; i < length; ++i)
    error = ovcore::ErrorInfo::create(ovcore::ErrorCode("error.test", true), "", {}, {}, error);
  return error;
}

/// Raises when it has written the first half of its third name.
class Failing final : public Encoder {
 public:
  explicit Failing(Encoder& encoder) : m_encoder(encoder) {}
  void write_encoder_mappings(Writer& writer) override { m_encoder.write_encoder_mappings(writer); }
  void write_attribute_name(Writer& writer, const AttributeName& name) override {
    m_encoder.write_attribute_name(writer, name);
    if (++m_names == 3) throw std::runtime_error("encoder");
  }

 private:
  Encoder& m_encoder;
  int m_names = 0;
};

struct Case {
  const char* name;
  Write write;
};

/// The message of what it raises, which need not be an error of ours.
template <class F>
std::string failure_of(F&& f) {
  try {
    f();
    return "none";
  } catch (const std::exception& e) {
    return e.what();
  }
}

struct FailingCase {
  const char* name;
  const char* failure;
  Write write;
};

const char* const size_failure = "Writing a binary block of 101 bytes, the limit is 100";
const char* const depth_failure = "Writing maps nested deeper than 512";
const char* const text_failure = "Value exceeds 2000 bytes of character data";
const char* const chain_failure = "An error with more than 511 causes";

// The order of elements is certain, other than that of names.
AttributeMap map_of(const std::vector<AttributeMap>& elements) {
  return {{"user", AttributeValue::list_of(elements)}};
}
const AttributeMap with_block =
    map_of({{{"shared", 1}, {"user", "bob"}}, {{"time", 2}}, {{"picture", too_large}}});

const std::vector<FailingCase> failing_writes = {
    {"value", size_failure, [](Writer& w, Encoder&) { w << AttributeValue(with_block); }},
    {"value, coded", size_failure,
     [](Writer& w, Encoder& e) { write_attribute_value(w, e, with_block); }},
    {"list", size_failure,
     [](Writer& w, Encoder&) {
       w << AttributeValue::list_of(std::vector<BinaryValue>{BinaryValue(), too_large});
     }},
    {"map", size_failure, [](Writer& w, Encoder&) { w << with_block; }},
    {"map, coded", size_failure, [](Writer& w, Encoder& e) { with_block.write(w, e); }},
    {"attribute", size_failure, [](Writer& w, Encoder&) { w << Attribute("user", too_large); }},
    {"attribute, coded", size_failure,
     [](Writer& w, Encoder& e) { Attribute("user", too_large).write(w, e); }},
    {"serialized", size_failure,
     [](Writer& w, Encoder&) {
       write_serialized_value(w, {"t", list_of(block)});
     }},
    {"serialized in a value", size_failure,
     [](Writer& w, Encoder&) { w << AttributeValue(SerializedValue("t", list_of(block))); }},
    {"secured", size_failure, [](Writer& w, Encoder&) { secured(block).write(w); }},
    {"secured in a map", size_failure,
     [](Writer& w, Encoder&) {
       w << AttributeMap{{"picture", secured(block)}};
     }},
    {"error in a value", chain_failure,
     [](Writer& w, Encoder&) { w << AttributeValue(chain(2000)); }},
    {"error in a map", chain_failure,
     [](Writer& w, Encoder&) {
       w << AttributeMap{{"user", chain(2000)}};
     }},
    {"600 maps", depth_failure, [](Writer& w, Encoder&) { w << AttributeValue(nested(600)); }},
    {"600 maps, coded", depth_failure,
     [](Writer& w, Encoder& e) { write_attribute_value(w, e, nested(600)); }},
    {"a coder of one's own", "encoder",
     [](Writer& w, Encoder& e) {
       Failing encoder(e);
       write_attribute_value(w, encoder, AttributeMap{{"user", 1}, {"time", 2}, {"other", 3}});
     }},
    {"a copied item", "Malformed item at offset 4: the end of a sequence in a structure",
     [](Writer& w, Encoder&) {
       const std::string bytes = from_hex("9f 02 01 f1 ff");
       MemoryReader reader(bytes.data(), bytes.size());
       ovserialize::copy_item(reader, w);
     }},
};

/// Calls `test(writer, written)` with a writer of each kind; `written()` are all bytes so far.
template <class Test>
void with_each_writer(const Limits& limits, Test&& test) {
  {
    SCOPED_TRACE("MemoryWriter");
    MemoryWriter writer({.segment_size = 16}, limits);
    test(writer, [&] { return text_of(*writer.memory_list()); });
  }
  {
    SCOPED_TRACE("StreamWriter");
    std::string bytes;
    ovcore::StringWriteStream target(bytes);
    ovserialize::StreamWriter writer(target, limits, 1 << 20);
    test(writer, [&] { return writer.flush(), bytes; });
  }
  for (const bool one_line : {true, false}) {
    SCOPED_TRACE(one_line ? "TextWriter" : "TextWriter, indented");
    std::string text;
    ovserialize::StringTextTarget target(text);
    ovserialize::TextWriter writer(target, {.one_line = one_line}, limits);
    test(writer, [&] { return text; });
  }
}

const AttributeMap good{{"time", 5}, {"user", AttributeMap{{"shared", "bob"}, {"user", 2}}}};

template <class Written>
std::string good_only(Writer& writer, Written&& written, bool between_frames) {
  AttributeNameEncoder encoder(packages);
  if (between_frames) writer.begin_sequence(1);
  write_attribute_value(writer, encoder, AttributeMap{{"time", 4}});
  write_attribute_value(writer, encoder, good);
  if (between_frames) writer.end_sequence();
  return written();
}

TEST(FailedWrite, LeavesTheStreamAtTheLastWholeValue) {
  for (const bool between_frames : {false, true}) {
    std::vector<std::string> expected;
    with_each_writer({}, [&](auto& writer, auto&& written) {
      expected.push_back(good_only(writer, written, between_frames));
    });
    for (const FailingCase& row : failing_writes) {
      SCOPED_TRACE(row.name);
      auto next_expected = expected.begin();
      with_each_writer(small_limits, [&](auto& writer, auto&& written) {
        AttributeNameEncoder encoder(packages);
        const auto fail = [&] {
          EXPECT_EQ(failure_of([&] { row.write(writer, encoder); }), row.failure);
        };
        fail();
        if (between_frames) writer.begin_sequence(1);
        fail();
        write_attribute_value(writer, encoder, AttributeMap{{"time", 4}});
        fail();
        write_attribute_value(writer, encoder, good);
        fail();
        if (between_frames) writer.end_sequence();
        EXPECT_EQ(written(), *next_expected++);
      });
    }
  }
}

TEST(FailedWrite, IsNoPartOfTheNextValue) {
  MemoryWriter writer;
  AttributeNameEncoder encoder(packages);
  const std::string picture(17 << 20, 'p');
  const AttributeMap map{{"picture", block_of(picture)}};
  EXPECT_ERROR(write_attribute_value(writer, encoder, map),
               ovserialize::error::ovserialize_writer_size,
               "Writing a binary block of 17825792 bytes, the limit is 16777216");
  write_attribute_value(writer, encoder, AttributeMap{{"user", "bob"}});
  MemoryReader reader(writer.memory_list());
  AttributeNameDecoder decoder(packages, true);
  EXPECT_EQ(read_attribute_value(reader, decoder), AttributeValue(AttributeMap{{"user", "bob"}}));
  EXPECT_TRUE(reader.at_end());
}

TEST(FailedWrite, WithoutMemoryChangesNothing) {
  const AttributeMap samples = nested_samples(1);
  const std::vector<Case> writes = {
      {"scalar", [](Writer& w, Encoder&) { w << std::string(300, 's'); }},
      {"packages", [](Writer& w, Encoder&) { w << packages; }},
      {"mappings", [](Writer& w, Encoder& e) { e.write_encoder_mappings(w); }},
      {"name", [](Writer& w, Encoder& e) { AttributeName("user").write(w, e); }},
      {"map", [&](Writer& w, Encoder&) { w << samples; }},
      {"map, coded", [&](Writer& w, Encoder& e) { samples.write(w, e); }},
      {"value", [&](Writer& w, Encoder&) { w << AttributeValue(samples); }},
      {"error", [](Writer& w, Encoder&) { write_error_info(w, chain(200)); }},
      {"item",
       [](Writer& w, Encoder&) {
         MemoryReader reader(list_of(bytes_of([](Writer& to) { to << nested(100); })));
         copy_item(reader, w);
       }},
  };
  for (const Case& row : writes) {
    SCOPED_TRACE(row.name);
    std::vector<std::string> expected;
    with_each_writer({}, [&](auto& writer, auto&& written) {
      AttributeNameEncoder encoder(packages);
      row.write(writer, encoder);
      write_attribute_value(writer, encoder, good);
      expected.push_back(written());
    });
    auto next_expected = expected.begin();
    with_each_writer({}, [&](auto& writer, auto&& written) {
      AttributeNameEncoder encoder(packages);
      bool done = false;
      for (std::uint64_t n = 0; !done; ++n) {
        try {
          const ovtest::FailAllocations fail(n);
          row.write(writer, encoder);
          done = true;
        } catch (const std::bad_alloc&) {
        }
      }
      write_attribute_value(writer, encoder, good);
      EXPECT_EQ(written(), *next_expected++);
    });
  }
}

/// Raises once it took as many bytes.
class FailingStream final : public ovcore::IWriteStream {
 public:
  explicit FailingStream(std::size_t room) : m_room(room) {}
  void write(const void* data, std::size_t size) override {
    const std::size_t taken = std::min(size, m_room - bytes.size());
    bytes.append(static_cast<const char*>(data), taken);
    if (taken < size) ovcore::throw_error(ovcore::error::ovcore_stream_write, "full", {});
  }
  std::string bytes;

 private:
  const std::size_t m_room;
};

constexpr std::size_t endless = ~std::size_t{0};
const char* const target_failed = "The writer's target has failed";
const char* const part_is_gone =
    "The stream ends in the middle of a value that could not be written";

struct GoneCase {
  const char* name;
  std::size_t room;
  const char* failure;
  const char* message;
};
const GoneCase gone_cases[] = {{"a part was passed on", endless, chain_failure, part_is_gone},
                               {"the target fails in the middle", 5000, "full", target_failed}};

void expect_closed(Writer& writer, const char* message) {
  const auto& closed = ovserialize::error::ovserialize_writer_closed;
  AttributeNameEncoder encoder(packages);
  EXPECT_ERROR(writer << 1, closed, message);
  EXPECT_ERROR(writer << "", closed, message);
  EXPECT_ERROR(writer.write_null(), closed, message);
  EXPECT_ERROR(writer.begin_sequence(1), closed, message);
  EXPECT_ERROR(writer.begin_structure(), closed, message);
  EXPECT_ERROR(writer.write_binary(nullptr, 0), closed, message);
  EXPECT_ERROR(writer << good, closed, message);
  EXPECT_ERROR(write_attribute_value(writer, encoder, good), closed, message);
}

// What fails after two blocks of 3,000 bytes.
AttributeMap large_and_bad() {
  const BinaryValue large = block_of(std::string(3000, 'l'));
  return map_of({{{"large", large}}, {{"large", large}}, {{"bad", chain(2000)}}});
}

TEST(FailedWrite, WhoseBytesAreGoneIsTheLastOne) {
  for (const GoneCase& row : gone_cases) {
    SCOPED_TRACE(row.name);
    {
      FailingStream target(row.room);
      ovserialize::StreamWriter writer(target, {}, 2000);
      writer << good;
      EXPECT_EQ(failure_of([&] { writer << AttributeValue(large_and_bad()); }), row.failure);
      const std::string before = target.bytes;
      EXPECT_GT(before.size(), 2000u);
      expect_closed(writer, row.message);
      EXPECT_ERROR(writer.flush(), ovserialize::error::ovserialize_writer_closed, row.message);
      EXPECT_EQ(target.bytes, before);
    }
    {
      FailingStream stream(row.room);
      ovserialize::StreamTextTarget target(stream);
      ovserialize::TextWriter writer(target);
      writer << good;
      EXPECT_EQ(failure_of([&] { writer << AttributeValue(large_and_bad()); }), row.failure);
      const std::string before = stream.bytes;
      EXPECT_GT(before.size(), 3000u);
      expect_closed(writer, row.message);
      EXPECT_ERROR(writer.close(), ovserialize::error::ovserialize_writer_closed, row.message);
      EXPECT_EQ(stream.bytes, before);
    }
  }
}

/// Takes nothing back.
class PlainTarget final : public ovserialize::ITextTarget {
 public:
  void put(char c) override { text += c; }
  void write(const char* chars, std::size_t size) override { text.append(chars, size); }
  std::string text;
};

TEST(FailedWrite, OfTextIsTakenBackFromABuffer) {
  const auto write = [](bool with_bad) {
    std::string text;
    ovcore::StringWriteStream stream(text);
    ovserialize::StreamTextTarget target(stream);
    ovserialize::TextWriter writer(target, {}, small_limits);
    writer << good;
    if (with_bad) {
      EXPECT_EQ(failure_of([&] { writer << with_block; }), size_failure);
    }
    target.flush();
    if (with_bad) {
      EXPECT_EQ(failure_of([&] { writer << with_block; }), size_failure);
    }
    writer << good;
    writer.close();
    target.flush();
    return text;
  };
  EXPECT_EQ(write(true), write(false));
}

TEST(FailedWrite, ToATargetThatTakesNothingBackIsTheLastOneOnceItBegan) {
  PlainTarget target;
  ovserialize::TextWriter writer(target, {}, small_limits);
  EXPECT_EQ(failure_of([&] { write_binary_value(writer, too_large); }), size_failure);
  writer << 1;
  EXPECT_EQ(failure_of([&] { writer << with_block; }), size_failure);
  expect_closed(writer, part_is_gone);
}

TEST(FailedWrite, OfTextThatWasFlushedInVainLeavesNoGap) {
  FailingStream stream(0);
  ovserialize::StreamTextTarget target(stream);
  ovserialize::TextWriter writer(target);
  writer << 1;
  EXPECT_ERROR(target.flush(), ovcore::error::ovcore_stream_write, "full");
  writer << 2;
  EXPECT_ERROR(target.flush(), ovserialize::error::ovserialize_writer_closed, target_failed);
}

TEST(Savepoint, MakesSeveralItemsOne) {
  std::vector<std::string> expected;
  with_each_writer({}, [&](auto& writer, auto&& written) {
    AttributeNameEncoder encoder(packages);
    writer.begin_structure();
    AttributeName("time").write(writer, encoder);
    AttributeName("user").write(writer, encoder);
    writer.end_structure();
    expected.push_back(written());
  });
  auto next_expected = expected.begin();
  with_each_writer({}, [&](auto& writer, auto&& written) {
    AttributeNameEncoder encoder(packages);
    {
      const ovserialize::Savepoint never(writer);
      writer.begin_structure();
      encoder.write_encoder_mappings(writer);
    }
    ovserialize::Savepoint outer(writer);
    writer.begin_structure();
    AttributeName("time").write(writer, encoder);
    {
      const ovserialize::Savepoint inner(writer);
      writer.begin_sequence(1);
      AttributeName("picture").write(writer, encoder);
    }
    AttributeName("user").write(writer, encoder);
    writer.end_structure();
    outer.commit();
    EXPECT_EQ(written(), *next_expected++);
  });
}

// References that stand in what another writer wrote.
TEST(Savepoint, LeavesAnEncoderWhatItAnnouncedBefore) {
  AttributeNameEncoder encoder(packages);
  const std::string mappings = bytes_of([&](Writer& w) { encoder.write_encoder_mappings(w); });
  MemoryWriter writer;
  EXPECT_EQ(failure_of([&] { write_attribute_value(writer, encoder, nested(600)); }),
            depth_failure);
  write_attribute_value(writer, encoder, good);
  const std::string bytes = mappings + text_of(*writer.memory_list());
  MemoryReader reader(bytes.data(), bytes.size());
  AttributeNameDecoder decoder(packages, true);
  decoder.read_decoder_mappings(reader);
  EXPECT_EQ(read_attribute_value(reader, decoder), AttributeValue(good));
}

TEST(Savepoint, ForgetsAnEncoderThatGoes) {
  MemoryWriter writer;
  {
    const ovserialize::Savepoint savepoint(writer);
    AttributeNameEncoder other(packages);
    {
      AttributeNameEncoder encoder(packages);
      AttributeName("user").write(writer, encoder);
      AttributeName("time").write(writer, other);
    }
    AttributeName("user").write(writer, other);
  }
  EXPECT_EQ(text_of(*writer.memory_list()), "");
}

TEST(FailedWrite, OfJsonLeavesTheTextAtTheLastWholeValue) {
  const AttributeMap first{{"numbers", AttributeValue{1, 2}}, {"none", AttributeMap()}};
  const std::string long_text(2001, 'x');
  const SerializedValue serialized("type", list_of(long_text));
  struct BadCase {
    AttributeMap map;
    const char* failure;
  };
  const BadCase bad_cases[] = {
      {map_of({first, {{"bad", long_text}}}), text_failure},
      {map_of({first, {{"double", 0.5}}, {{"bad", AttributeMap{{long_text, 1}}}}}), text_failure},
      {map_of({{{"lossless", serialized}}}), text_failure},
      {map_of({{{"lossless", 0.5}}, {{"error", AttributeMap{{"text", chain(2000)}}}}}),
       chain_failure},
      {map_of({nested(300), nested(600)}), depth_failure},
  };
  for (const std::size_t indent : {0, 2}) {
    for (const BadCase& bad : bad_cases) {
      const auto write = [&](bool with_bad) {
        std::string text;
        ovcore::StringWriteStream target(text);
        ovjson::TextWriter writer(
            target, {.indent = indent, .max_value_size = 2000, .buffer_size = 1 << 20});
        const auto write_bad = [&] {
          if (with_bad) {
            EXPECT_EQ(failure_of([&] { write_attribute_value(writer, bad.map); }), bad.failure);
          }
        };
        write_bad();
        writer.begin_array();
        write_bad();
        write_attribute_value(writer, good, {.order_names_by_text = true});
        write_bad();
        writer.begin_object();
        writer.member_name("name");
        write_bad();
        write_attribute_value(writer, 0.5);
        writer.end_object();
        writer.end_array();
        writer.close();
        return text;
      };
      EXPECT_EQ(write(true), write(false));
    }
  }
}

TEST(FailedWrite, OfJsonWhoseTextIsGoneIsTheLastOne) {
  for (const std::size_t room : {endless, std::size_t{5000}}) {
    const char* const message =
        room == endless ? "Nothing can be written after part of a failed value was passed on"
                        : "Nothing can be written after the target failed";
    FailingStream target(room);
    ovjson::TextWriter writer(target, {.buffer_size = 2000});
    writer.begin_array();
    EXPECT_EQ(failure_of([&] { write_attribute_value(writer, large_and_bad()); }),
              room == endless ? chain_failure : "full");
    const std::string before = target.bytes;
    EXPECT_GT(before.size(), 2000u);
    const auto& closed = ovjson::error::ovjson_writer;
    EXPECT_ERROR(write_attribute_value(writer, good), closed, message);
    EXPECT_ERROR(writer.null_value(), closed, message);
    EXPECT_ERROR(writer.begin_array(), closed, message);
    EXPECT_ERROR(writer.end_array(), closed, message);
    EXPECT_ERROR(writer.flush(), closed, message);
    EXPECT_ERROR(writer.close(), closed, message);
    EXPECT_EQ(target.bytes, before);
  }
}

}  // namespace
}  // namespace ovattribute
