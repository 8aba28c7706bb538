// SPDX-License-Identifier: Apache-2.0
// Blocks read as streams, sources that deliver late, sources and targets that fail.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <thread>

#include "ovcore/error_codes.h"
#include "ovserialize/error_codes.h"
#include "ovserialize/memory_reader.h"
#include "ovserialize/memory_writer.h"
#include "ovserialize/stream_reader.h"
#include "ovserialize/stream_writer.h"
#include "ovserialize/transcode.h"
#include "tests/ovserialize/items.h"
#include "tests/support/allocations.h"
#include "tests/support/error_matcher.h"
#include "tests/support/splits.h"

namespace ovserialize {
namespace {

using ovcore::IReadStream;
using ovcore::RefCountPtr;

std::string read_out(IReadStream& stream, std::size_t size) {
  std::string text(size, '\0');
  text.resize(stream.read(text.data(), size));
  return text;
}

std::string block_between_nulls(std::size_t size) {
  MemoryWriter writer;
  writer.write_null();
  const std::string block(size, 'b');
  writer.write_binary(block.data(), block.size());
  writer << "after";
  return text_of(*writer.detach());
}

void expect_after(Reader& reader) {
  std::string after;
  reader >> after;
  EXPECT_EQ(after, "after");
  EXPECT_TRUE(reader.at_end());
}

template <class Test>
void with_readers_of(std::string_view bytes, Test&& test) {
  {
    SCOPED_TRACE("memory");
    MemoryReader reader(bytes.data(), bytes.size());
    test(reader, true);
  }
  for (const std::size_t size : {1, 3, 1000}) {
    SCOPED_TRACE(size);
    const auto list = MemoryList::create({.segment_size = size});
    list->append(bytes.data(), bytes.size());
    MemoryReader reader(list);
    test(reader, true);
    ovtest::PieceStream source(bytes, {size});
    StreamReader stream_reader(source, {}, 64);
    test(stream_reader, false);
  }
}

TEST(BlockStream, IsSkippedFromWhereverItWasLeft) {
  for (const std::size_t size : {0, 1, 10, 500}) {
    for (const std::size_t taken : {0, 1, 9, 400, 1000}) {
      with_readers_of(block_between_nulls(size), [&](Reader& reader, bool in_memory) {
        reader.read_null();
        const auto stream = reader.read_binary_stream();
        if (in_memory) {
          EXPECT_EQ(stream->remaining(), size);
        } else {
          EXPECT_TRUE(stream->remaining() == size || stream->remaining() == IReadStream::unknown);
        }
        const std::size_t there = std::min(size, taken);
        EXPECT_EQ(read_out(*stream, taken), std::string(there, 'b'));
        if (stream->remaining() != IReadStream::unknown) {
          EXPECT_EQ(stream->remaining(), size - there);
        }
        expect_after(reader);
        if (taken >= size) {
          EXPECT_EQ(read_out(*stream, 1), "");
        } else {
          EXPECT_ERROR(read_out(*stream, 1), error::ovserialize_reader_closed,
                       "The reader has gone on from the block that this stream reads");
        }
      });
    }
  }
}

TEST(BlockStream, LengthIsKnownOnlyInMemory) {
  const std::string bytes = block_between_nulls(100);
  for (const std::size_t buffer : {64, 1000}) {
    ovtest::PieceStream source(bytes, {1000});
    StreamReader reader(source, {}, buffer);
    reader.read_null();
    EXPECT_EQ(reader.read_binary_stream()->remaining(), buffer == 64 ? IReadStream::unknown : 100u);
    expect_after(reader);
  }
}

TEST(BlockStream, EveryOperationGoesOn) {
  const std::string bytes = from_hex("43616263f6");
  using Operation = void (*)(Reader&);
  for (const Operation operation : {
           Operation([](Reader& r) { EXPECT_EQ(r.item_kind(), item_null); }),
           Operation([](Reader& r) { EXPECT_FALSE(r.at_end()); }),
           Operation([](Reader& r) { r.read_null(); }),
           Operation([](Reader& r) {
             EXPECT_ERROR(r.read_uint(), error::ovserialize_reader_kind,
                          "Expected an unsigned integer at offset 4, found null");
           }),
           Operation([](Reader& r) {
             EXPECT_ERROR(r.begin_structure(), error::ovserialize_reader_kind,
                          "Expected a structure at offset 4, found null");
           }),
           Operation([](Reader& r) {
             EXPECT_ERROR(r.read_binary_stream(), error::ovserialize_reader_kind,
                          "Expected a binary block at offset 4, found null");
           }),
       }) {
    with_readers_of(bytes, [&](Reader& reader, bool) {
      const auto stream = reader.read_binary_stream();
      EXPECT_EQ(read_out(*stream, 1), "a");
      EXPECT_EQ(reader.offset(), 4u);
      operation(reader);
      EXPECT_ERROR(read_out(*stream, 1), error::ovserialize_reader_closed,
                   "The reader has gone on from the block that this stream reads");
    });
  }
}

TEST(BlockStream, OutlivesItsReaderAsAnError) {
  const std::string bytes = from_hex("43616263");
  RefCountPtr<IReadStream> stream;
  with_readers_of(bytes, [&](Reader& reader, bool) { stream = reader.read_binary_stream(); });
  EXPECT_ERROR(read_out(*stream, 1), error::ovserialize_reader_closed,
               "The reader has gone on from the block that this stream reads");
}

TEST(BlockStream, ManyBlocksUseOneObject) {
  MemoryWriter writer;
  for (int i = 0; i < 100; ++i)
    writer.write_binary("abc", 3);
  MemoryReader reader(writer.detach());
  static_cast<void>(reader.read_binary_stream());
  EXPECT_EQ(ovtest::allocations_of([&] {
              for (int i = 1; i < 100; ++i)
                static_cast<void>(reader.read_binary_stream());
            }),
            0u);
  EXPECT_TRUE(reader.at_end());
}

TEST(BlockStream, TruncationIsNoEnd) {
  const std::string bytes = from_hex("4a616263");
  with_readers_of(bytes, [&](Reader& reader, bool) {
    const auto stream = reader.read_binary_stream();
    EXPECT_EQ(stream->remaining(), IReadStream::unknown);
    EXPECT_EQ(read_out(*stream, 3), "abc");
    EXPECT_ERROR(read_out(*stream, 1), error::ovserialize_reader_truncated,
                 "The stream ends too early, at offset 4");
  });
}

TEST(MemoryReader, LargeBlocksShareSmallOnesDoNot) {
  const std::string block(6000, 'b');
  MemoryWriter writer;
  writer.write_binary(block.data(), block.size());
  writer.write_binary(block.data(), 100);
  MemoryReader reader(writer.detach());
  const auto before = ovtest::allocation_counts().bytes;
  const auto large = reader.read_memory_list_as_binary();
  EXPECT_LT(ovtest::allocation_counts().bytes - before, 1000u);
  const auto small = reader.read_memory_list_as_binary();
  EXPECT_EQ(text_of(*large), block);
  EXPECT_EQ(text_of(*small), block.substr(0, 100));
  EXPECT_TRUE(reader.at_end());
}

TEST(MemoryReader, WhatIsReadOfAWipingListIsWipedToo) {
  MemoryWriter writer({.wiping = true});
  writer.write_binary("secret", 6);
  MemoryReader reader(writer.detach());
  EXPECT_TRUE(reader.read_memory_list_as_binary()->wiping());
}

TEST(Transcode, DeepStreamsNeedNoDeepStack) {
  const Limits wide{.max_depth = 1000000};
  std::string bytes(500000, '\xf1');
  bytes += std::string(500000, '\xf0') + "\xf6" + std::string(500000, '\xf2');
  MemoryReader reader(bytes.data(), bytes.size(), wide);
  MemoryWriter writer({}, wide);
  copy_items(reader, writer);
  EXPECT_EQ(text_of(*writer.detach()), bytes);
}

TEST(StreamReader, AnswersBeforeTheNextItemIsSent) {
  int sockets[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, sockets), 0);
  const Items items = all_items();
  // The other side sends an item only when the one before was answered.
  std::thread sender([&] {
    for (const Item& item : items) {
      const std::string bytes = to_binary({item});
      if (::write(sockets[1], bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
        std::abort();
      char answer;
      if (::read(sockets[1], &answer, 1) != 1) std::abort();
    }
    ::shutdown(sockets[1], SHUT_WR);
  });
  ovcore::FileReadStream source(sockets[0]);
  StreamReader reader(source);
  for (const Item& item : items) {
    // One item at a time, and nothing asked that needs a byte behind it.
    MemoryWriter one;
    ASSERT_EQ(reader.item_kind(), item.kind);
    copy_item(reader, one);
    EXPECT_EQ(text_of(*one.detach()), to_binary({item}));
    ASSERT_EQ(::write(sockets[0], "!", 1), 1);
  }
  EXPECT_TRUE(reader.at_end());
  sender.join();
  ::close(sockets[0]);
  ::close(sockets[1]);
}

/// Delivers some bytes, then fails.
class FailingSource final : public IReadStream {
 public:
  explicit FailingSource(std::string_view text) : m_text(text) {}
  std::size_t read(void* buffer, std::size_t size) override { return read_some(buffer, size); }
  std::size_t read_some(void* buffer, std::size_t size) override {
    if (m_text.empty()) ovcore::throw_error(ovcore::error::ovcore_stream_read, "broken", {});
    size = m_text.copy(static_cast<char*>(buffer), size);
    m_text.remove_prefix(size);
    return size;
  }
  [[nodiscard]] std::uint64_t remaining() const override { return unknown; }

 private:
  std::string_view m_text;
};

TEST(StreamReader, ASourceThatFailsIsNoEnd) {
  const std::string bytes = to_binary(all_items());
  for (std::size_t size = 0; size < bytes.size(); ++size) {
    FailingSource source(std::string_view(bytes).substr(0, size));
    StreamReader reader(source, {}, 40);
    EXPECT_ERROR(read_all(reader), ovcore::error::ovcore_stream_read, "broken");
  }
}

/// Takes some bytes, then fails.
class FailingTarget final : public ovcore::IWriteStream {
 public:
  explicit FailingTarget(std::size_t size) : m_left(size) {}
  void write(const void*, std::size_t size) override {
    if (size > m_left) ovcore::throw_error(ovcore::error::ovcore_stream_write, "full", {});
    m_left -= size;
  }

 private:
  std::size_t m_left;
};

TEST(StreamWriter, ATargetThatFailsEndsTheWriting) {
  const Items items = all_items();
  for (const std::size_t buffer : {1, 64, 5000}) {
    FailingTarget target(300);
    StreamWriter writer(target, {}, buffer);
    EXPECT_ERROR((write(writer, items), writer.flush()), ovcore::error::ovcore_stream_write,
                 "full");
    EXPECT_ERROR(writer.write_null(), error::ovserialize_writer_closed,
                 "The writer's target has failed");
    EXPECT_ERROR(writer << "text", error::ovserialize_writer_closed,
                 "The writer's target has failed");
    EXPECT_ERROR(writer.flush(), error::ovserialize_writer_closed,
                 "The writer's target has failed");
  }
}

}  // namespace
}  // namespace ovserialize
