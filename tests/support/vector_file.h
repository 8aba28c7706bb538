// SPDX-License-Identifier: Apache-2.0
// Test vectors in files: blocks of "Name = hex" lines, parted by empty lines; "#" begins a comment,
// in which every block names where it comes from. An empty value is no bytes.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/hex.h"

namespace ovtest {

/// One block: bytes by name.
class Vector {
 public:
  /// "file:line" of the first line.
  [[nodiscard]] const std::string& place() const noexcept { return m_place; }
  /// Fails the test when there is no such line.
  [[nodiscard]] const std::string& operator[](const std::string& name) const {
    static const std::string none;
    const auto found = m_bytes.find(name);
    if (found != m_bytes.end()) return found->second;
    ADD_FAILURE() << m_place << " has no " << name;
    return none;
  }

 private:
  friend std::vector<Vector> read_vectors(const std::string& name);
  std::string m_place;
  std::map<std::string, std::string> m_bytes;
};

/// The blocks of a file under tests/data; fails the test when there are none.
inline std::vector<Vector> read_vectors(const std::string& name) {
  std::ifstream file(OV_TEST_DATA "/" + name);
  std::vector<Vector> vectors;
  bool in_block = false;
  int number = 0;
  for (std::string line; std::getline(file, line);) {
    ++number;
    if (line.starts_with('#')) continue;
    const std::size_t equals = line.find(" =");
    if (equals == line.npos) {
      EXPECT_EQ(line, "") << name << ":" << number;
      in_block = false;
      continue;
    }
    if (!in_block) {
      vectors.emplace_back().m_place = name + ":" + std::to_string(number);
      in_block = true;
    }
    const std::string hex = line.substr(std::min(line.size(), equals + 3));
    EXPECT_EQ(hex.size() % 2, 0u) << name << ":" << number;
    EXPECT_EQ(hex.find_first_not_of("0123456789abcdefABCDEF"), hex.npos) << name << ":" << number;
    vectors.back().m_bytes[line.substr(0, equals)] = from_hex(hex);
  }
  EXPECT_FALSE(vectors.empty()) << name;
  return vectors;
}

}  // namespace ovtest
