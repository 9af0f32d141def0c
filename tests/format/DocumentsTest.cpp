// SPDX-License-Identifier: Apache-2.0

// docs/format/ against what it describes: its hexadecimal dumps are pieces of real files, its
// tables of names and figures are those of the code.

#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "GoldenState.h"
#include "Wirex/IntfId.h"
#include "testing/TableFile.h"
#include "testing/TemporaryRoot.h"
#include "testing/TextFile.h"

namespace {

using Cells = std::vector<std::string>;

std::string document(const std::string& name) {
  return testing_support::textOf(std::string(FORMAT_DOCS) + "/" + name);
}

// The rows of each Markdown table whose first column's title is `title`, without code quotes.
std::vector<Cells> rowsOfTable(const std::string& text, const std::string& title) {
  std::vector<Cells> rows;
  std::istringstream lines(text);
  bool inside = false;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("| " + title + " |")) {
      inside = true;
      std::getline(lines, line);
    } else if (!line.starts_with("| ")) {
      inside = false;
    } else if (inside) {
      Cells cells;
      std::istringstream parts(line.substr(1));
      for (std::string cell; std::getline(parts, cell, '|');) {
        const std::regex edges("^[ `]+|[ `]+$");
        cells.push_back(std::regex_replace(cell, edges, ""));
      }
      rows.push_back(cells);
    }
  }
  return rows;
}

Glint::FixedHeader headerOf(const std::string& file) {
  return testing_support::wordAt<Glint::FixedHeader>(file, 0);
}

class DocumentsTest : public ::testing::Test {
 protected:
  DocumentsTest() { format_test::restoreGoldenState(root_.path()); }
  std::string fileAt(const std::string& name) const { return root_.path() + "/" + name; }

  testing_support::TemporaryRoot root_;
};

// A dump begins with ``` and the file's name.
TEST_F(DocumentsTest, TheDumpsOfFecRowsArePiecesOfTheGoldenFiles) {
  std::istringstream lines(document("fec-rows.md"));
  const std::regex dumped("^([0-9a-f]{6})  ((?:[0-9a-f]{2} ){7,15}[0-9a-f]{2})(?:  .*)?$");
  std::string file;
  std::set<std::string> files;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("```")) {
      file = line.substr(3);
      continue;
    }
    if (file.empty()) {
      continue;
    }
    std::smatch match;
    ASSERT_TRUE(std::regex_match(line, match, dumped)) << line;
    std::istringstream bytes(match[2]);
    std::uint64_t at = std::stoull(match[1], nullptr, 16);
    for (unsigned byte = 0; bytes >> std::hex >> byte; ++at) {
      EXPECT_EQ(testing_support::wordAt<std::uint8_t>(fileAt(file), at), byte)
          << file << ": " << line;
    }
    files.insert(file);
  }
  EXPECT_EQ(files.size(), 4U) << "a dump of each kind of file";
}

TEST_F(DocumentsTest, TheFilesFiguresAreThoseOfTheirHeaders) {
  const auto rows = rowsOfTable(document("fec-rows.md"), "file below the state folder");
  ASSERT_EQ(rows.size(), 4U);
  for (const Cells& row : rows) {
    ASSERT_EQ(row.size(), 5U);
    const std::string name = std::regex_replace(row[0], std::regex("<N>"),
                                                std::to_string(format_test::kGoldenUnit.value()));
    const Glint::FixedHeader header = headerOf(fileAt(name));
    EXPECT_STREQ(header.collectionName.data(), row[1].c_str());
    EXPECT_EQ(std::to_string(header.nominalCapacity), row[3]) << name;
    EXPECT_EQ(std::to_string(header.slotCount), row[4]) << name;
  }
}

TEST_F(DocumentsTest, TheRowTypesFiguresAreThoseOfTheirFiles) {
  std::set<Cells> documented;
  for (Cells row : rowsOfTable(document("fec-rows.md"), "rows")) {
    row.erase(row.begin());
    documented.insert(row);
  }
  const std::uint32_t versions[] = {Glint::RowTraits<format_test::ConfigRow>::kLayoutVersion,
                                    Glint::RowTraits<format_test::LogRow>::kLayoutVersion,
                                    Glint::RowTraits<Asic::GroupLogRow>::kLayoutVersion,
                                    Glint::RowTraits<Asic::GroupVersionRow>::kLayoutVersion};
  std::set<Cells> real;
  for (std::size_t i = 0; i < format_test::kGoldenFiles.size(); ++i) {
    const Glint::FixedHeader header = headerOf(fileAt(format_test::kGoldenFiles[i]));
    real.insert({header.rowTypeName.data(), std::to_string(versions[i]),
                 std::to_string(header.rowBytes), std::to_string(header.keyBytes),
                 std::to_string(static_cast<std::uint32_t>(header.keyHash)),
                 fmt::format("{:#018x}", header.layoutDigest)});
  }
  EXPECT_EQ(documented, real);
}

TEST_F(DocumentsTest, TheInterfaceExamplesAreWhatTheNamesGive) {
  const auto rows = rowsOfTable(document("interface-identifiers.md"), "name");
  EXPECT_GE(rows.size(), 9U);
  for (const Cells& row : rows) {
    ASSERT_EQ(row.size(), 2U);
    EXPECT_EQ(fmt::format("{:#018x}", Wirex::IntfId::fromName(row[0]).value()), row[1]) << row[0];
  }
}

TEST_F(DocumentsTest, TheInterfacePrefixesAreAllAndInTheirRows) {
  const auto rows = rowsOfTable(document("interface-identifiers.md"), "row");
  std::uint64_t number = 0;
  for (const Cells& row : rows) {
    ASSERT_EQ(row.size(), 3U);
    EXPECT_EQ(row[0], std::to_string(number));
    // Every place that the row has, with a number of its own.
    std::string name = row[1] + "1";
    std::uint64_t value = std::uint64_t{1} << 62U | number << 54U | std::uint64_t{2} << 34U;
    const unsigned shifts[] = {26, 19, 13};
    std::istringstream joiners(std::regex_replace(row[2], std::regex("`"), ""));
    std::uint64_t place = 0;
    for (std::string joiner; joiners >> joiner; ++place) {
      ASSERT_LT(place, 3U) << row[1];
      name += joiner + std::to_string(place + 2);
      value |= (place + 3) << shifts[place];
    }
    EXPECT_EQ(Wirex::IntfId::fromName(name + ".5").value(), value | 6U) << name;
    ++number;
  }
  const std::uint64_t next = std::uint64_t{1} << 62U | number << 54U;
  EXPECT_EQ(Wirex::IntfId::fromValue(next).name(), fmt::format("invalid({:#018x})", next))
      << "a row that is not documented";
}

}  // namespace
