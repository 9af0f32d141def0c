// SPDX-License-Identifier: Apache-2.0

// The bytes of a small table, one by one: what docs/format/shared-tables.md shows as its example.
// A change here is a change of the format, and readers written in other languages break.

#include <cstddef>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <utility>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "testing/TableFile.h"
#include "testing/TemporaryRoot.h"
#include "testing/TestTables.h"

namespace {

using glint_test::SmallRow;
using glint_test::State;

// The table of the example: two rows, one of them written twice, a third one removed.
void makeExample(const std::string& root) {
  State state(root);
  auto& rows = state.mount<SmallRow>("example", 4)->rows();
  rows.rowIs({.key = 1, .value = 0x1111});
  rows.rowIs({.key = 2, .value = 0x2222});
  rows.rowIs({.key = 3, .value = 0x3333});
  rows.rowIs({.key = 2, .value = 0x22222222});
  rows.rowDel(3);
  rows.control().scratchpadIs(42);
}

// 16 bytes per line, each line with its offset in the file.
std::string dump(const testing_support::Bytes& bytes, std::size_t begin, std::size_t end) {
  std::string text;
  for (std::size_t at = begin; at < end; ++at) {
    if ((at - begin) % 16 == 0) {
      text += fmt::format("{}{:05x} ", at == begin ? "" : "\n", at);
    }
    text += fmt::format(" {:02x}", static_cast<unsigned char>(bytes[at]));
  }
  return text;
}

class SharedTableFormatTest : public ::testing::Test {
 protected:
  SharedTableFormatTest() {
    makeExample(root_.path());
    bytes_ = testing_support::readFile(root_.path() + "/example.table");
  }

  testing_support::TemporaryRoot root_;
  testing_support::Bytes bytes_;
};

TEST_F(SharedTableFormatTest, TheFileIsAsLongAsItsPartsInWholePages) {
  EXPECT_EQ(bytes_.size(), 4U * 4096U);
}

TEST_F(SharedTableFormatTest, TheHeaderIsAsDocumented) {
  EXPECT_EQ(dump(bytes_, 0, 304), R"(00000  4c 4f 41 4d 54 42 4c 00 01 00 00 00 00 10 00 00
00010  d5 84 31 18 93 dc 4b 98 10 00 00 00 08 00 00 00
00020  38 00 00 00 04 00 00 00 08 00 00 00 04 00 00 00
00030  00 00 00 00 00 04 00 00 67 6c 69 6e 74 5f 74 65
00040  73 74 3a 3a 53 6d 61 6c 6c 52 6f 77 00 00 00 00
00050  00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00
00060  00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00
00070  00 00 00 00 00 00 00 00 72 6f 77 73 00 00 00 00
00080  00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00
00090  00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00
000a0  00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00
000b0  69 18 ba 1b 33 6e b5 7c ca 36 e0 a4 61 12 e4 52
000c0  02 00 00 00 00 00 00 00 02 00 00 00 93 65 52 66
000d0  08 00 00 00 2a 5b 87 ab 00 00 00 00 e1 96 3c 5a
000e0  00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00
000f0  00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00
00100  0b 00 00 00 00 00 5e 96 76 c6 9e 77 ee fc 98 e0
00110  00 00 00 00 00 00 00 00 ee 6f ff ee 85 5a 61 9b
00120  2a 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00)");
}

TEST_F(SharedTableFormatTest, TheBucketHeadsAreAsDocumented) {
  EXPECT_EQ(dump(bytes_, 0x1000, 0x1010),
            R"(01000  02 00 00 66 00 00 00 5a 00 00 00 5a 00 00 00 5a)");
}

TEST_F(SharedTableFormatTest, TheLinksAreAsDocumented) {
  EXPECT_EQ(dump(bytes_, 0x2000, 0x2020), R"(02000  00 00 00 5a 01 00 00 c4 00 00 00 5a 00 00 00 5a
02010  00 00 00 5a 00 00 00 5a 00 00 00 5a 00 00 00 5a)");
}

TEST_F(SharedTableFormatTest, TheSlotsAreAsDocumented) {
  EXPECT_EQ(dump(bytes_, 0x3000, 0x3000 + 4 * 56),
            R"(03000  07 00 00 00 00 00 b8 09 00 00 00 00 00 00 00 00
03010  00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00
03020  79 a8 fc fb c7 eb 12 6c 01 00 00 00 00 00 00 00
03030  11 11 00 00 00 00 00 00 0a 00 00 00 00 00 16 74
03040  16 d9 9e 8d fa d9 0f c4 02 00 00 00 00 00 00 00
03050  22 22 22 22 00 00 00 00 dd 0c d5 52 ff ff ec 39
03060  02 00 00 00 00 00 00 00 22 22 00 00 00 00 00 00
03070  09 00 00 00 00 00 cf d5 00 00 00 00 00 00 00 00
03080  00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00
03090  08 9c b3 fe ce 0a f1 b9 03 00 00 00 00 00 00 00
030a0  33 33 00 00 00 00 00 00 00 00 00 00 00 00 3c 5a
030b0  00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00
030c0  00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00
030d0  00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00)");
}

// Each line of the example's dump is an offset, bytes and a comment.
TEST_F(SharedTableFormatTest, TheDocumentedDumpIsThatOfTheFile) {
  std::ifstream document(FORMAT_DOCS "/shared-tables.md");
  ASSERT_TRUE(document);
  const std::regex dumped("^([0-9a-f]{5})  ((?:[0-9a-f]{2} ){7,15}[0-9a-f]{2})(?: .*)?$");
  std::size_t count = 0;
  for (std::string line; std::getline(document, line);) {
    std::smatch match;
    if (!std::regex_match(line, match, dumped)) {
      continue;
    }
    std::istringstream bytes(match[2]);
    std::size_t at = std::stoul(match[1], nullptr, 16);
    for (unsigned byte = 0; bytes >> std::hex >> byte; ++at, ++count) {
      EXPECT_EQ(static_cast<unsigned char>(bytes_.at(at)), byte) << line;
    }
  }
  EXPECT_GE(count, 400U) << "the example is shown";
}

TEST_F(SharedTableFormatTest, EverythingBetweenThePartsIsZero) {
  const std::size_t slotsEnd = 0x3000 + 8 * 56;
  for (const auto& [begin, end] : {std::pair<std::size_t, std::size_t>{296, 0x1000},
                                   {0x1010, 0x2000},
                                   {0x2020, 0x3000},
                                   {slotsEnd, bytes_.size()}}) {
    for (std::size_t at = begin; at < end; ++at) {
      ASSERT_EQ(bytes_[at], '\0') << "offset " << at;
    }
  }
}

TEST_F(SharedTableFormatTest, AFileOfTheseBytesMountsAndReadsAsItWasWritten) {
  const testing_support::TemporaryRoot other;
  testing_support::writeFile(other.path() + "/example.table", bytes_);
  State state(other.path());
  auto& rows = state.mount<SmallRow>("example", 4)->rows();
  EXPECT_EQ(rows.rowCount(), 2U);
  EXPECT_EQ(rows.row(1), (SmallRow{.key = 1, .value = 0x1111}));
  EXPECT_EQ(rows.row(2), (SmallRow{.key = 2, .value = 0x22222222}));
  EXPECT_FALSE(rows.has(3));
  EXPECT_EQ(rows.control().scratchpad(), 42U);
}

}  // namespace
