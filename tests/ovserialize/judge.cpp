// SPDX-License-Identifier: Apache-2.0
#include "tests/ovserialize/judge.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <vector>

#include "ovcore/utf8.h"
#include "ovserialize/item_kind.h"

namespace ovserialize {
namespace {

/// The item as judge.py expects it: JSON values, separated by commas where it is several CBOR
/// items.
std::vector<std::string> expectations(const Items& items);

std::string joined(const std::vector<std::string>& parts, const char* separator) {
  std::string result;
  for (const std::string& part : parts) {
    if (&part != &parts.front()) result += separator;
    result += part;
  }
  return result;
}

std::string quoted(const char* kind, const std::string& value) {
  return std::string("[\"") + kind + "\", \"" + value + "\"]";
}

void append_expectations(std::vector<std::string>& to, const Item& item) {
  const auto add = [&to](std::string text) { to.push_back(std::move(text)); };
  const auto signed_number = std::to_string(static_cast<std::int64_t>(item.number));
  switch (item.kind) {
    case item_boolean:
      return add(item.number != 0 ? "[\"boolean\", true]" : "[\"boolean\", false]");
    case item_integer:
      return add(quoted("integer", signed_number));
    case item_unsigned:
      return add(quoted("unsigned", std::to_string(item.number)));
    case item_double:
      return add(quoted("double", std::to_string(item.number)));
    case item_string:
      return add(
          quoted(ovcore::is_utf8(item.bytes) ? "string" : "bytes-string", to_hex(item.bytes)));
    case item_absolute_time:
      return add(quoted("absolute", signed_number));
    case item_relative_time:
      return add(quoted("relative", signed_number));
    case item_uuid:
      return add(quoted("uuid", to_hex(item.bytes)));
    case item_binary:
      return add(quoted("binary", to_hex(item.bytes)));
    case item_sequence: {
      const auto inside = expectations(item.inside);
      if (item.number != 1) {
        return add("[\"sequence\", \"" + std::to_string(item.number) + "\", [" +
                   joined(inside, ", ") + "]]");
      }
      add("[\"mark\", 16]");
      to.insert(to.end(), inside.begin(), inside.end());
      return;
    }
    case item_structure: {
      const auto inside = expectations(item.inside);
      add("[\"mark\", 17]");
      to.insert(to.end(), inside.begin(), inside.end());
      return add("[\"mark\", 18]");
    }
    default:
      return add("[\"null\"]");
  }
}

std::vector<std::string> expectations(const Items& items) {
  std::vector<std::string> result;
  for (const Item& item : items)
    append_expectations(result, item);
  return result;
}

}  // namespace

void expect_python_reads(const std::string& stream, const Items& items) {
  const std::string name = testing::TempDir() + "ovserialize_judge_" + std::to_string(::getpid());
  const std::string stream_file = name + ".cbor";
  const std::string expected_file = name + ".jsonl";
  std::ofstream(stream_file, std::ios::binary) << stream;
  std::ofstream(expected_file) << joined(expectations(items), "\n") << "\n";
  const std::string command = "/usr/bin/python3 " OV_SOURCE_ROOT "/tests/ovserialize/judge.py " +
                              stream_file + " " + expected_file;
  const int status = std::system(command.c_str());
  ::unlink(stream_file.c_str());
  ::unlink(expected_file.c_str());
  if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "python3-cbor2 is not installed";
  EXPECT_EQ(status, 0);
}

}  // namespace ovserialize
