// SPDX-License-Identifier: Apache-2.0
// Values nested to the limit: legal in one form, legal in all, and on a small stack. Needs public
// headers only, so that it can be built against any installation.
#include <gtest/gtest.h>

#include <pthread.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <functional>
#include <iostream>
#include <map>
#include <streambuf>
#include <string>
#include <utility>
#include <vector>

#include "ovattribute/attribute_map.h"
#include "ovattribute/attribute_name_coder.h"
#include "ovattribute/attribute_value_marshaler.h"
#include "ovattribute/json_marshaler.h"
#include "ovattribute/nesting.h"
#include "ovattribute/trace_formatter.h"
#include "ovcore/error_info.h"
#include "ovjson/error_codes.h"
#include "ovserialize/error_codes.h"
#include "ovserialize/memory_reader.h"
#include "ovserialize/memory_writer.h"
#include "ovserialize/stream_reader.h"
#include "ovserialize/text_reader.h"
#include "ovserialize/text_target.h"
#include "ovserialize/text_writer.h"
#include "ovserialize/transcode.h"
#include "tests/ovattribute/marshaling.h"
#include "tests/support/error_matcher.h"
#include "tests/support/hex.h"

namespace ovattribute {
namespace {

using ovtest::from_hex;

/// Runs `work` in a thread of its own. Returns the bytes of the stack that it used, with all that a
/// thread needs anyway.
std::size_t stack_used(const std::function<void()>& work) {
  constexpr std::size_t size = std::size_t{8} << 20;
  constexpr unsigned char paint = 0xa5;
  void* const stack =
      mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (stack == MAP_FAILED) return ADD_FAILURE() << "no memory for a stack", 0;
  std::memset(stack, paint, size);

  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstack(&attributes, stack, size);
  pthread_t thread;
  const auto run = [](void* f) -> void* {
    (*static_cast<const std::function<void()>*>(f))();
    return nullptr;
  };
  EXPECT_EQ(
      pthread_create(&thread, &attributes, run, const_cast<void*>(static_cast<const void*>(&work))),
      0);
  EXPECT_EQ(pthread_join(thread, nullptr), 0);
  pthread_attr_destroy(&attributes);

  const auto* const bytes = static_cast<const unsigned char*>(stack);
  const auto untouched =
      std::find_if(bytes, bytes + size, [](unsigned char b) { return b != paint; });
  const auto used = static_cast<std::size_t>(bytes + size - untouched);
  munmap(stack, size);
  return used;
}

std::string repeated(const std::string& text, std::size_t times) {
  std::string result;
  while (times-- > 0)
    result += text;
  return result;
}

/// A value in the binary form: `depth - 1` times `head`, the innermost map, and as often `tail`.
struct Shape {
  const char* name;
  const char* head;
  const char* innermost;
  const char* tail;

  [[nodiscard]] std::string bytes(std::size_t depth) const {
    return repeated(from_hex(head), depth - 1) + from_hex(innermost) +
           repeated(from_hex(tail), depth - 1);
  }
};

const Shape shapes[] = {
    {"map in map", "ec f0 f0 616d", "ec f0 9f00ff", ""},
    {"map in list of one that is not counted", "ec 9f00 f0 616d", "ec 9f00 9f00ff ff", "ff"},
    {"map in map that is not counted", "ec f0 9f00 616d", "ec f0 9f00ff", "ff"},
    {"first of two", "ec 9f02 f0 616d", "ec 9f02 9f00ff 9f00ff ff", "9f00ff ff"},
    {"last of two", "ec 9f02 9f00ff f0 616d", "ec 9f02 9f00ff 9f00ff ff", "ff"},
    {"last of three that are not counted", "ec 9f00 9f00ff 9f00ff f0 616d", "ec f0 9f00ff", "ff"},
    {"second of two members", "ec f0 9f00 6161 f6 616d", "ec f0 9f00ff", "ff"},
};

std::string text_of_items(const std::string& bytes) {
  std::string text;
  ovserialize::StringTextTarget target(text);
  ovserialize::MemoryReader items(bytes.data(), bytes.size());
  ovserialize::TextWriter writer(target);
  ovserialize::copy_items(items, writer);
  writer.close();
  return text;
}
std::string lossless(const std::string& text) {
  std::string result = "{\"ovserialize\":\"";
  for (const char c : text) {
    if (c == '"') result += '\\';
    result += c;
  }
  return result + "\"}";
}

struct Discard final : std::streambuf {
  int overflow(int c) override { return c; }
  std::streamsize xsputn(const char*, std::streamsize size) override { return size; }
};

AttributeValue read_binary(const std::string& bytes) {
  ovserialize::MemoryReader reader(bytes.data(), bytes.size());
  return read_attribute_value(reader);
}
AttributeValue read_coded(const std::string& bytes) {
  ovcore::MemoryReadStream stream(bytes.data(), bytes.size());
  ovserialize::StreamReader reader(stream);
  AttributeNameDecoder decoder(nullptr, false);
  return read_attribute_value(reader, decoder);
}
AttributeValue read_text(const std::string& text) {
  ovcore::MemoryReadStream stream(text.data(), text.size());
  ovserialize::TextReader reader(stream);
  return read_attribute_value(reader);
}

void print(const AttributeValue& value, const TraceFormatter& formatter) {
  Discard discard;
  std::ostream out(&discard);
  value.write_trace(out, formatter, 0);
}

std::string binary_form(const AttributeValue& value) {
  ovserialize::MemoryWriter writer;
  write_attribute_value(writer, value);
  return text_of(*writer.detach());
}
std::string coded_form(const AttributeValue& value) {
  ovserialize::MemoryWriter writer;
  AttributeNameEncoder encoder(nullptr);
  write_attribute_value(writer, encoder, value);
  return text_of(*writer.detach());
}
std::string text_form(const AttributeValue& value) {
  std::string text;
  ovserialize::StringTextTarget target(text);
  ovserialize::TextWriter writer(target);
  write_attribute_value(writer, value);
  writer.close();
  return text;
}
std::string json_form(const AttributeValue& value) {
  return to_json(value);
}
AttributeValue read_json(const std::string& text) {
  return parse_json(text);
}

struct Form {
  const char* name;
  std::string (*write)(const AttributeValue&);
  AttributeValue (*read)(const std::string&);
  const ovcore::ErrorCode& too_deep;
};

const Form forms[] = {
    {"binary", binary_form, read_binary, ovserialize::error::ovserialize_reader_depth},
    {"coded", coded_form, read_coded, ovserialize::error::ovserialize_reader_depth},
    {"text", text_form, read_text, ovserialize::error::ovserialize_reader_depth},
    {"JSON", json_form, read_json, ovjson::error::ovjson_reader},
};

/// What takes most levels of the framing inside the innermost map.
AttributeValue list_of_errors() {
  const auto error =
      ovcore::ErrorInfo::create(ovcore::ErrorCode("error.x"), "m", {{"p", "1"}}, {}, nullptr);
  return AttributeValue::list_of(std::vector{error, error});
}

TEST(Nesting, HasOneLimitInAllForms) {
  const std::size_t limit = nesting_limit();
  for (const AttributeValue& innermost : {AttributeValue{1, 2}, list_of_errors()}) {
    for (const bool lists : {false, true}) {
      const auto nested = [&](std::size_t depth) {
        AttributeMap map{{"m", innermost}};
        while (--depth > 0) {
          AttributeValue value(std::move(map));
          if (lists) value.append(AttributeMap());
          map = AttributeMap{{"m", std::move(value)}};
        }
        return lists ? AttributeValue{std::move(map), AttributeMap()} : AttributeValue(map);
      };
      const AttributeValue deepest = nested(limit);
      const AttributeValue too_deep = nested(limit + 1);
      for (const Form& form : forms) {
        SCOPED_TRACE(form.name + std::string(lists ? ", in lists" : ""));
        EXPECT_EQ(form.read(form.write(deepest)), deepest);
        EXPECT_ERROR(form.write(too_deep), ovserialize::error::ovserialize_writer_depth,
                     "Writing maps nested deeper than 512");
        set_nesting_limit(limit + 1);
        const std::string written = form.write(too_deep);
        set_nesting_limit(limit);
        const auto info = ovtest::error_of([&] { static_cast<void>(form.read(written)); });
        ASSERT_TRUE(info);
        EXPECT_EQ(info->code(), form.too_deep);
      }
    }
  }
  EXPECT_ERROR(parse_json(repeated("{\"a\":", 512) + "{}"), ovjson::error::ovjson_reader,
               "Maps nest deeper than 512 [line 1, pos 2561]");
  EXPECT_ERROR(parse_json(repeated("[{\"a\":", 512) + "[{\"a\":1}]"), ovjson::error::ovjson_reader,
               "Maps nest deeper than 512 [line 1, pos 3079]");
}

/// Half of 256 KiB; four times as much without optimisation and 4 MiB under sanitizers, which make
/// frames large.
constexpr std::size_t limit =
#if defined(OV_TEST_SANITIZED)
    std::size_t{4} << 20;
#elif defined(OV_TEST_OPTIMIZED)
    std::size_t{128} << 10;
#else
    std::size_t{512} << 10;
#endif

TEST(Nesting, NeedsHalfOfASmallStack) {
  const std::size_t depth = default_nesting_limit;
  std::map<std::string, std::size_t> most;
  for (const Shape& shape : shapes) {
    SCOPED_TRACE(shape.name);
    const std::string bytes = shape.bytes(depth);
    const std::string text = text_of_items(bytes);
    const std::string text_in_json = lossless(text);
    const AttributeValue value = read_binary(bytes);
    const AttributeValue same = read_binary(bytes);
    const AttributeValue unreadable(AttributeMap{{"", read_binary(shape.bytes(depth - 1))}});
    AttributeValue last = read_binary(bytes);
    const std::string json = to_json(value);
    const TraceFormatter sorted = TraceFormatter::Composer().order_names_by_text(true).compose();
    const std::pair<const char*, std::function<void()>> operations[] = {
        {"read binary", [&] { last = read_binary(bytes); }},
        {"destroy", [&] { last = AttributeValue(); }},
        {"read coded", [&] { last = read_coded(bytes); }},
        {"read text", [&] { last = read_text(text); }},
        {"read JSON", [&] { last = parse_json(json); }},
        {"read text inside JSON", [&] { last = parse_json(text_in_json); }},
        {"write binary", [&] { static_cast<void>(binary_form(value)); }},
        {"write coded", [&] { static_cast<void>(coded_form(value)); }},
        {"write text", [&] { static_cast<void>(text_form(value)); }},
        {"write JSON", [&] { static_cast<void>(to_json(value)); }},
        {"write sorted JSON",
         [&] { static_cast<void>(to_json(value, {.order_names_by_text = true})); }},
        {"write text inside JSON", [&] { static_cast<void>(to_json(unreadable)); }},
        {"hash", [&] { static_cast<void>(value.hash()); }},
        {"std::hash", [&] { static_cast<void>(std::hash<AttributeValue>()(value)); }},
        {"compare", [&] { static_cast<void>(value.compare(same)); }},
        {"equal", [&] { static_cast<void>(value == same); }},
        {"trace", [&] { print(value, TraceFormatter()); }},
        {"sorted trace", [&] { print(value, sorted); }},
    };
    for (const auto& [name, work] : operations) {
      const std::size_t used = stack_used(work);
      EXPECT_LE(used, limit) << name;
      std::size_t& most_of_it = most[name];
      most_of_it = std::max(most_of_it, used);
    }
  }
  for (const auto& [name, used] : most)
    std::cout << "  " << name << " " << used << "\n";
}

}  // namespace
}  // namespace ovattribute
