// SPDX-License-Identifier: Apache-2.0
// Tables in files: a row a line, columns between tabs, "%0a" and the like for bytes that cannot
// stand there; "#" begins a comment.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "ovcore/error_code.h"

namespace ovtest {

/// Replaces "%0a" and the like by the byte.
inline std::string decode_percent(std::string_view text) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      result += text[i];
      continue;
    }
    result += static_cast<char>(std::stoi(std::string(text.substr(i + 1, 2)), nullptr, 16));
    i += 2;
  }
  return result;
}

using Row = std::vector<std::string>;

/// The rows of a file under tests/data, at least that many columns each; fails the test when there
/// are none, or fewer columns.
inline std::vector<Row> read_table(const std::string& name, std::size_t columns) {
  std::ifstream file(OV_TEST_DATA "/" + name);
  std::vector<Row> rows;
  for (std::string line; std::getline(file, line);) {
    if (line.empty() || line[0] == '#') continue;
    Row& row = rows.emplace_back();
    std::string_view rest = line;
    for (std::size_t tab; (tab = rest.find('\t')) != rest.npos; rest.remove_prefix(tab + 1))
      row.push_back(decode_percent(rest.substr(0, tab)));
    row.push_back(decode_percent(rest));
    EXPECT_GE(row.size(), columns) << name << ": " << line;
    row.resize(std::max(row.size(), columns));
  }
  EXPECT_FALSE(rows.empty()) << name;
  return rows;
}

/// The code of a family: code_of("error.ovjson", "reader").
inline ovcore::ErrorCode code_of(const std::string& family, const std::string& member) {
  return ovcore::ErrorCode(ovcore::SourceString(member.empty() ? family : family + "." + member));
}

}  // namespace ovtest
